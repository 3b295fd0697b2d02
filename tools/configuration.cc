#include "tools/configuration.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <list>
#include <utility>

#include "recording/quoted_text.h"
#include "tools/exit_code.h"
#include "tools/toml_file.h"

namespace vt::tools {
namespace {

using enum SettingKind;
using Strings = std::vector<std::string>;

constexpr std::string_view kConfigVariable = "VOLTARIS_CONFIG";
constexpr std::string_view kProfileVariable = "VOLTARIS_PROFILE";

// VariableIn is the value of a variable; one that is empty counts as none.
std::optional<std::string> VariableIn(const ConfigurationSources& sources, std::string_view name) {
  const auto found = sources.environment.find(name);
  if (found == sources.environment.end() || found->second.empty()) return std::nullopt;
  return found->second;
}

std::optional<std::string> FlagIn(const ConfigurationSources& sources, std::string_view name) {
  const auto found = sources.flags.find(name);
  if (found == sources.flags.end() || found->second.empty()) return std::nullopt;
  return found->second.back();
}

std::optional<std::string> UserFile(const ConfigurationSources& sources) {
  // Paths that are not absolute count as none, by the rules of the XDG base directories.
  const std::string folder = VariableIn(sources, "XDG_CONFIG_HOME").value_or("");
  if (folder.starts_with('/')) return folder + "/voltaris/config.toml";
  const std::string home = HomeOf(sources);
  if (home.empty()) return std::nullopt;
  return home + "/.config/voltaris/config.toml";
}

Strings FilesToRead(const ConfigurationSources& sources) {
  if (const auto named = FlagIn(sources, "config")) return {*named};
  if (const auto named = VariableIn(sources, kConfigVariable)) return {*named};
  Strings files;
  const std::optional<std::string> user = UserFile(sources);
  if (user && TomlFile::Exists(*user)) files.push_back(*user);
  if (TomlFile::Exists(sources.system_file)) files.push_back(sources.system_file);
  return files;
}

std::string FractionText(double number) {
  std::array<char, 32> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), number);
  return {text.data(), result.ptr};
}

// ItemsOf is the value of a member as text, or nothing when it is of another form than the setting.
std::optional<Strings> ItemsOf(const Setting& setting, const toml::node& node) {
  switch (setting.kind) {
    case kNumber:
      if (const auto number = node.value_exact<std::int64_t>()) return {{std::to_string(*number)}};
      return std::nullopt;
    case kSeconds:
      if (!node.is_number()) return std::nullopt;
      return {{FractionText(node.value<double>().value_or(0))}};
    case kFlag:
      if (const auto flag = node.value_exact<bool>()) return {{*flag ? "true" : "false"}};
      return std::nullopt;
    case kText:
    case kTexts:
    case kPath:
    case kWord:
      break;
  }
  if (const auto text = node.value_exact<std::string>()) {
    return setting.kind == kTexts ? SplitList(*text) : Strings{*text};
  }
  const toml::array* list = node.as_array();
  if (list == nullptr || setting.kind != kTexts) return std::nullopt;
  Strings items;
  for (const toml::node& item : *list) {
    const auto text = item.value_exact<std::string>();
    if (!text) return std::nullopt;
    items.push_back(*text);
  }
  return items;
}

std::string FormOf(SettingKind kind) {
  switch (kind) {
    case kNumber:
      return "a whole number";
    case kSeconds:
      return "a number of seconds";
    case kFlag:
      return "true or false";
    case kTexts:
      return "a text or a list of texts";
    case kText:
    case kPath:
    case kWord:
      break;
  }
  return "a text";
}

// Whoever writes a key into a file that others may read learns where it belongs.
bool LooksSecret(std::string_view key) {
  return key == "key" || key == "passphrase" || key == "secret" || key == "password";
}

using Values = std::map<std::string, SettingValue, std::less<>>;

// FileReader reads one file: what holds always, and the profiles.
class FileReader {
 public:
  FileReader(const std::string& path, std::string home, Faults& faults)
      : file_(path, faults), home_(std::move(home)) {
    for (const auto& [key, node] : file_.top()) {
      if (key.str() == "profile") {
        chosen_ = file_.Text(file_.top(), "profile").value_or("");
      } else if (key.str() == "profiles") {
        ReadProfiles(node);
      } else {
        ReadMember(key, node, "", always_);
      }
    }
  }

  const std::string& chosen() const { return chosen_; }
  const Values& always() const { return always_; }
  const std::map<std::string, Values, std::less<>>& profiles() const { return profiles_; }

 private:
  void ReadProfiles(const toml::node& node) {
    const toml::table* tables = node.as_table();
    if (tables == nullptr) {
      file_.Report(node, "'profiles' must be a table of tables, such as [profiles.lab]");
      return;
    }
    for (const auto& [name, profile] : *tables) {
      const toml::table* members = profile.as_table();
      if (members == nullptr) {
        file_.Report(profile, "a profile must be a table, such as [profiles.lab]");
        continue;
      }
      Values& values = profiles_[std::string(name.str())];
      for (const auto& [key, member] : *members) {
        ReadMember(key, member, std::string(name.str()), values);
      }
    }
  }

