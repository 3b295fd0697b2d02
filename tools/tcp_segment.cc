#include "tools/tcp_segment.h"

#include <algorithm>

namespace vt::tools {
namespace {

using enum PacketContent;

// The registry's numbers of the links that are known here.
constexpr std::uint32_t kEthernet = 1;
constexpr std::uint32_t kRawIp = 101;
constexpr std::uint32_t kRawIpv4 = 228;
constexpr std::uint32_t kLinuxCooked = 113;
constexpr std::uint32_t kLinuxCooked2 = 276;
// What some systems write for raw IP.
constexpr std::uint32_t kRawIpBsd = 12;
constexpr std::uint32_t kRawIpOpenBsd = 14;

constexpr std::uint16_t kIpv4Protocol = 0x0800;
constexpr std::uint16_t kVlan = 0x8100;
constexpr std::uint16_t kServiceVlan = 0x88A8;

// SkipVlans passes the tags of virtual networks, of which there are two at most.
bool SkipVlans(ByteReader& reader, std::uint16_t& protocol) {
  for (int i = 0; i < 2 && (protocol == kVlan || protocol == kServiceVlan); ++i) {
    if (!reader.Skip(2) || !reader.Read(protocol)) return false;
  }
  return true;
}

// SkipLink passes the header of the link; protocol is what comes behind it.
PacketContent SkipLink(std::uint32_t link_type, ByteReader& reader, std::uint16_t& protocol) {
  constexpr std::size_t ethernet_addresses = 12;
  constexpr std::size_t cooked_before_protocol = 14;
  constexpr std::size_t cooked2_behind_protocol = 18;
  bool whole = false;
  switch (link_type) {
    case kEthernet:
      whole = reader.Skip(ethernet_addresses) && reader.Read(protocol);
      break;
    case kLinuxCooked:
      whole = reader.Skip(cooked_before_protocol) && reader.Read(protocol);
      break;
    case kLinuxCooked2:
      whole = reader.Read(protocol) && reader.Skip(cooked2_behind_protocol);
      break;
    case kRawIp:
    case kRawIpv4:
    case kRawIpBsd:
    case kRawIpOpenBsd:
      protocol = kIpv4Protocol;
      return kSegment;
    default:
      return kUnknownLink;
  }
  return whole && SkipVlans(reader, protocol) ? kSegment : kBroken;
}

// ReadIpv4 sets payload to what is there of the datagram's.
PacketContent ReadIpv4(ByteView packet, TcpSegment& segment, ByteView& payload) {
  constexpr std::uint8_t tcp = 6;
  constexpr std::uint16_t more_fragments = 0x2000;
  constexpr std::uint16_t fragment_offset = 0x1FFF;
  ByteReader reader(packet);
  std::uint8_t version_and_size = 0;
  std::uint16_t total = 0;
  std::uint16_t fragment = 0;
  std::uint8_t protocol = 0;
  if (!reader.Read(version_and_size)) return kBroken;
  if (version_and_size >> 4 != 4) return kOther;
  if (!reader.Skip(1) || !reader.Read(total) || !reader.Skip(2) || !reader.Read(fragment) ||
      !reader.Skip(1) || !reader.Read(protocol) || !reader.Skip(2) ||
      !reader.Read(segment.flow.from.address) || !reader.Read(segment.flow.to.address)) {
    return kBroken;
  }
  const std::size_t header_size = std::size_t{version_and_size & 0x0Fu} * 4;
  // A host that leaves the cutting to its card sends itself datagrams without a length.
  const std::size_t size = total == 0 ? packet.size() : total;
  constexpr std::size_t least = 20;
  if (header_size < least || header_size > size || header_size > packet.size()) return kBroken;
  if (protocol != tcp) return kOther;
  if ((fragment & (more_fragments | fragment_offset)) != 0) return kFragment;
  payload = packet.first(std::min(size, packet.size())).subspan(header_size);
  return kSegment;
}

PacketContent ReadTcp(ByteView datagram, TcpSegment& segment) {
  constexpr std::uint16_t fin = 1;
  constexpr std::uint16_t syn = 2;
  constexpr std::uint16_t rst = 4;
  ByteReader reader(datagram);
  std::uint16_t size_and_flags = 0;
  if (!reader.Read(segment.flow.from.port) || !reader.Read(segment.flow.to.port) ||
      !reader.Read(segment.sequence) || !reader.Skip(4) || !reader.Read(size_and_flags)) {
    return kBroken;
  }
  const std::size_t header_size = (std::size_t{size_and_flags} >> 12) * 4;
  constexpr std::size_t least = 20;
  if (header_size < least || header_size > datagram.size()) return kBroken;
  segment.opens = (size_and_flags & syn) != 0;
  segment.closes = (size_and_flags & (fin | rst)) != 0;
  segment.payload = datagram.subspan(header_size);
  return kSegment;
}

}  // namespace

std::string Endpoint::text() const {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += std::to_string(address >> shift & 0xFF) + (shift > 0 ? "." : ":");
  }
  return text + std::to_string(port);
}

PacketContent ReadSegment(const CapturedPacket& packet, TcpSegment& segment) {
  segment = {};
  segment.nanoseconds = packet.nanoseconds;
  ByteReader reader(packet.bytes);
  std::uint16_t protocol = 0;
  const PacketContent link = SkipLink(packet.link_type, reader, protocol);
  if (link != kSegment) return link;
  if (protocol != kIpv4Protocol) return kOther;
  ByteView datagram;
  const PacketContent ip = ReadIpv4(reader.rest(), segment, datagram);
  return ip == kSegment ? ReadTcp(datagram, segment) : ip;
}

}  // namespace vt::tools
