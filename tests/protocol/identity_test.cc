#include <gtest/gtest.h>

#include <cstddef>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace vt::protocol {
namespace {

using vt::testing::Bytes;
using vt::testing::GuardedBytes;
using vt::testing::Hex;

int Compare(const Bytes& a, const Bytes& b) {
  const GuardedBytes left(a);
  const GuardedBytes right = GuardedBytes::AtOddAddress(b);
  return corvane_id_cmp(left.data(), right.data());
}

TEST(IdentityComparison, OfEqualIdentitiesIsZero) {
  EXPECT_EQ(Compare(Hex("32*61"), Hex("32*61")), 0);
  EXPECT_EQ(Compare(Hex("32*00"), Hex("32*00")), 0);
}

TEST(IdentityComparison, SeesADifferenceInTheLastByte) {
  EXPECT_EQ(Compare(Hex("31*61 62"), Hex("31*61 65")), -3);
  EXPECT_EQ(Compare(Hex("31*61 65"), Hex("31*61 62")), 3);
}

TEST(IdentityComparison, GoesPastEmbeddedZeroBytes) {
  EXPECT_EQ(Compare(Hex("61 00 29*61 01"), Hex("61 00 29*61 07")), -6);
  EXPECT_EQ(Compare(Hex("31*00 07"), Hex("31*00 01")), 6);
}

TEST(IdentityComparison, TakesBytesAsUnsigned) {
  EXPECT_EQ(Compare(Hex("ff 31*00"), Hex("01 31*00")), 254);
  EXPECT_EQ(Compare(Hex("01 31*00"), Hex("ff 31*00")), -254);
  EXPECT_EQ(Compare(Hex("80 31*00"), Hex("7f 31*00")), 1);
}

TEST(IdentityComparison, IsDecidedByTheFirstDifference) {
  EXPECT_EQ(Compare(Hex("10 09 30*00"), Hex("10 08 30*ff")), 1);
}

TEST(IdentityComparison, StopsAfterThirtyTwoBytes) {
  const Bytes a = Hex("32*61 01");
  const Bytes b = Hex("32*61 02");
  EXPECT_EQ(corvane_id_cmp(a.data(), b.data()), 0);
}

TEST(IdentityComparison, SeesADifferenceInEveryByte) {
  for (std::size_t i = 0; i < 32; ++i) {
    Bytes other = Hex("32*61");
    other[i] = 0x63;
    EXPECT_EQ(Compare(Hex("32*61"), other), -2) << i;
  }
}

}  // namespace
}  // namespace vt::protocol
