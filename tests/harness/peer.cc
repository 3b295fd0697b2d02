#include "tests/harness/peer.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "tests/harness/faults.h"
#include "tests/harness/pdu_image.h"
#include "tests/harness/sanitizers.h"

namespace vt::testing {
namespace {

// PeerStopped ends a script whose ScriptedPeer is being destroyed.
class PeerStopped : public PeerError {
 public:
  PeerStopped() : PeerError("the peer is being destroyed") {}
};

[[noreturn]] void Fail(const std::string& what) {
  const int error = errno;
  throw PeerError(what + ": " + std::strerror(error));
}

// The descriptors of ScriptedPeers. The lock is held while one of them is opened or closed, so
// OpenDescriptors sees the set and the table of the process agree.
std::mutex hidden_mutex;
std::set<int> hidden_descriptors;

template <class Open>
int OpenHidden(Open open) {
  const std::lock_guard lock(hidden_mutex);
  const int fd = open();
  if (fd >= 0) hidden_descriptors.insert(fd);
  return fd;
}

void CloseDescriptor(int fd) {
  if (fd < 0) return;
  const HookPause pause;
  const std::lock_guard lock(hidden_mutex);
  hidden_descriptors.erase(fd);
  close(fd);
}

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// BindLoopback binds fd to a port, or to one that the system chooses, and returns it.
std::uint16_t BindLoopback(int fd, std::uint16_t port = 0) {
  sockaddr_in address = Loopback(port);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(fd, generic, size) != 0) Fail("bind");
  if (getsockname(fd, generic, &size) != 0) Fail("getsockname");
  return ntohs(address.sin_port);
}

int NewSocket() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) Fail("socket");
  return fd;
}

// Share lets sockets of this process be bound to one port, of which one listens. The system gives
// that port to no other process meanwhile.
void Share(int fd) {
  const int on = 1;
  if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) Fail("SO_REUSEADDR");
}

void SendAtOnce(int fd) {
  const int on = 1;
  if (setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) Fail("TCP_NODELAY");
}

// AwaitReady waits for events on fd. Readiness goes before a stop, so what has already arrived is
// still handled.
void AwaitReady(int fd, int stop_fd, short events) {
  const auto deadline = std::chrono::steady_clock::now() + kPeerPatience;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd waits[2] = {{fd, events, 0}, {stop_fd, POLLIN, 0}};
    const int ready = poll(waits, 2, std::max(0, static_cast<int>(left.count())));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) Fail("poll");
    if (ready == 0) throw PeerError("the peer waited in vain");
    if ((waits[0].revents & POLLNVAL) != 0) throw PeerError("the peer's socket is closed");
    if (waits[0].revents != 0) return;
    throw PeerStopped();
  }
}

}  // namespace

PeerConnection::PeerConnection(int fd) : fd_(fd) {}

PeerConnection::~PeerConnection() { Close(); }

PeerConnection::PeerConnection(PeerConnection&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), stop_fd_(other.stop_fd_) {}

int PeerConnection::Release() {
  const std::lock_guard lock(hidden_mutex);
  hidden_descriptors.erase(fd_);
  return std::exchange(fd_, -1);
}

void PeerConnection::Await(Wanted wanted) const {
  if (fd_ < 0) throw PeerError("the peer's socket is closed");
  AwaitReady(fd_, stop_fd_, wanted == Wanted::kReading ? POLLIN : POLLOUT);
}

std::size_t PeerConnection::ReadSome(std::size_t limit, Bytes& out) {
  const HookPause pause;
  const std::size_t old_size = out.size();
  for (;;) {
    Await(Wanted::kReading);
    out.resize(old_size + limit);
    const ssize_t n = recv(fd_, out.data() + old_size, limit, MSG_DONTWAIT);
    const int error = errno;
    out.resize(old_size + (n > 0 ? static_cast<std::size_t>(n) : 0));
    if (n >= 0) return static_cast<std::size_t>(n);
    errno = error;
    if (error != EINTR && error != EAGAIN) Fail("recv");
  }
}

Bytes PeerConnection::ReadExactly(std::size_t size) {
  Bytes result;
  while (result.size() < size) {
    if (ReadSome(size - result.size(), result) == 0) {
      throw PeerError("the other side closed after " + std::to_string(result.size()) + " of " +
                      std::to_string(size) + " bytes");
    }
  }
  return result;
}

Bytes PeerConnection::ReadPdu() {
  const Bytes head = ReadExactly(kTlvAreaOffset);
  const std::size_t area_size =
      static_cast<std::size_t>(head[kTlvBytesOffset] << 8 | head[kTlvBytesOffset + 1]);
  return head + ReadExactly(area_size);
}

Bytes PeerConnection::ReadAll() {
  Bytes result;
  while (ReadSome(4096, result) > 0) {
  }
  return result;
}

void PeerConnection::Send(const Bytes& bytes) {
  const HookPause pause;
  for (std::size_t sent = 0; sent < bytes.size();) {
    Await(Wanted::kWriting);
    const ssize_t n =
        send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0 && errno != EINTR && errno != EAGAIN) Fail("send");
    if (n > 0) sent += static_cast<std::size_t>(n);
  }
}

void PeerConnection::SendInPieces(const Bytes& bytes, std::size_t piece) {
  if (piece == 0) throw PeerError("pieces of no bytes");
  SendAtOnce(fd_);
  for (std::size_t start = 0; start < bytes.size(); start += piece) {
    const std::size_t end = std::min(bytes.size(), start + piece);
    Send(Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(start),
               bytes.begin() + static_cast<std::ptrdiff_t>(end)));
  }
}

