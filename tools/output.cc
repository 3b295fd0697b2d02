#include "tools/output.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <ostream>

namespace vt::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kAbsent = "-";

// A unit far beyond what any device means would make a number of hundreds of digits.
constexpr int kPlainUnits = 15;

std::string UnitsNote(const std::optional<int>& units) { return units ? "" : "?"; }

std::string PowerText(std::int64_t raw, const std::optional<int>& units) {
  return units ? WattsText(raw, *units) : std::to_string(raw) + UnitsNote(units);
}

// Text from the network must not steer the terminal.
std::string Printable(std::string text) {
  for (char& letter : text) {
    const auto code = static_cast<unsigned char>(letter);
    if (code < 0x20 || code == 0x7F) letter = '?';
  }
  return text;
}

struct TextOf {
  std::string operator()(std::monostate) const { return {}; }
  std::string operator()(const std::string& text) const { return text; }
  std::string operator()(std::int64_t number) const { return std::to_string(number); }
  std::string operator()(const Power& power) const { return PowerText(power.raw, power.units); }
  std::string operator()(const PowerVector& vector) const {
    std::string text;
    for (const std::int64_t raw : vector.raw) {
      text += (text.empty() ? "" : " ") + PowerText(raw, vector.units);
    }
    return text;
  }
};

std::string Heading(const Attribute& attribute) {
  return std::string(attribute.name) + (HasUnits(attribute) ? " (W)" : "");
}

bool IsNumeric(const Attribute& attribute) {
  return attribute.kind == ValueKind::kInteger || attribute.kind == ValueKind::kUsage;
}

// --- table ---

struct TableColumn {
  bool right_aligned;
  std::vector<std::string> cells;  // the heading first
};

std::size_t Width(const std::string& text) {
  // Bytes that continue a UTF-8 character take no place of their own.
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char letter) { return (static_cast<unsigned char>(letter) & 0xC0) != 0x80; }));
}

// AlignPoints puts blanks in the place of missing decimals, so that the points of right-aligned
// numbers stand below each other.
void AlignPoints(std::vector<std::string>& cells) {
  const auto decimals = [](const std::string& cell) {
    const std::size_t point = cell.find('.');
    return point == std::string::npos ? 0 : cell.size() - point;
  };
  std::size_t most = 0;
  for (std::size_t i = 1; i < cells.size(); ++i) most = std::max(most, decimals(cells[i]));
  for (std::size_t i = 1; i < cells.size(); ++i) cells[i].append(most - decimals(cells[i]), ' ');
}

std::vector<TableColumn> TableColumns(const Answer& answer) {
  std::vector<TableColumn> columns = {{false, {"device"}}, {true, {"entity"}}};
  for (const Row& row : answer.rows) {
    columns[0].cells.push_back(row.device);
    columns[1].cells.push_back(std::to_string(row.entity));
  }
  for (std::size_t i = 0; i < answer.columns.size(); ++i) {
    TableColumn column{IsNumeric(*answer.columns[i]), {Heading(*answer.columns[i])}};
    for (const Row& row : answer.rows) {
      const std::string text = Printable(std::visit(TextOf{}, row.values[i]));
      column.cells.emplace_back(text.empty() ? kAbsent : text);
    }
    if (answer.columns[i]->kind == ValueKind::kUsage) AlignPoints(column.cells);
    columns.push_back(std::move(column));
  }
  return columns;
}

