// The fleet of a recording: devices that answer as the recorded ones did.
#ifndef VT_NODE_REPLAY_H_
#define VT_NODE_REPLAY_H_

#include <string>

#include "node/fleet.h"

namespace vt::node {

// LoadReplay makes a fleet of exactly the entities of a recording, each with what it told and
// nothing else. It throws FleetError for a file that is no recording, or holds what a node cannot
// tell: values that do not fit into a message, or are in units of their own each.
Fleet LoadReplay(const std::string& path);

}  // namespace vt::node

#endif  // VT_NODE_REPLAY_H_
