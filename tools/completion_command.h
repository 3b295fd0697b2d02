// voltaris completion: scripts that make shells complete command lines of voltaris.
#ifndef VT_TOOLS_COMPLETION_COMMAND_H_
#define VT_TOOLS_COMPLETION_COMMAND_H_

#include <CLI/CLI.hpp>

#include "tools/command_action.h"

namespace vt::tools {

// AddCompletionCommand adds it to app, of which it completes all commands, also those that are
// added later. chosen is set when a command line names it.
void AddCompletionCommand(CLI::App& app, Action& chosen);

}  // namespace vt::tools

#endif  // VT_TOOLS_COMPLETION_COMMAND_H_
