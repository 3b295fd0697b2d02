#include "tools/table.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <vector>

#include "tools/power_text.h"
#include "tools/text_table.h"

namespace vt::tools {
namespace {

// --- cells ---

struct CellTextOf {
  std::string operator()(std::monostate) const { return {}; }
  std::string operator()(const std::string& text) const { return text; }
  std::string operator()(std::int64_t number) const { return std::to_string(number); }
  std::string operator()(const Power& power) const { return HandyText(power.raw, power.units); }
  std::string operator()(const PowerVector& vector) const {
    return vector.raw.empty() ? "" : HandyText(vector.raw, vector.units);
  }
};

// ShortIds gives identities without what all of them begin with, as long as no two become alike.
class ShortIds {
 public:
  explicit ShortIds(const std::vector<RowOfNode>& rows) {
    std::set<std::string_view> ids;
    for (const RowOfNode& at : rows) ids.insert(at.row->device);
    while (length_ < kLongest && !TellsApart(ids)) ++length_;
  }

  std::string operator()(const std::string& id) const {
    if (id.size() <= length_) return id;
    std::string text = "..";
    text.append(id, id.size() - length_);
    return text;
  }

 private:
  static constexpr std::size_t kShortest = 6;
  static constexpr std::size_t kLongest = 64;

  bool TellsApart(const std::set<std::string_view>& ids) const {
    std::set<std::string_view> tails;
    for (const std::string_view id : ids) {
      tails.insert(id.substr(id.size() - std::min(id.size(), length_)));
    }
    return tails.size() == ids.size();
  }

  std::size_t length_ = kShortest;
};

std::string Heading(const Column& column) {
  const bool is_attribute = column.kind == Column::Kind::kAttribute;
  return std::string(is_attribute ? column.attribute->name : FixedHeading(column.kind));
}

bool IsNumeric(const Column& column) {
  if (column.kind == Column::Kind::kEntity) return true;
  return column.attribute != nullptr && (column.attribute->kind == ValueKind::kInteger ||
                                         column.attribute->kind == ValueKind::kUsage);
}

std::string CellText(const Column& column, const RowOfNode& at, const ShortIds* short_ids) {
  if (column.kind == Column::Kind::kAttribute) {
    return std::visit(CellTextOf{}, at.row->values[column.index]);
  }
  const bool is_short = column.kind == Column::Kind::kDevice && short_ids != nullptr;
  return is_short ? (*short_ids)(at.row->device) : FixedText(column.kind, *at.node, at.row);
}

// --- the two tables ---

std::string RowsText(const Report& report, bool colour) {
  const OutputOptions& output = report.options->output;
  const std::vector<RowOfNode> rows = OrderedRows(report);
  if (rows.empty()) return {};
  const ShortIds short_ids(output.short_ids ? rows : std::vector<RowOfNode>());
  TextTable table(output.header, colour);
  for (const Column& column : output.columns) {
    table.AddColumn(Heading(column),
                    IsNumeric(column) ? TextTable::Side::kRight : TextTable::Side::kLeft);
  }
  for (const RowOfNode& at : rows) {
    std::vector<std::string> cells;
    for (const Column& column : output.columns) {
      cells.push_back(CellText(column, at, output.short_ids ? &short_ids : nullptr));
    }
    table.AddLine(cells);
  }
  return table.Text();
}

std::string NodesText(const Report& report, bool colour) {
  const auto is_remarkable = [](const NodeAnswer& node) {
    return node.verdict.status != Status::kOk;
  };
  if (report.nodes.size() < 2 || std::ranges::none_of(report.nodes, is_remarkable)) return {};
  TextTable table(report.options->output.header, colour);
  for (const char* heading : {"node", "status", "reason"}) table.AddColumn(heading);
  for (const NodeAnswer& node : report.nodes) {
    if (!is_remarkable(node)) continue;
    table.AddLine({NodeName(*node.target), std::string(StatusWord(node.verdict.status)),
                   node.verdict.reason});
  }
  return table.Text();
}

}  // namespace

std::string TableText(const Report& report, bool colour) {
  std::string text = RowsText(report, colour);
  const std::string nodes = NodesText(report, colour);
  if (!text.empty() && !nodes.empty()) text += '\n';
  return text + nodes;
}

}  // namespace vt::tools
