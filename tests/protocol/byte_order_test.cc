#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace vt::protocol {
namespace {

using vt::testing::Bytes;
using vt::testing::GuardedBytes;
using vt::testing::Hex;

// Every field different, every byte of a field different.
const char kMessageWire[] =
    "01020304"
    "a0a1a2a3 a4a5a6a7 a8a9aaab acadaeaf b0b1b2b3 b4b5b6b7 b8b9babb bcbdbebf"
    "01 fe 03 0a 11 0d 1234 5678 9abc";

message_header HostMessage() {
  message_header host;
  std::memset(&host, 0, sizeof host);
  host.seq = 0x01020304;
  for (int i = 0; i < 32; ++i) host.voltarisid[i] = static_cast<std::uint8_t>(0xa0 + i);
  host.ver = 1;
  host.shipment = -2;
  host.pri = 3;
  host.type = 10;
  host.app = 17;
  host.class_ = 13;
  host.action = 0x1234;
  host.tlv_bytes = 0x5678;
  host.tlv_count = 0x9abc;
  return host;
}

void ExpectHostMessage(const message_header& host) {
  EXPECT_EQ(host.seq, 0x01020304u);
  EXPECT_BYTES(host.voltarisid, 32,
               "a0a1a2a3 a4a5a6a7 a8a9aaab acadaeaf b0b1b2b3 b4b5b6b7 b8b9babb bcbdbebf");
  EXPECT_EQ(host.ver, 1);
  EXPECT_EQ(host.shipment, -2);
  EXPECT_EQ(host.pri, 3);
  EXPECT_EQ(host.type, 10);
  EXPECT_EQ(host.app, 17);
  EXPECT_EQ(host.class_, 13);
  EXPECT_EQ(host.action, 0x1234);
  EXPECT_EQ(host.tlv_bytes, 0x5678);
  EXPECT_EQ(host.tlv_count, 0x9abc);
}

TEST(MessageHeaderConversion, ReadsEveryFieldFromTheWire) {
  const GuardedBytes wire(Hex(kMessageWire));
  message_header host;
  std::memset(&host, 0x55, sizeof host);
  EXPECT_EQ(cv_corvane_event_nw_to_host(wire.data(), &host), 0);
  ExpectHostMessage(host);
}

TEST(MessageHeaderConversion, WritesEveryFieldToTheWire) {
  const message_header host = HostMessage();
  GuardedBytes wire(Bytes(48, 0x55));
  EXPECT_EQ(cv_corvane_event_host_to_nw(&host, wire.data()), 0);
  EXPECT_BYTES(wire.data(), 48, kMessageWire);
}

TEST(MessageHeaderConversion, WorksAtAnOddAddress) {
  const GuardedBytes wire = GuardedBytes::AtOddAddress(Hex(kMessageWire));
  message_header host;
  std::memset(&host, 0x55, sizeof host);
  EXPECT_EQ(cv_corvane_event_nw_to_host(wire.data(), &host), 0);
  ExpectHostMessage(host);

  GuardedBytes out = GuardedBytes::AtOddAddress(Bytes(48, 0x55));
  EXPECT_EQ(cv_corvane_event_host_to_nw(&host, out.data()), 0);
  EXPECT_BYTES(out.data(), 48, kMessageWire);
}

TEST(MessageHeaderConversion, RoundTripsEveryField) {
  const message_header host = HostMessage();
  Bytes wire(48, 0x55);
  message_header back;
  std::memset(&back, 0x55, sizeof back);
  cv_corvane_event_host_to_nw(&host, wire.data());
  cv_corvane_event_nw_to_host(wire.data(), &back);
  ExpectHostMessage(back);
  EXPECT_EQ(std::memcmp(&host, &back, sizeof host), 0);
}

TEST(SecurityHeaderConversion, OfAnOutgoingHeaderGivesTheKnownBytes) {
  security_header host;
  std::memset(&host, 0, sizeof host);
  host.byte1 = 0x20;  // enc 2 in the high nibble
  host.byte9 = 0x31;  // comm 3 in the high nibble, auth 1 in the low one
  host.digest_len = 20;
  GuardedBytes wire(Bytes(12, 0x55));
  EXPECT_EQ(cv_corvane_secure_host_to_nw(&host, wire.data()), 0);
  EXPECT_BYTES(wire.data(), 12, "00 02 0000 00000000 00 13 0014");
}

TEST(SecurityHeaderConversion, ReadsEveryFieldFromTheWire) {
  const GuardedBytes wire(Hex("12 34 5678 9abcdef0 a1 b2 c3d4"));
  security_header host;
  std::memset(&host, 0x55, sizeof host);
  EXPECT_EQ(cv_corvane_secure_nw_to_host(wire.data(), &host), 0);
  EXPECT_EQ(host.byte0, 0x21);
  EXPECT_EQ(host.byte1, 0x43);
  EXPECT_EQ(host.unnamed16, 0x5678);
  EXPECT_EQ(host.tag, 0x9abcdef0u);
  EXPECT_EQ(host.unnamed8, 0xa1);
  EXPECT_EQ(host.byte9, 0x2b);
  EXPECT_EQ(host.digest_len, 0xc3d4);
}

TEST(SecurityHeaderConversion, WritesEveryFieldToTheWire) {
  security_header host;
  std::memset(&host, 0, sizeof host);
  host.byte0 = 0x21;
  host.byte1 = 0x43;
  host.unnamed16 = 0x5678;
  host.tag = 0x9abcdef0u;
  host.unnamed8 = 0xa1;
  host.byte9 = 0x2b;
  host.digest_len = 0xc3d4;
  GuardedBytes wire(Bytes(12, 0x55));
  EXPECT_EQ(cv_corvane_secure_host_to_nw(&host, wire.data()), 0);
  EXPECT_BYTES(wire.data(), 12, "12 34 5678 9abcdef0 a1 b2 c3d4");
}

TEST(SecurityHeaderConversion, RoundTripsEveryNibble) {
  for (int value = 0; value < 256; ++value) {
    security_header host;
    std::memset(&host, 0, sizeof host);
    host.byte0 = static_cast<std::uint8_t>(value);
    host.byte1 = static_cast<std::uint8_t>(value ^ 0xff);
    host.byte9 = static_cast<std::uint8_t>(value * 7);
    host.unnamed16 = 0x0102;
    host.tag = 0x03040506;
    host.unnamed8 = 0x07;
    host.digest_len = 0x0809;
    Bytes wire(12, 0x55);
    security_header back;
    std::memset(&back, 0x55, sizeof back);
    cv_corvane_secure_host_to_nw(&host, wire.data());
    EXPECT_EQ(wire[0], static_cast<std::uint8_t>(value >> 4 | value << 4)) << value;
    cv_corvane_secure_nw_to_host(wire.data(), &back);
    EXPECT_EQ(std::memcmp(&host, &back, sizeof host), 0) << value;
  }
}

// The header always starts a buffer, but nothing makes the caller's buffer start at an even
// address.
TEST(SecurityHeaderConversion, WorksAtAnOddAddress) {
  const GuardedBytes wire = GuardedBytes::AtOddAddress(Hex("12 34 5678 9abcdef0 a1 b2 c3d4"));
  security_header host;
  cv_corvane_secure_nw_to_host(wire.data(), &host);
  GuardedBytes out = GuardedBytes::AtOddAddress(Bytes(12, 0x55));
  cv_corvane_secure_host_to_nw(&host, out.data());
  EXPECT_BYTES(out.data(), 12, "12 34 5678 9abcdef0 a1 b2 c3d4");
}

}  // namespace
}  // namespace vt::protocol
