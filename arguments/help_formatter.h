// The form of --help: commands before options, and no line longer than a terminal is wide.
#ifndef VT_ARGUMENTS_HELP_FORMATTER_H_
#define VT_ARGUMENTS_HELP_FORMATTER_H_

#include <CLI/CLI.hpp>

#include <string>

namespace vt::arguments {

class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter();

  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
  std::string make_subcommand(const CLI::App* command) const override;
  std::string make_option_desc(const CLI::Option* option) const override;
};

}  // namespace vt::arguments

#endif  // VT_ARGUMENTS_HELP_FORMATTER_H_
