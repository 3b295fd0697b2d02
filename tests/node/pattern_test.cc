#include "node/pattern.h"

#include <gtest/gtest.h>

namespace vt::testing {
namespace {

using node::Pattern;

std::string Written(const Pattern& pattern, std::uint32_t device, std::uint32_t entity) {
  std::string out = "what stood there before";
  pattern.Write(device, entity, out);
  return out;
}

TEST(Pattern, NumbersStandInTheirPlaces) {
  const struct {
    std::string pattern;
    std::string written;
  } cases[] = {
      {"lamp", "lamp"},
      {"lamp-{n}", "lamp-7"},
      {"{n}", "7"},
      {"{n:04}", "0007"},
      {"rack {n:02}/{e}", "rack 07/12"},
      {"{e:03}{n}{n}", "01277"},
      {"{n:0}", "7"},
      {"{n:1}", "7"},
      {"", ""},
  };
  for (const auto& c : cases) {
    const auto pattern = Pattern::Parse(c.pattern);
    ASSERT_TRUE(pattern) << c.pattern;
    EXPECT_EQ(Written(*pattern, 7, 12), c.written);
    EXPECT_EQ(pattern->text(), c.pattern);
  }
}

TEST(Pattern, NumbersWiderThanTheirPlaceAreWrittenWhole) {
  EXPECT_EQ(Written(*Pattern::Parse("{n:02}"), 4294967295u, 1), "4294967295");
}

TEST(Pattern, BracesThatAreNoPlaceAreRefused) {
  for (const char* text : {"{", "}", "{}", "{x}", "{n", "n}", "{n:}", "{n:x}", "{n:-1}", "{n:33}",
                           "{nn}", "{n:4 }", "a{n}}", "{{n}}", "{n:4294967297}"}) {
    EXPECT_FALSE(Pattern::Parse(text)) << text;
  }
}

TEST(Pattern, PlainTextsKeepTheirBraces) {
  const Pattern plain = Pattern::Plain("lamp {n}");
  EXPECT_EQ(Written(plain, 7, 1), "lamp {n}");
  EXPECT_FALSE(plain.HasDevice());
}

TEST(Pattern, ItTellsWhichPlacesItHas) {
  EXPECT_TRUE(Pattern::Parse("{n}")->HasDevice());
  EXPECT_FALSE(Pattern::Parse("{n}")->HasEntity());
  EXPECT_TRUE(Pattern::Parse("{e}")->HasEntity());
  EXPECT_FALSE(Pattern::Parse("{e}")->HasDevice());
}

TEST(Pattern, FillingMakesTheNumberTakeWhatIsLeft) {
  Pattern pattern = *Pattern::Parse("ab{n}c");
  ASSERT_TRUE(pattern.FillTo(8, 99999));
  EXPECT_EQ(Written(pattern, 1, 1), "ab00001c");
  EXPECT_EQ(Written(pattern, 99999, 1), "ab99999c");
  EXPECT_FALSE(Pattern::Parse("ab{n}c")->FillTo(8, 100000)) << "a digit too many";
  EXPECT_FALSE(Pattern::Parse("abcdefgh{n}")->FillTo(8, 1)) << "no room for a number";
  EXPECT_FALSE(Pattern::Parse("abcdefgh")->FillTo(8, 1)) << "no place for a number";
}

}  // namespace
}  // namespace vt::testing
