// What is written of answers: the format, which columns it has, and in which order rows come.
#ifndef VT_TOOLS_OUTPUT_OPTIONS_H_
#define VT_TOOLS_OUTPUT_OPTIONS_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/attributes.h"
#include "tools/configuration.h"

namespace vt::tools {

struct Options;

enum class Format { kTable, kJson, kNdjson, kCsv, kProm };
enum class When { kAuto, kAlways, kNever };

// Column is what one column of a table or of CSV shows: what every row has, or an attribute.
struct Column {
  enum class Kind { kNode, kStatus, kDevice, kEntity, kAttribute };

  Kind kind = Kind::kAttribute;
  std::size_t index = 0;                 // of an attribute, in Options::attributes
  const Attribute* attribute = nullptr;  // of an attribute

  friend bool operator==(const Column&, const Column&) = default;
};

// Order is by what rows are sorted.
struct Order {
  Column column;
  bool descending = false;
};

struct OutputOptions {
  Format format = Format::kTable;
  std::vector<Column> columns;  // of tables and CSV
  bool header = true;
  bool short_ids = false;
  std::optional<Order> order;  // without one, as nodes are named, and by device and entity
  When color = When::kAuto;
};

// ResolveOutput completes what the options say of the output, whose format they have already, and
// of the attributes that are asked for: those that the command line names, or those of the columns,
// or what the command shows without either. Columns and an order from elsewhere than the command
// line have no effect where they do not suit. It throws Failure (usage).
void ResolveOutput(const Configuration& configuration, const std::vector<std::string>& attributes,
                   Options& options);

}  // namespace vt::tools

#endif  // VT_TOOLS_OUTPUT_OPTIONS_H_
