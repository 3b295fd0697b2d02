// Deep copies of values: what is copied, how much of it, and with which status. That clones of all
// types encode like their originals stands in type_table_test.cc.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cerrno>
#include <string>

#include "vtapi.h"

#include "tests/codec/codec_support.h"
#include "tests/codec/tlv_vectors.h"
#include "tests/harness/faults.h"
#include "tests/harness/hex.h"

namespace {

using namespace vt::testing;

// Cloned is a copy inside an element that releases it, and the status that came with it.
struct Cloned {
  TlvPtr tlv;
  std::uint32_t status = 77;
};

Cloned Clone(std::uint32_t type, std::uint32_t value_len, const void* value) {
  Cloned result;
  void* copy = vt_clone_tlv_ptr(type, value_len, value, &result.status);
  const AllocationFault::Pause pause;
  result.tlv = MakeTlv(type, value_len + VT_TLV_HEADER_SIZE, 0, copy);
  return result;
}

// ValueOfOneEntry is the value of an aggregate with this entry, which stays the caller's.
aggregated_value ValueOfOneEntry(void** slots, void* entry) {
  aggregated_value value = {};
  std::memset(value.device.id.bytes, 'd', 32);
  slots[0] = entry;
  value.entries = slots;
  value.entry_count = 1;
  return value;
}

// ---- Status.

TEST(TlvClone, NullValueIsANullSource) {
  for (const TlvVector& v : kPlainVectors) {
    if ((v.type & VT_TLV_NUMBER_MASK) == 37 || (v.type & VT_TLV_NUMBER_MASK) == 42) continue;
    SCOPED_TRACE(v);
    const Cloned copy = Clone(v.type, 0, nullptr);
    EXPECT_EQ(copy.tlv->value, nullptr);
    EXPECT_EQ(copy.status, 4U);
  }
  for (const TlvVector& v : kAggregatedVectors) {
    SCOPED_TRACE(v);
    const Cloned copy = Clone(v.type, 0, nullptr);
    EXPECT_EQ(copy.tlv->value, nullptr);
    EXPECT_EQ(copy.status, 4U);
  }
}

TEST(TlvClone, TypesWithoutValueCloneToNullWithSuccess) {
  for (const std::uint32_t type : {37U, 42U, 0x40000025U, 0x4000002AU, 52U, 60U, 0x3FFFFFFFU}) {
    SCOPED_TRACE(type);
    for (const void* value :
         {static_cast<const void*>("abcd"), static_cast<const void*>(nullptr)}) {
      const AllocationCount allocations;
      std::uint32_t status = 77;
      EXPECT_EQ(vt_clone_tlv_ptr(type, 4, value, &status), nullptr);
      EXPECT_EQ(status, 0U);
      EXPECT_EQ(allocations.allocations(), 0U);
    }
  }
}

TEST(TlvClone, LengthAboveTheSignedRangeIsOutOfMemory) {
  for (const std::uint32_t type : {0U, 2U, 3U, 9U, 10U, 28U, 36U, 0x8000000DU, 0x8000002BU}) {
    for (const std::uint32_t value_len : {0x80000000U, 0xFFFFFFF4U, 0xFFFFFFFFU}) {
      SCOPED_TRACE(type);
      const AllocationCount allocations;
      std::uint32_t status = 77;
      const aggregated_value value = {};
      EXPECT_EQ(vt_clone_tlv_ptr(type, value_len, &value, &status), nullptr);
      EXPECT_EQ(status, 1U);
      EXPECT_EQ(allocations.allocations(), 0U);
    }
  }
}

TEST(TlvClone, ExhaustedMemoryIsStatusOneForEveryType) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const Decoded got = DecodeAll(Hex(v.wire));
    ASSERT_NE(got.tlv, nullptr);
    if (got.tlv->value == nullptr) continue;
    const std::size_t failed = SweepAllocationFailures([&](AllocationFault& fault) {
      const Cloned copy = Clone(v.type, got.tlv->length - VT_TLV_HEADER_SIZE, got.tlv->value);
      EXPECT_EQ(copy.status, fault.hit() ? 1U : 0U);
      EXPECT_EQ(copy.tlv->value == nullptr, fault.hit());
    });
    EXPECT_GT(failed, 0U);
  }
}

