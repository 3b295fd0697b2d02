#include "node/notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include "vtapi.h"

#include "node/log.h"

namespace vt::node {
namespace {

std::string TakeVariable(const char* name) {
  const char* value = std::getenv(name);
  std::string text = value != nullptr ? value : "";
  unsetenv(name);
  return text;
}

std::optional<std::int64_t> ParseNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || stop != text.data() + text.size()) return std::nullopt;
  return number;
}

// The clock that the manager compares with: a reload counts from here.
std::string MonotonicMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::to_string(std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1'000);
}

}  // namespace

Notifier Notifier::FromEnvironment() {
  std::string socket = TakeVariable("NOTIFY_SOCKET");
  const std::optional<std::int64_t> patience = ParseNumber(TakeVariable("WATCHDOG_USEC"));
  const std::string pid = TakeVariable("WATCHDOG_PID");
  const bool is_mine = pid.empty() || ParseNumber(pid) == std::int64_t{getpid()};
  std::optional<std::chrono::microseconds> interval;
  if (patience && *patience > 0 && is_mine) interval = std::chrono::microseconds(*patience);
  return Notifier(std::move(socket), interval);
}

void Notifier::Ready(const std::string& status) const { Send("READY=1\nSTATUS=" + status, 0); }

void Notifier::Reloading() const {
  Send("RELOADING=1\nMONOTONIC_USEC=" + MonotonicMicroseconds(), 0);
}

void Notifier::Stopping() const { Send("STOPPING=1", 0); }

// A manager that does not read must not hold the node up: the next one will do.
void Notifier::Alive() const { Send("WATCHDOG=1", MSG_DONTWAIT); }

void Notifier::Send(const std::string& message, int flags) const {
  if (socket_.empty()) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socket_.size() >= sizeof address.sun_path) {
    Log(VT_LOG_WARN, "the path of NOTIFY_SOCKET is too long");
    return;
  }
  std::ranges::copy(socket_, address.sun_path);
  // The name of an abstract socket has no end but its length.
  if (socket_.front() == '@') address.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const ssize_t sent = fd < 0 ? -1
                              : sendto(fd, message.data(), message.size(), MSG_NOSIGNAL | flags,
                                       reinterpret_cast<const sockaddr*>(&address), size);
  if (sent < 0) {
    Log(VT_LOG_WARN, std::string("the service manager cannot be told: ") + std::strerror(errno));
  }
  if (fd >= 0) close(fd);
}

}  // namespace vt::node
