// The bounded reader: nothing is taken that is not there, and a failed call changes nothing.
#include "support/reader.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace {

using vt::support::Bytes;
using vt::support::Reader;
using vt::testing::GuardedBytes;
using vt::testing::Hex;

TEST(Reader, ReadsBigEndianIntegersAtAnyAddress) {
  const GuardedBytes input = GuardedBytes::AtOddAddress(Hex("01 0203 04050607"));
  Reader in(Bytes(input.data(), input.size()));
  std::uint8_t byte = 0;
  std::uint16_t half = 0;
  std::uint32_t word = 0;
  ASSERT_TRUE(in.Read(byte) && in.Read(half) && in.Read(word));
  EXPECT_EQ(byte, 0x01);
  EXPECT_EQ(half, 0x0203);
  EXPECT_EQ(word, 0x04050607U);
  EXPECT_EQ(in.remaining(), 0U);
}

TEST(Reader, LeavesEverythingUnchangedWhenTheInputIsShort) {
  const GuardedBytes input(Hex("0102 03"));
  Reader in(Bytes(input.data(), input.size()));
  std::uint32_t word = 77;
  Bytes taken;
  EXPECT_FALSE(in.Read(word));
  EXPECT_FALSE(in.Take(4, taken));
  EXPECT_FALSE(in.Skip(SIZE_MAX));
  EXPECT_EQ(word, 77U);
  EXPECT_TRUE(taken.empty());
  EXPECT_EQ(in.remaining(), 3U);
  EXPECT_EQ(in.cursor(), input.data());
}

TEST(Reader, TakesAllThatIsThereAndThenNothing) {
  const GuardedBytes input(Hex("0102 03"));
  Reader in(Bytes(input.data(), input.size()));
  Bytes taken;
  EXPECT_TRUE(in.Take(3, taken));
  EXPECT_EQ(taken.size(), 3U);
  EXPECT_TRUE(in.Take(0, taken));
  EXPECT_TRUE(taken.empty());
  EXPECT_FALSE(in.Skip(1));
}

}  // namespace
