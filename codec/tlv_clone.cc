// Deep copies of element values.
#include "vtapi/tlv.h"

#include "codec/tlv_memory.h"
#include "codec/type_table.h"

namespace vt::codec {

namespace {

// IsEmptyBlock tells whether a value is an opaque block of no bytes; only opaque types go by len.
bool IsEmptyBlock(const ValueKind& kind, std::uint32_t len) {
  return len == 0 && kind.null_plain == ValueKind::NullPlain::kZeros;
}

// CloneEntryValue copies the value of an entry. One that is null, or of an unknown type, stays
// null, and an empty block becomes null, as it would be when decoded.
Status CloneEntryValue(const ValueKind* kind, const void* from, std::uint32_t len, HostValue& to) {
  if (kind == nullptr || from == nullptr || IsEmptyBlock(*kind, len)) return Status::kOk;
  return kind->clone(from, len, to);
}

Status ClonePlainEntry(const ValueKind* kind, const plain_entry& from, plain_entry& to) {
  HostValue value;
  const Status status = CloneEntryValue(kind, from.data, from.data_len, value);
  to.tag = from.tag;
  to.data = value.data;
  to.data_len = value.data != nullptr ? from.data_len : 0;
  return status;
}

Status CloneComboEntry(const ValueKind* kind, const combo_entry& from, combo_entry& to) {
  to.tag = from.tag;
  if (const Status status = UsageHeaderWire::Clone(from.usage, to.usage); status != Status::kOk) {
    return status;
  }
  HostValue value;
  const Status status = CloneEntryValue(kind, from.data, 0, value);
  to.data = value.data;
  return status;
}

Status CloneEntry(std::uint32_t type, const void* from, void*& slot) {
  if (from == nullptr) return Status::kNullSource;
  const bool combo = cv_is_combo_tlv(type) != 0;
  slot = combo ? static_cast<void*>(NewRecord<combo_entry>()) : NewRecord<plain_entry>();
  if (slot == nullptr) return Status::kNoMemory;
  const ValueKind* kind = KindOf(type);
  return combo ? CloneComboEntry(kind, *static_cast<const combo_entry*>(from),
                                 *static_cast<combo_entry*>(slot))
               : ClonePlainEntry(kind, *static_cast<const plain_entry*>(from),
                                 *static_cast<plain_entry*>(slot));
}

Status CloneAggregateInto(std::uint32_t type, const aggregated_value& from, aggregated_value& to) {
  if (const Status status = DeviceHeaderWire::Clone(from.device, to.device);
      status != Status::kOk) {
    return status;
  }
  if (from.entries == nullptr || from.entry_count == 0) return Status::kOk;
  to.entries = NewEntrySlots(from.entry_count);
  if (to.entries == nullptr) return Status::kNoMemory;
  to.entry_count = from.entry_count;
  for (std::uint32_t i = 0; i < from.entry_count; ++i) {
    if (const Status status = CloneEntry(type, from.entries[i], to.entries[i]);
        status != Status::kOk) {
      return status;
    }
  }
  return Status::kOk;
}

Status CloneAggregate(std::uint32_t type, const void* value, HostValue& out) {
  auto* copy = NewRecord<aggregated_value>();
  if (copy == nullptr) return Status::kNoMemory;
  const auto from = support::LoadHost<aggregated_value>(value);
  const Status status = CloneAggregateInto(type, from, *copy);
  if (status != Status::kOk) {
    ReleaseAggregate(type, copy);
    return status;
  }
  out.data = copy;
  return status;
}

Status CloneValue(std::uint32_t type, std::uint32_t value_len, const void* value, HostValue& out) {
  constexpr std::uint32_t kLongestValue = 0x7FFFFFFF;
  if (value_len > kLongestValue) return Status::kNoMemory;
  if (IsAggregated(type)) {
    return value != nullptr ? CloneAggregate(type, value, out) : Status::kNullSource;
  }
  const ValueKind* kind = KindOf(type);
  if (kind == nullptr || !kind->has_value) return Status::kOk;
  return value != nullptr ? kind->clone(value, value_len, out) : Status::kNullSource;
}

}  // namespace

}  // namespace vt::codec

extern "C" void* vt_clone_tlv_ptr(std::uint32_t type, std::uint32_t value_len, const void* value,
                                  std::uint32_t* status) {
  vt::codec::HostValue copy;
  *status = ToWord(vt::codec::CloneValue(type, value_len, value, copy));
  return copy.data;
}
