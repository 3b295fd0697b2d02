// The interposed functions. Under a sanitizer they pass on to its interceptors, so that every block
// stays known to it and to the leak check; otherwise to the C library's own entry points.
// They can be called before any initialiser ran, so the allocation functions are kept free of
// instrumentation and of look-ups, and the state they consult is constant-initialised.
#undef _FORTIFY_SOURCE  // the checked variants define some of these names inline

#include "tests/harness/faults.h"

#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "tests/harness/sanitizers.h"

#ifdef __clang__
#define VT_UNINSTRUMENTED \
  __attribute__((no_sanitize("address", "memory", "thread", "undefined"), noinline))
#else
#define VT_UNINSTRUMENTED __attribute__((no_sanitize("address", "thread", "undefined"), noinline))
#endif
#define VT_INTERPOSED extern "C" __attribute__((visibility("default")))

#ifdef VT_SANITIZER
extern "C" {
void* __interceptor_malloc(std::size_t size) noexcept;
void* __interceptor_calloc(std::size_t count, std::size_t size) noexcept;
void* __interceptor_realloc(void* block, std::size_t size) noexcept;
void __interceptor_free(void* block) noexcept;
}
#define VT_REAL_MALLOC __interceptor_malloc
#define VT_REAL_CALLOC __interceptor_calloc
#define VT_REAL_REALLOC __interceptor_realloc
#define VT_REAL_FREE __interceptor_free
#else
extern "C" {
void* __libc_malloc(std::size_t size) noexcept;
void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
void* __libc_realloc(void* block, std::size_t size) noexcept;
void __libc_free(void* block) noexcept;
}
#define VT_REAL_MALLOC __libc_malloc
#define VT_REAL_CALLOC __libc_calloc
#define VT_REAL_REALLOC __libc_realloc
#define VT_REAL_FREE __libc_free
#endif

namespace vt::testing {
namespace {

struct AllocationState {
  AllocationFault* fault = nullptr;
  AllocationCount* count = nullptr;
  LiveBlocks* live = nullptr;
  int fill = -1;
  unsigned paused = 0;
};

struct Hooks {
  CallHook<int(int, int, int)>* socket = nullptr;
  CallHook<int(int, const sockaddr*, socklen_t)>* connect = nullptr;
  CallHook<int(int, const sockaddr*, socklen_t)>* bind = nullptr;
  CallHook<int(int, sockaddr*, socklen_t*)>* getsockname = nullptr;
  CallHook<int(int, sockaddr*, socklen_t*)>* accept = nullptr;
  CallHook<ssize_t(int, const void*, std::size_t, int)>* send = nullptr;
  CallHook<ssize_t(int, void*, std::size_t, int, sockaddr*, socklen_t*)>* recvfrom = nullptr;
  CallHook<int(pollfd*, nfds_t, int)>* poll = nullptr;
  CallHook<int(int)>* epoll_create1 = nullptr;
  CallHook<int(int, int, int, epoll_event*)>* epoll_ctl = nullptr;
  CallHook<int(int, epoll_event*, int, int)>* epoll_wait = nullptr;
  CallHook<int(clockid_t, timespec*)>* clock_gettime = nullptr;
  CallHook<int(int)>* close = nullptr;
};

constinit thread_local AllocationState allocation_state;
constinit thread_local Hooks hooks;
constinit thread_local unsigned hooks_paused = 0;

// Refused counts one allocation in every live object and tells whether it has to fail.
VT_UNINSTRUMENTED bool Refused(std::size_t bytes) {
  AllocationState& state = allocation_state;
  if ((state.fault == nullptr && state.count == nullptr) || state.paused != 0) return false;
  for (AllocationCount* count = state.count; count != nullptr; count = count->outer()) {
    count->Add(bytes);
  }
  bool refused = false;
  for (AllocationFault* fault = state.fault; fault != nullptr; fault = fault->outer()) {
    if (fault->Strike()) refused = true;
  }
  if (refused) errno = ENOMEM;
  return refused;
}

// Balance counts blocks gained or lost in every live object.
VT_UNINSTRUMENTED void Balance(long blocks) {
  LiveBlocks* live = allocation_state.live;
  for (; live != nullptr; live = live->outer()) live->Add(blocks);
}

VT_UNINSTRUMENTED void Fill(void* block, std::size_t from, std::size_t to) {
  const AllocationState& state = allocation_state;
  if (block == nullptr || state.fill < 0 || state.paused != 0 || from >= to) return;
  std::memset(static_cast<char*>(block) + from, state.fill, to - from);
}

// Next finds the definition of name that this executable's own one hides: a sanitizer's, which may
// be linked into this executable, or the next in the order of look-up. A look-up may allocate,
// which must not count.
template <class Function>
Function* Next(const char* name) {
  const AllocationFault::Pause pause;
  const int saved_errno = errno;
  void* found = dlsym(RTLD_DEFAULT, (std::string("__interceptor_") + name).c_str());
  if (found == nullptr) found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) {
    std::fprintf(stderr, "harness: nothing to forward %s to\n", name);
    std::abort();
  }
  errno = saved_errno;
  return reinterpret_cast<Function*>(found);
}

// Forward asks the hooks of one call, or calls straight on while they are paused. Without
// instrumentation, for a sanitizer reads and closes files while it reports.
template <class Result, class... Args>
VT_UNINSTRUMENTED Result Forward(CallHook<Result(Args...)>** current, Result (*real)(Args...),
                                 Args... args) {
  if (*current == nullptr || hooks_paused != 0) return real(args...);
  return CallHook<Result(Args...)>::Dispatch(current, real, args...);
}

}  // namespace

