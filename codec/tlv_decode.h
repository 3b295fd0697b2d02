// An element decoded into memory of the caller's choice.
#ifndef VT_CODEC_TLV_DECODE_H
#define VT_CODEC_TLV_DECODE_H

#include <cstdint>

#include "vtapi/tlv.h"

#include "codec/message_pool.h"

namespace vt::codec {

// ReadTlv is cv_create_tlv_from_raw_buf. If pool is not null, the element goes with the message
// begun last there, as long as that has room.
[[nodiscard]] Tlv* ReadTlv(std::int32_t* remaining, std::uint8_t** cursor, MessagePool* pool);

}  // namespace vt::codec

#endif  // VT_CODEC_TLV_DECODE_H
