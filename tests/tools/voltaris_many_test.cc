// Many nodes at once, and what ends the work before its time: the deadline, a signal, a reader that
// has gone.

#include <gtest/gtest.h>
#include <signal.h>

#include <future>
#include <memory>
#include <string>
#include <vector>

#include "tests/harness/peer.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

std::string AddressOf(const ScriptedPeer& peer) {
  return "127.0.0.1:" + std::to_string(peer.port());
}

// HandThrough takes a query to a node and its answer back.
void HandThrough(const Node& node, PeerConnection& connection) {
  const Bytes query = connection.ReadPdu();
  PeerConnection behind = node.Connect();
  behind.Send(query);
  connection.Send(behind.ReadAll());
}

TEST(VoltarisNodes, AreAskedTogetherAndToldInTheirOrder) {
  const Node first(OneLamp(1));
  const Node second(OneLamp(2));
  const Outcome outcome = Voltaris({"collect", "--columns", "node,name,usage", "-d", "test", "-n",
                                    AddressList({second.address(), first.address()})});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out.find("node "), 0u) << outcome.out;
  EXPECT_LT(outcome.out.find(second.address() + "  lamp-2   10 W"),
            outcome.out.find(first.address() + "  lamp-1   10 W"))
      << outcome.out;
  EXPECT_EQ(outcome.err, "voltaris: 2 rows of 2 nodes (2 ok); 2 accepted, 0 refused\n");
}

TEST(VoltarisNodes, ANodeThatIsNamedTwiceIsAskedOnce) {
  const Node node(OneLamp(1));
  const Outcome outcome = Voltaris(
      {"collect", "-o", "json", "-d", "test", "-n", AddressList({node.address(), node.address()})});
  EXPECT_EQ(outcome.answer()["nodes"].size(), 1u);
}

TEST(VoltarisNodes, ThoseThatFailedHaveATableOfTheirOwn) {
  const Node node(OneLamp(1));
  const std::string nobody = NobodysAddress();
  const Outcome outcome =
      Voltaris({"collect", "name", "-d", "test", "-n", AddressList({node.address(), nobody})});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_NE(outcome.out.find("lamp-1\n\nnode "), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find(nobody + "  unreachable  connection refused\n"), std::string::npos)
      << outcome.out;
}

TEST(VoltarisNodes, FortyAreAskedThroughAFanoutOfFour) {
  const Node node(OneLamp(1));
  std::vector<std::unique_ptr<ScriptedPeer>> doors;
  Strings addresses;
  for (int i = 0; i < 40; ++i) {
    doors.push_back(std::make_unique<ScriptedPeer>(
        [&node](PeerConnection& connection) { HandThrough(node, connection); }));
    addresses.push_back(AddressOf(*doors.back()));
  }
  const Outcome outcome =
      Voltaris({"collect", "-o", "json", "-d", "test", "-F", "4", "-n", AddressList(addresses)});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  const nlohmann::json document = outcome.answer();
  EXPECT_EQ(document["summary"]["statuses"], nlohmann::json({{"ok", 40}}));
  EXPECT_EQ(document["rows"].size(), 40u);
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    EXPECT_EQ(document["nodes"][i]["node"], addresses[i]) << "in the order of the command line";
  }
}

TEST(VoltarisNodes, OneDeadlineIsForAllAlsoForThoseThatHadNoTurn) {
  ScriptedPeer silent(
      [](PeerConnection& connection) {
        connection.ReadPdu();
        connection.WaitForClose();
      },
      1);
  const Node node(OneLamp(1));
  const Outcome outcome = Voltaris({"collect", "-o", "json", "-d", "test", "-F", "1", "--timeout",
                                    "0.3", "-n", AddressList({AddressOf(silent), node.address()})});
  EXPECT_EQ(outcome.exit_code, 4);
  const nlohmann::json nodes = outcome.answer()["nodes"];
  EXPECT_EQ(nodes[0]["status"], "no-answer");
  EXPECT_EQ(nodes[1]["status"], "not-asked");
  EXPECT_EQ(nodes[1]["attempts"], 0);
}

TEST(VoltarisNodes, ASilentOneEndsAfterTheTimeOfDevicesAndTwoSeconds) {
  ScriptedPeer silent([](PeerConnection& connection) {
    connection.ReadPdu();
    connection.WaitForClose();
  });
  const Outcome outcome = Voltaris({"collect", "-o", "json", "--device-timeout", "1", "--timeout",
                                    "3600", "-n", AddressOf(silent)});
  EXPECT_EQ(outcome.exit_code, 4);
}

TEST(VoltarisRetries, ANodeThatToldNothingIsAskedAgain) {
  const Node node(OneLamp(1));
  int connections = 0;
  // The first connection is reset, the second one handed through to the node.
  ScriptedPeer flaky(
      [&](PeerConnection& connection) {
        if (++connections > 1) {
          HandThrough(node, connection);
          return;
        }
        connection.ReadPdu();
        connection.Reset();
      },
      2);
  const Outcome outcome =
      Voltaris({"collect", "-o", "json", "-d", "test", "--retries", "1", "-n", AddressOf(flaky)});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.answer()["nodes"][0]["attempts"], 2);
  EXPECT_TRUE(flaky.Join());
}

