// A report as Prometheus text, for a file that a node exporter collects, or a push gateway.
#ifndef VT_TOOLS_PROMETHEUS_H_
#define VT_TOOLS_PROMETHEUS_H_

#include <string>

#include "tools/report.h"

namespace vt::tools {

// PrometheusText has the status of each node, and of each row a gauge for every number and one of
// value 1 whose labels are its texts. Power is told in watts, as the raw number, and with its
// units.
std::string PrometheusText(const Report& report);

}  // namespace vt::tools

#endif  // VT_TOOLS_PROMETHEUS_H_