// ---- Sizes.

TEST(TlvClone, OpaqueValuesAreCopiedInExactlyTheirLength) {
  for (const std::uint32_t type : {0U, 4U, 10U, 23U, 24U}) {
    SCOPED_TRACE(type);
    const HeapBytes source(Hex("61 62 00 63 64"));
    const Cloned copy = Clone(type, 5, source.data());
    EXPECT_EQ(copy.status, 0U);
    ASSERT_NE(copy.tlv->value, nullptr);
    EXPECT_NE(copy.tlv->value, source.data());
    EXPECT_BYTES(copy.tlv->value, 5, "61 62 00 63 64");
  }
}

TEST(TlvClone, OpaqueValueOfNoBytesIsABlock) {
  const Cloned copy = Clone(10, 0, "");
  EXPECT_EQ(copy.status, 0U);
  EXPECT_NE(copy.tlv->value, nullptr);
  EXPECT_EQ(vt_get_tlv_size(copy.tlv.get()), 12U);
}

TEST(TlvClone, IdentitiesAndVectorsArePaddedWithZerosToTheirRecord) {
  const FillAllocations fill(0xA5);
  const struct {
    std::uint32_t type;
    std::uint32_t record;
  } rows[] = {{2, 32}, {20, 32}, {21, 32}, {30, 32}, {36, 44}, {39, 22}, {0x40000002, 32}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.type);
    for (const std::uint32_t given : {0U, 1U, 8U, row.record - 1}) {
      SCOPED_TRACE(given);
      const HeapBytes source(Bytes(given, 0x31));
      const Cloned copy = Clone(row.type, given, source.data());
      EXPECT_EQ(copy.status, 0U);
      ASSERT_NE(copy.tlv->value, nullptr);
      ASSERT_GE(malloc_usable_size(copy.tlv->value), row.record);
      Bytes expected(given, 0x31);
      expected.resize(row.record, 0);
      EXPECT_TRUE(SameBytes(expected, copy.tlv->value, row.record));
    }
  }
}

TEST(TlvClone, IdentityOfEightBytesEncodesInFull) {
  const HeapBytes source(Text("12345678"));
  const Cloned copy = Clone(2, 8, source.data());
  EXPECT_EQ(copy.status, 0U);
  EXPECT_TRUE(
      SameBytes(Hex("00000002 0000002c 00000000 3132333435363738 24*00"), Encode(copy.tlv.get())));
}

TEST(TlvClone, IdentitiesLongerThanTheirRecordAreCopiedWhole) {
  const HeapBytes source(Hex("36*41"));
  const Cloned copy = Clone(2, 36, source.data());
  EXPECT_EQ(copy.status, 0U);
  ASSERT_NE(copy.tlv->value, nullptr);
  EXPECT_BYTES(copy.tlv->value, 36, "36*41");
  EXPECT_EQ(vt_get_tlv_size(copy.tlv.get()), 44U);
}

TEST(TlvClone, OtherTypesGoByTheirRecordAndNotByTheLength) {
  const std::uint32_t number = 0x01020304;
  for (const std::uint32_t value_len : {0U, 1U, 4U, 100U}) {
    SCOPED_TRACE(value_len);
    const Cloned copy = Clone(3, value_len, &number);
    EXPECT_EQ(copy.status, 0U);
    ASSERT_NE(copy.tlv->value, nullptr);
    EXPECT_EQ(*static_cast<std::uint32_t*>(copy.tlv->value), 0x01020304U);
  }
}

