#include "tools/alert_range.h"

#include <gtest/gtest.h>

namespace vt::tools {
namespace {

// IsAlert parses a range that is known to be one.
bool IsAlert(const char* range, double value) { return AlertRange::Parse(range)->IsAlert(value); }

TEST(AlertRange, ANumberAloneIsTheEndOfARangeFromZero) {
  EXPECT_FALSE(IsAlert("20", 0));
  EXPECT_FALSE(IsAlert("20", 20));
  EXPECT_TRUE(IsAlert("20", 20.001));
  EXPECT_TRUE(IsAlert("20", -0.001));
}

TEST(AlertRange, ARangeWithoutAnEndGoesOn) {
  EXPECT_TRUE(IsAlert("10:", 9.9));
  EXPECT_FALSE(IsAlert("10:", 10));
  EXPECT_FALSE(IsAlert("10:", 1e300));
}

TEST(AlertRange, ATildeIsNoStart) {
  EXPECT_FALSE(IsAlert("~:5", -1e300));
  EXPECT_FALSE(IsAlert("~:5", 5));
  EXPECT_TRUE(IsAlert("~:5", 5.1));
}

TEST(AlertRange, WithBothEndsItIsOutsideOfThem) {
  EXPECT_TRUE(IsAlert("10:20", 9));
  EXPECT_FALSE(IsAlert("10:20", 10));
  EXPECT_FALSE(IsAlert("10:20", 20));
  EXPECT_TRUE(IsAlert("10:20", 21));
}

TEST(AlertRange, AnAtSignTurnsItAround) {
  EXPECT_FALSE(IsAlert("@10:20", 9));
  EXPECT_TRUE(IsAlert("@10:20", 10));
  EXPECT_TRUE(IsAlert("@10:20", 20));
  EXPECT_FALSE(IsAlert("@10:20", 21));
  EXPECT_TRUE(IsAlert("@0", 0));
}

TEST(AlertRange, HasFractionsAndNumbersBelowZero) {
  EXPECT_TRUE(IsAlert("-1.5:0.5", 0.6));
  EXPECT_FALSE(IsAlert("-1.5:0.5", -1.5));
}

TEST(AlertRange, KeepsItsText) { EXPECT_EQ(AlertRange::Parse("@1:2")->text(), "@1:2"); }

TEST(AlertRange, WhatIsNoneIsRefused) {
  for (const char* text : {"", ":", "@", "a", "10:a", ":5", "20:10", "1:2:3", "inf", "nan", "1e3",
                           " 1", "1 ", "5:~", "@@1", "--1", "1.2.3", "0x10"}) {
    EXPECT_FALSE(AlertRange::Parse(text)) << text;
  }
}

}  // namespace
}  // namespace vt::tools
