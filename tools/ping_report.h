// Round trips as text: a line each and statistics, or one document.
#ifndef VT_TOOLS_PING_REPORT_H_
#define VT_TOOLS_PING_REPORT_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/ping_probe.h"
#include "tools/ping_statistics.h"
#include "tools/target.h"
#include "tools/verdict.h"

namespace vt::tools {

// PingedNode is a node with what came of its round trips.
struct PingedNode {
  const Target* target = nullptr;
  // How long the look-up of its name took; nothing where an address was given.
  PingTimes::Time name_time;
  PingStatistics statistics;
  Verdict last;                     // how the last round trip ended
  std::vector<PingResult> results;  // kept where a document is wanted
};

// StatusOf is how a node was asked in all: kOk, kPartial when some were lost, else as the last one.
Status StatusOf(const PingedNode& node);

// PingLine is the line on the round trip of that number, counted from 1.
std::string PingLine(const PingedNode& node, std::size_t number, const PingResult& result);

// StatisticsText is a line for each node.
std::string StatisticsText(const std::vector<PingedNode>& nodes);

// PingJson is the document that docs/schema/voltaris-ping-1.json describes.
std::string PingJson(const std::vector<PingedNode>& nodes, int exit_code, int signal);

}  // namespace vt::tools

#endif  // VT_TOOLS_PING_REPORT_H_
