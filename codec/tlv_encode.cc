// An element as wire bytes, and how many they are. Both walk the element in the same way, so that
// the bytes written are always the size.
#include "vtapi/tlv.h"

#include "codec/records.h"
#include "codec/tlv_size.h"
#include "codec/type_table.h"

namespace vt::codec {

namespace {

template <class T>
const T& RecordAt(const void* at) {
  return *static_cast<const T*>(at);
}

std::uint32_t EntrySize(std::uint32_t type, const ValueKind& kind, const void* entry) {
  constexpr std::uint32_t kTagSize = 4;
  if (cv_is_combo_tlv(type) != 0) {
    const auto& combo = RecordAt<combo_entry>(entry);
    return kTagSize + UsageHeaderWire::Size(combo.usage) +
           kind.Size(Place::kAggregated, combo.data, 0);
  }
  const auto& plain = RecordAt<plain_entry>(entry);
  return kTagSize + kind.Size(Place::kAggregated, plain.data, plain.data_len);
}

void WriteEntry(Writer& out, std::uint32_t type, const ValueKind& kind, const void* entry) {
  if (cv_is_combo_tlv(type) != 0) {
    const auto& combo = RecordAt<combo_entry>(entry);
    out.Write(combo.tag);
    UsageHeaderWire::Write(out, combo.usage, NullText::kEmpty);
    kind.Encode(out, Place::kAggregated, combo.data, 0);
    return;
  }
  const auto& plain = RecordAt<plain_entry>(entry);
  out.Write(plain.tag);
  kind.Encode(out, Place::kAggregated, plain.data, plain.data_len);
}

// EntryKind gives entries of an unknown number no value: they are their tag alone.
const ValueKind& EntryKind(std::uint32_t type) {
  const ValueKind* kind = KindOf(type);
  return kind != nullptr ? *kind : KindNamed(KindName::kNoValue);
}

// ForEachEntry visits the entries that are there; an empty slot does not travel.
template <class Visit>
void ForEachEntry(const aggregated_value& aggregate, Visit visit) {
  if (aggregate.entries == nullptr) return;
  for (std::uint32_t i = 0; i < aggregate.entry_count; ++i) {
    if (aggregate.entries[i] != nullptr) visit(aggregate.entries[i]);
  }
}

std::uint32_t AggregateSize(std::uint32_t type, const aggregated_value& aggregate) {
  constexpr std::uint32_t kCountSize = 4;
  std::uint32_t size = DeviceHeaderWire::Size(aggregate.device) + kCountSize;
  ForEachEntry(aggregate,
               [&](const void* entry) { size += EntrySize(type, EntryKind(type), entry); });
  return size;
}

void WriteAggregate(Writer& out, std::uint32_t type, const aggregated_value& aggregate) {
  DeviceHeaderWire::Write(out, aggregate.device, NullText::kEmpty);
  std::uint32_t count = 0;
  ForEachEntry(aggregate, [&](const void* /*entry*/) { ++count; });
  out.Write(count);
  ForEachEntry(aggregate,
               [&](const void* entry) { WriteEntry(out, type, EntryKind(type), entry); });
}

std::uint32_t ValueSize(const Tlv& tlv) {
  if (IsAggregated(tlv.type)) {
    return tlv.value != nullptr ? AggregateSize(tlv.type, RecordAt<aggregated_value>(tlv.value))
                                : 0;
  }
  const ValueKind* kind = KindOf(tlv.type);
  if (TravelsWithoutValue(tlv, kind)) return 0;
  return kind->Size(Place::kPlain, tlv.value, PlainLength(tlv));
}

void WriteValue(Writer& out, const Tlv& tlv) {
  if (IsAggregated(tlv.type)) {
    if (tlv.value != nullptr) {
      WriteAggregate(out, tlv.type, RecordAt<aggregated_value>(tlv.value));
    }
    return;
  }
  const ValueKind* kind = KindOf(tlv.type);
  if (TravelsWithoutValue(tlv, kind)) return;
  kind->Encode(out, Place::kPlain, tlv.value, PlainLength(tlv));
}

}  // namespace

}  // namespace vt::codec

extern "C" {

std::uint32_t vt_get_tlv_size(const Tlv* tlv) {
  return tlv != nullptr ? VT_TLV_HEADER_SIZE + vt::codec::ValueSize(*tlv) : 0;
}

std::uint32_t cv_update_raw_buf_from_tlv(const Tlv* tlv, std::uint8_t* dst) {
  if (tlv == nullptr) return 0;
  const std::uint32_t size = vt::codec::TlvSize(*tlv);
  vt::support::StoreNetwork(dst, tlv->type);
  vt::support::StoreNetwork(dst + sizeof tlv->type, size);
  vt::support::StoreNetwork(dst + sizeof tlv->type + sizeof size, tlv->qualifier);
  vt::codec::Writer out(dst + VT_TLV_HEADER_SIZE, size - VT_TLV_HEADER_SIZE);
  vt::codec::WriteValue(out, *tlv);
  return VT_TLV_HEADER_SIZE + static_cast<std::uint32_t>(out.written());
}

}  // extern "C"
