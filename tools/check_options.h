// What the check command judges, and where it draws the lines.
#ifndef VT_TOOLS_CHECK_OPTIONS_H_
#define VT_TOOLS_CHECK_OPTIONS_H_

#include <array>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tools/alert_range.h"

namespace vt::tools {

// CheckState is what a monitoring system is told, with the exit codes that it knows. Of several
// critical counts, then unknown, then warning.
enum class CheckState : int { kOk = 0, kWarning = 1, kCritical = 2, kUnknown = 3 };

// CheckFailure is a check that cannot begin: a wrong command line, for which other commands have
// exit codes that mean something else to a monitoring system.
class CheckFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Metric is a number that has thresholds.
enum class Metric {
  kTotal,        // power of all entities, in watts
  kLargest,      // of the entity that uses most
  kSmallest,     // and of the one that uses least
  kEntities,     // how many answered
  kUnreachable,  // nodes without a connection, or without an answer in time
};
inline constexpr std::size_t kMetricCount = 5;

struct Thresholds {
  std::optional<AlertRange> warning;
  std::optional<AlertRange> critical;

  bool IsSet() const { return warning || critical; }
};

struct CheckOptions {
  std::array<Thresholds, kMetricCount> thresholds;
  // What a node that cannot be asked makes of the check.
  CheckState on_failure = CheckState::kUnknown;

  const Thresholds& Of(Metric metric) const { return thresholds[static_cast<std::size_t>(metric)]; }
};

// MetricName is the name on the command line and among the performance data.
std::string_view MetricName(Metric metric);

// ParseCheckOptions reads METRIC=RANGE texts, in which the total may go without its name, and the
// word for on_failure. It throws Failure (usage).
CheckOptions ParseCheckOptions(const std::vector<std::string>& warnings,
                               const std::vector<std::string>& criticals,
                               const std::string& on_failure);

}  // namespace vt::tools

#endif  // VT_TOOLS_CHECK_OPTIONS_H_
