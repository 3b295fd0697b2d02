#include "tools/check_judgement.h"

#include <gtest/gtest.h>

#include "tests/tool/node_answers.h"

namespace vt::tools {
namespace {

using Strings = std::vector<std::string>;

Row Lamp(const std::string& name, std::int64_t watts, std::optional<int> units = 0) {
  return {"device-" + name, 1, {name, Power{watts, units}}};
}

Judgement JudgeNodes(const std::vector<NodeAnswer>& nodes, const Strings& warnings = {},
                     const Strings& criticals = {}, const std::string& on_failure = "unknown") {
  return JudgeFacts(FactsOf(nodes), ParseCheckOptions(warnings, criticals, on_failure),
                    std::chrono::microseconds(12000));
}

std::string FirstLine(const Judgement& judgement) {
  return judgement.text.substr(0, judgement.text.find('\n'));
}

TEST(CheckJudgement, AllIsWellWithoutThresholds) {
  const Judgement judgement =
      JudgeNodes({AnswerOf(kFirstNode, {Lamp("a", 30), Lamp("b", 1005, -1)})});
  EXPECT_EQ(judgement.state, CheckState::kOk);
  EXPECT_EQ(judgement.text,
            "VOLTARIS OK - 130.5 W of 2 entities, 1 node | total=130.5W;;;0; largest=100.5W;;;0; "
            "smallest=30W;;;0; entities=2;;;0; unreachable=0;;;0;1 time=0.012s;;;0;\n"
            "largest: 100.5 W, b, device-b entity 1\n"
            "smallest: 30 W, a, device-a entity 1\n");
}

TEST(CheckJudgement, AWarningIsToldWithItsRange) {
  const Judgement judgement = JudgeNodes({AnswerOf(kFirstNode, {Lamp("a", 30)})}, {"20"}, {"40"});
  EXPECT_EQ(judgement.state, CheckState::kWarning);
  EXPECT_EQ(FirstLine(judgement).find("VOLTARIS WARNING - total 30 W (warning: 20) | total=30W;20;"
                                      "40;0; "),
            0u)
      << judgement.text;
}

TEST(CheckJudgement, TheWorstStateCounts) {
  const Judgement judgement = JudgeNodes({AnswerOf(kFirstNode, {Lamp("a", 30), Lamp("b", 90)})},
                                         {"largest=80"}, {"smallest=40:"});
  EXPECT_EQ(judgement.state, CheckState::kCritical);
  EXPECT_EQ(FirstLine(judgement).find(
                "VOLTARIS CRITICAL - largest 90 W of b, device-b entity 1 (warning: 80), smallest "
                "30 W of a, device-a entity 1 (critical: 40:) | "),
            0u)
      << judgement.text;
}

TEST(CheckJudgement, CriticalComesBeforeTheWarningOfTheSameNumber) {
  const Judgement judgement = JudgeNodes({AnswerOf(kFirstNode, {Lamp("a", 30)})}, {"10"}, {"20"});
  EXPECT_EQ(judgement.state, CheckState::kCritical);
  EXPECT_EQ(judgement.text.find("(warning"), std::string::npos);
}

TEST(CheckJudgement, EntitiesAreCounted) {
  const std::vector<NodeAnswer> nodes = {AnswerOf(kFirstNode, {Lamp("a", 30), Lamp("b", 90)})};
  EXPECT_EQ(JudgeNodes(nodes, {}, {"entities=2:"}).state, CheckState::kOk);
  EXPECT_EQ(JudgeNodes(nodes, {}, {"entities=3:"}).state, CheckState::kCritical);
}

TEST(CheckJudgement, ANodeThatCannotBeReachedMakesItUnknown) {
  const Judgement judgement =
      JudgeNodes({AnswerOf(kFirstNode, {Lamp("a", 30)}),
                  AnswerOf(kSecondNode, {}, Status::kUnreachable, "connection refused")},
                 {"20"}, {"40:"});
  EXPECT_EQ(judgement.state, CheckState::kUnknown);
  EXPECT_NE(judgement.text.find("total 30 W (critical: 40:)"), std::string::npos);
  // A part of the power is none that could be compared with that of before.
  EXPECT_NE(
      judgement.text.find("| total=U;20;40:;0; largest=U;;;0; smallest=U;;;0; entities=U;;;0; "
                          "unreachable=1;;;0;2 "),
      std::string::npos)
      << judgement.text;
  EXPECT_NE(judgement.text.find("\n127.0.0.1:2: unreachable: connection refused\n"),
            std::string::npos)
      << judgement.text;
}

// What more nodes would tell could only be more power, more entities, and a smaller smallest.
TEST(CheckJudgement, WhatIsCriticalWhateverTheRestWouldTellStaysCritical) {
  const std::vector<NodeAnswer> nodes = {
      AnswerOf(kFirstNode, {Lamp("a", 30), Lamp("b", 10)}),
      AnswerOf(kSecondNode, {}, Status::kUnreachable, "connection refused")};
  for (const char* certain : {"20", "@20:", "largest=20", "entities=1",
                              "smallest=20:", "smallest=@~:15", "unreachable=0"}) {
    EXPECT_EQ(JudgeNodes(nodes, {}, {certain}).state, CheckState::kCritical) << certain;
  }
  for (const char* open :
       {"50:", "@20:50", "largest=40:", "entities=3:", "smallest=5", "smallest=@5:15"}) {
    EXPECT_EQ(JudgeNodes(nodes, {}, {open}).state, CheckState::kUnknown) << open;
  }
}

TEST(CheckJudgement, AFailureIsWhatTheOptionSays) {
  const std::vector<NodeAnswer> nodes = {AnswerOf(kFirstNode, {Lamp("a", 30)}),
                                         AnswerOf(kSecondNode, {}, Status::kUnverified, "forged")};
  EXPECT_EQ(JudgeNodes(nodes).state, CheckState::kUnknown);
  EXPECT_EQ(JudgeNodes(nodes, {}, {}, "critical").state, CheckState::kCritical);
  EXPECT_EQ(JudgeNodes(nodes, {}, {}, "warning").state, CheckState::kWarning);
  const Judgement fine = JudgeNodes(nodes, {}, {}, "ok");
  EXPECT_EQ(fine.state, CheckState::kOk);
  EXPECT_EQ(
      fine.text.find("VOLTARIS OK - 30 W of 1 entity, 2 nodes, 1 node of 2 failed | total=30W"), 0u)
      << fine.text;
  EXPECT_EQ(JudgeNodes(nodes, {}, {"20"}, "ok").state, CheckState::kCritical);
}

TEST(CheckJudgement, UnreachableNodesAreJudgedByTheirRangeWhereThereIsOne) {
  const std::vector<NodeAnswer> nodes = {AnswerOf(kFirstNode, {Lamp("a", 30)}),
                                         AnswerOf(kSecondNode, {}, Status::kNoAnswer, "timed out")};
  EXPECT_EQ(JudgeNodes(nodes, {"unreachable=0"}, {"unreachable=1"}).state, CheckState::kWarning);
  EXPECT_EQ(JudgeNodes(nodes, {}, {"unreachable=1"}).state, CheckState::kOk);
}

TEST(CheckJudgement, APartOfAnAnswerIsAFailure) {
  const std::vector<NodeAnswer> nodes = {
      AnswerOf(kFirstNode, {Lamp("a", 30)}, Status::kPartial, "1 message of another key")};
  EXPECT_EQ(JudgeNodes(nodes, {}, {"unreachable=0"}).state, CheckState::kUnknown);
}

TEST(CheckJudgement, RefusalsBesideAnswersAreWell) {
  EXPECT_EQ(JudgeNodes({AnswerOf(kFirstNode, {Lamp("a", 30)}),
                        AnswerOf(kSecondNode, {}, Status::kRefused, "all 2 devices refused")})
                .state,
            CheckState::kOk);
  EXPECT_EQ(JudgeNodes({AnswerOf(kSecondNode, {}, Status::kRefused, "all refused")}).state,
            CheckState::kUnknown);
}

TEST(CheckJudgement, NoDeviceIsUnknownUnlessTheirNumberIsJudged) {
  const std::vector<NodeAnswer> nodes = {
      AnswerOf(kFirstNode, {}, Status::kNothingMatched, "no device was concerned")};
  EXPECT_EQ(JudgeNodes(nodes).state, CheckState::kUnknown);
  EXPECT_EQ(JudgeNodes(nodes, {}, {"entities=1:"}).state, CheckState::kCritical);
  // The total of nothing is none.
  EXPECT_EQ(JudgeNodes(nodes, {"10:"}, {"entities=0"}).state, CheckState::kOk);
}

TEST(CheckJudgement, PowerThatNobodyTellsCannotBeJudged) {
  const std::vector<NodeAnswer> nodes = {AnswerOf(kFirstNode, {Lamp("a", 30, std::nullopt)})};
  EXPECT_EQ(JudgeNodes(nodes, {}, {"20"}).state, CheckState::kUnknown);
  const Judgement judgement = JudgeNodes(nodes);
  EXPECT_EQ(judgement.state, CheckState::kOk);
  EXPECT_NE(judgement.text.find("\nwithout power in watts: 1 entity\n"), std::string::npos);
}

TEST(CheckJudgement, WhatTheNetworkSaysNeitherBreaksLinesNorSeparatesData) {
  const Judgement judgement =
      JudgeNodes({AnswerOf(kFirstNode, {Lamp("a|b\n\033[31m", 30)})}, {"largest=10"});
  EXPECT_NE(judgement.text.find("of a\\x7cb\\x0a\\x1b[31m, "), std::string::npos) << judgement.text;
  EXPECT_EQ(std::ranges::count(judgement.text, '|'), 1);
  EXPECT_EQ(std::ranges::count(judgement.text, '\n'), 3);
}

TEST(CheckJudgement, DetailsHaveAnEnd) {
  const std::vector<NodeAnswer> nodes(100,
                                      AnswerOf(kFirstNode, {}, Status::kUnreachable, "refused"));
  const Judgement judgement = JudgeNodes(nodes);
  EXPECT_EQ(std::ranges::count(judgement.text, '\n'), 22);
  EXPECT_NE(judgement.text.find("\nand 80 more nodes\n"), std::string::npos);
}

TEST(CheckJudgement, WhatCannotBeginIsOneLine) {
  EXPECT_EQ(UnknownText("no | file\n"), "VOLTARIS UNKNOWN - no \\x7c file\\x0a\n");
}

}  // namespace
}  // namespace vt::tools
