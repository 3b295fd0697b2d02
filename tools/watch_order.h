// By what the rows of a watch are sorted.
#ifndef VT_TOOLS_WATCH_ORDER_H_
#define VT_TOOLS_WATCH_ORDER_H_

#include <string>

namespace vt::tools {

enum class WatchColumn { kDevice, kName, kLevel, kUsage, kChange };

// WatchOrder begins by node, device and entity, which also decide between equal rows.
struct WatchOrder {
  WatchColumn column = WatchColumn::kDevice;
  bool descending = false;

  friend bool operator==(const WatchOrder&, const WatchOrder&) = default;
};

// ParseWatchOrder reads NAME or NAME:desc. It throws Failure (usage).
WatchOrder ParseWatchOrder(const std::string& text);

}  // namespace vt::tools

#endif  // VT_TOOLS_WATCH_ORDER_H_
