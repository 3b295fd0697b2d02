#include "tools/ping_report.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/tool/node_answers.h"

namespace vt::tools {
namespace {

using std::chrono::microseconds;

const Target kTarget = TargetAt(7440);

PingedNode Node() {
  PingedNode node;
  node.target = &kTarget;
  return node;
}

PingResult Answered() {
  PingResult result;
  result.times = {microseconds(100), microseconds(20), microseconds(300), microseconds(5)};
  result.verdict = {Status::kOk, ""};
  return result;
}

TEST(PingReport, ALineTellsTheWholeAndEachPhase) {
  EXPECT_EQ(PingLine(Node(), 2, Answered()),
            "127.0.0.1:7440: 2: 0.425 ms (connect 0.100, send 0.020, first byte 0.300, verify "
            "0.005)\n");
}

TEST(PingReport, TheNameIsToldWithTheFirstAlone) {
  PingedNode node = Node();
  node.name_time = microseconds(1500);
  EXPECT_NE(PingLine(node, 1, Answered()).find("(name 1.500, connect"), std::string::npos);
  EXPECT_EQ(PingLine(node, 2, Answered()).find("name"), std::string::npos);
}

TEST(PingReport, ALostOneTellsHowFarItCame) {
  PingResult result;
  result.times.connect = microseconds(100);
  result.verdict = {Status::kNoAnswer, "timed out"};
  EXPECT_EQ(PingLine(Node(), 1, result),
            "127.0.0.1:7440: 1: no-answer: timed out (connect 0.100)\n");
  result.times = {};
  EXPECT_EQ(PingLine(Node(), 1, result), "127.0.0.1:7440: 1: no-answer: timed out\n");
}

TEST(PingReport, StatisticsHaveNoTimesWhenAllWereLost) {
  PingedNode node = Node();
  node.statistics.AddLost();
  EXPECT_EQ(StatisticsText({node}), "127.0.0.1:7440: 1 sent, 0 answered, 100% loss\n");
  node.statistics.AddAnswered(1.5);
  EXPECT_EQ(StatisticsText({node}),
            "127.0.0.1:7440: 2 sent, 1 answered, 50% loss; min/avg/max/mdev "
            "1.500/1.500/1.500/0.000 ms\n");
}

TEST(PingReport, ANodeThatAnsweredSometimesIsPartial) {
  PingedNode node = Node();
  node.last = {Status::kNoAnswer, "timed out"};
  node.statistics.AddLost();
  EXPECT_EQ(StatusOf(node), Status::kNoAnswer);
  node.statistics.AddAnswered(1);
  EXPECT_EQ(StatusOf(node), Status::kPartial);
}

TEST(PingReport, TheDocumentHasNullsForWhatWasNotReached) {
  PingedNode node = Node();
  node.last = {Status::kNoAnswer, "timed out"};
  node.statistics.AddLost();
  PingResult result;
  result.times.connect = microseconds(100);
  result.verdict = node.last;
  node.results.push_back(result);
  const nlohmann::json document = nlohmann::json::parse(PingJson({node}, 4, 0));
  const nlohmann::json& told = document["nodes"][0];
  EXPECT_EQ(document["exit_code"], 4);
  EXPECT_TRUE(document["signal"].is_null());
  EXPECT_EQ(told["pings"][0]["connect_ms"], 0.1);
  EXPECT_TRUE(told["pings"][0]["total_ms"].is_null());
  EXPECT_TRUE(told["avg_ms"].is_null());
  EXPECT_EQ(told["loss_percent"], 100);
}

}  // namespace
}  // namespace vt::tools
