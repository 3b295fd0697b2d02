#include "tools/json.h"

#include <nlohmann/json.hpp>

#include <utility>

#include "tools/json_text.h"

namespace vt::tools {
namespace {

using Json = nlohmann::ordered_json;

// It changes when a program that reads the output would have to be changed.
constexpr std::string_view kSchema = "voltaris-answer-1";

Json UnitsJson(const std::optional<int>& units) { return units ? Json(*units) : Json(nullptr); }

Json WattsJson(std::int64_t raw, const std::optional<int>& units) {
  return units ? Json(voltaris::to_watts(raw, *units)) : Json(nullptr);
}

struct ValueJson {
  Json operator()(std::monostate) const { return nullptr; }
  Json operator()(const std::string& text) const { return text; }
  Json operator()(std::int64_t number) const { return number; }
  Json operator()(const Power& power) const {
    return {{"watts", WattsJson(power.raw, power.units)},
            {"raw", power.raw},
            {"units", UnitsJson(power.units)}};
  }
  Json operator()(const PowerVector& vector) const {
    Json watts = Json::array();
    for (const std::int64_t raw : vector.raw) watts.push_back(WattsJson(raw, vector.units));
    return {{"watts", std::move(watts)}, {"raw", vector.raw}, {"units", UnitsJson(vector.units)}};
  }
};

Json RowJson(const Options& options, const NodeAnswer& node, const Row& row) {
  Json members = {{"node", NodeName(*node.target)}, {"device", row.device}, {"entity", row.entity}};
  for (std::size_t i = 0; i < options.attributes.size(); ++i) {
    members[KeyOf(*options.attributes[i])] = std::visit(ValueJson{}, row.values[i]);
  }
  return members;
}

Json NodeJson(const Options& options, const NodeAnswer& node) {
  Json labels = Json::object();
  for (const auto& [name, value] : node.target->labels) labels[name] = value;
  Json members = {
      {"node", NodeName(*node.target)},
      {"host", node.target->host},
      {"port", node.target->port},
      {"domain", node.target->domain ? *node.target->domain : options.domain},
      {"labels", std::move(labels)},
      {"status", StatusWord(node.verdict.status)},
      {"exit_code", static_cast<int>(CodeOf(node.verdict.status))},
      {"reason", node.verdict.reason.empty() ? Json(nullptr) : Json(node.verdict.reason)},
      {"attempts", node.attempts},
      {"rows", node.answer.rows.size()},
      {"accepted", node.answer.accepted.size()},
      {"refused", node.answer.refused.size()},
      {"messages", node.counters.accepted},
      {"forged", node.counters.forged},
      {"malformed", node.counters.malformed},
      {"bytes", node.counters.bytes}};
  if (options.command == Command::kSet) {
    Json refusals = Json::array();
    for (const EntityName& name : node.answer.refused) {
      refusals.push_back({{"device", name.device}, {"entity", name.entity}});
    }
    members["refusals"] = std::move(refusals);
  }
  return members;
}

// HeadJson is what documents and the first line of NDJSON begin with.
Json HeadJson(const Options& options, std::string_view type) {
  Json columns = Json::array();
  for (const Attribute* attribute : options.attributes) columns.push_back(KeyOf(*attribute));
  Json head = {{"type", type},
               {"schema", kSchema},
               {"command", CommandName(options.command)},
               {"attributes", std::move(columns)}};
  if (options.command == Command::kSet) {
    Json set = Json::object();
    for (const Assignment& assignment : options.assignments) {
      set[KeyOf(*assignment.attribute)] = assignment.value;
    }
    head["set"] = std::move(set);
    head["dry_run"] = options.dry_run;
  }
  return head;
}

Json SummaryJson(const Report& report) {
  const ReportSums sums = SumUp(report);
  Json statuses = Json::object();
  for (const auto& [status, count] : sums.nodes) statuses[std::string(StatusWord(status))] = count;
  return {{"exit_code", report.code},
          {"signal", report.signal != 0 ? Json(report.signal) : Json(nullptr)},
          {"nodes", report.nodes.size()},
          {"statuses", std::move(statuses)},
          {"rows", sums.rows},
          {"accepted", sums.accepted},
          {"refused", sums.refused}};
}

// Line is a line of NDJSON: its type comes first.
std::string Line(std::string_view type, const Json& members) {
  Json line = {{"type", type}};
  line.update(members);
  return JsonLine(line);
}

}  // namespace

std::string JsonText(const Report& report) {
  const Options& options = *report.options;
  Json document = HeadJson(options, "answer");
  document["summary"] = SummaryJson(report);
  Json nodes = Json::array();
  for (const NodeAnswer& node : report.nodes) nodes.push_back(NodeJson(options, node));
  document["nodes"] = std::move(nodes);
  Json rows = Json::array();
  for (const RowOfNode& at : OrderedRows(report)) {
    rows.push_back(RowJson(options, *at.node, *at.row));
  }
  document["rows"] = std::move(rows);
  return JsonDocument(document);
}

std::string NdjsonStart(const Options& options) { return JsonLine(HeadJson(options, "start")); }

std::string NdjsonNode(const Options& options, const NodeAnswer& node) {
  std::string lines;
  for (const Row& row : node.answer.rows) lines += Line("row", RowJson(options, node, row));
  return lines + Line("node", NodeJson(options, node));
}

std::string NdjsonEnd(const Report& report) { return Line("summary", SummaryJson(report)); }

}  // namespace vt::tools
