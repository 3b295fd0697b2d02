// Many Collections in one thread: those that wait for their turn, those that run, watched by one
// epoll descriptor and a heap of their limits, and those that have ended.
#include "vtapi/fleet.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "api/collection.h"
#include "api/deadline_heap.h"
#include "support/heap.h"
#include "support/log.h"

using vt::api::Milliseconds;
using vt::api::Phase;

namespace {

constexpr std::uint32_t kMostRunning = 512;

// MemberList links Collections in the order in which they came.
class MemberList {
 public:
  [[nodiscard]] bool empty() const { return first_ == nullptr; }
  [[nodiscard]] ReplyCollection* first() const { return first_; }

  void Append(ReplyCollection& c) {
    c.member.previous = last_;
    c.member.next = nullptr;
    (last_ != nullptr ? last_->member.next : first_) = &c;
    last_ = &c;
  }

  void Remove(ReplyCollection& c) {
    ReplyCollection* previous = c.member.previous;
    ReplyCollection* next = c.member.next;
    (previous != nullptr ? previous->member.next : first_) = next;
    (next != nullptr ? next->member.previous : last_) = previous;
  }

 private:
  ReplyCollection* first_ = nullptr;
  ReplyCollection* last_ = nullptr;
};

}  // namespace

struct CollectionFleet {
  FleetCounters counters;
  std::uint32_t most_running;
  bool lacks_descriptors;  // until one that runs has ended
  int epoll;
  MemberList waiting;
  vt::api::DeadlineHeap running;
  MemberList ended;
};

namespace {

bool IsAtWork(const CollectionFleet& fleet) {
  return fleet.counters.waiting != 0 || fleet.counters.running != 0;
}

// CanStart tells whether one that waits has its turn.
bool CanStart(const CollectionFleet& fleet) {
  return fleet.counters.waiting != 0 && fleet.counters.running < fleet.most_running &&
         !fleet.lacks_descriptors;
}

// Watch asks for news of a descriptor, once for each change: from one change to the next a
// Collection does all it can, so that one call serves it from the connection to the last reply.
bool Watch(const CollectionFleet& fleet, ReplyCollection& c, int operation) {
  epoll_event event{};
  event.events = EPOLLIN | EPOLLOUT | EPOLLET;
  event.data.ptr = &c;
  return epoll_ctl(fleet.epoll, operation, c.fd, &event) == 0;
}

// NewsOf tells what an event says. What arrives after it is announced by another.
vt::api::News NewsOf(std::uint32_t events) {
  const bool has_failed = (events & (EPOLLERR | EPOLLHUP)) != 0;
  return {.is_connected = (events & EPOLLOUT) != 0 && !has_failed,
          .may_be_readable = (events & EPOLLIN) != 0 || has_failed};
}

// Advance steps one that runs.
void Advance(CollectionFleet& fleet, ReplyCollection& c, Milliseconds now,
             vt::api::News news = {}) {
  vt::api::Step(c, now, news);
  if (c.phase == Phase::kEnded) return;
  // Watching anew announces what is there already.
  if (c.has_more && !Watch(fleet, c, EPOLL_CTL_MOD)) {
    vt::api::End(c, VT_COLLECTION_READ_ERROR, errno);
    return;
  }
  const Milliseconds limit = vt::api::NextLimit(c);
  // That a limit has moved away, as with every message, matters when the old one is over.
  if (limit >= c.member.wake && c.member.wake > now) return;
  c.member.wake = limit;
  fleet.running.Moved(c);
}

void Start(CollectionFleet& fleet, ReplyCollection& c, Milliseconds now) {
  fleet.lacks_descriptors = !vt::api::Open(c, now, fleet.counters.running != 0);
  if (fleet.lacks_descriptors || c.phase == Phase::kEnded) return;
  fleet.waiting.Remove(c);
  --fleet.counters.waiting;
  c.member.wake = vt::api::NextLimit(c);
  fleet.running.Add(c);
  ++fleet.counters.running;
  if (!Watch(fleet, c, EPOLL_CTL_ADD)) vt::api::End(c, VT_COLLECTION_UNREACHABLE, errno);
}

// Poll waits for at most so many milliseconds and does what there is to do then, but never more
// than some hundred steps, so that the caller's other work gets its turn. False when it cannot
// wait.
bool Poll(CollectionFleet& fleet, int timeout) {
  constexpr std::size_t kAtOnce = 256;
  std::array<epoll_event, kAtOnce> events;
  const int count = epoll_wait(fleet.epoll, events.data(), events.size(), timeout);
  const bool can_wait = count >= 0 || errno == EINTR;
  const Milliseconds now = vt::api::Now();
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = events[static_cast<std::size_t>(i)];
    Advance(fleet, *static_cast<ReplyCollection*>(event.data.ptr), now, NewsOf(event.events));
  }
  while (!fleet.running.empty() && fleet.running.first().member.wake <= now) {
    Advance(fleet, fleet.running.first(), now);
  }
  for (std::size_t i = 0; i < kAtOnce && CanStart(fleet); ++i) {
    Start(fleet, *fleet.waiting.first(), now);
  }
  return can_wait;
}

