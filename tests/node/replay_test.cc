#include "node/replay.h"

#include <gtest/gtest.h>

#include <string>

#include "node/fleet_file.h"
#include "node/fleet_survey.h"
#include "tests/node/element_types.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

// RecordingOf is a recording of the domain "test" with one entity that has these lines.
std::string RecordingOf(const std::string& lines, const std::string& domain = "test") {
  return "voltaris recording 1\nnode = \"" + DeviceId(0) + "\"\ndomain = \"" + domain +
         "\"\ntime = 2026-11-21T15:29:54Z\n"
         "attributes = role, name, keywords, error, units, usage, level, importance, entity-type, "
         "address, neighbor, neighbor-count, nanny-vector, delta-vector, caliber, usage-vector, "
         "recurrence, text-21, category\nentity = \"" +
         DeviceId(1) + "\" 1\n" + lines + "\nend\n";
}

FleetUnderTest Replay(const std::string& lines) {
  const TempFolder folder;
  return FleetUnderTest(node::LoadReplay(folder.Write("recording", RecordingOf(lines))));
}

std::string WhyNot(const std::string& recording) {
  const TempFolder folder;
  const std::string path = folder.Write("recording", recording);
  try {
    (void)node::LoadReplay(path);
    return "it was loaded";
  } catch (const node::FleetError& error) {
    return std::string(error.what()).substr(path.size());
  }
}

// Numbers of 16 and of 32 bits, one after the other.
Bytes Words(std::initializer_list<int> numbers) {
  Bytes bytes;
  for (const int number : numbers) bytes = bytes + U16(static_cast<std::uint16_t>(number));
  return bytes;
}
Bytes Longs(std::initializer_list<std::int64_t> numbers) {
  Bytes bytes;
  for (const std::int64_t number : numbers) {
    bytes = bytes + U32(static_cast<std::uint32_t>(number));
  }
  return bytes;
}

constexpr const char* kUsages = "usage-vector = 0 5 10 15 20 25 30 35 40 45 50 e-1";

TEST(Replay, WhatWasRecordedIsToldAsItWas) {
  FleetUnderTest fleet = Replay(
      "role = \"lamp\"\nname = \"l\\xff\"\nkeywords = \"a\", \"\", \"b\"\nunits = -1\n"
      "usage = 17 e-1\nlevel = 200\nentity-type = 77\nneighbor-count = 9\ncaliber = -9\n"
      "neighbor = \"" +
      DeviceId(2) + "\" \"next\" 0x0001 -5\ncategory = consumer\n" + kUsages +
      "\ndelta-vector = 1 2 3 4 5 6 7 8 9 10 -2147483648 e-1");
  const struct {
    std::uint32_t type;
    Bytes value;
  } cases[] = {
      {kRole, Counted(Text("lamp"))},
      {kName, Counted(Hex("6c ff"))},
      {kKeywords, Counted(Text("a,,b") + Hex("00"))},
      {kUnits, Hex("ff")},
      {kUsage, U16(17)},
      {kLevel, Hex("c8")},
      {kEntityType, U32(77)},
      {kNeighborCount, U16(9)},
      {kCaliber, Longs({-9})},
      {kNeighbor,
       Identity32(DeviceId(2)) + Counted(Text("next")) + Counted(Hex("0001")) + Longs({-5})},
      {kCategory, U32(1)},
      {kUsageVector, Words({0, 5, 10, 15, 20, 25, 30, 35, 40, 45, 50})},
      {kDeltaVector, Longs({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, -2147483648})},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(fleet.Ask(Asking({c.type})).Only(c.type), c.value) << c.type;
  }
}

