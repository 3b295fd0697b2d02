// The fleet as an application meets it: the real program, asked through the library.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "vtapi.hpp"

#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using voltaris::collect_query;
using voltaris::QueryDescription;
using voltaris::Results;
using voltaris::Row;
using voltaris::set_query;
using voltaris::sum_query;

Results Execute(const Node& node, const QueryDescription& query) {
  auto session = voltaris::Session::open("127.0.0.1", node.port());
  auto results = session.value().execute(query);
  EXPECT_TRUE(results.value().complete()) << results.value().failure()->text;
  return *std::move(results);
}

Row OnlyRow(const Results& results) {
  EXPECT_EQ(results.row_count(), 1u);
  return *results.rows().begin();
}

voltaris::DeviceId Device(int number) {
  voltaris::DeviceId id;
  const std::string text = DeviceId(number);
  std::copy(text.begin(), text.end(), id.bytes.begin());
  return id;
}

// FleetToml is a group, and a device that has all that a device can have.
std::string FleetToml() {
  DeviceToml device = CompleteDevice();
  device.more += "address = \"192.0.2.7:7440\"\nneighbors = [{ id = \"" + DeviceId(8) +
                 "\", label = \"next\", address = \"192.0.2.1:258\" }]\n";
  return NodeToml({device}) +
         "[[group]]\ncount = 5\nname = \"phone-{n}\"\nrole = \"phone\"\nimportance = 50\n"
         "watts = [0, 3]\nkeywords = [\"desk\"]\n"
         "[[group]]\ncount = 2\nname = \"solar-{n}\"\nrole = \"solar\"\nwatts = [0, 500]\n"
         "category = \"producer\"\n";
}

TEST(FleetExchange, EveryAttributeComesThroughTheLibraryByItself) {
  const Node node(FleetToml());
  const auto row_of = [&node](auto attribute) {
    return Execute(node, collect_query("test").get(attribute).where(voltaris::identity, Device(1)));
  };
  const auto told = [&row_of](auto attribute) {
    const Results results = row_of(attribute);
    return OnlyRow(results).get(attribute).value();
  };
  const auto text = [&row_of](auto attribute) {
    const Results results = row_of(attribute);
    return std::string(OnlyRow(results).get(attribute).value());
  };
  EXPECT_EQ(told(voltaris::identity).device, Device(1));
  EXPECT_EQ(text(voltaris::role), "lamp");
  EXPECT_EQ(text(voltaris::domain), "test");
  EXPECT_EQ(text(voltaris::name), "all");
  EXPECT_EQ(told(voltaris::keywords), (std::vector<std::string>{"f", "g"}));
  EXPECT_EQ(text(voltaris::error_text), "hot");
  EXPECT_EQ(told(voltaris::units), -1);
  EXPECT_EQ(told(voltaris::usage), (voltaris::Usage{20, -1}));
  EXPECT_EQ(told(voltaris::level), 4);
  EXPECT_EQ(told(voltaris::importance), 9);
  EXPECT_EQ(told(voltaris::entity_type), voltaris::EntityType::kRemote);
  EXPECT_EQ(told(voltaris::address).endpoint(), "192.0.2.7:7440");
  EXPECT_EQ(told(voltaris::neighbor_count), 1);
  EXPECT_EQ(told(voltaris::nanny_vector), 305419896u);
  EXPECT_EQ(told(voltaris::delta_vector).watts(10), 3.0);
  EXPECT_EQ(told(voltaris::delta_vector).watts(0), -2.0);
  EXPECT_EQ(told(voltaris::caliber), voltaris::Caliber::kActual);
  EXPECT_EQ(told(voltaris::usage_vector).watts(10), 5.0);
  EXPECT_EQ(text(voltaris::text_21), "note");
  EXPECT_EQ(told(voltaris::category), voltaris::Category::kConsumer);

  const Results neighbors = row_of(voltaris::neighbor);
  const auto neighbor = OnlyRow(neighbors).get(voltaris::neighbor).value();
  EXPECT_EQ(neighbor.device, Device(8));
  EXPECT_EQ(neighbor.label, "next");
  EXPECT_EQ(neighbor.data.size(), sizeof(sockaddr_in));
  EXPECT_EQ(neighbor.flag, 1);
  const Results recurrences = row_of(voltaris::recurrence);
  const auto recurrence = OnlyRow(recurrences).get(voltaris::recurrence).value();
  EXPECT_EQ(recurrence.text, "0 8 * * *");
  EXPECT_EQ(recurrence.byte1, 1);
  EXPECT_EQ(recurrence.byte2, 2);
  EXPECT_EQ(recurrence.flag, 1);
}

