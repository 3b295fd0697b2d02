// voltaris as an operator meets it: what it prints, what it sends to standard error, and how it
// ends.

#include <gtest/gtest.h>

#include <future>

#include "tests/harness/pdu_image.h"
#include "tests/harness/peer.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using ::testing::Test;

// Three lamps, of which one is important and one far away, a heater in other units, and a meter.
std::string HouseToml() {
  return NodeToml({
      {.number = 1, .name = "lamp-1", .keywords = "\"light\", \"floor1\"", .units = -1, .step = 6},
      {.number = 2, .name = "lamp-2", .keywords = "\"light\", \"floor2\"", .level = 4, .step = 2},
      {.number = 3, .name = "lamp-exit", .keywords = "\"light\"", .importance = 200, .step = 1},
      {.number = 4,
       .name = "heater",
       .role = "heater",
       .keywords = "",
       .units = 3,
       .step = 1,
       .more = "usage = 7"},
      {.number = 5, .name = "meter", .role = "meter", .step = 50, .more = "category = \"meter\""},
  });
}

std::vector<std::string> Names(const nlohmann::json& document) {
  std::vector<std::string> names;
  for (const auto& row : document["rows"]) names.push_back(row["name"]);
  return names;
}

using Strings = std::vector<std::string>;

class VoltarisTest : public Test {
 protected:
  // Collect returns the names of the devices that a collect with these options shows.
  Strings CollectNames(Strings options) {
    options.insert(options.begin(), "collect");
    options.insert(options.end(), {"-o", "json"});
    return Names(node_.Ask(options).answer());
  }

  Node node_{HouseToml()};
};

