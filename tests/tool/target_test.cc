// Files of targets, and which of them a run asks.
#include <gtest/gtest.h>

#include "tests/tools/programs.h"
#include "tools/exit_code.h"
#include "tools/target_file.h"
#include "tools/target_selection.h"

namespace vt::tools {
namespace {

using Strings = std::vector<std::string>;

constexpr const char* kLab =
    "[defaults]\n"
    "domain = \"lab\"\n"
    "labels = { site = \"north\" }\n"
    "[groups.racks]\n"
    "nodes = [\"pdu[01-03].lab\", \"192.0.2.[1-2]:7441\"]\n"
    "key-file = \"racks.key\"\n"
    "labels = { room = \"b12\" }\n"
    "[groups.power]\n"
    "nodes = \"pdu03.lab\"\n"
    "priority = 7\n"
    "labels = { room = \"other\", kind = \"feed\" }\n"
    "[[target]]\n"
    "name = \"ups-1\"\n"
    "host = \"192.0.2.77\"\n"
    "port = 7442\n"
    "domain = \"ups\"\n"
    "groups = [\"power\"]\n";

class TargetTest : public ::testing::Test {
 protected:
  std::vector<ListedTarget> Read(const std::string& content) {
    return ReadTargetFile(folder_.Write("targets.toml", content), "/home/someone");
  }
  std::string FaultOfFile(const std::string& content) {
    try {
      Read(content);
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), kExitUsage);
      return failure.what();
    }
    return "none";
  }
  std::string path() const { return folder_.path("targets.toml"); }

  std::vector<Target> Select(const Strings& nodes,
                             std::map<std::string, Strings, std::less<>> flags = {}) {
    ConfigurationSources sources;
    sources.system_file = folder_.path("none");
    sources.flags = std::move(flags);
    if (!nodes.empty()) sources.flags["node"] = nodes;
    return SelectTargets(Configuration::Load(sources), "/home/someone");
  }
  Strings Names(const Strings& nodes, std::map<std::string, Strings, std::less<>> flags = {}) {
    Strings names;
    for (const Target& target : Select(nodes, std::move(flags))) names.push_back(target.name);
    return names;
  }

  vt::testing::TempFolder folder_;
};

TEST_F(TargetTest, GroupsListNamesAndRanges) {
  const std::vector<ListedTarget> targets = Read(kLab);
  ASSERT_EQ(targets.size(), 6u);
  EXPECT_EQ(targets[0].target.name, "ups-1");
  EXPECT_EQ(targets[0].target.host, "192.0.2.77");
  EXPECT_EQ(targets[0].target.port, 7442);
  EXPECT_EQ(targets[0].target.domain, "ups");
  EXPECT_EQ(targets[0].target.priority, 7);
  EXPECT_EQ(targets[0].groups, Strings{"power"});
  EXPECT_EQ(targets[1].target.name, "pdu03.lab");
  EXPECT_EQ(targets[1].groups, (Strings{"power", "racks"}));
  EXPECT_EQ(targets[2].target.name, "pdu01.lab");
  EXPECT_EQ(targets[2].target.domain, "lab");
  EXPECT_EQ(targets[2].target.port, 7440);
  EXPECT_EQ(targets[2].target.key_file, folder_.path("racks.key"));
  EXPECT_EQ(targets[4].target.host, "192.0.2.1");
  EXPECT_EQ(targets[4].target.port, 7441);
}

TEST_F(TargetTest, ANodeOfTwoGroupsIsToldAsTheFirstSaysAndHasTheLabelsOfBoth) {
  const Target both = Read(kLab)[1].target;
  EXPECT_EQ(both.priority, 7);
  EXPECT_EQ(both.key_file, folder_.path("racks.key"));
  EXPECT_EQ(both.labels, (std::vector<std::pair<std::string, std::string>>{
                             {"kind", "feed"}, {"room", "other"}, {"site", "north"}}));
}

TEST_F(TargetTest, AllThatIsWrongIsToldWithLineAndColumn) {
  const std::string fault = FaultOfFile(
      "colour = 1\n"
      "[defaults]\n"
      "port = 0\n"
      "[groups.a]\n"
      "nodes = [\"x[2-1]\", \"a b\"]\n"
      "priority = 256\n"
      "key = \"secret-word\"\n"
      "[groups.b]\n"
      "labels = { room = 12 }\n"
      "[[target]]\n"
      "host = \"y\"\n"
      "[[target]]\n"
      "name = \"z\"\n"
      "host = \"z:0\"\n");
  for (const char* line : {
           ":1:1: there is no setting \"colour\" here",
           ":3:8: 'port' must be a whole number from 1 to 65535",
           ":5:9: \"x[2-1]\" has a range that ends before it begins",
           ":5:9: \"a b\" is no name or IPv4 address of a node",
           ":6:12: 'priority' must be a whole number from 0 to 255",
           ":7:1: there is no setting \"key\" here",
           ":9:19: 'room' must be a text that is not empty",
           ":10:1: 'name' is missing",
           ":14:8: \"z:0\" must have a port from 1 to 65535 behind its colon",
       }) {
    EXPECT_NE(fault.find(path() + line), std::string::npos) << line << "\nis not in\n" << fault;
  }
  EXPECT_EQ(fault.find("secret-word"), std::string::npos);
}

