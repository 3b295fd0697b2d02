#include "tests/tool/captures.h"

#include "tests/harness/pdu_image.h"

namespace vt::testing {
namespace {

Bytes U32Little(std::uint32_t value) {
  const Bytes big = U32(value);
  return {big.rbegin(), big.rend()};
}

std::uint16_t Size16(std::size_t size) { return static_cast<std::uint16_t>(size); }
std::uint32_t Size32(std::size_t size) { return static_cast<std::uint32_t>(size); }

Bytes PaddedTo4(Bytes bytes) {
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

Bytes Block(std::uint32_t type, const Bytes& body) {
  const Bytes size = U32(Size32(body.size() + 12));
  return Cat({U32(type), size, body, size});
}

}  // namespace

Bytes TcpPacket::Ip() const {
  const Bytes client_port = U16(40000);
  const Bytes server_port = U16(node_port);
  const Bytes client = Hex("c0000201");
  const Bytes server = Hex("c0000202");
  const Bytes tcp = Cat({back ? server_port : client_port,
                         back ? client_port : server_port,
                         U32(sequence),
                         Hex("00000000"),
                         {0x50, flags},
                         Hex("ffff 0000 0000"),
                         payload});
  return Cat({Hex("45 00"),
              U16(Size16(20 + tcp.size())),
              Hex("0001"),
              U16(fragment),
              {64, protocol},
              Hex("0000"),
              back ? server : client,
              back ? client : server,
              tcp});
}

Bytes TcpPacket::Ethernet() const { return Hex("6*02 6*04 0800") + Ip(); }

Bytes PcapFile(std::uint32_t link_type, const std::vector<Bytes>& packets) {
  Bytes file = Cat({Hex("d4c3b2a1 0200 0400 8*00"), U32Little(65535), U32Little(link_type)});
  std::uint32_t second = 0;
  for (const Bytes& packet : packets) {
    const Bytes size = U32Little(Size32(packet.size()));
    file = Cat({file, U32Little(second++), U32Little(5), size, size, packet});
  }
  return file;
}

Bytes PcapngFile(std::uint16_t link_type, const std::vector<Bytes>& packets) {
  Bytes file = Block(0x0A0D0D0A, Hex("1a2b3c4d 0001 0000 8*ff"));
  // The one option says that times are in units of 10^-9 seconds.
  file = file + Block(1, Cat({U16(link_type), Hex("0000"), U32(0), Hex("0009 0001 09000000"),
                              Hex("0000 0000")}));
  std::uint64_t time = 5000;
  for (const Bytes& packet : packets) {
    const Bytes size = U32(Size32(packet.size()));
    file = file +
           Block(6, Cat({U32(0), U32(static_cast<std::uint32_t>(time >> 32)),
                         U32(static_cast<std::uint32_t>(time)), size, size, PaddedTo4(packet)}));
    time += 1000000000;
  }
  return file;
}

}  // namespace vt::testing
