#include "tools/prometheus.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/power_text.h"
#include "tools/printable.h"

namespace vt::tools {
namespace {

using Labels = std::vector<std::pair<std::string, std::string>>;

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char letter : text) {
    if (letter == '\\' || letter == '"') escaped += '\\';
    escaped += letter;
  }
  return escaped;
}

// LabelName has nothing but what names of labels may have.
std::string LabelName(std::string name) {
  for (char& letter : name) {
    const bool is_fit = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                        (letter >= '0' && letter <= '9') || letter == '_';
    if (!is_fit) letter = '_';
  }
  if (name.empty() || (name[0] >= '0' && name[0] <= '9')) name.insert(0, "_");
  return name;
}

// Family is a metric with all of its samples, which have to stand together.
class Family {
 public:
  Family(std::string name, std::string_view help) : name_(std::move(name)), help_(help) {}

  void Add(const Labels& labels, const std::string& value) {
    samples_ += name_ + '{';
    const char* separator = "";
    for (const auto& [label, text] : labels) {
      samples_.append(separator).append(label).append("=\"");
      samples_.append(Escaped(Printable(text))).append("\"");
      separator = ",";
    }
    samples_ += "} " + value + '\n';
  }

  std::string Text() const {
    if (samples_.empty()) return {};
    std::string text = "# HELP " + name_ + " ";
    text.append(help_).append("\n# TYPE ").append(name_).append(" gauge\n");
    return text + samples_;
  }

 private:
  std::string name_;
  std::string help_;
  std::string samples_;
};

// --- nodes ---

// AddLabel keeps names apart that become the same: a name that is there twice spoils the whole
// text.
void AddLabel(std::string name, const std::string& value, Labels& labels) {
  while (std::ranges::find(labels, name, &Labels::value_type::first) != labels.end()) name += '_';
  labels.emplace_back(std::move(name), value);
}

Labels NodeLabels(const Options& options, const Target& target) {
  Labels labels = {{"node", NodeName(target)},
                   {"domain", target.domain ? *target.domain : options.domain}};
  for (const auto& [name, value] : target.labels) {
    AddLabel("label_" + LabelName(name), value, labels);
  }
  return labels;
}

struct NodeMetric {
  std::string_view name;
  std::string_view help;
  std::function<std::uint64_t(const NodeAnswer&)> value;
};

const std::vector<NodeMetric>& NodeMetrics() {
  static const std::vector<NodeMetric> metrics = {
      {"voltaris_collection_up", "Whether the node answered, in full and verified.",
       [](const NodeAnswer& node) { return node.verdict.status == Status::kOk ? 1u : 0u; }},
      {"voltaris_collection_exit_code", "The exit code of a command to this node alone.",
       [](const NodeAnswer& node) { return static_cast<unsigned>(CodeOf(node.verdict.status)); }},
      {"voltaris_collection_attempts", "How often the node was asked.",
       [](const NodeAnswer& node) { return node.attempts; }},
      {"voltaris_collection_rows", "Entities that answered.",
       [](const NodeAnswer& node) { return node.answer.rows.size(); }},
      {"voltaris_collection_accepted", "Entities that accepted the query.",
       [](const NodeAnswer& node) { return node.answer.accepted.size(); }},
      {"voltaris_collection_refused", "Entities that refused the query.",
       [](const NodeAnswer& node) { return node.answer.refused.size(); }},
      {"voltaris_collection_forged", "Messages of another key.",
       [](const NodeAnswer& node) { return node.counters.forged; }},
      {"voltaris_collection_malformed", "Messages that cannot be decoded.",
       [](const NodeAnswer& node) { return node.counters.malformed; }},
  };
  return metrics;
}

std::string MetricsOfNodes(const Report& report) {
  std::string text;
  for (const NodeMetric& metric : NodeMetrics()) {
    Family family(std::string(metric.name), metric.help);
    for (const NodeAnswer& node : report.nodes) {
      family.Add(NodeLabels(*report.options, *node.target), std::to_string(metric.value(node)));
    }
    text += family.Text();
  }
  Family statuses("voltaris_collection_status", "1 for the status that the node ended with.");
  for (const NodeAnswer& node : report.nodes) {
    Labels labels = NodeLabels(*report.options, *node.target);
    labels.emplace_back("status", StatusWord(node.verdict.status));
    statuses.Add(labels, "1");
  }
  return text + statuses.Text();
}

