// voltaris ping against nodes that answer, and against such that do not.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/harness/peer.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

Outcome Ping(const Node& node, Strings more = {}) {
  more.insert(more.begin(), "ping");
  return node.Ask(more);
}

// Document is that of -o json, which the published schema describes.
nlohmann::json Document(const Outcome& outcome) {
  nlohmann::json document = outcome.json();
  std::string faults;
  EXPECT_TRUE(MatchesSchema("voltaris-ping-1", document, &faults)) << faults << outcome.out;
  return document;
}

TEST(VoltarisPing, TellsTheTimeOfEachPhase) {
  const Node node(TwoLamps());
  const Outcome outcome = Ping(node);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out.find(node.address() + ": 1: "), 0u) << outcome.out;
  for (const char* phase : {" ms (connect ", ", send ", ", first byte ", ", verify "}) {
    EXPECT_NE(outcome.out.find(phase), std::string::npos) << phase << outcome.out;
  }
  EXPECT_NE(outcome.out.find(node.address() + ": 1 sent, 1 answered, 0% loss; min/avg/max/mdev "),
            std::string::npos)
      << outcome.out;
}

TEST(VoltarisPing, CountsRoundTrips) {
  const Node node(TwoLamps());
  const Outcome outcome = Ping(node, {"-c", "3", "-i", "0.001"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(std::ranges::count(outcome.out, '\n'), 4);
  EXPECT_NE(outcome.out.find(": 3: "), std::string::npos);
  EXPECT_NE(outcome.out.find("3 sent, 3 answered, 0% loss"), std::string::npos) << outcome.out;
}

TEST(VoltarisPing, IsADocumentForPrograms) {
  const Node node(TwoLamps());
  const nlohmann::json document = Document(Ping(node, {"-o", "json", "-c", "2", "-i", "0.001"}));
  const nlohmann::json& told = document["nodes"][0];
  EXPECT_EQ(document["exit_code"], 0);
  EXPECT_EQ(told["status"], "ok");
  EXPECT_EQ(told["sent"], 2);
  EXPECT_EQ(told["answered"], 2);
  EXPECT_TRUE(told["name_ms"].is_null());
  ASSERT_EQ(told["pings"].size(), 2u);
  for (const char* phase : {"connect_ms", "send_ms", "first_byte_ms", "verify_ms", "total_ms"}) {
    EXPECT_TRUE(told["pings"][1][phase].is_number()) << phase;
  }
  EXPECT_LE(told["min_ms"], told["max_ms"]);
}

TEST(VoltarisPing, TakesTheFormatAlsoInFrontOfTheCommand) {
  const Node node(TwoLamps());
  EXPECT_EQ(Document(node.Ask({"-o", "json", "ping"}))["type"], "ping");
}

TEST(VoltarisPing, TellsHowLongANameTook) {
  const Node node(TwoLamps());
  const Outcome outcome = Voltaris(
      {"ping", "-d", "test", "-o", "json", "-n", "localhost:" + std::to_string(node.port())});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_TRUE(Document(outcome)["nodes"][0]["name_ms"].is_number());
}

TEST(VoltarisPing, ARefusalIsAnAnswerToo) {
  const Node node(TwoLamps(FaultToml("nak")));
  EXPECT_EQ(Ping(node).exit_code, 0);
}

TEST(VoltarisPing, ThreeWhenNobodyListens) {
  const Outcome outcome = Voltaris({"ping", "-n", NobodysAddress()});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_NE(outcome.out.find(": 1: unreachable: connection refused\n"), std::string::npos)
      << outcome.out;
  EXPECT_NE(outcome.out.find("1 sent, 0 answered, 100% loss\n"), std::string::npos);
  EXPECT_NE(outcome.err.find("hint: is the node running"), std::string::npos) << outcome.err;
}

TEST(VoltarisPing, FourWhenNothingComes) {
  const Node node(TwoLamps(FaultToml("delay", "delay = 60000")));
  const Outcome outcome = Ping(node, {"--timeout", "0.3"});
  EXPECT_EQ(outcome.exit_code, 4);
  EXPECT_NE(outcome.out.find(": 1: no-answer: "), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find(" (connect "), std::string::npos) << outcome.out;
  EXPECT_EQ(outcome.out.find("first byte"), std::string::npos) << outcome.out;
}

TEST(VoltarisPing, FourWhenAnAnswerDrips) {
  const Node node(TwoLamps(FaultToml("drip", "bytes = 1\npause = 1000")));
  const nlohmann::json document = Document(Ping(node, {"--timeout", "0.3", "-o", "json"}));
  EXPECT_EQ(document["exit_code"], 4);
  EXPECT_TRUE(document["nodes"][0]["pings"][0]["first_byte_ms"].is_number());
  EXPECT_TRUE(document["nodes"][0]["pings"][0]["verify_ms"].is_null());
}

TEST(VoltarisPing, FiveWhenTheAnswerIsOfAnotherKey) {
  const Node node(TwoLamps(FaultToml("wrong-digest")));
  const Outcome outcome = Ping(node);
  EXPECT_EQ(outcome.exit_code, 5);
  EXPECT_NE(outcome.out.find(": 1: unverified: "), std::string::npos) << outcome.out;
}

TEST(VoltarisPing, SixWhenTheAnswerCannotBeDecoded) {
  const Node node(TwoLamps(FaultToml("malformed")));
  EXPECT_EQ(Ping(node).exit_code, 6);
}

TEST(VoltarisPing, EightWhenNoDeviceHasAnythingToSay) {
  const Node node(TwoLamps());
  const Outcome outcome = Ping(node, {"-d", "elsewhere"});
  EXPECT_EQ(outcome.exit_code, 8);
  EXPECT_NE(outcome.err.find("hint: no device is in the --domain"), std::string::npos)
      << outcome.err;
}

TEST(VoltarisPing, OneWhenSomeOfTheNodesAnswer) {
  const Node node(TwoLamps());
  const std::string both = node.address() + "," + NobodysAddress();
  const Outcome outcome = Voltaris({"ping", "-d", "test", "-n", both, "-o", "json"});
  EXPECT_EQ(outcome.exit_code, 1);
  const nlohmann::json document = Document(outcome);
  EXPECT_EQ(document["nodes"][0]["status"], "ok");
  EXPECT_EQ(document["nodes"][1]["status"], "unreachable");
}

TEST(VoltarisPing, ANameThatIsUnknownIsLost) {
  const Outcome outcome = Voltaris({"ping", "-n", "no-such-name.invalid", "-o", "json"});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_EQ(Document(outcome)["nodes"][0]["status"], "unreachable");
}

TEST(VoltarisPing, TwoForWrongUsage) {
  for (const Strings& words :
       {Strings{"ping", "-c", "-1"}, Strings{"ping", "-i", "0"}, Strings{"ping", "-o", "csv"},
        Strings{"ping", "-o", "json", "-c", "0"}, Strings{"--sort", "usage", "ping"}}) {
    const Outcome outcome = Voltaris(words);
    EXPECT_EQ(outcome.exit_code, 2) << words.back();
    EXPECT_EQ(outcome.out, "");
  }
}

TEST(VoltarisPing, AFormatThatIsSetForAllCommandsDoesNotSpoilIt) {
  const Node node(TwoLamps());
  EXPECT_EQ(node.Ask({"ping"}, {{"VOLTARIS_OUTPUT", "csv"}}).exit_code, 0);
  EXPECT_EQ(Document(node.Ask({"ping"}, {{"VOLTARIS_OUTPUT", "json"}}))["type"], "ping");
}

TEST(VoltarisPing, ASignalEndsItWithWhatThereIs) {
  const Node node(TwoLamps());
  Program program("voltaris",
                  {"ping", "-c", "0", "-i", "3600", "-d", "test", "-n", node.address()});
  EXPECT_NE(program.ReadLine().find(": 1: "), std::string::npos);
  program.Signal(SIGINT);
  const Outcome outcome = program.Finish();
  EXPECT_EQ(outcome.exit_code, 128 + SIGINT);
  EXPECT_NE(outcome.out.find("1 sent, 1 answered, 0% loss"), std::string::npos) << outcome.out;
}

TEST(VoltarisPing, NoKeyIsTold) {
  const TempFolder folder;
  const std::string path = folder.Write("key", kKeyHex);
  const Node node(TwoLamps(), {"--key-file", path});
  const Outcome outcome = Ping(node, {"--key-file", path, "-vvv"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ((outcome.out + outcome.err).find(kKeyHex), std::string::npos);
}

}  // namespace
}  // namespace vt::testing
