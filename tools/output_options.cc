#include "tools/output_options.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "vtapi.hpp"

#include "tools/exit_code.h"
#include "tools/options.h"

namespace vt::tools {
namespace {

struct FixedColumn {
  std::string_view word;
  Column::Kind kind;  // cppcheck-suppress unusedStructMember
};

constexpr std::array kFixedColumns = {
    FixedColumn{"node", Column::Kind::kNode}, FixedColumn{"status", Column::Kind::kStatus},
    FixedColumn{"device", Column::Kind::kDevice}, FixedColumn{"entity", Column::Kind::kEntity}};

std::optional<Column> FindFixed(const std::string& word) {
  const auto found = std::ranges::find(kFixedColumns, word, &FixedColumn::word);
  if (found == kFixedColumns.end()) return std::nullopt;
  return Column{found->kind};
}

// ColumnOf is the column that shows an attribute, which is asked for then.
Column ColumnOf(const Attribute& attribute, std::vector<const Attribute*>& attributes) {
  const auto at = std::ranges::find(attributes, &attribute);
  const auto index = static_cast<std::size_t>(at - attributes.begin());
  if (at == attributes.end()) attributes.push_back(&attribute);
  return {Column::Kind::kAttribute, index, &attribute};
}

// CheckShown throws Failure for an attribute that a command cannot show.
void CheckShown(const Attribute& attribute, const Options& options) {
  const std::string name(attribute.name);
  const bool is_summed = attribute.number == voltaris::usage.number ||
                         attribute.number == voltaris::delta_vector.number;
  if (options.command == Command::kSum && !is_summed) {
    throw Failure(kExitUsage,
                  "a sum can be had of usage and of delta-vector, not of '" + name + "'");
  }
  const bool is_there =
      std::ranges::find(options.attributes, &attribute) != options.attributes.end();
  if (options.command == Command::kSet && !is_there) {
    throw Failure(kExitUsage,
                  "a set shows the name, the usage and what is set, not '" + name + "'");
  }
}

Column ParseColumn(const std::string& word, Options& options) {
  if (const std::optional<Column> fixed = FindFixed(word)) return *fixed;
  const Attribute& attribute = FindAttribute(word);
  CheckShown(attribute, options);
  return ColumnOf(attribute, options.attributes);
}

std::vector<std::string> DefaultAttributes(Command command) {
  if (command == Command::kSum) return {"usage"};
  return {"name", "usage", "level"};
}

// A program that reads CSV finds the same columns whatever the number of nodes.
std::vector<Column> LeadingColumns(const Options& options) {
  std::vector<Column> columns;
  const bool is_csv = options.output.format == Format::kCsv;
  if (is_csv || options.targets.size() > 1) columns.push_back({Column::Kind::kNode});
  if (is_csv) columns.push_back({Column::Kind::kStatus});
  columns.push_back({Column::Kind::kDevice});
  columns.push_back({Column::Kind::kEntity});
  return columns;
}

Order ParseOrder(std::string text, Options& options) {
  constexpr std::string_view descending = ":desc";
  Order order;
  if (text.ends_with(descending)) {
    order.descending = true;
    text.resize(text.size() - descending.size());
  }
  if (const std::size_t colon = text.find(':'); colon != std::string::npos) {
    throw Failure(kExitUsage, "--sort: behind the colon stands desc or nothing, not '" +
                                  text.substr(colon + 1) + "'");
  }
  const std::optional<Column> fixed = FindFixed(text);
  const Attribute* attribute = fixed ? nullptr : &FindAttribute(text);
  const auto at = std::ranges::find(options.attributes, attribute);
  if (!fixed && at == options.attributes.end()) {
    throw Failure(kExitUsage, "--sort: '" + text +
                                  "' is not asked for; name it as an attribute or in --columns");
  }
  order.column = fixed ? *fixed : ColumnOf(*attribute, options.attributes);
  return order;
}

// Columns and an order that stand in a file or in the environment are meant for what suits them:
// they do not spoil a command that names its attributes itself, or cannot show those.
std::vector<std::string> ColumnsFor(const Configuration& configuration, bool names_attributes,
                                    Command command) {
  const bool suits = command == Command::kCollect && !names_attributes;
  if (!suits && !configuration.IsFromFlag("columns")) return {};
  return configuration.Texts("columns");
}

void AskFor(const std::vector<std::string>& names, Options& options) {
  for (const std::string& name : names) {
    const Attribute& attribute = FindAttribute(name);
    CheckShown(attribute, options);
    ColumnOf(attribute, options.attributes);
  }
}

void ResolveColumns(const std::vector<std::string>& words, Options& options) {
  std::vector<Column>& columns = options.output.columns;
  for (const std::string& word : words) columns.push_back(ParseColumn(word, options));
  if (options.attributes.empty()) ColumnOf(FindAttribute("usage"), options.attributes);
  if (!columns.empty()) return;
  columns = LeadingColumns(options);
  for (const Attribute* attribute : std::vector(options.attributes)) {
    columns.push_back(ColumnOf(*attribute, options.attributes));
  }
}

void ResolveOrder(const Configuration& configuration, Options& options) {
  const std::optional<std::string> text = configuration.Text("sort");
  if (!text) return;
  try {
    if (options.output.format == Format::kNdjson) {
      throw Failure(kExitUsage, "ndjson comes as nodes answer and cannot be sorted; json can");
    }
    options.output.order = ParseOrder(*text, options);
  } catch (const Failure&) {
    if (configuration.IsFromFlag("sort")) throw;
  }
}

}  // namespace

void ResolveOutput(const Configuration& configuration, const std::vector<std::string>& attributes,
                   Options& options) {
  options.output.header = !configuration.Flag("no-header");
  options.output.short_ids = configuration.Flag("short-ids");
  const std::vector<std::string> columns =
      ColumnsFor(configuration, !attributes.empty(), options.command);
  // What a set shows follows from what it sets.
  const bool takes_defaults =
      attributes.empty() && columns.empty() && options.command != Command::kSet;
  AskFor(takes_defaults ? DefaultAttributes(options.command) : attributes, options);
  ResolveColumns(columns, options);
  ResolveOrder(configuration, options);
}

}  // namespace vt::tools
