// The command record: what the devices tell, as a recording.
#ifndef VT_TOOLS_RECORD_COMMAND_H_
#define VT_TOOLS_RECORD_COMMAND_H_

#include "tools/options.h"

namespace vt::tools {

// RunRecord collects from the one node of the options, writes the recording when the answer is
// whole, a file as a whole or not at all, and returns the exit code. It throws Failure and
// NoReader.
int RunRecord(const Options& options);

}  // namespace vt::tools

#endif  // VT_TOOLS_RECORD_COMMAND_H_
