#include <gtest/gtest.h>

#include <cstdint>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"

namespace vt::protocol {
namespace {

using vt::testing::Bytes;
using vt::testing::GuardedBytes;
using vt::testing::Hex;
using vt::testing::kSilent;
using vt::testing::kTrace;
using vt::testing::kWarn;
using vt::testing::LogCapture;
using vt::testing::Text;

// 00 01 02 ... 1f: an identity with a zero byte in front.
const char kIdentity[] = "00010203 04050607 08090a0b 0c0d0e0f 10111213 14151617 18191a1b 1c1d1e1f";

TEST(ComposeKey, IsTheHmacOfExactly32IdentityBytes) {
  const GuardedBytes id(Hex(kIdentity));
  const GuardedBytes secret(Text("secret"));
  GuardedBytes out(Bytes(20, 0x55));
  const LogCapture log(kTrace);
  EXPECT_EQ(voltaris_utl_composeKey(secret.data(), 6, id.data(), out.data(), 20), 20);
  EXPECT_BYTES(out.data(), 20, "5f7b8fa8 f5481264 d48ba581 12ec0636 ee4a0b74");
  EXPECT_TRUE(log.lines().empty());
}

TEST(ComposeKey, TakesUnalignedArguments) {
  const GuardedBytes id = GuardedBytes::AtOddAddress(Hex(kIdentity));
  GuardedBytes out = GuardedBytes::AtOddAddress(Bytes(20, 0x55));
  EXPECT_EQ(voltaris_utl_composeKey("secret", 6, id.data(), out.data(), 20), 20);
  EXPECT_BYTES(out.data(), 20, "5f7b8fa8 f5481264 d48ba581 12ec0636 ee4a0b74");
}

TEST(ComposeKey, WritesTwentyBytesIntoALargerBuffer) {
  Bytes out(24, 0x55);
  EXPECT_EQ(voltaris_utl_composeKey("secret", 6, Hex(kIdentity).data(), out.data(), 24), 20);
  EXPECT_BYTES(out.data(), 24, "5f7b8fa8 f5481264 d48ba581 12ec0636 ee4a0b74 4*55");
}

TEST(ComposeKey, HashesALongSecretFirst) {
  const Bytes secret(100, 'k');
  Bytes out(20, 0x55);
  EXPECT_EQ(voltaris_utl_composeKey(secret.data(), 100, Hex(kIdentity).data(), out.data(), 20), 20);
  EXPECT_BYTES(out.data(), 20, "80bf0d4e 1ab7a8de 9bb4a8bc 0b05ebe3 330aedea");
}

TEST(ComposeKey, CountsOnlySixteenBitsOfTheSecretLength) {
  const GuardedBytes secret(Text("secret"));
  Bytes out(20, 0x55);
  EXPECT_EQ(
      voltaris_utl_composeKey(secret.data(), 65536 + 6, Hex(kIdentity).data(), out.data(), 20), 20);
  EXPECT_BYTES(out.data(), 20, "5f7b8fa8 f5481264 d48ba581 12ec0636 ee4a0b74");
}

TEST(ComposeKey, RefusesABufferBelowTwentyBytes) {
  const Bytes id = Hex(kIdentity);
  for (const std::int32_t size : {19, 1, 0, -1, INT32_MIN}) {
    Bytes out(20, 0x55);
    const LogCapture log(kTrace);
    EXPECT_EQ(voltaris_utl_composeKey("secret", 6, id.data(), out.data(), size), 0) << size;
    EXPECT_BYTES(out.data(), 20, "20*55") << size;
    ASSERT_EQ(log.lines().size(), 1u) << size;
    EXPECT_TRUE(log.Has(kWarn, "voltaris_utl_composeKey: Insufficient buffer")) << size;
  }
}

TEST(ComposeKey, RefusesASmallBufferOnASilencedLogToo) {
  Bytes out(20, 0x55);
  const LogCapture log(kSilent);
  EXPECT_EQ(voltaris_utl_composeKey("secret", 6, Hex(kIdentity).data(), out.data(), 19), 0);
  EXPECT_BYTES(out.data(), 20, "20*55");
  EXPECT_TRUE(log.lines().empty());
}

TEST(ComposeNonce, IsTheHmacOfTheData) {
  const GuardedBytes secret(Text("secret"));
  const GuardedBytes data(Text("nonce"));
  GuardedBytes out(Bytes(20, 0x55));
  const LogCapture log(kTrace);
  EXPECT_EQ(voltaris_utl_composeNonce(secret.data(), 6, data.data(), 5, out.data()), 20);
  EXPECT_BYTES(out.data(), 20, "a5a92e8a 7e5ae416 33c953c7 058be21d 3848a7d9");
  EXPECT_TRUE(log.lines().empty());
}

TEST(ComposeNonce, OfNoDataIsTheHmacOfTheEmptyMessage) {
  Bytes out(20, 0x55);
  EXPECT_EQ(voltaris_utl_composeNonce("secret", 6, "", 0, out.data()), 20);
  EXPECT_BYTES(out.data(), 20, "25af6174 a0fcecc4 d346680a 72b7ce64 4b9a88e8");
}

TEST(ComposeNonce, CountsOnlySixteenBitsOfBothLengths) {
  const GuardedBytes secret(Text("secret"));
  const GuardedBytes data(Text("nonce"));
  Bytes out(20, 0x55);
  EXPECT_EQ(
      voltaris_utl_composeNonce(secret.data(), 65536 + 6, data.data(), 2 * 65536 + 5, out.data()),
      20);
  EXPECT_BYTES(out.data(), 20, "a5a92e8a 7e5ae416 33c953c7 058be21d 3848a7d9");
}

// A secret of no bytes leaves the context as it was, all zeros; the result is the same every time.
TEST(ComposeNonce, WithAnEmptySecretIsThatOfTheZeroContext) {
  for (const std::uint32_t secret_len : {0u, 65536u}) {
    Bytes out(20, 0x55);
    EXPECT_EQ(voltaris_utl_composeNonce("secret", secret_len, "abc", 3, out.data()), 20);
    EXPECT_BYTES(out.data(), 20, "7829118c 1ded48ab ac3a4d78 c99ebc06 52c37ba8") << secret_len;
  }
}

}  // namespace
}  // namespace vt::protocol
