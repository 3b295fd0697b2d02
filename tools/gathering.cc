#include "tools/gathering.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <deque>
#include <optional>
#include <unordered_map>
#include <utility>

#include "tools/exit_code.h"
#include "tools/stop_signals.h"

namespace vt::tools {
namespace {

using std::chrono::milliseconds;

// How long after a deadline collections may take to end by it themselves, which tells more than
// that they were cancelled.
constexpr milliseconds kGrace{100};

constexpr milliseconds kFirstPause{100};  // before a second attempt; it doubles with each
constexpr milliseconds kLongestPause{2000};
constexpr milliseconds kProgressEvery{100};

// Try is a node that waits to be asked, for the first time or again.
struct Try {
  std::size_t node;
  unsigned attempt;  // from 1
  Clock::time_point not_before;
};

// What came is never thrown away for another attempt, and neither a forged answer nor one that
// cannot be decoded is what an attempt can mend.
bool IsWorthRetrying(const voltaris::Results& results) {
  if (results.counters().accepted > 0 || results.counters().forged > 0) return false;
  switch (results.outcome()) {
    case voltaris::Outcome::kRefused:
    case voltaris::Outcome::kUnreachable:
    case voltaris::Outcome::kConnectTimeout:
    case voltaris::Outcome::kSendError:
    case voltaris::Outcome::kIdle:
    case voltaris::Outcome::kReadError:
      return true;
    default:
      return false;
  }
}

milliseconds PauseBefore(unsigned attempt) {
  milliseconds pause = kFirstPause;
  for (unsigned i = 2; i < attempt && pause < kLongestPause; ++i) pause *= 2;
  return std::min(pause, kLongestPause);
}

voltaris::Fleet NewFleet(std::uint32_t fanout) {
  voltaris::Expected<voltaris::Fleet> fleet = voltaris::Fleet::create(fanout);
  if (!fleet) throw Failure(kExitInternal, fleet.error().text);
  return *std::move(fleet);
}

class Gathering {
 public:
  Gathering(std::vector<std::optional<voltaris::Session>>& sessions,
            const std::vector<std::size_t>& nodes, const GatherLimits& limits,
            const GatherCalls& calls)
      : sessions_(sessions),
        limits_(limits),
        calls_(calls),
        fleet_(NewFleet(limits.fanout)),
        attempts_(sessions.size(), 0) {
    for (const std::size_t node : nodes) tries_.push_back({node, 1, {}});
  }

  void Run() {
    while (!tries_.empty() || running_ > 0) {
      EndIfOver();
      StartTries();
      (void)fleet_.step();
      const bool was_told = TakeEnded();
      TellProgress();
      if (!was_told && (running_ > 0 || !tries_.empty())) Wait();
    }
  }

 private:
  // What waits for its first turn is told as not asked; all else ends with what it has.
  void EndIfOver() {
    const bool is_over = Clock::now() > limits_.deadline + kGrace;
    if (!is_over && StopSignal() == 0) return;
    (void)fleet_.cancel();
    DropTries();
  }

  void DropTries() {
    for (const Try& waiting : tries_) {
      ++done_;
      const auto earlier = earlier_.find(waiting.node);
      calls_.ended(waiting.node, waiting.attempt - 1,
                   earlier == earlier_.end() ? nullptr : &earlier->second);
    }
    tries_.clear();
    earlier_.clear();
  }

  void StartTries() {
    const Clock::time_point now = Clock::now();
    // A node that has its turn now is asked, if only for the grace; none begins after the deadline.
    if (now >= limits_.deadline) {
      DropTries();
      return;
    }
    while (!tries_.empty() && running_ < limits_.fanout && tries_.front().not_before <= now) {
      Start(tries_.front(), now);
      tries_.pop_front();
    }
  }