  void ReadMember(const toml::key& key, const toml::node& node, const std::string& profile,
                  Values& values) {
    const Setting* setting = FindSetting(key.str());
    if (setting == nullptr) {
      file_.Report(key.source().begin,
                   "there is no setting " + recording::Quote(key.str()) +
                       (LooksSecret(key.str()) ? "; a secret stands in a file of its own, which "
                                                 "'key-file' names"
                                               : ""));
      return;
    }
    const std::string name(setting->name);
    std::optional<Strings> items = ItemsOf(*setting, node);
    const std::string fault =
        items ? FaultOf(*setting, *items) : "must be " + FormOf(setting->kind);
    if (!fault.empty()) {
      file_.Report(node, "'" + name + "' " + fault);
      return;
    }
    if (setting->kind == kPath) (*items)[0] = file_.PathFrom((*items)[0], home_);
    const toml::source_position place = node.source().begin;
    values[name] = {*std::move(items),
                    {Origin::Source::kFile, file_.path(), static_cast<std::uint32_t>(place.line),
                     static_cast<std::uint32_t>(place.column), profile}};
  }

  TomlFile file_;
  std::string home_;
  std::string chosen_;
  Values always_;
  std::map<std::string, Values, std::less<>> profiles_;
};

std::string ChooseProfile(const ConfigurationSources& sources, const std::list<FileReader>& files) {
  if (const auto flag = FlagIn(sources, "profile")) return *flag;
  if (const auto variable = VariableIn(sources, kProfileVariable)) return *variable;
  for (const FileReader& file : files) {
    if (!file.chosen().empty()) return file.chosen();
  }
  return {};
}

void CheckProfile(const std::string& profile, const std::list<FileReader>& files, Faults& faults) {
  if (profile.empty()) return;
  std::string known;
  for (const FileReader& file : files) {
    if (file.profiles().contains(profile)) return;
    for (const auto& [name, values] : file.profiles()) known += (known.empty() ? "" : ", ") + name;
  }
  faults.push_back(
      "there is no profile " + recording::Quote(profile) +
      (known.empty() ? "; no configuration file has profiles" : "; there are " + known));
}

// FromOutside is the value of a flag or of the environment, when there is one.
std::optional<SettingValue> FromOutside(const Setting& setting,
                                        const ConfigurationSources& sources) {
  const auto split = [&setting](const Strings& values) {
    if (setting.kind != kTexts) return values;
    Strings items;
    for (const std::string& value : values) {
      for (std::string& item : SplitList(value)) items.push_back(std::move(item));
    }
    return items;
  };
  const auto flag = sources.flags.find(setting.name);
  if (flag != sources.flags.end()) {
    return SettingValue{split(flag->second),
                        {Origin::Source::kFlag, "--" + std::string(setting.name), 0, 0, ""}};
  }
  const std::string variable = VariableOf(setting);
  if (const auto value = VariableIn(sources, variable)) {
    return SettingValue{split({*value}), {Origin::Source::kVariable, variable, 0, 0, ""}};
  }
  return std::nullopt;
}

SettingValue FromFiles(const Setting& setting, const std::string& profile,
                       const std::list<FileReader>& files) {
  for (const FileReader& file : files) {
    if (const auto values = file.profiles().find(profile); values != file.profiles().end()) {
      const auto value = values->second.find(setting.name);
      if (value != values->second.end()) return value->second;
    }
    const auto value = file.always().find(setting.name);
    if (value != file.always().end()) return value->second;
  }
  if (setting.preset.empty()) return {};
  return {{std::string(setting.preset)}, {}};
}

}  // namespace

std::string HomeOf(const ConfigurationSources& sources) {
  return VariableIn(sources, "HOME").value_or("");
}

std::string Origin::text() const {
  if (source == Source::kPreset) return "preset";
  if (source != Source::kFile) return name;
  return name + ":" + std::to_string(line) + ":" + std::to_string(column) +
         (profile.empty() ? "" : " (profile " + profile + ")");
}

std::map<std::string, std::string, std::less<>> EnvironmentOfProcess() {
  std::map<std::string, std::string, std::less<>> variables;
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) continue;
    variables.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  return variables;
}

Configuration Configuration::Load(const ConfigurationSources& sources) {
  Configuration made;
  made.files_ = FilesToRead(sources);
  Faults faults;
  std::list<FileReader> readers;
  for (const std::string& path : made.files_) readers.emplace_back(path, HomeOf(sources), faults);
  ThrowFaults(faults);

  made.profile_ = ChooseProfile(sources, readers);
  CheckProfile(made.profile_, readers, faults);
  for (const Setting& setting : AllSettings()) {
    std::optional<SettingValue> given = FromOutside(setting, sources);
    if (given) {
      const std::string fault = FaultOf(setting, given->items);
      if (!fault.empty()) faults.push_back(given->origin.name + " " + fault);
    }
    made.values_[std::string(setting.name)] =
        given ? *std::move(given) : FromFiles(setting, made.profile_, readers);
  }
  ThrowFaults(faults);
  return made;
}

const SettingValue& Configuration::Get(std::string_view name) const {
  const auto found = values_.find(name);
  if (found == values_.end()) std::abort();
  return found->second;
}

std::optional<std::string> Configuration::Text(std::string_view name) const {
  const Strings& items = Get(name).items;
  return items.empty() ? std::optional<std::string>() : items[0];
}

std::int64_t Configuration::Number(std::string_view name) const {
  const std::string text = Text(name).value_or("0");
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::optional<std::chrono::milliseconds> Configuration::Wait(std::string_view name) const {
  const std::optional<std::string> text = Text(name);
  if (!text) return std::nullopt;
  double seconds = 0;
  std::from_chars(text->data(), text->data() + text->size(), seconds);
  return std::chrono::milliseconds(std::llround(seconds * 1000));
}

bool Configuration::Flag(std::string_view name) const { return Text(name) == "true"; }

}  // namespace vt::tools
