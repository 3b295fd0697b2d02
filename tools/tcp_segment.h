// A segment of TCP over IPv4, taken out of a captured packet of one of the usual links.
#ifndef VT_TOOLS_TCP_SEGMENT_H_
#define VT_TOOLS_TCP_SEGMENT_H_

#include <compare>
#include <cstdint>
#include <string>
#include <tuple>

#include "tools/byte_reader.h"
#include "tools/capture_file.h"

namespace vt::tools {

// Endpoint is one side of a connection.
struct Endpoint {
  std::uint32_t address = 0;  // IPv4, the first number in the high byte
  std::uint16_t port = 0;

  // text is such as "192.0.2.7:7440".
  std::string text() const;

  friend bool operator==(const Endpoint&, const Endpoint&) = default;
  friend auto operator<=>(const Endpoint& a, const Endpoint& b) {
    return std::tie(a.address, a.port) <=> std::tie(b.address, b.port);
  }
};

// Flow is one direction of a connection.
struct Flow {
  Endpoint from;
  Endpoint to;

  friend bool operator==(const Flow&, const Flow&) = default;
  friend auto operator<=>(const Flow& a, const Flow& b) {
    return std::tie(a.from, a.to) <=> std::tie(b.from, b.to);
  }
};

// TcpSegment refers to the bytes of the packet.
struct TcpSegment {
  Flow flow;
  std::uint32_t sequence = 0;
  bool opens = false;   // SYN
  bool closes = false;  // FIN or RST
  std::uint64_t nanoseconds = 0;
  ByteView payload;
};

// PacketContent is what a packet turned out to be.
enum class PacketContent {
  kSegment,
  kOther,        // ARP, IPv6, UDP and what else there is
  kFragment,     // of an IPv4 datagram; none is put together
  kBroken,       // shorter than its headers, or not as they say
  kUnknownLink,  // of a link other than Ethernet, Linux cooked (both) and raw IP
};

// ReadSegment sets segment when the packet is one. Checksums are not looked at, for captures of
// what a host sends itself have them unset. Of a packet that was not captured as a whole, the
// segment has what is there.
PacketContent ReadSegment(const CapturedPacket& packet, TcpSegment& segment);

}  // namespace vt::tools

#endif  // VT_TOOLS_TCP_SEGMENT_H_
