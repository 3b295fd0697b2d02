// The command line as the parser reads it: the commands, their options, and what was given.
#ifndef VT_TOOLS_COMMAND_LINE_H_
#define VT_TOOLS_COMMAND_LINE_H_

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

#include "tools/command.h"
#include "tools/command_action.h"
#include "tools/configuration.h"
#include "tools/live_options.h"

namespace vt::tools {

// RawOptions is what the command line says besides the settings, word for word.
struct RawOptions {
  int verbose = 0;
  bool quiet = false;
  std::vector<std::string> names, roles, keywords, ids, categories;
  std::vector<std::string> attributes, listed_attributes;  // operands, and behind --attribute
  std::vector<std::string> assignments;
  bool dry_run = false;
  bool yes = false;
  std::optional<unsigned> max_devices;
  std::string output_file;
  bool anonymize = false;
  RawLiveOptions live;

  // named_attributes are both kinds.
  std::vector<std::string> named_attributes() const;
};

// CommandLine is the parser with all commands. It stays where it is: the parser points into it.
class CommandLine {
 public:
  CommandLine();
  ~CommandLine() = default;
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  // Parse returns false when the command line asked for help or the version only, which have then
  // been printed. It throws Failure (usage).
  bool Parse(int argc, const char* const* argv);

  // Names tells whether a command was named, also on a line that could not be read.
  bool Names(Command command) const;

  // What was given, after Parse.
  const RawOptions& raw() const { return raw_; }
  Action& action() { return action_; }  // of a command that asks no node; empty for the others

  // command is the one that asks nodes, when there is no action.
  Command command() const;

  // sources is what the settings of command are made of. It throws Failure (usage) for a flag in
  // front of the command that would have no effect on it.
  ConfigurationSources sources() const;

  // action_sources is the same for a command that asks no node, which takes over the flags in front
  // that it has itself.
  ConfigurationSources action_sources();

 private:
  RawOptions raw_;
  Action action_;
  CLI::App app_;
  std::vector<CLI::App*> commands_;  // that ask nodes, in the order of enum Command
};

}  // namespace vt::tools

#endif  // VT_TOOLS_COMMAND_LINE_H_
