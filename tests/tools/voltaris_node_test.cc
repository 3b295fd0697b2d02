// voltaris-node as the network meets it: what it answers and to whom, what it survives, and how it
// starts and ends.

#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <set>

#include "vtapi.h"

#include "tests/harness/pdu_image.h"
#include "tests/harness/peer.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

constexpr std::uint8_t kWillAnswer = 0xFF;
constexpr std::uint8_t kWontAnswer = 0xFE;
constexpr std::uint8_t kResult = 1;

constexpr std::size_t kShipmentOffset = 69;
constexpr std::size_t kClassOffset = 73;
constexpr std::size_t kActionOffset = 74;

// CollectImage is a query for the names and usages of the domain "test".
PduImage CollectImage() {
  PduImage image;
  image.seq = 0x01020304;
  image.pri = 100;
  image.elements = {Element(8, 0, Text("test")), Element(9, 0, {}), Element(13, 0, U16(0))};
  return image;
}

// KeyedNode is a node that knows the key of these tests.
class KeyedNode {
 public:
  explicit KeyedNode(const std::string& config, std::vector<std::string> arguments = {})
      : node_(config, WithKey(std::move(arguments))) {}

  Node* operator->() { return &node_; }

  // Exchange sends bytes on a connection of its own and returns the messages that come back.
  std::vector<Bytes> Exchange(const Bytes& bytes) {
    PeerConnection connection = node_.Connect();
    connection.Send(bytes);
    connection.HalfClose();
    return SplitPdus(connection.ReadAll());
  }

  Outcome Ask(std::vector<std::string> arguments) {
    return node_.Ask(std::move(arguments), {{"VOLTARIS_KEY_FILE", folder_.path("key")}});
  }

 private:
  std::vector<std::string> WithKey(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--key-file", folder_.Write("key", kKeyHex)});
    return arguments;
  }

  TempFolder folder_;
  Node node_;
};

std::string ManyDevices(int count) {
  std::vector<DeviceToml> devices;
  for (int i = 1; i <= count; ++i) {
    devices.push_back({.number = i, .name = "lamp-" + std::to_string(i)});
  }
  return NodeToml(devices);
}

std::size_t CountShipment(const std::vector<Bytes>& messages, std::uint8_t shipment) {
  return static_cast<std::size_t>(std::ranges::count_if(messages, [shipment](const Bytes& message) {
    return message.size() > kShipmentOffset && message[kShipmentOffset] == shipment;
  }));
}

// --- what is answered ---

TEST(VoltarisNode, AnswersAreSignedAndEchoClassActionAndNumber) {
  KeyedNode node(TwoLamps());
  const std::vector<Bytes> messages = node.Exchange(CollectImage().Signed(KeyBytes()));
  ASSERT_EQ(messages.size(), 2u) << "acknowledgements and results";
  EXPECT_EQ(messages[0].at(kShipmentOffset), kWillAnswer);
  EXPECT_EQ(messages[1].at(kShipmentOffset), kResult);
  for (const Bytes& message : messages) {
    EXPECT_EQ(Sign(message, KeyBytes()), message) << "the digest is that of the key";
    EXPECT_EQ(message[kClassOffset], 10);
    EXPECT_BYTES(message.data() + kActionOffset, 2, "000b");
    EXPECT_BYTES(message.data() + kMessageHeaderOffset, 4, "01020304");
    EXPECT_EQ(Bytes(message.begin() + 36, message.begin() + 68), Identity32(DeviceId(0)));
  }
}

TEST(VoltarisNode, AcknowledgementsNameEveryEntityThatWillAnswer) {
  KeyedNode node(NodeToml({{.number = 1}}));
  const std::vector<Bytes> messages = node.Exchange(CollectImage().Signed(KeyBytes()));
  ASSERT_EQ(messages.size(), 2u);
  const Bytes address = Hex("0200") + U16(node->port()) + Hex("7f000001 | 8*00");
  const Bytes expected =
      Element(0x8000002A, 0, Cat({DeviceHeader(DeviceId(1), address), U32(1), U32(1)}));
  EXPECT_TRUE(SameBytes(expected, messages[0].data() + kTlvAreaOffset,
                        messages[0].size() - kTlvAreaOffset));
}

