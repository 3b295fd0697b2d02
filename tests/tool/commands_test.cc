// The commands that ask no node: what they print and how they end.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "tests/harness/pdu_image.h"
#include "tests/tool/captures.h"
#include "tests/tool/command_line.h"
#include "tests/tools/programs.h"
#include "tools/settings.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

// Command runs in a configuration of its own, so that it does not matter whose the machine's is.
class Command : public ::testing::Test {
 protected:
  Command() {
    for (const tools::Setting& setting : tools::AllSettings()) {
      unsetenv(tools::VariableOf(setting).c_str());
    }
    unsetenv("VOLTARIS_PROFILE");
  }

  Ran Run(Strings words) {
    words.insert(words.end(), {"--config", folder_.path("config.toml")});
    return RunCommand(words);
  }

  TempFolder folder_;
  std::string config_ = folder_.Write("config.toml", "domain = \"lab\"\n");
};

TEST_F(Command, NodesAreListedAsATable) {
  const Ran ran = Run({"nodes", "-n", "pdu[08-09].lab,127.0.0.1:7441"});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_EQ(ran.err, "");
  EXPECT_EQ(ran.out,
            "node            host       port  domain  priority  key file  labels\n"
            "pdu08.lab       pdu08.lab  7440  lab          100  -         -\n"
            "pdu09.lab       pdu09.lab  7440  lab          100  -         -\n"
            "127.0.0.1:7441  127.0.0.1  7441  lab          100  -         -\n");
}

TEST_F(Command, NodesAreListedAsJson) {
  folder_.Write("targets.toml",
                "[groups.racks]\nnodes = \"127.0.0.1\"\nlabels = { room = \"b\\u001b[31m\" }\n");
  const Ran ran = Run({"nodes", "-N", folder_.path("targets.toml"), "-o", "json", "--resolve"});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_EQ(ran.out.find('\x1b'), std::string::npos);
  const nlohmann::json expected = {{"node", "127.0.0.1"},   {"host", "127.0.0.1"},
                                   {"port", 7440},          {"domain", "lab"},
                                   {"priority", 100},       {"key_file", nullptr},
                                   {"id_file", nullptr},    {"labels", {{"room", "b\x1b[31m"}}},
                                   {"address", "127.0.0.1"}};
  EXPECT_EQ(ran.json()["schema"], "voltaris-nodes-1");
  EXPECT_EQ(ran.json()["nodes"], nlohmann::json::array({expected}));
}

TEST_F(Command, WhatSteersATerminalIsEscapedInATable) {
  folder_.Write("targets.toml",
                "[groups.racks]\nnodes = \"a\"\nlabels = { room = \"b\\u001b[31m\" }\n");
  const Ran ran = Run({"nodes", "-N", folder_.path("targets.toml")});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_EQ(ran.out.find('\x1b'), std::string::npos);
  EXPECT_NE(ran.out.find("room=b\\x1b[31m"), std::string::npos) << ran.out;
}

TEST_F(Command, NodesThatCannotBeReadAreWrongUsage) {
  const Ran ran = Run({"nodes", "-n", "pdu[1-"});
  EXPECT_EQ(ran.exit_code, 2);
  EXPECT_EQ(ran.out, "");
  EXPECT_EQ(ran.err, "\"pdu[1-\" opens a bracket that is not closed\n");
}

TEST_F(Command, ConfigShowTellsWhereSettingsComeFrom) {
  const Ran ran = Run({"config", "show", "--origin", "--port", "7441"});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_NE(ran.out.find("domain = \"lab\"  # " + config_ + ":1:10\n"), std::string::npos)
      << ran.out;
  EXPECT_NE(ran.out.find("port = 7441  # --port\n"), std::string::npos) << ran.out;
  EXPECT_NE(ran.out.find("priority = 100  # preset\n"), std::string::npos) << ran.out;
  EXPECT_NE(ran.out.find("# key-file is not set\n"), std::string::npos) << ran.out;
}

