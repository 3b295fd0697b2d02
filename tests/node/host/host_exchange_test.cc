// This host as an application meets it: the real program with a made-up system, asked with the
// command.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>

#include "tests/node/host/host_tree.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

class HostExchange : public ::testing::Test {
 protected:
  HostExchange() {
    host_.PutZone("intel-rapl:0", "package-0", "1000000");
    host_.Put(kChip + "name", "chip");
    host_.Put(kChip + "power1_input", "3000000");
  }

  std::string Config(const std::string& more = "") const {
    return NodeTable() + "[host]\nid = \"" + DeviceId(7) + "\"\nname = \"box\"\nnut = \"off\"\n" +
           "interval = 1\nroot = \"" + host_.root() + "\"\n" + more;
  }

  // Rows are those of the host, by the number of the entity.
  static std::map<int, nlohmann::json> Rows(const Node& node) {
    std::map<int, nlohmann::json> rows;
    const Outcome outcome =
        node.Ask({"collect", "name", "usage", "units", "caliber", "level", "-o", "json"});
    const nlohmann::json document = outcome.answer();
    for (const nlohmann::json& row : document["rows"]) rows[row["entity"]] = row;
    return rows;
  }

  // Raw is the number of the usage of a row, null without one.
  static nlohmann::json Raw(const nlohmann::json& row) {
    return row["usage"].is_object() ? row["usage"]["raw"] : nlohmann::json();
  }

  // Until asks again and again, for what the node reads by itself; it fails after all patience.
  template <class Condition>
  static void Until(const Node& node, Condition condition) {
    const auto end = std::chrono::steady_clock::now() + kProgramPatience;
    while (!condition(Rows(node))) {
      ASSERT_LT(std::chrono::steady_clock::now(), end);
    }
  }

  HostTree host_;
};

TEST_F(HostExchange, SensorsAreEntitiesWithUsageUnitsAndCaliber) {
  const Node node(Config());
  std::map<int, nlohmann::json> rows = Rows(node);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[101]["name"], "box package-0");
  EXPECT_EQ(rows[101]["caliber"], "presumed");
  EXPECT_EQ(rows[201]["name"], "box chip power1");
  EXPECT_EQ(rows[201]["caliber"], "actual");
  EXPECT_EQ(rows[201]["usage"]["raw"], 3000);
  EXPECT_EQ(rows[201]["usage"]["units"], -3);
}

TEST_F(HostExchange, ReadingsFollowTheSystem) {
  const Node node(Config());
  host_.Put(kChip + "power1_input", "4000000");
  Until(node, [](std::map<int, nlohmann::json> rows) { return Raw(rows[201]) == 4000; });
  host_.Remove(kChip + "power1_input");
  Until(node, [](std::map<int, nlohmann::json> rows) { return rows[201]["usage"].is_null(); });
}

TEST_F(HostExchange, ACounterOfEnergyBecomesPowerWithTheSecondReading) {
  const Node node(Config());
  Until(node, [](std::map<int, nlohmann::json> rows) { return Raw(rows[101]) == 0; });
}

TEST_F(HostExchange, SensorsThatAppearAreFoundAtAReload) {
  Node node(Config());
  EXPECT_EQ(Rows(node).size(), 2u);
  host_.Put(kChip + "power2_input", "5000000");
  node.program().Signal(SIGHUP);
  Until(node, [](std::map<int, nlohmann::json> rows) { return rows.size() == 3; });
  EXPECT_EQ(Rows(node)[202]["usage"]["raw"], 5000);
}

TEST_F(HostExchange, ASetRunsTheActionOfTheLevelAndRefusesTheOthers) {
  const TempFolder folder;
  const Node node(
      Config("[[host.action]]\nlevel = 3\ncommand = [\"/bin/cp\", \"/proc/self/environ\", \"" +
             folder.path("out") + "\"]\n"));
  const Outcome set = node.Ask({"set", "level=3", "--yes"});
  EXPECT_EQ(set.exit_code, 0) << set.err;
  EXPECT_NE(folder.Read("out").find("VOLTARIS_LEVEL=3"), std::string::npos);
  EXPECT_EQ(Rows(node)[101]["level"], 3);
  EXPECT_NE(node.Ask({"set", "level=4", "--yes"}).exit_code, 0);
  EXPECT_EQ(Rows(node)[101]["level"], 3);
}

// Refused tells whether nobody listens on a port.
bool Refused(std::uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const PeerConnection connection(fd);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0;
}

template <class Condition>
void Await(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + kProgramPatience;
  while (!condition()) {
    ASSERT_LT(std::chrono::steady_clock::now(), end);
    std::this_thread::yield();
  }
}

TEST_F(HostExchange, WhoHasAskedGetsTheAnswerThoughASignalEndsTheNode) {
  const TempFolder folder;
  // The action tells that it runs, and ends when it may.
  Node node(
      Config("[[host.action]]\nlevel = 3\ntimeout = 40\ncommand = [\"/bin/sh\", \"-c\", \"touch " +
             folder.path("runs") + "; until test -e " + folder.path("go") + "; do :; done\"]\n"));
  PeerConnection idle = node.Connect();
  PeerConnection asking = node.Connect();
  asking.Send(Setting({Element(14, 0, Bytes{3})}).Signed(KeyOfSender()));
  Await([&folder] { return std::filesystem::exists(folder.path("runs")); });
  node.program().Signal(SIGTERM);
  idle.WaitForClose();
  Await([&node] { return Refused(node.port()); });
  folder.Write("go", "");
  EXPECT_GE(SplitPdus(asking.ReadAll()).size(), 2u);
  EXPECT_EQ(node.program().Finish().exit_code, 0);
}

TEST_F(HostExchange, AnAnswerThatTakesTooLongDoesNotKeepTheNodeFromEnding) {
  Node node(NodeToml({{.number = 1}}) + "[[fault]]\nkind = \"delay\"\ndelay = 60000\n",
            {"--connection-timeout", "3600"});
  PeerConnection asking = node.Connect();
  asking.Send(Asking({9}).Signed(KeyOfSender()));
  // Queries are looked at in their order: when this one, which is forged, is dropped, the other one
  // is being answered.
  PeerConnection other = node.Connect();
  other.Send(Asking({9}).Signed(Bytes(20, 9)));
  other.WaitForClose();
  node.program().Signal(SIGTERM);
  asking.WaitForClose();
  EXPECT_EQ(node.program().Finish().exit_code, 0);
}

TEST_F(HostExchange, ASystemWithoutSensorsIsANodeWithoutEntities) {
  const HostTree empty;
  Node node(NodeTable() + "[host]\nnut = \"off\"\nroot = \"" + empty.root() + "\"\n");
  EXPECT_EQ(Rows(node).size(), 0u);
  EXPECT_EQ(node.Stop().exit_code, 0);
}

TEST_F(HostExchange, CheckingTheConfigurationLooksForNoSensors) {
  const TempFolder folder;
  const std::string config = folder.Write("fleet.toml", Config());
  const Outcome outcome = Program("voltaris-node", {"--config", config, "--check-config"}).Finish();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out, config + ": 0 entities, and this host\n");
}

}  // namespace
}  // namespace vt::testing
