// What the node has to do with the network, counted, and the last of it in detail: fed by the
// server and by what answers, shown by the metrics and by the page.
#ifndef VT_NODE_TRAFFIC_H_
#define VT_NODE_TRAFFIC_H_

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>

#include "node/query_kind.h"
#include "node/rejection.h"

namespace vt::node {

// QueryNote is what is worth telling of a query that was answered.
struct QueryNote {
  QueryKind kind = QueryKind::kCollect;
  std::string domain;
  std::string changes;         // of a set: what it asked for
  std::uint32_t accepted = 0;  // acknowledgements of entities, or of whole devices
  std::uint32_t refused = 0;
};

using WallTime = std::chrono::system_clock::time_point;

struct AnsweredQuery {
  WallTime at;
  std::string client;  // HOST:PORT
  QueryNote note;
  std::size_t messages = 0;
  std::chrono::nanoseconds duration{};  // without the time that it waited for its turn
};

struct BadPeer {
  WallTime at;
  std::string client;
  Rejection rejection = Rejection::kMalformed;
  std::string reason;  // in words
};

// kAnswerTimeBounds are the upper bounds of the buckets of answer times, in seconds; one more
// bucket holds what is above.
inline constexpr std::array<double, 11> kAnswerTimeBounds = {
    0.0001, 0.0003, 0.001, 0.003, 0.01, 0.03, 0.1, 0.3, 1, 3, 10};

struct TrafficCounts {
  std::uint64_t accepted = 0;  // connections
  std::uint64_t accept_failures = 0;
  std::uint64_t open = 0;
  std::array<std::uint64_t, kQueryKindNames.size()> queries{};
  std::array<std::uint64_t, kRejectionNames.size()> rejections{};
  std::uint64_t messages_sent = 0;
  std::uint64_t bytes_sent = 0;
  std::uint64_t unsent = 0;  // bytes of answers on their way
  std::uint64_t reloads = 0;
  std::uint64_t failed_reloads = 0;
  std::array<std::uint64_t, kAnswerTimeBounds.size() + 1> answer_times{};
  std::chrono::nanoseconds answer_time_sum{};
};

// Traffic may be used by several threads.
class Traffic {
 public:
  // kKept is how many queries, and how many bad peers, are kept in detail.
  static constexpr std::size_t kKept = 50;

  // A connection was accepted, could not be, or was closed.
  void Opened();
  void AcceptFailed();
  void Closed();

  // A query was answered; a message or a connection was dropped, for that reason.
  void Answered(AnsweredQuery query);
  void Rejected(const std::string& client, Rejection rejection, const std::string& reason);

  // A client took an answer whole; so many bytes of answers are on their way now.
  void Sent(std::size_t messages, std::size_t bytes);
  void Unsent(std::size_t bytes);

  void Reloaded(bool ok);

  TrafficCounts counts() const;
  // These are the last ones, newest first.
  std::deque<AnsweredQuery> queries() const;
  std::deque<BadPeer> bad_peers() const;

 private:
  mutable std::mutex mutex_;
  TrafficCounts counts_;
  std::deque<AnsweredQuery> queries_;
  std::deque<BadPeer> bad_peers_;
};

}  // namespace vt::node

#endif  // VT_NODE_TRAFFIC_H_
