#include "arguments/help_formatter.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace vt::arguments {
namespace {

constexpr std::size_t kTerminalWidth = 80;

// Wrapped has line ends in the place of spaces, so that lines have no more than width letters where
// words allow it.
std::string Wrapped(const std::string& text, std::size_t width) {
  std::istringstream words(text);
  std::string wrapped;
  std::string word;
  std::size_t used = 0;
  while (words >> word) {
    const bool fits = used + 1 + word.size() <= width;
    if (used > 0) wrapped += fits ? ' ' : '\n';
    wrapped += word;
    used = (used > 0 && fits ? used + 1 : 0) + word.size();
  }
  return wrapped;
}

}  // namespace

HelpFormatter::HelpFormatter() {
  label("SUBCOMMAND", "COMMAND");
  label("SUBCOMMANDS", "COMMANDS");
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string name,
                                     CLI::AppFormatMode mode) const {
  return make_description(app) + make_usage(app, std::move(name)) + make_positionals(app) +
         make_subcommands(app, mode) + make_groups(app, mode) + '\n' + make_footer(app);
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
  constexpr std::size_t column = 14;
  std::string name = "  " + command->get_name();
  name.resize(std::max(column, name.size() + 1), ' ');
  return name + command->get_description() + '\n';
}

std::string HelpFormatter::make_option_desc(const CLI::Option* option) const {
  return Wrapped(option->get_description(), kTerminalWidth - get_column_width());
}

}  // namespace vt::arguments
