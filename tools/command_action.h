// What a command line asks for, once it has been read: an action that is run with the streams of
// the process, or with those of a test.
#ifndef VT_TOOLS_COMMAND_ACTION_H_
#define VT_TOOLS_COMMAND_ACTION_H_

#include <functional>
#include <iosfwd>
#include <string_view>

#include "tools/exit_code.h"

namespace vt::tools {

// Streams are where a command reads, where its data goes, and who is told what went wrong, a line a
// call, which may hold anything.
struct Streams {
  std::istream& in;
  std::ostream& out;
  std::function<void(std::string_view)> complain;
};

// Action does what a command is for. It throws Failure.
using Action = std::function<ExitCode(const Streams& streams)>;

}  // namespace vt::tools

#endif  // VT_TOOLS_COMMAND_ACTION_H_