AllocationFault::AllocationFault(std::size_t n, bool onward)
    : n_(n), onward_(onward), outer_(allocation_state.fault) {
  allocation_state.fault = this;
}

AllocationFault::~AllocationFault() { allocation_state.fault = outer_; }

bool AllocationFault::Strike() {
  const std::size_t index = seen_++;
  const bool strikes = armed_ && (onward_ ? index >= n_ : index == n_);
  if (strikes) ++failed_;
  return strikes;
}

AllocationFault::Pause::Pause() { ++allocation_state.paused; }
AllocationFault::Pause::~Pause() { --allocation_state.paused; }

AllocationCount::AllocationCount() : outer_(allocation_state.count) {
  allocation_state.count = this;
}

AllocationCount::~AllocationCount() { allocation_state.count = outer_; }

void AllocationCount::Add(std::size_t bytes) {
  ++allocations_;
  bytes_ += bytes;
}

LiveBlocks::LiveBlocks() : outer_(allocation_state.live) { allocation_state.live = this; }
LiveBlocks::~LiveBlocks() { allocation_state.live = outer_; }

FillAllocations::FillAllocations(std::uint8_t byte) : saved_(allocation_state.fill) {
  allocation_state.fill = byte;
}

FillAllocations::~FillAllocations() { allocation_state.fill = saved_; }

HookPause::HookPause() { ++hooks_paused; }
HookPause::~HookPause() { --hooks_paused; }

SocketHook::SocketHook(Function function) : CallHook(&hooks.socket, std::move(function)) {}
ConnectHook::ConnectHook(Function function) : CallHook(&hooks.connect, std::move(function)) {}
BindHook::BindHook(Function function) : CallHook(&hooks.bind, std::move(function)) {}
GetsocknameHook::GetsocknameHook(Function function)
    : CallHook(&hooks.getsockname, std::move(function)) {}
AcceptHook::AcceptHook(Function function) : CallHook(&hooks.accept, std::move(function)) {}
SendHook::SendHook(Function function) : CallHook(&hooks.send, std::move(function)) {}
RecvfromHook::RecvfromHook(Function function) : CallHook(&hooks.recvfrom, std::move(function)) {}
PollHook::PollHook(Function function) : CallHook(&hooks.poll, std::move(function)) {}
EpollCreateHook::EpollCreateHook(Function function)
    : CallHook(&hooks.epoll_create1, std::move(function)) {}
EpollCtlHook::EpollCtlHook(Function function) : CallHook(&hooks.epoll_ctl, std::move(function)) {}
EpollWaitHook::EpollWaitHook(Function function)
    : CallHook(&hooks.epoll_wait, std::move(function)) {}
ClockGettimeHook::ClockGettimeHook(Function function)
    : CallHook(&hooks.clock_gettime, std::move(function)) {}
CloseHook::CloseHook(Function function) : CallHook(&hooks.close, std::move(function)) {}

}  // namespace vt::testing

using vt::testing::Balance;
using vt::testing::Fill;
using vt::testing::Forward;
using vt::testing::hooks;
using vt::testing::Next;
using vt::testing::Refused;

VT_INTERPOSED VT_UNINSTRUMENTED void* malloc(std::size_t size) noexcept {
  if (Refused(size)) return nullptr;
  void* const block = VT_REAL_MALLOC(size);
  if (block != nullptr) Balance(1);
  Fill(block, 0, size);
  return block;
}

VT_INTERPOSED VT_UNINSTRUMENTED void* calloc(std::size_t count, std::size_t size) noexcept {
  if (Refused(count * size)) return nullptr;
  void* const block = VT_REAL_CALLOC(count, size);
  if (block != nullptr) Balance(1);
  return block;
}