TEST_F(VoltarisTest, CollectShowsATableOfDeviceEntityNameUsageAndLevel) {
  const Outcome outcome = node_.Ask({"collect"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "voltaris: 4 rows; 4 accepted, 1 refused\n");
  EXPECT_EQ(outcome.out,
            "device                            entity  name    usage  level\n"
            "device00000000000000000000000001       1  lamp-1    6 W     10\n"
            "device00000000000000000000000002       1  lamp-2    8 W      4\n"
            "device00000000000000000000000004       1  heater   7 kW     10\n"
            "device00000000000000000000000005       1  meter   500 W     10\n");
}

TEST_F(VoltarisTest, JsonTellsUsageInWattsAndAsItCame) {
  const nlohmann::json document = node_.Ask({"collect", "-o", "json"}).answer();
  EXPECT_EQ(document["command"], "collect");
  EXPECT_EQ(document["attributes"], nlohmann::json({"name", "usage", "level"}));
  EXPECT_EQ(document["summary"]["exit_code"], 0);
  EXPECT_EQ(document["summary"]["accepted"], 4);
  EXPECT_EQ(document["summary"]["refused"], 1);
  EXPECT_EQ(document["summary"]["statuses"], nlohmann::json({{"ok", 1}}));
  ASSERT_EQ(document["nodes"].size(), 1u);
  EXPECT_EQ(document["nodes"][0]["node"], node_.address());
  EXPECT_EQ(document["nodes"][0]["domain"], "test");
  EXPECT_EQ(document["nodes"][0]["status"], "ok");
  EXPECT_TRUE(document["nodes"][0]["reason"].is_null());
  EXPECT_EQ(document["nodes"][0]["attempts"], 1);
  ASSERT_EQ(document["rows"].size(), 4u);
  const nlohmann::json lamp = {{"node", node_.address()},
                               {"device", DeviceId(1)},
                               {"entity", 1},
                               {"name", "lamp-1"},
                               {"usage", {{"raw", 60}, {"units", -1}, {"watts", 6.0}}},
                               {"level", 10}};
  EXPECT_EQ(document["rows"][0], lamp);
}

TEST_F(VoltarisTest, EveryAttributeThatADeviceKnowsIsShown) {
  const nlohmann::json document =
      node_
          .Ask({"collect", "role", "domain", "units", "importance", "-a",
                "address,delta-vector,caliber", "-a", "usage-vector", "-a", "category", "--name",
                "lamp-2", "-o", "json"})
          .answer();
  ASSERT_EQ(document["rows"].size(), 1u);
  const nlohmann::json row = document["rows"][0];
  EXPECT_EQ(row["role"], "lamp");
  EXPECT_EQ(row["domain"], "test");
  EXPECT_EQ(row["units"], 0);
  EXPECT_EQ(row["importance"], 10);
  EXPECT_EQ(row["address"], node_.address());
  EXPECT_EQ(row["caliber"], "presumed");
  EXPECT_EQ(row["category"], "consumer");
  EXPECT_EQ(row["usage_vector"]["raw"], nlohmann::json({0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20}));
  EXPECT_EQ(row["delta_vector"]["raw"], nlohmann::json({-8, -6, -4, -2, 0, 2, 4, 6, 8, 10, 12}));
  EXPECT_EQ(row["delta_vector"]["units"], 0);
}

TEST_F(VoltarisTest, AnAttributeThatADeviceDoesNotHaveIsAbsent) {
  const Outcome table = node_.Ask({"collect", "nanny-vector", "--name", "lamp-1"});
  EXPECT_EQ(table.exit_code, 0);
  EXPECT_NE(table.out.find(" 1             -\n"), std::string::npos) << table.out;
  const nlohmann::json document =
      node_.Ask({"collect", "nanny-vector", "--name", "lamp-1", "-o", "json"}).answer();
  ASSERT_EQ(document["rows"].size(), 1u);
  EXPECT_TRUE(document["rows"][0]["nanny_vector"].is_null());
}

TEST_F(VoltarisTest, ASetIsVisibleInTheNextCollect) {
  const nlohmann::json set =
      node_.Ask({"set", "--role", "lamp", "level=3", "--yes", "-o", "json"}).answer();
  ASSERT_EQ(set["rows"].size(), 2u);
  EXPECT_EQ(set["rows"][0]["name"], "lamp-1");
  EXPECT_EQ(set["rows"][0]["level"], 3);
  EXPECT_EQ(set["rows"][0]["usage"]["watts"], 1.8);
  EXPECT_EQ(set["set"], nlohmann::json({{"level", "3"}}));
  EXPECT_EQ(set["dry_run"], false);
  EXPECT_EQ(set["summary"]["accepted"], 2);
  EXPECT_EQ(set["summary"]["refused"], 0) << "devices that are no lamps were not concerned";

  const nlohmann::json after = node_.Ask({"collect", "-o", "json"}).answer();
  EXPECT_EQ(after["rows"][0]["level"], 3);
  EXPECT_EQ(after["rows"][0]["usage"]["watts"], 1.8);
  EXPECT_EQ(after["rows"][1]["level"], 3);
  EXPECT_EQ(after["rows"][1]["usage"]["watts"], 6.0);
  EXPECT_EQ(after["rows"][2]["level"], 10) << "the heater is no lamp";
}

TEST_F(VoltarisTest, SetChangesTextsAndImportance) {
  const Outcome outcome = node_.Ask({"set", "--yes", "--name", "lamp-1", "name=desk lamp",
                                     "role=desk", "keywords=light,new", "importance=30"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  const nlohmann::json row = node_
                                 .Ask({"collect", "name", "role", "keywords", "importance", "--id",
                                       DeviceId(1), "-o", "json"})
                                 .answer()["rows"][0];
  EXPECT_EQ(row["name"], "desk lamp");
  EXPECT_EQ(row["role"], "desk");
  EXPECT_EQ(row["keywords"], "light,new");
  EXPECT_EQ(row["importance"], 30);
}

TEST_F(VoltarisTest, SumAddsUpDevicesOfDifferentUnits) {
  // 6 W, 8 W and 7 kW; the important lamp refuses, and the meter is no consumer.
  const nlohmann::json document = node_.Ask({"sum", "-o", "json"}).answer();
  ASSERT_EQ(document["rows"].size(), 1u);
  EXPECT_EQ(document["rows"][0]["device"], DeviceId(0)) << "the node itself answers";
  EXPECT_EQ(document["rows"][0]["usage"]["watts"], 7014.0);
  EXPECT_EQ(document["summary"]["accepted"], 3);
}

TEST_F(VoltarisTest, SumOfARoleLeavesTheOthersOut) {
  const Outcome outcome = node_.Ask({"sum", "--role", "lamp"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out,
            "device                            entity  usage\n"
            "device00000000000000000000000000       1   14 W\n");
  EXPECT_EQ(outcome.err, "voltaris: 1 row; 2 accepted, 3 refused\n");
}

TEST_F(VoltarisTest, SumOfChangesComesWithTheUsage) {
  const nlohmann::json row =
      node_.Ask({"sum", "usage", "delta-vector", "--role", "lamp", "-o", "json"})
          .answer()["rows"][0];
  EXPECT_EQ(row["usage"]["watts"], 14.0);
  // lamp-1 uses 0.6 W a level and 6 W now, lamp-2 2 W a level and 8 W now.
  EXPECT_EQ(row["delta_vector"]["watts"][0], -14.0);
  EXPECT_EQ(row["delta_vector"]["watts"][4], -3.6);
  EXPECT_EQ(row["delta_vector"]["watts"][10], 12.0);
}

TEST_F(VoltarisTest, NamesAndRolesSelectDevicesAlsoByAStarAtTheirEnd) {
  EXPECT_EQ(CollectNames({"--name", "lamp*"}), (Strings{"lamp-1", "lamp-2"}));
  EXPECT_EQ(CollectNames({"--name", "lamp"}), Strings{});
  EXPECT_EQ(CollectNames({"--role", "heater", "--role", "meter"}), (Strings{"heater", "meter"}));
  EXPECT_EQ(CollectNames({"--role", "lamp", "--name", "heater"}), Strings{});
}

TEST_F(VoltarisTest, KeywordsAreAlternatives) {
  EXPECT_EQ(CollectNames({"--keyword", "floor1"}), Strings{"lamp-1"});
  EXPECT_EQ(CollectNames({"--keyword", "floor1", "--keyword", "floor2"}),
            (Strings{"lamp-1", "lamp-2"}));
}

TEST_F(VoltarisTest, AnIdSelectsOneDevice) {
  EXPECT_EQ(CollectNames({"--id", DeviceId(4)}), Strings{"heater"});
}

TEST_F(VoltarisTest, APriorityBelowTheImportanceIsRefused) {
  EXPECT_EQ(CollectNames({"--priority", "200", "--name", "lamp-exit"}), Strings{"lamp-exit"});
  const Outcome refused = node_.Ask({"collect", "--name", "lamp-exit", "--priority", "199"});
  EXPECT_EQ(refused.exit_code, 7);
  EXPECT_EQ(refused.out, "");
  EXPECT_NE(refused.err.find("all 5 devices refused"), std::string::npos) << refused.err;
}

TEST_F(VoltarisTest, CategoriesSelectMeters) {
  EXPECT_EQ(CollectNames({"--category", "meter"}), Strings{"meter"});
  EXPECT_EQ(CollectNames({"--category", "consumer"}), (Strings{"lamp-1", "lamp-2", "heater"}));
  const nlohmann::json sum = node_.Ask({"sum", "--category", "meter", "-o", "json"}).answer();
  EXPECT_EQ(sum["rows"][0]["usage"]["watts"], 500.0);
}

TEST_F(VoltarisTest, NothingAnswersInAnotherDomain) {
  const Outcome outcome = node_.Ask({"collect", "--domain", "elsewhere"});
  EXPECT_EQ(outcome.exit_code, 8);
  EXPECT_EQ(outcome.out, "");
  EXPECT_NE(outcome.err.find("no device was concerned"), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.err.find("hint: no device is in the --domain"), std::string::npos);
}

TEST_F(VoltarisTest, TheEnvironmentStandsInForOptionsAndOptionsWin) {
  EXPECT_EQ(node_.Ask({"collect"}, {{"VOLTARIS_DOMAIN", "elsewhere"}}).exit_code, 8);
  EXPECT_EQ(
      node_.Ask({"collect", "--domain", "test"}, {{"VOLTARIS_DOMAIN", "elsewhere"}}).exit_code, 0);
  EXPECT_EQ(
      Voltaris({"--domain", "test", "collect", "--port", std::to_string(node_.port())}).exit_code,
      0);
}

TEST_F(VoltarisTest, LogLinesGoToStandardError) {
  const Outcome outcome = node_.Ask({"collect", "-o", "json", "-vv"});
  EXPECT_NE(outcome.err.find("voltaris_createQuery: new Query (class=1, action=2, pri=100)"),
            std::string::npos)
      << outcome.err;
  EXPECT_EQ(outcome.answer()["rows"].size(), 4u);
}

TEST_F(VoltarisTest, ColoursAreForTerminalsAndNotWithNoColor) {
  const std::string bold = "\033[1m";
  const Environment terminal = {
      {"TERM", "xterm"}, {"VOLTARIS_NODE", node_.address()}, {"VOLTARIS_DOMAIN", "test"}};
  Environment no_colour = terminal;
  no_colour["NO_COLOR"] = "1";
  EXPECT_NE(Voltaris({"collect"}, terminal, Terminal::kOutput).out.find(bold), std::string::npos);
  EXPECT_EQ(Voltaris({"collect"}, no_colour, Terminal::kOutput).out.find(bold), std::string::npos);
  EXPECT_EQ(Voltaris({"collect"}, terminal).out.find(bold), std::string::npos);
}

TEST(VoltarisCommandLine, WrongUsageIsExitCodeTwoAndSaysWhy) {
  const struct {
    Strings arguments;
    std::string reason;
  } cases[] = {
      {{}, "a command is missing, one of collect, set, "},
      {{"colect"}, "there is no command 'colect': did you mean collect? See voltaris --help"},
      {{"key", "genrate"}, "no command 'genrate': did you mean generate? See voltaris key --help"},
      {{"key"}, "a command is missing, one of generate, derive, check; see voltaris key --help"},
      {{"toaster"}, "there is no command 'toaster'; see voltaris --help"},
      {{"collect", "--no-such-option"}, "no option --no-such-option; see voltaris collect --help"},
      {{"collect", "--colour=always"}, "no option --colour: did you mean --color?"},
      {{"watch", "-o", "prom"}, "there is no option -o; see voltaris watch --help"},
      {{"config", "check", "a.toml"}, "'a.toml' is one argument too many"},
      {{"collect", "--domain"}, "--domain needs TEXT behind it"},
      {{"collect", "colour"}, "there is no attribute 'colour'"},
      {{"sum", "name"}, "not of 'name'"},
      {{"set"}, "ATTRIBUTE=VALUE is required"},
      {{"set", "level"}, "attribute=value"},
      {{"set", "usage=3"}, "cannot be set"},
      {{"set", "level=11", "--yes"}, "from 0 to 10"},
      {{"set", "level=-1", "--yes"}, "from 0 to 10"},
      {{"set", "level=3", "level=4"}, "more than once"},
      {{"set", "name=", "--yes"}, "must not be empty"},
      {{"set", "name=a*", "--yes"}, "letters, digits"},
      {{"set", "name=" + std::string(255, 'n'), "--yes"}, "at most 254"},
      {{"collect", "--node", "-host"}, "is no name"},
      {{"collect", "--node", "pdu[01-"}, "pdu[01-"},
      {{"collect", "--node", "@racks"}, "--targets"},
      {{"collect", "--targets", "/nonexistent/targets"}, "/nonexistent/targets"},
      {{"collect", "--node", "127.0.0.1:70000"}, "a port from 1"},
      {{"collect", "--id-file", "/nonexistent/id"}, "/nonexistent/id"},
      {{"collect", "--port", "0"}, "--port"},
      {{"collect", "--timeout", "0"}, "--timeout"},
      {{"collect", "--fanout", "0"}, "--fanout"},
      {{"collect", "--columns", "colour"}, "there is no attribute 'colour'"},
      {{"collect", "name", "--sort", "level"}, "'level' is not asked for; name it"},
      {{"collect", "--sort", "usage:up"}, "stands desc or nothing, not 'up'"},
      {{"collect", "--sort", "name", "-o", "ndjson"}, "cannot be sorted"},
      {{"set", "level=3", "--yes", "--columns", "role"}, "not 'role'"},
      {{"set", "level=3"}, "--yes"},
      {{"set", "level=3", "--yes", "--max-devices", "010"}, "must be a whole number, not '010'"},
      {{"ping", "-c", "0x2"}, "must be a whole number, not '0x2'"},
      {{"collect", "--log-format", "xml"}, "text, json"},
      {{"collect", "--color", "blue"}, "auto, always, never"},
      {{"record", "-n", "127.0.0.1,127.0.0.2"}, "one node"},
      {{"-o", "json", "record"}, "takes no format"},
      {{"collect", "--id", "short"}, "32 characters"},
      {{"collect", "--priority", "256"}, "--priority"},
      {{"collect", "--device-timeout", "0"}, "--device-timeout"},
      {{"collect", "--device-timeout", "181"}, "--device-timeout"},
      {{"collect", "-o", "xml"}, "table, json, ndjson, csv, prom"},
      {{"collect", "--category", "pet"}, "category"},
      {{"collect", "--name", std::string(1400, 'n')}, "1400 bytes"},
      {{"collect", "--key-file", "/nonexistent/key"}, "/nonexistent/key"},
  };
  for (const auto& c : cases) {
    const Outcome outcome = Voltaris(c.arguments);
    EXPECT_EQ(outcome.exit_code, 2) << c.reason;
    EXPECT_EQ(outcome.out, "") << c.reason;
    EXPECT_NE(outcome.err.find(c.reason), std::string::npos) << outcome.err;
  }
}

// Without a standard output the first connection would have its number, and the answer go there.
TEST_F(VoltarisTest, AClosedStandardOutputIsExitCodeNineAndNoConnectionTakesItsPlace) {
  for (const char* command : {"collect", "sum", "ping", "watch --count 1"}) {
    const std::string line = "exec \"$0\" " + std::string(command) + " -d test -n \"$1\" >&-";
    const Outcome outcome =
        Foreign({"timeout", "30", "sh", "-c", line, VT_PROGRAM_DIR "/voltaris", node_.address()});
    EXPECT_EQ(outcome.exit_code, 9) << command << '\n' << outcome.err;
    EXPECT_NE(outcome.err.find("standard output cannot be written"), std::string::npos)
        << outcome.err;
  }
}

TEST(VoltarisCommandLine, HelpHasExamplesAndExitCodes) {
  for (const Strings& arguments : {Strings{"--help"}, Strings{"collect", "--help"},
                                   Strings{"set", "--help"}, Strings{"sum", "--help"}}) {
    const Outcome outcome = Voltaris(arguments);
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_NE(outcome.out.find("Examples:"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("Exit codes: 0"), std::string::npos) << outcome.out;
  }
}

TEST(VoltarisCommandLine, VersionNamesTheLibrary) {
  const Outcome outcome = Voltaris({"--version"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out, "voltaris, libvtapi -2.0.136\n");
}

TEST(VoltarisConnection, ANodeThatIsNotThereIsExitCodeThree) {
  const std::string node = NobodysAddress();
  const Outcome outcome = Voltaris({"collect", "--node", node});
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_EQ(outcome.out, "");
  EXPECT_NE(outcome.err.find(node + ": connection refused"), std::string::npos) << outcome.err;
}

TEST(VoltarisConnection, ANodeThatStaysSilentEndsWithTheTimeout) {
  ScriptedPeer peer([](PeerConnection& connection) {
    connection.ReadPdu();
    connection.WaitForClose();
  });
  const Outcome outcome =
      Voltaris({"collect", "--port", std::to_string(peer.port()), "--timeout", "1"});
  EXPECT_EQ(outcome.exit_code, 4);
  EXPECT_TRUE(peer.Join());
}

TEST(VoltarisConnection, ANodeThatStallsInsideAMessageEndsWithTheTimeout) {
  ScriptedPeer peer([](PeerConnection& connection) {
    connection.ReadPdu();
    connection.Send(Bytes(40, 0));
    connection.WaitForClose();
  });
  const Outcome outcome =
      Voltaris({"collect", "--port", std::to_string(peer.port()), "--timeout", "1"});
  EXPECT_EQ(outcome.exit_code, 4);
  EXPECT_TRUE(peer.Join());
}

TEST(VoltarisConnection, AResetIsAProtocolError) {
  ScriptedPeer peer([](PeerConnection& connection) {
    connection.ReadPdu();
    connection.Reset();
  });
  const Outcome outcome =
      Voltaris({"collect", "--port", std::to_string(peer.port()), "-o", "json"});
  EXPECT_EQ(outcome.exit_code, 6);
  EXPECT_EQ(outcome.answer()["nodes"][0]["status"], "protocol-error");
  EXPECT_NE(outcome.err.find("Connection reset"), std::string::npos) << outcome.err;
}

// Reply returns a signed result with one attribute of entity 1 of a device.
Bytes Reply(const Bytes& key, const Bytes& query, std::uint32_t type, const Bytes& value) {
  PduImage image;
  image.shipment = 1;
  image.cls = query[73];
  image.action = static_cast<std::uint16_t>(query[74] << 8 | query[75]);
  image.elements = {Element(0x80000000u | type, 0,
                            Cat({DeviceHeader(std::string(31, 'd')), U32(1), U32(1), value}))};
  return image.Signed(key);
}

Outcome CollectFromPeer(ScriptedPeer& peer, const Strings& more) {
  const TempFolder folder;
  Strings arguments = {"collect", "--port", std::to_string(peer.port()), "--key-file",
                       folder.Write("key", kKeyHex)};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return Voltaris(arguments);
}

TEST(VoltarisOutput, ControlCharactersFromTheNetworkDoNotReachTheTerminal) {
  ScriptedPeer peer([](PeerConnection& connection) {
    const Bytes query = connection.ReadPdu();
    connection.Send(Reply(KeyBytes(), query, 9, Counted(Text("\x1b[31mred\n"))));
  });
  const Outcome outcome = CollectFromPeer(peer, {"name"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out.find('\x1b'), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("\\x1b[31mred\\x0a"), std::string::npos) << outcome.out;
  // The identity ends in a zero byte and is shown as digits.
  EXPECT_NE(outcome.out.find("6464646400"), std::string::npos) << outcome.out;
}

TEST(VoltarisOutput, TextThatIsNotUtf8IsStillJson) {
  ScriptedPeer peer([](PeerConnection& connection) {
    const Bytes query = connection.ReadPdu();
    connection.Send(Reply(KeyBytes(), query, 9, Counted(Hex("6c ff 6d"))));
  });
  const Outcome outcome = CollectFromPeer(peer, {"name", "-o", "json"});
  EXPECT_EQ(outcome.answer()["rows"][0]["name"], "l\xEF\xBF\xBDm");
}

TEST(VoltarisOutput, UsageWithoutUnitsHasNoWatts) {
  ScriptedPeer peer([](PeerConnection& connection) {
    const Bytes query = connection.ReadPdu();
    connection.Send(Reply(KeyBytes(), query, 13, U16(500)));
  });
  const nlohmann::json row = CollectFromPeer(peer, {"usage", "-o", "json"}).answer()["rows"][0];
  EXPECT_EQ(row["usage"]["raw"], 500);
  EXPECT_TRUE(row["usage"]["units"].is_null());
  EXPECT_TRUE(row["usage"]["watts"].is_null());
}

TEST(VoltarisOutput, ARefusalThatNamesAnEntityIsNoRow) {
  ScriptedPeer peer([](PeerConnection& connection) {
    const Bytes query = connection.ReadPdu();
    Bytes refusal = Reply(KeyBytes(), query, 42, {});
    refusal[69] = 0xFE;  // will not answer
    connection.Send(Sign(refusal, KeyBytes()));
  });
  const Outcome outcome = CollectFromPeer(peer, {"-o", "json"});
  EXPECT_EQ(outcome.exit_code, 7);
  EXPECT_EQ(outcome.answer()["rows"].size(), 0u);
  EXPECT_EQ(outcome.answer()["summary"]["refused"], 1);
}

TEST(VoltarisOutput, AnAnswerOfAnotherKeyIsIgnored) {
  ScriptedPeer peer([](PeerConnection& connection) {
    const Bytes query = connection.ReadPdu();
    connection.Send(Reply(Bytes(20, 7), query, 9, Counted(Text("forged"))));
  });
  const Outcome outcome = CollectFromPeer(peer, {"name"});
  EXPECT_EQ(outcome.exit_code, 5);
  EXPECT_EQ(outcome.out.find("forged"), std::string::npos) << outcome.out;
}

TEST(VoltarisKey, RawBytesAndDigitsAreTheSameKey) {
  const TempFolder folder;
  const Bytes raw = KeyBytes();
  const std::string digits = folder.Write("digits", std::string(kKeyHex) + "\n");
  const std::string bytes = folder.Write("bytes", std::string(raw.begin(), raw.end()));
  const Node node(NodeToml({DeviceToml{}}), {"--key-file", digits});
  EXPECT_EQ(node.Ask({"collect", "--key-file", bytes}).exit_code, 0);
  EXPECT_EQ(node.Ask({"collect"}, {{"VOLTARIS_KEY_FILE", digits}}).exit_code, 0);
}

TEST(VoltarisKey, AFileThatHoldsNoKeyIsRefused) {
  const TempFolder folder;
  for (const std::string& content :
       {std::string(), std::string("too short"), std::string(39, 'a'), std::string(41, 'a'),
        std::string(39, 'a') + "g", std::string(21, '\0'), std::string(1000, 'a')}) {
    const Outcome outcome = Voltaris({"collect", "--key-file", folder.Write("key", content)});
    EXPECT_EQ(outcome.exit_code, 2) << content.size();
    EXPECT_NE(outcome.err.find("20 raw bytes or 40 hexadecimal digits"), std::string::npos)
        << outcome.err;
  }
}

TEST(VoltarisKey, AFileThatOthersMayOpenIsRefused) {
  const TempFolder folder;
  for (const mode_t mode : {0640u, 0604u, 0660u}) {
    const Outcome outcome = Voltaris({"collect", "--key-file", folder.Write("key", kKeyHex, mode)});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_NE(outcome.err.find("chmod 600"), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find(kKeyHex), std::string::npos);
  }
}

TEST(VoltarisKey, AnIdentityThatOthersMayReadIsRefusedForItIsTheKeyWithoutOne) {
  const TempFolder folder;
  const std::string identity(36, 'q');
  const Outcome open = Voltaris({"collect", "--id-file", folder.Write("open", identity, 0644)});
  EXPECT_EQ(open.exit_code, 2);
  EXPECT_NE(open.err.find("others may open it"), std::string::npos) << open.err;
  const Outcome odd = Voltaris({"collect", "--id-file", folder.Write("odd", identity + "q")});
  EXPECT_EQ(odd.exit_code, 2);
  EXPECT_NE(odd.err.find("36 characters"), std::string::npos) << odd.err;
}

TEST(VoltarisKey, NothingOfItIsInTheMostDetailedLog) {
  const TempFolder folder;
  const std::string file = folder.Write("key", kKeyHex);
  const Node node(NodeToml({DeviceToml{}}), {"--key-file", file});
  const Outcome outcome = node.Ask({"collect", "--key-file", file, "-vvv"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.err.find("[trace]"), std::string::npos) << outcome.err;
  EXPECT_EQ(outcome.err.find("0001020304"), std::string::npos);
  EXPECT_EQ(outcome.err.find("00 01 02 03 04"), std::string::npos);
}

TEST(VoltarisKey, ThereIsNoOptionThatTakesAKeyItself) {
  const Outcome outcome = Voltaris({"collect", "--key", kKeyHex});
  EXPECT_EQ(outcome.exit_code, 2);
}

TEST(VoltarisKey, TheKeyStandsInNoCommandLineAndNoEnvironment) {
  const TempFolder folder;
  const std::string file = folder.Write("key", kKeyHex);
  Node node(NodeToml({DeviceToml{}}), {"--key-file", file});
  std::string cmdline;
  std::string environment;
  {
    std::promise<pid_t> running;
    ScriptedPeer peer([&](PeerConnection& connection) {
      connection.ReadPdu();
      // The program waits for an answer now, with its key read.
      const pid_t pid = running.get_future().get();
      cmdline = ProcFile(pid, "cmdline");
      environment = ProcFile(pid, "environ");
    });
    Program program("voltaris", {"collect", "--key-file", file, "--node",
                                 "127.0.0.1:" + std::to_string(peer.port())});
    running.set_value(program.pid());
    program.Finish();
    EXPECT_TRUE(peer.Join());
  }
  EXPECT_NE(cmdline.find(file), std::string::npos) << "the look at the process came too late";
  EXPECT_EQ(cmdline.find(kKeyHex), std::string::npos);
  EXPECT_EQ(environment.find(kKeyHex), std::string::npos);
  EXPECT_EQ(ProcFile(node.program().pid(), "cmdline").find(kKeyHex), std::string::npos);
}

}  // namespace
}  // namespace vt::testing