TEST(FleetExchange, ManyAttributesComeTogetherWhateverFormTheyTravelIn) {
  const Node node(FleetToml());
  const Results results = Execute(
      node, collect_query("test")
                .get(voltaris::name, voltaris::role, voltaris::keywords, voltaris::usage,
                     voltaris::level, voltaris::importance, voltaris::caliber, voltaris::category)
                .where(voltaris::identity, Device(1)));
  const Row row = OnlyRow(results);
  EXPECT_EQ(row.get(voltaris::name), "all");
  EXPECT_EQ(row.get(voltaris::role), "lamp");
  EXPECT_EQ(row.get(voltaris::keywords), (std::vector<std::string>{"f", "g"}));
  EXPECT_EQ(row.get(voltaris::usage)->watts(), 2.0);
  EXPECT_EQ(row.get(voltaris::level), 4);
  EXPECT_EQ(row.get(voltaris::importance), 9);
  EXPECT_EQ(row.get(voltaris::caliber), voltaris::Caliber::kActual);
  EXPECT_EQ(row.get(voltaris::category), voltaris::Category::kConsumer);

  const Results vectors =
      Execute(node, collect_query("test")
                        .get(voltaris::usage, voltaris::usage_vector, voltaris::delta_vector)
                        .where(voltaris::identity, Device(1)));
  const Row both = OnlyRow(vectors);
  EXPECT_EQ(both.get(voltaris::usage)->watts(), 2.0);
  EXPECT_EQ(both.get(voltaris::usage_vector)->watts(4), 2.0);
  EXPECT_EQ(both.get(voltaris::delta_vector)->watts(4), 0.0);
}

TEST(FleetExchange, GroupsAnswerAsTheirDevices) {
  const Node node(FleetToml());
  const Results results = Execute(
      node,
      collect_query("test").get(voltaris::name, voltaris::usage).where(voltaris::role, "ph*"));
  std::map<std::string, double> watts;
  for (const Row row : results.rows()) {
    watts[std::string(row.get(voltaris::name).value())] = row.get(voltaris::usage)->watts().value();
  }
  EXPECT_EQ(watts, (std::map<std::string, double>{{"phone-1", 3.0},
                                                  {"phone-2", 3.0},
                                                  {"phone-3", 3.0},
                                                  {"phone-4", 3.0},
                                                  {"phone-5", 3.0}}));
  EXPECT_EQ(results.accepted().size(), 5u);
  EXPECT_EQ(results.refused().size(), 3u);
}

