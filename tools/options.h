// The command line of voltaris, checked and completed from the environment and from configuration
// files.
#ifndef VT_TOOLS_OPTIONS_H_
#define VT_TOOLS_OPTIONS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vtapi.hpp"

#include "tools/attributes.h"
#include "tools/check_options.h"
#include "tools/command.h"
#include "tools/command_action.h"
#include "tools/console.h"
#include "tools/output_options.h"
#include "tools/repeat_options.h"
#include "tools/target.h"
#include "tools/watch_order.h"

namespace vt::tools {

// Assignment is one attribute=value of the set command.
struct Assignment {
  const Attribute* attribute;
  std::string value;
};

struct Options {
  // What to do instead of asking a node; nothing of the rest counts then.
  Action action;

  Command command = Command::kCollect;
  std::vector<Target> targets;  // at least one
  // For all targets that do not have their own.
  std::string domain = "default";
  std::uint8_t priority = 100;
  std::optional<std::string> key_file;
  std::optional<std::string> id_file;

  std::chrono::milliseconds connect_timeout = std::chrono::seconds(5);
  std::chrono::seconds device_timeout{6};                        // that devices may take, 1 to 180
  std::chrono::milliseconds timeout = std::chrono::seconds(60);  // for everything
  unsigned retries = 0;
  std::uint32_t fanout = 256;

  ConsoleSettings console;
  When progress = When::kAuto;

  // What selects the devices; several of one kind are alternatives.
  std::vector<std::string> names;
  std::vector<std::string> roles;
  std::vector<std::string> keywords;  // lists with commas
  std::vector<std::string> ids;       // 32 characters each
  std::vector<voltaris::Category> categories;

  std::vector<const Attribute*> attributes;  // to be read, in the order of the values of a row
  std::vector<Assignment> assignments;       // to be set
  OutputOptions output;

  // Of set alone.
  bool dry_run = false;
  bool yes = false;                        // do not ask
  std::optional<std::size_t> max_devices;  // refuse to touch more

  // Of record alone.
  std::vector<std::int32_t> recorded;      // attributes, enum vt_attribute, ascending
  std::optional<std::string> output_file;  // without one, standard output
  bool anonymize = false;

  CheckOptions check;      // of check alone
  RepeatOptions repeat;    // of ping and watch
  WatchOrder watch_order;  // of watch alone
};

// ParseOptions returns the options, or no options when the command line asked for help or the
// version only, which have then been printed. It throws Failure (usage), or CheckFailure for a
// check.
std::optional<Options> ParseOptions(int argc, const char* const* argv);

}  // namespace vt::tools

#endif  // VT_TOOLS_OPTIONS_H_
