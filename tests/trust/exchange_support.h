// What the tests of failing system calls and of hostile peers share: replies, guards against what
// must not be left behind, and a look at a thread from outside.
#ifndef VT_TESTS_TRUST_EXCHANGE_SUPPORT_H_
#define VT_TESTS_TRUST_EXCHANGE_SUPPORT_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tests/harness/faults.h"
#include "tests/harness/hex.h"
#include "tests/harness/peer.h"
#include "tests/trust/trust_support.h"

namespace vt::testing {

// For sessions whose connections are replaced.
inline constexpr std::uint16_t kNoPort = 9;

inline Bytes TwoReplies() { return UsageReply("lamp", 1, 11) + UsageReply("fan", 2, 22); }

// An error as most log lines show it.
inline std::string NumberAndText(int error) {
  return std::to_string(error) + "(" + std::strerror(error) + ")";
}

// NoLeak expects at its end the descriptors that were open at its beginning.
class NoLeak {
 public:
  NoLeak() : before_(OpenDescriptors()) {}
  ~NoLeak() { EXPECT_EQ(OpenDescriptors(), before_) << "a descriptor leaked or was closed twice"; }
  NoLeak(const NoLeak&) = delete;
  NoLeak& operator=(const NoLeak&) = delete;

 private:
  std::set<int> before_;
};

// NoSignal expects that none of the signals arrives that a socket can send. They are caught
// meanwhile, so that it shows them even where SIGPIPE is ignored.
class NoSignal {
 public:
  NoSignal() {
    count_ = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { count_ = count_ + 1; };
    for (std::size_t i = 0; i < std::size(kSignals); ++i) {
      EXPECT_EQ(sigaction(kSignals[i], &action, &saved_[i]), 0);
    }
  }
  ~NoSignal() {
    for (std::size_t i = 0; i < std::size(kSignals); ++i) {
      sigaction(kSignals[i], &saved_[i], nullptr);
    }
    EXPECT_EQ(count_, 0) << "a signal that would end the application";
  }
  NoSignal(const NoSignal&) = delete;
  NoSignal& operator=(const NoSignal&) = delete;

 private:
  static constexpr int kSignals[] = {SIGPIPE, SIGIO, SIGURG};
  static inline volatile std::sig_atomic_t count_ = 0;
  struct sigaction saved_[std::size(kSignals)];
};

// DescriptorLimit sets the soft limit while it lives.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t limit) {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &saved_), 0);
    rlimit wanted = saved_;
    wanted.rlim_cur = limit;
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &wanted), 0) << "a limit of " << limit << " cannot be had";
  }
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &saved_); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  rlimit saved_ = {};
};

// OccupiedDescriptors takes the free descriptors up to and with the last one that is wanted.
class OccupiedDescriptors {
 public:
  explicit OccupiedDescriptors(int last) {
    int fd = -1;
    while (fd < last && (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0) fds_.push_back(fd);
    error_ = fd < 0 ? errno : 0;
  }
  ~OccupiedDescriptors() {
    for (const int fd : fds_) close(fd);
  }
  OccupiedDescriptors(const OccupiedDescriptors&) = delete;
  OccupiedDescriptors& operator=(const OccupiedDescriptors&) = delete;

  int error() const { return error_; }

 private:
  std::vector<int> fds_;
  int error_ = 0;
};

// YieldUntil returns once done does, or throws after kPeerPatience: only when something is broken.
inline void YieldUntil(const char* what, const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + kPeerPatience;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) throw PeerError(what);
    sched_yield();
  }
}

// WatchedThread is the thread that made it, seen from others.
class WatchedThread {
 public:
  WatchedThread() : path_("/proc/self/task/" + std::to_string(syscall(SYS_gettid)) + "/stat") {
    EXPECT_EQ(pthread_getcpuclockid(pthread_self(), &clock_), 0);
  }

  // AwaitSleep returns when the thread sleeps in the system and has not run for several looks at
  // it, or throws: a thread that waits by looking again and again never does.
  void AwaitSleep() const {
    constexpr int kLooks = 10;
    YieldUntil("the thread does not sleep", [&] {
      if (!Sleeps()) return false;
      const std::int64_t before = CpuNanoseconds();
      for (int i = 0; i < kLooks; ++i) {
        if (!Sleeps()) return false;
      }
      return CpuNanoseconds() == before;
    });
  }

 private:
  bool Sleeps() const {
    const int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    char text[512] = "";
    const ssize_t size = read(fd, text, sizeof text - 1);
    ::close(fd);
    // The state follows the name, which stands in parentheses and may hold others.
    const char* const name_end = size > 0 ? std::strrchr(text, ')') : nullptr;
    if (name_end == nullptr) throw PeerError("the state of the thread cannot be read");
    return name_end[2] == 'S';
  }

  std::int64_t CpuNanoseconds() const {
    timespec time = {};
    if (clock_gettime(clock_, &time) != 0) throw PeerError("the thread's time cannot be read");
    return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
  }

  std::string path_;
  clockid_t clock_ = {};
};

}  // namespace vt::testing

#endif  // VT_TESTS_TRUST_EXCHANGE_SUPPORT_H_
