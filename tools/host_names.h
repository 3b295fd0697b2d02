// Names of nodes as people write them: lists and ranges such as pdu[01-40].lab, and what comes of
// them one by one.
#ifndef VT_TOOLS_HOST_NAMES_H_
#define VT_TOOLS_HOST_NAMES_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vt::tools {

// kMostNames is how many names one list may stand for: more than anybody has nodes, and little
// enough to fit into memory when a digit too many was typed.
inline constexpr std::size_t kMostNames = 65536;

// ExpandNames gives the names that a list stands for, in its order. Commas part names, and inside
// of brackets what takes their place: numbers, ranges (1-40), ranges with a step (1-40/2) and
// words. Several brackets of a name are combined, the last one turning fastest. Numbers are as wide
// as the first of their range is written: [01-40] gives 01, 02, .. 40. A list that is empty, cannot
// be read, or stands for more than kMostNames names throws Failure (usage).
std::vector<std::string> ExpandNames(std::string_view list);

// HostPort is a name with the port that may follow it.
struct HostPort {
  std::string host;
  std::optional<std::uint16_t> port;

  friend bool operator==(const HostPort&, const HostPort&) = default;
};

// SplitPort reads HOST or HOST:PORT. A host has 1 to 253 letters, digits, points, hyphens and
// underscores and does not begin with a hyphen; what is none throws Failure (usage).
HostPort SplitPort(std::string_view name);

}  // namespace vt::tools

#endif  // VT_TOOLS_HOST_NAMES_H_
