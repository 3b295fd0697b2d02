#include "tools/watts_text.h"

#include <gtest/gtest.h>

#include <limits>

namespace vt::tools {
namespace {

TEST(WattsText, PlainNumbersHaveNoZerosAtTheirEnd) {
  EXPECT_EQ(PlainWatts(0), "0");
  EXPECT_EQ(PlainWatts(130), "130");
  EXPECT_EQ(PlainWatts(0.1 + 0.2), "0.3");
  EXPECT_EQ(PlainWatts(-1.25), "-1.25");
  EXPECT_EQ(PlainWatts(6.5535e16), "65535000000000000");
  EXPECT_EQ(PlainWatts(-0.0000001), "0");
}

TEST(WattsText, RoundedPowerHasAUnitThatKeepsItShort) {
  EXPECT_EQ(RoundWatts(0), "0 W");
  EXPECT_EQ(RoundWatts(0.0305), "30.5 mW");
  EXPECT_EQ(RoundWatts(7014), "7.014 kW");
  EXPECT_EQ(RoundWatts(1234.5678), "1.235 kW");
  EXPECT_EQ(RoundWatts(999.9999), "1 kW");
  EXPECT_EQ(RoundWatts(-2e6), "-2 MW");
  EXPECT_EQ(RoundWatts(5e12), "5000 GW");
}

TEST(WattsText, AChangeHasASign) {
  EXPECT_EQ(RoundChange(20), "+20 W");
  EXPECT_EQ(RoundChange(-20), "-20 W");
  EXPECT_EQ(RoundChange(0), "0 W");
  EXPECT_EQ(RoundChange(-1e-9), "0 W");
  EXPECT_EQ(RoundChange(1e-9), "0 W");
}

TEST(WattsText, PowerBeyondAllReasonIsStillANumber) {
  EXPECT_EQ(PlainWatts(std::numeric_limits<double>::max()).size(), 309u);
  EXPECT_NE(RoundWatts(65535e127), "");
}

}  // namespace
}  // namespace vt::tools
