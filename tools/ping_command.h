// The ping command: connections and signed round trips, with the time of each phase.
#ifndef VT_TOOLS_PING_COMMAND_H_
#define VT_TOOLS_PING_COMMAND_H_

#include "tools/options.h"

namespace vt::tools {

// RunPing asks the nodes as often as the options say, writes what came of it to standard output and
// returns the exit code. It throws NoReader and Failure.
int RunPing(const Options& options);

}  // namespace vt::tools

#endif  // VT_TOOLS_PING_COMMAND_H_
