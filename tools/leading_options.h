// Options that stand in front of a command: voltaris -k FILE decode. The commands that ask nodes
// take them as settings; those that ask none take what they have an option for themselves, and
// refuse the rest instead of leaving it without effect.
#ifndef VT_TOOLS_LEADING_OPTIONS_H_
#define VT_TOOLS_LEADING_OPTIONS_H_

#include <CLI/CLI.hpp>

#include <string>

namespace vt::tools {

// ChosenCommand is the command that was named, the innermost.
CLI::App& ChosenCommand(CLI::App& app);

// PassLeadingOptions gives command, once app has been parsed, what was given to app in front of it
// and not to it. It throws Failure for what command does not take, but for how messages are told,
// which holds for all commands.
void PassLeadingOptions(const CLI::App& app, CLI::App& command);

// FullName is what one types for a command, such as "voltaris key generate".
std::string FullName(const CLI::App& command);

}  // namespace vt::tools

#endif  // VT_TOOLS_LEADING_OPTIONS_H_
