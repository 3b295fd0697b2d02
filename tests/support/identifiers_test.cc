#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace {

using namespace vt::testing;

char* Chars(GuardedBytes& bytes) { return reinterpret_cast<char*>(bytes.data()); }

std::string Digits(const GuardedBytes& bytes, std::size_t offset = 0) {
  return std::string(reinterpret_cast<const char*>(bytes.data()) + offset, 32);
}

bool IsLowercaseHex(const std::string& text) {
  return text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

// IdtosOutput is a buffer of 40 bytes of EE after voltaris_idtos has written to it.
Bytes IdtosOutput(const Bytes& id, int n) {
  Bytes out(40, 0xEE);
  voltaris_idtos(reinterpret_cast<char*>(out.data()), id.data(), n);
  return out;
}

TEST(Identifiers, UuidIsWrittenAs32DigitsWithoutTerminator) {
  const GuardedBytes uuid(Hex("00 01 0f 10 7f 80 a9 ab cd ef ff 12 34 56 78 90"));
  // The buffer ends at an inaccessible page: a terminator would be one byte too many.
  GuardedBytes out(Bytes(32, 0xEE));
  EXPECT_EQ(0, convertUuidString(Chars(out), uuid.data()));
  EXPECT_EQ("00010f107f80a9abcdefff1234567890", Digits(out));
}

TEST(Identifiers, UuidOfAHardwareAddressHasTheFixedPrefix) {
  const GuardedBytes mac(Hex("00 11 22 33 44 ff"));
  GuardedBytes out(Bytes(16, 0xEE));
  EXPECT_EQ(0, uuidFromMacAddress(out.data(), mac.data()));
  EXPECT_BYTES(out.data(), 16, "e0 d0 0d e0 | 6*00 | 00 11 22 33 44 ff");
}

TEST(Identifiers, GeneratedUuidsDiffer) {
  GuardedBytes first(Bytes(16));
  GuardedBytes second(Bytes(16));
  EXPECT_EQ(0, generateUuid(first.data()));
  EXPECT_EQ(0, generateUuid(second.data()));
  EXPECT_FALSE(SameBytes(Bytes(16), first.data(), 16));
  EXPECT_FALSE(SameBytes(Bytes(first.data(), first.data() + 16), second.data(), 16));
}

TEST(Identifiers, NewUuidReturnsItsDigitsBehindTheBinaryForm) {
  GuardedBytes buf(Bytes(48, 0xEE));
  char* const digits = newUUID(buf.data());
  EXPECT_EQ(Chars(buf) + 16, digits);
  GuardedBytes expected(Bytes(32));
  convertUuidString(Chars(expected), buf.data());
  EXPECT_EQ(Digits(expected), Digits(buf, 16));
  EXPECT_TRUE(IsLowercaseHex(Digits(buf, 16)));
}

TEST(Identifiers, RandomIdentitiesAreDifferentLowercaseHex) {
  GuardedBytes first(Bytes(32, 0xEE));
  GuardedBytes second(Bytes(32, 0xEE));
  EXPECT_EQ(0, voltaris_utl_createUuid(Chars(first)));
  EXPECT_EQ(0, voltaris_utl_createUuid(Chars(second)));
  EXPECT_TRUE(IsLowercaseHex(Digits(first))) << Digits(first);
  EXPECT_TRUE(IsLowercaseHex(Digits(second))) << Digits(second);
  EXPECT_NE(Digits(first), Digits(second));
}

TEST(Identifiers, IdentityOfAHardwareAddress) {
  const Bytes mac = Hex("00 11 22 33 44 55");
  GuardedBytes out(Bytes(32, 0xEE));
  EXPECT_EQ(0, voltaris_utl_createUuidFromMac(Chars(out), mac.data()));
  EXPECT_EQ("e0d00de0000000000000001122334455", Digits(out));
}

TEST(Identifiers, IdentityFromDetailsJoinsFourParts) {
  const GuardedBytes part1(Text("ABCDEFGHIJKLMNOPQR"));
  const GuardedBytes part2(Text("123"));
  const GuardedBytes part3(Text("vwxyz"));
  const GuardedBytes part4(Hex("00 01 02 03 04 05"));
  GuardedBytes out(Bytes(32, 0xEE));
  EXPECT_EQ(0, voltaris_utl_createUuidFromDetails(Chars(out), part1.data(), part2.data(),
                                                  part3.data(), part4.data()));
  EXPECT_TRUE(
      SameBytes(Text("ABCDEFGHIJKLMNOPQR123vwxyz") + Hex("00 01 02 03 04 05"), out.data(), 32));
}

TEST(Identifiers, IdentityFromDetailsWithANullPartWritesNothing) {
  const Bytes part(18, 'p');
  for (int missing = 0; missing < 4; ++missing) {
    SCOPED_TRACE(missing);
    const auto given = [&](int i) { return i == missing ? nullptr : part.data(); };
    Bytes out(32, 0xEE);
    EXPECT_EQ(-1, voltaris_utl_createUuidFromDetails(reinterpret_cast<char*>(out.data()), given(0),
                                                     given(1), given(2), given(3)));
    EXPECT_EQ(Bytes(32, 0xEE), out);
  }
  EXPECT_EQ(-1, voltaris_utl_createUuidFromDetails(nullptr, part.data(), part.data(), part.data(),
                                                   part.data()));
}

// Deliberate: a short identity that is padded with zeros still prints as one line.
TEST(Identifiers, ZeroBytesOfAnIdentityPrintAsBackspaces) {
  const Bytes id = Text("abc") + Bytes(29);
  EXPECT_TRUE(SameBytes(Text("abc") + Hex("29*08 | 00 00 | 6*ee"), IdtosOutput(id, 33)));
}

TEST(Identifiers, IdentityTextIsCutAndTerminatedAtN) {
  const Bytes id = Text("0123456789abcdefghijklmnopqrstuv");
  EXPECT_TRUE(SameBytes(id + Hex("00 | 7*ee"), IdtosOutput(id, 32)));
  EXPECT_TRUE(SameBytes(Text("01234") + Hex("00 | 34*ee"), IdtosOutput(id, 5)));
  EXPECT_TRUE(SameBytes(Hex("00 | 39*ee"), IdtosOutput(id, 0)));
}

TEST(Identifiers, AboveN32ZerosFollowAt32And33Only) {
  const Bytes id = Text("0123456789abcdefghijklmnopqrstuv");
  for (const int n : {33, 34, 40, INT_MAX}) {
    EXPECT_TRUE(SameBytes(id + Hex("00 00 | 6*ee"), IdtosOutput(id, n))) << n;
  }
}

TEST(Identifiers, NegativeNCountsAsZero) {
  const Bytes id(32, 'x');
  EXPECT_TRUE(SameBytes(Hex("00 | 39*ee"), IdtosOutput(id, -1)));
  EXPECT_TRUE(SameBytes(Hex("00 | 39*ee"), IdtosOutput(id, INT_MIN)));
}

TEST(Identifiers, IdentityTextStaysInsideItsBuffers) {
  const GuardedBytes id(Bytes(32, 'x'));
  GuardedBytes out34(Bytes(34, 0xEE));
  voltaris_idtos(Chars(out34), id.data(), 33);
  EXPECT_BYTES(out34.data(), 34, "32*78 00 00");
  GuardedBytes out33(Bytes(33, 0xEE));
  voltaris_idtos(Chars(out33), id.data(), 32);
  EXPECT_BYTES(out33.data(), 33, "32*78 00");
  GuardedBytes out1(Bytes(1, 0xEE));
  voltaris_idtos(Chars(out1), id.data(), 0);
  EXPECT_BYTES(out1.data(), 1, "00");
}

}  // namespace
