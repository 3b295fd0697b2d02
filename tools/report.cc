#include "tools/report.h"

#include <algorithm>
#include <compare>
#include <string>

#include "tools/counted.h"

namespace vt::tools {
namespace {

// SortKey is what a row is sorted by: a number, or a text, or nothing.
using SortKey = std::variant<std::monostate, double, std::string>;

SortKey PowerKey(std::int64_t raw, const std::optional<int>& units) {
  if (!units) return {};
  return voltaris::to_watts(raw, *units);
}

struct SortKeyOf {
  SortKey operator()(std::monostate) const { return {}; }
  SortKey operator()(const std::string& text) const { return text; }
  SortKey operator()(std::int64_t number) const { return static_cast<double>(number); }
  SortKey operator()(const Power& power) const { return PowerKey(power.raw, power.units); }
  SortKey operator()(const PowerVector& vector) const {
    return vector.raw.empty() ? SortKey() : PowerKey(vector.raw.back(), vector.units);
  }
};

SortKey KeyIn(const RowOfNode& at, const Column& column) {
  if (column.kind == Column::Kind::kAttribute) {
    return std::visit(SortKeyOf{}, at.row->values[column.index]);
  }
  if (column.kind == Column::Kind::kEntity) return static_cast<double>(at.row->entity);
  return FixedText(column.kind, *at.node, at.row);
}

bool IsBefore(const SortKey& a, const SortKey& b, bool descending) {
  const bool a_is_there = !std::holds_alternative<std::monostate>(a);
  const bool b_is_there = !std::holds_alternative<std::monostate>(b);
  if (!a_is_there || !b_is_there) return a_is_there && !b_is_there;
  return descending ? b < a : a < b;
}

void Sort(std::vector<RowOfNode>& rows, const Order& order) {
  struct Keyed {
    SortKey key;
    RowOfNode row;
  };
  std::vector<Keyed> keyed;
  keyed.reserve(rows.size());
  for (const RowOfNode& row : rows) keyed.push_back({KeyIn(row, order.column), row});
  std::ranges::stable_sort(keyed, [&order](const Keyed& a, const Keyed& b) {
    return IsBefore(a.key, b.key, order.descending);
  });
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = keyed[i].row;
}

}  // namespace

std::vector<RowOfNode> OrderedRows(const Report& report) {
  std::vector<RowOfNode> rows;
  for (const NodeAnswer& node : report.nodes) {
    for (const Row& row : node.answer.rows) rows.push_back({&node, &row});
  }
  if (report.options->output.order) Sort(rows, *report.options->output.order);
  return rows;
}

std::string_view FixedHeading(Column::Kind kind) {
  switch (kind) {
    case Column::Kind::kNode:
      return "node";
    case Column::Kind::kStatus:
      return "status";
    case Column::Kind::kDevice:
      return "device";
    case Column::Kind::kEntity:
      return "entity";
    case Column::Kind::kAttribute:
      break;
  }
  return {};
}

std::string FixedText(Column::Kind kind, const NodeAnswer& node, const Row* row) {
  switch (kind) {
    case Column::Kind::kNode:
      return NodeName(*node.target);
    case Column::Kind::kStatus:
      return std::string(StatusWord(node.verdict.status));
    case Column::Kind::kDevice:
      return row != nullptr ? row->device : std::string();
    case Column::Kind::kEntity:
      return row != nullptr ? std::to_string(row->entity) : std::string();
    case Column::Kind::kAttribute:
      break;
  }
  return {};
}

ReportSums SumUp(const Report& report) {
  ReportSums sums;
  for (const NodeAnswer& node : report.nodes) {
    ++sums.nodes[node.verdict.status];
    sums.rows += node.answer.rows.size();
    sums.accepted += node.answer.accepted.size();
    sums.refused += node.answer.refused.size();
  }
  return sums;
}

std::string SummaryText(const Report& report) {
  const ReportSums sums = SumUp(report);
  std::string text = Counted(sums.rows, "row");
  if (report.nodes.size() > 1) {
    text += " of " + Counted(report.nodes.size(), "node") + " (";
    const char* separator = "";
    for (const auto& [status, count] : sums.nodes) {
      text.append(separator).append(std::to_string(count)).append(" ").append(StatusWord(status));
      separator = ", ";
    }
    text += ')';
  }
  return text + "; " + std::to_string(sums.accepted) + " accepted, " +
         std::to_string(sums.refused) + " refused";
}

}  // namespace vt::tools
