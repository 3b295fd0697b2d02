// What the fleet answers to a query: which devices it concerns, what they tell, and what they
// change.
#ifndef VT_NODE_RESPONDER_H_
#define VT_NODE_RESPONDER_H_

#include <asio/ip/address_v4.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "node/delivery.h"
#include "node/fault.h"
#include "node/fleet.h"
#include "node/host/host_device.h"
#include "node/received_query.h"
#include "node/replay_window.h"
#include "node/reply_desk.h"
#include "node/state_keeper.h"
#include "node/traffic.h"

namespace vt::node {

// Clocks are what a responder takes time from; tests have their own.
struct Clocks {
  using Steady = std::chrono::steady_clock::time_point;

  std::function<Instant()> wall;   // what profiles and noise go by
  std::function<Steady()> steady;  // what the time-outs of queries go by

  static Clocks System();
};

// HostControl is what the responder has of this host, besides its entities in the fleet: the levels
// that it can be set to, with what is then to be done.
struct HostControl {
  HostEntities entities;
  std::vector<Action> actions;

  const Action* ActionFor(std::uint8_t level) const;  // or null
};

class Responder {
 public:
  Responder(Fleet fleet, std::optional<voltaris::Key> key, StateKeeper state = StateKeeper({}),
            HostControl host = {}, Clocks clocks = Clocks::System(), Faults faults = {});

  // Answer returns what answers one message of a client, or throws Rejected. It may be called by
  // several threads; they take turns, so that a set is seen whole or not at all.
  //
  // What a set has changed is in the state file before the answer says so; when it cannot be
  // written the set is undone and refused. So it is when it sets this host to a level whose action
  // fails; a level of the host without an action is refused by the host alone. Beyond the time-out
  // of the query, counted from the call, nothing more is answered, and nothing is set. note, if
  // there is one, is told what was answered.
  //
  // Faults that strike are part of the answer. A device that refuses for one, puts off or is silent
  // is not set, and not in a sum; one whose messages are spoiled is.
  Delivery Answer(std::span<const std::uint8_t> message,
                  const asio::ip::address_v4& client = asio::ip::address_v4::loopback(),
                  QueryNote* note = nullptr);

  // DropReplays has queries dropped that the window has seen, which outlives the responder. It is
  // called before the first answer, if at all.
  void DropReplays(std::shared_ptr<ReplayWindow> window) { window_ = std::move(window); }

  // Look shows the fleet as it is now. It takes its turn among the answers.
  void Look(const std::function<void(const Fleet&, Instant)>& look);

  // Measured puts readings of the sensors of this host into the fleet, in the order of its
  // entities.
  void Measured(std::span<const Reading> readings);

 private:
  class Selection;

  DeviceHeader HeaderOf(std::uint32_t entity) const;
  void Collect(const ReceivedQuery& query, Selection& selection, Strikes& strikes,
               ReplyDesk& desk) const;
  void Set(const ReceivedQuery& query, Selection& selection, Strikes& strikes, ReplyDesk& desk);
  bool IsSettable(std::uint32_t entity, const Changes& changes) const;
  bool Change(const std::vector<std::uint32_t>& entities, const Changes& changes);
  bool ActOnHost(const std::vector<std::uint32_t>& entities, const Changes& changes) const;
  void Sum(const ReceivedQuery& query, Selection& selection, Strikes& strikes,
           ReplyDesk& desk) const;

  std::mutex mutex_;
  Fleet fleet_;
  std::optional<voltaris::Key> key_;
  StateKeeper state_;
  HostControl host_;
  Clocks clocks_;
  Faults faults_;
  std::shared_ptr<ReplayWindow> window_;  // or null
};

}  // namespace vt::node

#endif  // VT_NODE_RESPONDER_H_
