#include "tools/watch_model.h"

#include <gtest/gtest.h>

#include "tests/tool/node_answers.h"
#include "tests/tool/watch_rows.h"

namespace vt::tools {
namespace {

using Strings = std::vector<std::string>;

// TakeRows is a round of one node that answered.
void TakeRows(WatchModel& model, const std::vector<WatchedRow>& rows) {
  std::vector<Row> told;
  for (const WatchedRow& row : rows) told.push_back(row.Told());
  const std::vector<NodeAnswer> nodes = {AnswerOf(kFirstNode, told)};
  model.Take(nodes);
}

Strings Names(const WatchModel& model, const WatchOrder& order = {},
              const std::string& filter = "") {
  Strings names;
  for (const WatchRow* row : model.Rows(order, filter)) names.push_back(row->name);
  return names;
}

const WatchRow& OnlyRow(const WatchModel& model) { return *model.Rows({}, "").at(0); }

TEST(WatchModel, BeginsEmpty) {
  const WatchModel model;
  EXPECT_EQ(model.rounds(), 0u);
  EXPECT_TRUE(model.Rows({}, "").empty());
  EXPECT_EQ(model.Sum(WatchGroup::kConsumers).entities, 0u);
}

TEST(WatchModel, ChangesAreSinceTheFirstRound) {
  WatchModel model;
  for (const std::int64_t watts : {10, 30, 25}) TakeRows(model, {{.watts = watts}});
  EXPECT_EQ(model.rounds(), 3u);
  EXPECT_EQ(OnlyRow(model).watts, 25);
  EXPECT_EQ(OnlyRow(model).change(), 15);
  EXPECT_EQ(OnlyRow(model).history, (std::deque<std::optional<double>>{10, 30, 25}));
  EXPECT_EQ(model.Sum(WatchGroup::kConsumers).watts, 25);
  EXPECT_EQ(model.Sum(WatchGroup::kConsumers).change, 15);
}

TEST(WatchModel, WhatIsUsedAndWhatIsProducedAreSummedUpApart) {
  WatchModel model;
  TakeRows(model, {{.device = "a", .watts = 10},
                   {.device = "b", .watts = 20},
                   {.device = "c", .watts = 300, .category = "producer"},
                   {.device = "d", .watts = 30, .category = "meter"},
                   {.device = "e", .watts = 5, .category = "99"}});
  EXPECT_EQ(model.Sum(WatchGroup::kConsumers).watts, 35);
  EXPECT_EQ(model.Sum(WatchGroup::kConsumers).entities, 3u);
  EXPECT_EQ(model.Sum(WatchGroup::kProducers).watts, 300);
  EXPECT_EQ(model.Sum(WatchGroup::kMeters).watts, 30);
}

TEST(WatchModel, AnEntityThatTellsNothingLeavesAGap) {
  WatchModel model;
  TakeRows(model, {{.watts = 10}});
  TakeRows(model, {{.watts = std::nullopt}});
  TakeRows(model, {{.watts = 20}});
  EXPECT_EQ(OnlyRow(model).history, (std::deque<std::optional<double>>{10, std::nullopt, 20}));
  EXPECT_EQ(OnlyRow(model).change(), 10);
}

TEST(WatchModel, ANodeThatFailsKeepsItsRowsAsAbsent) {
  WatchModel model;
  TakeRows(model, {{.watts = 10}});
  const std::vector<NodeAnswer> failed = {
      AnswerOf(kFirstNode, {}, Status::kUnreachable, "connection refused")};
  model.Take(failed);
  EXPECT_EQ(model.failures(), Strings{"127.0.0.1:1: unreachable: connection refused"});
  EXPECT_EQ(OnlyRow(model).absent, 1u);
  EXPECT_EQ(model.absent(), 1u);
  EXPECT_EQ(model.Sum(WatchGroup::kConsumers).entities, 0u);
  TakeRows(model, {{.watts = 40}});
  EXPECT_EQ(OnlyRow(model).absent, 0u);
  EXPECT_EQ(OnlyRow(model).change(), 30);
  EXPECT_TRUE(model.failures().empty());
}

TEST(WatchModel, WhatIsGoneForLongIsForgotten) {
  WatchModel model;
  TakeRows(model, {{}});
  for (std::size_t i = 1; i < WatchModel::kLongestHistory; ++i) TakeRows(model, {});
  EXPECT_EQ(model.Rows({}, "").size(), 1u);
  TakeRows(model, {});
  EXPECT_TRUE(model.Rows({}, "").empty());
  EXPECT_EQ(model.absent(), 0u);
}

TEST(WatchModel, HistoriesHaveALength) {
  WatchModel model;
  for (std::int64_t i = 0; i < 200; ++i) TakeRows(model, {{.watts = i}});
  EXPECT_EQ(OnlyRow(model).history.size(), WatchModel::kLongestHistory);
  EXPECT_EQ(OnlyRow(model).history.back(), 199);
  EXPECT_EQ(OnlyRow(model).change(), 199);
}

TEST(WatchModel, TheSameDeviceOfTwoNodesIsTwoRows) {
  WatchModel model;
  const std::vector<NodeAnswer> nodes = {AnswerOf(kFirstNode, {WatchedRow{}.Told()}),
                                         AnswerOf(kSecondNode, {WatchedRow{}.Told()})};
  model.Take(nodes);
  EXPECT_EQ(model.Rows({}, "").size(), 2u);
  EXPECT_EQ(model.node_count(), 2u);
}

TEST(WatchModel, RowsAreInTheOrderThatIsAskedFor) {
  WatchModel model;
  TakeRows(model, {{.device = "1", .name = "b", .watts = 30, .level = 1},
                   {.device = "2", .name = "c", .watts = 10, .level = 3},
                   {.device = "3", .name = "a", .watts = 20, .level = 2}});
  EXPECT_EQ(Names(model), (Strings{"b", "c", "a"}));
  EXPECT_EQ(Names(model, {WatchColumn::kDevice, true}), (Strings{"a", "c", "b"}));
  EXPECT_EQ(Names(model, {WatchColumn::kName, false}), (Strings{"a", "b", "c"}));
  EXPECT_EQ(Names(model, {WatchColumn::kLevel, true}), (Strings{"c", "a", "b"}));
  EXPECT_EQ(Names(model, {WatchColumn::kUsage, true}), (Strings{"b", "a", "c"}));
  TakeRows(model, {{.device = "1", .name = "b", .watts = 30},
                   {.device = "2", .name = "c", .watts = 15},
                   {.device = "3", .name = "a", .watts = 15}});
  EXPECT_EQ(Names(model, {WatchColumn::kChange, false}), (Strings{"a", "b", "c"}));
}

TEST(WatchModel, WhatHasNoValueComesLastBothWays) {
  WatchModel model;
  TakeRows(model, {{.device = "1", .name = "none", .watts = std::nullopt},
                   {.device = "2", .name = "some", .watts = 10}});
  EXPECT_EQ(Names(model, {WatchColumn::kUsage, false}), (Strings{"some", "none"}));
  EXPECT_EQ(Names(model, {WatchColumn::kUsage, true}), (Strings{"some", "none"}));
}

TEST(WatchModel, TheFilterIsFoundInNamesDevicesAndNodes) {
  WatchModel model;
  TakeRows(model, {{.device = "0f1c", .name = "Desk Lamp"}, {.device = "22ab", .name = "printer"}});
  EXPECT_EQ(Names(model, {}, "lamp"), Strings{"Desk Lamp"});
  EXPECT_EQ(Names(model, {}, "22A"), Strings{"printer"});
  EXPECT_EQ(Names(model, {}, "127.0.0.1:1").size(), 2u);
  EXPECT_TRUE(Names(model, {}, "scanner").empty());
}

}  // namespace
}  // namespace vt::tools
