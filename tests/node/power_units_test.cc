#include "node/power_units.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace vt::testing {
namespace {

using node::AddMilliwatts;
using node::ChangeInUnits;
using node::CommonUnits;
using node::FitPower;
using node::PowerInUnits;
using node::ToMilliwatts;
using node::UsageInUnits;

constexpr std::int64_t kGreatest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

void ExpectFit(std::int64_t milliwatts, unsigned usage, int units) {
  const PowerInUnits power = FitPower(milliwatts);
  EXPECT_EQ(power.usage, usage) << milliwatts;
  EXPECT_EQ(power.units, units) << milliwatts;
}

TEST(PowerUnits, WhatFitsIntoMilliwattsIsExact) {
  ExpectFit(0, 0, -3);
  ExpectFit(1, 1, -3);
  ExpectFit(65535, 65535, -3);
}

TEST(PowerUnits, TheFirstThatOverflowsMovesOnByOneDigit) {
  ExpectFit(65536, 6554, -2);
  ExpectFit(655350, 65535, -2);
  ExpectFit(65535000, 65535, 0);
}

TEST(PowerUnits, RoundingUpToTheLimitDoesNotOverflow) {
  ExpectFit(655354, 65535, -2);  // 65535.4
  ExpectFit(655355, 6554, -1);   // 65535.5, which would be 65536
}

TEST(PowerUnits, HalvesAreRoundedUp) {
  EXPECT_EQ(UsageInUnits(14, -2), 1);
  EXPECT_EQ(UsageInUnits(15, -2), 2);
  EXPECT_EQ(UsageInUnits(499, 0), 0);
  EXPECT_EQ(UsageInUnits(500, 0), 1);
}

TEST(PowerUnits, TheGreatestNumberFits) { ExpectFit(kGreatest, 9223, 12); }

TEST(PowerUnits, MilliwattsOfAUsageAreExactInAllUnits) {
  EXPECT_EQ(ToMilliwatts(65535, -3), 65535);
  EXPECT_EQ(ToMilliwatts(-7, 0), -7000);
  EXPECT_EQ(ToMilliwatts(2147483647, 6), 2147483647'000'000'000);
}

TEST(PowerUnits, ChangesKeepTheirSignAndAreRoundedAwayFromZero) {
  EXPECT_EQ(ChangeInUnits(1499, 0), 1);
  EXPECT_EQ(ChangeInUnits(1500, 0), 2);
  EXPECT_EQ(ChangeInUnits(-1499, 0), -1);
  EXPECT_EQ(ChangeInUnits(-1500, 0), -2);
  EXPECT_EQ(ChangeInUnits(kLeast, 12), -9223);
}

TEST(PowerUnits, LessThanNothingIsNothing) {
  ExpectFit(-1, 0, -3);
  ExpectFit(kLeast, 0, -3);
}

TEST(PowerUnits, UnitsThatAreTooSmallGiveTheGreatestUsage) {
  EXPECT_EQ(UsageInUnits(65536, -3), 65535);
  EXPECT_EQ(UsageInUnits(kGreatest, -3), 65535);
}

TEST(PowerUnits, UnitsBeyondAllNumbersGiveNothing) {
  EXPECT_EQ(UsageInUnits(kGreatest, 15), 9);
  EXPECT_EQ(UsageInUnits(kGreatest, 16), 0);
  EXPECT_EQ(UsageInUnits(kGreatest, 127), 0);
}

TEST(PowerUnits, AnyUnitsBecomeMilliwatts) {
  EXPECT_EQ(ToMilliwatts(17, -1), 1700);
  EXPECT_EQ(ToMilliwatts(15, -4), 2);
  EXPECT_EQ(ToMilliwatts(-15, -4), -2);
  EXPECT_EQ(ToMilliwatts(14, -4), 1);
  EXPECT_EQ(ToMilliwatts(65535, -128), 0);
  EXPECT_EQ(ToMilliwatts(0, 127), 0);
  EXPECT_EQ(ToMilliwatts(65535, 6), 65'535'000'000'000);
  EXPECT_EQ(ToMilliwatts(1, 127), ToMilliwatts(65535, 100)) << "more than there is";
  EXPECT_EQ(ToMilliwatts(-1, 127), -ToMilliwatts(1, 127));
}

TEST(PowerUnits, SumsStayAtTheGreatestPower) {
  const std::int64_t most = ToMilliwatts(65535, 127);
  EXPECT_EQ(AddMilliwatts(1, 2), 3);
  EXPECT_EQ(AddMilliwatts(most, most), AddMilliwatts(AddMilliwatts(most, most), most));
  EXPECT_GE(AddMilliwatts(most, most), most);
  EXPECT_EQ(AddMilliwatts(-most, -most), -AddMilliwatts(most, most));
}

TEST(PowerUnits, CommonUnitsHoldTheGreatestOfAll) {
  const std::array<std::int64_t, 4> values = {5, 70000, -9, 300};
  EXPECT_EQ(CommonUnits(values), -2);
  EXPECT_EQ(CommonUnits({}), -3);
}

TEST(PowerUnits, EachPowerOfTenLosesLessThanAThousandth) {
  for (std::int64_t milliwatts = 1; milliwatts < kGreatest / 10; milliwatts = milliwatts * 10 + 7) {
    const PowerInUnits power = FitPower(milliwatts);
    double back = power.usage;
    for (int units = -3; units < power.units; ++units) back *= 10;
    EXPECT_NEAR(back, static_cast<double>(milliwatts), static_cast<double>(milliwatts) / 1000);
  }
}

}  // namespace
}  // namespace vt::testing
