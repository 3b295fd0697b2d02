#include "tools/config_command.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "vtapi.hpp"

#include "recording/quoted_text.h"
#include "tools/configuration.h"
#include "tools/identities.h"
#include "tools/json_text.h"
#include "tools/key_material.h"
#include "tools/printable.h"
#include "tools/setting_options.h"
#include "tools/target_file.h"

namespace vt::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kConfigHelp =
    R"(Examples:
  voltaris config check
  voltaris config show --origin --config examples/config.toml --profile night

A setting comes from the flag --NAME, else from the variable VOLTARIS_NAME, else
from $XDG_CONFIG_HOME/voltaris/config.toml (~/.config without that variable),
else from /etc/voltaris/config.toml. --config FILE, or VOLTARIS_CONFIG, reads
that file instead of both. In a file, what stands in [profiles.NAME] comes
before what stands outside when the profile was chosen: with --profile,
VOLTARIS_PROFILE, or profile = "NAME" in a file.
)";

// CheckReferences reads the files that the settings name.
void CheckReferences(const Configuration& configuration, const ConfigurationSources& sources) {
  if (const auto key_file = configuration.Text("key-file")) (void)ReadKeyFile(*key_file);
  if (const auto id_file = configuration.Text("id-file")) (void)ReadIdentityFile(*id_file);
  if (const auto targets = configuration.Text("targets")) {
    (void)ReadTargetFile(*targets, HomeOf(sources));
  }
}

ExitCode Check(const ConfigurationSources& sources, const Streams& streams) {
  const Configuration configuration = Configuration::Load(sources);
  CheckReferences(configuration, sources);
  for (const std::string& file : configuration.files()) {
    streams.out << Printable(file) << ": right\n";
  }
  if (configuration.files().empty()) streams.out << "there is no configuration file\n";
  return kExitOk;
}

// ValueText is the value as a configuration file would have it.
std::string ValueText(const Setting& setting, const SettingValue& value) {
  switch (setting.kind) {
    case SettingKind::kNumber:
    case SettingKind::kSeconds:
    case SettingKind::kFlag:
      return value.items[0];
    case SettingKind::kTexts:
      break;
    case SettingKind::kText:
    case SettingKind::kPath:
    case SettingKind::kWord:
      return recording::Quote(value.items[0]);
  }
  std::string list = "[";
  for (const std::string& item : value.items) {
    list += (list.size() > 1 ? ", " : "") + recording::Quote(item);
  }
  return list + "]";
}

void ShowForPeople(const Configuration& configuration, bool origin, std::ostream& out) {
  if (!configuration.profile().empty()) {
    out << "profile = " << recording::Quote(configuration.profile()) << '\n';
  }
  for (const Setting& setting : AllSettings()) {
    const SettingValue& value = configuration.Get(setting.name);
    if (value.items.empty()) {
      out << "# " << setting.name << " is not set\n";
      continue;
    }
    out << setting.name << " = " << ValueText(setting, value);
    if (origin) out << "  # " << Printable(value.origin.text());
    out << '\n';
  }
}

Json OriginJson(const Origin& origin) {
  Json json = {{"text", origin.text()}};
  if (origin.source != Origin::Source::kPreset) json["name"] = origin.name;
  if (origin.source != Origin::Source::kFile) return json;
  json["line"] = origin.line;
  json["column"] = origin.column;
  if (!origin.profile.empty()) json["profile"] = origin.profile;
  return json;
}

Json ValueJson(const Setting& setting, const SettingValue& value) {
  if (value.items.empty()) return nullptr;
  switch (setting.kind) {
    case SettingKind::kTexts:
      return value.items;
    case SettingKind::kFlag:
      return value.items[0] == "true";
    case SettingKind::kNumber:
      return std::stoll(value.items[0]);
    case SettingKind::kSeconds:
      return std::stod(value.items[0]);
    case SettingKind::kText:
    case SettingKind::kPath:
    case SettingKind::kWord:
      break;
  }
  return value.items[0];
}

void ShowForPrograms(const Configuration& configuration, bool origin, std::ostream& out) {
  Json settings = Json::object();
  for (const Setting& setting : AllSettings()) {
    const SettingValue& value = configuration.Get(setting.name);
    Json members = {{"value", ValueJson(setting, value)}};
    if (origin && !value.items.empty()) members["origin"] = OriginJson(value.origin);
    settings[std::string(setting.name)] = std::move(members);
  }
  const Json profile =
      configuration.profile().empty() ? Json(nullptr) : Json(configuration.profile());
  const Json document = {{"schema", "voltaris-config-1"},
                         {"files", configuration.files()},
                         {"profile", profile},
                         {"settings", std::move(settings)}};
  out << JsonDocument(document);
}

ExitCode Show(const ConfigurationSources& sources, bool origin, const Streams& streams) {
  const Configuration configuration = Configuration::Load(sources);
  // What other commands print is a setting like the others; only the flag is meant for this one.
  const std::string format = configuration.Text("output").value_or("");
  if (!configuration.IsFromFlag("output") || format == "table") {
    ShowForPeople(configuration, origin, streams.out);
  } else if (format == "json") {
    ShowForPrograms(configuration, origin, streams.out);
  } else {
    throw Failure(kExitUsage, "the configuration is shown as table or json, not as " + format);
  }
  return kExitOk;
}

}  // namespace

void AddConfigCommand(CLI::App& app, Action& chosen) {
  CLI::App* config = app.add_subcommand("config", "Checks and shows the configuration.");
  config->footer(kConfigHelp);
  config->require_subcommand(1);
  CLI::App* check = config->add_subcommand(
      "check", "Checks the configuration files, and the files that they name.");
  check->footer(
      "Examples:\n  voltaris config check\n  voltaris config check --config "
      "examples/config.toml\n\n"
      "Exit codes: 0 all is right; 2 something is wrong, told with line and column.\n");
  AddSettingOptions(*check);
  check->callback([check, &chosen] {
    chosen = [sources = SourcesGiven(*check)](const Streams& streams) {
      return Check(sources, streams);
    };
  });
  CLI::App* show = config->add_subcommand("show", "Shows the settings that would be used.");
  show->footer(
      "Examples:\n  voltaris config show --origin\n"
      "  voltaris config show --config examples/config.toml --profile night -o json\n");
  AddSettingOptions(*show);
  const auto origin = std::make_shared<bool>(false);
  const std::string meaning = "tell of each setting where it comes from";
  show->add_flag("--origin", *origin, meaning);
  show->callback([show, origin, &chosen] {
    chosen = [sources = SourcesGiven(*show), origin](const Streams& streams) {
      return Show(sources, *origin, streams);
    };
  });
}

}  // namespace vt::tools
