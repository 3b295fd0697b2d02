#include "transport/wait.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>

namespace vt::transport {

namespace {

static_assert(sizeof(void*) != 4 || sizeof(timeval) == 8,
              "the 32-bit interface passes the classic timeval");

constexpr int kWithoutLimit = -1;

// Milliseconds rounds up, so that a wait is never shorter than asked for.
int Milliseconds(const timeval& timeout) {
  constexpr std::int64_t kMilliPerSecond = 1000;
  constexpr std::int64_t kMicroPerMilli = 1000;
  const std::int64_t micro = timeout.tv_usec;
  // Which is more than the most that poll takes, and little enough for the product.
  const std::int64_t seconds = std::min<std::int64_t>(timeout.tv_sec, INT_MAX);
  const std::int64_t fraction = micro / kMicroPerMilli + (micro % kMicroPerMilli != 0 ? 1 : 0);
  const std::int64_t total = seconds * kMilliPerSecond + fraction;
  return total > INT_MAX ? INT_MAX : static_cast<int>(total);
}

int FailWith(int error) {
  errno = error;
  return -1;
}

}  // namespace

int WaitReadable(int fd, const timeval* timeout, bool* out_marked) {
  if (out_marked != nullptr) *out_marked = false;
  if (timeout != nullptr && (timeout->tv_sec < 0 || timeout->tv_usec < 0)) return FailWith(EINVAL);
  // poll ignores negative descriptors and would sleep the whole time on one.
  if (fd < 0) return FailWith(EBADF);
  pollfd watched{};
  watched.fd = fd;
  watched.events = POLLIN;
  const int ready = poll(&watched, 1, timeout != nullptr ? Milliseconds(*timeout) : kWithoutLimit);
  if (ready > 0 && (watched.revents & POLLNVAL) != 0) return FailWith(EBADF);
  if (out_marked != nullptr) {
    *out_marked = ready > 0 && (watched.revents & (POLLIN | POLLHUP | POLLERR)) != 0;
  }
  return ready;
}

}  // namespace vt::transport
