#include "node/host/energy_counter.h"

#include <gtest/gtest.h>

#include <limits>

namespace vt::testing {
namespace {

using node::EnergyCounter;

constexpr std::int64_t kGreatest = std::numeric_limits<std::int64_t>::max();

EnergyCounter::Time At(std::int64_t milliseconds) {
  return EnergyCounter::Time(std::chrono::milliseconds(milliseconds));
}

TEST(EnergyCounter, PowerIsTheGrowthByTheTimeBetween) {
  EnergyCounter counter(1000000000);
  EXPECT_EQ(counter.Advance(5000000, At(0)), std::nullopt) << "the first reading";
  EXPECT_EQ(counter.Advance(25000000, At(2000)), 10000.0);
  EXPECT_EQ(counter.Advance(25000000, At(3000)), 0.0) << "nothing was used";
  EXPECT_EQ(counter.Advance(25500000, At(3500)), 1000.0)
      << "since the reading before, not the first";
}

TEST(EnergyCounter, AWrapAroundGoesThroughTheEndOfTheRange) {
  EnergyCounter counter(100000000);
  EXPECT_EQ(counter.Advance(98000000, At(0)), std::nullopt);
  EXPECT_EQ(counter.Advance(1000000, At(1000)), 3000.0);
  EXPECT_EQ(counter.Advance(3000000, At(2000)), 2000.0);
}

TEST(EnergyCounter, AWrapAroundOfHalfTheRangeCountsAndMoreDoesNot) {
  EnergyCounter half(100000000);
  (void)half.Advance(60000000, At(0));
  EXPECT_EQ(half.Advance(10000000, At(1000)), 50000.0);
  EnergyCounter more(100000000);
  (void)more.Advance(60000000, At(0));
  EXPECT_EQ(more.Advance(10000001, At(1000)), std::nullopt);
}

TEST(EnergyCounter, OneThatIsSetBackBeginsAnew) {
  EnergyCounter counter(262143328850);
  (void)counter.Advance(1000000000, At(0));
  EXPECT_EQ(counter.Advance(999000000, At(1000)), std::nullopt);
  EXPECT_EQ(counter.Advance(1004000000, At(2000)), 5000.0);
}

TEST(EnergyCounter, WithoutARangeNoStepBackIsAWrapAround) {
  EnergyCounter counter;
  (void)counter.Advance(100, At(0));
  EXPECT_EQ(counter.Advance(99, At(1000)), std::nullopt);
  EXPECT_EQ(counter.Advance(1099, At(2000)), 1.0);
}

TEST(EnergyCounter, AValueBeyondTheRangeIsNoBeginningOfAWrapAround) {
  EnergyCounter counter(1000);
  (void)counter.Advance(2000, At(0));
  EXPECT_EQ(counter.Advance(10, At(1000)), std::nullopt);
}

TEST(EnergyCounter, ReadingsShortlyAfterEachOtherRepeatTheResult) {
  EnergyCounter counter(1000000000);
  EXPECT_EQ(counter.Advance(0, At(0)), std::nullopt);
  EXPECT_EQ(counter.Advance(9000000, At(0)), std::nullopt) << "no time has passed";
  EXPECT_EQ(counter.Advance(9000000, At(49)), std::nullopt);
  EXPECT_EQ(counter.Advance(50000, At(50)), 1000.0) << "since the first reading";
  EXPECT_EQ(counter.Advance(9000000, At(60)), 1000.0);
  EXPECT_EQ(counter.Advance(150000, At(150)), 1000.0);
}

TEST(EnergyCounter, TheGreatestNumbersDoNotOverflow) {
  EnergyCounter counter(kGreatest);
  (void)counter.Advance(0, At(0));
  const std::optional<double> milliwatts = counter.Advance(kGreatest, At(50));
  ASSERT_TRUE(milliwatts.has_value());
  EXPECT_GT(*milliwatts, 1e17);
  EXPECT_EQ(counter.Advance(0, At(1050)), 0.0) << "a wrap-around from the last value to the first";
}

TEST(EnergyCounter, WhatIsForgottenIsTheFirstReadingAgain) {
  EnergyCounter counter(1000000);
  (void)counter.Advance(0, At(0));
  (void)counter.Advance(1000, At(1000));
  counter.Forget();
  EXPECT_EQ(counter.Advance(2000, At(1010)), std::nullopt);
  EXPECT_EQ(counter.Advance(4000, At(3010)), 1.0);
}

}  // namespace
}  // namespace vt::testing
