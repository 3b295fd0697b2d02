#include "tools/watch_view.h"

#include <gtest/gtest.h>

#include <clocale>

#include "tests/tool/node_answers.h"
#include "tests/tool/watch_rows.h"

namespace vt::tools {
namespace {

using Kind = KeyPress::Kind;

class View : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }
  void TearDown() override { std::setlocale(LC_CTYPE, "C"); }

  // TakeLamps is a round with so many of them, with 1, 2, .. watts.
  void TakeLamps(int count) {
    std::vector<Row> rows;
    for (int i = 1; i <= count; ++i) {
      const std::string number = std::to_string(100 + i);
      rows.push_back(
          WatchedRow{.device = "d" + number, .name = "lamp-" + number, .watts = i}.Told());
    }
    const std::vector<NodeAnswer> nodes = {AnswerOf(kFirstNode, rows)};
    model_.Take(nodes);
  }

  bool Press(Kind kind) { return view_.Press({kind, ""}); }
  bool Type(const std::string& text) {
    bool goes_on = true;
    for (const char letter : text) goes_on = view_.Press({Kind::kText, {letter}});
    return goes_on;
  }

  std::vector<ScreenLine> Lines(std::size_t height = 10) {
    return view_.Lines(model_, "note", 80, height);
  }

  // Lamps are the numbers of those on the screen.
  std::string Lamps(std::size_t height = 10) {
    std::string numbers;
    for (const ScreenLine& line : Lines(height)) {
      const std::size_t at = line.text.find("lamp-");
      if (at == std::string::npos || line.text.starts_with("filter")) continue;
      numbers += (numbers.empty() ? "" : " ") + line.text.substr(at + 5, 3);
    }
    return numbers;
  }

  std::string LastLine() { return Lines().back().text; }

  WatchModel model_;
  WatchView view_{{}, Charset::kUnicode};
};

TEST_F(View, FillsTheScreenWhateverItsSize) {
  TakeLamps(3);
  for (const std::size_t height : {1u, 2u, 3u, 5u, 24u, 100u}) {
    for (const std::size_t width : {1u, 20u, 80u, 300u}) {
      const auto lines = view_.Lines(model_, "note", width, height);
      EXPECT_EQ(lines.size(), height);
      for (const ScreenLine& line : lines) EXPECT_EQ(WidthOf(line.text), width);
    }
  }
}

TEST_F(View, HasATitleSumsNodesAHeadingAndHelp) {
  TakeLamps(1);
  const auto lines = Lines();
  EXPECT_EQ(lines[0].text.find("voltaris watch  round 1  note "), 0u);
  EXPECT_EQ(lines[0].style, LineStyle::kTitle);
  EXPECT_EQ(lines[1].text.find("consumers 1 W (0 W) of 1 entity "), 0u);
  EXPECT_EQ(lines[2].text.find("1 node "), 0u);
  EXPECT_EQ(lines[3].style, LineStyle::kHeading);
  EXPECT_EQ(lines[4].text.find("d101 "), 0u);
  EXPECT_EQ(lines[9].text.find("q quit"), 0u);
}

TEST_F(View, HasSomethingToShowBeforeTheFirstRound) {
  EXPECT_EQ(Lines()[1].text.find("no round yet"), 0u);
}

TEST_F(View, NodesThatFailedStandOut) {
  const std::vector<NodeAnswer> nodes = {
      AnswerOf(kFirstNode, {WatchedRow{}.Told()}),
      AnswerOf(kSecondNode, {}, Status::kUnreachable, "connection refused")};
  model_.Take(nodes);
  EXPECT_EQ(Lines()[2].text.find("2 nodes, 1 failed; 127.0.0.1:2: unreachable: connection refused"),
            0u);
  EXPECT_EQ(Lines()[2].style, LineStyle::kAlarm);
}

TEST_F(View, EndsByQAlone) {
  EXPECT_FALSE(Type("q"));
  EXPECT_FALSE(Type("Q"));
  EXPECT_TRUE(Type("x"));
  EXPECT_TRUE(Press(Kind::kEscape));
  EXPECT_TRUE(Press(Kind::kRedraw));
}

