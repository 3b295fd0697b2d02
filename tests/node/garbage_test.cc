// The node against peers that send what is no query, over and over: nothing may grow.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/harness/note.h"
#include "tests/harness/sanitizers.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

// Connect comes from one of many addresses, so that no port of ours runs out.
PeerConnection ConnectFrom(std::uint16_t port, int number) {
  constexpr int addresses = 200;
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  PeerConnection connection(fd);
  sockaddr_in from{};
  from.sin_family = AF_INET;
  from.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1u + static_cast<unsigned>(number % addresses));
  sockaddr_in node = from;
  node.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  node.sin_port = htons(port);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&from), sizeof from) != 0 ||
      connect(fd, reinterpret_cast<const sockaddr*>(&node), sizeof node) != 0) {
    throw PeerError("cannot connect");
  }
  return connection;
}

// Garbage is what a bad peer sends: nothing at all, noise, the beginning of a query, one with a
// changed byte, a length beyond all bounds.
Bytes Garbage(int number, const Bytes& query, std::mt19937& random) {
  Bytes bytes = query;
  switch (number % 5) {
    case 0:
      return {};
    case 1:
      bytes.resize(1 + random() % 2000);
      for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
      return bytes;
    case 2:
      bytes.resize(random() % query.size());
      return bytes;
    case 3:
      bytes[12 + random() % (query.size() - 12)] ^= 1;
      return bytes;
    default:
      bytes[76] = 0xFF;
      bytes[77] = 0xFF;
      return bytes;
  }
}

// Resident is the memory of a process that is in use, in KB.
long Resident(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("VmRSS:")) return std::strtol(line.c_str() + 6, nullptr, 10);
  }
  return -1;
}

auto Descriptors(pid_t process) {
  const std::filesystem::directory_iterator open("/proc/" + std::to_string(process) + "/fd");
  return std::distance(begin(open), end(open));
}

TEST(Garbage, ManyConnectionsOfItLeaveNothingBehind) {
  Node node(NodeToml({{.number = 1, .name = "abc"}}), {"--log-level", "off"});
  const pid_t process = node.program().pid();
  const Bytes query = Asking({9}).Signed(KeyOfSender());
  std::mt19937 random(1);
  const auto send = [&](int from, int to) {
    for (int i = from; i < to; ++i) {
      PeerConnection connection = ConnectFrom(node.port(), i);
      const Bytes bytes = Garbage(i, query, random);
      if (!bytes.empty()) connection.Send(bytes);
      // One in three goes without a word.
      if (i % 3 == 0) {
        connection.Reset();
      } else {
        connection.HalfClose();
        connection.WaitForClose();
      }
    }
  };
  const int connections = IsWatched() ? 5'000 : 100'000;
  const int warm_up = connections / 10;
  send(0, warm_up);
  const long resident = Resident(process);
  const auto descriptors = Descriptors(process);
  send(warm_up, connections);
  PeerConnection honest = node.Connect();
  honest.Send(query);
  EXPECT_EQ(SplitPdus(honest.ReadAll()).size(), 2u) << "it still answers";
  honest.Close();
  EXPECT_LE(Descriptors(process), descriptors + 1) << "but for one that is being closed";
  if (IsWatched()) {
    Note() << connections
           << " connections only, and growth of memory is not looked at: who looks on "
           << "takes time and keeps what was released\n";
  } else {
    constexpr long allowed_kb = 512;
    EXPECT_LE(Resident(process), resident + allowed_kb);
    Note() << connections << " connections: " << resident << " KB before, " << Resident(process)
           << " KB after\n";
  }
  EXPECT_EQ(node.Stop().exit_code, 0);
}

}  // namespace
}  // namespace vt::testing
