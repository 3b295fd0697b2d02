#include "node/responder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/node/disk_calls.h"
#include "tests/node/element_types.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

Bytes Vector16(int step) {
  Bytes bytes;
  for (int i = 0; i <= 10; ++i) bytes = bytes + U16(static_cast<std::uint16_t>(i * step));
  return bytes;
}

Bytes Vector32(int first, int step) {
  Bytes bytes;
  for (int i = 0; i <= 10; ++i) bytes = bytes + U32(static_cast<std::uint32_t>(first + i * step));
  return bytes;
}

// Complete is a device that has every attribute.
std::string Complete() {
  DeviceToml device = CompleteDevice();
  device.name = "abc";
  device.role = "de";
  device.more += "neighbors = [{ id = \"" + DeviceId(8) +
                 "\", label = \"next\", address = \"192.0.2.1:258\" },\n{ id = \"" + DeviceId(9) +
                 "\", reachable = false }]\n";
  return NodeToml({device});
}

// --- every attribute ---

TEST(Responder, EveryAttributeTravelsInAnElementOfItsTypeWhenItIsAskedForAlone) {
  FleetUnderTest fleet(Complete());
  const struct {
    std::uint32_t type;
    Bytes value;
  } cases[] = {
      {kIdentityType, Identity32(DeviceId(1)) + U32(1)},
      {kRole, Counted(Text("de"))},
      {kName, Counted(Text("abc"))},
      {kKeywords, Counted(Text("f,g") + Hex("00"))},
      {kErrorText, Counted(Text("hot"))},
      {kUnits, Hex("ff")},
      {kLevel, Hex("04")},
      {kImportance, Hex("09")},
      {kEntityType, U32(2)},
      {kNeighborCount, U16(2)},
      {kNannyVector, U32(0x12345678)},
      {kCaliber, U32(1)},
      {kRecurrence, Counted(Text("0 8 * * *")) + Hex("01 02 00000001")},
      {kText21, Counted(Text("note"))},
      {kCategory, U32(1)},
  };
  for (const auto& c : cases) {
    const Answered answer = fleet.Ask(Asking({c.type}));
    EXPECT_EQ(answer.Only(c.type), c.value) << c.type;
    EXPECT_EQ(answer.Of(1).size(), 1u) << "and nothing else, asked for " << c.type;
    EXPECT_EQ(answer.accepted(), 1u);
    EXPECT_EQ(answer.refused(), 0u);
  }
}

TEST(Responder, WhatIsScaledByUnitsTravelsWithThem) {
  // The long role makes elements of their own the shorter form.
  std::string config = Complete();
  config.replace(config.find("\"de\"") + 1, 2, std::string(255, 'r'));
  FleetUnderTest fleet(config);
  const struct {
    std::uint32_t type;
    Bytes value;
  } cases[] = {{kUsage, U16(20)}, {kUsageVector, Vector16(5)}, {kDeltaVector, Vector32(-20, 5)}};
  for (const auto& c : cases) {
    const Answered answer = fleet.Ask(Asking({c.type}));
    EXPECT_EQ(answer.Only(c.type), c.value) << c.type;
    EXPECT_EQ(answer.Only(kUnits), Hex("ff"));
    ASSERT_EQ(answer.Of(1).size(), 2u);
    EXPECT_EQ(answer.Of(1)[1].type, kUnits) << "behind it";
  }
}

TEST(Responder, EveryNeighborIsAnEntry) {
  FleetUnderTest fleet(Complete());
  const std::vector<Told> told = fleet.Ask(Asking({kNeighbor})).OfType(kNeighbor);
  ASSERT_EQ(told.size(), 2u);
  EXPECT_EQ(told[0].value, Identity32(DeviceId(8)) + Counted(Text("next")) +
                               Counted(Hex("0200 0102 c0000201 8*00")) + U32(1));
  EXPECT_EQ(told[1].value, Identity32(DeviceId(9)) + Counted({}) + Counted({}) + U32(0));
}

TEST(Responder, WhatEveryRowHasIsToldByItselfOnlyWhenNothingElseMakesARow) {
  FleetUnderTest fleet(Complete());
  for (const std::uint32_t type : {kIdentityType, kDomain, kReplyTo}) {
    EXPECT_EQ(fleet.Ask(Asking({type})).Only(kIdentityType), Identity32(DeviceId(1)) + U32(1));
    const Answered with_level = fleet.Ask(Asking({type, kLevel}));
    EXPECT_EQ(with_level.Of(1).size(), 1u);
    EXPECT_EQ(with_level.Only(kLevel), Hex("04"));
  }
}