TEST(Replay, WhatWasNotRecordedIsLeftOut) {
  FleetUnderTest fleet = Replay("name = \"lamp\"");
  const Answered answer =
      fleet.Ask(Asking({kRole, kName, kKeywords, kUnits, kUsage, kLevel, kImportance, kEntityType,
                        kNeighborCount, kDeltaVector, kCaliber, kUsageVector, kCategory}));
  EXPECT_EQ(answer.Only(kName), Counted(Text("lamp")));
  EXPECT_EQ(answer.Of(1).size(), 1u);
  EXPECT_EQ(answer.accepted(), 1u);
}

TEST(Replay, UsageWithoutUnitsStaysWithoutThem) {
  FleetUnderTest fleet = Replay("usage = 17");
  const Answered answer = fleet.Ask(Asking({kUsage, kUnits}));
  EXPECT_EQ(answer.Only(kUsage), U16(17));
  EXPECT_EQ(answer.Of(1).size(), 1u);
}

TEST(Replay, AnEntityWithNothingIsARowAllTheSame) {
  FleetUnderTest fleet = Replay("");
  constexpr std::uint32_t identity = 1;
  EXPECT_EQ(fleet.Ask(Asking({kName})).accepted(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({identity})).Of(1).size(), 1u);
}

TEST(Replay, ASetLevelTakesItsUsageFromTheUsageVector) {
  FleetUnderTest fleet = Replay(
      "usage = 17 e-1\nlevel = 9\ndelta-vector = 1 1 1 1 1 1 1 1 1 1 1 "
      "e-1\n" +
      std::string(kUsages));
  EXPECT_EQ(fleet.Ask(SettingLevel(3)).accepted(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({kLevel})).Only(kLevel), Hex("03"));
  EXPECT_EQ(fleet.Ask(Asking({kUsage})).Only(kUsage), U16(15));
  EXPECT_EQ(fleet.Ask(Asking({kDeltaVector})).Only(kDeltaVector),
            Longs({-15, -10, -5, 0, 5, 10, 15, 20, 25, 30, 35}));
}

TEST(Replay, WithoutAUsageVectorTheChangesTellTheUsage) {
  FleetUnderTest fleet =
      Replay("usage = 17 e-1\ndelta-vector = -20 -12 0 1 2 3 4 5 6 7 2147483647 e-1");
  EXPECT_EQ(fleet.Ask(SettingLevel(1)).accepted(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({kUsage})).Only(kUsage), U16(5));
  EXPECT_EQ(fleet.Ask(Asking({kDeltaVector})).Only(kDeltaVector),
            Longs({-8, 0, 12, 13, 14, 15, 16, 17, 18, 19, 2147483647}));
  // No usage is less than nothing, nor more than its 16 bits.
  EXPECT_EQ(fleet.Ask(SettingLevel(0)).accepted(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({kUsage})).Only(kUsage), U16(0));
  EXPECT_EQ(fleet.Ask(SettingLevel(10)).accepted(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({kUsage})).Only(kUsage), U16(65535));
}

TEST(Replay, WithoutVectorsTheUsageStaysWhatItWas) {
  FleetUnderTest fleet = Replay("usage = 17 e-1");
  EXPECT_EQ(fleet.Ask(SettingLevel(0)).accepted(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({kUsage})).Only(kUsage), U16(17));
}

TEST(Replay, WhatIsSetIsToldEvenIfItWasNotRecorded) {
  FleetUnderTest fleet = Replay("usage = 17");
  const Answered answer =
      fleet.Ask(Setting({Element(kLevel, 0, Hex("03")), Element(kImportance, 0, Hex("07")),
                         Element(kName, 0, Text("n")), Element(kRole, 0, Text("r"))}));
  EXPECT_EQ(answer.accepted(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({kLevel})).Only(kLevel), Hex("03"));
  EXPECT_EQ(fleet.Ask(Asking({kImportance})).Only(kImportance), Hex("07"));
  EXPECT_EQ(fleet.Ask(Asking({kName})).Only(kName), Counted(Text("n")));
  EXPECT_EQ(fleet.Ask(Asking({kRole})).Only(kRole), Counted(Text("r")));
}

