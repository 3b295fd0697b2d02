// Many collections at once in one thread.
#ifndef VTAPI_FACE_FLEET_HPP
#define VTAPI_FACE_FLEET_HPP

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "vtapi/face/collection.hpp"
#include "vtapi/face/error.hpp"
#include "vtapi/face/query.hpp"
#include "vtapi/face/session.hpp"
#include "vtapi/fleet.h"

namespace voltaris {

// Fleet runs many collections, so many at a time at most; the others wait for their turn:
//
//   Expected<Fleet> fleet = Fleet::create();
//   for (...) fleet->add(session, description, number);
//   fleet->run([](std::uint64_t tag, Collection& ended) { ... ended.take_results() ... });
//
// Under an event loop: watch descriptor() for POLLIN, for timeout() at most, call step(), and take
// what has ended. It belongs to one thread at a time. One that was moved from is empty and takes
// nothing.
class Fleet {
 public:
  // Ended is a collection that is over, with the number that was given to add.
  struct Ended {
    std::uint64_t tag;
    Collection collection;
  };

  static constexpr std::uint32_t kDefaultMostRunning = 512;

  // create makes an empty fleet. Each collection that runs takes a descriptor; where the process
  // has none left, the others wait until one has ended.
  static Expected<Fleet> create(std::uint32_t most_running = kDefaultMostRunning) {
    errno = 0;
    CollectionFleet* made = voltaris_createFleet(most_running);
    if (made != nullptr) return Fleet(made);
    const int number = errno;
    if (number == ENOMEM)
      return detail::MakeError(Cause::kNoMemory, {"out of memory for a fleet"}, number);
    return detail::MakeError(Cause::kNoDescriptor, {"no descriptor for a fleet"}, number);
  }

  Fleet(Fleet&&) noexcept = default;
  Fleet& operator=(Fleet&& other) noexcept {
    // The fleet goes before the queries, which results read while they are released.
    fleet_ = std::move(other.fleet_);
    members_ = std::move(other.members_);
    return *this;
  }
  Fleet(const Fleet&) = delete;
  Fleet& operator=(const Fleet&) = delete;
  ~Fleet() = default;

  // add puts a query at the end of those that wait; its deadlines begin with its turn. The session
  // is not used any more afterwards. It may be called at any time, also by what run calls.
  Expected<void> add(Session& session, const QueryDescription& description, std::uint64_t tag = 0,
                     const Deadlines& deadlines = {}) {
    Expected<Query> query = description.build();
    if (!query) return query.error();
    return add(session, *std::move(query), tag, deadlines);
  }
  Expected<void> add(Session& session, Query query, std::uint64_t tag = 0,
                     const Deadlines& deadlines = {}) {
    if (fleet_ == nullptr) return detail::MakeError(Cause::kUsed, {"the fleet was moved away"});
    if (Error error; !session.CanStart(query, error)) return error;
    const CollectionOptions options = detail::OptionsOf(deadlines);
    const auto member = members_.insert(members_.end(), Member{std::move(query), tag, nullptr, {}});
    member->self = member;
    member->collection =
        voltaris_addToFleet(fleet_.get(), session.get(), member->query.get(), &options, &*member);
    if (member->collection != nullptr) return {};
    members_.erase(member);
    return detail::MakeError(Cause::kNoMemory, {"out of memory for a collection"});
  }

  // What to wait for: a descriptor, the same for as long as the fleet exists, to become readable
  // (POLLIN), and the time after which there is something to do anyway, nothing for never.
  int descriptor() const {
    return fleet_ != nullptr ? voltaris_getFleetDescriptor(fleet_.get()) : -1;
  }
  std::optional<std::chrono::milliseconds> timeout() const {
    return detail::TimeOf(fleet_ != nullptr ? voltaris_getFleetTimeout(fleet_.get()) : -1);
  }

  // step does what can be done now, and tells whether any collection still waits or runs.
  bool step() { return fleet_ != nullptr && voltaris_stepFleet(fleet_.get()) != 0; }

  // take_ended hands over the collection that has been over for longest, if there is one.
  std::optional<Ended> take_ended() {
    if (fleet_ == nullptr) return std::nullopt;
    void* tagged = nullptr;
    ReplyCollection* over = voltaris_takeEnded(fleet_.get(), &tagged);
    if (over == nullptr) return std::nullopt;
    auto* member = static_cast<Member*>(tagged);
    Ended ended{member->tag, Collection(std::move(member->query), over)};
    members_.erase(member->self);
    return ended;
  }

  // run steps and waits until every collection has ended, and calls callback(tag, collection) for
  // each. A callback that returns a bool cancels what is left by false, and is told of it too. It
  // may add to the fleet. Returns whether nothing was cancelled. What the callback throws passes
  // through; the fleet can be run again.
  template <class Callback>
  requires std::invocable<Callback&, std::uint64_t, Collection&>
  bool run(Callback callback) {
    bool goes_on = true;
    for (;;) {
      const bool is_at_work = step();
      bool was_told = false;
      while (std::optional<Ended> ended = take_ended()) {
        was_told = true;
        if (!Tell(callback, *ended)) goes_on = false;
      }
      if (!goes_on) (void)cancel();
      if (was_told) continue;
      if (!is_at_work) return goes_on;
      detail::WaitFor(descriptor(), POLLIN, timeout());
    }
  }

  // cancel ends all that wait and run, or those with a number, and returns how many. They can then
  // be taken.
  std::size_t cancel() {
    return CancelIf([](const Member&) { return true; });
  }
  std::size_t cancel(std::uint64_t tag) {
    return CancelIf([tag](const Member& member) { return member.tag == tag; });
  }

  FleetCounters counters() const {
    return fleet_ != nullptr ? *voltaris_getFleetCounters(fleet_.get()) : FleetCounters{};
  }

  // get is the fleet for calls of the C interface; do not add to it or take from it there.
  CollectionFleet* get() const { return fleet_.get(); }

 private:
  // Member is what belongs to a collection that was not taken. The list keeps it in its place.
  struct Member {
    Query query;
    std::uint64_t tag;
    ReplyCollection* collection;
    std::list<Member>::iterator self;
  };

  struct Release {
    void operator()(CollectionFleet* fleet) const { voltaris_releaseFleet(fleet); }
  };

  explicit Fleet(CollectionFleet* fleet) : fleet_(fleet) {}

  template <class Callback>
  static bool Tell(Callback& callback, Ended& ended) {
    using Result = std::invoke_result_t<Callback&, std::uint64_t, Collection&>;
    if constexpr (std::is_void_v<Result>) {
      callback(ended.tag, ended.collection);
      return true;
    } else {
      return static_cast<bool>(callback(ended.tag, ended.collection));
    }
  }

  template <class Wanted>
  std::size_t CancelIf(Wanted wanted) {
    std::size_t count = 0;
    for (const Member& member : members_) {
      if (!wanted(member)) continue;
      if (voltaris_getCollectionOutcome(member.collection) != VT_COLLECTION_PENDING) continue;
      voltaris_cancelCollection(member.collection);
      ++count;
    }
    return count;
  }

  std::list<Member> members_;  // first: results read their queries while they are released
  std::unique_ptr<CollectionFleet, Release> fleet_;
};

}  // namespace voltaris

#endif  // VTAPI_FACE_FLEET_HPP
