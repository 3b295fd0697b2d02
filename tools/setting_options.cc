#include "tools/setting_options.h"

#include <string>
#include <string_view>

#include "arguments/repeatable.h"

namespace vt::tools {
namespace {

std::string FlagNames(const Setting& setting) {
  const std::string long_name = "--" + std::string(setting.name);
  return setting.letter == 0 ? long_name : std::string{'-', setting.letter, ','} + long_name;
}

std::string Meaning(const Setting& setting) {
  std::string meaning(setting.meaning);
  std::string words(setting.words);
  for (std::size_t at = words.find('|'); at != std::string::npos; at = words.find('|', at)) {
    words.replace(at, 1, ", ");
  }
  if (!words.empty()) meaning += ": " + words;
  if (setting.kind == SettingKind::kFlag || setting.preset.empty()) return meaning;
  const bool is_text = setting.kind == SettingKind::kText;
  const std::string quote = is_text ? "\"" : "";
  return meaning + " (default " + quote + std::string(setting.preset) + quote + ")";
}

// The parser keeps what was given; Configuration checks it, as it checks what comes from elsewhere.
void AddOption(CLI::App& app, const std::string& names, std::string_view type_name,
               const std::string& meaning) {
  arguments::Repeatable(app.add_option(names, meaning), std::string(type_name));
}

void TakeOver(const CLI::App& app, std::string_view name, ConfigurationSources& sources) {
  const CLI::Option* option = app.get_option_no_throw("--" + std::string(name));
  if (option == nullptr || option->count() == 0) return;
  // A flag without a value has been counted; what is kept of it is "true".
  sources.flags.emplace(name, option->results());
}

}  // namespace

void AddSettingOptions(CLI::App& app, OutputSettings output) {
  for (const Setting& setting : AllSettings()) {
    if (setting.shapes_output && output == OutputSettings::kLeftOut) continue;
    if (setting.kind == SettingKind::kFlag) {
      const std::string meaning(setting.meaning);
      app.add_flag(FlagNames(setting), meaning);
    } else {
      AddOption(app, FlagNames(setting), setting.type_name, Meaning(setting));
    }
  }
  // Some commands have another option with this letter.
  const bool is_free = app.get_option_no_throw("-c") == nullptr;
  AddOption(app, is_free ? "-c,--config" : "--config", "FILE",
            "configuration file, instead of the user's and the system's");
  AddOption(app, "--profile", "NAME", "profile of the configuration files");
}

ConfigurationSources SourcesGiven(const CLI::App& app, OutputSettings output) {
  ConfigurationSources sources;
  sources.environment = EnvironmentOfProcess();
  for (const CLI::App* level = &app; level != nullptr; level = level->get_parent()) {
    for (const Setting& setting : AllSettings()) {
      // The command may have a flag of that name that means something else.
      if (setting.shapes_output && output == OutputSettings::kLeftOut) continue;
      TakeOver(*level, setting.name, sources);
    }
    TakeOver(*level, "config", sources);
    TakeOver(*level, "profile", sources);
  }
  return sources;
}

}  // namespace vt::tools
