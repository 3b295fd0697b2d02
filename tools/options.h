// The command line of voltaris, checked and completed from the environment.
#ifndef VT_TOOLS_OPTIONS_H_
#define VT_TOOLS_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vtapi.hpp"

#include "tools/attributes.h"

namespace vt::tools {

enum class Command { kCollect, kSet, kSum, kRecord };
enum class Format { kTable, kJson, kCsv };

// Assignment is one attribute=value of the set command.
struct Assignment {
  const Attribute* attribute;
  std::string value;
};

struct Options {
  Command command = Command::kCollect;
  std::string host = "127.0.0.1";
  std::uint16_t port = 7440;
  std::string domain = "default";
  std::uint8_t priority = 100;
  std::uint8_t timeout_seconds = 6;
  std::optional<std::string> key_file;
  std::optional<std::string> identity;  // 36 characters
  std::uint32_t log_level = 3;

  // What selects the devices; several of one kind are alternatives.
  std::vector<std::string> names;
  std::vector<std::string> roles;
  std::vector<std::string> keywords;
  std::vector<std::string> ids;  // 32 characters each
  std::vector<voltaris::Category> categories;

  std::vector<const Attribute*> attributes;  // to be read, in the order of the columns
  std::vector<Assignment> assignments;       // to be set
  Format format = Format::kTable;

  // Of record alone.
  std::vector<std::int32_t> recorded;      // attributes, enum vt_attribute, ascending
  std::optional<std::string> output_file;  // without one, standard output
  bool anonymize = false;
};

// ParseOptions returns the options, or no options when the command line asked for help or the
// version only, which have then been printed. It throws Failure (usage).
std::optional<Options> ParseOptions(int argc, const char* const* argv);

// CommandName is the name of the subcommand.
std::string CommandName(Command command);

}  // namespace vt::tools

#endif  // VT_TOOLS_OPTIONS_H_