TEST(VoltarisNode, ResultsHoldTheDomainAndTheAskedAttributesInTheShorterForm) {
  KeyedNode node(NodeToml({{.number = 1, .name = "abc", .units = -1, .step = 7}}));
  const std::vector<Bytes> messages = node.Exchange(CollectImage().Signed(KeyBytes()));
  ASSERT_EQ(messages.size(), 2u);
  const Bytes address = Hex("0200") + U16(node->port()) + Hex("7f000001 | 8*00");
  const Bytes device = DeviceHeader(DeviceId(1), address);
  // Word, caliber "presumed", name, role, units, level, importance, keywords, usage: one element is
  // shorter than three, for each would have the device in front.
  const Bytes combined = Cat({U32(0), U32(0xFFFFFFFF), Counted(Text("abc")), Counted(Text("lamp")),
                              Hex("ff 0a 0a"), Counted(Text("light")), U16(70)});
  const Bytes expected = Cat({Element(8, 0, Text("test")),
                              Element(0x8000002B, 0, Cat({device, U32(1), U32(1), combined}))});
  EXPECT_TRUE(SameBytes(expected, messages[1].data() + kTlvAreaOffset,
                        messages[1].size() - kTlvAreaOffset));
}

TEST(VoltarisNode, AttributesInElementsOfTheirOwnHaveUnitsBehindTheUsage) {
  // With such a role the combined element would be the longer one.
  KeyedNode node(NodeToml(
      {{.number = 1, .name = "abc", .role = std::string(255, 'r'), .units = -1, .step = 7}}));
  const std::vector<Bytes> messages = node.Exchange(CollectImage().Signed(KeyBytes()));
  ASSERT_EQ(messages.size(), 2u);
  const Bytes address = Hex("0200") + U16(node->port()) + Hex("7f000001 | 8*00");
  const Bytes device = DeviceHeader(DeviceId(1), address);
  const Bytes expected =
      Cat({Element(8, 0, Text("test")),
           Element(0x80000009, 0, Cat({device, U32(1), U32(1), Counted(Text("abc"))})),
           Element(0x8000000D, 0, Cat({device, U32(1), U32(1), U16(70)})),
           Element(0x8000000C, 0, Cat({device, U32(1), U32(1), Hex("ff")}))});
  EXPECT_TRUE(SameBytes(expected, messages[1].data() + kTlvAreaOffset,
                        messages[1].size() - kTlvAreaOffset));
}

TEST(VoltarisNode, NoMessageExceeds1400BytesWithThreeHundredDevices) {
  KeyedNode node(ManyDevices(300));
  const std::vector<Bytes> messages = node.Exchange(CollectImage().Signed(KeyBytes()));
  std::size_t largest = 0;
  for (const Bytes& message : messages) {
    EXPECT_LE(message.size(), 1400u);
    EXPECT_EQ(Sign(message, KeyBytes()), message);
    largest = std::max(largest, message.size());
  }
  EXPECT_GT(largest, 1200u) << "messages are filled before a new one is begun";
  EXPECT_GT(CountShipment(messages, kWillAnswer), 10u);
  EXPECT_GT(CountShipment(messages, kResult), 20u);
}

TEST(VoltarisNode, AllOfThreeHundredDevicesBecomeRows) {
  KeyedNode node(ManyDevices(300));
  const nlohmann::json document = node.Ask({"collect", "-o", "json"}).answer();
  ASSERT_EQ(document["rows"].size(), 300u);
  EXPECT_EQ(document["summary"]["accepted"], 300);
  std::set<std::string> names;
  for (const auto& row : document["rows"]) {
    names.insert(row["name"]);
    EXPECT_EQ(row["usage"]["watts"], 10.0);
    EXPECT_EQ(row["level"], 10);
  }
  EXPECT_EQ(names.size(), 300u);
}

TEST(VoltarisNode, TheLongestTextsFitIntoAMessage) {
  DeviceToml device{.number = 1,
                    .name = std::string(255, 'n'),
                    .role = std::string(255, 'r'),
                    .keywords = "\"" + std::string(255, 'k') + "\""};
  std::string config = NodeToml({device});
  const std::string domain(200, 'd');
  config.replace(config.find("\"test\""), 6, "\"" + domain + "\"");
  const Node node(config);
  const nlohmann::json collected = node.Ask({"collect", "name", "role", "keywords", "usage-vector",
                                             "delta-vector", "--domain", domain, "-o", "json"})
                                       .answer();
  ASSERT_EQ(collected["rows"].size(), 1u);
  EXPECT_EQ(collected["rows"][0]["keywords"], std::string(255, 'k'));
  const nlohmann::json set =
      node.Ask({"set", "level=1", "--yes", "--domain", domain, "-o", "json"}).answer();
  EXPECT_EQ(set["rows"][0]["name"], device.name);
}