TEST_F(Command, WhatConfigShowPrintsIsAConfigurationThatShowsTheSame) {
  folder_.Write("config.toml",
                "node = [\"a\", \"b[1,2]\"]\ndomain = \"a\\\"b\"\ntimeout = 2.5\n"
                "no-header = true\ncolumns = \"name,usage\"\n");
  const Ran first = Run({"config", "show"});
  EXPECT_EQ(first.exit_code, 0) << first.err;
  folder_.Write("config.toml", first.out);
  EXPECT_EQ(Run({"config", "show"}).out, first.out);
}

TEST_F(Command, ConfigShowAsJsonHasTypedValues) {
  const Ran ran = Run({"config", "show", "--origin", "-o", "json", "--no-header"});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  const nlohmann::json settings = ran.json()["settings"];
  EXPECT_EQ(settings["port"]["value"], 7440);
  EXPECT_EQ(settings["no-header"]["value"], true);
  EXPECT_EQ(settings["node"]["value"], nlohmann::json::array({"127.0.0.1"}));
  EXPECT_EQ(settings["sort"], (nlohmann::json{{"value", nullptr}}));
  EXPECT_EQ(settings["domain"]["origin"]["line"], 1);
  EXPECT_EQ(settings["domain"]["origin"]["column"], 10);
}

TEST_F(Command, ConfigCheckReadsTheFilesThatAreNamed) {
  EXPECT_EQ(Run({"config", "check"}).out, config_ + ": right\n");
  folder_.Write("config.toml", "key-file = \"open.key\"\n");
  folder_.Write("open.key", kKeyHex, 0644);
  const Ran ran = Run({"config", "check"});
  EXPECT_EQ(ran.exit_code, 2);
  EXPECT_NE(ran.err.find("others may open the key file " + folder_.path("open.key")),
            std::string::npos)
      << ran.err;
}

TEST_F(Command, ConfigCheckTellsLineAndColumn) {
  folder_.Write("config.toml", "\nport = \"x\"\n");
  const Ran ran = Run({"config", "check"});
  EXPECT_EQ(ran.exit_code, 2);
  EXPECT_EQ(ran.err, config_ + ":2:8: 'port' must be a whole number\n");
}

TEST_F(Command, AttrsListsWhatCanBeSet) {
  const Ran ran = RunCommand({"attrs", "-o", "json"});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  Strings settable;
  const nlohmann::json document = ran.json();
  for (const auto& attribute : document["attributes"]) {
    if (attribute["settable"]) settable.push_back(attribute["name"]);
  }
  EXPECT_EQ(settable, (Strings{"role", "name", "keywords", "level", "importance"}));
  EXPECT_EQ(document["attributes"].size(), 22u);
}

TEST_F(Command, AttrsTellsNumbersTypesAndEnumerations) {
  const Ran ran = RunCommand({"attrs", "usage", "category"});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_EQ(ran.out,
            "attribute  number  element  type         use      meaning\n"
            "usage           8       13  power        collect  power used now\n"
            "category       22       51  enumeration  collect  consumer, producer or meter\n"
            "\n"
            "enumeration  words\n"
            "category     producer (-1), meter (0), consumer (1)\n");
  EXPECT_EQ(RunCommand({"attrs", "weight"}).exit_code, 2);
}

TEST_F(Command, AKeyThatIsGeneratedPassesTheCheck) {
  const std::string path = folder_.path("new.key");
  EXPECT_EQ(RunCommand({"key", "generate", path}).exit_code, 0);
  const Ran ran = RunCommand({"key", "check", path});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_EQ(ran.out, path + ": holds a key\n");
  EXPECT_EQ(RunCommand({"key", "generate", path}).exit_code, 2);
}