TEST_F(TargetTest, TwoTargetsOfOneNameAreRefused) {
  EXPECT_EQ(FaultOfFile("[[target]]\nname = \"a\"\n[[target]]\nname = \"a\"\n"),
            path() + ":3:1: there is a target \"a\" already");
}

TEST_F(TargetTest, MoreNodesThanAreAllowedAreRefused) {
  const std::string fault =
      FaultOfFile("[groups.a]\nnodes = [\"a[1-65536]\"]\n[groups.b]\nnodes = [\"b\"]\n");
  EXPECT_EQ(fault, path() + ":4:9: there are more than 65536 nodes");
}

TEST_F(TargetTest, NoTruncationOfAFileDoesMoreThanFail) {
  const std::string whole = kLab;
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const std::string fault = FaultOfFile(whole.substr(0, size));
    EXPECT_TRUE(fault == "none" || fault.starts_with(path() + ":")) << fault;
  }
}

TEST_F(TargetTest, WithoutAnyNameThisHostIsAsked) {
  const std::vector<Target> targets = Select({});
  ASSERT_EQ(targets.size(), 1u);
  EXPECT_EQ(targets[0].host, "127.0.0.1");
  EXPECT_EQ(targets[0].port, 7440);
}

TEST_F(TargetTest, NamesAreAskedOnceEachInTheirOrder) {
  EXPECT_EQ(Names({"b,a[1-2]", "a1", "b"}), (Strings{"b", "a1", "a2"}));
}

TEST_F(TargetTest, APortBehindAColonComesBeforeTheFlag) {
  const std::vector<Target> targets = Select({"a:7441,b"}, {{"port", {"9"}}});
  EXPECT_EQ(targets[0].port, 7441);
  EXPECT_EQ(targets[1].port, 9);
}

TEST_F(TargetTest, WithAFileAloneAllItsNodesAreAsked) {
  Read(kLab);
  EXPECT_EQ(Names({}, {{"targets", {path()}}}).size(), 6u);
}

TEST_F(TargetTest, GroupsLabelsAndNamesChooseFromTheFile) {
  Read(kLab);
  const std::map<std::string, Strings, std::less<>> flags = {{"targets", {path()}}};
  EXPECT_EQ(Names({"@power"}, flags), (Strings{"ups-1", "pdu03.lab"}));
  EXPECT_EQ(Names({"@room=b12"}, flags),
            (Strings{"pdu01.lab", "pdu02.lab", "192.0.2.1:7441", "192.0.2.2:7441"}));
  EXPECT_EQ(Names({"pdu03.lab", "@power", "elsewhere"}, flags),
            (Strings{"pdu03.lab", "ups-1", "elsewhere"}));
  EXPECT_EQ(Select({"ups-1"}, flags)[0].host, "192.0.2.77");
}

TEST_F(TargetTest, FlagsComeBeforeWhatTheFileTells) {
  Read(kLab);
  const Target target =
      Select({"ups-1"}, {{"targets", {path()}}, {"domain", {"x"}}, {"port", {"9"}}})[0];
  EXPECT_EQ(target.port, 9);
  EXPECT_EQ(target.domain, std::nullopt);
  EXPECT_EQ(target.priority, 7);
}

TEST_F(TargetTest, AFileOfAFlagComesBeforeNodesOfTheSettings) {
  Read(kLab);
  const std::string settings = folder_.Write("settings.toml", "node = \"elsewhere\"\n");
  EXPECT_EQ(Names({}, {{"config", {settings}}}), Strings{"elsewhere"});
  EXPECT_EQ(Names({}, {{"config", {settings}}, {"targets", {path()}}}).size(), 6u);
  EXPECT_EQ(Names({"other"}, {{"config", {settings}}, {"targets", {path()}}}), Strings{"other"});
}

TEST_F(TargetTest, ANodeWithItsPortAndWithoutIsOne) {
  EXPECT_EQ(Names({"a", "a:7440", "a:7441"}), (Strings{"a", "a:7441"}));
}

TEST_F(TargetTest, TwoNodesThatOutputsWouldCallAlikeAreRefused) {
  Read("[[target]]\nname = \"a\"\nhost = \"192.0.2.1\"\n");
  EXPECT_EQ(Names({"a"}, {{"targets", {path()}}}), Strings{"a"});
  EXPECT_THROW(Names({"a", "a:7440"}, {{"targets", {path()}}}), Failure);
  Read("[[target]]\nname = \"a\"\n");
  EXPECT_EQ(Names({"a:7440", "a"}, {{"targets", {path()}}}), Strings{"a:7440"});
}

TEST_F(TargetTest, AGroupThatIsNotThereIsRefused) {
  Read(kLab);
  EXPECT_THROW(Select({"@lamps"}, {{"targets", {path()}}}), Failure);
  EXPECT_THROW(Select({"@power"}), Failure);
}

}  // namespace
}  // namespace vt::tools
