// What voltaris writes in each of its formats, byte for byte where programs read it.

#include <gtest/gtest.h>

#include <future>
#include <optional>
#include <string>
#include <vector>

#include "tests/harness/exposition.h"
#include "tests/harness/pdu_image.h"
#include "tests/harness/peer.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

std::string LampsAndHeater() {
  return NodeToml({
      {.number = 1, .name = "lamp-1", .keywords = "\"light\", \"floor1\"", .units = -1, .step = 6},
      {.number = 2, .name = "lamp-2", .level = 4, .step = 2},
      {.number = 4, .name = "heater", .role = "heater", .units = 3, .more = "usage = 7"},
  });
}

class VoltarisFormats : public ::testing::Test {
 protected:
  Outcome Ask(Strings words) const {
    const Outcome outcome = node_.Ask(words);
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    return outcome;
  }

  Node node_{LampsAndHeater()};
};

TEST_F(VoltarisFormats, ATableHasTheColumnsThatWereAskedForInTheirOrder) {
  EXPECT_EQ(Ask({"collect", "--columns", "usage,name,entity"}).out,
            "usage  name    entity\n"
            "  6 W  lamp-1       1\n"
            "  8 W  lamp-2       1\n"
            " 7 kW  heater       1\n");
}

TEST_F(VoltarisFormats, ATableCanBeSortedAndLeftWithoutItsHeader) {
  const Strings words = {"collect", "--columns", "name", "--no-header", "--sort"};
  const auto sorted = [&](const std::string& by) {
    Strings all = words;
    all.insert(all.end(), {by, "-a", "usage"});
    return Ask(all).out;
  };
  EXPECT_EQ(sorted("usage:desc"), "heater\nlamp-2\nlamp-1\n");
  EXPECT_EQ(sorted("name"), "heater\nlamp-1\nlamp-2\n");
  EXPECT_EQ(sorted("device:desc"), "heater\nlamp-2\nlamp-1\n");
}

TEST_F(VoltarisFormats, IdentitiesAreShortenedOnRequestAlone) {
  const Strings words = {"collect", "--columns", "device,name", "--no-header", "--role", "heater"};
  EXPECT_EQ(Ask(words).out, DeviceId(4) + "  heater\n");
  Strings shortly = words;
  shortly.push_back("--short-ids");
  EXPECT_EQ(Ask(shortly).out, "..000004  heater\n");
}

TEST_F(VoltarisFormats, ColoursAreOnRequestAlsoWithoutATerminal) {
  EXPECT_TRUE(Holds(Ask({"collect", "--color", "always"}).out, "\033[1m"));
  EXPECT_FALSE(Holds(Ask({"collect", "--color", "never"}).out, "\033["));
}

TEST_F(VoltarisFormats, ATableIsTheSameInEveryLocale) {
  const Strings words = {"collect", "name"};
  EXPECT_EQ(node_.Ask(words, {{"LC_ALL", "C"}}).out, node_.Ask(words, {{"LC_ALL", "C.UTF-8"}}).out);
}

TEST_F(VoltarisFormats, CsvHasWattsRawNumberAndUnitsAndEndsItsLinesAsTheStandardSays) {
  const std::string node = node_.address();
  EXPECT_EQ(Ask({"collect", "name", "keywords", "usage", "--role", "lamp", "-o", "csv"}).out,
            "node,status,device,entity,name,keywords,usage_watts,usage_raw,usage_units\r\n" + node +
                ",ok," + DeviceId(1) + ",1,lamp-1,\"light,floor1\",6,60,-1\r\n" + node + ",ok," +
                DeviceId(2) + ",1,lamp-2,light,8,8,0\r\n");
}

TEST_F(VoltarisFormats, CsvOfAVectorHasItsNumbersInOneField) {
  EXPECT_EQ(Ask({"collect", "usage-vector", "--columns", "usage-vector", "--name", "lamp-1", "-o",
                 "csv", "--no-header"})
                .out,
            "0 0.6 1.2 1.8 2.4 3 3.6 4.2 4.8 5.4 6,0 6 12 18 24 30 36 42 48 54 60,-1\r\n");
}