TEST(VoltarisNode, RefusalsOfACollectMakeNoRowsForAnyClient) {
  Node node(NodeToml({{.number = 1}, {.number = 2, .name = "loud", .importance = 255}}));
  const std::string identity(36, 'i');
  Session* session = voltaris_createSession("127.0.0.1", node.port(), identity.data(), nullptr, 0);
  ASSERT_NE(session, nullptr);
  Query* query = voltaris_createCollectQuery("test", 100);
  ASSERT_EQ(voltaris_addGetAttribute(query, VT_ATTRIBUTE_NAME), 0);
  ASSERT_EQ(voltaris_execQuery(session, query), 0);
  ResultSet* result = voltaris_queryResults(session, query);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(voltaris_getErrorCode(result), 0);
  EXPECT_EQ(voltaris_getRowCount(result), 1);
  EXPECT_EQ(voltaris_getAckCount(result), 1);
  EXPECT_EQ(voltaris_getNakCount(result), 1);
  EXPECT_EQ(voltaris_getNaks(result)->entity_index, 0u) << "the device as a whole";
  voltaris_releaseResult(result);
  voltaris_releaseQuery(query);
  voltaris_closeSession(session);
}

TEST(VoltarisNode, DevicesOfOtherDomainsSayNothing) {
  DeviceToml elsewhere{.number = 2, .name = "far"};
  elsewhere.more = "domain = \"elsewhere\"";
  KeyedNode node(NodeToml({{.number = 1}, elsewhere}));
  const nlohmann::json here = node.Ask({"collect", "-o", "json"}).answer();
  EXPECT_EQ(here["rows"].size(), 1u);
  EXPECT_EQ(here["summary"]["refused"], 0);
  const nlohmann::json there =
      node.Ask({"collect", "--domain", "elsewhere", "-o", "json"}).answer();
  ASSERT_EQ(there["rows"].size(), 1u);
  EXPECT_EQ(there["rows"][0]["name"], "far");
}

TEST(VoltarisNode, EntitiesOfOneDeviceAreRowsOfTheirOwn) {
  KeyedNode node(NodeToml({{.number = 1, .entity = 1, .name = "board"},
                           {.number = 1, .entity = 2, .name = "ports", .step = 3}}));
  const nlohmann::json document = node.Ask({"collect", "-o", "json"}).answer();
  ASSERT_EQ(document["rows"].size(), 2u);
  EXPECT_EQ(document["rows"][0]["device"], document["rows"][1]["device"]);
  EXPECT_EQ(document["rows"][1]["entity"], 2);
  EXPECT_EQ(document["rows"][1]["name"], "ports");
  EXPECT_EQ(document["rows"][1]["usage"]["watts"], 30.0);
}

TEST(VoltarisNode, TheFurtherQueryActionIsAnsweredLikeACollect) {
  KeyedNode node(TwoLamps());
  PduImage image = CollectImage();
  image.action = 14;
  const std::vector<Bytes> messages = node.Exchange(image.Signed(KeyBytes()));
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_BYTES(messages[1].data() + kActionOffset, 2, "000e");
}

TEST(VoltarisNode, AMeasuredUsageHoldsUntilTheLevelIsSet) {
  DeviceToml device{.number = 1, .level = 10, .step = 10};
  device.more = "usage = 83";
  KeyedNode node(NodeToml({device}));
  EXPECT_EQ(node.Ask({"collect", "-o", "json"}).answer()["rows"][0]["usage"]["watts"], 83.0);
  EXPECT_EQ(
      node.Ask({"set", "level=2", "--yes", "-o", "json"}).answer()["rows"][0]["usage"]["watts"],
      20.0);
}

TEST(VoltarisNode, SumsTooLargeForTheUnitsOfTheDevicesGetLargerOnes) {
  // Two of 65530 kW are 131060 kW, which 16 bits hold in tens of kilowatts.
  KeyedNode node(NodeToml({{.number = 1, .units = 3, .step = 6553},
                           {.number = 2, .name = "lamp-2", .units = 3, .step = 6553}}));
  const nlohmann::json row = node.Ask({"sum", "-o", "json"}).answer()["rows"][0];
  EXPECT_EQ(row["usage"]["raw"], 13106);
  EXPECT_EQ(row["usage"]["units"], 4);
  EXPECT_EQ(row["usage"]["watts"], 131060000.0);
}

