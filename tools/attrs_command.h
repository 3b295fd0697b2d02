// voltaris attrs: the attributes that devices have, and what can be done with each.
#ifndef VT_TOOLS_ATTRS_COMMAND_H_
#define VT_TOOLS_ATTRS_COMMAND_H_

#include <CLI/CLI.hpp>

#include "tools/command_action.h"

namespace vt::tools {

// AddAttrsCommand adds it to the parser, which sets chosen when the command was named.
void AddAttrsCommand(CLI::App& app, Action& chosen);

}  // namespace vt::tools

#endif  // VT_TOOLS_ATTRS_COMMAND_H_
