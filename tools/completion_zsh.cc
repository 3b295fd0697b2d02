// The script for zsh: a function for each command, which leaves the work to _arguments.
#include "tools/completion_scripts.h"

namespace vt::tools {
namespace {

using Kind = CompletedValue::Kind;

// Escaped puts a backslash in front of some letters.
std::string Escaped(const std::string& text, std::string_view letters) {
  std::string escaped;
  for (const char letter : text) {
    if (letter == '\\' || letters.find(letter) != std::string_view::npos) escaped += '\\';
    escaped += letter;
  }
  return escaped;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + Escaped(word, ":");
  return line;
}

// Action is what _arguments does for a value.
std::string Action(const CompletedValue& value) {
  switch (value.kind) {
    case Kind::kNone:
    case Kind::kAny:
      break;
    case Kind::kFile:
      return "_files";
    case Kind::kList:
      return "_sequence compadd - " + Joined(value.words);
    case Kind::kWords:
      if (value.words.front().ends_with('=')) return "compadd -S \"\" - " + Joined(value.words);
      return "(" + Joined(value.words) + ")";
  }
  return " ";
}

std::string Behind(const CompletedValue& value) {
  if (value.kind == Kind::kNone) return "";
  return ":" + Escaped(value.name, ":") + ":" + Action(value);
}

// Names are those of an option before what is said of it: one, or several that exclude each other.
std::string Names(const CompletedOption& option) {
  std::string with_blanks;
  std::string with_commas;
  for (const std::string& name : option.names) {
    with_blanks += (with_blanks.empty() ? "" : " ") + name;
    with_commas += (with_commas.empty() ? "" : ",") + name;
  }
  const std::string before = option.is_repeatable ? "'*'" : "'(" + with_blanks + ")'";
  return before + (option.names.size() > 1 ? "{" + with_commas + "}" : with_commas);
}

std::string Function(const CompletedCommand& command) {
  std::string name = "_voltaris";
  for (const char letter : command.path.empty() ? "" : " " + command.path) {
    name += letter == ' ' ? '_' : letter;
  }
  return name;
}

std::string Dispatch(const CompletedCommand& command) {
  std::string text = "  case $state in\n    command)\n      local -a commands=(\n";
  for (const CompletedCommand& below : command.commands) {
    text += "        " + ShellQuoted(below.name() + ":" + Escaped(below.meaning, ":")) + "\n";
  }
  text +=
      "      )\n      _describe command commands\n      ;;\n    rest)\n      case $line[1] in\n";
  for (const CompletedCommand& below : command.commands) {
    text += "        " + below.name() + ") " + Function(below) + " ;;\n";
  }
  return text + "      esac\n      ;;\n  esac\n";
}

void AddCommand(const CompletedCommand& command, std::string& script) {
  for (const CompletedCommand& below : command.commands) AddCommand(below, script);
  const bool has_commands = !command.commands.empty();
  script += Function(command) + "() {\n";
  if (has_commands) script += "  local context state state_descr line\n  typeset -A opt_args\n";
  script += has_commands ? "  _arguments -C" : "  _arguments -S";
  for (const CompletedOption& option : command.options) {
    script += " \\\n    " + Names(option) +
              ShellQuoted("[" + Escaped(option.meaning, "[]") + "]" + Behind(option.value));
  }
  if (has_commands) {
    script += " \\\n    '1:command:->command' \\\n    '*::argument:->rest'\n" + Dispatch(command);
  } else if (command.operands.kind != Kind::kNone) {
    script += " \\\n    " + ShellQuoted("*" + Behind(command.operands)) + "\n";
  } else {
    script += "\n";
  }
  script += "}\n\n";
}

}  // namespace

std::string ZshCompletion(const CompletedCommand& program) {
  std::string script =
      "#compdef voltaris\n# Completion of voltaris in zsh, made by: voltaris completion zsh\n\n";
  AddCommand(program, script);
  // Read as a file of $fpath it is the body of the function, sourced it has to register itself.
  return script +
         "if [[ $zsh_eval_context[-1] == loadautofunc ]]; then\n  _voltaris \"$@\"\n"
         "elif (( $+functions[compdef] )); then\n  compdef _voltaris voltaris\nfi\n";
}

}  // namespace vt::tools
