// voltaris key: makes, derives and checks files with keys.
#ifndef VT_TOOLS_KEY_COMMAND_H_
#define VT_TOOLS_KEY_COMMAND_H_

#include <CLI/CLI.hpp>

#include "tools/command_action.h"

namespace vt::tools {

// AddKeyCommand adds it to the parser, which sets chosen when the command was named.
void AddKeyCommand(CLI::App& app, Action& chosen);

}  // namespace vt::tools

#endif  // VT_TOOLS_KEY_COMMAND_H_