void PeerConnection::Reset() {
  const linger at_once = {1, 0};
  if (setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once) != 0) Fail("SO_LINGER");
  Close();
}

void PeerConnection::HalfClose() {
  if (shutdown(fd_, SHUT_WR) != 0) Fail("shutdown");
}

void PeerConnection::Close() { CloseDescriptor(std::exchange(fd_, -1)); }

void PeerConnection::WaitForClose() {
  const HookPause pause;
  char dropped[4096];
  for (;;) {
    Await(Wanted::kReading);
    const ssize_t n = recv(fd_, dropped, sizeof dropped, MSG_DONTWAIT);
    if (n == 0 || (n < 0 && errno == ECONNRESET)) return;
    if (n < 0 && errno != EINTR && errno != EAGAIN) Fail("recv");
  }
}

struct ScriptedPeer::State {
  Script script;
  std::size_t connections = 0;
  int holder = -1;  // keeps the port when the listener is closed
  int listener = -1;
  int stop_fd = -1;
  std::uint16_t port = 0;
  std::atomic<std::size_t> accepted = 0;
  std::mutex mutex;
  std::vector<std::string> errors;
  std::thread thread;

  ~State() {
    CloseDescriptor(listener);
    CloseDescriptor(holder);
    CloseDescriptor(stop_fd);
  }

  void Listen() {
    const HookPause pause;
    stop_fd = OpenHidden([] { return eventfd(0, EFD_CLOEXEC); });
    if (stop_fd < 0) Fail("eventfd");
    holder = OpenHidden(NewSocket);
    Share(holder);
    port = BindLoopback(holder);
    listener =
        OpenHidden([] { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); });
    if (listener < 0) Fail("socket");
    Share(listener);
    BindLoopback(listener, port);
    if (listen(listener, 128) != 0) Fail("listen");
  }

  // Accept returns a connected socket.
  int Accept() {
    for (;;) {
      AwaitReady(listener, stop_fd, POLLIN);
      const int fd =
          OpenHidden([this] { return accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); });
      if (fd >= 0) return fd;
      if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) Fail("accept");
    }
  }

  void Record(const std::string& error) {
    const std::lock_guard lock(mutex);
    errors.push_back(error);
  }
};

ScriptedPeer::ScriptedPeer(Script script, std::size_t connections)
    : state_(std::make_unique<State>()) {
  const AllocationFault::Pause pause;  // a new thread's memory is not the code under test's
  State* const state = state_.get();
  state->script = std::move(script);
  state->connections = connections;
  state->Listen();
  state->thread = std::thread([state] {
    try {
      for (std::size_t i = 0; i < state->connections; ++i) {
        PeerConnection connection(state->Accept(), state->stop_fd);
        if (++state->accepted == state->connections) {
          CloseDescriptor(std::exchange(state->listener, -1));
        }
        state->script(connection);
      }
    } catch (const PeerStopped&) {
      // The test is over and has read what it wanted.
    } catch (const std::exception& error) {
      state->Record(error.what());
    }
  });
}

ScriptedPeer::~ScriptedPeer() {
  if (eventfd_write(state_->stop_fd, 1) != 0) std::abort();
  if (state_->thread.joinable()) state_->thread.join();
  for (const std::string& error : state_->errors) {
    ADD_FAILURE() << "connection " << accepted() << " of the scripted peer: " << error;
  }
}

std::uint16_t ScriptedPeer::port() const { return state_->port; }

std::size_t ScriptedPeer::accepted() const { return state_->accepted; }

bool ScriptedPeer::Join() {
  if (state_->thread.joinable()) state_->thread.join();
  const std::lock_guard lock(state_->mutex);
  return state_->errors.empty();
}

int UnusedPort() {
  static const int port = [] {
    const HookPause hook_pause;
    const AllocationFault::Pause allocation_pause;
    return BindLoopback(OpenHidden(NewSocket));
  }();
  return port;
}

ConnectedPair::ConnectedPair() {
  const HookPause pause;
  const PeerConnection listener(NewSocket());
  const sockaddr_in address = Loopback(BindLoopback(listener.fd()));
  if (listen(listener.fd(), 1) != 0) Fail("listen");
  near_ = std::make_unique<PeerConnection>(NewSocket());
  if (connect(near_->fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    Fail("connect");
  }
  const int far = accept4(listener.fd(), nullptr, nullptr, SOCK_CLOEXEC);
  if (far < 0) Fail("accept");
  far_ = std::make_unique<PeerConnection>(far);
  SendAtOnce(near_->fd());
  SendAtOnce(far);
}

// IsOfASanitizer tells of pipes, through which sanitizers probe memory, in any thread.
bool IsOfASanitizer(int fd) {
#ifdef VT_SANITIZER
  struct stat status;
  return fd > STDERR_FILENO && (fstat(fd, &status) != 0 || S_ISFIFO(status.st_mode));
#else
  (void)fd;
  return false;
#endif
}

std::set<int> OpenDescriptors() {
  const HookPause pause;
  const AllocationFault::Pause allocation_pause;
  const std::lock_guard lock(hidden_mutex);
  std::set<int> result;
  DIR* const table = opendir("/proc/self/fd");
  if (table == nullptr) Fail("/proc/self/fd");
  while (const dirent* entry = readdir(table)) {
    if (entry->d_name[0] == '.') continue;
    const int fd = std::atoi(entry->d_name);
    if (fd == dirfd(table) || hidden_descriptors.contains(fd) || IsOfASanitizer(fd)) continue;
    result.insert(fd);
  }
  closedir(table);
  return result;
}

}  // namespace vt::testing