// Deliver tells the callback of all that have ended. False when it wants no more.
bool Deliver(CollectionFleet& fleet, fleet_callback callback, void* context) {
  bool goes_on = true;
  void* tag = nullptr;
  while (ReplyCollection* c = voltaris_takeEnded(&fleet, &tag)) {
    if (callback(context, c, tag, &fleet.counters) != 0) goes_on = false;
    voltaris_releaseCollection(c);
  }
  return goes_on;
}

}  // namespace

// Before the descriptor is closed: where a forked process holds it too, closing alone would leave
// it watched.
void vt::api::NoteEnd(ReplyCollection& c) {
  CollectionFleet& fleet = *c.member.fleet;
  if (c.member.place == kNotRunning) {
    fleet.waiting.Remove(c);
    --fleet.counters.waiting;
  } else {
    (void)epoll_ctl(fleet.epoll, EPOLL_CTL_DEL, c.fd, nullptr);
    fleet.running.Remove(c);
    --fleet.counters.running;
    fleet.lacks_descriptors = false;
  }
  fleet.ended.Append(c);
  ++fleet.counters.ended;
  ++fleet.counters.finished;
}

extern "C" {

CollectionFleet* voltaris_createFleet(std::uint32_t most_running) {
  vt::support::Owned<CollectionFleet> fleet = vt::support::AllocateZeroed<CollectionFleet>();
  if (fleet == nullptr) {
    VT_LOG(kFatal, "out of memory");
    return nullptr;
  }
  fleet->epoll = epoll_create1(EPOLL_CLOEXEC);
  if (fleet->epoll == -1) {
    VT_LOG(kFatal, "no descriptor, error = %d(%s)", errno, std::strerror(errno));
    return nullptr;
  }
  fleet->most_running = most_running != 0 ? most_running : kMostRunning;
  return fleet.release();
}

ReplyCollection* voltaris_addToFleet(CollectionFleet* fleet, Session* session, Query* query,
                                     const CollectionOptions* options, void* tag) {
  const std::uint32_t most = fleet->counters.waiting + fleet->counters.running + 1;
  if (!fleet->running.Reserve(std::min(most, fleet->most_running))) {
    VT_LOG(kFatal, "out of memory");
    return nullptr;
  }
  ReplyCollection* c = vt::api::Prepare(*session, *query, options, "voltaris_addToFleet");
  if (c == nullptr) return nullptr;
  c->member.fleet = fleet;
  c->member.tag = tag;
  c->member.place = vt::api::kNotRunning;
  fleet->waiting.Append(*c);
  ++fleet->counters.waiting;
  return c;
}

int voltaris_getFleetDescriptor(const CollectionFleet* fleet) { return fleet->epoll; }

std::int32_t voltaris_getFleetTimeout(const CollectionFleet* fleet) {
  if (CanStart(*fleet)) return 0;
  if (fleet->running.empty()) return -1;
  return vt::api::TimeoutUntil(fleet->running.first().member.wake);
}

std::int32_t voltaris_stepFleet(CollectionFleet* fleet) {
  (void)Poll(*fleet, 0);
  return IsAtWork(*fleet) ? 1 : 0;
}

ReplyCollection* voltaris_takeEnded(CollectionFleet* fleet, void** tag) {
  ReplyCollection* c = fleet->ended.first();
  if (c == nullptr) return nullptr;
  fleet->ended.Remove(*c);
  --fleet->counters.ended;
  if (tag != nullptr) *tag = c->member.tag;
  c->member = {};
  return c;
}

std::int32_t voltaris_runFleet(CollectionFleet* fleet, fleet_callback callback, void* context) {
  bool goes_on = true;
  for (;;) {
    if (callback != nullptr && !Deliver(*fleet, callback, context)) goes_on = false;
    if (!goes_on) voltaris_cancelFleet(fleet);
    if (IsAtWork(*fleet)) {
      if (!Poll(*fleet, voltaris_getFleetTimeout(fleet))) goes_on = false;
    } else if (callback == nullptr || fleet->ended.empty()) {
      return goes_on ? 0 : -1;
    }
  }
}

void voltaris_cancelFleet(CollectionFleet* fleet) {
  while (!fleet->running.empty()) voltaris_cancelCollection(&fleet->running.last());
  while (!fleet->waiting.empty()) voltaris_cancelCollection(fleet->waiting.first());
}

const FleetCounters* voltaris_getFleetCounters(const CollectionFleet* fleet) {
  return &fleet->counters;
}

void voltaris_releaseFleet(CollectionFleet* fleet) {
  if (fleet == nullptr) return;
  voltaris_cancelFleet(fleet);
  while (ReplyCollection* c = voltaris_takeEnded(fleet, nullptr)) voltaris_releaseCollection(c);
  fleet->running.Release();
  (void)close(fleet->epoll);
  std::free(fleet);
}

}  // extern "C"