TEST(Responder, WhatADeviceDoesNotHaveIsLeftOut) {
  FleetUnderTest fleet(NodeToml({DeviceToml{}}));
  for (const std::uint32_t type : {kErrorText, kNeighbor, kNannyVector, kRecurrence, kText21}) {
    const Answered alone = fleet.Ask(Asking({type}));
    EXPECT_EQ(alone.accepted(), 1u) << type;
    EXPECT_TRUE(alone.Of(1).empty()) << type;
    const Answered with_level = fleet.Ask(Asking({type, kLevel}));
    EXPECT_EQ(with_level.Only(kLevel), Hex("0a"));
    EXPECT_EQ(with_level.Of(1).size(), 1u) << type;
  }
  EXPECT_EQ(fleet.Ask(Asking({kNeighborCount})).Only(kNeighborCount), U16(0));
}

TEST(Responder, WhatNoDeviceCanHaveIsLeftOutAndRefusedWhenItIsAll) {
  FleetUnderTest fleet(NodeToml({DeviceToml{}}));
  // Numbers without an attribute, a flagged one, one out of range.
  for (const std::uint32_t type : {5u, 15u, 31u, 0x8000000Du, 60u}) {
    PduImage alone = Asking({});
    alone.elements.push_back(Element(type, 0, {}));
    const Answered refused = fleet.Ask(alone);
    EXPECT_EQ(refused.accepted(), 0u) << type;
    ASSERT_EQ(refused.refused(), 1u) << type;
    EXPECT_EQ(refused.Of(-2)[0].entity, 0u) << "which makes no row";
    EXPECT_TRUE(refused.Of(1).empty());

    PduImage with_level = Asking({kLevel});
    with_level.elements.push_back(Element(type, 0, {}));
    const Answered answer = fleet.Ask(with_level);
    EXPECT_EQ(answer.accepted(), 1u);
    EXPECT_EQ(answer.Of(1).size(), 1u);
  }
}

TEST(Responder, AQueryForNothingIsAcceptedAndToldNothing) {
  FleetUnderTest fleet(NodeToml({DeviceToml{}}));
  for (const PduImage& image : {Asking({}), Asking({kTimeout})}) {
    const Answered answer = fleet.Ask(image);
    EXPECT_EQ(answer.accepted(), 1u);
    EXPECT_EQ(answer.told.size(), 1u);
  }
}

TEST(Responder, AttributesAskedForTwiceAreToldOnce) {
  FleetUnderTest fleet(Complete());
  EXPECT_EQ(fleet.Ask(Asking({kLevel, kLevel})).OfType(kLevel).size(), 1u);
}

// --- combined elements ---

// CombinedHeader is what a combined element of the complete device begins with.
Bytes CombinedHeader() {
  return Cat({U32(0), U32(1), Counted(Text("abc")), Counted(Text("de")), Hex("ff 04 09"),
              Counted(Text("f,g"))});
}

TEST(Responder, OneCombinedElementStandsForAllThatItTells) {
  FleetUnderTest fleet(Complete());
  const std::vector<std::uint32_t> common = {kRole,  kName,       kKeywords,
                                             kLevel, kImportance, kCaliber};
  const struct {
    std::uint32_t asked;
    std::uint32_t told;
    Bytes value;
  } cases[] = {
      {kUnits, kCombinedUsage, U16(20)},
      {kUsage, kCombinedUsage, U16(20)},
      {kUsageVector, kCombinedUsageVector, Vector16(5)},
      {kDeltaVector, kCombinedDeltaVector, Vector32(-20, 5)},
  };
  for (const auto& c : cases) {
    std::vector<std::uint32_t> types = common;
    types.push_back(c.asked);
    const Answered answer = fleet.Ask(Asking(types));
    EXPECT_EQ(answer.Only(c.told), CombinedHeader() + c.value) << c.asked;
    EXPECT_EQ(answer.Of(1).size(), 1u) << c.asked;
  }
}

TEST(Responder, WhatCombinedElementsDoNotTellStandsBesideThem) {
  FleetUnderTest fleet(Complete());
  const Answered answer = fleet.Ask(Asking({kName, kUsage, kCategory, kEntityType}));
  EXPECT_EQ(answer.Only(kCombinedUsage), CombinedHeader() + U16(20));
  EXPECT_EQ(answer.Only(kCategory), U32(1));
  EXPECT_EQ(answer.Only(kEntityType), U32(2));
  EXPECT_EQ(answer.Of(1).size(), 3u);
}