// --- sets ---

PduImage SetImage(const std::vector<Bytes>& elements) {
  PduImage image = CollectImage();
  image.action = 10;
  image.elements = {Element(8, 0, Text("test"))};
  image.elements.insert(image.elements.end(), elements.begin(), elements.end());
  return image;
}

TEST(VoltarisNode, ASetIsAnsweredWithTheNewStateInACombinedElement) {
  KeyedNode node(NodeToml({{.number = 1,
                            .name = "abc",
                            .role = "de",
                            .keywords = "\"f\"",
                            .importance = 5,
                            .units = -1,
                            .step = 2}}));
  const std::vector<Bytes> messages =
      node.Exchange(SetImage({Element(14, 0, Hex("03"))}).Signed(KeyBytes()));
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].at(kShipmentOffset), kWillAnswer);
  const Bytes address = Hex("0200") + U16(node->port()) + Hex("7f000001 | 8*00");
  // Word, caliber "presumed", name, role, units, level, importance, keywords, usage.
  const Bytes entry = Cat({U32(0), U32(0xFFFFFFFF), Counted(Text("abc")), Counted(Text("de")),
                           Hex("ff 03 05"), Counted(Text("f")), U16(6)});
  const Bytes expected = Cat(
      {Element(8, 0, Text("test")),
       Element(0x8000002B, 0, Cat({DeviceHeader(DeviceId(1), address), U32(1), U32(1), entry}))});
  EXPECT_TRUE(SameBytes(expected, messages[1].data() + kTlvAreaOffset,
                        messages[1].size() - kTlvAreaOffset));
}

TEST(VoltarisNode, ASetThatNoDeviceCanDoIsRefusedAsAWhole) {
  const Bytes cases[] = {
      Element(14, 0, Hex("0b")),                   // no such level
      Element(9, 0, Text("a\tb")),                 // no such name
      Element(9, 0, Bytes(256, 'n')),              // too long
      Element(5, 0, Text("addressee")),            // nothing that can be set
      Element(10, 0, Text("light*") + Hex("00")),  // no such keyword
  };
  KeyedNode node(TwoLamps());
  for (const Bytes& refused : cases) {
    const std::vector<Bytes> messages =
        node.Exchange(SetImage({Element(17, 0, Hex("63")), refused}).Signed(KeyBytes()));
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].at(kShipmentOffset), kWontAnswer);
  }
  const nlohmann::json rows =
      node.Ask({"collect", "importance", "level", "-o", "json"}).answer()["rows"];
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0]["importance"], 10) << "what stood before the refused element is not applied";
  EXPECT_EQ(rows[0]["level"], 10);
}

TEST(VoltarisNode, KeywordsAreSetFromEitherForm) {
  KeyedNode node(NodeToml({{.number = 1}}));
  for (const Bytes& value : {Text("a,b") + Hex("00"), Hex("61 00 62 00")}) {
    node.Exchange(SetImage({Element(10, 0, Text("other") + Hex("00"))}).Signed(KeyBytes()));
    node.Exchange(SetImage({Element(10, 0, value)}).Signed(KeyBytes()));
    const nlohmann::json rows = node.Ask({"collect", "keywords", "-o", "json"}).answer()["rows"];
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0]["keywords"], "a,b");
  }
}

// --- what is not answered ---

TEST(VoltarisNode, AQueryOfAnotherKeyIsDroppedAndLogged) {
  KeyedNode node(TwoLamps());
  EXPECT_TRUE(node.Exchange(SetImage({Element(14, 0, Hex("00"))}).Signed(Bytes(20, 9))).empty());
  EXPECT_EQ(node.Ask({"collect", "-o", "json"}).answer()["rows"][0]["level"], 10);
  const Outcome outcome = node->Stop();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.err.find("its digest does not match"), std::string::npos) << outcome.err;
}

TEST(VoltarisNode, WrongKeyOnTheCommandLineGetsNothing) {
  KeyedNode node(TwoLamps());
  const TempFolder folder;
  const Outcome outcome =
      node->Ask({"collect", "--key-file", folder.Write("key", std::string(40, '9'))});
  EXPECT_EQ(outcome.exit_code, 8);
  EXPECT_NE(outcome.err.find("the node has another key"), std::string::npos) << outcome.err;
}

