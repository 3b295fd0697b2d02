#include "node/fleet_survey.h"

#include <gtest/gtest.h>

#include "node/power_history.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::EntityOrder;
using node::EntityPage;
using node::FleetSurvey;
using node::FleetTotals;
using node::PageRequest;
using node::PowerCategory;
using node::PowerHistory;

std::string MixedGroups() {
  return NodeTable() +
         "[[group]]\ncount = 3\nname = \"desk-{n}\"\nrole = \"phone\"\nwatts = [0, 10]\n"
         "keywords = [\"Floor\"]\nentities = 2\nlevel = 5\n"
         "[[group]]\ncount = 1\nname = \"server\"\nrole = \"rack\"\nwatts = [0, 400]\n"
         "domain = \"cellar\"\nlevel = 9\n"
         "[[group]]\ncount = 1\nname = \"roof\"\nrole = \"solar\"\nwatts = [0, 2000]\n"
         "category = \"producer\"\ndomain = \"cellar\"\nlevel = 1\n"
         "[[group]]\ncount = 1\nname = \"feed\"\nrole = \"meter\"\nwatts = [0, 70]\n"
         "category = \"meter\"\n";
}

std::int64_t MilliwattsOf(const FleetTotals& totals, PowerCategory category) {
  return totals.milliwatts[static_cast<std::size_t>(category)];
}

std::vector<std::string> NamesOf(const EntityPage& page) {
  std::vector<std::string> names;
  for (const node::EntityRow& row : page.rows) {
    names.push_back(row.name + "/" + std::to_string(row.number));
  }
  return names;
}

