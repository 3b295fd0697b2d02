#include "tools/check_judgement.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "tools/counted.h"
#include "tools/printable.h"
#include "tools/report.h"
#include "tools/watts_text.h"

namespace vt::tools {
namespace {

constexpr std::size_t kNameIndex = 0;
constexpr std::size_t kUsageIndex = 1;

// Monitoring systems keep some kilobytes of what a check says.
constexpr std::size_t kMostDetails = 20;

constexpr std::array<std::string_view, 4> kStateNames = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};

// Harmless is a text without what separates the performance data from the rest.
std::string Harmless(std::string_view text) {
  std::string harmless = Printable(text);
  for (std::size_t at = harmless.find('|'); at != std::string::npos; at = harmless.find('|', at)) {
    harmless.replace(at, 1, "\\x7c");
  }
  return harmless;
}

// --- facts ---

std::string EntityWords(const Row& row) {
  std::string words;
  if (const auto* name = std::get_if<std::string>(&row.values[kNameIndex])) words = *name + ", ";
  return words + row.device + " entity " + std::to_string(row.entity);
}

void AddRow(const Row& row, CheckFacts& facts) {
  ++facts.entities;
  const auto* usage = std::get_if<Power>(&row.values[kUsageIndex]);
  if (usage == nullptr || !usage->units) {
    ++facts.without_watts;
    return;
  }
  const double watts = voltaris::to_watts(usage->raw, *usage->units);
  facts.total_watts += watts;
  if (!facts.largest || watts > facts.largest->watts) facts.largest = {watts, EntityWords(row)};
  if (!facts.smallest || watts < facts.smallest->watts) facts.smallest = {watts, EntityWords(row)};
}

// CountOf is the fact that counts nodes of a status, or null where all is well.
std::size_t CheckFacts::*CountOf(Status status) {
  switch (status) {
    case Status::kOk:
      return nullptr;
    case Status::kUnreachable:
    case Status::kNoAnswer:
    case Status::kNotAsked:
      return &CheckFacts::unreachable;
    case Status::kRefused:
      return &CheckFacts::refusing;
    case Status::kNothingMatched:
      return &CheckFacts::without_devices;
    default:
      return &CheckFacts::failed;
  }
}

void AddNode(const NodeAnswer& node, CheckFacts& facts) {
  ++facts.nodes;
  for (const Row& row : node.answer.rows) AddRow(row, facts);
  std::size_t CheckFacts::*count = CountOf(node.verdict.status);
  if (count == nullptr) return;
  ++(facts.*count);
  std::string line = NodeName(*node.target) + ": ";
  line.append(StatusWord(node.verdict.status)).append(": ").append(node.verdict.reason);
  facts.what_went_wrong.push_back(std::move(line));
}

// --- the judgement ---

class FactsJudge {
 public:
  FactsJudge(const CheckFacts& facts, const CheckOptions& options)
      : facts_(facts), options_(options) {
    LookAtNodes();
    NoteWhetherWhole();
    for (std::size_t i = 0; i < kMetricCount; ++i) LookAt(static_cast<Metric>(i));
  }

  Judgement Told(std::chrono::microseconds duration) const {
    std::string text = "VOLTARIS ";
    text += kStateNames[static_cast<std::size_t>(state_)];
    text += " - ";
    if (state_ == CheckState::kOk) text += Summary() + (alerts_.empty() ? "" : ", ");
    text += alerts_;
    return {state_, text + " |" + PerformanceData(duration) + '\n' + Details()};
  }

 private:
  // A node that is not known about does not hide what is critical anyhow.
  static int WeightOf(CheckState state) {
    constexpr std::array weights = {0, 1, 3, 2};  // in the order of the states
    return weights[static_cast<std::size_t>(state)];
  }

  void Raise(CheckState state, const std::string& words) {
    if (WeightOf(state) > WeightOf(state_)) state_ = state;
    alerts_ += (alerts_.empty() ? "" : ", ") + words;
  }

  void RaiseNodes(std::size_t count, const std::string& words) {
    if (count == 0) return;
    Raise(options_.on_failure,
          Counted(count, "node", "nodes") + " of " + std::to_string(facts_.nodes) + " " + words);
  }

  // What a part of the nodes told would be taken for a change of power.
  void NoteWhetherWhole() { is_whole_ = state_ != CheckState::kUnknown; }

  void LookAtNodes() {
    if (!options_.Of(Metric::kUnreachable).IsSet()) RaiseNodes(facts_.unreachable, "unreachable");
    RaiseNodes(facts_.failed, "failed");
    if (options_.Of(Metric::kEntities).IsSet()) return;
    RaiseNodes(facts_.without_devices, "without a device");
    if (facts_.entities == 0) RaiseNodes(facts_.refusing, "refused");
  }

  std::optional<double> ValueOf(Metric metric) const {
    const auto watts_of = [](const std::optional<CheckFacts::Extreme>& extreme) {
      return extreme ? std::optional(extreme->watts) : std::nullopt;
    };
    switch (metric) {
      case Metric::kTotal:
        return facts_.largest ? std::optional(facts_.total_watts) : std::nullopt;
      case Metric::kLargest:
        return watts_of(facts_.largest);
      case Metric::kSmallest:
        return watts_of(facts_.smallest);
      case Metric::kEntities:
        return static_cast<double>(facts_.entities);
      case Metric::kUnreachable:
        break;
    }
    return static_cast<double>(facts_.unreachable);
  }