TEST(VoltarisNode, WithoutAKeyFileTheKeyIsTheIdentityOfTheSender) {
  const Node node(TwoLamps());
  const TempFolder folder;
  const std::string identity = folder.Write("id", std::string(36, 'q') + "\n");
  EXPECT_EQ(node.Ask({"collect", "--id-file", identity}).exit_code, 0);
  EXPECT_EQ(node.Ask({"collect", "--key-file", folder.Write("key", kKeyHex)}).exit_code, 8);
}

TEST(VoltarisNode, AnyChangedByteBehindTheSecurityHeaderSilencesTheNode) {
  KeyedNode node(TwoLamps());
  const Bytes good = CollectImage().Signed(KeyBytes());
  // A digit of the digest, the number, the priority, the class, a name in an element.
  for (const std::size_t offset :
       {kDigestOffset, kMessageHeaderOffset, std::size_t{70}, kClassOffset, kTlvAreaOffset + 12}) {
    Bytes bad = good;
    bad[offset] ^= 1;
    EXPECT_TRUE(node.Exchange(bad).empty()) << "byte " << offset;
  }
  EXPECT_EQ(node.Exchange(good).size(), 2u);
}

TEST(VoltarisNode, MessagesThatAreNoQueriesAreDropped) {
  KeyedNode node(TwoLamps());
  PduImage answer = CollectImage();
  answer.shipment = kResult;
  PduImage notify = CollectImage();
  notify.cls = 12;
  PduImage average = CollectImage();
  average.cls = 11;
  average.action = 11;
  PduImage broken = CollectImage();
  broken.elements = {ElementWithLength(9, 400, 0, Text("short"))};
  PduImage short_digest = CollectImage();
  short_digest.digest_len = 16;
  for (const PduImage& image : {answer, notify, average, broken, short_digest}) {
    EXPECT_TRUE(node.Exchange(image.Signed(KeyBytes())).empty());
  }
  EXPECT_EQ(node.Exchange(CollectImage().Signed(KeyBytes())).size(), 2u);
}

TEST(VoltarisNode, AnOverlongMessageIsDropped) {
  KeyedNode node(TwoLamps());
  PduImage longest = CollectImage();
  longest.elements.push_back(Element(0, 0, Bytes(1400 - longest.Unsigned().size() - 12, 0)));
  PduImage too_long = longest;
  too_long.elements.back() = Element(0, 0, Bytes(too_long.elements.back().size() - 11, 0));
  ASSERT_EQ(longest.Unsigned().size(), 1400u);
  ASSERT_EQ(too_long.Unsigned().size(), 1401u);
  EXPECT_EQ(node.Exchange(longest.Signed(KeyBytes())).size(), 2u);
  EXPECT_TRUE(node.Exchange(too_long.Signed(KeyBytes())).empty());
}

TEST(VoltarisNode, ASignedHeaderWithoutElementsNamesNoDomainAndGetsNothing) {
  KeyedNode node(TwoLamps());
  PduImage bare = CollectImage();
  bare.elements.clear();
  EXPECT_TRUE(node.Exchange(bare.Signed(KeyBytes())).empty());
}

TEST(VoltarisNode, ElementsWithoutValuesAreSurvived) {
  KeyedNode node(TwoLamps());
  for (std::uint32_t type = 0; type < 64; ++type) {
    for (const std::uint32_t flagged : {type, type | 0x80000000u, type | 0xC0000000u}) {
      for (const std::uint32_t qualifier : {0u, 1u}) {
        for (const std::uint16_t action : {std::uint16_t{10}, std::uint16_t{11}}) {
          PduImage image = CollectImage();
          image.action = action;
          image.elements = {Element(8, 0, Text("test")), Element(flagged, qualifier, {})};
          node.Exchange(image.Signed(KeyBytes()));
        }
      }
    }
  }
  EXPECT_EQ(node.Exchange(CollectImage().Signed(KeyBytes())).size(), 2u);
  EXPECT_EQ(node->Stop().exit_code, 0);
}

// --- connections ---

TEST(VoltarisNode, AQueryInPiecesIsUnderstood) {
  KeyedNode node(TwoLamps());
  PeerConnection connection = node->Connect();
  connection.SendInPieces(CollectImage().Signed(KeyBytes()), 1);
  EXPECT_EQ(SplitPdus(connection.ReadAll()).size(), 2u);
}

