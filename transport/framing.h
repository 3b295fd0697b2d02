// The frame of a message in a stream: its headers tell where it ends.
#ifndef VT_TRANSPORT_FRAMING_H
#define VT_TRANSPORT_FRAMING_H

#include <cstddef>
#include <cstdint>

#include "vtapi/pdu.h"

#include "protocol/wire_layout.h"
#include "support/bytes.h"

namespace vt::transport {

// FramePart is what of a message is being waited for.
enum class FramePart { kFirstHeader, kHeader, kPayload, kNothing, kOverSize };

// Frame tells what is missing and how long the message is with it.
struct Frame {
  FramePart part;
  std::size_t end;
};

// FrameOf looks at the bytes of a message that are there.
[[nodiscard]] inline Frame FrameOf(support::Bytes bytes) {
  constexpr std::size_t kDigestLengthOffset = 10;
  constexpr Frame kOverSize = {FramePart::kOverSize, 0};
  if (bytes.size() < VT_SECURITY_HEADER_SIZE) {
    return {FramePart::kFirstHeader, VT_SECURITY_HEADER_SIZE};
  }
  const auto digest_len = support::LoadNetwork<std::uint16_t>(bytes.data() + kDigestLengthOffset);
  const std::size_t header_end = protocol::RoundUpTo4(digest_len) + protocol::kSmallestImage;
  if (header_end > VT_MAX_PDU_SIZE) return kOverSize;
  if (bytes.size() < header_end) return {FramePart::kHeader, header_end};
  const std::uint8_t* header = bytes.data() + header_end - VT_MESSAGE_HEADER_SIZE;
  const std::size_t end =
      header_end + support::LoadNetwork<std::uint16_t>(header + protocol::kTlvBytesInHeader);
  if (end > VT_MAX_PDU_SIZE) return kOverSize;
  return {bytes.size() < end ? FramePart::kPayload : FramePart::kNothing, end};
}

}  // namespace vt::transport

#endif  // VT_TRANSPORT_FRAMING_H
