#include "tests/trust/crowd.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

#include "tests/api/api_support.h"

namespace vt::testing {
namespace {

constexpr std::size_t kPortsOfAManner = 16;

// Require ends the process: a crowd that is not all there shows nothing.
void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "crowd: %s (errno %d)\n", what, errno);
  std::_Exit(1);
}

int NewSocket(std::uint16_t& port, bool listens) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  Require(bind(fd, generic, size) == 0 && getsockname(fd, generic, &size) == 0, "no port");
  Require(!listens || listen(fd, SOMAXCONN) == 0, "no listener");
  port = ntohs(address.sin_port);
  return fd;
}

Bytes Reply() {
  return ReplyWith({Aggregate(13, "lamp", {Entry(1, {0, 11})})}).Signed(SessionKey());
}

// Watched is a listener, a connection or the clock of those that drip.
struct Watched {
  int fd;
  Manner manner;
  enum { kListener, kConnection, kClock } what;
  Bytes query;
  std::size_t dripped = 0;
};

class Server {
 public:
  explicit Server(std::atomic<std::size_t>& queries) : queries_(queries) {
    Require(epoll_ != -1, "no epoll");
    const int clock = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    const itimerspec each_second = {{1, 0}, {1, 0}};
    Require(timerfd_settime(clock, 0, &each_second, nullptr) == 0, "no clock");
    Watch({clock, Manner::kDrips, Watched::kClock, {}});
  }

  void Listen(int fd, Manner manner) { Watch({fd, manner, Watched::kListener, {}}); }

  [[noreturn]] void Run() {
    std::array<epoll_event, 256> events;
    for (;;) {
      const int count = epoll_wait(epoll_, events.data(), events.size(), -1);
      for (int i = 0; i < count; ++i) {
        Serve(*static_cast<Watched*>(events[static_cast<std::size_t>(i)].data.ptr));
      }
    }
  }

 private:
  Watched* Watch(Watched watched) {
    auto* const kept = new Watched(std::move(watched));
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = kept;
    Require(epoll_ctl(epoll_, EPOLL_CTL_ADD, kept->fd, &event) == 0, "epoll_ctl");
    return kept;
  }

  static void Close(Watched& watched) {
    close(watched.fd);
    delete &watched;
  }

  void Serve(Watched& watched) {
    if (watched.what == Watched::kListener) return Accept(watched);
    if (watched.what == Watched::kClock) return Drip(watched);
    Read(watched);
  }

  void Accept(const Watched& listener) {
    for (;;) {
      const int fd = accept4(listener.fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      Require(fd >= 0 || errno == EAGAIN || errno == ECONNABORTED, "accept");
      if (fd < 0) return;
      Watch({fd, listener.manner, Watched::kConnection, {}});
    }
  }

  static bool IsWhole(const Bytes& query) {
    constexpr std::size_t kHeaders = 80;
    return query.size() >= kHeaders &&
           query.size() >= kHeaders + static_cast<std::size_t>(query[76] << 8 | query[77]);
  }

  void Read(Watched& node) {
    std::array<std::uint8_t, 1400> buffer;
    const ssize_t got = recv(node.fd, buffer.data(), buffer.size(), 0);
    if (got <= 0) {
      if (node.manner == Manner::kDrips) std::erase(dripping_, &node);
      return Close(node);
    }
    node.query.insert(node.query.end(), buffer.begin(), buffer.begin() + got);
    if (!IsWhole(node.query)) return;
    ++queries_;
    Behave(node);
  }

  void Behave(Watched& node) {
    switch (node.manner) {
      case Manner::kAnswers:
        Require(send(node.fd, reply_.data(), reply_.size(), MSG_NOSIGNAL) ==
                    static_cast<ssize_t>(reply_.size()),
                "a short send");
        return Close(node);
      case Manner::kResets: {
        const linger hard = {1, 0};
        (void)setsockopt(node.fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        return Close(node);
      }
      case Manner::kDrips:
        dripping_.push_back(&node);
        return;
      case Manner::kRefuses:
      case Manner::kSaysNothing:
        return;
    }
  }

  void Drip(const Watched& clock) {
    std::uint64_t seconds = 0;
    Require(read(clock.fd, &seconds, sizeof seconds) == sizeof seconds, "the clock");
    for (Watched* node : dripping_) {
      (void)send(node->fd, &reply_[node->dripped++ % reply_.size()], 1, MSG_NOSIGNAL);
    }
  }

  std::atomic<std::size_t>& queries_;
  const int epoll_ = epoll_create1(EPOLL_CLOEXEC);
  const Bytes reply_ = Reply();
  std::vector<Watched*> dripping_;
};

}  // namespace

Crowd::Crowd() {
  void* const shared =
      mmap(nullptr, sizeof *queries_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Require(shared != MAP_FAILED, "no shared memory");
  queries_ = new (shared) std::atomic<std::size_t>(0);
  std::array<std::vector<int>, kManners> sockets;
  for (std::size_t manner = 0; manner < kManners; ++manner) {
    for (std::size_t i = 0; i < kPortsOfAManner; ++i) {
      const bool listens = static_cast<Manner>(manner) != Manner::kRefuses;
      sockets[manner].push_back(NewSocket(ports_[manner].emplace_back(), listens));
    }
  }
  const pid_t parent = getpid();
  pid_ = fork();
  Require(pid_ != -1, "no process");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) std::_Exit(1);
    Server server(*queries_);
    for (std::size_t manner = 0; manner < kManners; ++manner) {
      if (static_cast<Manner>(manner) == Manner::kRefuses) continue;
      for (const int fd : sockets[manner]) server.Listen(fd, static_cast<Manner>(manner));
    }
    server.Run();
  }
  for (const std::vector<int>& fds : sockets) {
    for (const int fd : fds) close(fd);
  }
}

Crowd::~Crowd() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  munmap(queries_, sizeof *queries_);
}

std::uint16_t Crowd::PortOf(Manner manner, std::size_t n) const {
  return ports_[static_cast<std::size_t>(manner)][n % kPortsOfAManner];
}

}  // namespace vt::testing
