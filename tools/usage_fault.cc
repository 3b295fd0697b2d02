#include "tools/usage_fault.h"

#include <algorithm>
#include <cstddef>

#include "tools/leading_options.h"

namespace vt::tools {
namespace {

using Words = std::vector<std::string>;

// Shorter beginnings are those of too many words.
constexpr std::size_t kLeastBeginning = 3;

// EditDistance counts the letters to be put in, taken out, replaced, or swapped with the next one.
std::size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> steps(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        steps[i][j] = i + j;
        continue;
      }
      const std::size_t differs = a[i - 1] == b[j - 1] ? 0 : 1;
      steps[i][j] =
          std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + differs});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
    }
  }
  return steps[a.size()][b.size()];
}

bool IsOption(const std::string& word) { return word.size() > 1 && word.front() == '-'; }

Words CommandsOf(const CLI::App& app) {
  Words names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    names.push_back(command->get_name());
  }
  return names;
}

Words OptionsOf(const CLI::App& app) {
  Words names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

std::string Guess(const std::string& word, const Words& words) {
  const std::string nearest = NearestWord(word, words);
  return nearest.empty() ? "" : ": did you mean " + nearest + "?";
}

std::string Joined(const Words& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

std::string CommandFault(const CLI::App& command, const Words& unknown) {
  const auto word = std::ranges::find_if_not(unknown, IsOption);
  const Words commands = CommandsOf(command);
  if (word == unknown.end()) return "a command is missing, one of " + Joined(commands);
  return "there is no command '" + *word + "'" + Guess(*word, commands);
}

std::string ExtraFault(const CLI::App& command, const Words& unknown) {
  const auto option = std::ranges::find_if(unknown, IsOption);
  if (option == unknown.end()) return "'" + unknown.front() + "' is one argument too many";
  const std::string name = option->substr(0, option->find('='));
  return "there is no option " + name + Guess(name, OptionsOf(command));
}

// RequiredFault names an operand that is missing by what may stand in its place.
std::string RequiredFault(const CLI::App& command, const CLI::ParseError& error) {
  for (const CLI::Option* option : command.get_options()) {
    const bool is_missing = option->get_positional() && option->get_required() && option->empty();
    if (is_missing) return option->get_type_name() + " is required";
  }
  return error.what();
}

// ValueFault makes "--domain needs TEXT behind it" of "--domain: 1 required TEXT missing".
std::string ValueFault(const std::string& text) {
  constexpr std::string_view before = ": 1 required ";
  constexpr std::string_view behind = " missing";
  const std::size_t middle = text.find(before);
  if (middle == std::string::npos || !text.ends_with(behind)) return text;
  std::string value = text.substr(middle + before.size());
  value.resize(value.size() - behind.size());
  return text.substr(0, middle) + " needs " + value + " behind it";
}

std::string FaultText(CLI::App& app, const CLI::App& command, const CLI::ParseError& error) {
  const Words unknown = app.remaining(true);
  const bool something_is_missing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
  if (something_is_missing && command.get_require_subcommand_min() > 0) {
    return CommandFault(command, unknown);
  }
  if (something_is_missing) return RequiredFault(command, error);
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !unknown.empty()) {
    return ExtraFault(command, unknown);
  }
  return ValueFault(error.what());
}

}  // namespace

std::string NearestWord(std::string_view word, const std::vector<std::string>& words) {
  std::string nearest;
  std::size_t least = std::max<std::size_t>(1, word.size() / 3) + 1;
  for (const std::string& candidate : words) {
    const bool begins = word.size() >= kLeastBeginning && candidate.starts_with(word);
    const std::size_t distance = begins ? 1 : EditDistance(word, candidate);
    if (distance >= least) continue;
    least = distance;
    nearest = candidate;
  }
  return nearest;
}

std::string UsageFault(CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = ChosenCommand(app);
  const std::string fault = FaultText(app, command, error);
  const std::string help = FullName(command) + " --help";
  return fault + (fault.ends_with('?') ? " See " : "; see ") + help;
}

}  // namespace vt::tools