TEST(Responder, TwoScaledAttributesHaveElementsOfTheirOwn) {
  FleetUnderTest fleet(Complete());
  const Answered answer = fleet.Ask(Asking({kName, kUsage, kUsageVector}));
  EXPECT_EQ(answer.Only(kName), Counted(Text("abc")));
  EXPECT_EQ(answer.Only(kUsage), U16(20));
  EXPECT_EQ(answer.Only(kUsageVector), Vector16(5));
  EXPECT_EQ(answer.OfType(kUnits).size(), 2u) << "behind each";
  EXPECT_TRUE(answer.OfType(kCombinedUsage).empty());
}

TEST(Responder, EntitiesOfOneDeviceShareTheirElements) {
  FleetUnderTest fleet(NodeTable() +
                       "[[group]]\ncount = 2\nentities = 5\nname = \"d{n}/{e}\"\nrole = \"r\"\n"
                       "watts = [0, 1]\n");
  for (const std::vector<std::uint32_t>& types :
       {std::vector<std::uint32_t>{kName, kUsage}, {kCategory, kNeighborCount}}) {
    const Answered answer = fleet.Ask(Asking(types));
    EXPECT_EQ(answer.accepted(), 10u);
    ASSERT_EQ(answer.messages.size(), 2u);
    const std::size_t elements_in_acknowledgement = (answer.messages[0].size() - 80 - 10 * 4) / 68;
    EXPECT_EQ(elements_in_acknowledgement, 2u) << "one for each device";
  }
}

TEST(Responder, AThousandDevicesTakeAsFewMessagesAsTheirBytesFill) {
  FleetUnderTest fleet(NodeTable() +
                       "[[group]]\ncount = 1000\nname = \"lamp-{n:04}\"\nrole = \"lamp\"\n"
                       "keywords = [\"light\"]\nwatts = [0, 36]\n");
  const Answered answer = fleet.Ask(Asking({kName, kUsage, kLevel, kImportance}));
  EXPECT_EQ(answer.accepted(), 1000u);
  EXPECT_EQ(answer.OfType(kCombinedUsage).size(), 1000u);
  std::set<std::string> devices;
  for (const Told& told : answer.Of(1)) devices.insert(told.device);
  EXPECT_EQ(devices.size(), 1000u);
  // 18 acknowledgements of 72 bytes fit into a message, and 10 combined elements of 115 + 4.
  EXPECT_EQ(answer.messages.size(), 1000u / 18 + 1 + 1000u / 11 + 1);
}

// --- whom it concerns ---

std::set<std::string> NamesFrom(const Answered& answer) {
  std::set<std::string> names;
  for (const Told& told : answer.OfType(kName)) {
    names.emplace(told.value.begin() + 4, told.value.end());
  }
  return names;
}

std::string MixedDevices() {
  DeviceToml phone{.number = 3, .name = "phone-1", .role = "phone", .keywords = "\"desk\""};
  phone.importance = 50;
  DeviceToml meter{.number = 4, .name = "meter", .role = "meter", .keywords = "\"desk\", \"m\""};
  meter.more = "category = \"meter\"";
  return NodeToml({{.number = 1, .name = "lamp-1"}, {.number = 2, .name = "lamp-2"}, phone, meter});
}

PduImage Qualified(std::vector<Bytes> qualifiers, std::uint8_t priority = 100) {
  PduImage image = Asking({kName});
  image.pri = priority;
  image.elements.insert(image.elements.end(), qualifiers.begin(), qualifiers.end());
  return image;
}

Bytes Qualifier(std::uint32_t type, const Bytes& value) { return Element(type, 1, value); }

TEST(Responder, QualifiersAndPriorityChooseDevices) {
  FleetUnderTest fleet(MixedDevices());
  const Bytes second = Qualifier(kIdentityType, Identity32(DeviceId(2)) + U32(0));
  const struct {
    std::string what;
    PduImage image;
    std::set<std::string> names;
  } cases[] = {
      {"nothing", Qualified({}), {"lamp-1", "lamp-2", "phone-1"}},
      {"priority", Qualified({}, 49), {"lamp-1", "lamp-2"}},
      {"priority that suffices", Qualified({}, 50), {"lamp-1", "lamp-2", "phone-1"}},
      {"priority too low for all", Qualified({}, 9), {}},
      {"identity", Qualified({second}), {"lamp-2"}},
      {"identities",
       Qualified({second, Qualifier(kIdentityType, Identity32(DeviceId(4)) + U32(0))}),
       {"lamp-2", "meter"}},
      {"role", Qualified({Qualifier(kRole, Text("phone"))}), {"phone-1"}},
      {"roles",
       Qualified({Qualifier(kRole, Text("ph*")), Qualifier(kRole, Text("lamp"))}),
       {"lamp-1", "lamp-2", "phone-1"}},
      {"name", Qualified({Qualifier(kName, Text("lamp-*"))}), {"lamp-1", "lamp-2"}},
      {"keywords",
       Qualified({Qualifier(kKeywords, Text("x") + Hex("00") + Text("desk"))}),
       {"phone-1"}},
      {"category", Qualified({Qualifier(kCategory, U32(0))}), {"meter"}},
      {"category and role",
       Qualified({Qualifier(kCategory, U32(0)), Qualifier(kRole, Text("lamp"))}),
       {}},
  };
  for (const auto& c : cases) {
    const Answered answer = fleet.Ask(c.image);
    EXPECT_EQ(NamesFrom(answer), c.names) << c.what;
    EXPECT_EQ(answer.accepted(), c.names.size()) << c.what;
    EXPECT_EQ(answer.refused(), 4 - c.names.size()) << c.what;
  }
}

