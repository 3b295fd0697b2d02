// The node's own figures as text that Prometheus reads (version 0.0.4 of its format).
#ifndef VT_NODE_METRICS_H_
#define VT_NODE_METRICS_H_

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "node/fleet_survey.h"
#include "node/traffic.h"

namespace vt::node {

// MetricsText puts the format together, one family after the other.
class MetricsText {
 public:
  using Labels = std::initializer_list<std::pair<std::string_view, std::string_view>>;

  // Family begins a family: "counter", "gauge" or "histogram". The name gets the node's prefix.
  void Family(std::string_view name, std::string_view type, std::string_view help);
  // Sample adds a value to the family.
  void Sample(double value, Labels labels = {}, std::string_view suffix = "");

  const std::string& text() const { return text_; }

 private:
  std::string family_;
  std::string text_;
};

// NodeFigures is all that the metrics tell.
struct NodeFigures {
  std::string version;
  WallTime started{};
  TrafficCounts traffic;
  std::uint64_t log_lines_left_out = 0;
  FleetTotals fleet;
};

// kMetricsType is the content type of the text.
inline constexpr std::string_view kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

std::string WriteMetrics(const NodeFigures& figures);

}  // namespace vt::node

#endif  // VT_NODE_METRICS_H_
