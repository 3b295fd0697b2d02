// The script for fish: a function that tells at which command the line is, and a line for each
// option and command there.
#include "tools/completion_scripts.h"

namespace vt::tools {
namespace {

using Kind = CompletedValue::Kind;

constexpr const char* kHead =
    "# Completion of voltaris in fish, made by: voltaris completion fish\n\n";

constexpr const char* kAt = R"script(
# __voltaris_at PATH: whether the line is at that command.
function __voltaris_at
    set -l path
    set -l expects no
    set -l words (commandline -opc)
    for word in $words[2..-1]
        set -l here (string join -- ' ' $path $word)
        if test $expects = yes
            set expects no
        else if string match -q -- '-*' $word
            contains -- $here $__voltaris_valued; and set expects yes
        else if contains -- $here $__voltaris_commands
            set -a path $word
        end
    end
    test "$path" = "$argv"
end

complete -c voltaris -f
)script";

std::string Quoted(const std::string& word) {
  std::string quoted = "'";
  for (const char letter : word) {
    if (letter == '\'' || letter == '\\') quoted += '\\';
    quoted += letter;
  }
  return quoted + "'";
}

std::string Joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

std::string Candidates(const CompletedValue& value) {
  switch (value.kind) {
    case Kind::kNone:
    case Kind::kAny:
      break;
    case Kind::kFile:
      return " -F";
    case Kind::kWords:
      return " -a " + Quoted(Joined(value.words));
    case Kind::kList:
      return " -a " + Quoted("(__fish_append , " + Joined(value.words) + ")");
  }
  return "";
}

struct Script {
  std::string commands = "set -g __voltaris_commands";
  std::string valued = "set -g __voltaris_valued";
  std::string lines;
};

std::string Line(const CompletedCommand& command) {
  return "complete -c voltaris -n " + Quoted("__voltaris_at " + command.path);
}

void AddOption(const CompletedCommand& command, const CompletedOption& option, Script& script) {
  const bool has_value = option.value.kind != Kind::kNone;
  std::string line = Line(command);
  for (const std::string& name : option.names) {
    const bool is_long = name.starts_with("--");
    line += (is_long ? " -l " : " -s ") + name.substr(is_long ? 2 : 1);
    const std::string path = command.path.empty() ? "" : command.path + " ";
    if (has_value) script.valued += " " + Quoted(path + name);
  }
  const bool is_file = option.value.kind == Kind::kFile;
  if (has_value) line += (is_file ? " -r" : " -x") + Candidates(option.value);
  script.lines += line + " -d " + Quoted(option.meaning) + "\n";
}

void AddCommand(const CompletedCommand& command, Script& script) {
  for (const CompletedOption& option : command.options) AddOption(command, option, script);
  if (command.operands.kind != Kind::kNone) {
    const std::string candidates = Candidates(command.operands);
    if (!candidates.empty()) script.lines += Line(command) + candidates + "\n";
  }
  for (const CompletedCommand& below : command.commands) {
    script.commands += " " + Quoted(below.path);
    script.lines += Line(command) + " -a " + below.name() + " -d " + Quoted(below.meaning) + "\n";
  }
  for (const CompletedCommand& below : command.commands) AddCommand(below, script);
}

}  // namespace

std::string FishCompletion(const CompletedCommand& program) {
  Script script;
  AddCommand(program, script);
  return kHead + script.commands + "\n" + script.valued + "\n" + kAt + script.lines;
}

}  // namespace vt::tools
