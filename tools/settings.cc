#include "tools/settings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>

namespace vt::tools {
namespace {

using enum SettingKind;

constexpr double kLongestWait = 86400;

constexpr std::array kSettings = {
    Setting{"node", 'n', kTexts, 0, 0, "", "127.0.0.1", "NODE[,NODE..]",
            "nodes to ask: names, ranges like pdu[01-40].lab, or @GROUP of --targets"},
    Setting{"targets", 'N', kPath, 0, 0, "", "", "FILE", "file that lists nodes"},
    Setting{"port", 'p', kNumber, 1, 65535, "", "7440", "PORT",
            "TCP port of nodes that are named without one"},
    Setting{"domain", 'd', kText, 0, 0, "", "default", "TEXT", "domain of the devices"},
    Setting{"priority", 0, kNumber, 0, 255, "", "100", "N", "priority of queries"},
    Setting{"key-file", 'k', kPath, 0, 0, "", "", "FILE",
            "file with the key: 20 raw bytes or 40 hexadecimal digits; nobody but its owner may "
            "open it"},
    Setting{"id-file", 0, kPath, 0, 0, "", "", "FILE",
            "file with the 36 characters that name the sender; without it they are made afresh"},
    Setting{"output", 'o', kWord, 0, 0, "table|json|ndjson|csv|prom", "table", "FORMAT",
            "form of the output", true},
    Setting{"columns", 0, kTexts, 0, 0, "", "", "NAME[,NAME..]",
            "columns of the table or of CSV: node, status, device, entity, and attributes, which "
            "are asked for",
            true},
    Setting{"no-header", 0, kFlag, 0, 0, "", "false", "", "a table or CSV without its first line",
            true},
    Setting{"short-ids", 0, kFlag, 0, 0, "", "false", "",
            "shorten identities in the table to what tells them apart", true},
    Setting{"sort", 0, kText, 0, 0, "", "", "NAME[:desc]",
            "sort rows by a column; :desc for the greatest first", true},
    Setting{"connect-timeout", 0, kSeconds, 0.001, kLongestWait, "", "5", "SECONDS",
            "how long a connection may take, and before it all names"},
    Setting{"device-timeout", 0, kNumber, 1, 180, "", "6", "SECONDS",
            "how long devices may take; voltaris waits 2 more"},
    Setting{"timeout", 't', kSeconds, 0.001, kLongestWait, "", "60", "SECONDS",
            "how long all of it may take"},
    Setting{"retries", 0, kNumber, 0, 100, "", "0", "N",
            "further attempts with nodes that told nothing; a set has none"},
    Setting{"fanout", 'F', kNumber, 1, 65536, "", "256", "N", "nodes that are asked at once"},
    Setting{"log-format", 0, kWord, 0, 0, "text|json", "text", "FORMAT",
            "form of what goes to standard error"},
    Setting{"color", 0, kWord, 0, 0, "auto|always|never", "auto", "WHEN",
            "use colours, with auto on terminals alone"},
    Setting{"progress", 0, kWord, 0, 0, "auto|never", "auto", "WHEN",
            "tell how far it is, with auto on terminals alone"},
};

template <class Number>
std::optional<Number> Parse(const std::string& text) {
  Number number{};
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

bool IsBetween(double number, const Setting& setting) {
  // Written so that "not a number" is none.
  return number >= setting.least && number <= setting.most;
}

std::string NumberText(double number) {
  std::array<char, 32> text{};
  const auto result = std::to_chars(text.data(), text.data() + text.size(), number);
  return {text.data(), result.ptr};
}

std::string Range(const Setting& setting) {
  return " from " + NumberText(setting.least) + " to " + NumberText(setting.most);
}

bool IsOneOf(std::string_view word, std::string_view words) {
  for (std::size_t start = 0; start <= words.size();) {
    const std::size_t end = std::min(words.find('|', start), words.size());
    if (words.substr(start, end - start) == word) return true;
    start = end + 1;
  }
  return false;
}

std::string WithCommas(std::string_view words) {
  std::string list;
  for (const char letter : words) {
    if (letter == '|') {
      list += ", ";
    } else {
      list += letter;
    }
  }
  return list;
}

std::string FaultOfNumber(const Setting& setting, const std::string& text) {
  const auto number = Parse<std::int64_t>(text);
  if (number && IsBetween(static_cast<double>(*number), setting)) return {};
  return "must be a whole number" + Range(setting);
}

std::string FaultOfSeconds(const Setting& setting, const std::string& text) {
  const auto number = Parse<double>(text);
  if (number && IsBetween(*number, setting)) return {};
  return "must be a number of seconds" + Range(setting);
}

std::string FaultOfForm(const Setting& setting, const std::string& text) {
  switch (setting.kind) {
    case kNumber:
      return FaultOfNumber(setting, text);
    case kSeconds:
      return FaultOfSeconds(setting, text);
    case kFlag:
      return text == "true" || text == "false" ? "" : "must be true or false";
    default:
      return IsOneOf(text, setting.words) ? "" : "must be one of " + WithCommas(setting.words);
  }
}

bool IsFree(SettingKind kind) { return kind == kText || kind == kTexts || kind == kPath; }

std::string FaultOfText(const std::vector<std::string>& items) {
  const auto is_wrong = [](const std::string& item) {
    return item.empty() || item.find('\0') != std::string::npos;
  };
  return std::ranges::any_of(items, is_wrong) ? "must not be empty" : "";
}

}  // namespace

std::span<const Setting> AllSettings() { return kSettings; }

const Setting* FindSetting(std::string_view name) {
  const auto* const found = std::ranges::find(kSettings, name, &Setting::name);
  return found == kSettings.end() ? nullptr : found;
}

std::string VariableOf(const Setting& setting) {
  std::string variable = "VOLTARIS_";
  for (const char letter : setting.name) {
    const bool is_small = letter >= 'a' && letter <= 'z';
    variable += is_small ? static_cast<char>(letter - 'a' + 'A') : '_';
  }
  return variable;
}

std::vector<std::string> SplitList(std::string_view list) {
  std::vector<std::string> items;
  bool inside = false;
  std::string item;
  for (const char letter : list) {
    if (letter == '[') inside = true;
    if (letter == ']') inside = false;
    if (letter != ',' || inside) {
      item += letter;
      continue;
    }
    items.push_back(std::move(item));
    item.clear();
  }
  items.push_back(std::move(item));
  return items;
}

std::string FaultOf(const Setting& setting, const std::vector<std::string>& items) {
  if (items.size() != 1 && setting.kind != kTexts) return "must be given once";
  if (IsFree(setting.kind)) return FaultOfText(items);
  const std::string fault = FaultOfForm(setting, items[0]);
  return fault.empty() ? fault : fault + ", not '" + items[0] + "'";
}

}  // namespace vt::tools
