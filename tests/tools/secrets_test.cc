// Secrets stay where they are: in no line of either program at the level that tells most, in no
// error, in no list of processes, and in no core file.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <future>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/harness/peer.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

// No six bytes of it occur anywhere by accident.
constexpr const char* kSecretKey = "9f3c5a71d2e84b60c7a1f59e0d3b8264aa17c95e";
constexpr const char* kPassphrase = "quartz-lantern-orbit-meadow";

std::string DigitsOf(std::string_view text) {
  std::string digits;
  for (const char letter : text) {
    if (isxdigit(static_cast<unsigned char>(letter)) != 0) {
      digits += static_cast<char>(tolower(letter));
    }
  }
  return digits;
}

// HoldsPartOf tells whether six bytes in a row of a secret are in a text.
bool HoldsPartOf(std::string_view secret, std::string_view text, std::size_t part) {
  for (std::size_t start = 0; start + part <= secret.size(); ++start) {
    if (text.find(secret.substr(start, part)) != std::string_view::npos) return true;
  }
  return false;
}

bool TellsTheKey(const std::string& text) {
  const Bytes key = Hex(kSecretKey);
  const std::string raw(key.begin(), key.end());
  return HoldsPartOf(kSecretKey, DigitsOf(text), 12) || HoldsPartOf(raw, text, 6);
}

void ExpectNothingTold(const std::string& text, const std::string& who) {
  EXPECT_FALSE(TellsTheKey(text)) << who << " tells the key:\n" << text;
  EXPECT_FALSE(HoldsPartOf(kPassphrase, text, 6)) << who << " tells the passphrase:\n" << text;
}

std::string CommandLine(const Strings& words) {
  std::string line;
  for (const std::string& word : words) line += word + ' ';
  return line;
}

class Secrets : public ::testing::Test {
 protected:
  // Trace runs voltaris at the level that tells most, and looks for secrets in all that it writes.
  Outcome Trace(const Node* node, Strings arguments) const {
    arguments.emplace_back("-vvv");
    const Outcome outcome = node != nullptr ? node->Ask(arguments) : Voltaris(arguments);
    ExpectNothingTold(outcome.out + outcome.err, CommandLine(arguments));
    return outcome;
  }

  TempFolder folder_;
  std::string key_ = folder_.Write("site.key", kSecretKey);
};

TEST(SecretsHelper, FindsTheKeyInEveryFormThatALogMayHave) {
  const Bytes key = Hex(kSecretKey);
  EXPECT_TRUE(TellsTheKey("key: 9F 3C 5A 71 D2 E8"));
  EXPECT_TRUE(TellsTheKey("c7a1f59e0d3b8264"));
  EXPECT_TRUE(TellsTheKey("x" + std::string(key.begin(), key.end())));
  EXPECT_FALSE(TellsTheKey("an answer of another key"));
}

TEST_F(Secrets, AreInNoLineOfACommandThatAsksANode) {
  Node node(TwoLamps(), {"--key-file", key_, "--log-level", "trace"});
  const std::string recording = folder_.path("made.recording");
  for (Strings arguments :
       {Strings{"collect"}, Strings{"collect", "-o", "json"}, Strings{"sum"},
        Strings{"set", "level=3", "--yes"}, Strings{"check", "-w", "1000"}, Strings{"ping"},
        Strings{"watch", "--count", "1"}, Strings{"record", "--output", recording}}) {
    arguments.insert(arguments.end(), {"--key-file", key_});
    const Outcome outcome = Trace(&node, arguments);
    EXPECT_EQ(outcome.exit_code, 0) << CommandLine(arguments) << outcome.err;
    EXPECT_NE(outcome.err.find("[trace]"), std::string::npos) << CommandLine(arguments);
  }
  ExpectNothingTold(folder_.Read("made.recording"), "the recording");
  ExpectNothingTold(node.Stop().err, "the node");
}

TEST_F(Secrets, AreNotToldWhenTheOtherSideHasAnotherKey) {
  Node node(TwoLamps(), {"--key-file", folder_.Write("other", kKeyHex), "--log-level", "trace"});
  EXPECT_NE(Trace(&node, {"collect", "--key-file", key_}).exit_code, 0);
  Node own(TwoLamps(), {"--key-file", key_, "--log-level", "trace"});
  EXPECT_NE(Trace(&own, {"collect", "--key-file", folder_.path("other")}).exit_code, 0);
  ExpectNothingTold(node.Stop().err, "the node of another key");
  ExpectNothingTold(own.Stop().err, "the node");
}

TEST_F(Secrets, AreInNoLineOfACommandThatAsksNoNode) {
  const std::string phrase = folder_.Write("site.phrase", kPassphrase);
  const std::string message = folder_.Write("message", "not a message at all");
  const std::string derived = folder_.path("derived.key");
  for (const Strings& arguments : {
           Strings{"-vvv", "key", "check", key_},
           Strings{"-vvv", "key", "derive", "--passphrase-file", phrase, "--id",
                   "0123456789abcdef0123456789abcdef", derived},
           Strings{"-vvv", "decode", "--key-file", key_, message},
           Strings{"config", "check", "--key-file", key_, "-vvv"},
           Strings{"config", "show", "--origin", "--key-file", key_},
           Strings{"nodes", "--key-file", key_, "-o", "json"},
       }) {
    const Outcome outcome = Voltaris(arguments);
    ExpectNothingTold(outcome.out + outcome.err, CommandLine(arguments));
  }
  const Outcome checked = Voltaris({"-vvv", "key", "check", derived});
  EXPECT_EQ(checked.exit_code, 0) << checked.err;
  const std::string key = folder_.Read("derived.key").substr(0, 40);
  ASSERT_EQ(key.size(), 40u);
  EXPECT_FALSE(HoldsPartOf(key, DigitsOf(checked.out + checked.err), 12));
}

