// What the fleet answers to a query: which devices it concerns, what they tell, and what they
// change.
#ifndef VT_NODE_RESPONDER_H_
#define VT_NODE_RESPONDER_H_

#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "node/fleet.h"
#include "node/received_query.h"
#include "node/reply_packer.h"

namespace vt::node {

class Responder {
 public:
  Responder(Fleet fleet, std::optional<voltaris::Key> key);

  // Answer returns the messages that answer one message, or throws Rejected. It may be called by
  // several threads; they take turns, so that a set is seen whole or not at all.
  std::vector<Bytes> Answer(std::span<const std::uint8_t> message);

 private:
  const sockaddr_in& AddressOf(const Device& device) const;
  void Collect(const ReceivedQuery& query, ReplyPacker& replies) const;
  void Set(const ReceivedQuery& query, ReplyPacker& replies);
  void Sum(const ReceivedQuery& query, ReplyPacker& replies) const;

  std::mutex mutex_;
  Fleet fleet_;
  std::optional<voltaris::Key> key_;
};

}  // namespace vt::node

#endif  // VT_NODE_RESPONDER_H_
