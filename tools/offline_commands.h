// The commands that ask no node: nodes, attrs, decode, key, id, config and
// completion.
#ifndef VT_TOOLS_OFFLINE_COMMANDS_H_
#define VT_TOOLS_OFFLINE_COMMANDS_H_

#include <CLI/CLI.hpp>

#include "tools/command_action.h"

namespace vt::tools {

// AddOfflineCommands adds them to the parser. When it has read a command line that names one of
// them, chosen is what to do; chosen has to live as long as app.
void AddOfflineCommands(CLI::App& app, Action& chosen);

}  // namespace vt::tools

#endif  // VT_TOOLS_OFFLINE_COMMANDS_H_