VT_INTERPOSED VT_UNINSTRUMENTED void* realloc(void* block, std::size_t size) noexcept {
  const bool frees = block != nullptr && size == 0;
  if (!frees && Refused(size)) return nullptr;
  // Only with a fill: the usable size of the old block is a look-up of its own.
  const bool fills = vt::testing::allocation_state.fill >= 0 && !frees;
  const std::size_t old_size = fills && block != nullptr ? malloc_usable_size(block) : 0;
  void* const grown = VT_REAL_REALLOC(block, size);
  if (frees) Balance(-1);
  if (block == nullptr && grown != nullptr) Balance(1);
  if (fills) Fill(grown, old_size, size);
  return grown;
}

VT_INTERPOSED VT_UNINSTRUMENTED void free(void* block) noexcept {
  if (block != nullptr) Balance(-1);
  VT_REAL_FREE(block);
}

VT_INTERPOSED char* strndup(const char* text, std::size_t limit) noexcept {
  const std::size_t len = strnlen(text, limit);
  auto* const copy = static_cast<char*>(malloc(len + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text, len);
  copy[len] = '\0';
  return copy;
}

VT_INTERPOSED char* strdup(const char* text) noexcept {
  const std::size_t size = std::strlen(text) + 1;
  void* const copy = malloc(size);
  return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, size));
}

#ifndef VT_SANITIZER
// C++ memory bypasses malloc, as it does under the sanitizers, so faults and counts concern the
// same calls in every build. The other forms of new and delete end up in these.
void* operator new(std::size_t size) {
  void* const block = VT_REAL_MALLOC(size > 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return VT_REAL_MALLOC(size > 0 ? size : 1);
}
void operator delete(void* block) noexcept { VT_REAL_FREE(block); }
void operator delete(void* block, std::size_t) noexcept { VT_REAL_FREE(block); }
#endif

VT_INTERPOSED int socket(int domain, int type, int protocol) noexcept {
  static auto* const real = Next<int(int, int, int)>("socket");
  return Forward(&hooks.socket, real, domain, type, protocol);
}

VT_INTERPOSED int connect(int fd, const sockaddr* address, socklen_t len) {
  static auto* const real = Next<int(int, const sockaddr*, socklen_t)>("connect");
  return Forward(&hooks.connect, real, fd, address, len);
}

VT_INTERPOSED int bind(int fd, const sockaddr* address, socklen_t len) noexcept {
  static auto* const real = Next<int(int, const sockaddr*, socklen_t)>("bind");
  return Forward(&hooks.bind, real, fd, address, len);
}

VT_INTERPOSED int getsockname(int fd, sockaddr* address, socklen_t* len) noexcept {
  static auto* const real = Next<int(int, sockaddr*, socklen_t*)>("getsockname");
  return Forward(&hooks.getsockname, real, fd, address, len);
}

VT_INTERPOSED int accept(int fd, sockaddr* address, socklen_t* len) {
  static auto* const real = Next<int(int, sockaddr*, socklen_t*)>("accept");
  return Forward(&hooks.accept, real, fd, address, len);
}

VT_INTERPOSED ssize_t send(int fd, const void* data, std::size_t len, int flags) {
  static auto* const real = Next<ssize_t(int, const void*, std::size_t, int)>("send");
  return Forward(&hooks.send, real, fd, data, len, flags);
}

VT_INTERPOSED ssize_t recvfrom(int fd, void* data, std::size_t len, int flags, sockaddr* from,
                               socklen_t* from_len) {
  static auto* const real =
      Next<ssize_t(int, void*, std::size_t, int, sockaddr*, socklen_t*)>("recvfrom");
  return Forward(&hooks.recvfrom, real, fd, data, len, flags, from, from_len);
}

VT_INTERPOSED int poll(pollfd* fds, nfds_t count, int timeout_ms) {
  static auto* const real = Next<int(pollfd*, nfds_t, int)>("poll");
  return Forward(&hooks.poll, real, fds, count, timeout_ms);
}

VT_INTERPOSED int epoll_create1(int flags) noexcept {
  static auto* const real = Next<int(int)>("epoll_create1");
  return Forward(&hooks.epoll_create1, real, flags);
}

VT_INTERPOSED int epoll_ctl(int epoll, int operation, int fd, epoll_event* event) noexcept {
  static auto* const real = Next<int(int, int, int, epoll_event*)>("epoll_ctl");
  return Forward(&hooks.epoll_ctl, real, epoll, operation, fd, event);
}

VT_INTERPOSED int epoll_wait(int epoll, epoll_event* events, int count, int timeout_ms) {
  static auto* const real = Next<int(int, epoll_event*, int, int)>("epoll_wait");
  return Forward(&hooks.epoll_wait, real, epoll, events, count, timeout_ms);
}

VT_INTERPOSED VT_UNINSTRUMENTED int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static auto* const real = Next<int(clockid_t, timespec*)>("clock_gettime");
  return Forward(&hooks.clock_gettime, real, clock, now);
}

VT_INTERPOSED VT_UNINSTRUMENTED int close(int fd) {
  static auto* const real = Next<int(int)>("close");
  return Forward(&hooks.close, real, fd);
}