TEST(Replay, ASetIsAnsweredInACombinedElementOnlyWhenAllOfItIsKnown) {
  const std::string known =
      "role = \"r\"\nname = \"n\"\nkeywords = \"k\"\nusage = 17 e-1\nlevel = 9\nimportance = 1\n";
  const Answered lacking = Replay(known).Ask(SettingLevel(3));
  EXPECT_EQ(lacking.accepted(), 1u);
  EXPECT_EQ(lacking.Of(1).size(), 0u);
  const Answered whole = Replay(known + "caliber = actual").Ask(SettingLevel(3));
  EXPECT_EQ(whole.Only(kCombinedUsage), U32(0) + U32(1) + Counted(Text("n")) + Counted(Text("r")) +
                                            Hex("ff 03 01") + Counted(Text("k")) + U16(17));
}

TEST(Replay, TextsThatFillNoMessageTogetherTravelByThemselves) {
  std::string long_text(1002, 'x');
  long_text.front() = long_text.back() = '"';
  FleetUnderTest fleet =
      Replay("role = " + long_text + "\nname = " + long_text + "\nkeywords = " + long_text +
             "\nusage = 1 e0\nlevel = 9\nimportance = 1\ncaliber = actual");
  const Answered answer =
      fleet.Ask(Asking({kRole, kName, kKeywords, kUsage, kLevel, kImportance, kCaliber}));
  EXPECT_EQ(answer.Only(kName), Counted(Bytes(1000, 'x')));
  EXPECT_EQ(answer.Only(kRole), Counted(Bytes(1000, 'x')));
  EXPECT_EQ(answer.OfType(kCombinedUsage).size(), 0u);
  EXPECT_EQ(fleet.Ask(SettingLevel(3)).accepted(), 1u);
}

TEST(Replay, SumsTakeDevicesWhosePowerIsKnown) {
  FleetUnderTest fleet = Replay("usage = 17 e-1\nlevel = 4\n" + std::string(kUsages));
  const Answered sum = fleet.Ask(Summing({kCombinedUsage}));
  EXPECT_EQ(sum.accepted(), 1u);
  const Bytes value = sum.Only(kCombinedUsage);
  ASSERT_GE(value.size(), 2u);
  EXPECT_EQ(Bytes(value.end() - 2, value.end()), U16(1700));  // milliwatts

  const Answered refused = Replay("usage = 17").Ask(Summing({kCombinedUsage}));
  EXPECT_EQ(refused.accepted(), 0u);
  EXPECT_EQ(refused.refused(), 1u);
}

TEST(Replay, SumsSurviveUnitsThatNoDeviceMeans) {
  for (const char* units : {"e-128", "e-4", "e7", "e127"}) {
    FleetUnderTest fleet =
        Replay("usage = 65535 " + std::string(units) +
               "\ndelta-vector = -2147483648 0 0 0 0 0 0 0 0 0 2147483647 " + units);
    const Answered sum = fleet.Ask(Summing({kCombinedUsage, kCombinedDeltaVector}));
    EXPECT_EQ(sum.accepted(), 1u) << units;
    EXPECT_EQ(sum.OfType(kCombinedDeltaVector).size(), 1u) << units;
  }
}

TEST(Replay, TheSurveyOfTheFleetTakesThePowerThatIsKnown) {
  const TempFolder folder;
  std::string lines = "usage = 17 e-1";
  for (int i = 2; i < 20; ++i) {
    lines += "\nentity = \"" + DeviceId(i) + "\" 1\nusage = 65535 e127\ncategory = meter";
  }
  lines += "\nentity = \"" + DeviceId(20) + "\" 1\nusage = 65535";
  const node::Fleet fleet = node::LoadReplay(folder.Write("recording", RecordingOf(lines)));
  const node::FleetTotals totals = node::FleetSurvey().Measure(fleet, At(0));
  EXPECT_EQ(totals.entities, 20u);
  EXPECT_EQ(totals.milliwatts[static_cast<std::size_t>(node::PowerCategory::kConsumer)], 1700);
  EXPECT_GT(totals.milliwatts[static_cast<std::size_t>(node::PowerCategory::kMeter)],
            2'000'000'000'000'000'000);
}

