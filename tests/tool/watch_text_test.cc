#include "tools/watch_text.h"

#include <gtest/gtest.h>

#include <clocale>

#include "tests/tool/node_answers.h"
#include "tests/tool/watch_rows.h"

namespace vt::tools {
namespace {

class WatchTextOf : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }
  void TearDown() override { std::setlocale(LC_CTYPE, "C"); }

  void Take(const std::vector<NodeAnswer>& nodes) { model_.Take(nodes); }

  WatchModel model_;
};

TEST_F(WatchTextOf, ABlockHasSumsRowsAndAnEmptyLine) {
  Take({AnswerOf(kFirstNode, {WatchedRow{.device = "a", .watts = 1200}.Told(),
                              WatchedRow{.device = "b", .name = "", .watts = {}}.Told()})});
  Take({AnswerOf(kFirstNode, {WatchedRow{.device = "a", .watts = 1000}.Told(),
                              WatchedRow{.device = "b", .name = "", .watts = {}}.Told()})});
  EXPECT_EQ(WatchBlock(model_, {}),
            "round 2: consumers 1 kW (-200 W) of 2 entities; 1 node\n"
            "device  entity  name  level  usage  change\n"
            "a            1  lamp     10   1 kW  -200 W\n"
            "b            1  -        10      -       -\n"
            "\n");
}

TEST_F(WatchTextOf, NodesAreNamedWhereThereAreSeveral) {
  Take({AnswerOf(kFirstNode, {WatchedRow{}.Told()}),
        AnswerOf(kSecondNode, {}, Status::kUnreachable, "connection refused")});
  EXPECT_EQ(WatchBlock(model_, {}),
            "round 1: consumers 10 W (0 W) of 1 entity; 2 nodes, 1 failed\n"
            "127.0.0.1:2: unreachable: connection refused\n"
            "node         device    entity  name  level  usage  change\n"
            "127.0.0.1:1  device-1       1  lamp     10   10 W     0 W\n"
            "\n");
}

TEST_F(WatchTextOf, WhatIsAbsentIsNotToldAsBeingUsed) {
  Take({AnswerOf(kFirstNode, {WatchedRow{}.Told()})});
  Take({AnswerOf(kFirstNode, {}, Status::kNoAnswer, "timed out")});
  const std::string block = WatchBlock(model_, {});
  EXPECT_EQ(block.find("round 2: no entity answered; 1 absent; 1 node, 1 failed\n"), 0u) << block;
  EXPECT_NE(block.find("  absent  "), std::string::npos) << block;
}

TEST_F(WatchTextOf, NothingAtAllIsStillABlock) {
  Take({AnswerOf(kFirstNode, {}, Status::kNothingMatched, "no device was concerned")});
  EXPECT_EQ(WatchBlock(model_, {}),
            "round 1: no entity answered; 1 node, 1 failed\n"
            "127.0.0.1:1: nothing-matched: no device was concerned\n"
            "\n");
}

TEST_F(WatchTextOf, TheNetworkCannotSteerATerminal) {
  Take({AnswerOf(kFirstNode, {WatchedRow{.name = "a\033[2J\nb"}.Told()})});
  EXPECT_NE(WatchBlock(model_, {}).find("  a\\x1b[2J\\x0ab  "), std::string::npos);
}

TEST_F(WatchTextOf, TheOrderIsMarked) {
  Take({AnswerOf(kFirstNode, {WatchedRow{}.Told()})});
  const WatchOrder order{WatchColumn::kUsage, true};
  EXPECT_NE(WatchBlock(model_, order).find("  usagev  "), std::string::npos);
}

TEST_F(WatchTextOf, LinesOfAScreenAreAsWideAsIt) {
  Take({AnswerOf(kFirstNode, {WatchedRow{.device = std::string(32, 'd'), .name = "lämp"}.Told()})});
  for (const std::size_t width : {1u, 10u, 50u, 200u}) {
    const WatchTableStyle style{.graph = Graph::kBars, .shorten = true, .width = width};
    for (const std::string& line : WatchTable(model_.Rows({}, ""), false, style, 0, 9)) {
      EXPECT_EQ(WidthOf(line), width) << line;
    }
  }
}

TEST_F(WatchTextOf, BarsAreHeldAgainstTheGreatest) {
  Take({AnswerOf(kFirstNode, {WatchedRow{.device = "a", .watts = 10}.Told(),
                              WatchedRow{.device = "b", .watts = 20}.Told()})});
  const WatchTableStyle style{.charset = Charset::kAscii, .graph = Graph::kBars, .width = 54};
  const auto lines = WatchTable(model_.Rows({}, ""), false, style, 0, 9);
  EXPECT_TRUE(lines[1].ends_with("  #####     ")) << lines[1];
  EXPECT_TRUE(lines[2].ends_with("  ##########")) << lines[2];
}

TEST_F(WatchTextOf, SparksShowTheRounds) {
  for (const std::int64_t watts : {0, 20, 10}) {
    Take({AnswerOf(kFirstNode, {WatchedRow{.watts = watts}.Told()})});
  }
  const WatchTableStyle style{.charset = Charset::kAscii, .graph = Graph::kSparks, .width = 60};
  EXPECT_TRUE(WatchTable(model_.Rows({}, ""), false, style, 0, 9)[1].ends_with("  _#="));
}

TEST_F(WatchTextOf, OnlySomeRowsAreMade) {
  std::vector<Row> rows;
  for (int i = 0; i < 5; ++i) rows.push_back(WatchedRow{.device = std::to_string(i)}.Told());
  Take({AnswerOf(kFirstNode, rows)});
  const auto lines = WatchTable(model_.Rows({}, ""), false, {}, 3, 9);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1].front(), '3');
  EXPECT_EQ(WatchTable(model_.Rows({}, ""), false, {}, 9, 1).size(), 1u);
}

}  // namespace
}  // namespace vt::tools
