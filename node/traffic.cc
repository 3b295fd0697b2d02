#include "node/traffic.h"

#include <algorithm>
#include <utility>

namespace vt::node {
namespace {

// A reason may hold text from the network, and a page shows a line of it.
constexpr std::size_t kLongestReason = 200;

std::size_t BucketOf(std::chrono::nanoseconds duration) {
  const double seconds = std::chrono::duration<double>(duration).count();
  const auto bound = std::ranges::lower_bound(kAnswerTimeBounds, seconds);
  return static_cast<std::size_t>(bound - kAnswerTimeBounds.begin());
}

template <class T>
void PushFront(std::deque<T>& list, T value) {
  list.push_front(std::move(value));
  if (list.size() > Traffic::kKept) list.pop_back();
}

}  // namespace

void Traffic::Opened() {
  const std::lock_guard lock(mutex_);
  ++counts_.accepted;
  ++counts_.open;
}

void Traffic::AcceptFailed() {
  const std::lock_guard lock(mutex_);
  ++counts_.accept_failures;
}

void Traffic::Closed() {
  const std::lock_guard lock(mutex_);
  --counts_.open;
}

void Traffic::Answered(AnsweredQuery query) {
  const std::lock_guard lock(mutex_);
  ++counts_.queries[static_cast<std::size_t>(query.note.kind)];
  ++counts_.answer_times[BucketOf(query.duration)];
  counts_.answer_time_sum += query.duration;
  PushFront(queries_, std::move(query));
}

void Traffic::Rejected(const std::string& client, Rejection rejection, const std::string& reason) {
  const std::lock_guard lock(mutex_);
  ++counts_.rejections[static_cast<std::size_t>(rejection)];
  PushFront(bad_peers_, {std::chrono::system_clock::now(), client, rejection,
                         reason.substr(0, kLongestReason)});
}

void Traffic::Sent(std::size_t messages, std::size_t bytes) {
  const std::lock_guard lock(mutex_);
  counts_.messages_sent += messages;
  counts_.bytes_sent += bytes;
}

void Traffic::Unsent(std::size_t bytes) {
  const std::lock_guard lock(mutex_);
  counts_.unsent = bytes;
}

void Traffic::Reloaded(bool ok) {
  const std::lock_guard lock(mutex_);
  ++(ok ? counts_.reloads : counts_.failed_reloads);
}

TrafficCounts Traffic::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
}

std::deque<AnsweredQuery> Traffic::queries() const {
  const std::lock_guard lock(mutex_);
  return queries_;
}

std::deque<BadPeer> Traffic::bad_peers() const {
  const std::lock_guard lock(mutex_);
  return bad_peers_;
}

}  // namespace vt::node
