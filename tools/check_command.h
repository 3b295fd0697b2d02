// The check command: thresholds, told in the manner of monitoring plug-ins.
#ifndef VT_TOOLS_CHECK_COMMAND_H_
#define VT_TOOLS_CHECK_COMMAND_H_

#include "tools/options.h"

namespace vt::tools {

// RunCheck asks the nodes, writes the judgement to standard output and returns its state as the
// exit code. Whatever goes wrong in it is told as an unknown state. It throws NoReader, and Failure
// where standard output cannot be written.
int RunCheck(const Options& options);

// TellCheckFailure does the same for a check that could not begin.
int TellCheckFailure(const CheckFailure& failure);

}  // namespace vt::tools

#endif  // VT_TOOLS_CHECK_COMMAND_H_
