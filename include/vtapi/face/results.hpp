// How a collection ended, and what came of it: rows and acknowledgements.
#ifndef VTAPI_FACE_RESULTS_HPP
#define VTAPI_FACE_RESULTS_HPP

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "vtapi/collection.h"
#include "vtapi/face/error.hpp"
#include "vtapi/face/query.hpp"
#include "vtapi/face/row.hpp"
#include "vtapi/result.h"

namespace voltaris {

// Outcome is how a collection stands, or how it ended; enum vt_collection_outcome says more.
enum class Outcome : std::int32_t {
  kPending = VT_COLLECTION_PENDING,
  kComplete = VT_COLLECTION_COMPLETE,
  kRefused = VT_COLLECTION_REFUSED,
  kUnreachable = VT_COLLECTION_UNREACHABLE,
  kConnectTimeout = VT_COLLECTION_CONNECT_TIMEOUT,
  kSendError = VT_COLLECTION_SEND_ERROR,
  kIdle = VT_COLLECTION_IDLE,
  kDeadline = VT_COLLECTION_DEADLINE,
  kReadError = VT_COLLECTION_READ_ERROR,
  kOverSize = VT_COLLECTION_OVER_SIZE,
  kCancelled = VT_COLLECTION_CANCELLED
};

// text_of gives an outcome in words, such as "connection refused"; "" for a number without words.
inline std::string_view text_of(Outcome outcome) {
  const char* words = voltaris_nameOutcome(static_cast<std::int32_t>(outcome));
  return words != nullptr ? std::string_view(words) : std::string_view();
}

// Results is what a collection brought, which may be a part only: outcome() tells. It owns what its
// rows borrow, so it has to outlive them; sessions and collections need not. Any number of threads
// may read it. One that was moved from is empty.
class Results {
 public:
  Results(Results&& other) noexcept
      : query_(std::move(other.query_)),
        result_(std::move(other.result_)),
        outcome_(other.outcome_),
        number_(other.number_),
        counters_(other.counters_) {}
  Results& operator=(Results&& other) noexcept {
    // The result goes before the query, which it reads while it is released.
    result_ = std::move(other.result_);
    query_ = std::move(other.query_);
    outcome_ = other.outcome_;
    number_ = other.number_;
    counters_ = other.counters_;
    return *this;
  }
  Results(const Results&) = delete;
  Results& operator=(const Results&) = delete;
  ~Results() = default;

  Outcome outcome() const { return outcome_; }
  bool complete() const { return outcome_ == Outcome::kComplete && error_code() == 0; }
  // error_number is the errno that led to the outcome, or 0.
  int error_number() const { return number_; }
  // error_code is that of the C interface: 0, VT_ERROR_TIMEOUT, VT_ERROR_NO_MEMORY or an errno.
  int error_code() const { return result_ != nullptr ? voltaris_getErrorCode(result_.get()) : 0; }
  // failure says why the answer is not complete; nothing when it is.
  std::optional<Error> failure() const {
    if (complete()) return std::nullopt;
    if (outcome_ == Outcome::kComplete) {
      return detail::MakeError(Cause::kNoMemory, {"out of memory for a part of the answer"},
                               ENOMEM);
    }
    std::string text(text_of(outcome_));
    if (NeedsNumber()) text = detail::Join({text, ": ", std::strerror(number_)});
    return detail::MakeError(Cause::kIncomplete, {text}, number_);
  }

  const CollectionCounters& counters() const { return counters_; }

  // rows is a range of Row. It borrows from this object, which therefore must have a name.
  Rows rows() const& { return Rows(result_.get()); }
  void rows() const&& = delete;
  std::size_t row_count() const {
    return result_ != nullptr ? static_cast<std::size_t>(voltaris_getRowCount(result_.get())) : 0;
  }

  // accepted and refused are the entities that will and that will not do what the query says,
  // sorted by their bytes. EntityId can be made of an entry.
  std::span<const AckEntry> accepted() const& {
    if (result_ == nullptr) return {};
    return Entries(voltaris_getAcks(result_.get()), voltaris_getAckCount(result_.get()));
  }
  void accepted() const&& = delete;
  std::span<const AckEntry> refused() const& {
    if (result_ == nullptr) return {};
    return Entries(voltaris_getNaks(result_.get()), voltaris_getNakCount(result_.get()));
  }
  void refused() const&& = delete;

  // get is the result for calls of the C interface; null in one that was moved from.
  const ResultSet* get() const { return result_.get(); }

 private:
  friend class Collection;

  struct Release {
    void operator()(ResultSet* result) const { voltaris_releaseResult(result); }
  };

  Results(Query query, ResultSet* result, Outcome outcome, int number,
          const CollectionCounters& counters)
      : query_(std::move(query)),
        result_(result),
        outcome_(outcome),
        number_(number),
        counters_(counters) {}

  // NeedsNumber tells the outcomes that say little without their errno.
  bool NeedsNumber() const {
    return number_ != 0 && (outcome_ == Outcome::kUnreachable || outcome_ == Outcome::kSendError ||
                            outcome_ == Outcome::kReadError);
  }

  static std::span<const AckEntry> Entries(const AckEntry* entries, std::int32_t count) {
    if (entries == nullptr) return {};
    return {entries, static_cast<std::size_t>(count)};
  }

  Query query_;  // first: the result reads it while it is released
  std::unique_ptr<ResultSet, Release> result_;
  Outcome outcome_;
  int number_;
  CollectionCounters counters_;
};

}  // namespace voltaris

#endif  // VTAPI_FACE_RESULTS_HPP
