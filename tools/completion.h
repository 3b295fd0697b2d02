// What a shell may complete of a command line, taken from the parser.
#ifndef VT_TOOLS_COMPLETION_H_
#define VT_TOOLS_COMPLETION_H_

#include <CLI/CLI.hpp>

#include "tools/completion_scripts.h"

namespace vt::tools {

// CompletedCommandOf reads the parser of the program, with all its subcommands.
CompletedCommand CompletedCommandOf(const CLI::App& app);

}  // namespace vt::tools

#endif  // VT_TOOLS_COMPLETION_H_
