// What a voltaris-node takes under load: queries and replies a second with few and with many
// clients, the processor time of the node for a reply against the digest of its bytes alone, and
// the memory of a device. Run by scripts/node-load. It prints figures, and fails when an answer is
// not what it should be.
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "vtapi.h"

#include "tests/node/node_support.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

double SecondsOf(clockid_t clock) {
  timespec now{};
  if (clock_gettime(clock, &now) != 0) {
    throw std::system_error(errno, std::generic_category(), "clock_gettime");
  }
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// ProcessorSeconds is the processor time that another process has taken.
double ProcessorSeconds(pid_t process) {
  clockid_t clock{};
  if (clock_getcpuclockid(process, &clock) != 0) throw std::runtime_error("clock_getcpuclockid");
  return SecondsOf(clock);
}

std::size_t ResidentBytes(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/statm");
  std::size_t size = 0;
  std::size_t resident = 0;
  if (!(file >> size >> resident)) throw std::runtime_error("statm cannot be read");
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// Clients ask the same question again and again, each over a new connection as clients do, so many
// of them at once, from one thread.
class Clients {
 public:
  Clients(std::uint16_t port, const Bytes& question, std::size_t answer_size)
      : question_(question), answer_size_(answer_size), epoll_(epoll_create1(EPOLL_CLOEXEC)) {
    node_.sin_family = AF_INET;
    node_.sin_port = htons(port);
    node_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }
  ~Clients() { close(epoll_); }
  Clients(const Clients&) = delete;
  Clients& operator=(const Clients&) = delete;

  // Ask has so many clients ask queries in all.
  void Ask(std::size_t clients, std::size_t queries) {
    to_start_ = queries;
    std::size_t to_end = queries;
    received_.assign(clients, 0);
    descriptors_.assign(clients, -1);
    for (std::size_t i = 0; i < clients && to_start_ > 0; ++i) Start(i);
    while (to_end > 0) to_end -= Step();
  }

 private:
  void Start(std::size_t client) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const bool failed =
        fd < 0 || (connect(fd, reinterpret_cast<const sockaddr*>(&node_), sizeof node_) != 0 &&
                   errno != EINPROGRESS);
    if (failed) throw std::system_error(errno, std::generic_category(), "connect");
    epoll_event event{};
    event.events = EPOLLOUT;
    event.data.u64 = client;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
    descriptors_[client] = fd;
    received_[client] = 0;
    --to_start_;
  }

  // Step returns how many answers have ended.
  std::size_t Step() {
    std::array<epoll_event, 256> events{};
    constexpr int patience_ms = 40'000;  // reached only when something is broken
    const int count =
        epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), patience_ms);
    if (count < 0 && errno == EINTR) return 0;
    if (count <= 0) throw std::runtime_error("the node does not answer");
    std::size_t ended = 0;
    for (const epoll_event& event : std::span(events).first(static_cast<std::size_t>(count))) {
      const auto client = static_cast<std::size_t>(event.data.u64);
      if ((event.events & EPOLLOUT) != 0) {
        Send(client);
      } else if (Receive(client)) {
        ++ended;
      }
    }
    return ended;
  }

  // A question fits into the buffers of a new connection as a whole.
  void Send(std::size_t client) {
    const int fd = descriptors_[client];
    if (send(fd, question_.data(), question_.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(question_.size())) {
      throw std::system_error(errno, std::generic_category(), "send");
    }
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = client;
    epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &event);
  }

  bool Receive(std::size_t client) {
    for (;;) {
      const ssize_t got = recv(descriptors_[client], buffer_.data(), buffer_.size(), 0);
      if (got < 0 && errno == EAGAIN) return false;
      if (got < 0) throw std::system_error(errno, std::generic_category(), "recv");
      received_[client] += static_cast<std::size_t>(got);
      if (got == 0) break;
    }
    if (received_[client] != answer_size_) throw std::runtime_error("an answer is not whole");
    close(descriptors_[client]);
    if (to_start_ > 0) Start(client);
    return true;
  }

  const Bytes& question_;
  std::size_t answer_size_;
  int epoll_;
  sockaddr_in node_{};
  std::size_t to_start_ = 0;
  std::vector<int> descriptors_;
  std::vector<std::size_t> received_;
  std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(1 << 18);
};

Bytes AnswerTo(const Node& node, const Bytes& question) {
  PeerConnection connection = node.Connect();
  connection.Send(question);
  return connection.ReadAll();
}

