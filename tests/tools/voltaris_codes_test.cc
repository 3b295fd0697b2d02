// How voltaris ends: one test for each exit code (VoltarisExitCode), further ways to them, and how
// those of several nodes become one, against nodes that fail on demand.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>
#include <string>
#include <vector>

#include "tests/harness/peer.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

// Status is the word for the only node of a JSON answer.
std::string Status(const Outcome& outcome) {
  return outcome.answer()["nodes"][0]["status"].get<std::string>();
}

Outcome CollectFrom(const Node& node, Strings more = {}) {
  more.insert(more.begin(), {"collect", "-o", "json"});
  return node.Ask(more);
}

// CollectFromAll asks several addresses at once.
Outcome CollectFromAll(const Strings& addresses, Strings more = {}) {
  more.insert(more.begin(), {"collect", "-o", "json", "-d", "test", "-n", AddressList(addresses)});
  return Voltaris(more);
}

// DeafListener is a port on which connections are made, but nobody accepts them or reads.
class DeafListener {
 public:
  DeafListener() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    const bool is_open =
        bind(fd_, any, size) == 0 && listen(fd_, 8) == 0 && getsockname(fd_, any, &size) == 0;
    EXPECT_TRUE(is_open);
    port_ = ntohs(address.sin_port);
  }
  ~DeafListener() { close(fd_); }
  DeafListener(const DeafListener&) = delete;
  DeafListener& operator=(const DeafListener&) = delete;

  std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

 private:
  int fd_;
  std::uint16_t port_ = 0;
};

TEST(VoltarisExitCode, ZeroWhenAllArrivedAndWasVerified) {
  const Node node(TwoLamps());
  const Outcome outcome = CollectFrom(node);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(Status(outcome), "ok");
}

TEST(VoltarisExitCode, OneWhenAPartIsForged) {
  const Node node(TwoLamps(FaultToml("wrong-digest", "devices = \"lamp-2\"")));
  const Outcome outcome = CollectFrom(node);
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(Status(outcome), "partial");
  EXPECT_EQ(outcome.answer()["rows"].size(), 1u);
  EXPECT_NE(outcome.err.find("of another key"), std::string::npos) << outcome.err;
}

TEST(VoltarisExitCode, TwoForWrongUsage) {
  const Outcome outcome = Voltaris({"collect", "--no-such-option"});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.out, "");
}

TEST(VoltarisExitCode, ThreeWhenNobodyListens) {
  const Outcome outcome = Voltaris({"collect", "-o", "json", "-n", NobodysAddress()});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_EQ(Status(outcome), "unreachable");
  EXPECT_NE(outcome.err.find("hint: is the node running"), std::string::npos) << outcome.err;
}

TEST(VoltarisExitCode, FourWhenANodeTakesTheQueryAndSaysNothing) {
  ScriptedPeer peer([](PeerConnection& connection) {
    connection.ReadPdu();
    connection.WaitForClose();
  });
  const Outcome outcome = Voltaris(
      {"collect", "-o", "json", "--timeout", "0.3", "--port", std::to_string(peer.port())});
  EXPECT_EQ(outcome.exit_code, 4);
  EXPECT_EQ(Status(outcome), "no-answer");
  EXPECT_TRUE(peer.Join());
}

TEST(VoltarisExitCode, FiveWhenAllAnswersAreOfAnotherKey) {
  const Node node(TwoLamps(FaultToml("wrong-digest")));
  const Outcome outcome = CollectFrom(node);
  EXPECT_EQ(outcome.exit_code, 5);
  EXPECT_EQ(Status(outcome), "unverified");
  EXPECT_NE(outcome.err.find("the key differs"), std::string::npos) << outcome.err;
}

TEST(VoltarisExitCode, SixWhenNothingCanBeDecoded) {
  const Node node(TwoLamps(FaultToml("malformed")));
  const Outcome outcome = CollectFrom(node);
  EXPECT_EQ(outcome.exit_code, 6);
  EXPECT_EQ(Status(outcome), "protocol-error");
}

