// How an answer goes out: what the server sends on a connection, and at which pace.
#ifndef VT_NODE_DELIVERY_H_
#define VT_NODE_DELIVERY_H_

#include <chrono>
#include <cstddef>
#include <vector>

#include "node/reply_packer.h"

namespace vt::node {

// Delivery is sent in the order of its messages; then the connection ends. However slow it is, it
// lasts no longer than the server lets a connection last.
struct Delivery {
  std::vector<Bytes> messages;
  std::chrono::milliseconds delay{0};  // before the first byte
  std::size_t step = 0;                // bytes at a time; 0 is all at once
  std::chrono::milliseconds pause{0};  // between one step and the next
  bool reset = false;                  // the end is a reset, and not the end of the stream
};

}  // namespace vt::node

#endif  // VT_NODE_DELIVERY_H_
