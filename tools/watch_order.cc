#include "tools/watch_order.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "tools/exit_code.h"

namespace vt::tools {
namespace {

struct ColumnWord {
  std::string_view word;
  WatchColumn column;  // cppcheck-suppress unusedStructMember
};

constexpr std::array kColumns = {
    ColumnWord{"device", WatchColumn::kDevice}, ColumnWord{"name", WatchColumn::kName},
    ColumnWord{"level", WatchColumn::kLevel}, ColumnWord{"usage", WatchColumn::kUsage},
    ColumnWord{"change", WatchColumn::kChange}};

}  // namespace

WatchOrder ParseWatchOrder(const std::string& text) {
  constexpr std::string_view descending = ":desc";
  std::string_view word = text;
  WatchOrder order;
  order.descending = word.ends_with(descending);
  if (order.descending) word.remove_suffix(descending.size());
  const auto found = std::ranges::find(kColumns, word, &ColumnWord::word);
  if (found == kColumns.end()) {
    throw Failure(kExitUsage, "--sort: watch sorts by device, name, level, usage or change, not '" +
                                  std::string(word) + "'");
  }
  order.column = found->column;
  return order;
}

}  // namespace vt::tools
