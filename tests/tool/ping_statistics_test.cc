#include "tools/ping_statistics.h"

#include <gtest/gtest.h>

namespace vt::tools {
namespace {

TEST(PingStatistics, AreAllZeroOfNothing) {
  const PingStatistics statistics;
  EXPECT_EQ(statistics.sent(), 0u);
  EXPECT_EQ(statistics.loss(), 0);
  EXPECT_EQ(statistics.min(), 0);
  EXPECT_EQ(statistics.avg(), 0);
  EXPECT_EQ(statistics.max(), 0);
  EXPECT_EQ(statistics.mdev(), 0);
}

TEST(PingStatistics, HaveTheStandardDeviation) {
  PingStatistics statistics;
  for (const double time : {2.0, 4.0, 4.0, 4.0, 5.0, 5.0, 7.0, 9.0}) statistics.AddAnswered(time);
  EXPECT_EQ(statistics.min(), 2);
  EXPECT_DOUBLE_EQ(statistics.avg(), 5);
  EXPECT_EQ(statistics.max(), 9);
  EXPECT_DOUBLE_EQ(statistics.mdev(), 2);
}

TEST(PingStatistics, LossCountsThoseThatWereSent) {
  PingStatistics statistics;
  statistics.AddAnswered(1);
  statistics.AddLost();
  statistics.AddLost();
  statistics.AddLost();
  EXPECT_EQ(statistics.sent(), 4u);
  EXPECT_EQ(statistics.answered(), 1u);
  EXPECT_DOUBLE_EQ(statistics.loss(), 75);
  EXPECT_EQ(statistics.mdev(), 0);
}

TEST(PingStatistics, EqualTimesOfAnySizeDeviateByNothing) {
  PingStatistics statistics;
  for (int i = 0; i < 1000; ++i) statistics.AddAnswered(1e9 + 0.125);
  EXPECT_EQ(statistics.mdev(), 0);
}

}  // namespace
}  // namespace vt::tools
