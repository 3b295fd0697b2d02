#include "tools/printable.h"

#include <gtest/gtest.h>

namespace vt::tools {
namespace {

TEST(Printable, TextStaysAsItIsInEveryScript) {
  EXPECT_EQ(Printable("lamp 1 \\ \"x\""), "lamp 1 \\ \"x\"");
  EXPECT_EQ(Printable("K\xC3\xBC"
                      "che \xE5\xB0\x8F \xF0\x9F\x92\xA1"),
            "K\xC3\xBC"
            "che \xE5\xB0\x8F \xF0\x9F\x92\xA1");
}

TEST(Printable, ControlCharactersAreEscapedByteByByte) {
  EXPECT_EQ(Printable("a\x1b[31m\r\n\t\x7f"), "a\\x1b[31m\\x0d\\x0a\\x09\\x7f");
  EXPECT_EQ(Printable(std::string_view("\0", 1)), "\\x00");
  EXPECT_EQ(Printable("\xC2\x9B"), "\\xc2\\x9b") << "the control sequence introducer of eight bits";
}

TEST(Printable, CharactersThatTurnAroundWhatFollowsAreEscaped) {
  EXPECT_EQ(Printable("\xE2\x80\xAE"), "\\xe2\\x80\\xae");
  EXPECT_EQ(Printable("\xE2\x81\xA6"), "\\xe2\\x81\\xa6");
  EXPECT_EQ(Printable("\xE2\x80\xA8"), "\\xe2\\x80\\xa8") << "a line separator";
}

TEST(Printable, BytesThatAreNoUtf8AreEscaped) {
  EXPECT_EQ(Printable("l\xFFm"), "l\\xffm");
  EXPECT_EQ(Printable("\xC3"), "\\xc3") << "cut off";
  EXPECT_EQ(Printable("\xC0\x9B"), "\\xc0\\x9b") << "longer than it need be";
  EXPECT_EQ(Printable("\xE0\x80\x9B"), "\\xe0\\x80\\x9b");
  EXPECT_EQ(Printable("\xED\xA0\x80"), "\\xed\\xa0\\x80") << "a surrogate";
  EXPECT_EQ(Printable("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond the last character";
}

}  // namespace
}  // namespace vt::tools
