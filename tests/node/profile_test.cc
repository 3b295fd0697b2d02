#include "node/profile.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::kOne;
using node::Noise;
using node::Profile;
using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::int64_t kDay = 86400;
// 1970 began on a Thursday.
constexpr std::int64_t kSaturday = 2 * kDay;
constexpr std::int64_t kMonday = 4 * kDay;

constexpr std::int64_t Clock(int hour, int minute = 0) { return hour * 3600 + minute * 60; }

TEST(Profile, ConstantIsOneAtAnyTime) {
  const Profile profile;
  for (const std::int64_t time : {std::int64_t{-1}, std::int64_t{0}, std::int64_t{1} << 33}) {
    EXPECT_EQ(profile.FactorAt(At(time)), kOne);
  }
  EXPECT_EQ(profile.greatest(), kOne);
}

TEST(Profile, SineIsLowAtItsPhaseAndHighHalfAPeriodLater) {
  const Profile sine = Profile::Sine(seconds(1000), seconds(100), 200'000, 600'000);
  EXPECT_EQ(sine.FactorAt(At(100)), 200'000);
  EXPECT_EQ(sine.FactorAt(At(350)), 400'000);
  EXPECT_EQ(sine.FactorAt(At(600)), 600'000);
  EXPECT_EQ(sine.FactorAt(At(850)), 400'000);
  EXPECT_EQ(sine.FactorAt(At(1100)), 200'000);
  // A sixth of the way round: (1 - cos 60 degrees) / 2 is a quarter.
  EXPECT_EQ(Profile::Sine(seconds(600), seconds(0), 0, kOne).FactorAt(At(100)), 250'000);
  EXPECT_EQ(sine.FactorAt(At(-900)), 200'000) << "before 1970 too";
  EXPECT_EQ(sine.greatest(), 600'000);
}

TEST(Profile, OfficeDayHasItsCourseFromMondayToFriday) {
  const Profile day = Profile::OfficeDay(milliseconds(0), 0, kOne);
  const struct {
    std::int64_t time;
    std::int64_t factor;
  } cases[] = {
      {Clock(0), 0},
      {Clock(6), 0},
      {Clock(7, 30), 500'000},
      {Clock(9), kOne},
      {Clock(12), kOne},
      {Clock(12, 15), 875'000},
      {Clock(12, 30), 750'000},
      {Clock(13), kOne},
      {Clock(17), kOne},
      {Clock(18, 30), 500'000},
      {Clock(20), 0},
      {Clock(23, 59), 0},
  };
  for (int weekday = 0; weekday < 5; ++weekday) {
    for (const auto& c : cases) {
      EXPECT_EQ(day.FactorAt(At(kMonday + weekday * kDay + c.time)), c.factor)
          << weekday << " at " << c.time;
    }
  }
}

TEST(Profile, OfficeDayIsLowOnWeekends) {
  const Profile day = Profile::OfficeDay(milliseconds(0), 150'000, kOne);
  for (std::int64_t time = kSaturday; time < kMonday; time += 1800) {
    EXPECT_EQ(day.FactorAt(At(time)), 150'000) << time;
  }
  EXPECT_EQ(day.FactorAt(At(kMonday + Clock(9))), kOne);
  EXPECT_EQ(day.FactorAt(At(kMonday + 7 * kDay + Clock(7, 30))), 575'000) << "the week after";
}

TEST(Profile, OfficeDayGoesByClocksAheadOfUtc) {
  const Profile day = Profile::OfficeDay(hours(2), 0, kOne);
  EXPECT_EQ(day.FactorAt(At(kMonday + Clock(7))), kOne) << "nine o'clock there";
  EXPECT_EQ(day.FactorAt(At(kMonday + Clock(4))), 0);
  const Profile west = Profile::OfficeDay(-hours(3), 0, kOne);
  EXPECT_EQ(west.FactorAt(At(kMonday + Clock(12))), kOne);
  EXPECT_EQ(west.FactorAt(At(kMonday + Clock(9))), 0);
}

TEST(Profile, TablesGoStraightFromPointToPointAndAcrossTheEndOfThePeriod) {
  const Profile table =
      Profile::Table({{seconds(10), 100}, {seconds(20), 300}, {seconds(90), 1000}}, seconds(100));
  EXPECT_EQ(table.FactorAt(At(10)), 100);
  EXPECT_EQ(table.FactorAt(At(15)), 200);
  EXPECT_EQ(table.FactorAt(At(20)), 300);
  EXPECT_EQ(table.FactorAt(At(55)), 650);
  EXPECT_EQ(table.FactorAt(At(90)), 1000);
  EXPECT_EQ(table.FactorAt(At(100)), 550) << "half way to the first point of the next period";
  EXPECT_EQ(table.FactorAt(At(105)), 325);
  EXPECT_EQ(table.FactorAt(At(110)), 100);
  EXPECT_EQ(table.FactorAt(node::Instant(milliseconds(15'050))), 201) << "between seconds";
  EXPECT_EQ(table.greatest(), 1000);
}

TEST(Profile, ATableOfOnePointIsConstant) {
  const Profile table = Profile::Table({{seconds(5), 42}}, seconds(10));
  for (int time = 0; time < 20; ++time) EXPECT_EQ(table.FactorAt(At(time)), 42);
}

// --- files ---

TEST(ProfileRows, TimesAreSecondsOrClocks) {
  const auto points = node::ParseProfileRows(
      "# a comment\ntime,factor\n0,1\n\n30,0.5\r\n00:01,0\n00:01:30,2.25\n23:59:59,100",
      seconds(kDay));
  ASSERT_EQ(points.size(), 5u);
  const std::int64_t times[] = {0, 30, 60, 90, kDay - 1};
  const std::int64_t factors[] = {kOne, kOne / 2, 0, kOne * 9 / 4, kOne * 100};
  for (std::size_t i = 0; i < points.size(); ++i) {
    EXPECT_EQ(points[i].time, seconds(times[i]));
    EXPECT_EQ(points[i].factor, factors[i]);
  }
}

TEST(ProfileRows, MistakesAreToldWithLineAndColumn) {
  const struct {
    std::string text;
    std::uint32_t line;
    std::uint32_t column;
    std::string reason;
  } cases[] = {
      {"", 1, 1, "there is no row"},
      {"# nothing\n", 1, 1, "there is no row"},
      {"0,1\n5\n", 2, 1, "a time, a comma and a factor"},
      {"x,1\n", 1, 1, "a time is"},
      {"-1,1\n", 1, 1, "a time is"},
      {",1\n", 1, 1, "a time is"},
      {"1:60,1\n", 1, 1, "a time is"},
      {"1:00:60,1\n", 1, 1, "a time is"},
      {"1:2:3:4,1\n", 1, 1, "a time is"},
      {"99999999999999999999,1\n", 1, 1, "a time is"},
      {"0,1\n100,1\n", 2, 1, "within the period"},
      {"0,1\n\n0,1\n", 3, 1, "times must ascend"},
      {"0,\n", 1, 3, "a factor is"},
      {"10,-0.1\n", 1, 4, "a factor is"},
      {"10,100.1\n", 1, 4, "a factor is"},
      {"10,nan\n", 1, 4, "a factor is"},
      {"10,1,2\n", 1, 4, "a factor is"},
      {"0,1\ntime,factor\n", 2, 1, "a time is"},
  };
  for (const auto& c : cases) {
    try {
      (void)node::ParseProfileRows(c.text, seconds(100));
      ADD_FAILURE() << "accepted: " << c.text;
    } catch (const node::ProfileError& error) {
      EXPECT_EQ(error.line, c.line) << c.text;
      EXPECT_EQ(error.column, c.column) << c.text;
      EXPECT_NE(std::string(error.what()).find(c.reason), std::string::npos) << error.what();
    }
  }
}

// --- noise ---

Noise NoiseOf(std::int64_t amplitude, std::uint64_t seed) {
  Noise noise;
  noise.amplitude = amplitude;
  noise.seed = seed;
  return noise;
}

TEST(Noise, TheSameSeedGivesTheSameValues) {
  const Noise noise = NoiseOf(50'000, 7);
  const std::string id = DeviceId(1);
  // Written down once: they must not change with the machine, the compiler or a rewrite.
  EXPECT_EQ(noise.DeviationAt(At(0), id, 1), NoiseOf(50'000, 7).DeviationAt(At(59), id, 1));
  const std::int64_t known[] = {-2615, 40800, -11443, -17263};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(noise.DeviationAt(At(60 * i), id, 1), known[i]) << i;
  }
}

TEST(Noise, AnotherSeedDeviceEntityOrIntervalGivesOtherValues) {
  const Noise noise = NoiseOf(kOne, 7);
  const std::string id = DeviceId(1);
  const std::set<std::int64_t> values = {
      noise.DeviationAt(At(0), id, 1),          noise.DeviationAt(At(60), id, 1),
      noise.DeviationAt(At(-1), id, 1),         noise.DeviationAt(At(0), id, 2),
      noise.DeviationAt(At(0), DeviceId(2), 1), NoiseOf(kOne, 8).DeviationAt(At(0), id, 1),
  };
  EXPECT_EQ(values.size(), 6u);
}

TEST(Noise, ItStaysWithinItsAmplitudeAndFillsIt) {
  const Noise noise = NoiseOf(10, 1);
  std::set<std::int64_t> seen;
  std::int64_t sum = 0;
  constexpr int count = 4000;
  for (int i = 0; i < count; ++i) {
    const std::int64_t value = noise.DeviationAt(At(60 * i), DeviceId(1), 1);
    ASSERT_LE(std::abs(value), 10);
    seen.insert(value);
    sum += value;
  }
  EXPECT_EQ(seen.size(), 21u) << "every value from -10 to 10";
  EXPECT_LT(std::abs(sum), count) << "and no side of them more";
}

TEST(Noise, WithoutAmplitudeThereIsNone) {
  EXPECT_EQ(NoiseOf(0, 7).DeviationAt(At(0), DeviceId(1), 1), 0);
}

TEST(Scaled, RoundsToTheNearestAndDoesNotOverflow) {
  EXPECT_EQ(node::Scaled(3, kOne / 2), 2);
  EXPECT_EQ(node::Scaled(-3, kOne / 2), -2);
  EXPECT_EQ(node::Scaled(1'499'999, kOne), 1'499'999);
  EXPECT_EQ(node::Scaled(1'000'003, 333'333), 333'334);
  constexpr std::int64_t greatest = 65535'000'000'000;  // 65535 MW in milliwatts
  EXPECT_EQ(node::Scaled(greatest, 2 * node::kGreatestFactor), greatest * 200);
}

}  // namespace
}  // namespace vt::testing
