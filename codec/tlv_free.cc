// The release of elements with all they own.
#include "codec/records.h"
#include "codec/tlv_memory.h"
#include "codec/type_table.h"

namespace vt::codec {

namespace {

// ReleaseValue releases a value by its type; that of an unknown type is a plain block.
void ReleaseValue(const Extent& own, const ValueKind* kind, void* value) {
  if (value == nullptr) return;
  kind != nullptr ? kind->Release(own, value) : own.Release(value);
}

void ReleaseCombo(const Extent& own, const ValueKind* kind, combo_entry* entry) {
  UsageHeaderWire::Release(own, entry->usage);
  ReleaseValue(own, kind, entry->data);
  own.Release(entry);
}

void ReleasePlain(const Extent& own, const ValueKind* kind, plain_entry* entry) {
  ReleaseValue(own, kind, entry->data);
  own.Release(entry);
}

// GoesWithBlock tells, of an entry as decoding makes it, that nothing of it lies elsewhere.
bool GoesWithBlock(const Extent& own, const plain_entry* entry) {
  return own.Holds(entry) && (entry->data == nullptr || own.Holds(entry->data));
}

void ReleasePlainEntries(const Extent& own, const ValueKind* kind, std::span<void*> entries) {
  const bool has_parts = kind != nullptr && kind->variable == ValueKind::Variable::kParts;
  for (void* slot : entries) {
    auto* entry = static_cast<plain_entry*>(slot);
    if (entry == nullptr || (!has_parts && GoesWithBlock(own, entry))) continue;
    ReleasePlain(own, kind, entry);
  }
}

void ReleaseComboEntries(const Extent& own, const ValueKind* kind, std::span<void*> entries) {
  for (void* entry : entries) {
    if (entry != nullptr) ReleaseCombo(own, kind, static_cast<combo_entry*>(entry));
  }
}

void ReleaseArray(const Extent& own, std::uint32_t type, std::span<void*> entries) {
  const ValueKind* kind = KindOf(type);
  cv_is_combo_tlv(type) != 0 ? ReleaseComboEntries(own, kind, entries)
                             : ReleasePlainEntries(own, kind, entries);
}

}  // namespace

void ReleaseEntry(const Extent& own, std::uint32_t type, void* entry) {
  ReleaseArray(own, type, {&entry, 1});
}

void ReleaseEntries(const Extent& own, std::uint32_t type, aggregated_value& aggregate) {
  if (aggregate.entries != nullptr) {
    ReleaseArray(own, type, {aggregate.entries, aggregate.entry_count});
  }
  own.Release(aggregate.entries);
  aggregate.entries = nullptr;
  aggregate.entry_count = 0;
}

void ReleaseAggregate(const Extent& own, std::uint32_t type, aggregated_value* aggregate) {
  if (aggregate == nullptr) return;
  ReleaseEntries(own, type, *aggregate);
  DeviceHeaderWire::Release(own, aggregate->device);
  own.Release(aggregate);
}

}  // namespace vt::codec

extern "C" void vt_free_tlv_ptr(Tlv* tlv) {
  if (tlv == nullptr) return;
  const vt::codec::CompactTlv* compact = vt::codec::AsCompact(*tlv);
  const vt::codec::Extent own = ExtentOf(compact);
  if (compact != nullptr && compact->is_whole != 0) {
    // all of it goes with the block
  } else if (vt::codec::IsAggregated(tlv->type)) {
    vt::codec::ReleaseAggregate(own, tlv->type, static_cast<aggregated_value*>(tlv->value));
  } else {
    vt::codec::ReleaseValue(own, vt::codec::KindOf(tlv->type), tlv->value);
  }
  vt::codec::ReleaseElement(tlv);
}