// DigestSeconds is what the digests of these messages take, under a key that was prepared: the
// median of some rounds.
double DigestSeconds(const std::vector<Bytes>& messages) {
  hmac_context key{};
  const Bytes secret = KeyOfSender();
  hmac_shainit(&key, secret.data(), static_cast<std::uint32_t>(secret.size()));
  constexpr std::size_t rounds = 21;
  const std::size_t repeats = std::max<std::size_t>(2000 / messages.size(), 1);
  std::array<double, rounds> times{};
  std::array<std::uint8_t, VT_DIGEST_SIZE> digest{};
  for (double& time : times) {
    const double start = SecondsOf(CLOCK_PROCESS_CPUTIME_ID);
    for (std::size_t i = 0; i < repeats; ++i) {
      for (const Bytes& message : messages) {
        hmac_sha_msg(&key, message.data() + kMessageHeaderOffset,
                     static_cast<std::uint32_t>(message.size() - kMessageHeaderOffset),
                     digest.data());
      }
    }
    time = (SecondsOf(CLOCK_PROCESS_CPUTIME_ID) - start) / static_cast<double>(repeats);
  }
  std::ranges::nth_element(times, times.begin() + rounds / 2);
  return times[rounds / 2];
}

std::string FleetOf(int count) {
  return NodeTable() + "[[group]]\ncount = " + std::to_string(count) +
         "\nname = \"lamp-{n}\"\nrole = \"lamp\"\nkeywords = [\"light\", \"floor 1\"]\n"
         "watts = [0.3, 36]\n";
}

// What most applications ask for: name, usage, level, importance.
PduImage Question() { return Asking({9, 13, 14, 17}); }

void MeasureRate(const char* what, int devices, const PduImage& image, std::size_t queries) {
  Node node(FleetOf(devices), {"--max-connections", "1024"});
  const Bytes question = image.Signed(KeyOfSender());
  const Bytes answer = AnswerTo(node, question);
  const std::vector<Bytes> replies = SplitPdus(answer);
  const double digest = DigestSeconds(replies) / static_cast<double>(replies.size());
  std::printf("%s: %zu replies, %zu bytes; the digest of a reply takes %.2f us\n", what,
              replies.size(), answer.size(), digest * 1e6);
  std::printf("  %7s %12s %12s %18s %18s %12s\n", "clients", "queries/s", "replies/s",
              "node us / query", "node us / reply", "/ digest");
  Clients clients(node.port(), question, answer.size());
  clients.Ask(16, std::max<std::size_t>(queries / 10, 16));  // to begin with
  for (const std::size_t at_once : {1u, 16u, 256u}) {
    const double start = SecondsOf(CLOCK_MONOTONIC);
    const double start_node = ProcessorSeconds(node.program().pid());
    clients.Ask(at_once, queries);
    const double rate = static_cast<double>(queries) / (SecondsOf(CLOCK_MONOTONIC) - start);
    const double node_per_query =
        (ProcessorSeconds(node.program().pid()) - start_node) / static_cast<double>(queries);
    const auto count = static_cast<double>(replies.size());
    std::printf("  %7zu %12.0f %12.0f %18.1f %18.2f %12.1f\n", at_once, rate, rate * count,
                node_per_query * 1e6, node_per_query / count * 1e6,
                node_per_query / count / digest);
  }
}

void MeasureMemory(int devices) {
  Node least(FleetOf(1));
  Node node(FleetOf(devices));
  const auto per_device = [&] {
    const std::size_t more =
        ResidentBytes(node.program().pid()) - ResidentBytes(least.program().pid());
    return static_cast<double>(more) / devices;
  };
  const double idle = per_device();
  const Bytes question = Question().Signed(KeyOfSender());
  const double start = ProcessorSeconds(node.program().pid());
  const std::vector<Bytes> replies = SplitPdus(AnswerTo(node, question));
  const double took = ProcessorSeconds(node.program().pid()) - start;
  (void)AnswerTo(least, question);
  std::printf(
      "%7d devices: %6.0f bytes a device; %6.0f once all of them were collected, which "
      "took %.3f s of the node for %zu replies\n",
      devices, idle, per_device(), took, replies.size());
}

void Run(std::size_t scale) {
  PduImage one = Question();
  one.elements.push_back(Element(9, 1, Text("lamp-7")));
  MeasureRate("one of 100 devices, while the others refuse", 100, one, 2000 * scale);
  MeasureRate("all of 1000 devices", 1000, Question(), 100 * scale);
  MeasureMemory(10'000);
  MeasureMemory(100'000);
}

}  // namespace
}  // namespace vt::testing

int main(int argc, char** argv) {
  const long scale = argc > 1 ? std::atol(argv[1]) : 4;
  if (scale < 1) {
    std::fprintf(stderr, "usage: node_load [SCALE]\n");
    return 2;
  }
  try {
    vt::testing::Run(static_cast<std::size_t>(scale));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "node_load: %s\n", error.what());
    return 1;
  }
  return 0;
}
