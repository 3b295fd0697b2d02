// Whom faults strike and how often, and what devices with faults say, without a network.
#include "node/fault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/node/element_types.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::Chance;
using node::Delivery;

constexpr std::int8_t kWill = -1;
constexpr std::int8_t kWont = -2;
constexpr std::int8_t kLater = -4;
constexpr std::int8_t kResult = 1;

// Three lamps and a phone, and what goes wrong with them.
std::string Office(const std::string& faults) {
  DeviceToml phone{.number = 4, .name = "phone-1", .role = "phone", .keywords = "\"desk\", \"a\""};
  return NodeToml({{.number = 1, .name = "lamp-1"},
                   {.number = 2, .name = "lamp-2"},
                   {.number = 3, .name = "lamp-3"},
                   phone}) +
         faults;
}

// Who is the numbers of the devices that an answer tells of with that shipment, in their order.
std::string Who(const Answered& answered, std::int8_t shipment) {
  std::string who;
  for (int number = 1; number <= 9; ++number) {
    const auto is_of = [number](const Told& told) { return told.device == DeviceId(number); };
    if (std::ranges::any_of(answered.Of(shipment), is_of)) who += std::to_string(number);
  }
  return who;
}

PduImage AskNames() { return Asking({kName}); }

PduImage SumUsage() { return Summing({43}); }

PduImage Among(PduImage image, const std::string& name) {
  constexpr std::uint32_t qualifies = 1;
  image.elements.push_back(Element(kName, qualifies, Text(name)));
  return image;
}

// Struck is the devices that are silent for a fault, of the four.
std::string Struck(const std::string& selector) {
  FleetUnderTest fleet(Office(FaultToml("silent", selector)));
  std::string struck = "1234";
  for (const char answering : Who(fleet.Ask(AskNames()), kWill)) std::erase(struck, answering);
  return struck;
}

// --- chance ---

std::string Draws(Chance chance, int count) {
  std::string draws;
  for (int i = 0; i < count; ++i) draws += chance.Draw() ? 'x' : '.';
  return draws;
}

TEST(Chance, OfZeroIsNeverAndOfOneAlwaysTrue) {
  EXPECT_EQ(Draws(Chance(0, 1), 1000), std::string(1000, '.'));
  EXPECT_EQ(Draws(Chance(1'000'000, 1), 1000), std::string(1000, 'x'));
}