// --- rows ---

Labels RowLabels(const RowOfNode& at) {
  return {{"node", NodeName(*at.node->target)},
          {"device", at.row->device},
          {"entity", std::to_string(at.row->entity)}};
}

// MetricName avoids the endings that have a meaning of their own.
std::string MetricName(const Report& report, const Attribute& attribute) {
  const bool is_sum = report.options->command == Command::kSum;
  const std::string key =
      attribute.number == voltaris::neighbor_count.number ? "neighbors" : KeyOf(attribute);
  return (is_sum ? "voltaris_sum_" : "voltaris_entity_") + key;
}

bool IsText(const Attribute& attribute) {
  return attribute.kind != ValueKind::kInteger && !HasUnits(attribute);
}

// PowerFamilies are the three of power.
struct PowerFamilies {
  Family watts;
  Family raw;
  Family units;

  PowerFamilies(const std::string& name, std::string_view meaning)
      : watts(name + "_watts", std::string(meaning) + ", in watts."),
        raw(name + "_raw", std::string(meaning) + ", as the device tells it."),
        units(name + "_units", "Decimal exponent of the watt of the raw number.") {}

  void Add(const Labels& labels, std::int64_t number, const std::optional<int>& exponent) {
    if (exponent) watts.Add(labels, WattsText(number, *exponent));
    raw.Add(labels, std::to_string(number));
  }
  void AddUnits(const Labels& labels, const std::optional<int>& exponent) {
    if (exponent) units.Add(labels, std::to_string(*exponent));
  }

  std::string Text() const { return watts.Text() + raw.Text() + units.Text(); }
};

std::string PowerText(const Report& report, std::size_t index, const Attribute& attribute) {
  PowerFamilies families(MetricName(report, attribute), attribute.meaning);
  for (const RowOfNode& at : OrderedRows(report)) {
    const Value& value = at.row->values[index];
    Labels labels = RowLabels(at);
    if (const auto* power = std::get_if<Power>(&value)) {
      families.Add(labels, power->raw, power->units);
      families.AddUnits(labels, power->units);
    } else if (const auto* vector = std::get_if<PowerVector>(&value)) {
      families.AddUnits(labels, vector->units);
      labels.emplace_back("level", "");
      for (std::size_t level = 0; level < vector->raw.size(); ++level) {
        labels.back().second = std::to_string(level);
        families.Add(labels, vector->raw[level], vector->units);
      }
    }
  }
  return families.Text();
}

std::string NumbersText(const Report& report, std::size_t index, const Attribute& attribute) {
  Family family(MetricName(report, attribute), std::string(attribute.meaning) + ".");
  for (const RowOfNode& at : OrderedRows(report)) {
    const auto* number = std::get_if<std::int64_t>(&at.row->values[index]);
    if (number != nullptr) family.Add(RowLabels(at), std::to_string(*number));
  }
  return family.Text();
}

// InfoText has all texts of a row as labels.
std::string InfoText(const Report& report) {
  const std::vector<const Attribute*>& attributes = report.options->attributes;
  if (std::ranges::none_of(attributes, [](const Attribute* one) { return IsText(*one); }))
    return {};
  Family family("voltaris_entity_info", "What an entity tells of itself in words.");
  for (const RowOfNode& at : OrderedRows(report)) {
    Labels labels = RowLabels(at);
    for (std::size_t i = 0; i < attributes.size(); ++i) {
      if (!IsText(*attributes[i])) continue;
      const auto* text = std::get_if<std::string>(&at.row->values[i]);
      labels.emplace_back(KeyOf(*attributes[i]), text != nullptr ? *text : "");
    }
    family.Add(labels, "1");
  }
  return family.Text();
}

}  // namespace

std::string PrometheusText(const Report& report) {
  std::string text = MetricsOfNodes(report);
  const std::vector<const Attribute*>& attributes = report.options->attributes;
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    const Attribute& attribute = *attributes[i];
    if (HasUnits(attribute)) {
      text += PowerText(report, i, attribute);
    } else if (!IsText(attribute)) {
      text += NumbersText(report, i, attribute);
    }
  }
  return text + InfoText(report);
}

}  // namespace vt::tools
