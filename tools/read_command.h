// The commands collect and sum.
#ifndef VT_TOOLS_READ_COMMAND_H_
#define VT_TOOLS_READ_COMMAND_H_

#include "tools/options.h"

namespace vt::tools {

// RunRead asks, writes what came, and returns the exit code. It throws Failure and NoReader.
int RunRead(const Options& options);

}  // namespace vt::tools

#endif  // VT_TOOLS_READ_COMMAND_H_
