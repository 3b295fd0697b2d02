// The settings that flags, the environment and configuration files may give: one table, from which
// the flags are made, the files are checked and `config show` is printed.
#ifndef VT_TOOLS_SETTINGS_H_
#define VT_TOOLS_SETTINGS_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vt::tools {

// SettingKind is the form of a value.
enum class SettingKind {
  kText,
  kTexts,    // a list: with commas in flags and in the environment
  kPath,     // of a file; in a configuration file relative to the folder of that file
  kNumber,   // whole
  kSeconds,  // with or without a fraction
  kFlag,     // true or false
  kWord,     // one of some words
};

// Setting is a row of the table. The flag is --name, the variable VOLTARIS_NAME with underscores,
// the member of a file name.
struct Setting {
  std::string_view name;
  char letter;  // of the short flag, or 0
  SettingKind kind;
  double least;             // of numbers and seconds
  double most;              // likewise
  std::string_view words;   // of kWord, with '|' in between
  std::string_view preset;  // what holds when nobody says otherwise; empty for nothing
  std::string_view type_name;
  std::string_view meaning;
  bool shapes_output = false;  // is of no use to a command that prints no table
};

// AllSettings lists them in the order in which they are shown.
std::span<const Setting> AllSettings();

// FindSetting returns the setting of that name, or null.
const Setting* FindSetting(std::string_view name);

// VariableOf is the name of the variable of the environment.
std::string VariableOf(const Setting& setting);

// SplitList parts a value of kTexts at its commas; those inside of brackets stay.
std::vector<std::string> SplitList(std::string_view list);

// FaultOf tells what is wrong with a value, such as "must be a whole number from 1 to 65535"; empty
// when it is right.
std::string FaultOf(const Setting& setting, const std::vector<std::string>& items);

}  // namespace vt::tools

#endif  // VT_TOOLS_SETTINGS_H_