TEST(Responder, QueriesForAnotherDomainGetNothing) {
  FleetUnderTest fleet(MixedDevices());
  PduImage image = Qualified({});
  image.elements[0] = Element(kDomain, 0, Text("elsewhere"));
  EXPECT_TRUE(fleet.Ask(image).messages.empty());
}

TEST(Responder, TheFiltersSeeWhatWasSet) {
  FleetUnderTest fleet(MixedDevices());
  PduImage rename =
      Setting({Element(kName, 0, Text("new")), Element(kRole, 0, Text("other")),
               Element(kKeywords, 0, Text("k") + Hex("00")), Element(kImportance, 0, Hex("46"))});
  rename.elements.push_back(Qualifier(kName, Text("lamp-1")));
  EXPECT_EQ(fleet.Ask(rename).accepted(), 1u);
  EXPECT_EQ(NamesFrom(fleet.Ask(Qualified({Qualifier(kRole, Text("other"))}, 70))).size(), 1u);
  EXPECT_EQ(NamesFrom(fleet.Ask(Qualified({Qualifier(kName, Text("new"))}, 70))).size(), 1u);
  EXPECT_EQ(NamesFrom(fleet.Ask(Qualified({Qualifier(kKeywords, Text("k"))}, 70))).size(), 1u);
  EXPECT_TRUE(NamesFrom(fleet.Ask(Qualified({Qualifier(kName, Text("new"))}, 69))).empty());
  EXPECT_TRUE(NamesFrom(fleet.Ask(Qualified({Qualifier(kName, Text("lamp-1"))}))).empty());
}

// --- sets ---

TEST(Responder, EverythingThatCanBeSetIsSetAndTold) {
  FleetUnderTest fleet(NodeToml({{.number = 1, .level = 10, .step = 3}}));
  const Bytes recurrence = Counted(Text("5 4 * * *")) + Hex("07 08 fffffffe");
  const struct {
    std::uint32_t type;
    Bytes set;   // as it travels to the node
    Bytes told;  // and from it
  } cases[] = {
      {kName, Text("new name"), Counted(Text("new name"))},
      {kRole, Text("r"), Counted(Text("r"))},
      {kKeywords, Text("x") + Hex("00") + Text("y") + Hex("00"), Counted(Text("x,y") + Hex("00"))},
      {kLevel, Hex("00"), Hex("00")},
      {kLevel, Hex("07"), Hex("07")},
      {kImportance, Hex("00"), Hex("00")},
      {kImportance, Hex("64"), Hex("64")},
      {kRecurrence, recurrence, recurrence},
      {kRecurrence, Bytes(10, 0), Bytes(10, 0)},
  };
  for (const auto& c : cases) {
    const Answered answer = fleet.Ask(Setting({Element(c.type, 0, c.set)}));
    EXPECT_EQ(answer.accepted(), 1u) << c.type;
    EXPECT_EQ(answer.refused(), 0u);
    EXPECT_EQ(answer.OfType(kCombinedUsage).size(), 1u);
    EXPECT_EQ(fleet.Ask(Asking({c.type})).Only(c.type), c.told) << c.type;
  }
}

TEST(Responder, ASetOfTheLevelChangesTheUsage) {
  FleetUnderTest fleet(NodeToml({{.number = 1, .level = 10, .step = 3}}));
  const Answered answer = fleet.Ask(Setting({Element(kLevel, 0, Hex("02"))}));
  const Bytes value = answer.Only(kCombinedUsage);
  EXPECT_EQ(Bytes(value.end() - 2, value.end()), U16(6));
}

TEST(Responder, ASetThatAsksForVectorsIsToldThem) {
  FleetUnderTest fleet(NodeToml({{.number = 1, .level = 10, .step = 3}}));
  const Answered answer =
      fleet.Ask(Setting({Element(kLevel, 0, Hex("01")), Element(kUsageVector, 0, Bytes(22, 0)),
                         Element(kDeltaVector, 0, Bytes(44, 0))}));
  EXPECT_EQ(answer.accepted(), 1u);
  const Bytes usages = answer.Only(kCombinedUsageVector);
  EXPECT_EQ(Bytes(usages.end() - 22, usages.end()), Vector16(3));
  const Bytes deltas = answer.Only(kCombinedDeltaVector);
  EXPECT_EQ(Bytes(deltas.end() - 44, deltas.end()), Vector32(-3, 3));
  EXPECT_TRUE(answer.OfType(kCombinedUsage).empty()) << "nobody asked for the usage";
}

