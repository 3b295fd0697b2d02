// The commands that ask nodes.
#ifndef VT_TOOLS_COMMAND_H_
#define VT_TOOLS_COMMAND_H_

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace vt::tools {

enum class Command { kCollect, kSet, kSum, kRecord, kCheck, kPing, kWatch };

// CommandName is the word for a command.
inline std::string CommandName(Command command) {
  constexpr std::array<std::string_view, 7> names = {"collect", "set",  "sum",  "record",
                                                     "check",   "ping", "watch"};
  return std::string(names[static_cast<std::size_t>(command)]);
}

}  // namespace vt::tools

#endif  // VT_TOOLS_COMMAND_H_
