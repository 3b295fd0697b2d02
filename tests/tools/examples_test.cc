// The examples, run as the documentation tells, against the fleet that stands beside them.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/harness/peer.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Strings = std::vector<std::string>;

std::string OfficeToml() {
  std::ifstream file(VT_TEST_DIR "/../examples/office.toml");
  return {std::istreambuf_iterator<char>(file), {}};
}

const Strings kExamples = {"poll_loop", "epoll_fleet", "client", "asio_loop"};

Outcome RunExample(const std::string& name, const Strings& arguments) {
  return Program("examples/" + name, arguments).Finish();
}

Outcome RunOn(const std::string& name, const Node& node, const Strings& more = {}) {
  Strings arguments = {"127.0.0.1", std::to_string(node.port())};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return RunExample(name, arguments);
}

Strings Lines(const std::string& text) {
  Strings lines;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = text.find('\n', start);
    lines.push_back(text.substr(start, end - start));
    start = end == std::string::npos ? text.size() : end + 1;
  }
  return lines;
}

std::string TextOf(const Strings& lines) {
  std::string text;
  for (const std::string& line : lines) text.append(line).append("\n");
  return text;
}

class Examples : public ::testing::Test {
 protected:
  Node node_{OfficeToml()};
};

TEST_F(Examples, PollLoopPrintsNameUsageAndLevelOfEveryDevice) {
  const Outcome outcome = RunOn("poll_loop", node_);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  const Strings lines = Lines(outcome.out);  // of all consumers, which the meter is not
  ASSERT_EQ(lines.size(), 13u) << outcome.out;
  EXPECT_EQ(lines[0], "0f1ce000000040008000000000000101 1 lamp-1 360e-1 W level 10");
  EXPECT_EQ(lines.back(), "12 rows, complete");
}

TEST_F(Examples, EpollFleetTellsTheDevicesOfEachRole) {
  const Outcome outcome = RunOn("epoll_fleet", node_);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  Strings lines = Lines(outcome.out);
  std::ranges::sort(lines);  // they end in any order
  EXPECT_EQ(TextOf(lines),
            "lamp: 4 rows, complete\nno-such-role: 0 rows, complete\nphone: 3 rows, complete\n"
            "switch: 3 rows, complete\n");
}

TEST_F(Examples, ClientDimsTheLampsAndShowsAll) {
  const Outcome outcome = RunOn("client", node_);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  const Strings lines = Lines(outcome.out);
  ASSERT_EQ(lines.size(), 14u) << outcome.out;
  EXPECT_EQ(lines[0], "4 accepted");
  EXPECT_EQ(lines[1], "0f1ce000000040008000000000000101 lamp-1 18.4 W level 5 #light #floor1");
  EXPECT_EQ(lines.back(), "12 rows, complete");
}

TEST_F(Examples, AsioLoopEndsAllItsCollections) {
  const Outcome outcome = RunOn("asio_loop", node_);
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  Strings lines = Lines(outcome.out);
  Strings expected;
  for (int i = 1; i <= 20; ++i) {
    std::string& line = expected.emplace_back("query ");
    line += std::to_string(i);
    line += ": 4 rows, complete";
  }
  std::ranges::sort(lines);
  std::ranges::sort(expected);
  EXPECT_EQ(lines, expected);
}

TEST(ExamplesWithAKey, AreAnsweredByANodeOfThatKeyAlone) {
  const TempFolder folder;
  const Bytes raw = KeyBytes();
  const std::string key = folder.Write("key", std::string(raw.begin(), raw.end()));
  const Node node(OfficeToml(), {"--key-file", key});
  for (const std::string& name : kExamples) {
    const Outcome with = RunOn(name, node, {key});
    EXPECT_EQ(with.exit_code, 0) << name << with.err;
    EXPECT_NE(with.out.find("4 "), std::string::npos) << name << with.out;
    EXPECT_EQ(RunOn(name, node).out.find("lamp-1"), std::string::npos) << name;
    EXPECT_NE(RunOn(name, node, {folder.path("missing")}).exit_code, 0) << name;
  }
}

TEST(ExamplesWithoutANode, SayThatNobodyListens) {
  const std::string port = std::to_string(UnusedPort());
  for (const std::string& name : kExamples) {
    const Outcome outcome = RunExample(name, {"127.0.0.1", port});
    EXPECT_NE(outcome.out.find("connection refused"), std::string::npos) << name << outcome.out;
  }
}

TEST(ExamplesWithoutArguments, SayHowTheyAreUsed) {
  for (const std::string& name : kExamples) {
    const Outcome outcome = RunExample(name, {});
    EXPECT_EQ(outcome.exit_code, 2) << name;
    EXPECT_EQ(outcome.err, std::string("usage: ").append(name).append(" HOST PORT [KEYFILE]\n"));
  }
}

}  // namespace
}  // namespace vt::testing
