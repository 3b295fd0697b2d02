// The queries of the last while, so that one that was recorded on the network cannot be sent again
// by somebody who does not have the key.
//
// What makes a query the same is its digest: it covers everything that counts, the number and the
// sender among it, so that whoever cannot sign can only send exactly what was sent. The number and
// the sender alone would tell less: numbers begin at 0 with each session, and a client that keeps
// its identity would find its next session refused.
#ifndef VT_NODE_REPLAY_WINDOW_H_
#define VT_NODE_REPLAY_WINDOW_H_

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <set>

#include "vtapi.h"

namespace vt::node {

class ReplayWindow {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Digest = std::array<std::uint8_t, VT_DIGEST_SIZE>;

  // ReplayWindow remembers queries for that long, and no more than so many: then the oldest go
  // first. It takes about 120 bytes for each.
  explicit ReplayWindow(std::chrono::seconds length, std::size_t capacity = 65536)
      : length_(length), capacity_(capacity) {}

  // Resize lets queries be remembered that long from now on, those of before included.
  void Resize(std::chrono::seconds length) { length_ = length; }

  // Admit remembers a query that came at that time, and tells whether it is new. A repetition does
  // not make it be remembered longer. Times must not go back.
  bool Admit(const Digest& digest, Time now);

  std::size_t size() const { return order_.size(); }

 private:
  struct Seen {
    Time at;
    std::set<Digest>::iterator digest;
  };

  void Forget();

  std::chrono::seconds length_;
  std::size_t capacity_;
  // A tree, not a hash table: without a key, digests are what their senders choose.
  std::set<Digest> digests_;
  std::deque<Seen> order_;  // oldest first
};

}  // namespace vt::node

#endif  // VT_NODE_REPLAY_WINDOW_H_