TEST_F(Secrets, AreInNoErrorOfAFileThatCannotBeUsed) {
  const std::string short_key = std::string(kSecretKey).substr(0, 39);
  const std::string phrase = std::string(kPassphrase) + std::string(2000, 'x');
  const Strings files = {folder_.Write("open.key", kSecretKey, 0644),
                         folder_.Write("short.key", short_key),
                         folder_.Write("long.key", std::string(kSecretKey) + "99"),
                         folder_.Write("odd.key", short_key + "g")};
  for (const std::string& file : files) {
    for (const Strings& arguments :
         {Strings{"collect", "--key-file", file}, Strings{"key", "check", file},
          Strings{"config", "check", "--key-file", file},
          Strings{"decode", "--hex", "00", "--key-file", file}}) {
      EXPECT_EQ(Voltaris(arguments).exit_code, 2) << CommandLine(arguments);
      const Outcome outcome = Voltaris(arguments);
      ExpectNothingTold(outcome.out + outcome.err, CommandLine(arguments));
    }
  }
  const Outcome derived =
      Voltaris({"key", "derive", "--passphrase-file", folder_.Write("long.phrase", phrase), "--id",
                "0123456789abcdef0123456789abcdef", folder_.path("no.key")});
  EXPECT_EQ(derived.exit_code, 2);
  ExpectNothingTold(derived.out + derived.err, "key derive");
}

// CoreLimit is the first number of the line that tells how large a core file may be.
std::string CoreLimit(pid_t pid) {
  const std::string limits = ProcFile(pid, "limits");
  const std::string title = "Max core file size";
  const std::size_t at = limits.find(title);
  if (at == std::string::npos) return "unknown";
  std::istringstream rest(limits.substr(at + title.size()));
  std::string soft;
  rest >> soft;
  return soft;
}

// The run times of the sanitizers forbid core files unless they are told not to.
void AllowCoresOfSanitized() {
  for (const char* name : {"ASAN_OPTIONS", "MSAN_OPTIONS", "TSAN_OPTIONS"}) {
    const char* const before = getenv(name);
    const std::string now = std::string(before == nullptr ? "" : before) + ":disable_coredump=0";
    setenv(name, now.c_str(), 1);
  }
}

// CoresAllowed lets this process leave core files, as long as it lives, and those that it starts.
class CoresAllowed {
 public:
  CoresAllowed() {
    getrlimit(RLIMIT_CORE, &before_);
    struct rlimit raised = before_;
    raised.rlim_cur = raised.rlim_max;
    setrlimit(RLIMIT_CORE, &raised);
    AllowCoresOfSanitized();
  }
  ~CoresAllowed() { setrlimit(RLIMIT_CORE, &before_); }
  CoresAllowed(const CoresAllowed&) = delete;
  CoresAllowed& operator=(const CoresAllowed&) = delete;

  bool possible() const { return before_.rlim_max != 0; }

 private:
  struct rlimit before_ {};
};

void ExpectNoCoreOf(pid_t pid) {
  EXPECT_EQ(CoreLimit(pid), "0");
  // The files of a process that may not be dumped belong to root. Of root's own they do anyhow.
  struct stat status {};
  ASSERT_EQ(stat(("/proc/" + std::to_string(pid) + "/stat").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0u);
}

TEST_F(Secrets, AreInNoCoreFileOfANode) {
  const CoresAllowed cores;
  if (!cores.possible()) GTEST_SKIP() << "whoever started the tests forbids core files";
  Node without(TwoLamps());
  EXPECT_NE(CoreLimit(without.program().pid()), "0");
  Node with(TwoLamps(), {"--key-file", key_});
  ExpectNoCoreOf(with.program().pid());
}

TEST_F(Secrets, AreInNoCoreFileAndNoProcessListWhileVoltarisWaits) {
  const CoresAllowed cores;
  if (!cores.possible()) GTEST_SKIP() << "whoever started the tests forbids core files";
  for (const bool has_key : {false, true}) {
    std::promise<void> asked;
    ScriptedPeer peer([&](PeerConnection& connection) {
      connection.ReadPdu();
      asked.set_value();
      connection.WaitForClose();
    });
    const Environment environment =
        has_key ? Environment{{"VOLTARIS_KEY_FILE", key_}} : Environment{};
    Program voltaris("voltaris", {"collect", "-p", std::to_string(peer.port())}, environment);
    ASSERT_EQ(asked.get_future().wait_for(kPeerPatience), std::future_status::ready);
    if (has_key) {
      ExpectNoCoreOf(voltaris.pid());
    } else {
      EXPECT_NE(CoreLimit(voltaris.pid()), "0");
    }
    EXPECT_NE(ProcFile(voltaris.pid(), "cmdline").find("collect"), std::string::npos);
    ExpectNothingTold(ProcFile(voltaris.pid(), "cmdline"), "the list of processes");
    ExpectNothingTold(ProcFile(voltaris.pid(), "environ"), "the environment");
    voltaris.Signal(SIGTERM);
    EXPECT_EQ(voltaris.Finish().exit_code, 128 + SIGTERM);
  }
}

}  // namespace
}  // namespace vt::testing
