#include "tools/cell_text.h"

#include <gtest/gtest.h>

#include <clocale>

namespace vt::tools {
namespace {

// CellText knows characters by the locale.
class CellText : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }
  void TearDown() override { std::setlocale(LC_CTYPE, "C"); }
};

TEST_F(CellText, IsAsWideAsItLooks) {
  EXPECT_EQ(WidthOf("lamp"), 4u);
  EXPECT_EQ(WidthOf("lämp"), 4u);
  EXPECT_EQ(WidthOf("灯"), 2u);
  EXPECT_EQ(WidthOf("e\u0301"), 1u);
  EXPECT_EQ(WidthOf("\xff\xff"), 2u);
  EXPECT_EQ(WidthOf("\xe7"), 1u);
}

TEST_F(CellText, IsFilledUpOnTheOtherSide) {
  EXPECT_EQ(Fitted("a", 3), "a  ");
  EXPECT_EQ(Fitted("a", 3, Side::kRight), "  a");
  EXPECT_EQ(Fitted("lämp", 5), "lämp ");
}

TEST_F(CellText, IsCutWithAMark) {
  EXPECT_EQ(Fitted("lantern", 4), "lan~");
  EXPECT_EQ(Fitted("lä", 1), "~");
  EXPECT_EQ(Fitted("abc", 0), "");
  // Half of a wide character cannot be shown.
  EXPECT_EQ(Fitted("灯灯灯", 4), "灯~ ");
}

TEST_F(CellText, ShowsNothingThatSteersATerminal) {
  EXPECT_EQ(Shown("a\033[2Jb", Charset::kUnicode), "a\\x1b[2Jb");
  EXPECT_EQ(Shown("lä", Charset::kUnicode), "lä");
  EXPECT_EQ(Shown("lä", Charset::kAscii), "l\\xc3\\xa4");
}

TEST_F(CellText, BarsFillTheirPart) {
  EXPECT_EQ(Bar(0.5, 4, Charset::kAscii), "##  ");
  EXPECT_EQ(Bar(0, 4, Charset::kAscii), "    ");
  EXPECT_EQ(Bar(2, 4, Charset::kAscii), "####");
  EXPECT_EQ(Bar(-1, 2, Charset::kUnicode), "  ");
  EXPECT_EQ(Bar(0.5 + 1.0 / 16, 4, Charset::kUnicode), "██▎ ");
  EXPECT_EQ(Bar(0.5, 0, Charset::kUnicode), "");
}

TEST_F(CellText, SparksAreScaledToTheGreatest) {
  EXPECT_EQ(Sparks({0.0, 7.0, 3.0}, 3, Charset::kAscii), "_#-");
  EXPECT_EQ(Sparks({0.0, 7.0}, 2, Charset::kUnicode), "▁█");
}

TEST_F(CellText, SparksShowTheLastAndLeaveGapsForWhatIsMissing) {
  EXPECT_EQ(Sparks({5.0, std::nullopt, 5.0}, 5, Charset::kAscii), "  # #");
  EXPECT_EQ(Sparks({0.0, 0.0, 5.0}, 2, Charset::kAscii), "_#");
  EXPECT_EQ(Sparks({0.0, 0.0}, 2, Charset::kAscii), "__");
  EXPECT_EQ(Sparks({}, 2, Charset::kAscii), "  ");
}

}  // namespace
}  // namespace vt::tools
