// Release of elements whose parts are missing. Leaks and double frees show under the sanitizers.
#include <gtest/gtest.h>

#include "vtapi.h"

#include "tests/codec/codec_support.h"
#include "tests/codec/tlv_vectors.h"
#include "tests/harness/hex.h"

namespace {

using namespace vt::testing;

// WithEntries is an aggregate that takes over an array of count slots.
TlvPtr WithEntries(std::uint32_t type, std::uint32_t count, void** entries) {
  auto* value = HeapRecord<aggregated_value>();
  value->entry_count = count;
  value->entries = entries;
  return MakeTlv(type, 60, 0, value);
}

void** Slots(std::size_t count) {
  return static_cast<void**>(
      HeapCopy(std::vector<void*>(count, nullptr).data(), count * sizeof(void*)));
}

TEST(TlvFree, NullIsIgnored) {
  vt_free_tlv_ptr(nullptr);
  vt_free_ptr(nullptr);
  SUCCEED();
}

TEST(TlvFree, ElementsWithoutValueAreReleased) {
  for (const TlvVector& v : AllVectors()) MakeTlv(v.type, 12, 0, nullptr).reset();
  MakeTlv(60, 20, 0, nullptr).reset();
  MakeTlv(0x8000003C, 20, 0, nullptr).reset();
}

TEST(TlvFree, ElementsMadeByTheCallerAreReleasedWithTheirParts) {
  MakeTlv(3, 16, 0, HeapCopy("abcd", 4)).reset();
  MakeTlv(9, 16, 0, HeapText("abc")).reset();
  MakeTlv(10, 16, 0, HeapCopy("ab\0", 4)).reset();
  MakeTlv(60, 16, 0, HeapCopy("abcd", 4)).reset();  // of an unknown type: a plain block
  MakeTlv(37, 16, 0, HeapCopy("abcd", 4)).reset();  // of a type that carries no value: the same

  auto* near = HeapRecord<neighbor>();
  near->label = HeapText("label");
  near->data = HeapCopy("data", 4);
  near->data_len = 4;
  MakeTlv(28, 96, 0, near).reset();

  auto* repeat = HeapRecord<recurrence>();
  repeat->text = HeapText("daily");
  MakeTlv(46, 24, 0, repeat).reset();
}

TEST(TlvFree, StructuresWithoutTheirPartsAreReleased) {
  MakeTlv(28, 96, 0, HeapRecord<neighbor>()).reset();
  MakeTlv(46, 24, 0, HeapRecord<recurrence>()).reset();
}

TEST(TlvFree, AggregatesWithoutArrayAreReleasedWhateverTheirCount) {
  for (const TlvVector& v : kAggregatedVectors) {
    WithEntries(v.type, 0, nullptr).reset();
    WithEntries(v.type, 3, nullptr).reset();
  }
}

TEST(TlvFree, NullSlotsAndEntriesWithoutDataAreReleased) {
  for (const TlvVector& v : kAggregatedVectors) {
    void** entries = Slots(16);
    entries[1] = cv_is_combo_tlv(v.type) == 1 ? static_cast<void*>(HeapRecord<combo_entry>())
                                              : static_cast<void*>(HeapRecord<plain_entry>());
    WithEntries(v.type, 3, entries).reset();
  }
}

TEST(TlvFree, DeviceBlockAndEntryPartsAreReleased) {
  void** entries = Slots(16);
  auto* entry = HeapRecord<combo_entry>();
  entry->usage.text1 = HeapText("lamp");
  entry->usage.text3 = HeapText("keywords");
  entry->data = HeapCopy("ab", 2);
  entries[0] = entry;
  const TlvPtr tlv = WithEntries(0x8000002B, 1, entries);
  auto* value = static_cast<aggregated_value*>(tlv->value);
  value->device.data = HeapCopy("address", 7);
  value->device.data_len = 7;
}

TEST(TlvFree, EntriesThatOwnRecordsAreReleasedWithThem) {
  void** entries = Slots(16);
  auto* entry = HeapRecord<plain_entry>();
  auto* near = HeapRecord<neighbor>();
  near->label = HeapText("label");
  entry->data = near;
  entries[0] = entry;
  WithEntries(0x8000001C, 1, entries).reset();

  entries = Slots(16);
  entry = HeapRecord<plain_entry>();
  auto* repeat = HeapRecord<recurrence>();
  repeat->text = HeapText("daily");
  entry->data = repeat;
  entries[0] = entry;
  WithEntries(0x8000002E, 1, entries).reset();
}

TEST(TlvFree, UnknownAggregatesAreReleasedWithTheirEntries) {
  void** entries = Slots(16);
  auto* entry = HeapRecord<plain_entry>();
  entry->data = HeapCopy("abcd", 4);
  entries[0] = entry;
  WithEntries(0x8000003C, 1, entries).reset();
}

}  // namespace
