// voltaris decode: messages from hexadecimal digits, a file or a capture, made readable.
#ifndef VT_TOOLS_DECODE_COMMAND_H_
#define VT_TOOLS_DECODE_COMMAND_H_

#include <CLI/CLI.hpp>

#include "tools/command_action.h"

namespace vt::tools {

// AddDecodeCommand adds it to the parser, which sets chosen when the command was named.
void AddDecodeCommand(CLI::App& app, Action& chosen);

}  // namespace vt::tools

#endif  // VT_TOOLS_DECODE_COMMAND_H_
