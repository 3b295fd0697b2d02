// What the page shows, as JSON. Texts from the network that are no UTF-8 have it replaced.
#ifndef VT_NODE_STATUS_H_
#define VT_NODE_STATUS_H_

#include <deque>
#include <map>
#include <string>

#include "node/fleet_survey.h"
#include "node/metrics.h"
#include "node/power_history.h"
#include "node/traffic.h"

namespace vt::node {

struct NodeStatus {
  NodeFigures figures;
  std::string address;  // where the node listens, HOST:PORT
  WallTime now{};
  std::deque<PowerHistory::Point> history;  // of consumers
  std::deque<AnsweredQuery> queries;        // newest first
  std::deque<BadPeer> bad_peers;
  PageRequest request;
  EntityPage page;
};

// ReadPageRequest reads the fields from, count, find and sort of a request; others it ignores. It
// throws HttpError for what they may not be.
PageRequest ReadPageRequest(const std::map<std::string, std::string>& fields);

std::string WriteStatus(const NodeStatus& status);

}  // namespace vt::node

#endif  // VT_NODE_STATUS_H_