TEST(TlvClone, TextsAreMeasuredWhateverTheLengthSays) {
  for (const std::uint32_t value_len : {0U, 2U, 4U, 45U}) {
    SCOPED_TRACE(value_len);
    const Cloned copy = Clone(9, value_len, "name");
    EXPECT_EQ(copy.status, 0U);
    EXPECT_STREQ(static_cast<const char*>(copy.tlv->value), "name");
  }
}

TEST(TlvClone, PlainCombinedTypesAreTheirValueAlone) {
  const FillAllocations fill(0xA5);
  for (const std::uint32_t value_len : {0U, 26U, 68U}) {
    const HeapBytes number(Hex("3412"));
    const HeapBytes usages(Hex("22*07"));
    const HeapBytes deltas(Hex("44*08"));
    Cloned copy = Clone(43, value_len, number.data());
    EXPECT_BYTES(copy.tlv->value, 2, "3412");
    copy = Clone(44, value_len, usages.data());
    EXPECT_BYTES(copy.tlv->value, 22, "22*07");
    copy = Clone(45, value_len, deltas.data());
    EXPECT_BYTES(copy.tlv->value, 44, "44*08");
  }
}

// Values that callers hold as bytes may lie at any address.
TEST(TlvClone, ValuesGivenAsBytesMayLieAtOddAddresses) {
  const GuardedBytes bytes = GuardedBytes::AtOddAddress(Hex("44*41"));
  const std::uint8_t* odd = bytes.data() + (reinterpret_cast<std::uintptr_t>(bytes.data()) + 1) % 2;
  const struct {
    std::uint32_t type;
    std::uint32_t len;
  } rows[] = {{0, 5}, {1, 36}, {2, 32}, {10, 7}, {23, 16}, {36, 43}, {39, 22}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.type);
    const Cloned copy = Clone(row.type, row.len, odd);
    EXPECT_EQ(copy.status, 0U);
    ASSERT_NE(copy.tlv->value, nullptr);
    EXPECT_TRUE(SameBytes(Bytes(row.len, 0x41), copy.tlv->value, row.len));
  }
}

// ---- Structures.

TEST(TlvClone, StructuresAreCopiedWithTheirParts) {
  char label[] = "label";
  char data[] = "data";
  neighbor near = {};
  near.label = label;
  near.data = data;
  near.data_len = 4;
  const Cloned copy = Clone(28, 84, &near);
  EXPECT_EQ(copy.status, 0U);
  const auto* copied = static_cast<const neighbor*>(copy.tlv->value);
  ASSERT_NE(copied, nullptr);
  label[0] = '?';
  data[0] = '?';
  EXPECT_STREQ(copied->label, "label");
  EXPECT_BYTES(copied->data, 4, "64617461");
}

// The placeholder of a read query is an all-zero record.
TEST(TlvClone, AllZeroStructuresCloneWithSuccess) {
  const neighbor near = {};
  const recurrence repeat = {};
  Cloned copy = Clone(28, 84, &near);
  EXPECT_EQ(copy.status, 0U);
  EXPECT_NE(copy.tlv->value, nullptr);
  EXPECT_EQ(vt_get_tlv_size(copy.tlv.get()), 56U);
  copy = Clone(46, 12, &repeat);
  EXPECT_EQ(copy.status, 0U);
  EXPECT_NE(copy.tlv->value, nullptr);
  EXPECT_EQ(vt_get_tlv_size(copy.tlv.get()), 22U);
}

// ---- Aggregates.

TEST(TlvClone, AggregateIsCopiedInAllItsParts) {
  const Bytes wire = Hex("8000002b 0000007a 00000000" VT_DEVICE "00000001" VT_USAGE_FULL
                         "1234 00000002" VT_USAGE_EMPTY "ffff");
  const Decoded got = DecodeAll(wire);
  ASSERT_NE(got.tlv, nullptr);
  const Cloned copy = Clone(0x8000002B, 110, got.tlv->value);
  EXPECT_EQ(copy.status, 0U);
  ASSERT_NE(copy.tlv->value, nullptr);
  const aggregated_value& value = Aggregated(copy.tlv.get());
  EXPECT_NE(value.device.data, Aggregated(got.tlv.get()).device.data);
  EXPECT_NE(value.entries, Aggregated(got.tlv.get()).entries);
  const combo_entry& entry = ComboEntry(copy.tlv.get(), 0);
  EXPECT_NE(entry.usage.text1, ComboEntry(got.tlv.get(), 0).usage.text1);
  EXPECT_STREQ(entry.usage.text2, "rol");
  EXPECT_EQ(entry.usage.small, -3);
  EXPECT_NE(entry.data, ComboEntry(got.tlv.get(), 0).data);
}

