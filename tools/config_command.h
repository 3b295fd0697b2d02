// voltaris config: checks and shows the configuration.
#ifndef VT_TOOLS_CONFIG_COMMAND_H_
#define VT_TOOLS_CONFIG_COMMAND_H_

#include <CLI/CLI.hpp>

#include "tools/command_action.h"

namespace vt::tools {

// AddConfigCommand adds it to the parser, which sets chosen when the command was named.
void AddConfigCommand(CLI::App& app, Action& chosen);

}  // namespace vt::tools

#endif  // VT_TOOLS_CONFIG_COMMAND_H_
