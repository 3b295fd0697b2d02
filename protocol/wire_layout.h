// Where things stand in a Pdu; include/vtapi/pdu.h shows the whole layout. All numbers are bytes.
#ifndef VT_PROTOCOL_WIRE_LAYOUT_H
#define VT_PROTOCOL_WIRE_LAYOUT_H

#include <cstddef>
#include <cstdint>

#include "vtapi/pdu.h"

namespace vt::protocol {

constexpr std::size_t kDigestOffset = 12;
constexpr std::size_t kMessageHeaderOffset = 32;
constexpr std::size_t kTlvBytesInHeader = 44;  // offset of the TLV bytes in the message header
constexpr std::uint32_t kSmallestImage = 60;   // both headers, no digest, no elements

constexpr std::uint8_t kEnc = 2;
constexpr std::uint8_t kAuth = 1;
constexpr std::uint8_t kLastComm = 4;

// The unit that assertions of this layer name.
constexpr const char kUnit[] = "corvane_util";

constexpr std::uint32_t RoundUpTo4(std::uint32_t n) { return (n + 3U) & ~3U; }

constexpr std::uint8_t LowNibble(std::uint8_t byte) { return byte & 0x0FU; }
constexpr std::uint8_t HighNibble(std::uint8_t byte) {
  return static_cast<std::uint8_t>(byte >> 4U);
}
constexpr std::uint8_t Nibbles(std::uint8_t high, std::uint8_t low) {
  return static_cast<std::uint8_t>((high << 4U) | LowNibble(low));
}

}  // namespace vt::protocol

#endif  // VT_PROTOCOL_WIRE_LAYOUT_H