TEST(Replay, WhatANodeCannotTellIsRefusedWithItsLine) {
  const std::string differ =
      ":6:1: the units of the values of this entity differ, and a node tells one for all";
  EXPECT_EQ(WhyNot(RecordingOf("usage = 1 e0\nunits = 1")), differ);
  EXPECT_EQ(WhyNot(RecordingOf("usage = 1\nunits = 1")), differ);
  EXPECT_EQ(WhyNot(RecordingOf("usage = 1 e1\n" + std::string(kUsages))), differ);
  EXPECT_EQ(WhyNot(RecordingOf("usage = 1\n" + std::string(kUsages))), differ);

  std::string long_text(1302, 'x');
  long_text.front() = long_text.back() = '"';
  const auto too_long = [](const std::string& what) {
    return ":6:1: the " + what + " of this entity does not fit into a message beside the domain";
  };
  EXPECT_EQ(WhyNot(RecordingOf("name = " + long_text)), too_long("name"));
  EXPECT_EQ(WhyNot(RecordingOf("keywords = " + long_text)), too_long("keywords"));
  EXPECT_EQ(WhyNot(RecordingOf("error = " + long_text)), too_long("error"));
  EXPECT_EQ(WhyNot(RecordingOf("recurrence = " + long_text + " 0 0 0")), too_long("recurrence"));
  EXPECT_EQ(WhyNot(RecordingOf("neighbor = \"" + DeviceId(2) + "\" " + long_text + " - 0")),
            too_long("neighbor"));
}

TEST(Replay, TheLongestTextThatIsTakenFitsIntoAMessage) {
  for (const std::string& domain : {std::string("test"), std::string(255, 'd')}) {
    std::size_t longest = 900;
    for (std::size_t too_long = 1400; longest + 1 < too_long;) {
      const std::size_t size = (longest + too_long) / 2;
      const std::string text = '"' + std::string(size, 'x') + '"';
      const bool is_taken = WhyNot(RecordingOf("name = " + text, domain)) == "it was loaded";
      (is_taken ? longest : too_long) = size;
    }
    const TempFolder folder;
    const std::string text = '"' + std::string(longest, 'x') + '"';
    FleetUnderTest fleet(
        node::LoadReplay(folder.Write("recording", RecordingOf("name = " + text, domain))));
    PduImage image = Asking({kName});
    image.elements.front() = Element(8, 0, Text(domain));
    EXPECT_EQ(fleet.Ask(image).Only(kName), Counted(Bytes(longest, 'x'))) << domain;
  }
}

TEST(Replay, ADamagedRecordingIsToldWithLineAndColumn) {
  EXPECT_EQ(WhyNot(RecordingOf("level = 256")), ":7:9: level must be a whole number from 0 to 255");
  EXPECT_EQ(WhyNot("voltaris recording 1\nnode = \"" + DeviceId(0) +
                   "\"\ndomain = \"x\"\ntime = 2026-11-21T15:29:54Z\nattributes =\nend\n"),
            ": the recording has no entities");
}

TEST(Replay, EntitiesOfADeviceStandTogetherInWhateverOrder) {
  const std::string entity = "entity = \"" + DeviceId(1) + "\" ";
  FleetUnderTest fleet = Replay("name = \"a\"\nentity = \"" + DeviceId(2) + "\" 7\nname = \"b\"\n" +
                                entity + "3\nname = \"c\"");
  const Answered answer = fleet.Ask(Asking({kName}));
  EXPECT_EQ(answer.accepted(), 3u);
  ASSERT_EQ(answer.OfType(kName).size(), 3u);
}

}  // namespace
}  // namespace vt::testing
