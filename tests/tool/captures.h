// Captures of network traffic, written by hand: packets with headers of their own making, as the
// programs that capture write them.
#ifndef VT_TESTS_TOOL_CAPTURES_H_
#define VT_TESTS_TOOL_CAPTURES_H_

#include <cstdint>
#include <vector>

#include "tests/harness/hex.h"

namespace vt::testing {

// TcpPacket is an IPv4 packet of 192.0.2.1:40000 to 192.0.2.2:7440, or back.
struct TcpPacket {
  std::uint32_t sequence = 0;
  Bytes payload = {};
  std::uint8_t flags = 0x10;  // ACK; 0x02 SYN, 0x01 FIN
  bool back = false;
  std::uint16_t node_port = 7440;
  std::uint16_t fragment = 0;
  std::uint8_t protocol = 6;

  Bytes Ip() const;
  // Ethernet is the same behind a header of Ethernet.
  Bytes Ethernet() const;
};

// PcapFile is a classic capture, little-endian with microseconds; the packets are a second apart,
// beginning with the first of 1970.
Bytes PcapFile(std::uint32_t link_type, const std::vector<Bytes>& packets);

// PcapngFile is a new one in big-endian order, of one interface with the time in nanoseconds; the
// packets are a second apart.
Bytes PcapngFile(std::uint16_t link_type, const std::vector<Bytes>& packets);

}  // namespace vt::testing

#endif  // VT_TESTS_TOOL_CAPTURES_H_