TEST_F(VoltarisFormats, CsvNamesNodesWithoutRows) {
  const std::string nobody = NobodysAddress();
  const Outcome outcome = Voltaris({"collect", "name", "-d", "test", "-o", "csv", "--name",
                                    "heater", "-n", nobody + "," + node_.address()});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "node,status,device,entity,name\r\n" + node_.address() + ",ok," +
                             DeviceId(4) + ",1,heater\r\n" + nobody + ",unreachable,,,\r\n");
}

TEST_F(VoltarisFormats, JsonIsOfItsSchemaForEveryAttribute) {
  const nlohmann::json document =
      Ask({"collect",     "role",         "domain",         "name",         "keywords",
           "error",       "units",        "usage",          "level",        "importance",
           "entity-type", "address",      "neighbor-count", "nanny-vector", "delta-vector",
           "caliber",     "usage-vector", "category",       "-o",           "json"})
          .answer();
  EXPECT_EQ(document["rows"].size(), 3u);
  EXPECT_EQ(document["rows"][1]["usage_vector"]["watts"][10], 20.0);
}

TEST_F(VoltarisFormats, JsonOfASumIsOfTheSameSchema) {
  const nlohmann::json document = Ask({"sum", "usage", "delta-vector", "-o", "json"}).answer();
  EXPECT_EQ(document["command"], "sum");
  EXPECT_EQ(document["rows"][0]["usage"]["watts"], 7014.0);
}

TEST_F(VoltarisFormats, TheSchemaRefusesWhatItDoesNotDescribe) {
  nlohmann::json document = Ask({"collect", "-o", "json"}).answer();
  EXPECT_TRUE(IsAnswer(document));
  for (const char* path : {"/rows/0/colour", "/nodes/0/colour", "/summary/colour", "/colour"}) {
    nlohmann::json changed = document;
    changed[nlohmann::json::json_pointer(path)] = "red";
    EXPECT_FALSE(IsAnswer(changed)) << path;
  }
  nlohmann::json changed = document;
  changed["schema"] = "voltaris-answer-2";
  EXPECT_FALSE(IsAnswer(changed));
  changed = document;
  changed["rows"][0]["usage"] = 5;
  EXPECT_FALSE(IsAnswer(changed));
}

TEST_F(VoltarisFormats, NdjsonHasAStartRowsTheirNodeAndASummary) {
  const std::vector<nlohmann::json> lines = Ask({"collect", "name", "-o", "ndjson"}).answer_lines();
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[0]["type"], "start");
  EXPECT_EQ(lines[0]["schema"], "voltaris-answer-1");
  EXPECT_EQ(lines[1]["type"], "row");
  EXPECT_EQ(lines[1]["name"], "lamp-1");
  EXPECT_EQ(lines[3]["name"], "heater");
  EXPECT_EQ(lines[4]["type"], "node");
  EXPECT_EQ(lines[4]["rows"], 3);
  EXPECT_EQ(lines[5]["type"], "summary");
  EXPECT_EQ(lines[5]["exit_code"], 0);
}

TEST_F(VoltarisFormats, NdjsonComesWhileOtherNodesAreStillAsked) {
  std::promise<void> seen;
  ScriptedPeer late([&seen](PeerConnection& connection) {
    connection.ReadPdu();
    seen.get_future().wait();
  });
  Program program("voltaris", {"collect", "name", "-d", "test", "-o", "ndjson", "-n",
                               node_.address() + ",127.0.0.1:" + std::to_string(late.port())});
  for (const char* type : {"start", "row", "row", "row", "node"}) {
    EXPECT_EQ(nlohmann::json::parse(program.ReadLine())["type"], type);
  }
  seen.set_value();
  EXPECT_EQ(program.Finish().exit_code, 1) << "the late one closes without an answer";
}

TEST_F(VoltarisFormats, PrometheusTextHasWattsRawNumberAndUnits) {
  const std::string text = Ask({"collect", "name", "usage", "level", "-o", "prom"}).out;
  const std::string lamp =
      "{node=\"" + node_.address() + "\",device=\"" + DeviceId(1) + "\",entity=\"1\"";
  EXPECT_TRUE(Holds(text, "# TYPE voltaris_entity_usage_watts gauge\n")) << text;
  EXPECT_TRUE(Holds(text, "# HELP voltaris_entity_usage_watts ")) << text;
  EXPECT_TRUE(Holds(text, "\nvoltaris_entity_usage_watts" + lamp + "} 6\n")) << text;
  EXPECT_TRUE(Holds(text, "\nvoltaris_entity_usage_raw" + lamp + "} 60\n")) << text;
  EXPECT_TRUE(Holds(text, "\nvoltaris_entity_usage_units" + lamp + "} -1\n")) << text;
  EXPECT_TRUE(Holds(text, "\nvoltaris_entity_level" + lamp + "} 10\n")) << text;
  EXPECT_TRUE(Holds(text, "\nvoltaris_entity_info" + lamp + ",name=\"lamp-1\"} 1\n")) << text;
  EXPECT_TRUE(
      Holds(text, "\nvoltaris_collection_up{node=\"" + node_.address() + "\",domain=\"test\"} 1\n"))
      << text;
}

