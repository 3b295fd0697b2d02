// A watch as lines of text: its sums, its nodes and its rows, for a screen or for plain output.
#ifndef VT_TOOLS_WATCH_TEXT_H_
#define VT_TOOLS_WATCH_TEXT_H_

#include <cstddef>
#include <string>
#include <vector>

#include "tools/cell_text.h"
#include "tools/watch_model.h"
#include "tools/watch_order.h"

namespace vt::tools {

// Graph is what the room to the right of the columns shows.
enum class Graph { kNone, kSparks, kBars };

struct WatchTableStyle {
  Charset charset = Charset::kUnicode;
  Graph graph = Graph::kNone;
  bool shorten = false;   // long identities, node names and names
  std::size_t width = 0;  // of a screen, 0 for what the columns need
  WatchOrder order = {};  // is marked in the heading
};

// WatchTable is the heading and some of the rows, from one on and not more than so many. Columns
// are as wide as all rows need.
std::vector<std::string> WatchTable(const std::vector<const WatchRow*>& rows, bool with_nodes,
                                    const WatchTableStyle& style, std::size_t first,
                                    std::size_t count);

// SumsText is one line, such as "consumers 1.3 kW (+20 W) of 12 entities; producers ...".
std::string SumsText(const WatchModel& model);

// NodesText is one line, such as "3 nodes, 1 failed".
std::string NodesText(const WatchModel& model);

// WatchBlock is a round as plain lines, an empty one at the end.
std::string WatchBlock(const WatchModel& model, const WatchOrder& order);

}  // namespace vt::tools

#endif  // VT_TOOLS_WATCH_TEXT_H_
