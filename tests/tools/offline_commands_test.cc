// The commands that ask no node, run as processes: what reaches which stream, what the shell is
// told, and that settings come from the environment and from files.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/harness/pdu_image.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

class OfflineCommands : public ::testing::Test {
 protected:
  OfflineCommands() {
    std::filesystem::create_directories(folder_.path("xdg/voltaris"));
    file_ = folder_.Write("xdg/voltaris/config.toml", "domain = \"of-the-file\"\n");
  }

  // Run has the configuration of the test and no other of the user's.
  Outcome Run(const std::vector<std::string>& arguments, Environment environment = {}) const {
    environment["XDG_CONFIG_HOME"] = folder_.path("xdg");
    return Voltaris(arguments, environment);
  }

  TempFolder folder_;
  std::string file_;
};

TEST_F(OfflineCommands, SettingsComeFromTheUsersFileTheEnvironmentAndFlags) {
  const auto line_of = [this](const std::vector<std::string>& flags, const Environment& variables) {
    std::vector<std::string> words = {"config", "show", "--origin"};
    words.insert(words.end(), flags.begin(), flags.end());
    const Outcome outcome = Run(words, variables);
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    const std::size_t start = outcome.out.find("domain = ");
    return outcome.out.substr(start, outcome.out.find('\n', start) - start);
  };
  EXPECT_EQ(line_of({}, {}), "domain = \"of-the-file\"  # " + file_ + ":1:10");
  EXPECT_EQ(line_of({}, {{"VOLTARIS_DOMAIN", "v"}}), "domain = \"v\"  # VOLTARIS_DOMAIN");
  EXPECT_EQ(line_of({"-d", "f"}, {{"VOLTARIS_DOMAIN", "v"}}), "domain = \"f\"  # --domain");
}

TEST_F(OfflineCommands, FaultsOfFilesGoToStandardErrorWithLineAndColumn) {
  folder_.Write("xdg/voltaris/config.toml", "\nport = 0\n");
  const Outcome outcome = Run({"config", "check"});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "voltaris: " + file_ +
                             ":2:8: 'port' must be a whole number from 1 to 65535, not '0'\n");
}

TEST_F(OfflineCommands, EachOfSeveralFaultsOfAFileHasALineOfItsOwn) {
  folder_.Write("xdg/voltaris/config.toml", "port = 0\npriorty = 50\n");
  const std::string port = file_ + ":1:8: 'port' must be a whole number from 1 to 65535, not '0'";
  const std::string unknown = file_ + ":2:1: there is no setting \"priorty\"";
  for (const char* command : {"collect", "nodes"}) {
    const Outcome outcome = Run({command});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.err, "voltaris: " + port + "\nvoltaris: " + unknown + "\n");
  }
  EXPECT_EQ(Run({"check"}).out, "VOLTARIS UNKNOWN - " + port + "; " + unknown + "\n");
}

TEST_F(OfflineCommands, KeysAreMadeForTheirOwnerAndCheckedForIt) {
  const std::string path = folder_.path("new.key");
  EXPECT_EQ(Run({"key", "generate", path}).exit_code, 0);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
  EXPECT_EQ(Run({"key", "check", path}).exit_code, 0);
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  const Outcome open = Run({"key", "check", path});
  EXPECT_EQ(open.exit_code, 2);
  EXPECT_EQ(open.out, "");
}

