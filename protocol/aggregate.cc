// Aggregated elements: found or made for a device, and filled entry by entry.
#include "vtapi/aggregate.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "vtapi/enumerations.h"

#include "codec/memory.h"
#include "codec/tlv_memory.h"
#include "protocol/tlv_list.h"

namespace {

using vt::codec::CopyBlock;
using vt::codec::CopyText;
using vt::codec::Extent;
using vt::codec::kEntryBlock;

// The length of a new aggregate: the 12 bytes of an element's header and the 48 of the aggregate's
// 32-bit layout, on every build.
constexpr std::uint32_t kAggregateLength = 60;

aggregated_value* Aggregate(const Tlv* tlv) { return static_cast<aggregated_value*>(tlv->value); }

// How many bytes of data an entry keeps, by base type.
enum class Measure { kFixed, kText, kTextWithTerminator };

struct EntryShape {
  std::uint32_t type;
  Measure measure;
  std::uint32_t size;  // of kFixed
};

constexpr EntryShape kPlainShapes[] = {
    {CV_CORVANE_TLV_TYPE_ROLE, Measure::kText, 0},
    {CV_CORVANE_TLV_TYPE_NAME, Measure::kText, 0},
    {VT_TLV_TEXT_48, Measure::kText, 0},
    // Deliberate: keywords count their terminator, which the other texts do not.
    {CV_CORVANE_TLV_TYPE_KEYWORDS, Measure::kTextWithTerminator, 0},
    {CV_CORVANE_TLV_TYPE_UNITS, Measure::kFixed, 1},
    {CV_CORVANE_TLV_TYPE_LEVEL_CURRENT, Measure::kFixed, 1},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE, Measure::kFixed, 1},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_I, Measure::kFixed, 1},
    {CV_CORVANE_TLV_TYPE_USAGE, Measure::kFixed, 2},
    {VT_TLV_USAGE_CALIBER, Measure::kFixed, 4},
    {VT_TLV_USAGE_CATEGORY, Measure::kFixed, 4},
    {VT_TLV_USAGE_VECTOR, Measure::kFixed, sizeof(usage_vector)},
    {VT_TLV_DELTA_VECTOR, Measure::kFixed, sizeof(delta_vector)},
};

constexpr EntryShape kComboShapes[] = {
    {VT_TLV_COMBINED_USAGE, Measure::kFixed, sizeof(std::uint16_t)},
    {VT_TLV_COMBINED_USAGE_VECTOR, Measure::kFixed, sizeof(usage_vector)},
    {VT_TLV_COMBINED_DELTA_VECTOR, Measure::kFixed, sizeof(delta_vector)},
};

const EntryShape* ShapeOf(std::span<const EntryShape> shapes, std::uint32_t type) {
  const std::uint32_t base = type & ~VT_TLV_AGGREGATED;
  for (const EntryShape& shape : shapes) {
    if (shape.type == base) return &shape;
  }
  return nullptr;
}

// GrownArray returns the array with a block of slots more, or null and leaves it as it was. An
// array inside the block of its element stays there and is copied.
void** GrownArray(const Extent& own, const aggregated_value& aggregate) {
  const std::size_t slots = std::size_t{aggregate.entry_count / kEntryBlock + 1} * kEntryBlock;
  if (!own.Holds(aggregate.entries)) {
    return static_cast<void**>(vt::codec::ResizeBlock(aggregate.entries, slots * sizeof(void*)));
  }
  void** grown = vt::codec::NewPointers(slots);
  if (grown != nullptr) std::copy_n(aggregate.entries, aggregate.entry_count, grown);
  return grown;
}

// Append stores the entry, growing the array by a block of slots when it is full. It owns the entry
// from the call on: without memory, the entry and the whole array are released.
int Append(Tlv& tlv, void* entry) {
  vt::codec::CompactTlv* compact = vt::codec::AsCompact(tlv);
  if (compact != nullptr) compact->is_whole = 0;
  const Extent own = ExtentOf(compact);
  aggregated_value& aggregate = *Aggregate(&tlv);
  if (aggregate.entry_count % kEntryBlock == 0 || own.Holds(aggregate.entries)) {
    void** grown = GrownArray(own, aggregate);
    if (grown == nullptr) {
      vt::codec::ReleaseEntry(own, tlv.type, entry);
      vt::codec::ReleaseEntries(own, tlv.type, aggregate);
      return 1;
    }
    aggregate.entries = grown;
  }
  aggregate.entries[aggregate.entry_count++] = entry;
  return 0;
}