TEST(VoltarisExitCode, SevenWhenAllRefuse) {
  const Node node(TwoLamps(FaultToml("nak")));
  const Outcome outcome = CollectFrom(node);
  EXPECT_EQ(outcome.exit_code, 7);
  EXPECT_EQ(Status(outcome), "refused");
  EXPECT_NE(outcome.err.find("--priority is below their importance"), std::string::npos)
      << outcome.err;
}

TEST(VoltarisExitCode, EightWhenNoDeviceIsConcerned) {
  const Node node(TwoLamps(FaultToml("silent")));
  const Outcome outcome = CollectFrom(node);
  EXPECT_EQ(outcome.exit_code, 8);
  EXPECT_EQ(Status(outcome), "nothing-matched");
  EXPECT_NE(outcome.err.find("hint: "), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.err.find("--category"), std::string::npos) << outcome.err;
}

TEST(VoltarisExitCode, NineWhenTheOutputCannotBeWritten) {
  const Node node(TwoLamps());
  const Outcome outcome = node.Ask({"record", "-o", "/nonexistent/folder/file"});
  EXPECT_EQ(outcome.exit_code, 9);
}

TEST(VoltarisExitCode, HundredAndTwentyEightAndItsNumberWhenASignalEndsIt) {
  for (const int signal : {SIGINT, SIGTERM}) {
    std::promise<void> asked;
    ScriptedPeer silent([&asked](PeerConnection& connection) {
      connection.ReadPdu();
      asked.set_value();
      connection.WaitForClose();
    });
    Program program("voltaris", {"collect", "--port", std::to_string(silent.port())});
    ASSERT_EQ(asked.get_future().wait_for(kProgramPatience), std::future_status::ready);
    program.Signal(signal);
    EXPECT_EQ(program.Finish().exit_code, 128 + signal);
  }
}

// --- the same codes, reached in other ways ---

TEST(VoltarisOtherWaysTo, ThreeWhenThereIsNoTimeForAFurtherAttempt) {
  const Outcome outcome = Voltaris(
      {"collect", "-o", "json", "-n", NobodysAddress(), "--retries", "100", "--timeout", "0.3"});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_EQ(Status(outcome), "unreachable");
  EXPECT_NE(outcome.err.find("connection refused"), std::string::npos) << outcome.err;
}

TEST(VoltarisOtherWaysTo, TwoWhenTheKeyIsAPipeThatNobodyWrites) {
  const TempFolder folder;
  const std::string pipe = folder.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string flag : {"--key-file", "--id-file"}) {
    const Outcome outcome = Voltaris({"collect", "--timeout", "0.2", flag, pipe});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_NE(outcome.err.find("nobody wrote into it in time"), std::string::npos) << outcome.err;
  }
}

TEST(VoltarisOtherWaysTo, TwoWhenAnIntervalIsNoNumber) {
  for (const std::string command : {"ping", "watch"}) {
    const Outcome outcome = Voltaris({command, "-i", "nan", "-n", NobodysAddress()});
    EXPECT_EQ(outcome.exit_code, 2) << command;
    EXPECT_NE(outcome.err.find("--interval"), std::string::npos) << outcome.err;
  }
}

// WithShell runs voltaris as a shell line says, in which it is "$0".
Outcome WithShell(const std::string& line, Strings more = {}) {
  more.insert(more.begin(), {"timeout", "-s", "KILL", "30", "sh", "-c", line,
                             std::string(VT_PROGRAM_DIR) + "/voltaris"});
  return Foreign(more);
}