TEST_F(VoltarisFormats, PrometheusTextTellsOfNodesThatDidNotAnswer) {
  const std::string nobody = NobodysAddress();
  const Outcome outcome = Voltaris({"collect", "-d", "test", "-o", "prom", "-n", nobody});
  EXPECT_EQ(outcome.exit_code, 3);
  const std::string labels = "{node=\"" + nobody + "\",domain=\"test\"";
  EXPECT_TRUE(Holds(outcome.out, "voltaris_collection_up" + labels + "} 0\n")) << outcome.out;
  EXPECT_TRUE(
      Holds(outcome.out, "voltaris_collection_status" + labels + ",status=\"unreachable\"} 1\n"))
      << outcome.out;
  EXPECT_FALSE(Holds(outcome.out, "voltaris_entity")) << outcome.out;
}

TEST_F(VoltarisFormats, StandardErrorCanBeJsonALine) {
  const std::string nobody = NobodysAddress();
  const Outcome outcome = Voltaris({"collect", "-n", nobody, "--log-format", "json"});
  const std::vector<nlohmann::json> lines = LogLines(outcome.err);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0]["level"], "error");
  EXPECT_EQ(lines[0]["message"], nobody + ": connection refused");
}

TEST_F(VoltarisFormats, QuietLeavesOutTheSummary) { EXPECT_EQ(Ask({"collect", "-q"}).err, ""); }

// CollectFromDeviceNamed asks a device whose name is any bytes.
Outcome CollectFromDeviceNamed(const Bytes& name, const std::string& format) {
  const TempFolder folder;
  const std::string key = folder.Write("key", kKeyHex);
  ScriptedPeer peer([&name](PeerConnection& connection) {
    const Bytes query = connection.ReadPdu();
    PduImage image;
    image.shipment = 1;
    image.cls = query[73];
    image.action = static_cast<std::uint16_t>(query[74] << 8 | query[75]);
    image.elements = {Element(
        0x80000009u, 0, Cat({DeviceHeader(std::string(32, 'd')), U32(1), U32(1), Counted(name)}))};
    connection.Send(image.Signed(KeyBytes()));
  });
  const Outcome outcome = Voltaris(
      {"collect", "name", "-o", format, "--key-file", key, "--port", std::to_string(peer.port())});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  return outcome;
}

// CsvRows is a text as the reader of CSV in Python's library understands it, which is strict;
// nothing without Python.
std::optional<nlohmann::json> CsvRows(const std::string& text) {
  const char* script =
      "import csv, json, sys\n"
      "with open(sys.argv[1], newline='', encoding='ascii') as file:\n"
      "    print(json.dumps(list(csv.reader(file, strict=True))))\n";
  const TempFolder folder;
  const Outcome outcome = Foreign({"python3", "-c", script, folder.Write("rows.csv", text)});
  if (outcome.exit_code == 127) return std::nullopt;
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  return outcome.json();
}

TEST_F(VoltarisFormats, CsvIsReadBackByPython) {
  const Strings words = {"collect", "name", "keywords", "usage", "usage-vector", "-o", "csv"};
  const std::optional<nlohmann::json> rows = CsvRows(Ask(words).out);
  if (!rows) GTEST_SKIP() << "there is no python3";
  ASSERT_EQ(rows->size(), 4u);
  const nlohmann::json expected = {"node",
                                   "status",
                                   "device",
                                   "entity",
                                   "name",
                                   "keywords",
                                   "usage_watts",
                                   "usage_raw",
                                   "usage_units",
                                   "usage_vector_watts",
                                   "usage_vector_raw",
                                   "usage_vector_units"};
  EXPECT_EQ((*rows)[0], expected);
  EXPECT_EQ((*rows)[1][5], "light,floor1");
  EXPECT_EQ((*rows)[1][9], "0 0.6 1.2 1.8 2.4 3 3.6 4.2 4.8 5.4 6");
  EXPECT_EQ((*rows)[3][4], "heater");
  for (const nlohmann::json& row : *rows) EXPECT_EQ(row.size(), expected.size());
}

