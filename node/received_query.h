// A query as it came from the network: its digest is checked before anything in it is decoded, and
// it is decoded before anything in it is believed.
#ifndef VT_NODE_RECEIVED_QUERY_H_
#define VT_NODE_RECEIVED_QUERY_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "vtapi.hpp"

#include "node/rejection.h"

namespace vt::node {

// Rejected says why a message is dropped without an answer.
class Rejected : public std::runtime_error {
 public:
  explicit Rejected(const std::string& reason, Rejection rejection = Rejection::kMalformed)
      : std::runtime_error(reason), rejection_(rejection) {}

  Rejection rejection() const { return rejection_; }

 private:
  Rejection rejection_;
};

class ReceivedQuery {
 public:
  // ReceivedQuery checks and decodes one message. Without a key, the key is the identity of the
  // sender, as it is for a client without one. Throws Rejected.
  ReceivedQuery(std::span<const std::uint8_t> message, const std::optional<voltaris::Key>& key);

  // event is for the filters, which do not take a constant one.
  Event* event() const { return event_.get(); }
  const message_header& header() const { return *event_->pak; }

  // digest is the one that the message came with, which matches.
  const std::array<std::uint8_t, VT_DIGEST_SIZE>& digest() const { return digest_; }

  // key is what the message was signed with, and what the answer is to be signed with.
  const hmac_context& key() const { return key_; }

  // domain is the one that the query is for, empty when it names none.
  const std::string& domain() const { return domain_; }

  // timeout is how long the client waits for the answer, 1 to 180 seconds.
  std::chrono::seconds timeout() const;

  // attributes are the elements to read or to set, in their order: neither the qualifiers nor what
  // describes the query itself. A domain among them asks for the domain of the device.
  const std::vector<const Tlv*>& attributes() const { return attributes_; }

 private:
  struct ReleaseEvent {
    void operator()(Event* event) const { cv_cleanup_event(event); }
  };

  void ReadElements();

  hmac_context key_{};
  std::array<std::uint8_t, VT_DIGEST_SIZE> digest_{};
  std::unique_ptr<Event, ReleaseEvent> event_;
  std::string domain_;
  std::vector<const Tlv*> attributes_;
};

}  // namespace vt::node

#endif  // VT_NODE_RECEIVED_QUERY_H_