TEST(VoltarisRetries, AreOverWhenTheyAreUsedUp) {
  const std::string nobody = NobodysAddress();
  const Outcome outcome = Voltaris({"collect", "-o", "json", "--retries", "2", "-n", nobody});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_EQ(outcome.answer()["nodes"][0]["attempts"], 3);
  EXPECT_NE(outcome.err.find("(3 attempts)"), std::string::npos) << outcome.err;
}

TEST(VoltarisRetries, WhatCameForgedIsNotAskedForAgain) {
  const Node node(OneLamp(1) + "[[fault]]\nkind = \"wrong-digest\"\n");
  const Outcome outcome = node.Ask({"collect", "-o", "json", "--retries", "5"});
  EXPECT_EQ(outcome.exit_code, 5);
  EXPECT_EQ(outcome.answer()["nodes"][0]["attempts"], 1);
}

class VoltarisSignal : public ::testing::TestWithParam<int> {};

TEST_P(VoltarisSignal, EndsWithItsNumberAndTellsWhatWasThere) {
  const Node node(OneLamp(1));
  ScriptedPeer silent([](PeerConnection& connection) {
    connection.ReadPdu();
    connection.WaitForClose();
  });
  Program program("voltaris", {"collect", "name", "-o", "ndjson", "-d", "test", "-n",
                               AddressList({node.address(), AddressOf(silent)})});
  for (const char* type : {"start", "row", "node"}) {
    EXPECT_EQ(nlohmann::json::parse(program.ReadLine())["type"], type);
  }
  program.Signal(GetParam());
  const Outcome outcome = program.Finish();
  EXPECT_EQ(outcome.exit_code, 128 + GetParam());
  const std::vector<nlohmann::json> lines = outcome.answer_lines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[3]["status"], "not-asked");
  EXPECT_EQ(lines[4]["signal"], GetParam());
  EXPECT_EQ(lines[4]["rows"], 1);
  EXPECT_NE(outcome.err.find("ended by signal " + std::to_string(GetParam())), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Both, VoltarisSignal, ::testing::Values(SIGINT, SIGTERM));

// CrowdToml has an answer of far more than a pipe holds.
std::string CrowdToml() {
  std::vector<DeviceToml> crowd;
  for (int i = 1; i <= 1000; ++i) crowd.push_back({.number = i, .name = "d" + std::to_string(i)});
  return NodeToml(crowd);
}

// Stalled is a voltaris that has begun to write such an answer, of which nothing more is read.
Program Stalled(const Node& node) {
  return Program("voltaris", {"collect", "-o", "ndjson", "-d", "test", "-n", node.address()});
}

TEST(VoltarisStalledReader, ASignalIsNotLostAndCutsNoLine) {
  const Node node(CrowdToml());
  Program program = Stalled(node);
  EXPECT_NE(program.ReadLine(), "");
  program.Signal(SIGTERM);
  const Outcome outcome = program.Finish();
  EXPECT_EQ(outcome.exit_code, 128 + SIGTERM);
  const std::vector<nlohmann::json> lines = outcome.answer_lines();
  ASSERT_EQ(lines.size(), 1003u);
  EXPECT_EQ(lines.back()["type"], "summary");
  EXPECT_EQ(lines.back()["signal"], SIGTERM);
}

TEST(VoltarisStalledReader, ASecondSignalEndsItAtOnce) {
  const Node node(CrowdToml());
  Program program = Stalled(node);
  EXPECT_NE(program.ReadLine(), "");
  program.Signal(SIGINT);
  program.Signal(SIGTERM);
  program.AwaitEnd();
  EXPECT_EQ(program.Finish().exit_code, 1000 + SIGTERM) << "ended by the signal itself";
}

TEST(VoltarisPipe, AReaderThatHasGoneEndsItQuietly) {
  const Node node(OneLamp(1));
  std::promise<void> gone;
  ScriptedPeer held([&](PeerConnection& connection) {
    gone.get_future().wait();
    HandThrough(node, connection);
  });
  Program program("voltaris", {"collect", "-d", "test", "-n", AddressOf(held)});
  program.CloseOutput();
  gone.set_value();
  const Outcome outcome = program.Finish();
  EXPECT_EQ(outcome.exit_code, 128 + SIGPIPE);
  EXPECT_EQ(outcome.err, "");
}

TEST(VoltarisProgress, IsShownOnATerminalAndTakenAway) {
  ScriptedPeer silent([](PeerConnection& connection) {
    connection.ReadPdu();
    connection.WaitForClose();
  });
  Program program("voltaris", {"collect", "-n", AddressOf(silent)}, {}, Terminal::kDialogue);
  program.AwaitError("0 of 1 nodes done, 0 failed, 1 running; 0 rows");
  program.Signal(SIGINT);
  const Outcome outcome = program.Finish();
  EXPECT_EQ(outcome.exit_code, 128 + SIGINT);
  EXPECT_NE(outcome.err.find("\r\033[K"), std::string::npos);
}

}  // namespace
}  // namespace vt::testing