std::string TableLine(const std::vector<TableColumn>& columns, std::size_t line) {
  std::string text;
  for (const TableColumn& column : columns) {
    std::size_t width = 0;
    for (const std::string& cell : column.cells) width = std::max(width, Width(cell));
    const std::string& cell = column.cells[line];
    const std::string padding(width - Width(cell), ' ');
    text += (text.empty() ? "" : "  ") + (column.right_aligned ? padding + cell : cell + padding);
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::string Plural(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

void PrintTable(std::ostream& out, const Answer& answer, bool colour) {
  const std::vector<TableColumn> columns = TableColumns(answer);
  if (!answer.rows.empty()) {
    out << (colour ? "\033[1m" : "") << TableLine(columns, 0) << (colour ? "\033[0m" : "") << '\n';
  }
  for (std::size_t line = 1; line <= answer.rows.size(); ++line) {
    out << TableLine(columns, line) << '\n';
  }
  out << (colour ? "\033[2m" : "") << Plural(answer.rows.size(), "row") << "; "
      << answer.acknowledged << " accepted, " << answer.refused << " refused"
      << (colour ? "\033[0m" : "") << '\n';
}

// --- JSON ---

std::string JsonKey(const Attribute& attribute) {
  std::string key(attribute.name);
  std::ranges::replace(key, '-', '_');
  return key;
}

Json UnitsJson(const std::optional<int>& units) { return units ? Json(*units) : Json(nullptr); }

Json WattsJson(std::int64_t raw, const std::optional<int>& units) {
  return units ? Json(voltaris::to_watts(raw, *units)) : Json(nullptr);
}

// AddValue adds the members of one value: power is told as it came, with its units, and in watts.
class AddValue {
 public:
  AddValue(Json& row, std::string key) : row_(row), key_(std::move(key)) {}

  void operator()(std::monostate) const { row_[key_] = nullptr; }
  void operator()(const std::string& text) const { row_[key_] = text; }
  void operator()(std::int64_t number) const { row_[key_] = number; }
  void operator()(const Power& power) const {
    row_[key_] = power.raw;
    row_[key_ + "_units"] = UnitsJson(power.units);
    row_[key_ + "_watts"] = WattsJson(power.raw, power.units);
  }
  void operator()(const PowerVector& vector) const {
    Json watts = Json::array();
    for (const std::int64_t raw : vector.raw) watts.push_back(WattsJson(raw, vector.units));
    row_[key_] = vector.raw;
    row_[key_ + "_units"] = UnitsJson(vector.units);
    row_[key_ + "_watts"] = std::move(watts);
  }

 private:
  Json& row_;
  std::string key_;
};

void PrintJson(std::ostream& out, const Answer& answer, const Options& options) {
  Json rows = Json::array();
  for (const Row& row : answer.rows) {
    Json members = {{"device", row.device}, {"entity", row.entity}};
    for (std::size_t i = 0; i < answer.columns.size(); ++i) {
      std::visit(AddValue(members, JsonKey(*answer.columns[i])), row.values[i]);
    }
    rows.push_back(std::move(members));
  }
  const Json document = {{"command", CommandName(options.command)},
                         {"node", options.host + ":" + std::to_string(options.port)},
                         {"domain", options.domain},
                         {"rows", std::move(rows)},
                         {"accepted", answer.acknowledged},
                         {"refused", answer.refused},
                         {"complete", !answer.failure.has_value()}};
  // Texts from the network need not be UTF-8.
  out << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

// --- CSV ---

std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string field = "\"";
  for (const char letter : text) {
    if (letter == '"') field += '"';
    field += letter;
  }
  return field + '"';
}

void PrintCsv(std::ostream& out, const Answer& answer) {
  out << "device,entity";
  for (const Attribute* column : answer.columns) {
    out << ',' << JsonKey(*column) << (HasUnits(*column) ? "_watts" : "");
  }
  out << '\n';
  for (const Row& row : answer.rows) {
    out << CsvField(row.device) << ',' << row.entity;
    for (const Value& value : row.values) out << ',' << CsvField(std::visit(TextOf{}, value));
    out << '\n';
  }
}

}  // namespace

std::string WattsText(std::int64_t raw, int units) {
  if (std::abs(units) > kPlainUnits) return std::to_string(raw) + "e" + std::to_string(units);
  std::string digits = std::to_string(std::abs(raw));
  if (units > 0 && raw != 0) digits.append(static_cast<std::size_t>(units), '0');
  if (units < 0) {
    const auto fraction = static_cast<std::size_t>(-units);
    if (digits.size() <= fraction) digits.insert(0, fraction + 1 - digits.size(), '0');
    digits.insert(digits.size() - fraction, 1, '.');
    digits.erase(digits.find_last_not_of('0') + 1);
    if (digits.back() == '.') digits.pop_back();
  }
  return (raw < 0 ? "-" : "") + digits;
}

void PrintAnswer(std::ostream& out, const Answer& answer, const Options& options, bool colour) {
  switch (options.format) {
    case Format::kTable:
      PrintTable(out, answer, colour);
      return;
    case Format::kJson:
      PrintJson(out, answer, options);
      return;
    case Format::kCsv:
      PrintCsv(out, answer);
      return;
  }
}

}  // namespace vt::tools