TEST(TlvClone, AggregateWithoutArrayOrCountHasNoEntries) {
  for (const TlvVector& v : kAggregatedVectors) {
    SCOPED_TRACE(v);
    aggregated_value value = {};
    value.entry_count = 3;
    Cloned copy = Clone(v.type, 48, &value);
    EXPECT_EQ(copy.status, 0U);
    ASSERT_NE(copy.tlv->value, nullptr);
    EXPECT_EQ(Aggregated(copy.tlv.get()).entry_count, 0U);
    EXPECT_EQ(Aggregated(copy.tlv.get()).entries, nullptr);

    void* slots[16] = {};
    value.entry_count = 0;
    value.entries = slots;
    copy = Clone(v.type, 48, &value);
    EXPECT_EQ(copy.status, 0U);
    ASSERT_NE(copy.tlv->value, nullptr);
    EXPECT_EQ(Aggregated(copy.tlv.get()).entry_count, 0U);
    EXPECT_EQ(Aggregated(copy.tlv.get()).entries, nullptr);
  }
}

TEST(TlvClone, NullEntryIsANullSource) {
  for (const TlvVector& v : kAggregatedVectors) {
    SCOPED_TRACE(v);
    const Decoded got = DecodeAll(Hex(v.wire));
    ASSERT_NE(got.tlv, nullptr);
    void* slots[16] = {Aggregated(got.tlv.get()).entries[0], nullptr};
    aggregated_value value = Aggregated(got.tlv.get());
    value.entries = slots;
    const Cloned copy = Clone(v.type, 48, &value);
    EXPECT_EQ(copy.status, 4U);
    EXPECT_EQ(copy.tlv->value, nullptr);
  }
}

TEST(TlvClone, UnknownAggregateCopiesHeaderAndTags) {
  char block[] = "address";
  plain_entry entry = {5, 4, block};
  void* slots[16] = {};
  aggregated_value value = ValueOfOneEntry(slots, &entry);
  value.device.data = block;
  value.device.data_len = 7;
  const Cloned copy = Clone(0x8000003C, 60, &value);
  EXPECT_EQ(copy.status, 0U);
  ASSERT_NE(copy.tlv->value, nullptr);
  const aggregated_value& copied = Aggregated(copy.tlv.get());
  EXPECT_BYTES(copied.device.data, 7, "61646472657373");
  ASSERT_EQ(copied.entry_count, 1U);
  EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).tag, 5U);
  EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).data, nullptr);
}

TEST(TlvClone, EntriesOfTypesWithoutValueKeepTheirTagAlone) {
  for (const std::uint32_t type : {0x80000025U, 0x8000002AU}) {
    char data[] = "ab";
    plain_entry entry = {7, 2, data};
    void* slots[1];
    const aggregated_value value = ValueOfOneEntry(slots, &entry);
    const Cloned copy = Clone(type, 48, &value);
    ASSERT_EQ(copy.status, 0U);
    EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).tag, 7U);
    EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).data_len, 0U);
    EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).data, nullptr);
  }
}

