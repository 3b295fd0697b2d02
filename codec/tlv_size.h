// The wire size of an element, for sums over many of them.
#ifndef VT_CODEC_TLV_SIZE_H
#define VT_CODEC_TLV_SIZE_H

#include <cstdint>

#include "vtapi/tlv.h"

#include "codec/type_table.h"

namespace vt::codec {

// TlvSize is vt_get_tlv_size, without a call for plain values of fixed size.
[[nodiscard]] inline std::uint32_t TlvSize(const Tlv& tlv) {
  const ValueKind* kind = KindOf(tlv.type);
  const bool is_fixed =
      !IsAggregated(tlv.type) && tlv.value != nullptr && kind != nullptr && kind->size == nullptr;
  return is_fixed ? VT_TLV_HEADER_SIZE + kind->fixed_size : vt_get_tlv_size(&tlv);
}

}  // namespace vt::codec

#endif  // VT_CODEC_TLV_SIZE_H
