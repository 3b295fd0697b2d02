#include "tools/watch_text.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "tools/counted.h"
#include "tools/watts_text.h"

namespace vt::tools {
namespace {

constexpr std::string_view kGap = "  ";
constexpr std::string_view kAbsent = "-";

// On a screen.
constexpr std::size_t kShortDevice = 12;
constexpr std::size_t kShortText = 28;
constexpr std::size_t kLeastGraph = 4;

// TableColumn is a column of all rows as it will be shown.
struct TableColumn {
  std::string heading;
  Side side;
  std::vector<std::string> cells;
  std::size_t width = 0;
};

class WatchTableMaker {
 public:
  WatchTableMaker(const std::vector<const WatchRow*>& rows, const WatchTableStyle& style)
      : rows_(rows), style_(style) {}

  void AddColumns(bool with_nodes) {
    if (with_nodes) Add("node", Side::kLeft, [this](const WatchRow& row) { return Cut(row.node); });
    AddOrdered(WatchColumn::kDevice, "device", Side::kLeft,
               [this](const WatchRow& row) { return Device(row.key.device); });
    Add("entity", Side::kRight, [](const WatchRow& row) { return std::to_string(row.key.entity); });
    AddOrdered(WatchColumn::kName, "name", Side::kLeft,
               [this](const WatchRow& row) { return Cut(row.name); });
    AddOrdered(WatchColumn::kLevel, "level", Side::kRight, [](const WatchRow& row) {
      return row.level ? std::to_string(*row.level) : std::string();
    });
    AddOrdered(WatchColumn::kUsage, "usage", Side::kRight, [](const WatchRow& row) {
      // What was told some rounds ago is not what is used now.
      if (row.absent > 0) return std::string("absent");
      return row.watts ? RoundWatts(*row.watts) : std::string();
    });
    AddOrdered(WatchColumn::kChange, "change", Side::kRight, [](const WatchRow& row) {
      const std::optional<double> change = row.change();
      return change ? RoundChange(*change) : std::string();
    });
  }

  std::string Heading() const {
    std::string line;
    for (const TableColumn& column : columns_) {
      Append(line, Fitted(column.heading, column.width, column.side));
    }
    return Finished(line);
  }

  std::string Line(std::size_t at) const {
    std::string line;
    for (const TableColumn& column : columns_) {
      Append(line, Fitted(column.cells[at], column.width, column.side));
    }
    const std::size_t used = WidthOf(line) + kGap.size();
    if (style_.graph != Graph::kNone && style_.width >= used + kLeastGraph) {
      Append(line, GraphOf(*rows_[at], style_.width - used));
    }
    return Finished(line);
  }

 private:
  static void Append(std::string& line, const std::string& cell) {
    if (!line.empty()) line += kGap;
    line += cell;
  }

  std::string Finished(std::string line) const {
    if (style_.width > 0) return Fitted(line, style_.width);
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
  }

  std::string Cut(const std::string& text) const {
    const std::string shown = Shown(text, style_.charset);
    const bool is_long = style_.shorten && WidthOf(shown) > kShortText;
    return is_long ? Fitted(shown, kShortText) : shown;
  }

  std::string Device(const std::string& id) const {
    std::string shown = Shown(id, style_.charset);
    if (!style_.shorten || shown.size() <= kShortDevice + 2) return shown;
    return ".." + shown.substr(shown.size() - kShortDevice);
  }

  template <typename CellOf>
  void Add(const std::string& heading, Side side, CellOf cell_of) {
    TableColumn column{heading, side, {}, WidthOf(heading)};
    column.cells.reserve(rows_.size());
    for (const WatchRow* row : rows_) {
      std::string cell = cell_of(*row);
      if (cell.empty()) cell = kAbsent;
      column.width = std::max(column.width, WidthOf(cell));
      column.cells.push_back(std::move(cell));
    }
    columns_.push_back(std::move(column));
  }

  template <typename CellOf>
  void AddOrdered(WatchColumn column, const std::string& heading, Side side, CellOf cell_of) {
    const bool is_it = style_.order.column == column;
    const char* mark = !is_it ? "" : style_.order.descending ? "v" : "^";
    // Sorted by devices is what nobody has to be told of.
    if (style_.order == WatchOrder()) mark = "";
    Add(heading + mark, side, cell_of);
  }

  std::string GraphOf(const WatchRow& row, std::size_t width) const {
    if (style_.graph == Graph::kSparks) return Sparks(row.history, width, style_.charset);
    double greatest = 0;
    for (const WatchRow* other : rows_) {
      if (other->absent == 0) greatest = std::max(greatest, other->watts.value_or(0));
    }
    const double watts = row.absent == 0 ? row.watts.value_or(0) : 0;
    return Bar(greatest > 0 ? watts / greatest : 0, width, style_.charset);
  }

  const std::vector<const WatchRow*>& rows_;
  const WatchTableStyle& style_;
  std::vector<TableColumn> columns_;
};

}  // namespace

std::vector<std::string> WatchTable(const std::vector<const WatchRow*>& rows, bool with_nodes,
                                    const WatchTableStyle& style, std::size_t first,
                                    std::size_t count) {
  WatchTableMaker maker(rows, style);
  maker.AddColumns(with_nodes);
  std::vector<std::string> lines = {maker.Heading()};
  const std::size_t end = std::min(rows.size(), first + std::min(count, rows.size()));
  for (std::size_t at = first; at < end; ++at) lines.push_back(maker.Line(at));
  return lines;
}

std::string SumsText(const WatchModel& model) {
  constexpr std::array<const char*, kWatchGroups> words = {"consumers", "producers", "meters"};
  std::string text;
  for (std::size_t i = 0; i < kWatchGroups; ++i) {
    const WatchSum& sum = model.Sum(static_cast<WatchGroup>(i));
    if (sum.entities == 0) continue;
    text += (text.empty() ? "" : "; ") + std::string(words[i]) + " " + RoundWatts(sum.watts) +
            " (" + RoundChange(sum.change) + ") of " + Counted(sum.entities, "entity", "entities");
  }
  if (text.empty()) text = "no entity answered";
  if (model.absent() > 0) text += "; " + std::to_string(model.absent()) + " absent";
  return text;
}

std::string NodesText(const WatchModel& model) {
  std::string text = Counted(model.node_count(), "node", "nodes");
  if (!model.failures().empty()) text += ", " + std::to_string(model.failures().size()) + " failed";
  return text;
}

std::string WatchBlock(const WatchModel& model, const WatchOrder& order) {
  std::string block = "round " + std::to_string(model.rounds()) + ": " + SumsText(model) + "; " +
                      NodesText(model) + '\n';
  for (const std::string& failure : model.failures()) {
    block += Shown(failure, Charset::kUnicode) + '\n';
  }
  const std::vector<const WatchRow*> rows = model.Rows(order, "");
  if (rows.empty()) return block + '\n';
  const WatchTableStyle style{.order = order};
  for (const std::string& line : WatchTable(rows, model.node_count() > 1, style, 0, rows.size())) {
    block += line + '\n';
  }
  return block + '\n';
}

}  // namespace vt::tools
