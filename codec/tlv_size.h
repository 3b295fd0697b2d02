// The wire size of an element, for sums over many of them.
#ifndef VT_CODEC_TLV_SIZE_H
#define VT_CODEC_TLV_SIZE_H

#include <cstdint>

#include "vtapi/tlv.h"

#include "codec/type_table.h"

namespace vt::codec {

// PlainLength is the length of a plain value as its element states it; it counts for opaque ones.
[[nodiscard]] inline std::uint32_t PlainLength(const Tlv& tlv) {
  return tlv.length > VT_TLV_HEADER_SIZE ? tlv.length - VT_TLV_HEADER_SIZE : 0;
}

// TravelsWithoutValue tells whether a plain element is its header and nothing else.
[[nodiscard]] inline bool TravelsWithoutValue(const Tlv& tlv, const ValueKind* kind) {
  if (kind == nullptr) return true;
  return tlv.value == nullptr && kind->null_plain == ValueKind::NullPlain::kNothing;
}

// TlvSize is vt_get_tlv_size, without a call for most plain elements: those of a query are measured
// again with each that is added.
[[nodiscard]] inline std::uint32_t TlvSize(const Tlv& tlv) {
  if (tlv.type >= VT_TLV_TYPE_COUNT) return vt_get_tlv_size(&tlv);  // unknown, or with flags
  if (tlv.value == nullptr) {
    // Null stands for nothing or for bytes that the length tells.
    return tlv.length <= VT_TLV_HEADER_SIZE ? VT_TLV_HEADER_SIZE : vt_get_tlv_size(&tlv);
  }
  const ValueKind& kind = KindNamed(kTypeRows[tlv.type].kind);
  if (kind.fixed_size != 0) return VT_TLV_HEADER_SIZE + kind.fixed_size;
  if (kind.name != KindName::kText) return vt_get_tlv_size(&tlv);
  return VT_TLV_HEADER_SIZE + TextLength(static_cast<const char*>(tlv.value));
}

}  // namespace vt::codec

#endif  // VT_CODEC_TLV_SIZE_H
