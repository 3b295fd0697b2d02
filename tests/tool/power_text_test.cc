#include "tools/power_text.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace vt::tools {
namespace {

TEST(WattsText, IsExactAndHasNoUselessZeros) {
  EXPECT_EQ(WattsText(0, -3), "0");
  EXPECT_EQ(WattsText(60, -1), "6");
  EXPECT_EQ(WattsText(3120, -3), "3.12");
  EXPECT_EQ(WattsText(5, -3), "0.005");
  EXPECT_EQ(WattsText(7, 3), "7000");
  EXPECT_EQ(WattsText(-36, -1), "-3.6");
  EXPECT_EQ(WattsText(1, 127), "1e127");
}

TEST(HandyText, HasTheUnitThatKeepsItsNumberShort) {
  EXPECT_EQ(HandyText(7, 3), "7 kW");
  EXPECT_EQ(HandyText(7014, 0), "7.014 kW");
  EXPECT_EQ(HandyText(999, 0), "999 W");
  EXPECT_EQ(HandyText(1000, 0), "1 kW");
  EXPECT_EQ(HandyText(520, -3), "520 mW");
  EXPECT_EQ(HandyText(5, -6), "0.005 mW");
  EXPECT_EQ(HandyText(-3600, -3), "-3.6 W");
  EXPECT_EQ(HandyText(13106, 4), "131.06 MW");
  EXPECT_EQ(HandyText(1, 12), "1000 GW");
  EXPECT_EQ(HandyText(0, 6), "0 W");
}

TEST(HandyText, WithoutUnitsIsNoWatts) { EXPECT_EQ(HandyText(500, std::nullopt), "500?"); }

TEST(HandyText, OfSeveralNumbersHasOneUnit) {
  constexpr std::array<std::int64_t, 3> levels = {0, 500, 1500};
  EXPECT_EQ(HandyText(levels, 0), "0 0.5 1.5 kW");
  EXPECT_EQ(HandyText(levels, std::nullopt), "0 500 1500?");
}

TEST(HandyText, TakesEveryNumberThatCanTravel) {
  EXPECT_EQ(HandyText(std::numeric_limits<std::int32_t>::min(), 127), "-2147483648e118 GW");
  EXPECT_EQ(HandyText(65535, -128), "65535e-125 mW");
}

}  // namespace
}  // namespace vt::tools
