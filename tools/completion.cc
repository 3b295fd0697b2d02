#include "tools/completion.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "recording/attribute_lines.h"
#include "tools/attribute_catalogue.h"
#include "tools/attributes.h"
#include "tools/settings.h"

namespace vt::tools {
namespace {

using Kind = CompletedValue::Kind;
using Words = std::vector<std::string>;

Words Split(std::string_view text, char separator) {
  Words words;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(separator, start), text.size());
    words.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return words;
}

// CheckedWords are those that the parser itself lets pass. It puts them behind the name of the
// value, as in "FORMAT:{table,json}".
Words CheckedWords(const std::string& type_name) {
  const std::size_t open = type_name.find('{');
  const std::size_t end = type_name.rfind('}');
  if (open == std::string::npos || end == std::string::npos || end < open) return {};
  return Split(std::string_view(type_name).substr(open + 1, end - open - 1), ',');
}

// AttributesOf are the attributes that a command takes.
Words AttributesOf(const std::string& command) {
  Words words;
  if (command == "sum") return {"usage", "delta-vector"};
  if (command == "attrs") {
    for (const CatalogueEntry& entry : AttributeCatalogue()) words.emplace_back(entry.name);
    return words;
  }
  if (command == "record") {
    for (const auto& row : recording::RecordableAttributes()) words.emplace_back(row.word());
    return words;
  }
  for (const Attribute& attribute : AllAttributes()) words.emplace_back(attribute.name);
  return words;
}

Words SettableAttributes() {
  Words words;
  for (const Attribute& attribute : AllAttributes()) {
    if (attribute.settable) words.push_back(std::string(attribute.name) + "=");
  }
  return words;
}

Words Columns(const std::string& command) {
  if (command == "watch") return {"device", "name", "level", "usage", "change"};
  Words words = {"node", "status", "device", "entity"};
  const Words attributes = AttributesOf(command);
  words.insert(words.end(), attributes.begin(), attributes.end());
  return words;
}

Words Orders(const std::string& command) {
  Words words;
  for (const std::string& column : Columns(command)) {
    words.push_back(column);
    words.push_back(column + ":desc");
  }
  return words;
}

// TopicOf is the long name of an option, or the name of an operand.
std::string TopicOf(const CLI::Option& option) {
  return option.get_positional() ? option.get_name(true) : option.get_single_name();
}

std::string NameOfValue(const std::string& type_name) {
  const std::string name = type_name.substr(0, type_name.find_first_of(":[{"));
  return name.empty() ? "VALUE" : name;
}

// KnownValue is a value whose words the parser does not check, by the name of the option and by the
// first word of the path; of no kind when there is none.
CompletedValue KnownValue(const std::string& topic, const std::string& command, bool is_operand) {
  if (topic == "attribute") {
    return {is_operand ? Kind::kWords : Kind::kList, "ATTRIBUTE", AttributesOf(command)};
  }
  if (topic == "assignment") return {Kind::kWords, "ATTRIBUTE=VALUE", SettableAttributes()};
  if (topic == "category") {
    return {Kind::kWords, "CATEGORY", {"consumer", "producer", "meter", "any"}};
  }
  if (topic == "columns") return {Kind::kList, "COLUMN", Columns(command)};
  if (topic == "sort") return {Kind::kWords, "COLUMN", Orders(command)};
  if (topic == "on-failure") {
    return {Kind::kWords, "STATE", {"ok", "warning", "critical", "unknown"}};
  }
  if (topic == "output" && command == "ping") return {Kind::kWords, "FORMAT", {"table", "json"}};
  return {};
}

CompletedValue ValueOf(const CLI::Option& option, const std::string& command) {
  if (option.get_items_expected_max() == 0) return {};
  const std::string type_name = option.get_type_name();
  const std::string name = NameOfValue(type_name);
  const Words checked = CheckedWords(type_name);
  if (!checked.empty()) return {Kind::kWords, name, checked};
  CompletedValue known = KnownValue(TopicOf(option), command, option.get_positional());
  if (known.kind != Kind::kNone) return known;
  if (type_name.starts_with("FILE")) return {Kind::kFile, name, {}};
  const Setting* const setting = FindSetting(TopicOf(option));
  if (setting != nullptr && !setting->words.empty()) {
    return {Kind::kWords, name, Split(setting->words, '|')};
  }
  return {Kind::kAny, name, {}};
}

bool IsRepeatable(const CLI::Option& option) {
  if (const Setting* const setting = FindSetting(TopicOf(option))) {
    return setting->kind == SettingKind::kTexts;
  }
  const bool counts = option.get_items_expected_max() == 0 && option.check_sname("v");
  return counts || option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
}

CompletedOption OptionOf(const CLI::Option& option, const std::string& command) {
  CompletedOption completed;
  for (const std::string& name : option.get_snames()) completed.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) completed.names.push_back("--" + name);
  completed.meaning = option.get_description();
  completed.value = ValueOf(option, command);
  completed.is_repeatable = IsRepeatable(option);
  return completed;
}

CompletedCommand CommandOf(const CLI::App& app, const std::string& path) {
  CompletedCommand completed;
  completed.path = path;
  completed.meaning = app.get_description();
  const std::string first = path.substr(0, path.find(' '));
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_positional()) {
      completed.options.push_back(OptionOf(*option, first));
    } else if (completed.operands.kind == Kind::kNone) {
      completed.operands = ValueOf(*option, first);
    }
  }
  const auto all = [](const CLI::App* /*command*/) { return true; };
  for (const CLI::App* command : app.get_subcommands(all)) {
    const std::string below = path.empty() ? "" : path + " ";
    completed.commands.push_back(CommandOf(*command, below + command->get_name()));
  }
  return completed;
}

}  // namespace

CompletedCommand CompletedCommandOf(const CLI::App& app) { return CommandOf(app, ""); }

}  // namespace vt::tools
