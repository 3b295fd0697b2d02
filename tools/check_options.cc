#include "tools/check_options.h"

#include <algorithm>

#include "tools/exit_code.h"

namespace vt::tools {
namespace {

constexpr std::array<std::string_view, kMetricCount> kNames = {"total", "largest", "smallest",
                                                               "entities", "unreachable"};

struct StateWord {
  std::string_view word;
  CheckState state;  // cppcheck-suppress unusedStructMember
};

constexpr std::array kStates = {
    StateWord{"ok", CheckState::kOk}, StateWord{"warning", CheckState::kWarning},
    StateWord{"critical", CheckState::kCritical}, StateWord{"unknown", CheckState::kUnknown}};

std::size_t IndexOf(const std::string& option, std::string_view name) {
  const auto found = std::ranges::find(kNames, name);
  if (found != kNames.end()) return static_cast<std::size_t>(found - kNames.begin());
  throw Failure(kExitUsage, option + ": there is no '" + std::string(name) +
                                "'; there are total, largest, smallest, entities, unreachable");
}

// Shells make the path of a folder of a tilde that is not quoted.
const char* HintOnTilde(const std::string& words) {
  return words.find('/') == std::string::npos ? "" : "; a shell wants '~:5' in quotes";
}

void ParseThreshold(const std::string& option, const std::string& text,
                    std::optional<AlertRange> Thresholds::*level, CheckOptions& options) {
  const std::size_t equals = text.find('=');
  const bool has_name = equals != std::string::npos;
  const std::size_t index = has_name ? IndexOf(option, text.substr(0, equals)) : 0;
  std::optional<AlertRange>& range = options.thresholds[index].*level;
  if (range) {
    throw Failure(kExitUsage,
                  option + ": '" + std::string(kNames[index]) + "' is given more than once");
  }
  const std::string words = has_name ? text.substr(equals + 1) : text;
  range = AlertRange::Parse(words);
  if (!range) {
    throw Failure(kExitUsage, option + ": '" + words +
                                  "' is no range such as 20, 10:20, 10:, ~:5 or @10:20" +
                                  HintOnTilde(words));
  }
}

CheckState ParseState(const std::string& word) {
  const auto found = std::ranges::find(kStates, word, &StateWord::word);
  if (found != kStates.end()) return found->state;
  throw Failure(kExitUsage,
                "--on-failure takes ok, warning, critical, unknown, not '" + word + "'");
}

}  // namespace

std::string_view MetricName(Metric metric) { return kNames[static_cast<std::size_t>(metric)]; }

CheckOptions ParseCheckOptions(const std::vector<std::string>& warnings,
                               const std::vector<std::string>& criticals,
                               const std::string& on_failure) {
  CheckOptions options;
  options.on_failure = ParseState(on_failure);
  for (const std::string& text : warnings) {
    ParseThreshold("--warning", text, &Thresholds::warning, options);
  }
  for (const std::string& text : criticals) {
    ParseThreshold("--critical", text, &Thresholds::critical, options);
  }
  return options;
}

}  // namespace vt::tools
