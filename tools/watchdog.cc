#include "tools/watchdog.h"

#include <sys/socket.h>

namespace vt::tools {

Watchdog::Watchdog(int fd, std::chrono::seconds time)
    : thread_([this, fd, time] { Watch(fd, time); }) {}

Watchdog::~Watchdog() { Stop(); }

bool Watchdog::Stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  stop_.notify_one();
  if (thread_.joinable()) thread_.join();
  return barked_;
}

void Watchdog::Watch(int fd, std::chrono::seconds time) {
  std::unique_lock lock(mutex_);
  if (stop_.wait_for(lock, time, [this] { return stopped_; })) return;
  barked_ = true;
  shutdown(fd, SHUT_RDWR);
}

}  // namespace vt::tools