TEST(Responder, WhatCannotBeSetIsRefusedByEveryDeviceItConcernsAndChangesNothing) {
  const Bytes refused[] = {
      // Values out of range.
      Element(kLevel, 0, Hex("0b")),
      Element(kLevel, 0, Hex("ff")),
      Element(kName, 0, Text("a\tb")),
      Element(kName, 0, Text("a*")),
      Element(kName, 0, Bytes(256, 'n')),
      Element(kRole, 0, Bytes(256, 'r')),
      Element(kKeywords, 0, Text("a*") + Hex("00")),
      Element(kRecurrence, 0, Counted(Text("a\nb")) + Hex("00 00 00000000")),
      Element(kRecurrence, 0, Counted(Bytes(256, 'r')) + Hex("00 00 00000000")),
      // Attributes that can only be read.
      Element(kIdentityType, 0, Identity32(DeviceId(5)) + U32(1)),
      Element(kDomain, 0, Text("elsewhere")),
      Element(kErrorText, 0, Text("none")),
      Element(kUnits, 0, Hex("01")),
      Element(kUsage, 0, U16(1)),
      Element(kEntityType, 0, U32(1)),
      Element(kReplyTo, 0, Hex("0200 1d10 7f000001 8*00")),
      Element(kNeighbor, 0, Identity32("x") + Counted({}) + Counted({}) + U32(0)),
      Element(kNeighborCount, 0, U16(1)),
      Element(kNannyVector, 0, U32(1)),
      Element(kDeltaVector, 0, Vector32(0, 1)),
      Element(kCaliber, 0, U32(2)),
      Element(kUsageVector, 0, Vector16(1)),
      Element(kText21, 0, Text("t")),
      Element(kCategory, 0, U32(0xFFFFFFFF)),
      // Attributes that nobody knows.
      Element(5, 0, Text("addressee")),
      Element(15, 0, Hex("05")),
      Element(16, 0, Hex("05")),
      Element(31, 0, U32(5)),
      Element(60, 0, Text("future")),
      Element(60, 0, {}),
      Element(0x8000000E, 0, {}),
  };
  FleetUnderTest fleet(MixedDevices());
  const PduImage everything =
      Asking({kName, kRole, kKeywords, kLevel, kImportance, kUsage, kRecurrence});
  const std::vector<Bytes> before = fleet.Ask(everything).messages;
  for (const Bytes& element : refused) {
    const Answered answer =
        fleet.Ask(Setting({Element(kImportance, 0, Hex("63")), element,
                           Element(kRole, 0, Text("r")), Qualifier(kRole, Text("lamp"))}));
    EXPECT_EQ(answer.accepted(), 0u);
    EXPECT_EQ(answer.refused(), 4u) << "those that it does not concern as well";
    EXPECT_TRUE(answer.Of(1).empty());
    EXPECT_EQ(fleet.Ask(everything).messages, before);
  }
}

TEST(Responder, ASetMayAskForWhatCanOnlyBeRead) {
  FleetUnderTest fleet(NodeToml({DeviceToml{}}));
  // As clients write it: an element without a value, or zeros in its place.
  const PduImage asking =
      Asking({kIdentityType, kDomain, kErrorText, kUnits, kUsage, kEntityType, kReplyTo, kNeighbor,
              kNeighborCount, kNannyVector, kDeltaVector, kCaliber, kUsageVector, kText21,
              kCategory, kName, kRole, kKeywords});
  PduImage set = Setting({Element(kLevel, 0, Hex("05"))});
  set.elements.insert(set.elements.end(), asking.elements.begin() + 1, asking.elements.end());
  EXPECT_EQ(fleet.Ask(set).accepted(), 1u);
  EXPECT_EQ(fleet.Ask(Asking({kLevel})).Only(kLevel), Hex("05"));
  EXPECT_EQ(fleet.Ask(Asking({kName})).Only(kName), Counted(Text("lamp-1")));
}

// --- sums ---

// SumOf takes a combined element of a sum apart: units, and what is behind the header.
struct SumOf {
  int units;
  Bytes header;
  Bytes value;
};