TEST(VoltarisNode, OneConnectionIsForOneQuery) {
  KeyedNode node(TwoLamps());
  const Bytes query = CollectImage().Signed(KeyBytes());
  EXPECT_EQ(node.Exchange(query + query).size(), 2u);
}

TEST(VoltarisNode, SeveralClientsAreServedAtOnceAndSilentOnesHoldNobodyUp) {
  KeyedNode node(ManyDevices(50));
  std::vector<PeerConnection> silent;
  for (int i = 0; i < 5; ++i) silent.push_back(node->Connect());
  silent[0].Send(Bytes(40, 0));

  std::vector<std::unique_ptr<Program>> clients;
  const TempFolder folder;
  const std::string key = folder.Write("key", kKeyHex);
  for (int i = 0; i < 6; ++i) {
    clients.push_back(std::make_unique<Program>(
        "voltaris", std::vector<std::string>{"collect", "-o", "json", "--domain", "test", "--node",
                                             node->address(), "--key-file", key}));
  }
  for (const auto& client : clients) {
    const Outcome outcome = client->Finish();
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(outcome.answer()["rows"].size(), 50u);
  }
}

TEST(VoltarisNode, ASilentClientIsDisconnected) {
  KeyedNode node(TwoLamps(), {"--connection-timeout", "1"});
  PeerConnection silent = node->Connect();
  PeerConnection stalled = node->Connect();
  stalled.Send(Bytes(40, 0));
  EXPECT_TRUE(silent.ReadAll().empty());
  stalled.WaitForClose();
  EXPECT_EQ(node.Exchange(CollectImage().Signed(KeyBytes())).size(), 2u);
  EXPECT_NE(node->Stop().err.find("took too long"), std::string::npos);
}

TEST(VoltarisNode, MoreConnectionsThanItServesAtOnceWaitTheirTurn) {
  KeyedNode node(TwoLamps(), {"--connection-timeout", "1", "--max-connections", "3"});
  std::vector<PeerConnection> silent;
  for (int i = 0; i < 7; ++i) silent.push_back(node->Connect());
  EXPECT_EQ(node.Exchange(CollectImage().Signed(KeyBytes())).size(), 2u);
}

TEST(VoltarisNode, AThousandIdleConnectionsHoldNobodyUp) {
  KeyedNode node(TwoLamps());
  std::vector<PeerConnection> idle;
  for (int i = 0; i < 1000; ++i) idle.push_back(node->Connect());
  EXPECT_EQ(node.Exchange(CollectImage().Signed(KeyBytes())).size(), 2u);
}

TEST(VoltarisNode, BadPeersAreLoggedAFewTimesASecond) {
  KeyedNode node(TwoLamps());
  constexpr int kMany = 3000;
  const Bytes forged = CollectImage().Signed(Bytes(20, 9));
  for (int i = 0; i < kMany; ++i) EXPECT_TRUE(node.Exchange(forged).empty());
  const Outcome outcome = node->Stop();
  EXPECT_EQ(outcome.exit_code, 0);
  const auto lines = std::ranges::count(outcome.err, '\n');
  EXPECT_GT(lines, 5);
  EXPECT_LT(lines, kMany / 2) << "of " << kMany;
}

TEST(VoltarisNode, AClientThatDoesNotReadHoldsNobodyUp) {
  KeyedNode node(ManyDevices(3000), {"--connection-timeout", "2"});
  PeerConnection deaf = node->Connect();
  deaf.Send(CollectImage().Signed(KeyBytes()));
  EXPECT_GT(node.Exchange(CollectImage().Signed(KeyBytes())).size(), 100u);
  EXPECT_EQ(node->Stop().exit_code, 0);
}