TEST(VoltarisOtherWaysTo, NineWhenThereIsNoStandardOutput) {
  const Node node(TwoLamps());
  const Outcome outcome =
      WithShell("exec \"$0\" collect -d test -n \"$1\" -o json >&-", {node.address()});
  EXPECT_EQ(outcome.exit_code, 9);
  EXPECT_NE(outcome.err.find("standard output cannot be written"), std::string::npos)
      << outcome.err;
  const Outcome silent =
      WithShell("exec \"$0\" collect -d test -n \"$1\" <&- >&- 2>&-", {node.address()});
  EXPECT_EQ(silent.exit_code, 9);
}

TEST(VoltarisOtherWaysTo, ZeroWhenASignalComesThatWasIgnoredFromTheStart) {
  const Node node(TwoLamps());
  const std::string line = "trap '' INT; exec \"$0\" ping -c 2 -i 0.2 -d test -n \"$1\"";
  Program program("/usr/bin/env",
                  {"sh", "-c", line, std::string(VT_PROGRAM_DIR) + "/voltaris", node.address()});
  EXPECT_NE(program.ReadLine(), "");
  program.Signal(SIGINT);
  const Outcome outcome = program.Finish();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.out.find("2 sent, 2 answered"), std::string::npos) << outcome.out;
}

TEST(VoltarisOtherWaysTo, NineWhenHelpCannotBeWritten) {
  const Outcome outcome = WithShell("exec \"$0\" --help >/dev/full");
  EXPECT_EQ(outcome.exit_code, 9);
  EXPECT_NE(outcome.err.find("standard output cannot be written"), std::string::npos)
      << outcome.err;
}

TEST(VoltarisOtherWaysTo, ThreeWhenACheckCannotBeTold) {
  const Node node(TwoLamps());
  EXPECT_EQ(WithShell("exec \"$0\" check -d test -n \"$1\" >/dev/full", {node.address()}).exit_code,
            3);
  EXPECT_EQ(WithShell("exec \"$0\" check --no-such-option >/dev/full").exit_code, 3);
}

TEST(VoltarisOtherWaysTo, TwoWithALineForEachFaultOfAFile) {
  const TempFolder folder;
  const std::string path = folder.Write("config.toml", "prot = 1\nhost = 2\n");
  const Outcome outcome = Voltaris({"collect", "-c", path});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.err, "voltaris: " + path + ":2:1: there is no setting \"host\"\nvoltaris: " +
                             path + ":1:1: there is no setting \"prot\"\n");
}

TEST(VoltarisOtherWaysTo, OneWhenTheAnswerBreaksOff) {
  const Node node(TwoLamps(FaultToml("drop")));
  const Outcome outcome = CollectFrom(node);
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(Status(outcome), "partial");
  EXPECT_NE(outcome.err.find("cannot be decoded"), std::string::npos) << outcome.err;
}

TEST(VoltarisOtherWaysTo, TwoForAQueryThatDoesNotFit) {
  Strings words = {"collect"};
  for (int i = 0; i < 8; ++i) words.insert(words.end(), {"--name", std::string(250, 'n')});
  const Outcome outcome = Voltaris(words);
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_NE(outcome.err.find("1400 bytes"), std::string::npos) << outcome.err;
}

TEST(VoltarisOtherWaysTo, FourWhenAnAnswerIsLate) {
  const Node node(TwoLamps(FaultToml("delay", "delay = 60000")));
  const Outcome outcome = CollectFrom(node, {"--timeout", "0.3"});
  EXPECT_EQ(outcome.exit_code, 4);
  EXPECT_EQ(Status(outcome), "no-answer");
}

TEST(VoltarisOtherWaysTo, FourWhenAnAnswerDrips) {
  const Node node(TwoLamps(FaultToml("drip", "bytes = 1\npause = 1000")));
  const Outcome outcome = CollectFrom(node, {"--timeout", "0.3"});
  EXPECT_EQ(outcome.exit_code, 4);
  EXPECT_EQ(outcome.answer()["nodes"][0]["messages"], 0);
}