TEST_F(Command, ADerivedKeyIsTheSameForAllWhoKnowPassphraseAndIdentity) {
  const std::string phrase = folder_.Write("phrase", "correct horse\n");
  const std::string id_file = folder_.Write("id", "0123456789abcdef0123456789abcdef\n");
  const Strings derive = {"key", "derive", "--passphrase-file", phrase};
  Strings with_id = derive;
  with_id.insert(with_id.end(), {"--id", "0123456789abcdef0123456789abcdef", folder_.path("a")});
  Strings with_file = derive;
  with_file.insert(with_file.end(), {"--id-file", id_file, folder_.path("b")});
  EXPECT_EQ(RunCommand(with_id).exit_code, 0);
  EXPECT_EQ(RunCommand(with_file).exit_code, 0);
  EXPECT_EQ(folder_.Read("a"), folder_.Read("b"));
  EXPECT_EQ(folder_.Read("a").size(), 41u);
  Strings with_none = derive;
  with_none.push_back(folder_.path("c"));
  EXPECT_EQ(RunCommand(with_none).exit_code, 2);
}

TEST_F(Command, NothingSecretIsToldOfWhatIsRefused) {
  const std::string phrase = folder_.Write("phrase", "correct horse\n", 0644);
  const std::string short_key = folder_.Write("key", "c0ffee");
  const Ran derive = RunCommand({"key", "derive", "--passphrase-file", phrase, "--id",
                                 "0123456789abcdef0123456789abcdef", folder_.path("a")});
  EXPECT_EQ(derive.exit_code, 2);
  EXPECT_EQ(derive.err.find("horse"), std::string::npos) << derive.err;
  const Ran check = RunCommand({"key", "check", short_key});
  EXPECT_EQ(check.exit_code, 2);
  EXPECT_EQ(check.out, "");
  EXPECT_EQ(check.err.find("c0ffee"), std::string::npos) << check.err;
}

TEST_F(Command, IdentitiesGoToStandardOutputOrIntoAFile) {
  EXPECT_EQ(RunCommand({"id", "mac", "00:11:22:33:44:55"}).out,
            "e0d00de0000000000000001122334455\n");
  EXPECT_EQ(RunCommand({"id", "parts", "ACME-PDU-2000-0001", "A01", "00042", "b12-r7"}).out,
            "ACME-PDU-2000-0001A0100042b12-r7\n");
  const Ran ran = RunCommand({"id", "random", "--file", folder_.path("office.id")});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_EQ(ran.out, "");
  EXPECT_EQ(folder_.Read("office.id").size(), 33u);
}

// --- decode ---

