// Failing allocations and replaced system calls. faults.cc defines malloc, calloc, realloc, free,
// strdup, strndup, socket, connect, getsockname, send, recvfrom, poll, epoll_create1, epoll_ctl,
// epoll_wait, clock_gettime, accept, bind and close in the test executable. A shared library
// imports these names as ordinary symbols, so its calls arrive here too, and are passed on to the
// real function unless the calling thread has asked otherwise. All state is per thread; every
// object below belongs to the thread and the scope that made it.
//
// Linking: the definitions win because the executable comes first in the order of look-up, so it
// has to contain and to export them. It contains them when it uses a class of this header (the
// archive member comes with it), and the linker exports them as soon as a shared library on its
// command line imports the names, as libvtapi does. Only a test that loads its library with dlopen
// alone needs -rdynamic besides. The harness is compiled with the same -fsanitize options as the
// test; there -fno-omit-frame-pointer keeps the traces of leaks readable.
//
// Memory of C++ itself (operator new, hence std::string, std::vector, GoogleTest) is never failed,
// counted or filled; only calls of malloc, calloc, realloc, strdup and strndup are. C library
// functions that allocate on their own (fopen, qsort of large arrays, ...) do count: keep
// assertions and printing outside of an armed scope, or under AllocationFault::Pause.
#ifndef VT_TESTS_HARNESS_FAULTS_H_
#define VT_TESTS_HARNESS_FAULTS_H_

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace vt::testing {

// AllocationFault makes chosen allocations of this thread return null with errno ENOMEM while it
// lives. Objects nest; each sees every allocation, and one that wants a failure suffices.
class AllocationFault {
 public:
  // Nth fails only the n-th allocation from now, counting from 0.
  static AllocationFault Nth(std::size_t n) { return AllocationFault(n, false); }
  // FromNth fails the n-th allocation from now and all that follow.
  static AllocationFault FromNth(std::size_t n) { return AllocationFault(n, true); }
  ~AllocationFault();
  AllocationFault(const AllocationFault&) = delete;
  AllocationFault& operator=(const AllocationFault&) = delete;

  // seen counts the allocations made so far, failed ones included.
  std::size_t seen() const { return seen_; }
  // failed counts the allocations that were failed, hit tells whether any was.
  std::size_t failed() const { return failed_; }
  bool hit() const { return failed_ != 0; }
  // Disarm lets all further allocations pass; seen, failed and hit keep their values.
  void Disarm() { armed_ = false; }

  // Pause suspends every fault, AllocationCount and fill of this thread while it lives. Pauses
  // nest.
  class Pause {
   public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
  };

  // Strike counts one allocation and tells whether it has to fail. For the interposed functions.
  bool Strike();
  AllocationFault* outer() const { return outer_; }

 private:
  AllocationFault(std::size_t n, bool onward);

  std::size_t n_;
  bool onward_;
  bool armed_ = true;
  std::size_t failed_ = 0;
  std::size_t seen_ = 0;
  AllocationFault* outer_;
};

// AllocationCount counts the malloc, calloc and realloc calls of this thread (strdup and strndup as
// one malloc each) and the bytes asked for. A realloc to size 0 counts as a free, not here.
class AllocationCount {
 public:
  AllocationCount();
  ~AllocationCount();
  AllocationCount(const AllocationCount&) = delete;
  AllocationCount& operator=(const AllocationCount&) = delete;

  std::size_t allocations() const { return allocations_; }
  std::size_t bytes() const { return bytes_; }

  // Add counts one allocation. For the interposed functions.
  void Add(std::size_t bytes);
  AllocationCount* outer() const { return outer_; }

 private:
  std::size_t allocations_ = 0;
  std::size_t bytes_ = 0;
  AllocationCount* outer_;
};

// LiveBlocks tells how many more blocks this thread has allocated than released while it lives: 0
// at its end, or memory leaked. It finds a leak in every build, and in the run that caused it. It
// counts under a Pause too: what is made under one may be released when it is over.
class LiveBlocks {
 public:
  LiveBlocks();
  ~LiveBlocks();
  LiveBlocks(const LiveBlocks&) = delete;
  LiveBlocks& operator=(const LiveBlocks&) = delete;

  long count() const { return count_; }

  // Add counts blocks gained or, negative, lost. For the interposed functions.
  void Add(long blocks) { count_ += blocks; }
  LiveBlocks* outer() const { return outer_; }

 private:
  long count_ = 0;
  LiveBlocks* outer_;
};

// FillAllocations fills what malloc returns, and what realloc adds, with a byte, so that memory
// which is read before it is written shows. calloc keeps returning zeros.
class FillAllocations {
 public:
  explicit FillAllocations(std::uint8_t byte = 0xA5);
  ~FillAllocations();
  FillAllocations(const FillAllocations&) = delete;
  FillAllocations& operator=(const FillAllocations&) = delete;

 private:
  int saved_;
};

namespace internal {

// SweepOnce runs body with the fault that make(k) arms for k = 0, 1, 2, ... until nothing was hit
// or a run recorded a failure. Returns the number of runs that had a fault.
template <class Make, class Fn>
std::size_t SweepOnce(const char* what, Make make, Fn& body) {
  constexpr std::size_t kTooMany = 100000;
  for (std::size_t k = 0; k < kTooMany; ++k) {
    ::testing::ScopedTrace trace(__FILE__, __LINE__, what + std::to_string(k));
    const bool failed_before = ::testing::Test::HasFailure();
    bool hit = false;
    {
      auto fault = make(k);
      if constexpr (std::is_invocable_v<Fn&, AllocationFault&>) {
        body(fault);
      } else {
        body();
      }
      hit = fault.hit();
    }
    if (!hit) return k;
    if (!failed_before && ::testing::Test::HasFailure()) return k + 1;
    if (::testing::Test::HasFatalFailure() || ::testing::Test::IsSkipped()) return k + 1;
  }
  ADD_FAILURE() << "the sweep found no run without a failed allocation";
  return kTooMany;
}

}  // namespace internal

// Failing names the two passes of a sweep.
enum class Failing { kOnce, kFromThereOn };

// SweepAllocationFailures runs body with its first allocation failing, then its second, and so on
// until a run meets no fault; then the same with the chosen and all later allocations failing. Body
// is called as body() or body(AllocationFault&); each call starts from nothing, frees what it made,
// and checks its results. The last run of each pass has every allocation succeed. Returns the
// number of allocations that were failed in turn, 0 when body allocates nothing: worth an
// EXPECT_GT, since such a sweep has tested nothing. Stops at the first run that fails.
// With a Failing, only that pass is made: a long sweep makes two tests.
template <class Fn>
std::size_t SweepAllocationFailures(Failing failing, Fn body) {
  if (failing == Failing::kOnce) {
    return internal::SweepOnce(
        "failing only allocation ", [](std::size_t k) { return AllocationFault::Nth(k); }, body);
  }
  return internal::SweepOnce(
      "failing every allocation from ", [](std::size_t k) { return AllocationFault::FromNth(k); },
      body);
}

template <class Fn>
std::size_t SweepAllocationFailures(Fn body) {
  const std::size_t count = SweepAllocationFailures<Fn&>(Failing::kOnce, body);
  if (::testing::Test::HasFailure()) return count;
  SweepAllocationFailures<Fn&>(Failing::kFromThereOn, body);
  return count;
}

// HookPause sends this thread's system calls straight to the system while it lives. The harness's
// own sockets (peer.h) are under one, so a hook sees only the calls of the code under test.
class HookPause {
 public:
  HookPause();
  ~HookPause();
  HookPause(const HookPause&) = delete;
  HookPause& operator=(const HookPause&) = delete;
};

// CallHook replaces one system call on this thread while it lives. The function gets the call's
// arguments; it returns nullopt to pass the call on, or the result to return, after setting errno
// itself. Hooks of one call nest: the innermost is asked first and nullopt passes on to the next
// outer one and at last to the real call. A call made inside the function itself goes outwards as
// well, so it cannot recurse. Allocation faults are paused while the function runs.
//
//   PollHook hook([&](pollfd*, nfds_t, int) -> std::optional<int> {
//     if (calls++ > 0) return std::nullopt;
//     errno = EINTR;
//     return -1;
//   });
template <class Call>
class CallHook;

template <class Result, class... Args>
class CallHook<Result(Args...)> {
 public:
  using Function = std::function<std::optional<Result>(Args...)>;

  CallHook(const CallHook&) = delete;
  CallHook& operator=(const CallHook&) = delete;

  // calls counts how often the function was asked.
  std::size_t calls() const { return calls_; }

  // Dispatch asks the hooks from *current outwards, then calls real. For the interposed functions.
  template <class Real>
  static Result Dispatch(CallHook** current, Real real, Args... args) {
    CallHook* const entered = *current;
    std::optional<Result> result;
    for (CallHook* hook = entered; hook != nullptr && !result; hook = hook->outer_) {
      *current = hook->outer_;
      ++hook->calls_;
      const AllocationFault::Pause pause;
      result = hook->function_(args...);
    }
    *current = entered;
    return result ? *result : real(args...);
  }

 protected:
  CallHook(CallHook** current, Function function)
      : current_(current), outer_(*current), function_(std::move(function)) {
    *current_ = this;
  }
  ~CallHook() { *current_ = outer_; }

 private:
  CallHook** current_;
  CallHook* outer_;
  Function function_;
  std::size_t calls_ = 0;
};

class SocketHook : public CallHook<int(int domain, int type, int protocol)> {
 public:
  explicit SocketHook(Function function);
};

class ConnectHook : public CallHook<int(int fd, const sockaddr* address, socklen_t len)> {
 public:
  explicit ConnectHook(Function function);
};

class BindHook : public CallHook<int(int fd, const sockaddr* address, socklen_t len)> {
 public:
  explicit BindHook(Function function);
};

class GetsocknameHook : public CallHook<int(int fd, sockaddr* address, socklen_t* len)> {
 public:
  explicit GetsocknameHook(Function function);
};

class AcceptHook : public CallHook<int(int fd, sockaddr* address, socklen_t* len)> {
 public:
  explicit AcceptHook(Function function);
};

class SendHook : public CallHook<ssize_t(int fd, const void* data, std::size_t len, int flags)> {
 public:
  explicit SendHook(Function function);
};

class RecvfromHook : public CallHook<ssize_t(int fd, void* data, std::size_t len, int flags,
                                             sockaddr* from, socklen_t* from_len)> {
 public:
  explicit RecvfromHook(Function function);
};

class PollHook : public CallHook<int(pollfd* fds, nfds_t count, int timeout_ms)> {
 public:
  explicit PollHook(Function function);
};

class EpollCreateHook : public CallHook<int(int flags)> {
 public:
  explicit EpollCreateHook(Function function);
};

class EpollCtlHook : public CallHook<int(int epoll, int operation, int fd, epoll_event* event)> {
 public:
  explicit EpollCtlHook(Function function);
};

class EpollWaitHook
    : public CallHook<int(int epoll, epoll_event* events, int count, int timeout_ms)> {
 public:
  explicit EpollWaitHook(Function function);
};

class ClockGettimeHook : public CallHook<int(clockid_t clock, timespec* now)> {
 public:
  explicit ClockGettimeHook(Function function);
};

class CloseHook : public CallHook<int(int fd)> {
 public:
  explicit CloseHook(Function function);
};

}  // namespace vt::testing

#endif  // VT_TESTS_HARNESS_FAULTS_H_
