// The command set: nothing happens unseen, unasked, or more often than once.

#include <gtest/gtest.h>
#include <signal.h>

#include <future>
#include <string>
#include <vector>

#include "tests/harness/pdu_image.h"
#include "tests/harness/peer.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

std::string House(const std::string& faults = "") {
  return NodeToml({
             {.number = 1, .name = "lamp-1"},
             {.number = 2, .name = "lamp-2"},
             {.number = 2, .entity = 2, .name = "lamp-2b"},
             {.number = 4, .name = "heater", .role = "heater"},
         }) +
         faults;
}

// Levels are those of all entities, in their order.
std::vector<int> Levels(const Node& node) {
  std::vector<int> levels;
  const Outcome outcome = node.Ask({"collect", "level", "-o", "json"});
  const nlohmann::json document = outcome.answer();
  for (const auto& row : document["rows"]) levels.push_back(row["level"]);
  return levels;
}

const std::vector<int> kUntouched = {10, 10, 10, 10};

TEST(VoltarisSet, TellsWhatItSetAndOnHowMany) {
  const Node node(House());
  const Outcome outcome = node.Ask({"set", "--role", "lamp", "level=3", "--yes", "-q"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_TRUE(Holds(outcome.err, "setting level=3 on 2 devices (3 entities) of 1 node\n"))
      << outcome.err;
  EXPECT_TRUE(Holds(outcome.err, node.address() +
                                     ": set level=3 in domain test with priority 100: 3 entities "
                                     "accepted, 0 refused\n"))
      << outcome.err;
  EXPECT_EQ(Levels(node), (std::vector<int>{3, 3, 3, 10}));
}

TEST(VoltarisSet, ADryRunShowsTheDevicesAndLeavesThem) {
  const Node node(House());
  const Outcome outcome = node.Ask({"set", "--role", "lamp", "level=3", "--dry-run", "-o", "json"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  const nlohmann::json document = outcome.answer();
  EXPECT_EQ(document["dry_run"], true);
  ASSERT_EQ(document["rows"].size(), 3u);
  EXPECT_EQ(document["rows"][0]["name"], "lamp-1");
  EXPECT_EQ(document["rows"][0]["level"], 10);
  EXPECT_TRUE(
      Holds(outcome.err, "would set level=3 on 2 devices (3 entities) of 1 node; nothing was set"))
      << outcome.err;
  EXPECT_EQ(Levels(node), kUntouched);
}

TEST(VoltarisSet, NeedsYesWhereNobodyCanBeAsked) {
  const Node node(House());
  const Outcome outcome = node.Ask({"set", "level=3"});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_TRUE(Holds(outcome.err, "needs --yes")) << outcome.err;
  EXPECT_EQ(Levels(node), kUntouched);
}

struct Dialogue {
  std::string answer;
  int exit_code;
  int level;
};

TEST(VoltarisSet, AsksOnATerminalAndTakesNothingButYes) {
  for (const Dialogue& dialogue :
       {Dialogue{"y\n", 0, 3}, Dialogue{"yes\n", 0, 3}, Dialogue{"n\n", 2, 10},
        Dialogue{"\n", 2, 10}, Dialogue{"yep\n", 2, 10}, Dialogue{"\x04", 2, 10}}) {
    const Node node(House());
    Program program("voltaris",
                    {"set", "--name", "heater", "level=3", "-d", "test", "-n", node.address()}, {},
                    Terminal::kDialogue);
    program.AwaitError("Set level=3 on 1 device (1 entity) of 1 node? [y/N] ");
    program.Type(dialogue.answer);
    const Outcome outcome = program.Finish();
    EXPECT_EQ(outcome.exit_code, dialogue.exit_code) << dialogue.answer << outcome.err;
    EXPECT_TRUE(Holds(outcome.err, DeviceId(4) + " entity 1 (heater)")) << outcome.err;
    EXPECT_EQ(Levels(node).back(), dialogue.level) << dialogue.answer;
  }
}

TEST(VoltarisSet, ASignalAtTheQuestionSetsNothing) {
  const Node node(House());
  Program program("voltaris", {"set", "level=3", "-d", "test", "-n", node.address()}, {},
                  Terminal::kDialogue);
  program.AwaitError("[y/N] ");
  program.Signal(SIGINT);
  EXPECT_EQ(program.Finish().exit_code, 128 + SIGINT);
  EXPECT_EQ(Levels(node), kUntouched);
}

TEST(VoltarisSet, TouchesNothingWhenMoreDevicesAreConcernedThanMayBe) {
  const Node node(House());
  const Strings words = {"set", "--role", "lamp", "level=3", "--yes", "--max-devices"};
  Strings one = words;
  one.push_back("1");
  const Outcome outcome = node.Ask(one);
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(Holds(outcome.err, "2 devices are concerned, and --max-devices is 1")) << outcome.err;
  EXPECT_EQ(Levels(node), kUntouched);
  Strings two = words;
  two.push_back("2");
  EXPECT_EQ(node.Ask(two).exit_code, 0);
  EXPECT_EQ(Levels(node), (std::vector<int>{3, 3, 3, 10}));
}

TEST(VoltarisSet, ReportsEachRefusalOfADeviceThatIsConcerned) {
  const Node node(House("[[fault]]\nkind = \"nak\"\nqueries = \"set\"\ndevices = \"lamp-1\"\n"));
  const Outcome outcome = node.Ask({"set", "--role", "lamp", "level=3", "--yes", "-o", "json"});
  EXPECT_EQ(outcome.exit_code, 1) << outcome.err;
  EXPECT_TRUE(Holds(outcome.err, node.address() + ": " + DeviceId(1))) << outcome.err;
  EXPECT_TRUE(Holds(outcome.err, " refused\n")) << outcome.err;
  const nlohmann::json document = outcome.answer();
  EXPECT_EQ(document["nodes"][0]["status"], "partial");
  ASSERT_EQ(document["nodes"][0]["refusals"].size(), 1u);
  EXPECT_EQ(document["nodes"][0]["refusals"][0]["device"], DeviceId(1));
  EXPECT_EQ(Levels(node), (std::vector<int>{10, 3, 3, 10}));
}

TEST(VoltarisSet, IsRefusedWhenAllThatAreConcernedRefuse) {
  const Node node(House("[[fault]]\nkind = \"nak\"\nqueries = \"set\"\nrole = \"lamp\"\n"));
  const Outcome outcome = node.Ask({"set", "--role", "lamp", "level=3", "--yes", "-o", "json"});
  EXPECT_EQ(outcome.exit_code, 7) << outcome.err;
  EXPECT_EQ(outcome.answer()["nodes"][0]["status"], "denied");
}

TEST(VoltarisSet, TellsOfDevicesThatSaidNothingToIt) {
  const Node node(House("[[fault]]\nkind = \"silent\"\nqueries = \"set\"\ndevices = \"lamp-1\"\n"));
  const Outcome outcome = node.Ask({"set", "--role", "lamp", "level=3", "--yes", "-o", "json"});
  EXPECT_EQ(outcome.exit_code, 1) << outcome.err;
  EXPECT_TRUE(Holds(outcome.err, "1 did not answer")) << outcome.err;
}

TEST(VoltarisSet, IsNotSentToANodeThatToldAPartOfItsDevicesAlone) {
  const Node node(
      House("[[fault]]\nkind = \"wrong-digest\"\nqueries = \"collect\"\ndevices = \"lamp-1\"\n"));
  const Outcome outcome = node.Ask({"set", "--role", "lamp", "level=3", "--yes", "-o", "json"});
  EXPECT_EQ(outcome.exit_code, 5) << outcome.err;
  EXPECT_TRUE(Holds(outcome.err, "nothing was set, for not all of its devices are known"))
      << outcome.err;
  EXPECT_EQ(outcome.answer()["rows"].size(), 0u);
  const Outcome levels = node.Ask({"collect", "level", "--name", "lamp-2", "-o", "json"});
  EXPECT_EQ(levels.answer()["rows"][0]["level"], 10);
}

TEST(VoltarisSet, ThatNobodyIsConcernedByIsNotSent) {
  const Node node(House());
  const Outcome outcome = node.Ask({"set", "--role", "printer", "level=3", "--yes"});
  EXPECT_EQ(outcome.exit_code, 7) << outcome.err;
  EXPECT_FALSE(Holds(outcome.err, "setting")) << outcome.err;
}

TEST(VoltarisSet, IsNeverSentAgain) {
  const Node node(House());
  int queries = 0;
  // The collect is handed through, the set is read and the connection reset.
  ScriptedPeer between(
      [&](PeerConnection& connection) {
        const Bytes query = connection.ReadPdu();
        if (++queries > 1) {
          connection.Reset();
          return;
        }
        PeerConnection behind = node.Connect();
        behind.Send(query);
        connection.Send(behind.ReadAll());
      },
      3);
  const Outcome outcome = Voltaris({"set", "level=3", "--yes", "--retries", "5", "-o", "json", "-d",
                                    "test", "-n", "127.0.0.1:" + std::to_string(between.port())});
  EXPECT_EQ(outcome.exit_code, 6) << outcome.err;
  EXPECT_EQ(outcome.answer()["nodes"][0]["attempts"], 1);
  EXPECT_EQ(between.accepted(), 2u);
}

// AnswerOfOneDevice is what a peer sends to a query, in the form of a node.
Bytes AnswerOfOneDevice(const Bytes& query) {
  PduImage image;
  image.shipment = 1;
  image.cls = query[73];
  image.action = static_cast<std::uint16_t>(query[74] << 8 | query[75]);
  image.elements = {
      Element(0x80000009u, 0,
              Cat({DeviceHeader(std::string(32, 'd')), U32(1), U32(1), Counted(Text("lamp"))}))};
  return image.Signed(KeyBytes());
}

TEST(VoltarisSet, ThatCannotBeSentIsNotToldAsASet) {
  const TempFolder folder;
  const std::string key = folder.Write("key", kKeyHex);
  // It answers the collect, and there is nobody to take the set.
  ScriptedPeer peer(
      [](PeerConnection& connection) { connection.Send(AnswerOfOneDevice(connection.ReadPdu())); });
  const Outcome outcome = Voltaris(
      {"set", "level=3", "--yes", "--key-file", key, "--port", std::to_string(peer.port())});
  EXPECT_EQ(outcome.exit_code, 3) << outcome.err;
  EXPECT_NE(outcome.err.find(": nothing was set: connection refused"), std::string::npos)
      << outcome.err;
  EXPECT_EQ(outcome.err.find(": set level=3 in domain"), std::string::npos) << outcome.err;
}

TEST(VoltarisSet, WhatWasTypedBeforeTheQuestionIsNoAnswer) {
  const TempFolder folder;
  const std::string key = folder.Write("key", kKeyHex);
  std::promise<void> asked;
  std::promise<void> typed;
  ScriptedPeer peer([&](PeerConnection& connection) {
    const Bytes query = connection.ReadPdu();
    asked.set_value();
    typed.get_future().wait();
    connection.Send(AnswerOfOneDevice(query));
  });
  Program program("voltaris",
                  {"set", "level=3", "--key-file", key, "--port", std::to_string(peer.port())}, {},
                  Terminal::kDialogue);
  asked.get_future().wait();
  program.Type("yes\n");
  typed.set_value();
  program.AwaitError("[y/N]");
  program.Type("no\n");
  EXPECT_EQ(program.Finish().exit_code, 2);
}

TEST(VoltarisSet, ReachesAllNodesThatHaveSuchDevices) {
  const Node lamps(House());
  const Node heater(NodeToml({{.number = 9, .name = "heater", .role = "heater"}}));
  const Outcome outcome = Voltaris({"set", "--role", "lamp", "level=3", "--yes", "-o", "json", "-d",
                                    "test", "-n", lamps.address() + "," + heater.address()});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.answer()["nodes"][1]["status"], "refused");
  EXPECT_EQ(Levels(lamps), (std::vector<int>{3, 3, 3, 10}));
  EXPECT_EQ(Levels(heater), std::vector<int>{10});
}

TEST(VoltarisSet, NdjsonOfASetIsOfTheSchema) {
  const Node node(House());
  const std::vector<nlohmann::json> lines =
      node.Ask({"set", "--role", "lamp", "level=3", "--yes", "-o", "ndjson"}).answer_lines();
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[0]["set"]["level"], "3");
  EXPECT_EQ(lines[1]["level"], 3);
  EXPECT_EQ(lines[4]["accepted"], 3);
}

}  // namespace
}  // namespace vt::testing
