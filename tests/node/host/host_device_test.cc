#include "node/host/host_device.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/node/element_types.h"
#include "tests/node/host/readings.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::Caliber;
using node::Category;
using node::HostEntity;
using node::Reading;
using node::Trouble;

std::vector<HostEntity> Sensors() {
  return {{"rapl/package-0", "package-0", Caliber::kEstimated, Category::kConsumer},
          {"hwmon/b/power1", "b PPT", Caliber::kMeasured, Category::kMeter}};
}

// With such a role combined elements would be the longer form, and each value travels by itself.
std::string Role() { return std::string(255, 'r'); }

std::string Config(const std::string& host = "", const std::string& more = "") {
  return NodeTable() + "[host]\nid = \"" + DeviceId(7) + "\"\nname = \"box\"\nrole = \"" + Role() +
         "\"\n" + "keywords = [\"rack\"]\n" + host + more;
}

FleetUnderTest Fleet(const std::string& config, std::vector<HostEntity> sensors = Sensors()) {
  return FleetUnderTest(config, {}, [sensors](const node::HostDescription&) { return sensors; });
}

// Every category is asked for, as tools do.
PduImage AskingAll(const std::vector<std::uint32_t>& types) {
  PduImage image = Asking(types);
  for (const std::uint32_t category : {0u, 1u, 0xFFFFFFFFu}) {
    image.elements.push_back(Element(kCategory, 1, U32(category)));
  }
  return image;
}

std::map<std::uint32_t, Bytes> ByEntity(const std::vector<Told>& told) {
  std::map<std::uint32_t, Bytes> values;
  for (const Told& entry : told) values[entry.entity] = entry.value;
  return values;
}

TEST(HostDevice, EverySensorIsAnEntityOfOneDeviceWithItsNameCaliberAndCategory) {
  FleetUnderTest fleet = Fleet(Config());
  const Answered answer = fleet.Ask(AskingAll({kName, kCaliber, kCategory}));
  EXPECT_EQ(answer.accepted(), 2u);
  for (const Told& entry : answer.told) EXPECT_EQ(entry.device, DeviceId(7));
  EXPECT_EQ(ByEntity(answer.OfType(kName)),
            (std::map<std::uint32_t, Bytes>{{101, Counted(Text("box package-0"))},
                                            {201, Counted(Text("box b PPT"))}}));
  EXPECT_EQ(ByEntity(answer.OfType(kCaliber)),
            (std::map<std::uint32_t, Bytes>{{101, U32(0xFFFFFFFF)}, {201, U32(1)}}));
  EXPECT_EQ(ByEntity(answer.OfType(kCategory)),
            (std::map<std::uint32_t, Bytes>{{101, U32(1)}, {201, U32(0)}}));
}

TEST(HostDevice, SensorsOfAKindAreNumberedByTheirKeysWhateverTheirOrder) {
  FleetUnderTest fleet = Fleet(Config(), {{"nut/ups", "n", {}, {}},
                                          {"supply/BAT0", "s", {}, {}},
                                          {"hwmon/z/power1", "z", {}, {}},
                                          {"hwmon/a/power1", "a", {}, {}},
                                          {"rapl/package-1", "p1", {}, {}},
                                          {"rapl/package-0/dram", "d", {}, {}}});
  EXPECT_EQ(ByEntity(fleet.Ask(Asking({kName})).OfType(kName)),
            (std::map<std::uint32_t, Bytes>{{101, Counted(Text("box d"))},
                                            {102, Counted(Text("box p1"))},
                                            {201, Counted(Text("box a"))},
                                            {202, Counted(Text("box z"))},
                                            {301, Counted(Text("box s"))},
                                            {401, Counted(Text("box n"))}}));
}

TEST(HostDevice, LettersThatNamesMayNotHaveAreReplaced) {
  FleetUnderTest fleet = Fleet(Config(), {{"hwmon/a/power1", "a'b*c\"d?", {}, {}}});
  EXPECT_EQ(fleet.Ask(Asking({kName})).Only(kName), Counted(Text("box a_b_c_d_")));
}

