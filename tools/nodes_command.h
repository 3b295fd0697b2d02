// voltaris nodes: lists the nodes that other commands would ask.
#ifndef VT_TOOLS_NODES_COMMAND_H_
#define VT_TOOLS_NODES_COMMAND_H_

#include <CLI/CLI.hpp>

#include "tools/command_action.h"

namespace vt::tools {

// AddNodesCommand adds it to the parser, which sets chosen when the command was named.
void AddNodesCommand(CLI::App& app, Action& chosen);

}  // namespace vt::tools

#endif  // VT_TOOLS_NODES_COMMAND_H_