SumOf Sum(const Bytes& told, std::size_t value_size) {
  // Word, caliber, "test-node", "node", units.
  constexpr std::size_t units_offset = 4 + 4 + 4 + 9 + 4 + 4;
  const auto value = told.end() - static_cast<std::ptrdiff_t>(value_size);
  return {static_cast<std::int8_t>(told.at(units_offset)), Bytes(told.begin(), value),
          Bytes(value, told.end())};
}

TEST(Responder, SumsTellUsageAndDeltaVectorOfTheNode) {
  DeviceToml small{.number = 2, .name = "lamp-2", .importance = 30, .level = 3};
  small.units = -1;
  small.step = 5;
  FleetUnderTest fleet(NodeToml({{.number = 1, .level = 10, .step = 2}, small}));
  const Answered answer = fleet.Ask(Summing({kCombinedUsage, kCombinedDeltaVector}));
  EXPECT_EQ(answer.accepted(), 2u);
  ASSERT_EQ(answer.Of(1).size(), 2u);
  for (const Told& told : answer.Of(1)) {
    EXPECT_EQ(told.device, DeviceId(0));
    EXPECT_EQ(told.entity, 1u);
  }
  // 20 W and 1.5 W; to level i: 2i W and 0.5i W. All fit into milliwatts.
  const SumOf usage = Sum(answer.Only(kCombinedUsage), 2);
  EXPECT_EQ(usage.units, -3);
  EXPECT_EQ(usage.value, U16(21500));
  EXPECT_EQ(usage.header, Cat({U32(0), U32(0xFFFFFFFF), Counted(Text("test-node")),
                               Counted(Text("node")), Hex("fd 0a 1e"), Counted({})}));
  EXPECT_EQ(Sum(answer.Only(kCombinedDeltaVector), 44).value, Vector32(-21500, 2500));
}

TEST(Responder, SumsTellOnlyWhatIsAskedFor) {
  FleetUnderTest fleet(NodeToml({DeviceToml{}}));
  EXPECT_EQ(fleet.Ask(Summing({kCombinedUsage})).Of(1).size(), 1u);
  EXPECT_EQ(fleet.Ask(Summing({kCombinedDeltaVector})).OfType(kCombinedDeltaVector).size(), 1u);
  EXPECT_TRUE(fleet.Ask(Summing({})).Of(1).empty());
}

TEST(Responder, SumsGetUnitsInWhichTheyFit) {
  // Each of a thousand uses 65 W: 65 kW are the most that 16 bits hold in watts.
  const auto group = [](const std::string& watts) {
    return NodeTable() + "[[group]]\ncount = 1000\nname = \"d{n}\"\nrole = \"r\"\nwatts = [0, " +
           watts + "]\n";
  };
  const struct {
    std::string watts;
    int units;
    std::uint16_t sum;
  } cases[] = {
      {"0", -3, 0},        {"0.065", -3, 65000},   {"0.066", -2, 6600},      {"65.535", 0, 65535},
      {"65.536", 1, 6554}, {"65000000", 6, 65000}, {"6553500000", 8, 65535},
  };
  for (const auto& c : cases) {
    FleetUnderTest fleet(group(c.watts));
    const Answered answer = fleet.Ask(Summing({kCombinedUsage, kCombinedDeltaVector}));
    const SumOf usage = Sum(answer.Only(kCombinedUsage), 2);
    EXPECT_EQ(usage.units, c.units) << c.watts;
    EXPECT_EQ(usage.value, U16(c.sum)) << c.watts;
    const SumOf delta = Sum(answer.Only(kCombinedDeltaVector), 44);
    EXPECT_EQ(delta.units, c.units);
    EXPECT_EQ(Bytes(delta.value.begin(), delta.value.begin() + 4),
              U32(static_cast<std::uint32_t>(-int{c.sum})));
  }
}

TEST(Responder, SumsOverUsagesOfZeroStillHoldTheirChanges) {
  // Nothing is used now; level 10 would add 65 MW each, more than 32 bits of milliwatts hold.
  FleetUnderTest fleet(NodeTable() +
                       "[[group]]\ncount = 10\nname = \"d{n}\"\nrole = \"r\"\nlevel = 0\n"
                       "watts = [0, 65000000]\n");
  const Bytes told = fleet.Ask(Summing({kCombinedDeltaVector})).Only(kCombinedDeltaVector);
  const SumOf sum = Sum(told, 44);
  EXPECT_EQ(sum.units, 0);
  EXPECT_EQ(Bytes(sum.value.end() - 4, sum.value.end()), U32(650'000'000));
}