TEST(Chance, IsTheSameForASeedOnEveryMachine) {
  EXPECT_EQ(Draws(Chance(300'000, 7), 40), ".x..x..x..x.xx.x......xx...x....x....x.x");
  EXPECT_EQ(Draws(Chance(300'000, 7), 1000), Draws(Chance(300'000, 7), 1000));
  EXPECT_NE(Draws(Chance(300'000, 7), 1000), Draws(Chance(300'000, 8), 1000));
}

TEST(Chance, InBetweenIsTrueAboutAsOftenAsItSays) {
  const std::string draws = Draws(Chance(300'000, 1), 10'000);
  const auto count = std::ranges::count(draws, 'x');
  EXPECT_GT(count, 2800);
  EXPECT_LT(count, 3200);
}

// --- whom faults are for ---

TEST(Fault, WithoutASelectorIsForEveryDevice) { EXPECT_EQ(Struck(""), "1234"); }

TEST(Fault, IsForDevicesByNameWithAStarAtTheEnd) {
  EXPECT_EQ(Struck("devices = \"lamp-2\""), "2");
  EXPECT_EQ(Struck("devices = \"lamp*\""), "123");
  EXPECT_EQ(Struck("devices = [\"lamp-3\", \"ph*\"]"), "34");
  EXPECT_EQ(Struck("devices = \"lamp\""), "");
}

TEST(Fault, IsForDevicesByIdentityRoleKeywordAndDomain) {
  EXPECT_EQ(Struck("id = \"" + DeviceId(3) + "\""), "3");
  EXPECT_EQ(Struck("role = \"phone\""), "4");
  EXPECT_EQ(Struck("keyword = \"light\""), "123");
  EXPECT_EQ(Struck("keyword = \"a\""), "4") << "the second of its keywords";
  EXPECT_EQ(Struck("keyword = \"desk,a\""), "") << "the list is none";
  EXPECT_EQ(Struck("domain = \"test\""), "1234");
}

TEST(Fault, IsForDevicesThatAllItsSelectorsName) {
  EXPECT_EQ(Struck("role = \"lamp\"\nid = \"" + DeviceId(2) + "\""), "2");
  EXPECT_EQ(Struck("role = \"phone\"\nid = \"" + DeviceId(2) + "\""), "");
}

TEST(Fault, OfADomainLeavesAnotherDomainAlone) {
  FleetUnderTest fleet(
      Office("[[group]]\ncount = 1\nname = \"fan\"\nrole = \"fan\"\nwatts = [0, "
             "1]\ndomain = \"other\"\n" +
             FaultToml("silent", "domain = \"other\"")));
  EXPECT_EQ(Who(fleet.Ask(AskNames()), kWill), "1234");
}

TEST(Fault, FollowsANameThatWasSet) {
  FleetUnderTest fleet(Office(FaultToml("silent", "devices = \"broken*\"")));
  EXPECT_EQ(Who(fleet.Ask(AskNames()), kWill), "1234");
  (void)fleet.Ask(Among(Setting({Element(kName, 0, Text("broken lamp"))}), "lamp-2"));
  EXPECT_EQ(Who(fleet.Ask(AskNames()), kWill), "134");
}

TEST(Fault, StrikesAllEntitiesOfADeviceForOneOfThem) {
  FleetUnderTest fleet(NodeToml({{.number = 1, .entity = 1, .name = "a"},
                                 {.number = 1, .entity = 2, .name = "b"},
                                 {.number = 2, .name = "c"}}) +
                       FaultToml("silent", "devices = \"b\""));
  EXPECT_EQ(Who(fleet.Ask(AskNames()), kWill), "2");
}

TEST(Fault, IsForKindsOfQueries) {
  FleetUnderTest fleet(Office(FaultToml("silent", "queries = [\"set\", \"sum\"]")));
  EXPECT_EQ(fleet.Ask(AskNames()).accepted(), 4u);
  EXPECT_EQ(fleet.Ask(SettingLevel(3)).accepted(), 0u);
  EXPECT_EQ(fleet.Ask(SumUsage()).accepted(), 0u);
  PduImage further = AskNames();
  further.action = 14;
  EXPECT_EQ(fleet.Ask(further).accepted(), 4u) << "which collects, too";
}

TEST(Fault, IsForClientsByAddressAndNetwork) {
  FleetUnderTest fleet(
      Office(FaultToml("close-early", "clients = [\"192.0.2.7\", \"198.51.100.0/28\"]")));
  const auto is_struck = [&fleet](const std::string& client) {
    return fleet.Deliver(AskNames(), client).messages.empty();
  };
  EXPECT_TRUE(is_struck("192.0.2.7"));
  EXPECT_FALSE(is_struck("192.0.2.8"));
  EXPECT_TRUE(is_struck("198.51.100.0"));
  EXPECT_TRUE(is_struck("198.51.100.15"));
  EXPECT_FALSE(is_struck("198.51.100.16"));
  EXPECT_FALSE(is_struck("127.0.0.1"));
}

TEST(Fault, OfADeviceMayBeForSomeClients) {
  FleetUnderTest fleet(
      Office(FaultToml("silent", "devices = \"lamp-1\"\nclients = \"192.0.2.0/24\"")));
  const std::size_t whole = fleet.Deliver(AskNames()).messages[0].size();
  EXPECT_LT(fleet.Deliver(AskNames(), "192.0.2.9").messages[0].size(), whole);
}

TEST(Fault, ThatIsNotEnabledStrikesNobody) { EXPECT_EQ(Struck("enabled = false"), ""); }

TEST(Fault, OfProbabilityZeroStrikesNobodyAndOfOneEverybody) {
  EXPECT_EQ(Struck("probability = 0"), "");
  EXPECT_EQ(Struck("probability = 1.0\nseed = 3"), "1234");
}

TEST(Fault, InBetweenStrikesDeviceByDeviceAsItsSeedSays) {
  const std::string config = Office(FaultToml("silent", "probability = 0.5\nseed = 11"));
  std::vector<std::string> answers;
  FleetUnderTest fleet(config);
  for (int i = 0; i < 20; ++i) answers.push_back(Who(fleet.Ask(AskNames()), kWill));
  FleetUnderTest again(config);
  for (const std::string& answer : answers) EXPECT_EQ(Who(again.Ask(AskNames()), kWill), answer);
  // Four devices draw in turn.
  const std::string draws = Draws(Chance(500'000, 11), 80);
  for (std::size_t i = 0; i < answers.size(); ++i) {
    std::string expected;
    for (std::size_t device = 0; device < 4; ++device) {
      if (draws[4 * i + device] == '.') expected += std::to_string(device + 1);
    }
    EXPECT_EQ(answers[i], expected);
  }
}

TEST(Fault, TheFirstOfTheFileThatStrikesDecides) {
  FleetUnderTest fleet(Office(FaultToml("nak", "devices = \"lamp-1\"") +
                              FaultToml("later", "role = \"lamp\"\nprobability = 0") +
                              FaultToml("silent", "role = \"lamp\"")));
  const Answered answered = fleet.Ask(AskNames());
  EXPECT_EQ(Who(answered, kWont), "1");
  EXPECT_EQ(Who(answered, kLater), "");
  EXPECT_EQ(Who(answered, kWill), "4");
}

// --- devices that do not answer ---

TEST(Fault, NakRefusesACollectAsAWholeAndTellsNothing) {
  FleetUnderTest fleet(Office(FaultToml("nak", "devices = \"lamp-2\"")));
  const Answered answered = fleet.Ask(AskNames());
  ASSERT_EQ(answered.Of(kWont).size(), 1u);
  EXPECT_EQ(answered.Of(kWont)[0].device, DeviceId(2));
  EXPECT_EQ(answered.Of(kWont)[0].entity, 0u) << "the device as a whole, which makes no row";
  EXPECT_EQ(Who(answered, kWill), "134");
  EXPECT_EQ(Who(answered, kResult), "134");
}

TEST(Fault, LaterIsAnAcknowledgementOfItsOwn) {
  FleetUnderTest fleet(NodeToml({{.number = 1, .name = "a"}}) + FaultToml("later"));
  const Delivery delivery = fleet.Deliver(AskNames());
  ASSERT_EQ(delivery.messages.size(), 1u);
  PduImage expected;
  expected.identity = Identity32(DeviceId(0));
  expected.shipment = 0xFC;
  expected.pri = 100;
  expected.elements = {
      Element(0x8000002A, 0, Cat({DeviceHeader(DeviceId(1), Bytes(16, 0)), U32(1), U32(1)}))};
  const Bytes wire = expected.Signed(KeyOfSender());
  EXPECT_TRUE(SameBytes(Bytes(wire.begin() + 12, wire.end()), delivery.messages[0].data() + 12,
                        delivery.messages[0].size() - 12));
}

TEST(Fault, SilentDevicesAreNowhereInTheAnswer) {
  FleetUnderTest fleet(Office(FaultToml("silent", "devices = \"lamp-2\"")));
  const Answered answered = fleet.Ask(AskNames());
  EXPECT_EQ(Who(answered, kWill), "134");
  EXPECT_EQ(Who(answered, kResult), "134");
  EXPECT_EQ(Who(answered, kWont), "");
}

TEST(Fault, SilentDevicesDoNotRefuseEither) {
  FleetUnderTest fleet(Office(FaultToml("silent", "role = \"lamp\"")));
  for (const PduImage& query : {AskNames(), SettingLevel(3), SumUsage()}) {
    const Answered answered = fleet.Ask(Among(query, "nobody"));
    EXPECT_EQ(Who(answered, kWont), "4");
  }
}

TEST(Fault, DevicesThatWouldRefuseAnywayPutNothingOff) {
  FleetUnderTest fleet(Office(FaultToml("later")));
  for (const PduImage& query : {AskNames(), SettingLevel(3), SumUsage()}) {
    const Answered answered = fleet.Ask(Among(query, "lamp-1"));
    EXPECT_EQ(Who(answered, kLater), "1");
    EXPECT_EQ(Who(answered, kWont), "234");
    EXPECT_EQ(Who(answered, kWill), "");
  }
}

TEST(Fault, ASetDoesNotReachDevicesThatDoNotAnswer) {
  FleetUnderTest fleet(Office(FaultToml("nak", "devices = \"lamp-1\"\nqueries = \"set\"") +
                              FaultToml("later", "devices = \"lamp-2\"\nqueries = \"set\"") +
                              FaultToml("silent", "devices = \"lamp-3\"\nqueries = \"set\"")));
  const Answered set = fleet.Ask(SettingLevel(3));
  EXPECT_EQ(Who(set, kWont), "1");
  EXPECT_EQ(set.Of(kWont)[0].entity, 1u);
  EXPECT_EQ(Who(set, kLater), "2");
  EXPECT_EQ(Who(set, kWill), "4");
  EXPECT_EQ(Who(set, kResult), "4");
  for (const Told& told : fleet.Ask(Asking({kLevel})).OfType(kLevel)) {
    EXPECT_EQ(told.value, Bytes{static_cast<std::uint8_t>(told.device == DeviceId(4) ? 3 : 10)})
        << told.device;
  }
}

TEST(Fault, ASumIsWithoutTheDevicesThatDoNotAnswer) {
  FleetUnderTest fleet(Office(FaultToml("nak", "devices = \"lamp-1\"") +
                              FaultToml("later", "devices = \"lamp-2\"") +
                              FaultToml("silent", "devices = \"lamp-3\"")));
  const Answered sum = fleet.Ask(SumUsage());
  EXPECT_EQ(Who(sum, kWont), "1");
  EXPECT_EQ(Who(sum, kLater), "2");
  EXPECT_EQ(Who(sum, kWill), "4");
  const Bytes value = sum.Only(43);
  EXPECT_EQ(Bytes(value.end() - 2, value.end()), U16(10'000)) << "milliwatts, of the phone alone";
}

// --- devices whose messages are spoiled ---

bool IsSigned(const Bytes& message) { return Sign(message, KeyOfSender()) == message; }

// TellsOf looks behind the headers, which name the node.
bool TellsOf(const Bytes& message, int device) {
  const Bytes id = Text(DeviceId(device));
  return std::search(message.begin() + 80, message.end(), id.begin(), id.end()) != message.end();
}

TEST(Fault, AWrongDigestIsInTheMessagesOfItsDevicesAlone) {
  FleetUnderTest fleet(Office(FaultToml("wrong-digest", "devices = [\"lamp-1\", \"phone-1\"]")));
  const Delivery delivery = fleet.Deliver(AskNames());
  ASSERT_EQ(delivery.messages.size(), 4u) << "two of each, acknowledgements and results";
  for (const Bytes& message : delivery.messages) {
    const bool is_struck = TellsOf(message, 1) && TellsOf(message, 4);
    const bool is_well = TellsOf(message, 2) && TellsOf(message, 3);
    EXPECT_NE(is_struck, is_well);
    EXPECT_EQ(IsSigned(message), is_well);
    EXPECT_FALSE(is_struck && is_well);
  }
  Bytes wrong = delivery.messages[2];
  wrong[12] ^= 0xFF;
  EXPECT_TRUE(IsSigned(wrong)) << "nothing but the digest is wrong";
}

TEST(Fault, AMalformedElementCountsMoreThanItHasUnderARightDigest) {
  FleetUnderTest fleet(NodeToml({{.number = 1, .name = "abc", .role = std::string(255, 'r')}}) +
                       FaultToml("malformed"));
  const Delivery delivery = fleet.Deliver(AskNames());
  ASSERT_EQ(delivery.messages.size(), 2u);
  const Bytes device = DeviceHeader(DeviceId(1), Bytes(16, 0));
  const Bytes accepted = Element(0x8000002A, 0, Cat({device, U32(2), U32(1)}));
  const Bytes told =
      Cat({Element(8, 0, Text("test")),
           Element(0x80000009, 0, Cat({device, U32(2), U32(1), Counted(Text("abc"))}))});
  EXPECT_EQ(Bytes(delivery.messages[0].begin() + 80, delivery.messages[0].end()), accepted);
  EXPECT_EQ(Bytes(delivery.messages[1].begin() + 80, delivery.messages[1].end()), told);
  for (const Bytes& message : delivery.messages) EXPECT_TRUE(IsSigned(message));
}

TEST(Fault, DuplicatesFollowTheirOriginals) {
  FleetUnderTest fleet(Office(FaultToml("duplicate", "devices = \"lamp-3\"")));
  const Delivery delivery = fleet.Deliver(AskNames());
  ASSERT_EQ(delivery.messages.size(), 6u);
  EXPECT_NE(delivery.messages[0], delivery.messages[1]);
  EXPECT_TRUE(TellsOf(delivery.messages[2], 3));
  EXPECT_EQ(delivery.messages[2], delivery.messages[3]);
  EXPECT_EQ(delivery.messages[4], delivery.messages[5]);
  for (const Bytes& message : delivery.messages) EXPECT_TRUE(IsSigned(message));
}

TEST(Fault, DevicesWhoseMessagesAreSpoiledDoWhatTheQuerySays) {
  for (const std::string kind : {"wrong-digest", "malformed", "duplicate"}) {
    FleetUnderTest fleet(
        Office(FaultToml(kind, "devices = \"lamp-1\"\nqueries = [\"set\", \"sum\"]")));
    (void)fleet.Deliver(SettingLevel(3));
    for (const Told& told : fleet.Ask(Asking({kLevel})).OfType(kLevel)) {
      EXPECT_EQ(told.value, Bytes{3}) << kind << told.device;
    }
    std::size_t sums = 0;
    for (const Bytes& message : fleet.Deliver(SumUsage()).messages) {
      if (!TellsOf(message, 0)) continue;
      ++sums;
      EXPECT_TRUE(IsSigned(message)) << "what the node tells is right";
      EXPECT_EQ(Bytes(message.end() - 2, message.end()), U16(12'000)) << kind;
    }
    EXPECT_EQ(sums, 1u) << kind;
  }
}

TEST(Fault, RefusalsOfSpoiledDevicesAreSpoiledToo) {
  FleetUnderTest fleet(Office(FaultToml("wrong-digest", "devices = \"lamp-1\"")));
  const Delivery delivery = fleet.Deliver(Among(AskNames(), "nobody"));
  ASSERT_EQ(delivery.messages.size(), 2u);
  EXPECT_FALSE(TellsOf(delivery.messages[0], 1));
  EXPECT_TRUE(IsSigned(delivery.messages[0]));
  EXPECT_TRUE(TellsOf(delivery.messages[1], 1));
  EXPECT_FALSE(IsSigned(delivery.messages[1]));
}

// --- connections ---

TEST(Fault, OfAConnectionThatNamesDevicesStrikesWhenTheQueryConcernsOne) {
  FleetUnderTest fleet(Office(FaultToml("close-early", "devices = \"lamp-2\"")));
  EXPECT_TRUE(fleet.Deliver(AskNames()).messages.empty());
  EXPECT_TRUE(fleet.Deliver(Among(AskNames(), "lamp-2")).messages.empty());
  EXPECT_EQ(fleet.Deliver(Among(AskNames(), "lamp-1")).messages.size(), 3u)
      << "where lamp-2 refuses, which is not to be asked for it";
  EXPECT_TRUE(fleet.Deliver(Among(SettingLevel(3), "lamp*")).messages.empty());
  EXPECT_TRUE(fleet.Deliver(SumUsage()).messages.empty());
}

TEST(Fault, OfAConnectionDrawsOnceForEachAnswer) {
  FleetUnderTest fleet(Office(FaultToml("close-early", "probability = 0.5\nseed = 4")));
  std::string struck;
  for (int i = 0; i < 40; ++i) struck += fleet.Deliver(AskNames()).messages.empty() ? 'x' : '.';
  EXPECT_EQ(struck, Draws(Chance(500'000, 4), 40));
}

TEST(Fault, OfADeviceAndOneOfTheConnectionStrikeTogether) {
  FleetUnderTest fleet(Office(FaultToml("delay", "delay = 5") +
                              FaultToml("nak", "devices = \"lamp-1\"") +
                              FaultToml("drip", "bytes = 1\npause = 1")));
  const Delivery delivery = fleet.Deliver(AskNames());
  EXPECT_EQ(delivery.messages.size(), 3u) << "will, won't, results";
  EXPECT_EQ(delivery.delay.count(), 5);
  EXPECT_EQ(delivery.step, 0u) << "of a connection, the first alone";
}

}  // namespace
}  // namespace vt::testing
