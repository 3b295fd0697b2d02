#include "tools/host_names.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "recording/quoted_text.h"
#include "tools/exit_code.h"

namespace vt::tools {
namespace {

constexpr std::size_t kLongestHost = 253;

using Strings = std::vector<std::string>;

[[noreturn]] void Reject(std::string_view what, const std::string& why) {
  throw Failure(kExitUsage, recording::Quote(what) + " " + why);
}

[[noreturn]] void RejectTooMany(std::string_view list) {
  Reject(list, "stands for more than " + std::to_string(kMostNames) + " names");
}

// SplitOutside parts a text at commas that stand in no brackets.
std::vector<std::string_view> SplitOutside(std::string_view list) {
  std::vector<std::string_view> parts;
  bool inside = false;
  std::size_t start = 0;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (list[i] == '[' && inside) Reject(list, "has a bracket inside of brackets");
    if (list[i] == ']' && !inside) Reject(list, "closes a bracket that was not opened");
    if (list[i] == '[' || list[i] == ']') inside = !inside;
    if (list[i] != ',' || inside) continue;
    parts.push_back(list.substr(start, i - start));
    start = i + 1;
  }
  if (inside) Reject(list, "opens a bracket that is not closed");
  parts.push_back(list.substr(start));
  return parts;
}

bool IsDigits(std::string_view text) {
  return !text.empty() &&
         std::ranges::all_of(text, [](char letter) { return letter >= '0' && letter <= '9'; });
}

std::uint32_t NumberOf(std::string_view digits, std::string_view name) {
  std::uint32_t number = 0;
  const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || stop != digits.data() + digits.size()) {
    Reject(name, "has a range of what are no numbers up to 4294967295");
  }
  return number;
}

std::string Padded(std::uint32_t number, std::size_t width) {
  std::string digits = std::to_string(number);
  if (digits.size() < width) digits.insert(0, width - digits.size(), '0');
  return digits;
}

// AddRange adds first-last or first-last/step.
void AddRange(std::string_view range, std::string_view name, Strings& choices) {
  const std::size_t hyphen = range.find('-');
  const std::size_t slash = std::min(range.find('/'), range.size());
  const std::string_view first_digits = range.substr(0, hyphen);
  const std::string_view last_digits = range.substr(hyphen + 1, slash - hyphen - 1);
  const std::string_view step_digits = slash < range.size() ? range.substr(slash + 1) : "1";
  if (!IsDigits(first_digits) || !IsDigits(last_digits) || !IsDigits(step_digits)) {
    Reject(name, "has a range that is not of the form 1-40 or 1-40/2");
  }
  const std::uint32_t first = NumberOf(first_digits, name);
  const std::uint32_t last = NumberOf(last_digits, name);
  const std::uint32_t step = NumberOf(step_digits, name);
  if (step == 0) Reject(name, "has a range with a step of 0");
  if (last < first) Reject(name, "has a range that ends before it begins");
  if ((last - first) / step >= kMostNames) RejectTooMany(name);
  const std::uint32_t count = (last - first) / step + 1;
  for (std::uint32_t i = 0; i < count; ++i) {
    choices.push_back(Padded(first + i * step, first_digits.size()));
  }
}

// ChoicesOf gives what the inside of one bracket stands for. A hyphen makes a range where a digit
// stands at its side; elsewhere it is part of a word.
Strings ChoicesOf(std::string_view inside, std::string_view name) {
  Strings choices;
  for (std::size_t start = 0; start <= inside.size();) {
    const std::size_t end = std::min(inside.find(',', start), inside.size());
    const std::string_view item = inside.substr(start, end - start);
    const std::size_t hyphen = item.find('-');
    if (item.empty()) Reject(name, "has nothing where a number or a word should stand");
    if (hyphen != std::string_view::npos && IsDigits(item.substr(0, hyphen))) {
      AddRange(item, name, choices);
    } else {
      choices.emplace_back(item);
    }
    if (choices.size() > kMostNames) RejectTooMany(name);
    start = end + 1;
  }
  return choices;
}

Strings Combined(const Strings& heads, const Strings& tails, std::string_view name) {
  if (heads.size() * tails.size() > kMostNames) RejectTooMany(name);
  Strings combined;
  combined.reserve(heads.size() * tails.size());
  for (const std::string& head : heads) {
    for (const std::string& tail : tails) combined.push_back(head + tail);
  }
  return combined;
}

Strings ExpandOne(std::string_view name) {
  Strings names = {""};
  std::string_view rest = name;
  while (!rest.empty()) {
    const std::size_t open = std::min(rest.find('['), rest.size());
    for (std::string& head : names) head += rest.substr(0, open);
    rest.remove_prefix(open);
    if (rest.empty()) break;
    const std::size_t close = rest.find(']');  // there is one: the list was split at it
    names = Combined(names, ChoicesOf(rest.substr(1, close - 1), name), name);
    rest.remove_prefix(close + 1);
  }
  return names;
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool IsHostLetter(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         (letter >= '0' && letter <= '9') || letter == '.' || letter == '-' || letter == '_';
}

}  // namespace

std::vector<std::string> ExpandNames(std::string_view list) {
  Strings names;
  for (const std::string_view part : SplitOutside(list)) {
    const std::string_view name = Trimmed(part);
    if (name.empty()) Reject(list, "has nothing where the name of a node should stand");
    Strings expanded = ExpandOne(name);
    if (names.size() + expanded.size() > kMostNames) RejectTooMany(list);
    std::ranges::move(expanded, std::back_inserter(names));
  }
  return names;
}

HostPort SplitPort(std::string_view name) {
  const std::size_t colon = std::min(name.find(':'), name.size());
  const std::string_view host = name.substr(0, colon);
  HostPort split{std::string(host), std::nullopt};
  if (host.empty() || host.size() > kLongestHost || host.front() == '-' ||
      !std::ranges::all_of(host, IsHostLetter)) {
    Reject(name, "is no name or IPv4 address of a node");
  }
  if (colon == name.size()) return split;
  const std::string_view digits = name.substr(colon + 1);
  std::uint16_t port = 0;
  const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  if (error != std::errc() || stop != digits.data() + digits.size() || port == 0) {
    Reject(name, "must have a port from 1 to 65535 behind its colon");
  }
  split.port = port;
  return split;
}

}  // namespace vt::tools