TEST(HostDevice, ASensorThatWasNeverReadHasNoUsageAndRefusesSums) {
  FleetUnderTest fleet = Fleet(Config());
  const Answered answer = fleet.Ask(AskingAll({kName, kUsage}));
  EXPECT_EQ(answer.OfType(kName).size(), 2u);
  EXPECT_EQ(answer.OfType(kUsage).size(), 0u);
  EXPECT_EQ(answer.OfType(kCombinedUsage).size(), 0u);
  const Answered sum = fleet.Ask(Summing({kCombinedUsage}));
  EXPECT_EQ(sum.accepted(), 0u);
  EXPECT_EQ(sum.OfType(kCombinedUsage).size(), 0u);
}

TEST(HostDevice, AReadingIsTheUsageInTheUnitsThatFitItBest) {
  FleetUnderTest fleet = Fleet(Config(), {Sensors()[0]});
  fleet.Measured({ReadingOf(11'586)});
  Answered answer = fleet.Ask(Asking({kUsage}));
  EXPECT_EQ(answer.Only(kUsage), U16(11586));
  EXPECT_EQ(answer.Only(kUnits), Hex("fd"));
  fleet.Measured({ReadingOf(250'000)});
  answer = fleet.Ask(Asking({kUsage}));
  EXPECT_EQ(answer.Only(kUsage), U16(25000));
  EXPECT_EQ(answer.Only(kUnits), Hex("fe"));
}

TEST(HostDevice, WhatALevelWouldBringIsNotTold) {
  FleetUnderTest fleet = Fleet(Config(), {Sensors()[0]});
  fleet.Measured({ReadingOf(1000)});
  const Answered answer = fleet.Ask(Asking({kName, kUsageVector, kDeltaVector}));
  EXPECT_EQ(answer.OfType(kUsageVector).size(), 0u);
  EXPECT_EQ(answer.OfType(kDeltaVector).size(), 0u);
  EXPECT_EQ(answer.OfType(kName).size(), 1u);
}

TEST(HostDevice, TheCategoryIsThatOfTheReadingAsABatteryChangesSides) {
  FleetUnderTest fleet = Fleet(Config(), {{"supply/BAT0", "BAT0", {}, Category::kProducer}});
  fleet.Measured({ReadingOf(1000, Category::kProducer)});
  EXPECT_EQ(fleet.Ask(AskingAll({kCategory})).Only(kCategory), U32(0xFFFFFFFF));
  fleet.Measured({ReadingOf(1000, Category::kConsumer)});
  EXPECT_EQ(fleet.Ask(AskingAll({kCategory})).Only(kCategory), U32(1));
}

TEST(HostDevice, ASensorThatFailsLosesItsUsageUntilItIsBackAndOneThatWaitsKeepsIt) {
  FleetUnderTest fleet = Fleet(Config(), {Sensors()[0]});
  const auto usages = [&fleet] { return fleet.Ask(Asking({kUsage})).OfType(kUsage).size(); };
  fleet.Measured({ReadingOf(1000)});
  EXPECT_EQ(usages(), 1u);
  fleet.Measured({Reading::Failed(Trouble::kWaiting, "set back")});
  EXPECT_EQ(usages(), 1u);
  fleet.Measured({Reading::Failed(Trouble::kGone, "unplugged")});
  EXPECT_EQ(usages(), 0u);
  fleet.Measured({ReadingOf(1000)});
  EXPECT_EQ(usages(), 1u);
}

TEST(HostDevice, SumsAddTheHostToTheOtherDevices) {
  FleetUnderTest fleet = Fleet(Config() + "[[device]]\nid = \"" + DeviceId(1) +
                                   "\"\nname = \"lamp\"\nrole = \"lamp\"\nwatts = [0, 10]\n",
                               {Sensors()[0]});
  fleet.Measured({ReadingOf(2500)});
  const Bytes sum = fleet.Ask(Summing({kCombinedUsage})).Only(kCombinedUsage);
  ASSERT_GE(sum.size(), 2u);
  EXPECT_EQ(Bytes(sum.end() - 2, sum.end()), U16(12500)) << "10 W and 2.5 W, in milliwatts";
}

// --- levels ---

Bytes LevelElement(std::uint8_t level) { return Element(kLevel, 0, Bytes{level}); }

std::string ActionToml(int level, const std::string& script) {
  return "[[host.action]]\nlevel = " + std::to_string(level) +
         "\ncommand = [\"/bin/sh\", \"-c\", \"" + script + "\"]\ntimeout = 40\n";
}

TEST(HostDevice, WithoutActionsNoLevelCanBeSetButNamesCan) {
  FleetUnderTest fleet = Fleet(Config(), {Sensors()[0]});
  EXPECT_EQ(fleet.Ask(Setting({LevelElement(3)})).refused(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({kLevel})).Only(kLevel), Hex("0a"));
  EXPECT_EQ(fleet.Ask(Setting({Element(kName, 0, Text("new"))})).accepted(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({kName})).Only(kName), Counted(Text("new")));
}

TEST(HostDevice, ALevelRunsItsActionOnceForAllEntities) {
  const TempFolder folder;
  FleetUnderTest fleet =
      Fleet(Config(ActionToml(3, "echo level $VOLTARIS_LEVEL >> " + folder.path("out"))),
            {Sensors()[0], {"rapl/package-1", "package-1", {}, {}}});
  const Answered answer = fleet.Ask(Setting({LevelElement(3)}));
  EXPECT_EQ(answer.accepted(), 2u);
  EXPECT_EQ(answer.refused(), 0u);
  EXPECT_EQ(folder.Read("out"), "level 3\n");
  EXPECT_EQ(ByEntity(fleet.Ask(Asking({kLevel})).OfType(kLevel)),
            (std::map<std::uint32_t, Bytes>{{101, Hex("03")}, {102, Hex("03")}}));
}

TEST(HostDevice, TheUsageStaysWhatIsMeasuredWhateverTheLevel) {
  FleetUnderTest fleet = Fleet(Config(ActionToml(3, "exit 0")), {Sensors()[0]});
  fleet.Measured({ReadingOf(1000)});
  EXPECT_EQ(fleet.Ask(Setting({LevelElement(3)})).accepted(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({kUsage})).Only(kUsage), U16(1000));
}

TEST(HostDevice, ALevelWithoutAnActionIsRefusedByTheHostAlone) {
  FleetUnderTest fleet =
      Fleet(Config(ActionToml(3, "exit 0")) + "[[device]]\nid = \"" + DeviceId(1) +
                "\"\nname = \"lamp\"\nrole = \"lamp\"\nwatts = [0, 10]\n",
            {Sensors()[0]});
  const Answered answer = fleet.Ask(Setting({LevelElement(4)}));
  EXPECT_EQ(answer.accepted(), 1u);
  ASSERT_EQ(answer.refused(), 1u);
  EXPECT_EQ(answer.Of(-2)[0].device, DeviceId(7));
}

TEST(HostDevice, AnActionThatFailsRefusesTheSetAndUndoesIt) {
  const TempFolder folder;
  const std::string state = folder.path("state");
  FleetUnderTest fleet(Config(ActionToml(3, "exit 1")), state,
                       [](const node::HostDescription&) { return Sensors(); });
  PduImage set = Setting({LevelElement(3), Element(kName, 0, Text("new"))});
  set.elements.push_back(Element(kRole, 1, Text(Role())));
  const Answered answer = fleet.Ask(set);
  EXPECT_EQ(answer.accepted(), 0u);
  EXPECT_GE(answer.refused(), 1u);
  EXPECT_EQ(ByEntity(fleet.Ask(AskingAll({kLevel})).OfType(kLevel)).at(101), Hex("0a"));
  EXPECT_EQ(ByEntity(fleet.Ask(AskingAll({kName})).OfType(kName)).at(101),
            Counted(Text("box package-0")));
  EXPECT_EQ(folder.Read("state").find("level="), std::string::npos);
}

// --- the configuration ---

TEST(HostDevice, AHostIsDescribedBeforeItIsProbed) {
  const node::FleetFile file = Load(NodeTable() +
                                    "[host]\nnut = \"off\"\nroot = \"/made/up\"\n"
                                    "interval = 30\nimportance = 20\n");
  ASSERT_TRUE(file.host.has_value());
  EXPECT_EQ(file.fleet.entity_count(), 0u);
  EXPECT_EQ(file.host->sensors.root, "/made/up");
  EXPECT_FALSE(file.host->sensors.nut.has_value());
  EXPECT_EQ(file.host->interval, std::chrono::seconds(30));
  EXPECT_EQ(file.host->importance, 20);
  EXPECT_EQ(file.host->domain, "test");
  EXPECT_FALSE(file.host->name.empty());
  EXPECT_EQ(file.host->role, "host");
}

TEST(HostDevice, TheExampleHasAnActionForTwoLevels) {
  const node::FleetFile file = node::LoadFleet(std::string(VT_TEST_DIR) + "/../examples/host.toml");
  ASSERT_TRUE(file.host.has_value());
  ASSERT_EQ(file.host->actions.size(), 2u);
  EXPECT_EQ(file.host->actions[0].level, 5);
  EXPECT_EQ(file.host->actions[1].level, 10);
  EXPECT_EQ(file.host->importance, 20);
}

TEST(HostDevice, MistakesAreToldWithTheirPlace) {
  const std::string before = NodeTable() + "[host]\n";
  const auto line = static_cast<std::uint32_t>(std::ranges::count(before, '\n')) + 1;
  const struct {
    std::string text;
    std::uint32_t line;
    std::string reason;
  } cases[] = {
      {"interval = 31\n", line, "from 1 to 30"},
      {"nut = \"ups.example\"\n", line, "'nut' must be HOST:PORT with an IPv4 address, or off"},
      {"id = \"short\"\n", line, "32 characters"},
      {"shell = \"x\"\n", line, "there is no setting 'shell' here"},
      {"[[host.action]]\nlevel = 11\n", line + 1, "from 0 to 10"},
      {"[[host.action]]\nlevel = 1\n", line, "'command' is missing"},
      {"[[host.action]]\nlevel = 1\ncommand = []\n", line + 2, "absolute path"},
      {"[[host.action]]\nlevel = 1\ncommand = [\"reboot\"]\n", line + 2, "absolute path"},
      {"[[host.action]]\nlevel = 1\ncommand = \"/bin/true\"\n", line + 2, "list of texts"},
      {"[[host.action]]\nlevel = 1\ncommand = [\"/bin/true\", 1]\n", line + 2, "list of texts"},
      {"[[host.action]]\nlevel = 1\ncommand = [\"/bin/true\"]\ntimeout = 61\n", line + 3,
       "from 1 to 60"},
      {"[[host.action]]\nlevel = 1\ncommand = [\"/bin/true\"]\n"
       "[[host.action]]\nlevel = 1\ncommand = [\"/bin/true\"]\n",
       line + 4, "an action for this level already"},
  };
  for (const auto& c : cases) {
    try {
      (void)Load(before + c.text);
      ADD_FAILURE() << c.text;
    } catch (const node::FleetError& error) {
      EXPECT_EQ(error.line(), c.line) << c.text << error.what();
      EXPECT_NE(std::string(error.what()).find(c.reason), std::string::npos) << error.what();
    }
  }
}

TEST(HostDevice, AnEntityOfTheHostCannotBeADeviceOfTheFileToo) {
  const std::string config = Config() + "[[device]]\nid = \"" + DeviceId(7) +
                             "\"\nentity = 101\nname = \"x\"\nrole = \"y\"\nwatts = [0, 1]\n";
  EXPECT_THROW((void)Load(config, [](const node::HostDescription&) { return Sensors(); }),
               node::FleetError);
}

}  // namespace
}  // namespace vt::testing
