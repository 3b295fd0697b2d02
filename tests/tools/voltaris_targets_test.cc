// Which nodes voltaris asks and how: files of targets, names, and settings that come from files.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

Strings NamesIn(const nlohmann::json& answer) {
  Strings names;
  for (const auto& row : answer["rows"]) names.push_back(row["name"]);
  return names;
}

// A resolver refuses it by its length, without asking anybody.
std::string NameOfNobody() { return std::string(64, 'a'); }

class VoltarisTargets : public ::testing::Test {
 protected:
  // The first node has a key, which the second does not know.
  VoltarisTargets() {
    folder_.Write("targets.toml",
                  "[defaults]\ndomain = \"test\"\n\n"
                  "[groups.upper]\nlabels = { floor = \"2\" }\nkey-file = \"key\"\n\n"
                  "[[target]]\nname = \"attic\"\nhost = \"" +
                      first_.address() +
                      "\"\ngroups = [\"upper\"]\n\n"
                      "[[target]]\nname = \"cellar\"\nhost = \"" +
                      second_.address() + "\"\n");
  }

  Outcome Run(Strings words, const Environment& environment = {}) const {
    words.insert(words.end(), {"-o", "json"});
    return Voltaris(words, environment);
  }

  TempFolder folder_;
  std::string key_ = folder_.Write("key", kKeyHex);
  std::string targets_ = folder_.path("targets.toml");
  Node first_{OneLamp(1), {"--key-file", key_}};
  Node second_{OneLamp(2)};
};

TEST_F(VoltarisTargets, OfAFileAreAskedEachAsItTells) {
  const nlohmann::json answer = Run({"collect", "-N", targets_}).answer();
  EXPECT_EQ(answer["summary"]["exit_code"], 0);
  EXPECT_EQ(NamesIn(answer), (Strings{"lamp-1", "lamp-2"}));
  ASSERT_EQ(answer["nodes"].size(), 2u);
  EXPECT_EQ(answer["nodes"][0]["labels"], nlohmann::json({{"floor", "2"}}));
  EXPECT_EQ(answer["nodes"][1]["labels"], nlohmann::json::object());
}

TEST_F(VoltarisTargets, AreChosenByGroupLabelAndName) {
  for (const char* chosen : {"@upper", "@floor=2", "attic"}) {
    const nlohmann::json answer = Run({"collect", "-N", targets_, "-n", chosen}).answer();
    EXPECT_EQ(NamesIn(answer), Strings{"lamp-1"}) << chosen;
  }
}

TEST_F(VoltarisTargets, AFlagComesBeforeWhatTheFileTells) {
  const Outcome outcome = Run({"collect", "-N", targets_, "-d", "elsewhere"});
  EXPECT_EQ(outcome.exit_code, 8) << outcome.err;
}

TEST_F(VoltarisTargets, AreSetAndSummedUpEachAsTheFileTells) {
  const Outcome set = Run({"set", "level=3", "--yes", "-N", targets_});
  EXPECT_EQ(set.exit_code, 0) << set.err;
  EXPECT_EQ(set.answer()["rows"].size(), 2u);
  EXPECT_EQ(Run({"sum", "-N", targets_}).answer()["rows"].size(), 2u);
}

TEST_F(VoltarisTargets, NamesOfHostsAreLookedUp) {
  const std::string name = "localhost:" + std::to_string(second_.port());
  const nlohmann::json answer = Run({"collect", "-d", "test", "-n", name}).answer();
  EXPECT_EQ(NamesIn(answer), Strings{"lamp-2"});
  EXPECT_EQ(answer["nodes"][0]["node"], name);
}

TEST_F(VoltarisTargets, ANameThatNobodyHasIsANodeWithoutAConnection) {
  const Outcome alone = Run({"collect", "-n", NameOfNobody()});
  EXPECT_EQ(alone.exit_code, 3);
  EXPECT_EQ(alone.answer()["nodes"][0]["status"], "unreachable");
  EXPECT_EQ(alone.answer()["nodes"][0]["attempts"], 0);
  EXPECT_NE(alone.err.find(NameOfNobody() + ":7440: "), std::string::npos) << alone.err;

  const Outcome beside =
      Run({"collect", "-d", "test", "-n", NameOfNobody() + "," + second_.address()});
  EXPECT_EQ(beside.exit_code, 1);
  EXPECT_EQ(NamesIn(beside.answer()), Strings{"lamp-2"});
}

TEST_F(VoltarisTargets, SettingsOfAFileHoldForEveryCommand) {
  const std::string settings =
      folder_.Write("config.toml",
                    "targets = \"targets.toml\"\ncolumns = [\"name\"]\nsort = \"name:desc\"\n"
                    "no-header = true\n\n[profiles.cellar]\nnode = \"cellar\"\n");
  const Environment environment = {{"VOLTARIS_CONFIG", settings}};
  EXPECT_EQ(Voltaris({"collect"}, environment).out, "lamp-2\nlamp-1\n");
  EXPECT_EQ(Voltaris({"collect", "--profile", "cellar"}, environment).out, "lamp-2\n");
  // A sum has no names: columns that do not suit it are left alone, unless a flag asks for them.
  const Outcome sum = Voltaris({"sum", "--profile", "cellar"}, environment);
  EXPECT_EQ(sum.out, DeviceId(0) + "       1   10 W\n") << sum.err;
  EXPECT_EQ(Voltaris({"sum", "--columns", "name"}, environment).exit_code, 2);
}

TEST_F(VoltarisTargets, ARecordingIsMadeWhateverFormOtherCommandsPrint) {
  const std::string settings =
      folder_.Write("config.toml", "output = \"json\"\ndomain = \"test\"\n");
  const Outcome outcome =
      Voltaris({"record", "name", "-n", second_.address()}, {{"VOLTARIS_CONFIG", settings}});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("\"lamp-2\""), std::string::npos) << outcome.out;
}

TEST_F(VoltarisTargets, WhatIsWrongInAFileIsToldWithItsPlace) {
  const std::string settings = folder_.Write("config.toml", "\nport = 70000\n");
  const Outcome outcome = Voltaris({"collect", "-c", settings});
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_NE(outcome.err.find(settings + ":2:8: 'port' must be"), std::string::npos) << outcome.err;
}

}  // namespace
}  // namespace vt::testing