TEST(FleetExchange, EverythingThatCanBeSetIsSetAndComesBack) {
  const Node node(FleetToml());
  const Results set = Execute(node, set_query("test")
                                        .set(voltaris::level, 2)
                                        .set(voltaris::importance, 70)
                                        .set(voltaris::name, "renamed")
                                        .set(voltaris::role, "desk lamp")
                                        .set(voltaris::keywords, {"x", "y"})
                                        .set(voltaris::recurrence, {"0 6 * * *", 3, 4, 5})
                                        .where(voltaris::name, "all"));
  EXPECT_EQ(set.accepted().size(), 1u);
  const Row told = OnlyRow(set);
  EXPECT_EQ(told.get(voltaris::name), "renamed");
  EXPECT_EQ(told.get(voltaris::level), 2);

  const Results after =
      Execute(node, collect_query("test")
                        .get(voltaris::name, voltaris::role, voltaris::keywords, voltaris::level,
                             voltaris::importance, voltaris::recurrence, voltaris::usage)
                        .where(voltaris::identity, Device(1)));
  const Row row = OnlyRow(after);
  EXPECT_EQ(row.get(voltaris::name), "renamed");
  EXPECT_EQ(row.get(voltaris::role), "desk lamp");
  EXPECT_EQ(row.get(voltaris::keywords), (std::vector<std::string>{"x", "y"}));
  EXPECT_EQ(row.get(voltaris::level), 2);
  EXPECT_EQ(row.get(voltaris::importance), 70);
  EXPECT_EQ(row.get(voltaris::recurrence)->text, "0 6 * * *");
  EXPECT_EQ(row.get(voltaris::recurrence)->flag, 5);
  EXPECT_EQ(row.get(voltaris::usage)->watts(), 1.0);
}

TEST(FleetExchange, SetsOfWhatCanOnlyBeReadAreRefused) {
  const Node node(FleetToml());
  const auto refused = [&node](QueryDescription query) {
    const Results results = Execute(node, query);
    EXPECT_EQ(results.row_count(), 0u);
    return results.accepted().empty() ? results.refused().size() : 0;
  };
  EXPECT_EQ(refused(set_query("test").set(voltaris::usage, 1)), 8u);
  EXPECT_EQ(refused(set_query("test").set(voltaris::units, 2)), 8u);
  EXPECT_EQ(refused(set_query("test").set(voltaris::caliber, voltaris::Caliber::kTrusted)), 8u);
  EXPECT_EQ(refused(set_query("test").set(voltaris::category, voltaris::Category::kProducer)), 8u);
  EXPECT_EQ(refused(set_query("test").set(voltaris::name, "a*b")), 8u);
  EXPECT_EQ(refused(set_query("test").set(voltaris::level, 1).set(voltaris::text_21, "x")), 8u);
}

TEST(FleetExchange, SumsTellUsageAndChanges) {
  const Node node(FleetToml());
  const Results results =
      Execute(node, sum_query("test").get(voltaris::usage, voltaris::delta_vector));
  EXPECT_EQ(results.accepted().size(), 6u);
  EXPECT_EQ(results.refused().size(), 2u) << "producers are none of a query for consumers";
  const Row row = OnlyRow(results);
  EXPECT_EQ(row.device(), Device(0));
  EXPECT_EQ(row.get(voltaris::usage)->watts(), 5 * 3.0 + 2.0);
  EXPECT_EQ(row.get(voltaris::delta_vector)->watts(10), 3.0);
  EXPECT_EQ(row.get(voltaris::delta_vector)->watts(0), -17.0);

  const Results producers =
      Execute(node, sum_query("test")
                        .get(voltaris::usage)
                        .where(voltaris::category, voltaris::Category::kProducer));
  EXPECT_EQ(OnlyRow(producers).get(voltaris::usage)->watts(), 1000.0);
}

TEST(FleetExchange, TheThirdQueryActionCollects) {
  const Node node(FleetToml());
  std::string identity(36, 'i');
  Session* session = voltaris_createSession("127.0.0.1", node.port(), identity.data(), nullptr, 0);
  Query* query = voltaris_createQuery(VT_QUERY, VT_QUERY_FURTHER, "test", 100);
  ASSERT_EQ(voltaris_addGetAttribute(query, VT_ATTRIBUTE_NAME), 0);
  ASSERT_EQ(voltaris_addGetAttribute(query, VT_ATTRIBUTE_USAGE), 0);
  ASSERT_EQ(voltaris_execQuery(session, query), 0);
  ResultSet* result = voltaris_queryResults(session, query);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(voltaris_getRowCount(result), 6);
  EXPECT_EQ(voltaris_getAckCount(result), 6);
  EXPECT_EQ(voltaris_getNakCount(result), 2);
  voltaris_releaseResult(result);
  voltaris_releaseQuery(query);
  voltaris_closeSession(session);
}