TEST(FleetSurvey, AddsUpEachCategoryAndTheConsumersOfEachDomain) {
  const node::FleetFile file = Load(MixedGroups());
  FleetSurvey survey;
  const FleetTotals totals = survey.Measure(file.fleet, At(0));
  EXPECT_EQ(totals.devices, 6u);
  EXPECT_EQ(totals.entities, 9u);
  EXPECT_EQ(MilliwattsOf(totals, PowerCategory::kConsumer), 6 * 5000 + 360'000);
  EXPECT_EQ(MilliwattsOf(totals, PowerCategory::kProducer), 200'000);
  EXPECT_EQ(MilliwattsOf(totals, PowerCategory::kMeter), 70'000);
  EXPECT_EQ(totals.domain_count, 2u);
  ASSERT_EQ(totals.domains.size(), 2u);
  EXPECT_EQ(totals.domains[0].name, "test");
  EXPECT_EQ(totals.domains[0].entities, 7u);
  EXPECT_EQ(totals.domains[0].milliwatts, 30'000);
  EXPECT_EQ(totals.domains[1].name, "cellar");
  EXPECT_EQ(totals.domains[1].milliwatts, 360'000);
}

TEST(FleetSurvey, OfManyDomainsTheLargestAreTold) {
  std::string config = NodeTable();
  for (int i = 1; i <= 25; ++i) {
    config += "[[group]]\ncount = " + std::to_string(i) + "\nname = \"g" + std::to_string(i) +
              "-{n}\"\nrole = \"r\"\nwatts = [0, 1]\ndomain = \"d" + std::to_string(i) + "\"\n";
  }
  const node::FleetFile file = Load(config);
  const FleetTotals totals = FleetSurvey().Measure(file.fleet, At(0));
  EXPECT_EQ(totals.domain_count, 25u);
  ASSERT_EQ(totals.domains.size(), 20u);
  EXPECT_EQ(totals.domains.front().name, "d25");
  EXPECT_EQ(totals.domains.back().name, "d6");
}

TEST(FleetSurvey, FindsInNamesRolesKeywordsDomainsAndIdentitiesWhateverTheCase) {
  const node::FleetFile file = Load(MixedGroups());
  FleetSurvey survey;
  const auto matching = [&](const std::string& text) {
    return survey.Select(file.fleet, At(0), {.find = text}).matching;
  };
  EXPECT_EQ(matching(""), 9u);
  EXPECT_EQ(matching("DESK-2"), 2u);
  EXPECT_EQ(matching("Solar"), 1u);
  EXPECT_EQ(matching("fLoOr"), 6u);
  EXPECT_EQ(matching("cellar"), 2u);
  const node::DeviceIdText& id = file.fleet.IdOf(6);
  EXPECT_EQ(matching(std::string(id.data(), id.size())), 1u);
  EXPECT_EQ(matching("nothing"), 0u);
}

TEST(FleetSurvey, SortsByPowerAndByLevelBothWays) {
  const node::FleetFile file = Load(MixedGroups());
  FleetSurvey survey;
  (void)survey.Measure(file.fleet, At(0));
  const auto names = [&](EntityOrder order, std::uint32_t from = 0) {
    return NamesOf(survey.Select(file.fleet, At(0), {.from = from, .count = 3, .order = order}));
  };
  using Names = std::vector<std::string>;
  EXPECT_EQ(names(EntityOrder::kFleet), (Names{"desk-1/1", "desk-1/2", "desk-2/1"}));
  EXPECT_EQ(names(EntityOrder::kMostPower), (Names{"server/1", "roof/1", "feed/1"}));
  EXPECT_EQ(names(EntityOrder::kLeastPower, 6), (Names{"feed/1", "roof/1", "server/1"}));
  EXPECT_EQ(names(EntityOrder::kHighestLevel), (Names{"feed/1", "server/1", "desk-1/1"}));
  EXPECT_EQ(names(EntityOrder::kLowestLevel), (Names{"roof/1", "desk-3/2", "desk-3/1"}));
  EXPECT_EQ(names(EntityOrder::kMostPower, 8).size(), 1u);
  EXPECT_EQ(names(EntityOrder::kMostPower, 9).size(), 0u);
}

TEST(FleetSurvey, RowsAreAsTheFleetIsNowAndTotalsAsItWasMeasured) {
  node::FleetFile file = Load(MixedGroups());
  FleetSurvey survey;
  (void)survey.Measure(file.fleet, At(0));
  node::Changes changes;
  changes.level = std::uint8_t{10};
  changes.name = "renamed";
  file.fleet.Apply(0, changes);
  const EntityPage page = survey.Select(file.fleet, At(0), {.count = 1, .find = "renamed"});
  ASSERT_EQ(page.rows.size(), 1u);
  EXPECT_EQ(page.rows[0].level, 10);
  EXPECT_EQ(page.rows[0].milliwatts, 10'000);
  EXPECT_EQ(MilliwattsOf(survey.Measure(file.fleet, At(0)), PowerCategory::kConsumer), 395'000);
}

TEST(FleetSurvey, WhatHasNoUsageIsNotCounted) {
  node::FleetFile file = Load(MixedGroups());
  file.fleet.LoseMeasure(file.fleet.EntityAt(6).model);
  FleetSurvey survey;
  EXPECT_EQ(MilliwattsOf(survey.Measure(file.fleet, At(0)), PowerCategory::kConsumer), 30'000);
  const EntityPage page = survey.Select(file.fleet, At(0), {.find = "server"});
  ASSERT_EQ(page.rows.size(), 1u);
  EXPECT_FALSE(page.rows[0].milliwatts);
}

TEST(FleetSurvey, AnotherFleetCanBeLookedAtBeforeItIsMeasured) {
  const node::FleetFile large = Load(MixedGroups());
  const node::FleetFile small = Load(NodeTable() + DeviceToml{}.Text());
  FleetSurvey survey;
  (void)survey.Measure(large.fleet, At(0));
  EXPECT_EQ(survey.Select(large.fleet, At(0), {.order = EntityOrder::kMostPower}).matching, 9u);
  EXPECT_EQ(survey.Select(small.fleet, At(0), {.order = EntityOrder::kMostPower}).matching, 1u);
  EXPECT_EQ(survey.Select(large.fleet, At(0), {.order = EntityOrder::kLeastPower}).matching, 9u);
}

TEST(PowerHistory, ForgetsWhatIsTooOldAndWhatIsTooMuch) {
  PowerHistory history;
  for (int i = 0; i <= 600; ++i) history.Add({At(i), i});
  EXPECT_EQ(history.points().size(), 600u) << "so many points at most";
  EXPECT_EQ(history.points().front().milliwatts, 1);
  history.Add({At(1100), 7});
  EXPECT_EQ(history.points().front().at, At(500)) << "ten minutes at most";
  history.Add({At(5), 9});
  EXPECT_EQ(history.points().size(), 1u) << "the clock was set back";
}

}  // namespace
}  // namespace vt::testing