TEST(TlvClone, NullTextsAndBlocksOfEntriesStayNullWithSuccess) {
  void* slots[16] = {};
  plain_entry plain = {5, 0, nullptr};
  for (const std::uint32_t type : {0x80000009U, 0x8000000AU, 0x8000002AU}) {
    SCOPED_TRACE(type);
    const aggregated_value value = ValueOfOneEntry(slots, &plain);
    const Cloned copy = Clone(type, 48, &value);
    EXPECT_EQ(copy.status, 0U);
    ASSERT_NE(copy.tlv->value, nullptr);
    EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).tag, 5U);
    EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).data, nullptr);
  }

  std::uint16_t number = 0;
  combo_entry combined = {};
  combined.data = &number;
  const aggregated_value value = ValueOfOneEntry(slots, &combined);
  const Cloned copy = Clone(0x8000002B, 48, &value);
  EXPECT_EQ(copy.status, 0U);
  ASSERT_NE(copy.tlv->value, nullptr);
  EXPECT_EQ(ComboEntry(copy.tlv.get(), 0).usage.text1, nullptr);
  EXPECT_EQ(vt_get_tlv_size(copy.tlv.get()), 81U);
}

TEST(TlvClone, LengthAndBlockOfACloneAgree) {
  char block[] = "abc";
  void* slots[16] = {};
  // A length without a block, and a block without a length.
  plain_entry entry = {5, 9, nullptr};
  aggregated_value value = ValueOfOneEntry(slots, &entry);
  value.device.data_len = 9;
  Cloned copy = Clone(0x8000000A, 48, &value);
  EXPECT_EQ(copy.status, 0U);
  ASSERT_NE(copy.tlv->value, nullptr);
  EXPECT_EQ(Aggregated(copy.tlv.get()).device.data_len, 0U);
  EXPECT_EQ(Aggregated(copy.tlv.get()).device.data, nullptr);
  EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).data_len, 0U);
  EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).data, nullptr);

  entry = {5, 0, block};
  value = ValueOfOneEntry(slots, &entry);
  value.device.data = block;
  copy = Clone(0x8000000A, 48, &value);
  EXPECT_EQ(copy.status, 0U);
  ASSERT_NE(copy.tlv->value, nullptr);
  EXPECT_EQ(Aggregated(copy.tlv.get()).device.data, nullptr);
  EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).data, nullptr);
}

TEST(TlvClone, BlocksOfEntriesAreCopiedInTheLengthOfTheEntry) {
  const HeapBytes block(Text("abcd"));
  void* slots[16] = {};
  plain_entry entry = {5, 4, const_cast<std::uint8_t*>(block.data())};
  const aggregated_value value = ValueOfOneEntry(slots, &entry);
  const Cloned copy = Clone(0x8000000A, 1000, &value);
  EXPECT_EQ(copy.status, 0U);
  ASSERT_NE(copy.tlv->value, nullptr);
  EXPECT_EQ(PlainEntry(copy.tlv.get(), 0).data_len, 4U);
  EXPECT_BYTES(PlainEntry(copy.tlv.get(), 0).data, 4, "61626364");
}

// The codec measures texts, so what an entry records for them is of no account.
TEST(TlvClone, TextsOfEntriesAreMeasured) {
  for (const std::uint32_t data_len : {0U, 1U, 3U, 4U, 99U}) {
    SCOPED_TRACE(data_len);
    const HeapBytes text(Hex("616263 00"));
    void* slots[16] = {};
    plain_entry entry = {5, data_len, const_cast<std::uint8_t*>(text.data())};
    const aggregated_value value = ValueOfOneEntry(slots, &entry);
    const Cloned copy = Clone(0x80000009, 48, &value);
    EXPECT_EQ(copy.status, 0U);
    ASSERT_NE(copy.tlv->value, nullptr);
    EXPECT_STREQ(static_cast<const char*>(PlainEntry(copy.tlv.get(), 0).data), "abc");
  }
}

