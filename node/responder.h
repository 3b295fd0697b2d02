// What the fleet answers to a query: which devices it concerns, what they tell, and what they
// change.
#ifndef VT_NODE_RESPONDER_H_
#define VT_NODE_RESPONDER_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "node/fleet.h"
#include "node/received_query.h"
#include "node/reply_packer.h"
#include "node/state_keeper.h"

namespace vt::node {

// Clocks are what a responder takes time from; tests have their own.
struct Clocks {
  using Steady = std::chrono::steady_clock::time_point;

  std::function<Instant()> wall;   // what profiles and noise go by
  std::function<Steady()> steady;  // what the time-outs of queries go by

  static Clocks System();
};

class Responder {
 public:
  Responder(Fleet fleet, std::optional<voltaris::Key> key, StateKeeper state = StateKeeper({}),
            Clocks clocks = Clocks::System());

  // Answer returns the messages that answer one message, or throws Rejected. It may be called by
  // several threads; they take turns, so that a set is seen whole or not at all.
  //
  // What a set has changed is in the state file before the answer says so; when it cannot be
  // written the set is undone and refused. Beyond the time-out of the query, counted from the call,
  // nothing more is answered, and nothing is set.
  std::vector<Bytes> Answer(std::span<const std::uint8_t> message);

 private:
  class Selection;

  DeviceHeader HeaderOf(std::uint32_t entity) const;
  void Collect(const ReceivedQuery& query, Selection& selection, ReplyPacker& replies) const;
  void Set(const ReceivedQuery& query, Selection& selection, ReplyPacker& replies);
  bool Change(const std::vector<std::uint32_t>& entities, const Changes& changes);
  void Sum(const ReceivedQuery& query, Selection& selection, ReplyPacker& replies) const;

  std::mutex mutex_;
  Fleet fleet_;
  std::optional<voltaris::Key> key_;
  StateKeeper state_;
  Clocks clocks_;
};

}  // namespace vt::node

#endif  // VT_NODE_RESPONDER_H_
