#include <gtest/gtest.h>

#include <vector>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"

namespace {

using namespace vt::testing;

const char kDigest[] = "00 01 0a 0f 10 7f 80 9a ab bc cd de ef f0 ff 12 34 56 78 90";
const char kDigits[] = "00010a0f107f809aabbccddeeff0ff1234567890";

TEST(DigestText, LowercaseHexWithoutSeparatorsInExactly41Bytes) {
  const Bytes digest = Hex(kDigest);
  GuardedBytes text(Bytes(41, 0xEE));
  sha1DigestToString(reinterpret_cast<char*>(text.data()), digest.data());
  EXPECT_STREQ(kDigits, reinterpret_cast<const char*>(text.data()));
}

TEST(DigestText, DigestIsReadOverExactly20Bytes) {
  const GuardedBytes digest(Hex(kDigest));
  char text[41];
  sha1DigestToString(text, digest.data());
  EXPECT_STREQ(kDigits, text);
}

TEST(DigestText, HardwareAddressIsUppercaseHexWithColonsInExactly18Bytes) {
  const GuardedBytes mac(Hex("00 1a 2b 3c 4d ff"));
  GuardedBytes text(Bytes(18, 0xEE));
  EXPECT_EQ(0, macAddressToString(reinterpret_cast<char*>(text.data()), mac.data()));
  EXPECT_STREQ("00:1A:2B:3C:4D:FF", reinterpret_cast<const char*>(text.data()));
}

TEST(DigestText, DumpIsOneTraceLine) {
  LogCapture log(kTrace);
  const Bytes digest = Hex(kDigest);
  voltaris_dump_digest(digest.data());
  EXPECT_EQ((std::vector<LogLine>{{kTrace,
                                   "voltaris_dump_digest: digest: "
                                   "00010a0f107f809aabbccddeeff0ff1234567890"}}),
            log.lines());
}

TEST(DigestText, DumpIsSilentAboveTrace) {
  LogCapture log(kDebug);
  const Bytes digest = Hex(kDigest);
  voltaris_dump_digest(digest.data());
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