// --- examples ---

TEST(FleetExchange, ACampusOfTenThousandAnswersACollectOfFourAttributes) {
  const std::string example = std::string(VT_TEST_DIR) + "/../examples/campus.toml";
  Program program("voltaris-node", {"--config", example, "--listen", "127.0.0.1:0"});
  const std::string line = program.ReadLine();
  const std::string greeting = "listening on 127.0.0.1:";
  ASSERT_TRUE(line.starts_with(greeting)) << line;
  const auto port = static_cast<std::uint16_t>(std::stoul(line.substr(greeting.size())));
  auto session = voltaris::Session::open("127.0.0.1", port);
  const auto results = session.value().execute(
      collect_query("campus")
          .get(voltaris::name, voltaris::usage, voltaris::level, voltaris::importance)
          .priority(255));
  EXPECT_TRUE(results.value().complete());
  EXPECT_EQ(results.value().row_count(), 9850u) << "those of this domain";
  std::set<std::string> names;
  for (const Row row : results.value().rows()) {
    names.emplace(row.get(voltaris::name).value());
    EXPECT_TRUE(row.get(voltaris::usage)->watts());
  }
  EXPECT_EQ(names.size(), 9850u);
  program.Signal(SIGTERM);
  EXPECT_EQ(program.Finish().exit_code, 0);
}

// --- the state file ---

TEST(FleetExchange, WhatWasSetSurvivesARestart) {
  const TempFolder folder;
  const std::vector<std::string> arguments = {"--state", folder.path("kept")};
  {
    Node node(FleetToml(), arguments);
    const Results set =
        Execute(node, set_query("test").set(voltaris::level, 1).where(voltaris::role, "phone"));
    EXPECT_EQ(set.accepted().size(), 5u);
    // Not even a chance to tidy up: what was accepted is on the disk.
    node.program().Signal(SIGKILL);
    (void)node.program().Finish();
  }
  const Node node(FleetToml(), arguments);
  const Results results =
      Execute(node, collect_query("test").get(voltaris::level).where(voltaris::role, "phone"));
  EXPECT_EQ(results.row_count(), 5u);
  for (const Row row : results.rows()) EXPECT_EQ(row.get(voltaris::level), 1);
}

TEST(FleetExchange, TheConfigurationMayNameTheStateFile) {
  const TempFolder folder;
  std::string config = FleetToml();
  config.replace(config.find("role = \"node\"\n"), 14,
                 "role = \"node\"\nstate = \"" + folder.path("kept") + "\"\n");
  const Node node(config);
  const Results set = Execute(node, set_query("test").set(voltaris::level, 1));
  EXPECT_EQ(set.accepted().size(), 6u);
  EXPECT_TRUE(std::filesystem::exists(folder.path("kept")));
}

TEST(FleetExchange, ADamagedStateFileIsReportedAndSetAside) {
  const TempFolder folder;
  Node node(FleetToml(), {"--state", folder.Write("kept", "voltaris-node state 1\nend 0 0000\n")});
  const Results results =
      Execute(node, collect_query("test").get(voltaris::level).where(voltaris::name, "all"));
  EXPECT_EQ(OnlyRow(results).get(voltaris::level), 4) << "as it is configured";
  const Outcome outcome = node.Stop();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.err.find("set aside as " + folder.path("kept.damaged-1")), std::string::npos)
      << outcome.err;
}

TEST(FleetExchange, AStateFileThatCannotBeKeptEndsTheProgramBeforeItListens) {
  const TempFolder folder;
  Program program("voltaris-node", {"--config", folder.Write("fleet.toml", FleetToml()), "--listen",
                                    "127.0.0.1:0", "--state", folder.path("missing/kept")});
  const Outcome outcome = program.Finish();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_NE(outcome.err.find("cannot write into " + folder.path("missing")), std::string::npos)
      << outcome.err;
}

}  // namespace
}  // namespace vt::testing
