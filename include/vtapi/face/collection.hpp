// A query and its replies in steps that never wait, under any event loop.
#ifndef VTAPI_FACE_COLLECTION_HPP
#define VTAPI_FACE_COLLECTION_HPP

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "vtapi/collection.h"
#include "vtapi/face/error.hpp"
#include "vtapi/face/query.hpp"
#include "vtapi/face/results.hpp"

namespace voltaris {

// Deadlines are limits of a collection on the monotonic clock; nothing means no limit.
struct Deadlines {
  using Time = std::optional<std::chrono::milliseconds>;

  Time connect = std::chrono::seconds(10);  // from the start to the connection
  Time idle = std::chrono::seconds(180);    // from one acceptable message to the next
  Time total = std::nullopt;                // from the start to the end
};

namespace detail {

// LimitOf is a limit as the C interface takes it. What is not above 0 is over at once.
inline std::int32_t LimitOf(const Deadlines::Time& time) {
  if (!time) return -1;
  constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(time->count(), 1, most));
}

inline CollectionOptions OptionsOf(const Deadlines& deadlines) {
  return {LimitOf(deadlines.connect), LimitOf(deadlines.idle), LimitOf(deadlines.total)};
}

inline Deadlines::Time TimeOf(std::int32_t milliseconds) {
  if (milliseconds < 0) return std::nullopt;
  return std::chrono::milliseconds(milliseconds);
}

// WaitFor waits until a descriptor has one of the events or the time is over; a signal may end it
// earlier.
inline void WaitFor(int fd, short events, const Deadlines::Time& time) {
  pollfd watched = {fd, events, 0};
  (void)poll(&watched, 1, time ? static_cast<int>(time->count()) : -1);
}

}  // namespace detail

// Collection is a query on its way. Session::start makes it:
//
//   while (collection.step() == Outcome::kPending) { ... wait for descriptor() ... }
//   Expected<Results> results = collection.take_results();
//
// It belongs to one thread at a time. One that was moved from, or whose results were taken, has
// ended; the former as cancelled.
class Collection {
 public:
  Collection(Collection&&) noexcept = default;
  Collection& operator=(Collection&& other) noexcept {
    // The collection goes before the query, which its result reads while it is released.
    collection_ = std::move(other.collection_);
    query_ = std::move(other.query_);
    return *this;
  }
  Collection(const Collection&) = delete;
  Collection& operator=(const Collection&) = delete;
  ~Collection() = default;

  // What to wait for: the descriptor, -1 once it has ended; POLLIN or POLLOUT; and the time until
  // the next limit, nothing without any.
  int descriptor() const { return IsThere() ? voltaris_getCollectionDescriptor(get()) : -1; }
  short events() const { return IsThere() ? voltaris_getCollectionEvents(get()) : short{0}; }
  std::optional<std::chrono::milliseconds> timeout() const {
    return detail::TimeOf(IsThere() ? voltaris_getCollectionTimeout(get()) : 0);
  }

  // step does what can be done now and returns the outcome so far. It may be called at any time.
  Outcome step() {
    if (IsThere()) (void)voltaris_stepCollection(get());
    return outcome();
  }

  // run steps and waits until the end, by its deadlines at the latest.
  Outcome run() {
    while (step() == Outcome::kPending) detail::WaitFor(descriptor(), events(), timeout());
    return outcome();
  }

  // cancel ends it, unless it has ended before.
  void cancel() {
    if (IsThere()) voltaris_cancelCollection(get());
  }

  Outcome outcome() const {
    return IsThere() ? static_cast<Outcome>(voltaris_getCollectionOutcome(get()))
                     : Outcome::kCancelled;
  }
  // error_number is the errno that led to the outcome, or 0.
  int error_number() const { return IsThere() ? voltaris_getCollectionErrno(get()) : 0; }
  CollectionCounters counters() const {
    return IsThere() ? *voltaris_getCollectionCounters(get()) : CollectionCounters{};
  }

  // take_results ends it and hands over what has come so far, once.
  Expected<Results> take_results() {
    ResultSet* result = IsThere() ? voltaris_takeCollectionResult(get()) : nullptr;
    if (result == nullptr) {
      return detail::MakeError(Cause::kUsed, {"the results of this collection were taken before"});
    }
    return Results(std::move(query_), result, outcome(), error_number(), counters());
  }

  // get is the collection for calls of the C interface; null in one that was moved from.
  ReplyCollection* get() const { return collection_.get(); }

 private:
  friend class Session;
  friend class Fleet;

  struct Release {
    void operator()(ReplyCollection* collection) const { voltaris_releaseCollection(collection); }
  };

  Collection(Query query, ReplyCollection* collection)
      : query_(std::move(query)), collection_(collection) {}

  bool IsThere() const { return collection_ != nullptr; }

  Query query_;  // first: the result reads it while it is released
  std::unique_ptr<ReplyCollection, Release> collection_;
};

}  // namespace voltaris

#endif  // VTAPI_FACE_COLLECTION_HPP