TEST(VoltarisNode, ReadsItsConfigurationAndItsKeyAgainOnSighup) {
  const TempFolder folder;
  const std::string config = folder.Write("fleet.toml", TwoLamps());
  const std::string key = folder.Write("key", kKeyHex);
  Program node("voltaris-node", {"--config", config, "--listen", "127.0.0.1:0", "--key-file", key,
                                 "--log-level", "info"});
  const std::string line = node.ReadLine();
  const std::string address = line.substr(line.rfind(' ') + 1);
  const auto rows = [&](const std::string& with) {
    const Outcome outcome = Voltaris(
        {"collect", "-o", "json", "--domain", "test", "--node", address, "--key-file", with});
    return outcome.exit_code == 0 ? outcome.answer()["rows"].size() : 0;
  };
  EXPECT_EQ(rows(key), 2u);
  folder.Write("fleet.toml", ManyDevices(5));
  folder.Write("key", std::string(40, '7'));
  node.Signal(SIGHUP);
  const std::string other = folder.Write("other", std::string(40, '7'));
  while (rows(other) != 5u) {
    // Until the signal has arrived.
  }
  folder.Write("fleet.toml", "[node");
  node.Signal(SIGHUP);
  EXPECT_EQ(rows(other), 5u) << "the old one is kept";
  node.Signal(SIGTERM);
  const Outcome outcome = node.Finish();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.err.find("the configuration stays as it was"), std::string::npos);
  EXPECT_NE(outcome.err.find("read the configuration and the key again"), std::string::npos);
}

TEST(VoltarisNode, ChecksAConfigurationWithoutServing) {
  const TempFolder folder;
  const Outcome good = Program("voltaris-node", {"--check-config", "--config",
                                                 folder.Write("good.toml", TwoLamps())})
                           .Finish();
  EXPECT_EQ(good.exit_code, 0);
  EXPECT_NE(good.out.find("2 entities"), std::string::npos);
  const Outcome bad =
      Program("voltaris-node", {"--check-config", "--config", folder.Write("bad.toml", "[node\n")})
          .Finish();
  EXPECT_EQ(bad.exit_code, 2);
  EXPECT_NE(bad.err.find("bad.toml:1:"), std::string::npos) << bad.err;
}

TEST(VoltarisNode, AClientThatResetsIsSurvived) {
  KeyedNode node(ManyDevices(300));
  PeerConnection connection = node->Connect();
  connection.Send(CollectImage().Signed(KeyBytes()));
  connection.Reset();
  EXPECT_GT(node.Exchange(CollectImage().Signed(KeyBytes())).size(), 2u);
  EXPECT_EQ(node->Stop().exit_code, 0);
}

TEST(VoltarisNode, SignalsEndItEvenWhileClientsAreConnected) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Node node(TwoLamps(), {"--connection-timeout", "3600"});
    const PeerConnection silent = node.Connect();
    ASSERT_EQ(node.Ask({"collect"}).exit_code, 0);
    node.program().Signal(signal);
    EXPECT_EQ(node.program().Finish().exit_code, 0);
  }
}

TEST(VoltarisNode, APortThatIsTakenIsExitCodeOne) {
  const Node first(TwoLamps());
  const TempFolder folder;
  Program second("voltaris-node",
                 {"--config", folder.Write("fleet.toml", TwoLamps()), "--listen", first.address()});
  const Outcome outcome = second.Finish();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_NE(outcome.err.find("cannot listen on " + first.address()), std::string::npos)
      << outcome.err;
}

// --- configuration ---

TEST(VoltarisNode, TheExampleIsACompleteFleet) {
  const std::string example = std::string(VT_TEST_DIR) + "/../examples/office.toml";
  Program program("voltaris-node", {"--config", example, "--listen", "127.0.0.1:0"});
  const std::string line = program.ReadLine();
  ASSERT_TRUE(line.starts_with("listening on ")) << line;
  const nlohmann::json document =
      Voltaris({"collect", "name", "role", "usage", "level", "usage-vector", "-o", "json",
                "--domain", "office", "--node", line.substr(13)})
          .answer();
  EXPECT_GE(document["rows"].size(), 12u);
  std::set<std::string> roles;
  for (const auto& row : document["rows"]) {
    roles.insert(row["role"]);
    EXPECT_EQ(row["usage_vector"]["raw"].size(), 11u);
    EXPECT_TRUE(row["usage"]["watts"].is_number()) << row;
  }
  EXPECT_EQ(roles, (std::set<std::string>{"lamp", "phone", "switch", "printer", "meter"}));
  program.Signal(SIGTERM);
  EXPECT_EQ(program.Finish().exit_code, 0);
}