// MakeEntry returns a zeroed entry that fill has filled, or null.
template <class Entry, class Fill>
void* MakeEntry(std::uint32_t type, Fill fill) {
  auto* entry = vt::codec::NewRecord<Entry>();
  if (entry == nullptr || fill(entry) != 0) return entry;
  vt::codec::ReleaseEntry(Extent(), type, entry);
  return nullptr;
}

}  // namespace

extern "C" {

Tlv* cv_get_next_tlv_by_dh(Event* ev, std::uint32_t type, const device_header* dh,
                           std::uint32_t create) {
  const std::uint32_t aggregated_type = type | VT_TLV_AGGREGATED;
  if (dh == nullptr) return nullptr;
  if (vt::protocol::IsReadable(ev)) {
    for (Tlv* tlv : vt::protocol::Slots(*ev)) {
      if (tlv != nullptr && tlv->type == aggregated_type && tlv->value != nullptr &&
          corvane_id_cmp(tlv->value, dh) == 0) {
        return tlv;
      }
    }
  }
  if (ev == nullptr || (create & 0xFFU) == 0) return nullptr;
  return vt_create_aggr_tlv(ev, aggregated_type, dh);
}

Tlv* vt_create_aggr_tlv(Event* ev, std::uint32_t type, const device_header* dh) {
  if (dh == nullptr) return nullptr;
  aggregated_value value{};
  value.device = *dh;
  if (cv_add_tlv(ev, type | VT_TLV_AGGREGATED, kAggregateLength, &value) != 0) return nullptr;
  return ev->tlvs[ev->pak->tlv_count - 1];
}

int cv_add_aggr_type_tlv(Event* ev, std::uint32_t type, const void* data, std::uint32_t tag,
                         const device_header* dh, const usage_cmn_hdr* usage) {
  // Deliberate: without an aggregate the value is not added, and the call succeeds all the same.
  Tlv* tlv = cv_get_next_tlv_by_dh(ev, type, dh, 1);
  if (tlv == nullptr) return 0;
  void* entry = cv_is_combo_tlv(type) != 0
                    ? MakeEntry<combo_entry>(tlv->type,
                                             [&](combo_entry* made) {
                                               return cv_populate_combo_tlv_data(made, type, data,
                                                                                 tag, usage);
                                             })
                    : MakeEntry<plain_entry>(tlv->type, [&](plain_entry* made) {
                        return cv_populate_aggr_tlv_data(made, type, data, tag);
                      });
  return entry != nullptr ? Append(*tlv, entry) : 1;
}

int cv_populate_combo_tlv_data(combo_entry* entry, std::uint32_t type, const void* data,
                               std::uint32_t tag, const usage_cmn_hdr* usage) {
  if (entry == nullptr || data == nullptr) return 0;
  entry->tag = tag;
  std::uint32_t status = 0;
  if (vt_clone_usage_cmn_hdr(usage, &entry->usage, &status) != 0) return 0;
  const EntryShape* shape = ShapeOf(kComboShapes, type);
  if (shape == nullptr) {
    // The pointers become null, so that a caller who releases the header as well does no harm.
    vt_free_usage_cmn_hdr(&entry->usage);
    return 0;
  }
  entry->data = CopyBlock(data, shape->size);
  return entry->data != nullptr ? 1 : 0;
}

int cv_populate_aggr_tlv_data(plain_entry* entry, std::uint32_t type, const void* data,
                              std::uint32_t tag) {
  if (entry == nullptr || data == nullptr) return 0;
  entry->tag = tag;
  const EntryShape* shape = ShapeOf(kPlainShapes, type);
  if (shape == nullptr) return 0;
  if (shape->measure == Measure::kFixed) {
    entry->data = CopyBlock(data, shape->size);
    entry->data_len = shape->size;
  } else {
    const char* text = static_cast<const char*>(data);
    entry->data = CopyText(text);
    entry->data_len = static_cast<std::uint32_t>(
        std::strlen(text) + (shape->measure == Measure::kTextWithTerminator ? 1 : 0));
  }
  return entry->data != nullptr ? 1 : 0;
}

int cv_aggr_ack(Event* ev, std::uint32_t value, const device_header* dh) {
  vt::codec::OwnedBlock<plain_entry> entry(vt::codec::NewRecord<plain_entry>());
  if (entry == nullptr) return 1;
  Tlv* tlv = cv_get_next_tlv_by_dh(ev, VT_TLV_ACKNOWLEDGEMENT, dh, 1);
  if (tlv == nullptr) return 0;
  entry->tag = value;
  return Append(*tlv, entry.release());
}

}  // extern "C"