TEST(Responder, SumsAreOfTheDevicesThatTheyConcern) {
  FleetUnderTest fleet(MixedDevices());
  PduImage image = Summing({kCombinedUsage});
  image.elements.push_back(Qualifier(kRole, Text("lamp")));
  const Answered answer = fleet.Ask(image);
  EXPECT_EQ(Sum(answer.Only(kCombinedUsage), 2).value, U16(20000));
  EXPECT_EQ(answer.accepted(), 2u);
  EXPECT_EQ(answer.refused(), 2u);
  image.elements.back() = Qualifier(kRole, Text("none"));
  const Answered nobody = fleet.Ask(image);
  EXPECT_EQ(nobody.refused(), 4u);
  EXPECT_TRUE(nobody.Of(1).empty());
}

TEST(Responder, CalibersThatDifferAreUnknownInASum) {
  DeviceToml actual{.number = 2, .name = "lamp-2"};
  actual.more = "caliber = \"actual\"";
  FleetUnderTest fleet(NodeToml({{.number = 1}, actual}));
  const Bytes told = fleet.Ask(Summing({kCombinedUsage})).Only(kCombinedUsage);
  EXPECT_EQ(Bytes(told.begin() + 4, told.begin() + 8), U32(0));
}

// --- time ---

TEST(Responder, PowerIsThatOfTheClock) {
  FleetUnderTest fleet(NodeTable() +
                       "[[group]]\ncount = 2\nname = \"d{n}\"\nrole = \"r\"\nwatts = [0, 20]\n"
                       "profile = { kind = \"sine\", period = 100 }\n");
  const struct {
    std::int64_t time;
    std::uint16_t usage;
  } cases[] = {{0, 0}, {25, 10000}, {50, 20000}, {75, 10000}, {1000000025, 10000}};
  for (const auto& c : cases) {
    fleet.now = c.time;
    const std::vector<Told> told = fleet.Ask(Asking({kUsage})).OfType(kCombinedUsage);
    ASSERT_EQ(told.size(), 2u);
    for (const Told& entry : told) {
      EXPECT_EQ(Bytes(entry.value.end() - 2, entry.value.end()), U16(c.usage)) << c.time;
    }
    EXPECT_EQ(Sum(fleet.Ask(Summing({kCombinedUsage})).Only(kCombinedUsage), 2).value,
              U16(static_cast<std::uint16_t>(2 * c.usage)));
  }
}

PduImage WithTimeout(PduImage image, std::uint8_t timeout) {
  image.elements.push_back(Element(kTimeout, 0, {timeout}));
  return image;
}

TEST(Responder, NothingIsToldBeyondTheTimeOfTheQuery) {
  FleetUnderTest fleet(NodeTable() +
                       "[[group]]\ncount = 2000\nname = \"d{n}\"\nrole = \"r\"\nwatts = [0, 1]\n");
  fleet.steady_step = std::chrono::seconds(1);
  const std::size_t in_three = fleet.Ask(WithTimeout(Asking({kLevel}), 3)).accepted();
  EXPECT_GT(in_three, 0u);
  EXPECT_LT(in_three, 2000u);
  const std::size_t in_five = fleet.Ask(WithTimeout(Asking({kLevel}), 5)).accepted();
  EXPECT_GT(in_five, in_three);
  EXPECT_EQ(fleet.Ask(WithTimeout(Asking({kLevel}), 180)).accepted(), 2000u);
  EXPECT_GT(fleet.Ask(Asking({kLevel})).accepted(), in_five) << "6 seconds unless it is said";
}

TEST(Responder, ASetWhoseTimeIsOverSetsNothing) {
  FleetUnderTest fleet(NodeToml({DeviceToml{}}));
  fleet.steady_step = std::chrono::seconds(10);
  EXPECT_THROW(fleet.Ask(WithTimeout(Setting({Element(kLevel, 0, Hex("01"))}), 5)), node::Rejected);
  fleet.steady_step = {};
  EXPECT_EQ(fleet.Ask(Asking({kLevel})).Only(kLevel), Hex("0a"));
}

// --- state ---

TEST(Responder, WhatWasSetOutlivesTheNode) {
  const TempFolder folder;
  const std::string state = folder.path("state");
  const std::string config = MixedDevices();
  PduImage set = Setting({Element(kLevel, 0, Hex("03")), Element(kName, 0, Text("kept")),
                          Element(kRecurrence, 0, Counted(Text("x")) + Hex("01 02 00000003"))});
  set.elements.push_back(Qualifier(kName, Text("lamp-2")));
  EXPECT_EQ(FleetUnderTest(config, state).Ask(set).accepted(), 1u);

  FleetUnderTest again(config, state);
  PduImage ask = Asking({kLevel});
  ask.elements.push_back(Qualifier(kName, Text("kept")));
  EXPECT_EQ(again.Ask(ask).Only(kLevel), Hex("03"));
  ask = Asking({kRecurrence});
  ask.elements.push_back(Qualifier(kName, Text("kept")));
  EXPECT_EQ(again.Ask(ask).Only(kRecurrence), Counted(Text("x")) + Hex("01 02 00000003"));
  EXPECT_EQ(NamesFrom(again.Ask(Asking({kName}))),
            (std::set<std::string>{"lamp-1", "kept", "phone-1"}));
}