  void Start(const Try& next, Clock::time_point now) {
    const auto left = std::chrono::ceil<milliseconds>(limits_.deadline - now);
    // Where all is over while a node is still being connected, that is what its outcome says.
    const voltaris::Deadlines deadlines{.connect = std::min(limits_.connect, left),
                                        .idle = limits_.idle,
                                        .total = left + kGrace / 2};
    const voltaris::Expected<void> added =
        fleet_.add(*sessions_[next.node], calls_.query(next.node), next.node, deadlines);
    if (!added) {
      const bool lacks_memory = added.error().cause == voltaris::Cause::kNoMemory;
      throw Failure(lacks_memory ? kExitInternal : kExitUsage, added.error().text);
    }
    attempts_[next.node] = next.attempt;
    earlier_.erase(next.node);
    ++running_;
  }

  // TakeEnded tells whether any had ended.
  bool TakeEnded() {
    bool was_told = false;
    while (std::optional<voltaris::Fleet::Ended> ended = fleet_.take_ended()) {
      was_told = true;
      --running_;
      const auto node = static_cast<std::size_t>(ended->tag);
      voltaris::Expected<voltaris::Results> results = ended->collection.take_results();
      if (!results) throw Failure(kExitInternal, results.error().text);
      const unsigned attempt = attempts_[node] + 1;
      const Clock::time_point again = Clock::now() + PauseBefore(attempt);
      const bool has_another = attempts_[node] <= limits_.retries && again < limits_.deadline;
      if (has_another && IsWorthRetrying(*results)) {
        earlier_.insert_or_assign(node, *std::move(results));
        InsertTry({node, attempt, again});
      } else {
        ++done_;
        calls_.ended(node, attempts_[node], &*results);
      }
    }
    return was_told;
  }

  // First attempts come before all others, which are in the order of their times.
  void InsertTry(const Try& again) {
    const auto at = std::ranges::upper_bound(tries_, again.not_before, {}, &Try::not_before);
    tries_.insert(at, again);
  }

  void TellProgress() {
    const Clock::time_point now = Clock::now();
    if (!calls_.progress || now < next_progress_) return;
    next_progress_ = now + kProgressEvery;
    calls_.progress({tries_.size(), running_, done_});
  }

  void Wait() {
    std::array<pollfd, 2> watched = {pollfd{fleet_.descriptor(), POLLIN, 0},
                                     pollfd{StopDescriptor(), POLLIN, 0}};
    (void)poll(watched.data(), watched.size(), static_cast<int>(TimeToWait().count()));
  }

  milliseconds TimeToWait() const {
    const Clock::time_point now = Clock::now();
    const auto until = [now](Clock::time_point moment) {
      return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(moment - now));
    };
    milliseconds time = std::min(until(limits_.deadline + kGrace) + milliseconds(1),
                                 milliseconds(std::chrono::hours(1)));
    if (const auto fleet = fleet_.timeout()) time = std::min(time, *fleet);
    const bool has_room = running_ < limits_.fanout;
    if (!tries_.empty() && has_room) time = std::min(time, until(tries_.front().not_before));
    if (calls_.progress) time = std::min(time, kProgressEvery);
    return time;
  }

  std::vector<std::optional<voltaris::Session>>& sessions_;
  const GatherLimits& limits_;
  const GatherCalls& calls_;
  voltaris::Fleet fleet_;
  std::deque<Try> tries_;
  std::vector<unsigned> attempts_;  // of each node, the one that runs included
  // What the last attempt told of nodes that wait for another: the truth, should that never come.
  std::unordered_map<std::size_t, voltaris::Results> earlier_;
  std::size_t running_ = 0;
  std::size_t done_ = 0;
  Clock::time_point next_progress_{};
};

}  // namespace

void Gather(std::vector<std::optional<voltaris::Session>>& sessions,
            const std::vector<std::size_t>& nodes, const GatherLimits& limits,
            const GatherCalls& calls) {
  Gathering(sessions, nodes, limits, calls).Run();
}

}  // namespace vt::tools
