#include "node/log.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>

#include <algorithm>
#include <regex>
#include <sstream>

#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::EscapeControls;

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(Log, ControlCharactersAreEscapedAndOthersStay) {
  EXPECT_EQ(EscapeControls("plain ~ text"), "plain ~ text");
  EXPECT_EQ(EscapeControls("a\nb\rc\td"), "a\\nb\\rc\\td");
  EXPECT_EQ(EscapeControls(std::string("\x1b[2J\x7f\0", 6)), "\\x1b[2J\\x7f\\x00");
  EXPECT_EQ(EscapeControls("caf\xc3\xa9"), "caf\xc3\xa9");
  EXPECT_EQ(EscapeControls("\xc2\x9b"
                           "2J \xc2\xa0 \xc2"),
            "\\xc2\\x9b2J \xc2\xa0 \xc2")
      << "what terminals obey beyond ASCII";
  EXPECT_EQ(EscapeControls(""), "");
}

TEST(Log, ARateLimitCountsWhatItLeavesOut) {
  node::RateLimit limit;
  for (int i = 0; i < 1000; ++i) limit.Log(VT_LOG_ERROR, "the same line");
  // Ten lines a second get through, however many seconds this takes.
  EXPECT_GT(limit.left_out(), 0u);
  EXPECT_LE(limit.left_out(), 990u);
}

// Logged is what the node writes of a good query, a forged one and a reload of a file whose text
// has a line end and an escape.
std::vector<std::string> Logged(const std::vector<std::string>& arguments) {
  const TempFolder folder;
  const std::string config = folder.Write("fleet.toml", NodeToml({{}}));
  std::vector<std::string> all = {"--config", config, "--listen", "127.0.0.1:0"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  Program node("voltaris-node", all);
  const std::string line = node.ReadLine();
  const std::string address = line.substr(line.rfind(' ') + 1);
  Outcome outcome = Voltaris({"collect", "--domain", "test", "--node", address, "--key-file",
                              folder.Write("key", kKeyHex)});
  EXPECT_NE(outcome.exit_code, 0) << "the node has no such key";
  outcome = Voltaris({"collect", "--domain", "test", "--node", address});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  folder.Write("fleet.toml", NodeToml({{}}) + "\"bad\\nsetting\\u001b\" = 1\n");
  node.Signal(SIGHUP);
  // It is read again on the thread that answers, in front of this query.
  do {
    outcome = Voltaris({"collect", "--domain", "test", "--node", address});
  } while (outcome.exit_code != 0);
  node.Signal(SIGTERM);
  outcome = node.Finish();
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  return LinesOf(outcome.err);
}

TEST(Log, TextHasTheTimeTheLevelAndTheMessage) {
  const std::regex form(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \[(INFO|WARN|ERROR)\] .+)");
  bool has_forged = false;
  for (const std::string& line : Logged({"--log-level", "info"})) {
    EXPECT_TRUE(std::regex_match(line, form)) << line;
    has_forged = has_forged || std::regex_search(line, std::regex(R"(\[WARN\] dropped a message )"
                                                                  R"(from 127\.0\.0\.1:\d+: its )"
                                                                  R"(digest does not match$)"));
  }
  EXPECT_TRUE(has_forged);
}

TEST(Log, JsonIsAnObjectALineWithFieldsOfItsOwn) {
  int forged = 0;
  int taken = 0;
  const std::regex time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d)");
  for (const std::string& line : Logged({"--log-level", "info", "--log-format", "json"})) {
    const nlohmann::json entry = LogLines(line).at(0);
    ASSERT_TRUE(entry.is_object()) << line;
    EXPECT_TRUE(std::regex_match(entry.value("time", ""), time)) << line;
    EXPECT_FALSE(entry.value("message", "").empty()) << line;
    if (entry.value("reason", "") == "bad_digest") {
      ++forged;
      EXPECT_EQ(entry["level"], "warn");
      EXPECT_TRUE(entry["peer"].get<std::string>().starts_with("127.0.0.1:")) << line;
    }
    if (entry["level"] == "info" && entry.contains("peer")) ++taken;
  }
  EXPECT_EQ(forged, 1);
  EXPECT_GE(taken, 2);
}

TEST(Log, TheLibrarysOwnLinesComeThroughIt) {
  const auto count = [](const std::vector<std::string>& lines, const std::regex& form) {
    return std::ranges::count_if(
        lines, [&](const std::string& line) { return std::regex_match(line, form); });
  };
  const std::vector<std::string> text = Logged({"--log-level", "trace"});
  EXPECT_GT(count(text, std::regex(R"(.* \[TRACE\] (cv|vt|vtn)_\w+: .*)")), 0);
  EXPECT_EQ(count(text, std::regex(R"(\d{4}-.* \[[A-Z]+\] .*|    .*)")),
            static_cast<std::ptrdiff_t>(text.size()))
      << "further lines of a dump are set off";
  const std::vector<std::string> json = Logged({"--log-level", "trace", "--log-format", "json"});
  EXPECT_GT(count(json, std::regex(R"(.*"level":"trace","message":"(cv|vt|vtn)_\w+: .*)")), 0);
  for (const std::string& line : json) {
    EXPECT_EQ(LogLines(line).size(), 1u) << line;
  }
}

TEST(Log, AnUnknownFormatIsWrongUsage) {
  const Outcome outcome =
      Program("voltaris-node", {"--config", "x", "--log-format", "xml"}).Finish();
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_NE(outcome.err.find("--log-format"), std::string::npos) << outcome.err;
}

}  // namespace
}  // namespace vt::testing
