// The release of elements with all they own.
#include "codec/tlv_memory.h"
#include "codec/type_table.h"

namespace vt::codec {

namespace {

// ReleaseValue releases a value by its type; that of an unknown type is a plain block.
void ReleaseValue(std::uint32_t type, void* value) {
  if (value == nullptr) return;
  const ValueKind* kind = KindOf(type);
  kind != nullptr ? kind->release(value) : ReleaseBlock(value);
}

}  // namespace

void ReleaseEntry(std::uint32_t type, void* entry) {
  if (entry == nullptr) return;
  if (cv_is_combo_tlv(type) != 0) {
    auto* combo = static_cast<combo_entry*>(entry);
    vt_free_usage_cmn_hdr(&combo->usage);
    ReleaseValue(type, combo->data);
  } else {
    ReleaseValue(type, static_cast<plain_entry*>(entry)->data);
  }
  ReleaseBlock(entry);
}

void ReleaseEntries(std::uint32_t type, aggregated_value& aggregate) {
  if (aggregate.entries != nullptr) {
    for (std::uint32_t i = 0; i < aggregate.entry_count; ++i) {
      ReleaseEntry(type, aggregate.entries[i]);
    }
  }
  ReleaseBlock(aggregate.entries);
  aggregate.entries = nullptr;
  aggregate.entry_count = 0;
}

void ReleaseAggregate(std::uint32_t type, aggregated_value* aggregate) {
  if (aggregate == nullptr) return;
  ReleaseEntries(type, *aggregate);
  vt_free_deviceheader(&aggregate->device);
  ReleaseBlock(aggregate);
}

}  // namespace vt::codec

extern "C" void vt_free_tlv_ptr(Tlv* tlv) {
  if (tlv == nullptr) return;
  if (vt::codec::IsAggregated(tlv->type)) {
    vt::codec::ReleaseAggregate(tlv->type, static_cast<aggregated_value*>(tlv->value));
  } else {
    vt::codec::ReleaseValue(tlv->type, tlv->value);
  }
  vt::codec::ReleaseBlock(tlv);
}
