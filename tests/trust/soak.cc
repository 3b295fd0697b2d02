// Many queries over loopback against a peer in a process of its own: memory and descriptors must
// not grow, and nothing may fail. Run by scripts/soak.
#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"

namespace {

using namespace vt::testing;

constexpr std::uint64_t kWarmUp = 10000;
constexpr long kAllowedGrowth = 64;   // KB
constexpr std::uint8_t kFlood = 255;  // the priority that asks for very many replies
constexpr std::size_t kPriorityAt = 70;
constexpr std::uint64_t kRepliesInFlood = 100000;

void Require(bool condition, const std::string& what) {
  if (!condition) throw std::runtime_error(what);
}

// ReadAll reads exactly size bytes.
void ReadAll(int fd, std::uint8_t* data, std::size_t size) {
  Require(recv(fd, data, size, MSG_WAITALL) == static_cast<ssize_t>(size), "peer: a short query");
}

void SendAll(int fd, const Bytes& bytes) {
  Require(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
          "peer: a short send");
}

Bytes Will() {
  PduImage will = ReplyWith({Aggregate(42, "lamp", {Entry(1), Entry(2), Entry(3)})}, -1);
  will.cls = 13;
  return will.Signed(SessionKey());
}

Bytes Rows(std::string_view device) {
  return ReplyWith({Element(8, 0, Text("office")),
                    Aggregate(13, device, {Entry(1, {0, 11}), Entry(2, {0, 12})}),
                    Aggregate(9, device, {Entry(1, Counted(Text("lamp")))})})
      .Signed(SessionKey());
}

// Serve answers connections for ever: an acknowledgement and two replies each.
[[noreturn]] void Serve(int listener) {
  const Bytes answer = Cat({Will(), Rows("lamp"), Rows("fan")});
  const Bytes row = Rows("lamp");
  for (;;) {
    const int fd = accept(listener, nullptr, nullptr);
    Require(fd >= 0, "peer: accept");
    std::array<std::uint8_t, 1400> query;
    ReadAll(fd, query.data(), 80);
    const std::size_t area = static_cast<std::size_t>(query[76] << 8 | query[77]);
    Require(area <= query.size() - 80, "peer: a query that is too long");
    ReadAll(fd, query.data() + 80, area);
    SendAll(fd, answer);
    if (query[kPriorityAt] == kFlood) {
      for (std::uint64_t i = 2; i < kRepliesInFlood; ++i) SendAll(fd, row);
    }
    close(fd);
  }
}

// ResidentKilobytes adds up the pages: the counters in statm lag behind by up to 64 KB.
long ResidentKilobytes() {
  std::FILE* const file = std::fopen("/proc/self/smaps_rollup", "r");
  Require(file != nullptr, "/proc/self/smaps_rollup");
  char line[256];
  long resident = -1;
  while (resident < 0 && std::fgets(line, sizeof line, file) != nullptr) {
    (void)std::sscanf(line, "Rss: %ld kB", &resident);
  }
  std::fclose(file);
  Require(resident > 0, "/proc/self/smaps_rollup");
  return resident;
}

int OpenCount() {
  DIR* const table = opendir("/proc/self/fd");
  Require(table != nullptr, "/proc/self/fd");
  int count = 0;
  while (readdir(table) != nullptr) ++count;
  closedir(table);
  return count;
}

Query* NewQuery(std::uint64_t number) {
  Query* query = nullptr;
  switch (number % 3) {
    case 0:
      query = voltaris_createCollectQuery("office", 7);
      break;
    case 1:
      query = voltaris_createSetQuery("office", 7);
      break;
    default:
      query = voltaris_createSumQuery("office", 7);
      break;
  }
  Require(query != nullptr, "no query");
  if (number % 3 == 1) {
    const std::uint8_t level = 5;
    Require(voltaris_addSetAttribute(query, 9, &level) == 0, "no level");
  } else {
    Require(voltaris_addGetAttribute(query, 8) == 0, "no attribute");
  }
  Require(voltaris_addNameQualifier(query, "lamp") == 0, "no qualifier");
  return query;
}

void Walk(ResultSet* result) {
  while (ResultRow* const row = voltaris_getNextRow(result)) {
    std::uint32_t length = 0;
    Require(voltaris_getAttributeFromRowByType(row, 1, &length) != nullptr, "no identity");
    (void)voltaris_getAttributeFromRowByType(row, 8, &length);
  }
}

void Ask(Session* session, std::uint64_t number) {
  Query* const query = NewQuery(number);
  Require(voltaris_execQuery(session, query) == 0, "a query was not sent");
  ResultSet* const result = voltaris_queryResults(session, query);
  Require(result != nullptr, "a query has no result");
  Require(result->error_code == 0, "error code " + std::to_string(result->error_code));
  Require(result->answers_received == 2, std::to_string(result->answers_received) + " answers");
  Require(result->ack_count == 3, std::to_string(result->ack_count) + " acknowledgements");
  // Plain rows are for collecting; the others, whose actions have one number, want combined ones.
  Require(result->row_count == (number % 3 == 0 ? 4 : 0),
          "rows " + std::to_string(result->row_count));
  Walk(result);
  voltaris_releaseResult(result);
  voltaris_releaseQuery(query);
}

void AskForFlood(Session* session) {
  Query* const query = voltaris_createCollectQuery("office", kFlood);
  Require(query != nullptr && voltaris_addGetAttribute(query, 8) == 0, "no query");
  Require(voltaris_execQuery(session, query) == 0, "a query was not sent");
  ResultSet* const result = voltaris_queryResults(session, query);
  Require(result != nullptr && result->error_code == 0, "the flood failed");
  Require(result->answers_received == static_cast<std::int32_t>(kRepliesInFlood),
          std::to_string(result->answers_received) + " answers in the flood");
  Require(result->row_count == 4, "rows in the flood");
  Walk(result);
  voltaris_releaseResult(result);
  voltaris_releaseQuery(query);
}

void Soak(std::uint64_t queries, std::uint16_t port) {
  const Bytes key = SessionKey();
  Session* const session = voltaris_createSession("127.0.0.1", port, kIdentity, key.data(), 20);
  Require(session != nullptr, "no session");
  const std::uint64_t warm_up = std::min(kWarmUp, queries / 2);
  const int open = OpenCount();
  long before = ResidentKilobytes();  // the first look brings in pages of its own
  const auto begin = std::chrono::steady_clock::now();
  for (std::uint64_t i = 0; i < queries; ++i) {
    if (i == warm_up) before = ResidentKilobytes();
    Ask(session, i);
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  const long after = ResidentKilobytes();
  std::printf("%llu queries in %.1f s, no error\n", static_cast<unsigned long long>(queries),
              time.count());
  std::printf("resident: %ld KB after %llu queries, %ld KB after the last\n", before,
              static_cast<unsigned long long>(warm_up), after);
  std::printf("descriptors: %d before, %d after\n", open, OpenCount());
  Require(after - before <= kAllowedGrowth, "the memory has grown");
  Require(OpenCount() == open, "descriptors were left open");

  AskForFlood(session);
  std::printf("one query with %llu replies, no error\n",
              static_cast<unsigned long long>(kRepliesInFlood));
  Require(OpenCount() == open, "descriptors were left open");
  voltaris_closeSession(session);
}

// Peer is the process that answers.
class Peer {
 public:
  Peer() {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    Require(bind(listener, generic, size) == 0 && listen(listener, 128) == 0 &&
                getsockname(listener, generic, &size) == 0,
            "no listener");
    port_ = ntohs(address.sin_port);
    pid_ = fork();
    Require(pid_ >= 0, "fork");
    if (pid_ == 0) {
      try {
        Serve(listener);
      } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
      }
      _exit(1);
    }
    close(listener);
  }
  ~Peer() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  std::uint16_t port() const { return port_; }

 private:
  pid_t pid_ = -1;
  std::uint16_t port_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  std::uint64_t queries = 1000000;
  if (argc == 3 && std::string(argv[1]) == "--queries") {
    queries = std::strtoull(argv[2], nullptr, 10);
  } else if (argc != 1) {
    queries = 0;
  }
  if (queries == 0) {
    std::fprintf(stderr, "usage: soak [--queries N]\n");
    return 2;
  }
  setLogLevel(kSilent);
  try {
    const Peer peer;
    Soak(queries, peer.port());
  } catch (const std::exception& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "soak: %s\n", error.what());
    return 1;
  }
  return 0;
}
