// The settings of one run and where each comes from: a flag, the environment, a configuration file
// or the program itself, in this order.
#ifndef VT_TOOLS_CONFIGURATION_H_
#define VT_TOOLS_CONFIGURATION_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/settings.h"

namespace vt::tools {

// Origin is where a value comes from.
struct Origin {
  enum class Source { kPreset, kFlag, kVariable, kFile };

  Source source = Source::kPreset;
  std::string name;        // the flag, the variable or the path of the file
  std::uint32_t line = 0;  // of a file, from 1
  std::uint32_t column = 0;
  std::string profile;  // of a file: the profile, empty for what holds in all of them

  // text is such as "--domain", "VOLTARIS_DOMAIN", "/etc/voltaris/config.toml:3:10" or "preset".
  std::string text() const;
};

// SettingValue is empty when nobody gave one and there is no preset.
struct SettingValue {
  std::vector<std::string> items;
  Origin origin;
};

// ConfigurationSources is all that the configuration is made of.
struct ConfigurationSources {
  // Flags by the names of their settings, with "config" and "profile" besides.
  std::map<std::string, std::vector<std::string>, std::less<>> flags;
  std::map<std::string, std::string, std::less<>> environment;
  std::string system_file = "/etc/voltaris/config.toml";
};

// HomeOf is the user's folder, which paths with ~/ begin in; empty when it is not known.
std::string HomeOf(const ConfigurationSources& sources);

// EnvironmentOfProcess is the environment as ConfigurationSources takes it.
std::map<std::string, std::string, std::less<>> EnvironmentOfProcess();

// Configuration holds a checked value for every setting.
class Configuration {
 public:
  // Load reads the files: the one that --config or VOLTARIS_CONFIG names, which has to be there, or
  // $XDG_CONFIG_HOME/voltaris/config.toml and behind it the system's. Of a file, the tables of the
  // chosen profile come before what stands outside of them. All that is wrong is thrown together,
  // as one Failure (usage) with a line for each fault.
  static Configuration Load(const ConfigurationSources& sources);

  // Get returns the value of a setting of the table; the name of no setting ends the program.
  const SettingValue& Get(std::string_view name) const;

  // The value of a setting of that kind, as it is used. Those of settings that may be empty return
  // nothing then.
  std::optional<std::string> Text(std::string_view name) const;
  const std::vector<std::string>& Texts(std::string_view name) const { return Get(name).items; }
  std::int64_t Number(std::string_view name) const;
  std::optional<std::chrono::milliseconds> Wait(std::string_view name) const;
  bool Flag(std::string_view name) const;

  bool IsFromFlag(std::string_view name) const {
    return Get(name).origin.source == Origin::Source::kFlag;
  }

  const std::string& profile() const { return profile_; }  // empty for none
  const std::vector<std::string>& files() const { return files_; }

 private:
  Configuration() = default;

  std::map<std::string, SettingValue, std::less<>> values_;
  std::string profile_;
  std::vector<std::string> files_;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_CONFIGURATION_H_
