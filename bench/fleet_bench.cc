// P14: 2000 nodes that all answer, asked at once by a fleet in one thread, against as many bare
// connections that send the same bytes, and against a thread for each node with the blocking calls.
// One process plays all nodes, so that both sides wait for it alike.
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "bench/measure.h"
#include "bench/messages.h"
#include "bench/peer.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

constexpr std::size_t kNodes = 2000;

const Peer& ThePeer() {
  static const Peer peer;
  return peer;
}

void AllowDescriptors() {
  constexpr rlim_t kOthers = 100;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur >= kNodes + kOthers) return;
  limit.rlim_cur = kNodes + kOthers;
  Require(setrlimit(RLIMIT_NOFILE, &limit) == 0, "the limit of descriptors is too low");
}

SessionPtr NewSession() {
  SessionPtr session(voltaris_createSession("127.0.0.1", ThePeer().port(), kIdentity, Key().data(),
                                            static_cast<std::int32_t>(Key().size())));
  Require(session != nullptr, "no session");
  return session;
}

using FleetPtr = std::unique_ptr<CollectionFleet, ReleaseWith<&voltaris_releaseFleet>>;

std::int32_t CheckOne(void* context, ReplyCollection* c, void* /*tag*/,
                      const FleetCounters* /*counters*/) {
  Require(voltaris_getCollectionOutcome(c) == VT_COLLECTION_COMPLETE &&
              voltaris_getCollectionCounters(c)->accepted == 1,
          "fleet: a node did not answer");
  ++*static_cast<std::size_t*>(context);
  return 0;
}

void AskWithAFleet(Session* session, std::uint32_t priority) {
  const Shape shape = PeerShape();
  std::vector<QueryPtr> queries;
  queries.reserve(kNodes);
  const FleetPtr fleet(voltaris_createFleet(kNodes));
  for (std::size_t i = 0; i < kNodes; ++i) {
    queries.push_back(CollectQuery(shape, priority));
    Require(voltaris_addToFleet(fleet.get(), session, queries.back().get(), nullptr, nullptr) !=
                nullptr,
            "fleet: no collection");
  }
  std::size_t ended = 0;
  Require(voltaris_runFleet(fleet.get(), CheckOne, &ended) == 0 && ended == kNodes,
          "fleet: not all have ended");
}

// BareConnections sends a query on each and reads to the end, from one epoll descriptor.
class BareConnections {
 public:
  explicit BareConnections(const Bytes& query) : query_(query) {}
  ~BareConnections() { close(epoll_); }
  BareConnections(const BareConnections&) = delete;
  BareConnections& operator=(const BareConnections&) = delete;

  void Run() {
    for (std::uint32_t i = 0; i < kNodes; ++i) Start(i);
    std::array<epoll_event, 256> events;
    while (ended_ < kNodes) {
      const int count = epoll_wait(epoll_, events.data(), events.size(), -1);
      for (int i = 0; i < count; ++i) Advance(events[static_cast<std::size_t>(i)].data.u32);
    }
  }

 private:
  struct Connection {
    int fd;
    bool is_sent;
  };

  void Start(std::uint32_t number) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(ThePeer().port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Require(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 ||
                errno == EINPROGRESS,
            "bare: connect");
    connections_[number] = {fd, false};
    epoll_event event{};
    event.events = EPOLLIN | EPOLLOUT | EPOLLET;
    event.data.u32 = number;
    Require(epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) == 0, "bare: epoll_ctl");
  }

  void Advance(std::uint32_t number) {
    Connection& c = connections_[number];
    if (!c.is_sent) {
      Require(send(c.fd, query_.data(), query_.size(), MSG_NOSIGNAL) ==
                  static_cast<ssize_t>(query_.size()),
              "bare: send");
      c.is_sent = true;
    }
    std::array<std::uint8_t, VT_MAX_PDU_SIZE> buffer;
    ssize_t got = 0;
    do {
      got = recv(c.fd, buffer.data(), buffer.size(), 0);
    } while (got > 0);
    Require(got == 0 || errno == EAGAIN, "bare: recv");
    if (got != 0) return;
    close(c.fd);
    ++ended_;
  }

  const Bytes& query_;
  const int epoll_ = epoll_create1(EPOLL_CLOEXEC);
  std::array<Connection, kNodes> connections_;
  std::size_t ended_ = 0;
};

// Two thousand stacks of the usual size do not fit into 32 bits.
void UseSmallStacks() {
  constexpr std::size_t stack_size = std::size_t{128} << 10;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, stack_size);
  pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
}

void AskWithThreads(std::uint32_t priority) {
  UseSmallStacks();
  std::vector<std::thread> threads;
  threads.reserve(kNodes);
  for (std::size_t i = 0; i < kNodes; ++i) {
    threads.emplace_back([priority] { Exchange(NewSession().get(), priority); });
  }
  for (std::thread& thread : threads) thread.join();
}

double WallNs(auto&& work) { return TimeNs(work, Clock::kWall); }

void AgainstBare(benchmark::State& state, std::uint32_t kind) {
  AllowDescriptors();
  const std::uint32_t priority = kind | 1;
  const SessionPtr session = NewSession();
  const Bytes query = QueryImage(priority);
  CompareInTurn(
      state, kNodes, [&] { return WallNs([&] { AskWithAFleet(session.get(), priority); }); },
      [&] { return WallNs([&] { BareConnections(query).Run(); }); });
}

void AgainstThreads(benchmark::State& state) {
  AllowDescriptors();
  const SessionPtr session = NewSession();
  CompareInTurn(
      state, kNodes, [&] { return WallNs([&] { AskWithAFleet(session.get(), 1); }); },
      [&] { return WallNs([] { AskWithThreads(1); }); });
}

BENCHMARK_CAPTURE(AgainstBare, , 0)->Name("P14/one_row")->UseManualTime();
BENCHMARK_CAPTURE(AgainstBare, , kFullReplies)->Name("P14/full_reply")->UseManualTime();
BENCHMARK(AgainstThreads)->Name("P14/threads")->UseManualTime();

}  // namespace
