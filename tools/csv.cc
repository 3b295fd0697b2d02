#include "tools/csv.h"

#include <algorithm>
#include <vector>

#include "tools/power_text.h"
#include "tools/printable.h"

namespace vt::tools {
namespace {

using Fields = std::vector<std::string>;

std::string Quoted(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string field = "\"";
  for (const char letter : text) {
    if (letter == '"') field += '"';
    field += letter;
  }
  return field + '"';
}

std::string Line(const Fields& fields) {
  std::string line;
  for (const std::string& field : fields) {
    if (&field != &fields.front()) line += ',';
    line += Quoted(field);
  }
  return line + "\r\n";
}

std::string UnitsText(const std::optional<int>& units) {
  return units ? std::to_string(*units) : "";
}

// FieldsOf appends what a value takes.
class FieldsOf {
 public:
  FieldsOf(Fields& fields, const Attribute& attribute) : fields_(fields), attribute_(attribute) {}

  void operator()(std::monostate) const {
    const std::size_t count = HasUnits(attribute_) ? 3 : 1;
    fields_.insert(fields_.end(), count, std::string());
  }
  void operator()(const std::string& text) const { fields_.push_back(Printable(text)); }
  void operator()(std::int64_t number) const { fields_.push_back(std::to_string(number)); }
  void operator()(const Power& power) const {
    fields_.push_back(power.units ? WattsText(power.raw, *power.units) : "");
    fields_.push_back(std::to_string(power.raw));
    fields_.push_back(UnitsText(power.units));
  }
  void operator()(const PowerVector& vector) const {
    std::string watts;
    std::string raw;
    for (const std::int64_t number : vector.raw) {
      const char* separator = raw.empty() ? "" : " ";
      if (vector.units) watts.append(separator).append(WattsText(number, *vector.units));
      raw.append(separator).append(std::to_string(number));
    }
    fields_.insert(fields_.end(), {watts, raw, UnitsText(vector.units)});
  }

 private:
  Fields& fields_;
  const Attribute& attribute_;
};

void AddHeading(const Column& column, Fields& fields) {
  if (column.kind != Column::Kind::kAttribute) {
    fields.emplace_back(FixedHeading(column.kind));
    return;
  }
  const std::string key = KeyOf(*column.attribute);
  if (HasUnits(*column.attribute)) {
    fields.insert(fields.end(), {key + "_watts", key + "_raw", key + "_units"});
  } else {
    fields.push_back(key);
  }
}

// AddFields appends what a column shows of a node, and of a row if there is one.
void AddFields(const Column& column, const NodeAnswer& node, const Row* row, Fields& fields) {
  if (column.kind != Column::Kind::kAttribute) {
    fields.push_back(FixedText(column.kind, node, row));
    return;
  }
  std::visit(FieldsOf(fields, *column.attribute),
             row != nullptr ? row->values[column.index] : Value());
}

std::string LineOf(const Report& report, const NodeAnswer& node, const Row* row) {
  Fields fields;
  for (const Column& column : report.options->output.columns) AddFields(column, node, row, fields);
  return Line(fields);
}

}  // namespace

std::string CsvText(const Report& report) {
  const OutputOptions& output = report.options->output;
  std::string text;
  if (output.header) {
    Fields headings;
    for (const Column& column : output.columns) AddHeading(column, headings);
    text += Line(headings);
  }
  for (const RowOfNode& at : OrderedRows(report)) text += LineOf(report, *at.node, at.row);
  const bool shows_nodes = std::ranges::any_of(output.columns, [](const Column& column) {
    return column.kind == Column::Kind::kNode || column.kind == Column::Kind::kStatus;
  });
  for (const NodeAnswer& node : report.nodes) {
    if (shows_nodes && node.answer.rows.empty()) text += LineOf(report, node, nullptr);
  }
  return text;
}

}  // namespace vt::tools
