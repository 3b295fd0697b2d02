// The faults of a configuration, [[fault]].
#ifndef VT_NODE_FAULT_FILE_H_
#define VT_NODE_FAULT_FILE_H_

#include <vector>

#include "node/config_section.h"
#include "node/fault.h"
#include "node/fleet.h"

namespace vt::node {

// ReadFaults reads them in their order, those that are not enabled included. It throws FleetError.
// Where the fleet is whole, so that what it does not have is nowhere, it rejects identities and
// domains that are not there.
std::vector<Fault> ReadFaults(const Section& top, const Fleet& fleet, bool is_whole);

}  // namespace vt::node

#endif  // VT_NODE_FAULT_FILE_H_
