// voltaris check against nodes, as a monitoring system runs it.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <future>
#include <string>
#include <vector>

#include "tests/harness/peer.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

// UnequalLamps use 10 and 20 W.
std::string UnequalLamps(const std::string& fault = "") {
  const std::string lamps =
      NodeToml({{.number = 1, .name = "lamp-1"}, {.number = 2, .name = "lamp-2", .step = 2}});
  return fault.empty() ? lamps : lamps + "[[fault]]\n" + fault;
}

Outcome Check(const Node& node, Strings more = {}) {
  more.insert(more.begin(), "check");
  return node.Ask(more);
}

TEST(VoltarisCheck, IsOneLineWithPerformanceDataAndDetails) {
  const Node node(UnequalLamps());
  const Outcome outcome = Check(node, {"-w", "40", "-c", "50"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out.find("VOLTARIS OK - 30 W of 2 entities, 1 node | total=30W;40;50;0; "
                             "largest=20W;;;0; smallest=10W;;;0; entities=2;;;0; "
                             "unreachable=0;;;0;1 time="),
            0u)
      << outcome.out;
  EXPECT_NE(outcome.out.find("\nlargest: 20 W, lamp-2, " + DeviceId(2) + " entity 1\n"),
            std::string::npos)
      << outcome.out;
}

TEST(VoltarisCheck, OneForAWarning) {
  const Node node(UnequalLamps());
  const Outcome outcome = Check(node, {"-w", "20", "-c", "40"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out.find("VOLTARIS WARNING - total 30 W (warning: 20) |"), 0u) << outcome.out;
}

TEST(VoltarisCheck, TwoForWhatIsCritical) {
  const Node node(UnequalLamps());
  const Outcome outcome = Check(node, {"-w", "25", "-c", "largest=15", "-c", "entities=2:"});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.out.find("VOLTARIS CRITICAL - "), 0u) << outcome.out;
}

TEST(VoltarisCheck, QualifiersChooseWhatIsAddedUp) {
  const Node node(UnequalLamps());
  const Outcome outcome = Check(node, {"--name", "lamp-2", "-c", "20:20"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out.find("VOLTARIS OK - 20 W of 1 entity, "), 0u) << outcome.out;
}

TEST(VoltarisCheck, ProducersAreNotAddedToConsumers) {
  const Node node(NodeToml({{.number = 1, .name = "lamp-1"},
                            {.number = 2, .name = "roof", .more = "category = \"producer\""}}));
  EXPECT_EQ(Check(node, {"-c", "10:10"}).exit_code, 0);
  EXPECT_EQ(Check(node, {"-c", "entities=1:1", "--category", "producer"}).exit_code, 0);
}

TEST(VoltarisCheck, ThreeWhenANodeCannotBeReached) {
  const std::string nobody = NobodysAddress();
  const Outcome outcome = Voltaris({"check", "-n", nobody});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_EQ(outcome.out.find("VOLTARIS UNKNOWN - 1 node of 1 unreachable | total=U;;;0; "), 0u)
      << outcome.out;
  EXPECT_NE(outcome.out.find("\n" + nobody + ": unreachable: connection refused\n"),
            std::string::npos)
      << outcome.out;
}

TEST(VoltarisCheck, AnUnreachableNodeIsWhatTheOptionsMakeOfIt) {
  const Node node(UnequalLamps());
  const std::string both = node.address() + "," + NobodysAddress();
  const auto check = [&](Strings more) {
    more.insert(more.begin(), {"check", "-d", "test", "-n", both});
    return Voltaris(more).exit_code;
  };
  EXPECT_EQ(check({"-c", "1000:"}), 3);
  // More than 20 W it is in any case.
  EXPECT_EQ(check({"-c", "20"}), 2);
  EXPECT_EQ(check({"--on-failure", "warning"}), 1);
  EXPECT_EQ(check({"--on-failure", "critical"}), 2);
  EXPECT_EQ(check({"--on-failure", "ok"}), 0);
  EXPECT_EQ(check({"-c", "unreachable=0"}), 2);
  EXPECT_EQ(check({"-w", "unreachable=0", "-c", "unreachable=1"}), 1);
  EXPECT_EQ(check({"-w", "unreachable=1"}), 0);
}

TEST(VoltarisCheck, ThreeForWhatFaultyNodesSay) {
  for (const char* fault : {"kind = \"wrong-digest\"\n", "kind = \"malformed\"\n",
                            "kind = \"drop\"\n", "kind = \"wrong-digest\"\ndevices = \"lamp-1\"\n",
                            "kind = \"nak\"\n", "kind = \"silent\"\n"}) {
    const Node node(UnequalLamps(fault));
    const Outcome outcome = Check(node);
    EXPECT_EQ(outcome.exit_code, 3) << fault << outcome.out;
    EXPECT_EQ(outcome.out.find("VOLTARIS UNKNOWN - "), 0u) << outcome.out;
  }
}

TEST(VoltarisCheck, ASilentNodeIsUnreachableWhenTheTimeIsOver) {
  const Node node(UnequalLamps("kind = \"delay\"\ndelay = 60000\n"));
  const Outcome outcome = Check(node, {"--timeout", "0.3", "-c", "unreachable=0"});
  EXPECT_EQ(outcome.exit_code, 2);
}

TEST(VoltarisCheck, NoDeviceIsUnknownOrWhatTheirNumberSays) {
  const Node node(UnequalLamps());
  EXPECT_EQ(Check(node, {"--name", "printer"}).exit_code, 3);
  EXPECT_EQ(Check(node, {"--name", "printer", "-c", "entities=1:"}).exit_code, 2);
  EXPECT_EQ(Check(node, {"-d", "elsewhere", "-w", "entities=1:"}).exit_code, 1);
}

TEST(VoltarisCheck, ThreeForWrongUsageToldWhereTheMonitoringSystemReads) {
  for (const Strings& words :
       {Strings{"check", "--no-such-option"}, Strings{"check", "-w", "ten"},
        Strings{"check", "-w", "power=1"}, Strings{"check", "--on-failure", "fine"},
        Strings{"check", "-o", "json"}, Strings{"-o", "json", "check"},
        Strings{"check", "-n", "a b"}, Strings{"check", "--config", "/no/such/file"},
        Strings{"check", "--priority", "256"}}) {
    const Outcome outcome = Voltaris(words);
    EXPECT_EQ(outcome.exit_code, 3) << words.back();
    EXPECT_EQ(outcome.out.find("VOLTARIS UNKNOWN - "), 0u) << words.back() << outcome.out;
    EXPECT_EQ(std::ranges::count(outcome.out, '\n'), 1) << outcome.out;
  }
}

TEST(VoltarisCheck, AKeyFileThatOthersMayOpenIsNotUsed) {
  const TempFolder folder;
  const std::string path = folder.Write("key", kKeyHex, 0644);
  const Outcome outcome = Voltaris({"check", "--key-file", path});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_NE(outcome.out.find("others may open the key file"), std::string::npos) << outcome.out;
  EXPECT_EQ(outcome.out.find(kKeyHex), std::string::npos);
}

TEST(VoltarisCheck, ThreeWhenASignalEndsIt) {
  std::promise<void> asked;
  ScriptedPeer peer([&asked](PeerConnection& connection) {
    connection.ReadPdu();
    asked.set_value();
    connection.WaitForClose();
  });
  Program program("voltaris", {"check", "-n", "127.0.0.1:" + std::to_string(peer.port())});
  ASSERT_EQ(asked.get_future().wait_for(kProgramPatience), std::future_status::ready);
  program.Signal(SIGTERM);
  const Outcome outcome = program.Finish();
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_EQ(outcome.out, "VOLTARIS UNKNOWN - ended by signal 15\n");
}

TEST(VoltarisCheck, WhatADeviceCallsItselfBreaksNoLine) {
  const Node node(HostileRecording(), {}, NodeFile::kRecording);
  const Outcome outcome = Check(node, {"-c", "largest=1"});
  EXPECT_EQ(outcome.exit_code, 2) << outcome.out;
  EXPECT_NE(outcome.out.find("\\x1b]0;owned\\x07\\x0a\\x7c"), std::string::npos) << outcome.out;
  EXPECT_EQ(std::ranges::count(outcome.out, '|'), 1) << outcome.out;
}

TEST(VoltarisCheck, HelpIsNoCheck) {
  const Outcome outcome = Voltaris({"check", "--help"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.out.find("[METRIC=]RANGE"), std::string::npos);
}

}  // namespace
}  // namespace vt::testing
