// What a monitoring system is told of the answers of nodes: a state, a line about it, performance
// data and details.
#ifndef VT_TOOLS_CHECK_JUDGEMENT_H_
#define VT_TOOLS_CHECK_JUDGEMENT_H_

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/answer.h"
#include "tools/attributes.h"
#include "tools/check_options.h"

namespace vt::tools {

// CheckAttributes are those that the rows of a check have values of: the name, then the usage.
std::vector<const Attribute*> CheckAttributes();

// CheckFacts are the answers of all nodes in numbers.
struct CheckFacts {
  struct Extreme {
    double watts = 0;
    std::string entity;  // whose it is, in words
  };

  std::size_t nodes = 0;
  std::size_t entities = 0;       // that told of themselves
  std::size_t without_watts = 0;  // of them those that told no usage, or one without its unit
  double total_watts = 0;
  std::optional<Extreme> largest;
  std::optional<Extreme> smallest;
  std::size_t unreachable = 0;               // nodes; see Metric
  std::size_t refusing = 0;                  // nodes all of whose devices refused
  std::size_t without_devices = 0;           // nodes that told of none, or that took another key
  std::size_t failed = 0;                    // nodes that failed in another way, also in part
  std::vector<std::string> what_went_wrong;  // a line for each node of these four
};

CheckFacts FactsOf(std::span<const NodeAnswer> nodes);

struct Judgement {
  CheckState state = CheckState::kOk;
  std::string text;  // all lines, with their line ends
};

// JudgeFacts holds facts against the thresholds. A node that failed counts as the options say;
// unreachable ones do not, where their number has thresholds, and a lack of devices does not, where
// the number of entities has some. Refusals beside answers are what a check of some devices of some
// nodes is expected to bring.
Judgement JudgeFacts(const CheckFacts& facts, const CheckOptions& options,
                     std::chrono::microseconds duration);

// UnknownText is the one line of a check that has come to nothing.
std::string UnknownText(const std::string& reason);

}  // namespace vt::tools

#endif  // VT_TOOLS_CHECK_JUDGEMENT_H_
