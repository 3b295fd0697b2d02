#include "tools/leading_options.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "tools/exit_code.h"
#include "tools/settings.h"

namespace vt::tools {
namespace {

constexpr std::array<std::string_view, 3> kTalk = {"log-format", "color", "progress"};

void CheckTalk(std::string_view name, const CLI::Option& given) {
  const std::string fault = FaultOf(*FindSetting(name), given.results());
  if (!fault.empty()) throw Failure(kExitUsage, given.get_name() + " " + fault);
}

void Pass(std::string_view name, const CLI::App& app, CLI::App& command) {
  const std::string flag = "--" + std::string(name);
  const CLI::Option& given = *app.get_option(flag);
  if (given.count() == 0) return;
  if (std::ranges::find(kTalk, name) != kTalk.end()) {
    CheckTalk(name, given);
    return;
  }
  CLI::Option* own = command.get_option_no_throw(flag);
  if (own == nullptr) throw Failure(kExitUsage, FullName(command) + " takes no " + flag);
  if (own->count() > 0) return;
  try {
    own->add_result(given.results());
    own->run_callback();
  } catch (const CLI::ParseError& error) {
    throw Failure(kExitUsage, error.what());
  }
}

}  // namespace

std::string FullName(const CLI::App& command) {
  const CLI::App* parent = command.get_parent();
  return (parent == nullptr ? "" : FullName(*parent) + " ") + command.get_name();
}

CLI::App& ChosenCommand(CLI::App& app) {
  CLI::App* command = &app;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
  return *command;
}

void PassLeadingOptions(const CLI::App& app, CLI::App& command) {
  for (const Setting& setting : AllSettings()) Pass(setting.name, app, command);
  for (const char* name : {"config", "profile"}) Pass(name, app, command);
}

}  // namespace vt::tools
