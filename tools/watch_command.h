// The watch command: collects again and again, on a screen of its own or in plain lines.
#ifndef VT_TOOLS_WATCH_COMMAND_H_
#define VT_TOOLS_WATCH_COMMAND_H_

#include "tools/options.h"

namespace vt::tools {

// RunWatch returns the exit code: that of the last round where the rounds are counted, 0 for
// whoever quits, 128 and the number for a signal. Nodes that fail do not end it. It throws NoReader
// and Failure; the terminal is as it was then, too.
int RunWatch(const Options& options);

}  // namespace vt::tools

#endif  // VT_TOOLS_WATCH_COMMAND_H_