TEST_F(OfflineCommands, AnIdentityIsALineOf32Characters) {
  const Outcome outcome = Run({"id", "random"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out.size(), 33u);
}

TEST_F(OfflineCommands, DecodeTellsTheShellWhetherMessagesAreSignedWithTheKey) {
  const std::string key = folder_.Write("key", kKeyHex);
  const auto write = [this](const char* name, const Bytes& bytes) {
    return folder_.Write(name, std::string(bytes.begin(), bytes.end()));
  };
  const std::string right = write("right", PduImage().Signed(KeyBytes()));
  const std::string forged = write("forged", PduImage().Signed(Text("other")));
  EXPECT_EQ(Run({"decode", right, "--key-file", key}).exit_code, 0);
  EXPECT_EQ(Run({"decode", forged, "--key-file", key}).exit_code, 5);
  // Nothing secret is told at the level that tells most.
  const Outcome traced = Run({"-vvv", "decode", right, "--key-file", key});
  EXPECT_EQ(traced.exit_code, 0);
  EXPECT_EQ((traced.out + traced.err).find(std::string(kKeyHex).substr(0, 16)), std::string::npos);
}

TEST_F(OfflineCommands, TakeWhatStandsInFrontOfThemAndRefuseTheRest) {
  const std::string key = folder_.Write("key", kKeyHex);
  const Bytes forged = PduImage().Signed(Text("other"));
  const std::string file = folder_.Write("forged", std::string(forged.begin(), forged.end()));
  EXPECT_EQ(Run({"-k", key, "decode", file}).exit_code, 5);
  EXPECT_EQ(Run({"-k", "/nonexistent", "decode", "--key-file", key, file}).exit_code, 5);
  EXPECT_EQ(Run({"-o", "json", "decode", file}).answer()["schema"], "voltaris-decode-1");
  EXPECT_EQ(Run({"-o", "json", "attrs"}).answer()["schema"], "voltaris-attrs-1");
  EXPECT_EQ(
      Run({"-d", "front", "config", "show", "-o", "json"}).answer()["settings"]["domain"]["value"],
      "front");
  EXPECT_EQ(Run({"--color", "never", "--progress", "never", "attrs"}).exit_code, 0);
  const struct {
    std::vector<std::string> words;
    std::string reason;
  } refused[] = {
      {{"-N", "targets.toml", "decode", file}, "decode takes no --targets"},
      {{"-c", "config.toml", "decode", file}, "decode takes no --config"},
      {{"-o", "csv", "decode", file}, "csv"},
      {{"-p", "0", "decode", file}, "--port"},
      {{"-k", key, "key", "generate", folder_.path("new")}, "key generate takes no --key-file"},
      {{"--log-format", "xml", "attrs"}, "text, json"},
  };
  for (const auto& c : refused) {
    const Outcome outcome = Run(c.words);
    EXPECT_EQ(outcome.exit_code, 2) << c.reason;
    EXPECT_EQ(outcome.out, "") << c.reason;
    EXPECT_NE(outcome.err.find(c.reason), std::string::npos) << outcome.err;
  }
}

TEST_F(OfflineCommands, TellEveryFaultAsTheOthersDo) {
  const std::string open = folder_.Write("open", kKeyHex, 0644);
  const std::string empty = folder_.Write("empty", "none");
  const std::vector<std::string> check = {"key", "check", open, folder_.path("missing\x1b[31m")};
  const std::vector<std::vector<std::string>> commands = {check, {"decode", empty}};
  for (const std::vector<std::string>& command : commands) {
    const Outcome plain = Run(command);
    EXPECT_TRUE(plain.err.starts_with("voltaris: ")) << plain.err;
    EXPECT_EQ(plain.err.find('\x1b'), std::string::npos);
    std::vector<std::string> with_flags = {"--log-format", "json", "-q"};
    with_flags.insert(with_flags.end(), command.begin(), command.end());
    for (const Outcome& told : {Run(with_flags), Run(command, {{"VOLTARIS_LOG_FORMAT", "json"}})}) {
      EXPECT_EQ(told.exit_code, plain.exit_code);
      EXPECT_NE(told.err, "");
      for (const nlohmann::json& line : LogLines(told.err)) EXPECT_EQ(line["level"], "error");
    }
  }
}

TEST_F(OfflineCommands, WithoutTheSubcommandTheyAreWrongUsage) {
  for (const char* command : {"key", "id", "config"}) {
    const Outcome outcome = Run({command});
    EXPECT_EQ(outcome.exit_code, 2) << command;
    EXPECT_EQ(outcome.out, "") << command;
  }
}

}  // namespace
}  // namespace vt::testing