TEST(TlvClone, EntryArrayHasRoomUpToAMultipleOfSixteen) {
  const FillAllocations fill(0xA5);
  std::uint16_t number = 7;
  plain_entry entry = {5, 2, &number};
  for (const std::uint32_t count : {1U, 3U, 16U, 17U}) {
    SCOPED_TRACE(count);
    std::vector<void*> slots(count, &entry);
    aggregated_value value = {};
    value.entries = slots.data();
    value.entry_count = count;
    const Cloned copy = Clone(0x8000000D, 48, &value);
    EXPECT_EQ(copy.status, 0U);
    ASSERT_NE(copy.tlv->value, nullptr);
    const aggregated_value& copied = Aggregated(copy.tlv.get());
    ASSERT_EQ(copied.entry_count, count);
    const std::size_t room = (count + 15) / 16 * 16;
    const std::size_t usable = malloc_usable_size(copied.entries);
    constexpr std::size_t kRoundedUpBy = 64;  // by malloc, at most
    ASSERT_GE(usable, room * sizeof(void*));
    EXPECT_LE(usable, room * sizeof(void*) + kRoundedUpBy);
    for (std::size_t i = count; i < room; ++i) EXPECT_EQ(copied.entries[i], nullptr) << i;
  }
}

// ---- Elements that a message makes of copies.

struct FreeEvent {
  void operator()(Event* ev) const { cv_cleanup_event(ev); }
};

TEST(TlvClone, ElementOfAnUnknownTypeIsAddedToAMessageWithoutItsValue) {
  Event* ev = corvane_create_my_packet();
  ASSERT_NE(ev, nullptr);
  EXPECT_EQ(cv_add_tlv(ev, 60, VT_TLV_HEADER_SIZE + 4, "abcd"), 0);
  EXPECT_EQ(ev->tlvs[0]->value, nullptr);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev), 12u);
  // As one that an application fills in itself.
  ev->tlvs[0]->value = HeapCopy("abcd", 4);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev), 12u);
  cv_cleanup_event(ev);
}

TEST(TlvClone, EntryOfATypeWithoutValueLosesTheOneItWasGiven) {
  plain_entry entry = {7, 4, const_cast<char*>("abcd")};
  void* slots[16] = {};
  const aggregated_value value = ValueOfOneEntry(slots, &entry);
  const Cloned got = Clone(0x80000025, 0, &value);
  EXPECT_EQ(got.status, 0U);
  EXPECT_EQ(PlainEntry(got.tlv.get(), 0).tag, 7U);
  EXPECT_EQ(PlainEntry(got.tlv.get(), 0).data, nullptr);
  EXPECT_EQ(PlainEntry(got.tlv.get(), 0).data_len, 0U);
}

TEST(TlvClone, ElementWithoutValueIsAddedToAMessage) {
  const std::unique_ptr<Event, FreeEvent> ev(corvane_create_my_packet());
  ASSERT_NE(ev, nullptr);
  const std::uint32_t ignored = 5;
  EXPECT_EQ(cv_add_tlv(ev.get(), 42, 16, &ignored), 0);
  const Tlv* tlv = cv_get_next_tlv(ev.get(), 42);
  ASSERT_NE(tlv, nullptr);
  EXPECT_EQ(tlv->length, 16U);
  EXPECT_EQ(tlv->value, nullptr);
  EXPECT_EQ(vt_get_tlv_size(tlv), 12U);
  EXPECT_TRUE(SameBytes(Hex("0000002a 0000000c 00000000"), Encode(tlv)));
}

TEST(TlvClone, ShortIdentityIsAddedToAMessageInFull) {
  const std::unique_ptr<Event, FreeEvent> ev(corvane_create_my_packet());
  ASSERT_NE(ev, nullptr);
  const HeapBytes source(Text("12345678"));
  EXPECT_EQ(cv_add_tlv(ev.get(), 2, 20, source.data()), 0);
  const Tlv* tlv = cv_get_next_tlv(ev.get(), 2);
  ASSERT_NE(tlv, nullptr);
  EXPECT_EQ(tlv->length, 20U);
  EXPECT_TRUE(SameBytes(Hex("00000002 0000002c 00000000 3132333435363738 24*00"), Encode(tlv)));
}

}  // namespace
