// Streams put together, and cut into messages.
#include "tools/message_source.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/harness/hex.h"
#include "tests/harness/pdu_image.h"
#include "tests/tool/captures.h"
#include "tools/message_cutter.h"
#include "tools/message_text.h"
#include "tools/stream_assembly.h"

namespace vt::tools {
namespace {

using vt::testing::Bytes;
using vt::testing::Cat;
using vt::testing::Element;
using vt::testing::PcapFile;
using vt::testing::PduImage;
using vt::testing::TcpPacket;
using vt::testing::Text;
using vt::testing::operator+;

using Strings = std::vector<std::string>;

// Assembled is what came out of segments: lost bytes as points.
struct Assembled {
  StreamAssembly assembly{
      {[this](ByteView bytes) { text.append(bytes.begin(), bytes.end()); },
       [this](std::uint64_t missing) { text += "<" + std::to_string(missing) + " lost>"; }}};
  std::string text;

  void Add(std::uint32_t sequence, std::string_view payload) {
    assembly.Add(sequence, Text(payload));
  }
};

TEST(StreamAssembly, SegmentsInOrderPassThrough) {
  Assembled stream;
  stream.assembly.Open(100);
  stream.Add(100, "ab");
  stream.Add(102, "c");
  EXPECT_EQ(stream.text, "abc");
}

TEST(StreamAssembly, WhatComesEarlyWaitsForWhatIsBeforeIt) {
  Assembled stream;
  stream.assembly.Open(100);
  stream.Add(104, "ef");
  stream.Add(102, "cd");
  EXPECT_EQ(stream.text, "");
  stream.Add(100, "ab");
  EXPECT_EQ(stream.text, "abcdef");
}

TEST(StreamAssembly, WhatComesTwiceOrOverlapsIsTakenOnce) {
  Assembled stream;
  stream.assembly.Open(100);
  stream.Add(100, "abc");
  stream.Add(100, "abc");
  stream.Add(101, "bcde");
  stream.Add(107, "hi");
  stream.Add(106, "ghi");
  stream.Add(105, "f");
  stream.Add(103, "defg");
  EXPECT_EQ(stream.text, "abcdefghi");
}

TEST(StreamAssembly, NumbersWrap) {
  Assembled stream;
  stream.assembly.Open(0xFFFFFFFE);
  stream.Add(1, "d");
  stream.Add(0xFFFFFFFE, "abc");
  stream.Add(0xFFFFFFFF, "b");
  stream.Add(2, "e");
  EXPECT_EQ(stream.text, "abcde");
}

TEST(StreamAssembly, WithoutAnOpeningTheFirstSegmentBegins) {
  Assembled stream;
  stream.Add(500, "ab");
  stream.Add(502, "c");
  EXPECT_EQ(stream.text, "abc");
}

TEST(StreamAssembly, WhatNeverComesIsLostInTheEnd) {
  Assembled stream;
  stream.assembly.Open(100);
  stream.Add(105, "f");
  stream.Add(110, "k");
  stream.assembly.Finish();
  EXPECT_EQ(stream.text, "<5 lost>f<4 lost>k");
}

TEST(StreamAssembly, NoMoreIsKeptThanIsAllowed) {
  Assembled stream;
  stream.assembly.Open(0);
  const std::string piece(1 << 16, 'x');
  const std::uint32_t pieces = StreamAssembly::kMostKept / (1 << 16);
  for (std::uint32_t i = 0; i < pieces; ++i) stream.Add(10 + i * (1 << 16), piece);
  EXPECT_EQ(stream.text, "");
  stream.Add(10 + pieces * (1 << 16), "y");
  EXPECT_EQ(stream.text, "<10 lost>" + std::string(StreamAssembly::kMostKept, 'x') + "y");
}

// Cut is what a stream was cut into.
struct Cut {
  MessageCutter cutter{
      {[this](ByteView message) { messages.emplace_back(message.begin(), message.end()); },
       [this](const std::string& note) { notes.push_back(note); }}};
  std::vector<Bytes> messages;
  Strings notes;
};

Bytes Query(std::uint32_t sequence) {
  PduImage image;
  image.seq = sequence;
  image.elements = {Element(8, 0, Text("lab")), Element(41, 0, {6})};
  return image.Signed(Text("key"));
}

TEST(MessageCutter, MessagesComeWholeHoweverTheirBytesAreCut) {
  const Bytes stream = Cat({Query(1), PduImage().Signed(Text("key")), Query(2)});
  for (std::size_t piece = 1; piece <= stream.size(); piece += 7) {
    Cut cut;
    for (std::size_t at = 0; at < stream.size(); at += piece) {
      cut.cutter.Add(ByteView(stream).subspan(at, std::min(piece, stream.size() - at)));
    }
    cut.cutter.Finish();
    EXPECT_EQ(cut.messages,
              (std::vector<Bytes>{Query(1), PduImage().Signed(Text("key")), Query(2)}));
    EXPECT_EQ(cut.notes, Strings());
  }
}

TEST(MessageCutter, ALengthBeyondThatOfAnyMessageEndsTheReading) {
  Cut cut;
  PduImage large;
  large.tlv_bytes = 1321;
  cut.cutter.Add(Cat({Query(1), large.Signed(Text("key")), Query(2)}));
  cut.cutter.Finish();
  EXPECT_EQ(cut.messages, std::vector<Bytes>{Query(1)});
  ASSERT_EQ(cut.notes.size(), 1u);
  EXPECT_EQ(cut.notes[0],
            std::to_string(80 + Query(2).size()) + " bytes skipped, which begin no message");
}

TEST(MessageCutter, BehindAGapTheReadingGoesOn) {
  Cut cut;
  cut.cutter.Add(ByteView(Query(1)).first(50));
  cut.cutter.Gap(3);
  cut.cutter.Add(Query(2));
  cut.cutter.Gap(1);
  EXPECT_EQ(cut.messages, std::vector<Bytes>{Query(2)});
  EXPECT_EQ(cut.notes, (Strings{"3 bytes missing in the middle of a message", "1 byte missing"}));
}

TEST(MessageCutter, AMessageThatIsNotWholeIsToldInTheEnd) {
  Cut cut;
  cut.cutter.Add(ByteView(Query(1)).first(50));
  cut.cutter.Finish();
  EXPECT_EQ(cut.notes, Strings{"the last message is not whole: no more of it than 50 bytes"});
}

// Captured is what a capture was taken apart into.
struct Captured {
  std::vector<Bytes> messages;
  std::vector<std::string> from;
  Strings notes;
};

Captured Capture(const std::vector<Bytes>& packets,
                 std::optional<std::uint16_t> port = std::uint16_t{7440}) {
  Captured captured;
  ReadCapturedMessages(PcapFile(1, packets), port,
                       {[&captured](ByteView message, const Passage& passage) {
                          captured.messages.emplace_back(message.begin(), message.end());
                          captured.from.push_back(passage.flow->from.text());
                        },
                        [&captured](const std::string& note) { captured.notes.push_back(note); }});
  return captured;
}

Bytes Part(const Bytes& bytes, std::size_t from, std::size_t to) {
  return {bytes.begin() + static_cast<std::ptrdiff_t>(from),
          bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

TEST(MessageSource, BothDirectionsOfAConnectionArePutTogether) {
  const Bytes query = Query(1);
  const Captured captured = Capture({
      TcpPacket{.sequence = 9, .flags = 0x02}.Ethernet(),
      TcpPacket{.sequence = 99, .flags = 0x12, .back = true}.Ethernet(),
      TcpPacket{.sequence = 10 + 60, .payload = Part(query, 60, query.size())}.Ethernet(),
      TcpPacket{.sequence = 100, .payload = Query(2) + Query(3), .back = true}.Ethernet(),
      TcpPacket{.sequence = 10, .payload = Part(query, 0, 60)}.Ethernet(),
  });
  EXPECT_EQ(captured.messages, (std::vector<Bytes>{Query(2), Query(3), query}));
  EXPECT_EQ(captured.from, (Strings{"192.0.2.2:7440", "192.0.2.2:7440", "192.0.2.1:40000"}));
  EXPECT_EQ(captured.notes, Strings());
}

TEST(MessageSource, ASecondConnectionBetweenTheSameSidesIsAnother) {
  const Captured captured = Capture({
      TcpPacket{.sequence = 9, .flags = 0x02}.Ethernet(),
      TcpPacket{.sequence = 10, .payload = Part(Query(1), 0, 20)}.Ethernet(),
      TcpPacket{.sequence = 700, .flags = 0x02}.Ethernet(),
      TcpPacket{.sequence = 701, .payload = Query(2)}.Ethernet(),
  });
  EXPECT_EQ(captured.messages, std::vector<Bytes>{Query(2)});
  EXPECT_EQ(captured.notes,
            Strings{"192.0.2.1:40000 > 192.0.2.2:7440: the last message is not whole: no "
                    "more of it than 20 bytes"});
}

TEST(MessageSource, ConnectionsOfOtherPortsArePassedOver) {
  const std::vector<Bytes> packets = {TcpPacket{.payload = Query(1), .node_port = 7441}.Ethernet()};
  EXPECT_TRUE(Capture(packets).messages.empty());
  EXPECT_EQ(Capture(packets).notes, Strings{"passed over 1 packet of other ports"});
  EXPECT_EQ(Capture(packets, 7441).messages.size(), 1u);
  EXPECT_EQ(Capture(packets, std::nullopt).messages.size(), 1u);
}

TEST(MessageSource, WhatCannotBeReadIsTold) {
  const Captured captured = Capture({
      TcpPacket{.payload = Query(1), .fragment = 0x2000}.Ethernet(),
      vt::testing::Hex("12*02 0800 45"),
      TcpPacket{.payload = Query(2)}.Ethernet(),
  });
  EXPECT_EQ(captured.messages.size(), 1u);
  EXPECT_EQ(captured.notes, (Strings{"passed over 1 packet of fragments",
                                     "passed over 1 packet unlike what their headers say"}));
}

TEST(MessageSource, SegmentsInAnyOrderGiveTheSameMessages) {
  Bytes stream;
  for (std::uint32_t i = 1; i <= 20; ++i) stream = stream + Query(i);
  std::vector<Bytes> segments;
  for (std::size_t at = 0; at < stream.size(); at += 97) {
    segments.push_back(TcpPacket{.sequence = static_cast<std::uint32_t>(1 + at),
                                 .payload = Part(stream, at, std::min(at + 130, stream.size()))}
                           .Ethernet());
  }
  // NOLINTNEXTLINE: the same orders each time, so that a failure can be looked into.
  std::mt19937 random(7);
  for (int round = 0; round < 50; ++round) {
    std::shuffle(segments.begin(), segments.end(), random);
    std::vector<Bytes> packets = {TcpPacket{.sequence = 0, .flags = 0x02}.Ethernet()};
    packets.insert(packets.end(), segments.begin(), segments.end());
    const Captured captured = Capture(packets);
    ASSERT_EQ(captured.messages.size(), 20u);
    EXPECT_EQ(captured.messages[19], Query(20));
    EXPECT_EQ(captured.notes, Strings());
  }
}

TEST(MessageSource, TimesAreWrittenWithMicroseconds) {
  EXPECT_EQ(TimeText(0), "1970-01-01T00:00:00.000000Z");
  EXPECT_EQ(TimeText(951827696000042999), "2000-02-29T12:34:56.000042Z");
  EXPECT_EQ(TimeText(0xFFFFFFFFFFFFFFFF), "2554-07-21T23:34:33.709551Z");
}

TEST(MessageSource, ForeignBytesAtAnyPlaceOfACaptureDoNoHarm) {
  const Bytes whole = PcapFile(1, {TcpPacket{.sequence = 9, .flags = 0x02}.Ethernet(),
                                   TcpPacket{.sequence = 10, .payload = Query(1)}.Ethernet(),
                                   TcpPacket{.sequence = 200, .payload = Query(2)}.Ethernet()});
  std::size_t messages = 0;
  const MessageSink sink = {[&messages](ByteView, const Passage&) { ++messages; },
                            [](const std::string&) {}};
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const std::uint8_t value : Bytes{0x00, 0x7F, 0xFF}) {
      Bytes changed = whole;
      changed[at] = value;
      ReadCapturedMessages(changed, std::nullopt, sink);
    }
  }
  EXPECT_GT(messages, whole.size());
}

}  // namespace
}  // namespace vt::tools
