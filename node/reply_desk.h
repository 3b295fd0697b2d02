// The packers of one answer: one for the devices that are well, and one for each fault that shows
// in messages, so that the messages of one device can be spoiled and those of others stay right.
#ifndef VT_NODE_REPLY_DESK_H_
#define VT_NODE_REPLY_DESK_H_

#include <map>
#include <string>
#include <vector>

#include "node/fault.h"
#include "node/received_query.h"
#include "node/reply_packer.h"

namespace vt::node {

class ReplyDesk {
 public:
  // query must outlive the desk, and so must the faults that are given to For. sender is the
  // identity of the node.
  ReplyDesk(const ReceivedQuery& query, const std::string& sender);

  // For is the packer for what a device says that has this fault, or none. It stays where it is.
  ReplyPacker& For(const Fault* fault);

  // accepted and refused are how many acknowledgements of each kind there are.
  std::uint32_t accepted() const;
  std::uint32_t refused() const;

  // Finish returns all messages: the right ones, then those of the faults in their order. The desk
  // is used up.
  std::vector<Bytes> Finish();

 private:
  const ReceivedQuery& query_;
  const std::string& sender_;
  ReplyPacker well_;
  std::map<const Fault*, ReplyPacker> spoiled_;
};

}  // namespace vt::node

#endif  // VT_NODE_REPLY_DESK_H_
