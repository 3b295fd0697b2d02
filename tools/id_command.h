// voltaris id: makes identities.
#ifndef VT_TOOLS_ID_COMMAND_H_
#define VT_TOOLS_ID_COMMAND_H_

#include <CLI/CLI.hpp>

#include "tools/command_action.h"

namespace vt::tools {

// AddIdCommand adds it to the parser, which sets chosen when the command was named.
void AddIdCommand(CLI::App& app, Action& chosen);

}  // namespace vt::tools

#endif  // VT_TOOLS_ID_COMMAND_H_