std::string Digits(const Bytes& bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

std::string Raw(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

Bytes QueryImage(const Bytes& key) {
  PduImage image;
  image.seq = 7;
  image.pri = 100;
  image.identity = Text("0123456789abcdef0123456789abcdef");
  image.elements = {Element(8, 0, Text("abc")), Element(13, 0, U16(0)), Element(9, 1, Text("x")),
                    Element(41, 0, {6})};
  return image.Signed(key);
}

// ReplyImage tells usage and name of two entities.
Bytes ReplyImage(const Bytes& key) {
  const Bytes device = DeviceHeader("device", Hex("0002 1d10 c0000207 8*00"));
  PduImage image;
  image.shipment = 1;
  image.elements = {
      Element(0x8000000D, 0, Cat({device, U32(2), U32(1), U16(42), U32(2), U16(43)})),
      Element(0x80000009, 0, Cat({device, U32(1), U32(1), Counted(Text("lamp\x1b[31m"))})),
      Element(0x8000002B, 0,
              Cat({device,
                   U32(1),
                   U32(1),
                   U32(0),
                   U32(1),
                   Counted(Text("n")),
                   Counted(Text("r")),
                   {0xFF, 3, 10},
                   Counted(Text("k")),
                   U16(5)})),
  };
  return image.Signed(key);
}

TEST_F(Command, JsonIsInAsciiWhateverTextsHold) {
  // The beginning of a control sequence in one character, and a change of direction.
  const std::string targets = folder_.Write(
      "targets.toml", "[[target]]\nname = \"a\"\nlabels = { room = \"\\u009b2J\\u202e\" }\n");
  const Ran ran = Run({"nodes", "-N", targets, "-o", "json"});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_TRUE(std::ranges::all_of(ran.out, [](char byte) { return byte > 0 && byte < 0x7F; }))
      << ran.out;
  EXPECT_EQ(ran.json()["nodes"][0]["labels"]["room"], "\xc2\x9b\x32J\xe2\x80\xae");
}

TEST_F(Command, DecodeMakesHexadecimalDigitsReadable) {
  const Bytes identity = Text("0123456789abcdef0123456789abcdef");
  const Ran ran = RunCommand({"decode", "--hex", Digits(QueryImage(identity))});
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_EQ(ran.err, "");
  EXPECT_EQ(ran.out,
            "message 1, 135 bytes\n"
            "  query collect, send, sequence 7, priority 100, from "
            "\"0123456789abcdef0123456789abcdef\"\n"
            "  signed with an identity, without a key\n"
            "  domain            \"abc\"\n"
            "  usage             0\n"
            "  name              qualifier \"x\"\n"
            "  query-timeout     6\n"
            "\n");
}

TEST_F(Command, DecodeShowsAggregatesAndEscapesTexts) {
  const Ran ran = RunCommand({"decode", "-"}, Raw(ReplyImage(Text("unknown"))));
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_EQ(ran.out.find('\x1b'), std::string::npos);
  const std::string device = "of \"" + Digits(Identity32("device")) + "\" at \"192.0.2.7:7440\"\n";
  for (const std::string& line : Strings{
           "  query collect, reply-no-error, sequence 1,",
           "  signed with a key that is not known here\n",
           "  usage             " + device + "    entity 1, value 42\n    entity 2, value 43\n",
           "  name              " + device + "    entity 1, value \"lamp\\x1b[31m\"\n",
           "    entity 1, caliber \"actual\", name \"n\", role \"r\", units -1, level 3, "
           "importance "
           "10, keywords \"k\", value 5\n",
       }) {
    EXPECT_NE(ran.out.find(line), std::string::npos) << line << "is not in\n" << ran.out;
  }
}

TEST_F(Command, DecodeVerifiesWithTheKey) {
  const std::string key = folder_.Write("key", kKeyHex);
  const Bytes right = QueryImage(KeyBytes());
  const Bytes wrong = QueryImage(Text("other"));
  const auto code = [&key](const Bytes& bytes) {
    return RunCommand({"decode", "-", "--key-file", key}, Raw(bytes)).exit_code;
  };
  EXPECT_EQ(code(right), 0);
  EXPECT_EQ(code(wrong), 5);
  EXPECT_EQ(code(right + wrong), 1);
  const Ran ran = RunCommand({"decode", "-", "--key-file", key, "-o", "json"}, Raw(right + wrong));
  EXPECT_EQ(ran.json()["messages"][0]["signature"], "verified");
  EXPECT_EQ(ran.json()["messages"][1]["signature"], "forged");
  EXPECT_EQ(ran.json()["schema"], "voltaris-decode-1");
  const std::string open = folder_.Write("open", kKeyHex, 0644);
  EXPECT_EQ(RunCommand({"decode", "-", "--key-file", open}, Raw(right)).exit_code, 2);
}

TEST_F(Command, DecodeReadsCapturesWithTheTimesOfTheirPackets) {
  const Bytes query = QueryImage(Text("key"));
  const Bytes head(query.begin(), query.begin() + 30);
  const Bytes tail(query.begin() + 30, query.end());
  const std::vector<Bytes> packets = {
      TcpPacket{.sequence = 9, .flags = 0x02}.Ip(),
      TcpPacket{.sequence = 40, .payload = tail}.Ip(),
      TcpPacket{.sequence = 10, .payload = head}.Ip(),
  };
  for (const Bytes& capture : {PcapFile(101, packets), PcapngFile(101, packets)}) {
    const Ran ran = RunCommand({"decode", "-", "-o", "ndjson"}, Raw(capture));
    EXPECT_EQ(ran.exit_code, 0) << ran.err;
    EXPECT_EQ(ran.json()["from"], "192.0.2.1:40000");
    EXPECT_EQ(ran.json()["to"], "192.0.2.2:7440");
    EXPECT_EQ(ran.json()["time"], "1970-01-01T00:00:02.000005Z");
    EXPECT_EQ(ran.json()["elements"][0]["value"], "abc");
  }
}

TEST_F(Command, DecodeTellsWhatCannotBeRead) {
  PduImage image;
  image.elements = {Element(8, 0, Text("abc")), ElementWithLength(13, 99, 0, U16(0))};
  const Ran broken = RunCommand({"decode", "-"}, Raw(image.Signed(Text("key"))));
  EXPECT_EQ(broken.exit_code, 6);
  EXPECT_NE(broken.out.find("  domain            \"abc\"\n"
                            "  cannot be read: element 2 of 2, at byte 95, cannot be read\n"),
            std::string::npos)
      << broken.out;
  EXPECT_EQ(RunCommand({"decode", "--hex", "00"}).exit_code, 8);
  EXPECT_EQ(RunCommand({"decode", "--hex", "zz"}).exit_code, 2);
  EXPECT_EQ(RunCommand({"decode"}).exit_code, 2);
  EXPECT_EQ(RunCommand({"decode", folder_.path("none")}).exit_code, 2);
}

TEST_F(Command, DecodeTellsOfAFirstHeaderThatNobodySpeaks) {
  PduImage image;
  image.auth = 2;
  const Ran ran = RunCommand({"decode", "-"}, Raw(image.Signed(Text("key"))));
  EXPECT_EQ(ran.exit_code, 6);
  EXPECT_NE(ran.out.find("cannot be read: its first header is of a kind that no node takes\n"),
            std::string::npos)
      << ran.out;
}

TEST_F(Command, DecodeShowsElementsThatNobodyKnows) {
  PduImage image;
  image.elements = {Element(1000, 0, {0xAB, 0xCD})};
  const Ran ran = RunCommand({"decode", "-", "-o", "json"}, Raw(image.Signed(Text("key"))));
  EXPECT_EQ(ran.exit_code, 0) << ran.err;
  EXPECT_EQ(ran.json()["messages"][0]["elements"][0]["name"], "type-1000");
  EXPECT_EQ(ran.json()["messages"][0]["elements"][0]["value"], "abcd");
}

TEST_F(Command, NoTruncationOfAMessageDoesMoreThanFail) {
  const ReadCommand decode({"decode", "-"});
  for (const Bytes& whole : {QueryImage(Text("key")), ReplyImage(Text("key"))}) {
    for (std::size_t size = 1; size < whole.size(); ++size) {
      const Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      const Ran ran = decode.Run(Raw(part));
      EXPECT_EQ(ran.exit_code, 8) << size;
      EXPECT_EQ(ran.out, "");
    }
  }
}

TEST_F(Command, ForeignBytesAtAnyPlaceOfAMessageDoNoHarm) {
  const ReadCommand as_text({"decode", "-", "-o", "text"});
  const ReadCommand as_json({"decode", "-", "-o", "json"});
  const Bytes whole = ReplyImage(Text("key"));
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const std::uint8_t value : Bytes{0x00, 0x7F, 0x80, 0xFF}) {
      Bytes changed = whole;
      changed[at] = value;
      for (const ReadCommand* decode : {&as_text, &as_json}) {
        const Ran ran = decode->Run(Raw(changed));
        const std::set<int> codes = {0, 1, 6, 8};
        EXPECT_TRUE(codes.contains(ran.exit_code)) << at << ' ' << ran.exit_code;
        EXPECT_EQ(ran.out.find('\x1b'), std::string::npos);
      }
    }
  }
}

}  // namespace
}  // namespace vt::testing