TEST_F(View, SortsByAKeyAndTurnsAroundByTheSame) {
  TakeLamps(3);
  EXPECT_EQ(Lamps(), "101 102 103");
  Type("u");
  EXPECT_EQ(Lamps(), "103 102 101");
  Type("u");
  EXPECT_EQ(Lamps(), "101 102 103");
  Type("n");
  EXPECT_EQ(view_.order(), (WatchOrder{WatchColumn::kName, false}));
  Type("l");
  EXPECT_EQ(view_.order(), (WatchOrder{WatchColumn::kLevel, true}));
  Type("c");
  EXPECT_EQ(view_.order(), (WatchOrder{WatchColumn::kChange, true}));
  Type("d");
  EXPECT_EQ(view_.order(), WatchOrder());
}

TEST_F(View, TypesAFilterInWhichKeysAreLetters) {
  TakeLamps(3);
  Type("/lamp-102q");
  EXPECT_EQ(view_.filter(), "lamp-102q");
  EXPECT_EQ(LastLine().find("filter: lamp-102q_"), 0u);
  Press(Kind::kBackspace);
  EXPECT_EQ(Lamps(), "102");
  Press(Kind::kEnter);
  EXPECT_EQ(LastLine().find("filter: lamp-102   Esc removes it"), 0u);
  EXPECT_TRUE(Type("u"));
  EXPECT_EQ(view_.filter(), "lamp-102");
  Press(Kind::kEscape);
  EXPECT_EQ(view_.filter(), "");
  EXPECT_FALSE(Type("q"));
}

TEST_F(View, EscapeEndsTheTypingAndTheFilter) {
  Type("/abc");
  Press(Kind::kEscape);
  EXPECT_EQ(view_.filter(), "");
  EXPECT_EQ(LastLine().find("q quit"), 0u);
}

TEST_F(View, BackspaceTakesAWholeCharacter) {
  Type("/");
  view_.Press({Kind::kText, "ä"});
  Press(Kind::kBackspace);
  EXPECT_EQ(view_.filter(), "");
  Press(Kind::kBackspace);
  EXPECT_EQ(view_.filter(), "");
}

TEST_F(View, AFilterHasALength) {
  Type("/" + std::string(1000, 'x'));
  EXPECT_EQ(view_.filter().size(), 64u);
}

TEST_F(View, ScrollsNoFurtherThanThereAreRows) {
  TakeLamps(10);
  EXPECT_EQ(Lamps(8), "101 102 103");
  Press(Kind::kUp);
  EXPECT_EQ(Lamps(8), "101 102 103");
  Press(Kind::kDown);
  EXPECT_EQ(Lamps(8), "102 103 104");
  Press(Kind::kPageDown);
  EXPECT_EQ(Lamps(8), "105 106 107");
  Press(Kind::kEnd);
  EXPECT_EQ(Lamps(8), "108 109 110");
  Press(Kind::kDown);
  EXPECT_EQ(Lamps(8), "108 109 110");
  Press(Kind::kPageUp);
  EXPECT_EQ(Lamps(8), "105 106 107");
  Press(Kind::kHome);
  EXPECT_EQ(Lamps(8), "101 102 103");
}

TEST_F(View, ALargerScreenScrollsBack) {
  TakeLamps(10);
  Lines(8);
  Press(Kind::kEnd);
  EXPECT_EQ(Lamps(8), "108 109 110");
  EXPECT_EQ(Lamps(10), "106 107 108 109 110");
  EXPECT_EQ(view_.first(), 5u);
}

TEST_F(View, FewerRowsScrollBack) {
  TakeLamps(10);
  Lines(8);
  Press(Kind::kEnd);
  Type("/105");
  EXPECT_EQ(Lamps(8), "105");
}

TEST_F(View, AbsentRowsAreFaint) {
  TakeLamps(2);
  TakeLamps(1);
  EXPECT_EQ(Lines()[4].style, LineStyle::kPlain);
  EXPECT_EQ(Lines()[5].style, LineStyle::kFaint);
}

TEST_F(View, ChangesBetweenSparksAndBars) {
  TakeLamps(1);
  TakeLamps(1);
  EXPECT_TRUE(Lines()[4].text.ends_with(" ██")) << Lines()[4].text;
  Type("b");
  EXPECT_TRUE(Lines()[4].text.ends_with("██████████")) << Lines()[4].text;
  Type("b");
  EXPECT_TRUE(Lines()[4].text.ends_with(" ██")) << Lines()[4].text;
}

}  // namespace
}  // namespace vt::tools
