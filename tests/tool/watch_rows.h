// Rows of a watch as tests want them.
#ifndef VT_TESTS_TOOL_WATCH_ROWS_H_
#define VT_TESTS_TOOL_WATCH_ROWS_H_

#include <optional>
#include <string>

#include "tools/answer.h"

namespace vt::tools {

// WatchedRow is what a device tells of itself in a round; without watts it tells no usage.
struct WatchedRow {
  std::string device = "device-1";
  std::string name = "lamp";
  std::optional<std::int64_t> watts = 10;
  std::int64_t level = 10;
  std::string category = "consumer";

  Row Told() const {
    Row row{device, 1, {}};
    row.values.resize(4);
    row.values[0].emplace<std::string>(name);
    if (watts) row.values[1].emplace<Power>(Power{*watts, 0});
    row.values[2].emplace<std::int64_t>(level);
    row.values[3].emplace<std::string>(category);
    return row;
  }
};

}  // namespace vt::tools

#endif  // VT_TESTS_TOOL_WATCH_ROWS_H_
