// Numbers of things in sentences.
#ifndef VT_TOOLS_COUNTED_H_
#define VT_TOOLS_COUNTED_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace vt::tools {

// Counted is such as "1 entity" or "2 entities".
inline std::string Counted(std::size_t count, std::string_view noun, std::string_view nouns) {
  return std::to_string(count).append(" ").append(count == 1 ? noun : nouns);
}

// Counted is such as "1 row" or "2 rows".
inline std::string Counted(std::size_t count, const std::string& noun) {
  return Counted(count, noun, noun + "s");
}

}  // namespace vt::tools

#endif  // VT_TOOLS_COUNTED_H_