TEST(VoltarisNode, AFaultyFleetIsExitCodeTwoAndSaysWhereAndWhy) {
  const std::string device = DeviceToml{}.Text();
  const auto changed = [](std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
  };
  const std::string good = NodeToml({DeviceToml{}});
  const struct {
    std::string config;
    std::string reason;
  } cases[] = {
      {"", "[node] is missing"},
      {"nonsense", "fleet.toml:1:9: "},
      {NodeToml({}), "one table [[device]]"},
      {changed(good, "level = 10", "level = 11"), "'level' must be a whole number from 0 to 10"},
      {changed(good, "level = 10", "level = \"full\""), "'level' must be a whole number"},
      {changed(good, "level = 10", "leval = 10"), "fleet.toml:14:1: there is no setting 'leval'"},
      {changed(good, "units = 0", "units = 7"), "'units' must be a whole number from -3 to 6"},
      {changed(good, "name = \"lamp-1\"\n", ""), "'name' is missing"},
      {changed(good, "lamp-1", "lamp\\n1"), "letters, digits"},
      {changed(good, "lamp-1", std::string(256, 'n')), "longer than 255"},
      {changed(good, "entity = 1", "entity = 0"), "'entity' must be a whole number from 1"},
      {changed(good, DeviceId(1), "short"), "'id' must have 32 characters, and has 5"},
      {changed(good, "[0, 1, ", "[1, "), "a list of 11 numbers"},
      {changed(good, "[0, 1, ", "[0, 65536, "), "from 0 to 65535"},
      {changed(good, "\"light\"", "\"a,b\""), "without a comma"},
      {good + device, "the id and the entity of an earlier one"},
      {good + "caliber = \"guessed\"\n", "'caliber' must be one of max, presumed"},
      {good + "address = \"here\"\n", "'address' must be HOST:PORT"},
  };
  const TempFolder folder;
  for (const auto& c : cases) {
    Program program("voltaris-node",
                    {"--config", folder.Write("fleet.toml", c.config), "--listen", "127.0.0.1:0"});
    const Outcome outcome = program.Finish();
    EXPECT_EQ(outcome.exit_code, 2) << c.reason;
    EXPECT_EQ(outcome.out, "") << c.reason;
    EXPECT_NE(outcome.err.find(c.reason), std::string::npos) << c.reason << ": " << outcome.err;
  }
}

TEST(VoltarisNode, WrongUsageIsExitCodeTwo) {
  const struct {
    std::vector<std::string> arguments;
    std::string reason;
  } cases[] = {
      {{}, "--config"},
      {{}, "--replay"},
      {{"--config", "x", "--replay", "y"}, "and not both"},
      {{"--replay", "/nonexistent.recording"}, "/nonexistent.recording: cannot open it"},
      {{"--config", "/nonexistent.toml"}, "/nonexistent.toml"},
      {{"--config", "x", "--listen", "7440"}, "--listen takes"},
      {{"--config", "x", "--listen", "127.0.0.1:99999"}, "--listen takes"},
      {{"--config", "x", "--key-file", "/nonexistent.key"}, "/nonexistent.key"},
      {{"--config", "x", "--log-level", "loud"}, "log level"},
      {{"--config", "x", "--key", "00"}, "--key"},
      {{"--config", "x", "--max-connections", "010"}, "must be a whole number, not '010'"},
      {{"--config", "x", "--connection-timeout", "0x10"}, "must be a whole number, not '0x10'"},
      {{"--config", "x", "--connection-timeout", "0"}, "--connection-timeout"},
  };
  for (const auto& c : cases) {
    Program program("voltaris-node", c.arguments);
    const Outcome outcome = program.Finish();
    EXPECT_EQ(outcome.exit_code, 2) << c.reason;
    EXPECT_NE(outcome.err.find(c.reason), std::string::npos) << c.reason << ": " << outcome.err;
  }
}

TEST(VoltarisNode, HelpSaysHowItIsUsed) {
  Program program("voltaris-node", {"--help"});
  const Outcome outcome = program.Finish();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.out.find("Examples:"), std::string::npos);
  EXPECT_NE(outcome.out.find("Exit codes:"), std::string::npos);
}

TEST(VoltarisNode, WhatCannotBeWrittenIsExitCodeOne) {
  const TempFolder folder;
  const std::string fleet = folder.Write("fleet.toml", TwoLamps());
  for (const std::string& words :
       {std::string("--help"), std::string("--version"), std::string("probe --help"),
        "--check-config --config " + fleet}) {
    const Outcome outcome =
        Foreign({"sh", "-c", VT_PROGRAM_DIR "/voltaris-node " + words + " >/dev/full"});
    EXPECT_EQ(outcome.exit_code, 1) << words;
    EXPECT_EQ(outcome.err, "voltaris-node: standard output cannot be written\n") << words;
  }
}

}  // namespace
}  // namespace vt::testing
