// Captures taken apart into packets, and packets into segments.
#include "tools/capture_file.h"

#include <gtest/gtest.h>

#include "tests/harness/hex.h"
#include "tests/tool/captures.h"
#include "tools/tcp_segment.h"

namespace vt::tools {
namespace {

using vt::testing::Bytes;
using vt::testing::Cat;
using vt::testing::Hex;
using vt::testing::PcapFile;
using vt::testing::PcapngFile;
using vt::testing::TcpPacket;
using vt::testing::Text;
using vt::testing::operator+;

struct Read {
  std::vector<Bytes> packets;
  std::vector<std::uint64_t> times;
  std::vector<std::uint32_t> links;
  std::string fault;
};

Read ReadAll(const Bytes& file) {
  Read read;
  read.fault = ReadCapture(file, [&read](const CapturedPacket& packet) {
    read.packets.emplace_back(packet.bytes.begin(), packet.bytes.end());
    read.times.push_back(packet.nanoseconds);
    read.links.push_back(packet.link_type);
  });
  return read;
}

TEST(CaptureFile, PacketsOfAClassicCaptureComeWithTheirTimes) {
  const Bytes file = PcapFile(1, {Text("one"), Text("second")});
  ASSERT_TRUE(IsCapture(file));
  const Read read = ReadAll(file);
  EXPECT_EQ(read.fault, "");
  EXPECT_EQ(read.packets, (std::vector<Bytes>{Text("one"), Text("second")}));
  EXPECT_EQ(read.times, (std::vector<std::uint64_t>{5000, 1000005000}));
  EXPECT_EQ(read.links, (std::vector<std::uint32_t>{1, 1}));
}

TEST(CaptureFile, AClassicCaptureMayBeBigEndianWithNanoseconds) {
  const Bytes file =
      Hex("a1b23c4d 0002 0004 8*00 0000ffff 00000065"
          "00000002 00000007 00000001 00000001 61");
  const Read read = ReadAll(file);
  EXPECT_EQ(read.fault, "");
  EXPECT_EQ(read.packets, std::vector<Bytes>{Text("a")});
  EXPECT_EQ(read.times, std::vector<std::uint64_t>{2000000007});
  EXPECT_EQ(read.links, std::vector<std::uint32_t>{101});
}

TEST(CaptureFile, PacketsOfANewCaptureComeWithTheirTimes) {
  const Bytes file = PcapngFile(113, {Text("one"), Text("second")});
  ASSERT_TRUE(IsCapture(file));
  const Read read = ReadAll(file);
  EXPECT_EQ(read.fault, "");
  EXPECT_EQ(read.packets, (std::vector<Bytes>{Text("one"), Text("second")}));
  EXPECT_EQ(read.times, (std::vector<std::uint64_t>{5000, 1000005000}));
  EXPECT_EQ(read.links, (std::vector<std::uint32_t>{113, 113}));
}

TEST(CaptureFile, ANewCaptureMayBeLittleEndianInBinaryTimeWithSimpleAndUnknownBlocks) {
  const Bytes file = Hex(
      // section
      "0a0d0d0a 1c000000 4d3c2b1a 0100 0000 8*ff 1c000000"
      // interface of Ethernet, of packets of 4 bytes at most, in units of 2^-10 seconds
      "01000000 20000000 0100 0000 04000000 0900 0100 8a000000 0000 0000 20000000"
      // a block that nobody knows
      "ff000000 10000000 61626364 10000000"
      // simple packet of 6 bytes
      "03000000 14000000 06000000 61626364 14000000"
      // enhanced packet at 1.5 seconds
      "06000000 24000000 00000000 00000000 00060000 01000000 01000000 7a000000 24000000");
  const Read read = ReadAll(file);
  EXPECT_EQ(read.fault, "");
  EXPECT_EQ(read.packets, (std::vector<Bytes>{Text("abcd"), Text("z")}));
  EXPECT_EQ(read.times, (std::vector<std::uint64_t>{0, 1500000000}));
}

TEST(CaptureFile, WhatIsNoCaptureIsTold) {
  EXPECT_FALSE(IsCapture(Hex("00 02 6*00")));
  EXPECT_FALSE(IsCapture(Hex("d4c3b2")));
  EXPECT_FALSE(IsCapture(Bytes()));
}

TEST(CaptureFile, ImpossibleLengthsEndTheReading) {
  Bytes classic = PcapFile(1, {Text("one"), Text("two")});
  classic[24 + 16 + 3 + 8 + 2] = 0xFF;  // the length of the second packet
  EXPECT_EQ(ReadAll(classic).fault, "the capture has a packet of an impossible length");
  EXPECT_EQ(ReadAll(classic).packets.size(), 1u);

  const Bytes section = Hex("0a0d0d0a 0000001c 1a2b3c4d 0001 0000 8*ff 0000001c");
  const auto fault_of = [&section](const char* hex) { return ReadAll(section + Hex(hex)).fault; };
  const std::string impossible = "the capture has a packet of an impossible length";
  EXPECT_EQ(fault_of("00000006 00000000 00000000"), impossible);
  EXPECT_EQ(fault_of("00000006 0000000d 00000000 00"), impossible);
  EXPECT_EQ(fault_of("00000006 fffffffc 00000000"), "the capture ends in the middle of a packet");
  EXPECT_EQ(fault_of("00000006 00000020 5*00000000 00000020"),
            "the capture has a packet of no interface");
  EXPECT_EQ(fault_of("0a0d0d0a 0000000c 0000000c"),
            "the capture has a section of an unknown byte order");
  const char* too_long_inside =
      "00000001 00000014 0001 0000 00000000 00000014"
      "00000006 00000020 12*00 00000001 00000001 00000020";
  EXPECT_EQ(fault_of(too_long_inside), impossible);
}

TEST(CaptureFile, NoTruncationDoesMoreThanFail) {
  const std::vector<Bytes> packets = {Text("one"), Text("second"), Text("third")};
  for (const Bytes& whole : {PcapFile(1, packets), PcapngFile(1, packets)}) {
    for (std::size_t size = 4; size < whole.size(); ++size) {
      // A copy of its own, so that the sanitizers see each byte too many.
      const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_LE(ReadAll(part).packets.size(), packets.size());
    }
  }
}

PacketContent ContentOf(std::uint32_t link, const Bytes& packet, TcpSegment& segment) {
  return ReadSegment({link, 0, packet}, segment);
}

TEST(TcpSegment, EveryLinkLeadsToTheSameSegment) {
  const Bytes ip = TcpPacket{.sequence = 7, .payload = Text("hello")}.Ip();
  const std::vector<std::pair<std::uint32_t, Bytes>> packets = {
      {1, Hex("12*02 0800") + ip},
      {1, Hex("12*02 8100 0005 0800") + ip},
      {1, Hex("12*02 88a8 0005 8100 0006 0800") + ip},
      {113, Hex("14*00 0800") + ip},
      {276, Hex("0800 18*00") + ip},
      {101, ip},
      {228, ip},
  };
  for (const auto& [link, packet] : packets) {
    TcpSegment segment;
    ASSERT_EQ(ContentOf(link, packet, segment), PacketContent::kSegment) << link;
    EXPECT_EQ(segment.flow.from.text(), "192.0.2.1:40000");
    EXPECT_EQ(segment.flow.to.text(), "192.0.2.2:7440");
    EXPECT_EQ(segment.sequence, 7u);
    EXPECT_EQ(Bytes(segment.payload.begin(), segment.payload.end()), Text("hello"));
    EXPECT_FALSE(segment.opens);
  }
}

TEST(TcpSegment, PaddingOfALinkIsNoPayload) {
  TcpSegment segment;
  const Bytes padded = TcpPacket{.payload = Text("a")}.Ethernet() + Hex("9*00");
  ASSERT_EQ(ContentOf(1, padded, segment), PacketContent::kSegment);
  EXPECT_EQ(segment.payload.size(), 1u);
}

TEST(TcpSegment, WhatIsNoSegmentIsTold) {
  TcpSegment segment;
  EXPECT_EQ(ContentOf(1, Hex("12*02 86dd 40*00"), segment), PacketContent::kOther);
  EXPECT_EQ(ContentOf(101, Hex("60 39*00"), segment), PacketContent::kOther);
  EXPECT_EQ(ContentOf(101, TcpPacket{.protocol = 17}.Ip(), segment), PacketContent::kOther);
  EXPECT_EQ(ContentOf(101, TcpPacket{.fragment = 0x2000}.Ip(), segment), PacketContent::kFragment);
  EXPECT_EQ(ContentOf(101, TcpPacket{.fragment = 5}.Ip(), segment), PacketContent::kFragment);
  EXPECT_EQ(ContentOf(147, TcpPacket{}.Ip(), segment), PacketContent::kUnknownLink);
}

TEST(TcpSegment, HeadersThatLieAboutTheirLengthAreBroken) {
  const Bytes right = TcpPacket{.payload = Text("hello")}.Ip();
  TcpSegment segment;
  for (const auto& [offset, value] : std::vector<std::pair<std::size_t, std::uint8_t>>{
           {0, 0x44}, {0, 0x4F}, {3, 19}, {3, 21}, {32, 0x40}, {32, 0xF0}}) {
    Bytes wrong = right;
    wrong[offset] = value;
    EXPECT_EQ(ContentOf(101, wrong, segment), PacketContent::kBroken) << offset;
  }
}

TEST(TcpSegment, NoTruncationIsMoreThanBrokenOrShort) {
  const Bytes whole = TcpPacket{.payload = Text("hello")}.Ethernet();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    TcpSegment segment;
    const PacketContent content = ContentOf(1, part, segment);
    if (size < 54) {
      EXPECT_EQ(content, PacketContent::kBroken) << size;
    } else {
      EXPECT_EQ(content, PacketContent::kSegment) << size;
      EXPECT_EQ(segment.payload.size(), size - 54);
    }
  }
}

}  // namespace
}  // namespace vt::tools
