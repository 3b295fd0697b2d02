// Deep copies of element values.
#include "vtapi/tlv.h"

#include "codec/records.h"
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
Status CloneEntryValue(const ValueKind* kind, const void* from, std::uint32_t len, void*& to) {
  if (kind == nullptr || from == nullptr || IsEmptyBlock(*kind, len)) return Status::kOk;
  return kind->Clone(from, len, to);
}

Status ClonePlainEntry(const ValueKind* kind, const plain_entry& from, plain_entry& to) {
  to.tag = from.tag;
  const Status status = CloneEntryValue(kind, from.data, from.data_len, to.data);
  to.data_len = to.data != nullptr ? from.data_len : 0;
  return status;
}

Status CloneComboEntry(const ValueKind* kind, const combo_entry& from, combo_entry& to) {
  to.tag = from.tag;
  if (const Status status = UsageHeaderWire::Clone(from.usage, to.usage); status != Status::kOk) {
    return status;
  }
  return CloneEntryValue(kind, from.data, 0, to.data);
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

Status CloneAggregate(std::uint32_t type, const void* value, void*& to) {
  auto* copy = NewRecord<aggregated_value>();
  if (copy == nullptr) return Status::kNoMemory;
  const auto from = support::LoadHost<aggregated_value>(value);
  const Status status = CloneAggregateInto(type, from, *copy);
  if (status != Status::kOk) {
    ReleaseAggregate(Extent(), type, copy);
    return status;
  }
  to = copy;
  return status;
}

constexpr std::uint32_t kLongestValue = 0x7FFFFFFF;

Status CloneValue(std::uint32_t type, std::uint32_t value_len, const void* value, void*& to) {
  if (value_len > kLongestValue) return Status::kNoMemory;
  if (IsAggregated(type)) {
    return value != nullptr ? CloneAggregate(type, value, to) : Status::kNullSource;
  }
  const ValueKind* kind = KindOf(type);
  if (kind == nullptr || !kind->has_value) return Status::kOk;
  return value != nullptr ? kind->Clone(value, value_len, to) : Status::kNullSource;
}

// CopiedWhole is the kind of a value whose copy is one block, or null.
const ValueKind* CopiedWhole(std::uint32_t type, std::uint32_t value_len, const void* value) {
  if (IsAggregated(type) || value == nullptr || value_len == 0 || value_len > kLongestValue) {
    return nullptr;
  }
  const ValueKind* kind = KindOf(type);
  return kind != nullptr && kind->is_one_piece() ? kind : nullptr;
}

}  // namespace

Status NewTlv(std::uint32_t type, std::uint32_t length, std::uint32_t qualifier, const void* value,
              OwnedTlv& out) {
  const std::uint32_t value_len = length - VT_TLV_HEADER_SIZE;
  const ValueKind* whole = CopiedWhole(type, value_len, value);
  CompactTlv* made = NewCompactTlv(type, length, qualifier,
                                   whole != nullptr ? whole->CopySize(value, value_len) : 0);
  if (made == nullptr) return Status::kNoMemory;
  out.reset(&made->tlv);
  if (whole != nullptr) {
    made->tlv.value = made + 1;
    whole->Copy(made->tlv.value, value, value_len);
    return Status::kOk;
  }
  return value_len != 0 ? CloneValue(type, value_len, value, made->tlv.value) : Status::kOk;
}

}  // namespace vt::codec

extern "C" void* vt_clone_tlv_ptr(std::uint32_t type, std::uint32_t value_len, const void* value,
                                  std::uint32_t* status) {
  void* copy = nullptr;
  *status = ToWord(vt::codec::CloneValue(type, value_len, value, copy));
  return copy;
}