TEST(VoltarisHostileText, IsOneFieldOfCsvForPython) {
  const Outcome outcome = CollectFromDeviceNamed(Text("a,\"b\";\r\n=c"), "csv");
  const std::optional<nlohmann::json> rows = CsvRows(outcome.out);
  if (!rows) GTEST_SKIP() << "there is no python3";
  ASSERT_EQ(rows->size(), 2u);
  EXPECT_EQ((*rows)[1].back(), "a,\"b\";\\x0d\\x0a=c");
}

// LabelledAlike is of a node whose labels would get one name.
std::string LabelledAlike(const Node& node) {
  const TempFolder folder;
  const std::string targets =
      folder.Write("targets.toml", "[[target]]\nname = \"a\"\nhost = \"" + node.address() +
                                       "\"\nlabels = { a-b = \"1\", a_b = \"2\" }\n");
  return Voltaris({"collect", "-d", "test", "-o", "prom", "-N", targets}).out;
}

TEST(VoltarisHostileText, LabelsOfNodesKeepNamesOfTheirOwn) {
  const Node node(NodeToml({{}}));
  const std::string text = LabelledAlike(node);
  EXPECT_TRUE(Holds(text, "label_a_b=\"1\",label_a_b_=\"2\"") ||
              Holds(text, "label_a_b=\"2\",label_a_b_=\"1\""))
      << text;
}

// PrometheusTexts are of everything that can be told: of devices, of those whose names are hostile,
// and of nodes that did not answer.
std::vector<std::string> PrometheusTexts(const Node& node) {
  const std::string nobody = NobodysAddress();
  return {
      Voltaris({"collect", "-d", "test", "-o", "prom", "-n", node.address() + "," + nobody, "-a",
                "role,domain,name,keywords,error,units,usage,level,importance,entity-type", "-a",
                "address,nanny-vector,delta-vector,caliber,usage-vector,category"})
          .out,
      node.Ask({"sum", "usage", "delta-vector", "-o", "prom"}).out, LabelledAlike(node),
      CollectFromDeviceNamed(Text("a\\\"b\n\x1b{}"), "prom").out};
}

TEST_F(VoltarisFormats, PrometheusTextIsOfTheFormat) {
  for (const std::string& text : PrometheusTexts(node_)) {
    const Exposition metrics(text);
    EXPECT_FALSE(metrics.samples().empty());
    for (const auto& [family, type] : metrics.types()) {
      EXPECT_TRUE(family.starts_with("voltaris_")) << family;
      EXPECT_EQ(type, "gauge") << family;
    }
  }
}

TEST_F(VoltarisFormats, PrometheusTextPassesPromtool) {
  const TempFolder folder;
  for (const std::string& text : PrometheusTexts(node_)) {
    const Outcome outcome =
        Foreign({"sh", "-c", "PATH=$PATH:$2; exec promtool check metrics <\"$1\"", "sh",
                 folder.Write("metrics", text), VT_PROGRAM_DIR "/../promtool/usr/bin"});
    if (outcome.exit_code == 127) GTEST_SKIP() << "there is no promtool";
    EXPECT_EQ(outcome.exit_code, 0) << outcome.out << outcome.err;
  }
}

// A device whose name is hostile, in all formats.
TEST(VoltarisHostileText, IsEscapedInEveryFormat) {
  const Bytes name = Cat({Text("a\x1b[2J\"\\\r\n"), Hex("c2 9b e2 80 ae ff 7f")});
  for (const std::string format : {"table", "json", "ndjson", "csv", "prom"}) {
    const Outcome outcome = CollectFromDeviceNamed(name, format);
    EXPECT_TRUE(Holds(outcome.out, "[2J")) << outcome.out;
    for (const char letter : outcome.out) {
      const auto code = static_cast<unsigned char>(letter);
      const bool ends_line = letter == '\n' || (letter == '\r' && format == "csv");
      ASSERT_TRUE(ends_line || (code >= 0x20 && code < 0x7F)) << format << ": " << int{code};
    }
  }
}

}  // namespace
}  // namespace vt::testing
