// What faults make of messages: the bytes that go out instead of the right ones.
#ifndef VT_NODE_SPOIL_H_
#define VT_NODE_SPOIL_H_

#include <vector>

#include "vtapi.h"

#include "node/delivery.h"
#include "node/fault.h"
#include "node/reply_packer.h"

namespace vt::node {

// SpoilsMessages tells whether a fault of a device shows in the messages that tell of it, which are
// then its own.
bool SpoilsMessages(FaultKind kind);

// Spoil changes the messages that tell of devices with such a fault. Where the digest is not the
// fault it is right, made with key.
void Spoil(const Fault& fault, const hmac_context& key, std::vector<Bytes>& messages);

// SpoilDelivery changes an answer and how it goes out, as a fault of the connection says.
void SpoilDelivery(const Fault& fault, const hmac_context& key, Delivery& delivery);

}  // namespace vt::node

#endif  // VT_NODE_SPOIL_H_