TEST(VoltarisOtherWaysTo, FourWhenAConnectionIsHalfOpen) {
  const DeafListener deaf;
  const Outcome outcome =
      Voltaris({"collect", "-o", "json", "--timeout", "0.3", "-n", deaf.address()});
  EXPECT_EQ(outcome.exit_code, 4);
  EXPECT_EQ(Status(outcome), "no-answer");
}

TEST(VoltarisOtherWaysTo, SixWhenTheConnectionIsReset) {
  const Node node(TwoLamps(FaultToml("close-early", "messages = 0\nreset = true")));
  const Outcome outcome = CollectFrom(node);
  EXPECT_EQ(outcome.exit_code, 6);
  EXPECT_NE(outcome.err.find("Connection reset"), std::string::npos) << outcome.err;
}

TEST(VoltarisOtherWaysTo, EightWhenDevicesThatAreTooImportantSayNothing) {
  const std::string exit = NodeToml({{.number = 1, .name = "lamp-exit", .importance = 200}});
  const Node refusing(exit);
  EXPECT_EQ(CollectFrom(refusing).exit_code, 7);
  const Node silent(exit + "[[fault]]\nkind = \"silent\"\n");
  const Outcome outcome = CollectFrom(silent);
  EXPECT_EQ(outcome.exit_code, 8);
  EXPECT_EQ(Status(outcome), "nothing-matched");
  EXPECT_NE(outcome.err.find("the --priority is below their importance"), std::string::npos)
      << outcome.err;
}

TEST(VoltarisOtherWaysTo, EightWhenNoQualifierIsMetAndNobodySaysSo) {
  const Node node(TwoLamps(FaultToml("silent")));
  EXPECT_EQ(CollectFrom(node, {"--role", "heater"}).exit_code, 8);
  EXPECT_EQ(node.Ask({"sum", "--role", "heater"}).exit_code, 8);
}

TEST(VoltarisExitCodeOfSeveral, ZeroWhenAllAnswered) {
  const Node first(TwoLamps());
  const Node second(TwoLamps());
  EXPECT_EQ(CollectFromAll({first.address(), second.address()}).exit_code, 0);
}

TEST(VoltarisExitCodeOfSeveral, ZeroWhenOneHasNoSuchDeviceAndSaysSo) {
  const Node lamps(TwoLamps());
  const Node heater(NodeToml({{.number = 3, .name = "heater", .role = "heater"}}));
  const Outcome outcome = CollectFromAll({lamps.address(), heater.address()}, {"--role", "lamp"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.answer()["nodes"][1]["status"], "refused");
}

TEST(VoltarisExitCodeOfSeveral, OneWhenSomeAnsweredAndSomeDidNot) {
  const Node node(TwoLamps());
  const std::string nobody = NobodysAddress();
  const Outcome outcome = CollectFromAll({nobody, node.address()});
  EXPECT_EQ(outcome.exit_code, 1);
  const nlohmann::json nodes = outcome.answer()["nodes"];
  EXPECT_EQ(nodes[0]["status"], "unreachable");
  EXPECT_EQ(nodes[0]["exit_code"], 3);
  EXPECT_EQ(nodes[1]["status"], "ok");
  EXPECT_NE(outcome.err.find(nobody + ": connection refused"), std::string::npos) << outcome.err;
}

TEST(VoltarisExitCodeOfSeveral, TheOneThatTellsMostWhenNobodyAnswered) {
  const Node forged(TwoLamps(FaultToml("wrong-digest")));
  const Node refusing(TwoLamps(FaultToml("nak")));
  EXPECT_EQ(CollectFromAll({NobodysAddress(), NobodysAddress()}).exit_code, 3);
  EXPECT_EQ(CollectFromAll({NobodysAddress(), refusing.address()}).exit_code, 7);
  EXPECT_EQ(CollectFromAll({refusing.address(), forged.address(), NobodysAddress()}).exit_code, 5);
}

}  // namespace
}  // namespace vt::testing