TEST(Responder, ASetThatCannotBeKeptIsRefusedAndUndone) {
  const TempFolder folder;
  const std::string place = folder.path("place");
  std::filesystem::create_directory(place);
  FleetUnderTest fleet(NodeToml({DeviceToml{}}), place + "/state");
  const PduImage first = Setting({Element(kLevel, 0, Hex("07")), Element(kName, 0, Text("one"))});
  ASSERT_EQ(fleet.Ask(first).accepted(), 1u);
  std::filesystem::remove_all(place);
  const Answered answer =
      fleet.Ask(Setting({Element(kLevel, 0, Hex("01")), Element(kName, 0, Text("two")),
                         Element(kRole, 0, Text("other"))}));
  EXPECT_EQ(answer.accepted(), 0u);
  EXPECT_EQ(answer.refused(), 1u);
  EXPECT_TRUE(answer.Of(1).empty());
  EXPECT_EQ(fleet.Ask(Asking({kLevel})).Only(kLevel), Hex("07")) << "what was set before stays";
  EXPECT_EQ(fleet.Ask(Asking({kName})).Only(kName), Counted(Text("one")));
  EXPECT_EQ(fleet.Ask(Asking({kRole})).Only(kRole), Counted(Text("lamp")));
  EXPECT_EQ(fleet.Ask(first).accepted(), 1u) << "what is so already needs no writing";
}

TEST(Responder, ASetIsRefusedAndUndoneWhicheverCallOfTheDiskFails) {
  const TempFolder folder;
  FleetUnderTest fleet(NodeToml({DeviceToml{}}), folder.path("state"));
  for (std::size_t call = 0; call < 3; ++call) {
    {
      DiskCalls disk;
      disk.fail_at = call;
      const Answered answer = fleet.Ask(Setting({Element(kLevel, 0, Hex("01"))}));
      EXPECT_EQ(answer.accepted(), 0u) << call;
      EXPECT_EQ(answer.refused(), 1u) << call;
    }
    EXPECT_EQ(fleet.Ask(Asking({kLevel})).Only(kLevel), Hex("0a")) << call;
    EXPECT_TRUE(node::StateFile(folder.path("state")).Load().records.empty())
        << "nor would the level come with the next start: " << call;
  }
}

TEST(Responder, ASetThatChangesNothingIsNotWritten) {
  const TempFolder folder;
  const std::string state = folder.path("state");
  FleetUnderTest fleet(NodeToml({DeviceToml{}}), state);
  const PduImage set = Setting({Element(kLevel, 0, Hex("07"))});
  ASSERT_EQ(fleet.Ask(set).accepted(), 1u);
  ASSERT_EQ(unlink(state.c_str()), 0);
  EXPECT_EQ(fleet.Ask(set).accepted(), 1u);
  EXPECT_FALSE(std::filesystem::exists(state));
}

TEST(Responder, OneSetOfManyDevicesIsWrittenOnce) {
  const TempFolder folder;
  const std::string state = folder.path("state");
  FleetUnderTest fleet(NodeTable() +
                           "[[group]]\ncount = 500\nname = \"d{n}\"\nrole = \"r\"\n"
                           "watts = [0, 1]\n",
                       state);
  ASSERT_EQ(fleet.Ask(Setting({Element(kLevel, 0, Hex("07"))})).accepted(), 500u);
  const node::StateFile::Loaded loaded = node::StateFile(state).Load();
  EXPECT_EQ(loaded.records.size(), 500u);
}

// --- what is not answered ---

TEST(Responder, QueriesThatNobodyServesAreRejected) {
  FleetUnderTest fleet(NodeToml({DeviceToml{}}));
  const std::pair<std::uint8_t, std::uint16_t> kinds[] = {{10, 12}, {10, 13}, {10, 9},  {11, 11},
                                                          {11, 12}, {11, 13}, {12, 10}, {14, 10}};
  for (const auto& [cls, action] : kinds) {
    PduImage image = Asking({kLevel});
    image.cls = cls;
    image.action = action;
    EXPECT_THROW(fleet.Ask(image), node::Rejected) << int{cls} << " " << action;
  }
  PduImage further = Asking({kLevel});
  further.action = 14;
  EXPECT_EQ(fleet.Ask(further).Only(kLevel), Hex("0a")) << "the third query action is a collect";
}

}  // namespace
}  // namespace vt::testing
