// The command set, in two rounds: a collect that tells which devices are concerned, and then, when
// these are as many and as wanted, the set itself, once.
#ifndef VT_TOOLS_SET_COMMAND_H_
#define VT_TOOLS_SET_COMMAND_H_

#include "tools/options.h"

namespace vt::tools {

// RunSet returns the exit code; what was set is told on standard error. It throws Failure, also
// where nothing was set because nobody confirmed it or too many devices are concerned, and
// NoReader.
int RunSet(const Options& options);

}  // namespace vt::tools

#endif  // VT_TOOLS_SET_COMMAND_H_
