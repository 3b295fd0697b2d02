// The table [host] of the configuration.
#ifndef VT_NODE_HOST_HOST_SECTION_H_
#define VT_NODE_HOST_HOST_SECTION_H_

#include "node/config_section.h"
#include "node/fleet.h"
#include "node/host/host_device.h"

namespace vt::node {

// ReadHost throws FleetError.
HostDescription ReadHost(const Section& section, const NodeDescription& node);

}  // namespace vt::node

#endif  // VT_NODE_HOST_HOST_SECTION_H_
