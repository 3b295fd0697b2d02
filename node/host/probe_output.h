// What a probe has found as text: a table for people, JSON for programs.
#ifndef VT_NODE_HOST_PROBE_OUTPUT_H_
#define VT_NODE_HOST_PROBE_OUTPUT_H_

#include <cstdint>
#include <iosfwd>
#include <string>

#include "node/host/host_sensors.h"

namespace vt::node {

void PrintProbeTable(std::ostream& out, const ProbeReport& report);
void PrintProbeJson(std::ostream& out, const ProbeReport& report);

// WattsOf is milliwatts, not negative, as an exact decimal number of watts: 12.5, or 12.
std::string WattsOf(std::int64_t milliwatts);

}  // namespace vt::node

#endif  // VT_NODE_HOST_PROBE_OUTPUT_H_