  static bool IsPower(Metric metric) {
    return metric == Metric::kTotal || metric == Metric::kLargest || metric == Metric::kSmallest;
  }

  std::string Words(Metric metric, double value) const {
    std::string words(MetricName(metric));
    words += ' ';
    if (!IsPower(metric)) return words + PlainWatts(value);
    words += RoundWatts(value);
    if (metric == Metric::kLargest) words += " of " + Harmless(facts_.largest->entity);
    if (metric == Metric::kSmallest) words += " of " + Harmless(facts_.smallest->entity);
    return words;
  }

  // IsCertain tells whether an alert stays one whatever the nodes that told nothing would have
  // told: with them sums, the greatest and counts are no less, and the least is no greater.
  bool IsCertain(Metric metric, const AlertRange& range, double value) const {
    if (is_whole_ || metric == Metric::kUnreachable) return true;
    return metric == Metric::kSmallest ? range.IsAlertUpTo(value) : range.IsAlertFrom(value);
  }

  void LookAt(Metric metric) {
    const Thresholds& thresholds = options_.Of(metric);
    if (!thresholds.IsSet()) return;
    const std::optional<double> value = ValueOf(metric);
    if (!value) {
      LookAtNothing(metric);
      return;
    }
    const auto is_alert = [value](const std::optional<AlertRange>& range) {
      return range && range->IsAlert(*value);
    };
    if (is_alert(thresholds.critical)) {
      const bool is_certain = IsCertain(metric, *thresholds.critical, *value);
      Raise(is_certain ? CheckState::kCritical : CheckState::kUnknown,
            Words(metric, *value) + " (critical: " + thresholds.critical->text() + ")");
    } else if (is_alert(thresholds.warning)) {
      Raise(CheckState::kWarning,
            Words(metric, *value) + " (warning: " + thresholds.warning->text() + ")");
    }
  }

  // That there is no entity to have power is judged by their number, where it has thresholds.
  void LookAtNothing(Metric metric) {
    const bool is_counted = facts_.entities == 0 && options_.Of(Metric::kEntities).IsSet();
    if (is_counted || state_ == CheckState::kUnknown) return;
    Raise(CheckState::kUnknown, std::string(MetricName(metric)) + ": no entity told its power");
  }

  std::string Summary() const {
    return RoundWatts(facts_.total_watts) + " of " +
           Counted(facts_.entities, "entity", "entities") + ", " +
           Counted(facts_.nodes, "node", "nodes");
  }

  std::string DataOf(Metric metric) const {
    const std::optional<double> value = ValueOf(metric);
    const Thresholds& thresholds = options_.Of(metric);
    const bool is_known = value && (is_whole_ || metric == Metric::kUnreachable);
    std::string data = " " + std::string(MetricName(metric)) + '=';
    data += is_known ? PlainWatts(*value) : "U";
    // The unit that goes with power; counts have none.
    if (is_known && IsPower(metric)) data += 'W';
    data += ';' + (thresholds.warning ? thresholds.warning->text() : "");
    data += ';' + (thresholds.critical ? thresholds.critical->text() : "");
    data += ";0;";
    if (metric == Metric::kUnreachable) data += std::to_string(facts_.nodes);
    return data;
  }

  std::string PerformanceData(std::chrono::microseconds duration) const {
    std::string data;
    for (std::size_t i = 0; i < kMetricCount; ++i) data += DataOf(static_cast<Metric>(i));
    return data + " time=" + PlainWatts(static_cast<double>(duration.count()) / 1e6) + "s;;;0;";
  }

  std::string Details() const {
    std::string details;
    if (facts_.largest) {
      details += "largest: " + RoundWatts(facts_.largest->watts) + ", " +
                 Harmless(facts_.largest->entity) + '\n';
      details += "smallest: " + RoundWatts(facts_.smallest->watts) + ", " +
                 Harmless(facts_.smallest->entity) + '\n';
    }
    if (facts_.without_watts > 0) {
      details +=
          "without power in watts: " + Counted(facts_.without_watts, "entity", "entities") + '\n';
    }
    const std::size_t told = std::min(kMostDetails, facts_.what_went_wrong.size());
    for (std::size_t i = 0; i < told; ++i) {
      details += Harmless(facts_.what_went_wrong[i]) + '\n';
    }
    const std::size_t left = facts_.what_went_wrong.size() - told;
    if (left > 0) details += "and " + Counted(left, "more node", "more nodes") + '\n';
    return details;
  }

  const CheckFacts& facts_;
  const CheckOptions& options_;
  CheckState state_ = CheckState::kOk;
  std::string alerts_;
  bool is_whole_ = true;
};

}  // namespace

std::vector<const Attribute*> CheckAttributes() {
  return {&FindAttribute("name"), &FindAttribute("usage")};
}

CheckFacts FactsOf(std::span<const NodeAnswer> nodes) {
  CheckFacts facts;
  for (const NodeAnswer& node : nodes) AddNode(node, facts);
  return facts;
}

Judgement JudgeFacts(const CheckFacts& facts, const CheckOptions& options,
                     std::chrono::microseconds duration) {
  return FactsJudge(facts, options).Told(duration);
}

std::string UnknownText(const std::string& reason) {
  return "VOLTARIS UNKNOWN - " + Harmless(reason) + '\n';
}

}  // namespace vt::tools
