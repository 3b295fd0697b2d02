#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"

namespace {

using namespace vt::testing;

// An Event whose every header field has a value of its own. Nothing in it is owned.
struct Message {
  security_header sec = {};
  message_header pak = {};
  Event event = {};

  explicit Message(const Bytes& identity) {
    sec.byte1 = 0x2f;  // enc is the high nibble
    sec.byte9 = 0x31;  // auth is the low nibble, comm the high one
    sec.digest_len = 20;
    pak.seq = 0xFFFFFFFE;
    std::memcpy(pak.voltarisid, identity.data(), 32);
    pak.ver = 200;
    pak.shipment = -1;
    pak.pri = 255;
    pak.type = 10;
    pak.app = 17;
    pak.class_ = 130;
    pak.action = 65535;
    pak.tlv_bytes = 40000;
    pak.tlv_count = 60000;
    event.sec = &sec;
    event.pak = &pak;
    event.raw_len = 40080;
  }
};

const Bytes& Identity() {
  static const Bytes identity = Text("0123456789abcdef0123456789abcdef");
  return identity;
}

std::vector<LogLine> DumpBuf(const void* buf, std::int32_t len) {
  LogCapture log(kTrace);
  voltaris_dump_buf(buf, len);
  return log.lines();
}

// BufLines are the lines of a dump, each with its level and prefix.
std::vector<LogLine> BufLines(const std::vector<std::string>& lines) {
  std::vector<LogLine> result;
  for (const std::string& line : lines) result.push_back({kTrace, "voltaris_dump_buf: " + line});
  return result;
}

std::string Blanks(std::size_t count) { return std::string(count, ' '); }

const char kFullLine[] =
    "0x0000: 0x41 0x42 0x43 0x44 0x45 0x46 0x47 0x48 0x49 0x4a 0x4b 0x4c 0x4d 0x4e 0x4f 0x50 "
    "   ABCDEFGHIJKLMNOP";

TEST(DumpPdu, SixTraceLinesOnTheHostHeaders) {
  const Message message(Identity());
  LogCapture log(kTrace);
  voltaris_dump_pdu(&message.event);
  const std::string prefix = "voltaris_dump_pdu: ";
  EXPECT_EQ((std::vector<LogLine>{
                {kTrace, prefix + "Voltaris protocol message body >>"},
                {kTrace, prefix + "voltarisid: 0123456789abcdef0123456789abcdef"},
                {kTrace, prefix + "enc: 2 comm: 3 auth: 1 digest len: 20"},
                {kTrace, prefix + "seq: 4294967294 ver: 200 shipment: -1 pri: 255 type: 10"},
                {kTrace, prefix + "app: 17 class: 130 action: 65535 "},
                {kTrace, prefix + "bytes: 40080, TLV bytes: 40000 TLV count: 60000"},
            }),
            log.lines());
}

TEST(DumpPdu, ShortIdentityPrintsItsZerosAsBackspaces) {
  const Message message(Text("abc") + Bytes(29));
  LogCapture log(kTrace);
  voltaris_dump_pdu(&message.event);
  EXPECT_TRUE(log.Has(kTrace, "voltaris_dump_pdu: voltarisid: abc" + std::string(29, '\b')));
}

TEST(DumpPdu, IdentityIsNeverAFormat) {
  const Message message(Text("%n%s%n%s%n%s%n%s%n%s%n%s%n%s%n%s"));
  LogCapture log(kTrace);
  voltaris_dump_pdu(&message.event);
  EXPECT_TRUE(log.Has(kTrace, "voltaris_dump_pdu: voltarisid: %n%s%n%s%n%s%n%s%n%s%n%s%n%s%n%s"));
}

TEST(DumpPdu, SilentAboveTrace) {
  const Message message(Identity());
  LogCapture log(kDebug);
  voltaris_dump_pdu(&message.event);
  EXPECT_TRUE(log.lines().empty());
}

TEST(DumpPdu, SilentWithoutEventOrHeaders) {
  LogCapture log(kTrace);
  voltaris_dump_pdu(nullptr);
  Message without_sec(Identity());
  without_sec.event.sec = nullptr;
  voltaris_dump_pdu(&without_sec.event);
  Message without_pak(Identity());
  without_pak.event.pak = nullptr;
  voltaris_dump_pdu(&without_pak.event);
  EXPECT_TRUE(log.lines().empty());
}

TEST(DumpPayload, BytesBehindTheHeaderAsManyAsItsFieldSays) {
  // At an odd address, and with an inaccessible page behind the 17 bytes.
  const GuardedBytes image(Hex("44*ee | 0011 | ffff") + Text("ABCDEFGHIJKLMNOPQ"));
  ASSERT_EQ(1u, reinterpret_cast<std::uintptr_t>(image.data()) % 2);
  LogCapture log(kTrace);
  voltaris_dump_payload(image.data());
  EXPECT_EQ(BufLines({"", kFullLine, "0x0010: 0x51 " + Blanks(75) + Blanks(3) + "Q"}), log.lines());
}

TEST(DumpPayload, WithoutElementsOnlyTheLineOfThreeBlanks) {
  const GuardedBytes header(Hex("44*ee | 0000 | ffff"));
  LogCapture log(kTrace);
  voltaris_dump_payload(header.data());
  EXPECT_EQ(BufLines({"   "}), log.lines());
}

TEST(DumpPayload, SilentAboveTrace) {
  const Bytes image = Hex("44*ee | 0001 | ffff | 41");
  LogCapture log(kDebug);
  voltaris_dump_payload(image.data());
  EXPECT_TRUE(log.lines().empty());
}

TEST(DumpPayload, NullWarnsAtEveryLevelThatAdmitsWarnings) {
  for (const std::uint32_t level : {kTrace, kDebug, kInfo, kWarn}) {
    LogCapture log(level);
    voltaris_dump_payload(nullptr);
    EXPECT_EQ((std::vector<LogLine>{{kWarn, "voltaris_dump_payload: NULL"}}), log.lines());
  }
  LogCapture log(kError);
  voltaris_dump_payload(nullptr);
  EXPECT_TRUE(log.lines().empty());
}

// Deliberate: the line is logged at every multiple of 16, 0 included, so the first one is empty.
TEST(DumpBuf, DumpThatIsNotEmptyBeginsWithAnEmptyLine) {
  EXPECT_EQ(BufLines({"", "0x0000: 0x41 " + Blanks(75) + Blanks(3) + "A"}), DumpBuf("A", 1));
}

TEST(DumpBuf, TwentyBytesAreAnEmptyAFullAndAPaddedLine) {
  const GuardedBytes buf(Text("ABCDEFGHIJKLMNOP") + Hex("00 7f 20 7e"));
  EXPECT_EQ(
      BufLines({"", kFullLine, "0x0010: 0x00 0x7f 0x20 0x7e " + Blanks(60) + Blanks(3) + ".. ~"}),
      DumpBuf(buf.data(), 20));
}

TEST(DumpBuf, LengthDivisibleBySixteenFillsItsLastLine) {
  EXPECT_EQ(BufLines({"", kFullLine}), DumpBuf("ABCDEFGHIJKLMNOP", 16));
}

TEST(DumpBuf, SeventeenthByteHasALineOfItsOwn) {
  EXPECT_EQ(BufLines({"", kFullLine, "0x0010: 0x51 " + Blanks(75) + Blanks(3) + "Q"}),
            DumpBuf("ABCDEFGHIJKLMNOPQ", 17));
}

TEST(DumpBuf, UnprintableBytesShowAsPoints) {
  const Bytes buf = Hex("41 00");
  EXPECT_EQ(BufLines({"", "0x0000: 0x41 0x00 " + Blanks(70) + Blanks(3) + "A."}),
            DumpBuf(buf.data(), 2));
}

TEST(DumpBuf, PrintableIsFromBlankToTildeInEveryLocale) {
  Bytes all(256);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint8_t>(i);
  const auto column = [&] {
    std::string result;
    for (const LogLine& line : DumpBuf(all.data(), 256)) {
      if (line.text.size() > 100) result += line.text.substr(line.text.size() - 16);
    }
    return result;
  };
  std::string expected(256, '.');
  for (std::size_t i = 0x20; i <= 0x7E; ++i) expected[i] = static_cast<char>(i);
  EXPECT_EQ(expected, column());
  ASSERT_NE(nullptr, std::setlocale(LC_ALL, "C.UTF-8"));
  EXPECT_EQ(expected, column());
  std::setlocale(LC_ALL, "C");
}

TEST(DumpBuf, EmptyNullAndNegativeGiveThreeBlanks) {
  const GuardedBytes nothing{Bytes{}};
  EXPECT_EQ(BufLines({"   "}), DumpBuf(nothing.data(), 0));
  EXPECT_EQ(BufLines({"   "}), DumpBuf("ABC", -1));
  EXPECT_EQ(BufLines({"   "}), DumpBuf("ABC", INT_MIN));
  EXPECT_EQ(BufLines({"   "}), DumpBuf(nullptr, 20));
  EXPECT_EQ(BufLines({"   "}), DumpBuf(nullptr, 0));
}

TEST(DumpBuf, BytesAreNeverAFormat) {
  EXPECT_EQ(BufLines({"", "0x0000: 0x25 0x6e 0x25 0x73 " + Blanks(60) + Blanks(3) + "%n%s"}),
            DumpBuf("%n%s", 4));
}

TEST(DumpBuf, OffsetsAboveFourDigitsGrow) {
  const Bytes buf(0x10001, 'x');
  const std::vector<LogLine> lines = DumpBuf(buf.data(), 0x10001);
  ASSERT_EQ(2u + 0x1000u, lines.size());
  EXPECT_EQ("voltaris_dump_buf: 0xfff0: 0x78 ", lines[0x1000].text.substr(0, 32));
  EXPECT_EQ("voltaris_dump_buf: 0x10000: 0x78 " + Blanks(75) + Blanks(3) + "x", lines.back().text);
}

TEST(DumpBuf, SilentAboveTrace) {
  LogCapture log(kDebug);
  voltaris_dump_buf("ABC", 3);
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
