// The script for bash: tables of commands, options and values as functions, and one function that
// reads them. It needs nothing but bash.
#include "tools/completion_scripts.h"

namespace vt::tools {
namespace {

using Kind = CompletedValue::Kind;

constexpr const char* kHead =
    "# Completion of voltaris in bash, made by: voltaris completion bash\n"
    "# shellcheck shell=bash\n\n";

constexpr const char* kTail = R"script(
_voltaris() {
  local words=() word value path='' expects='' cur trim='' head i
  COMPREPLY=()
  # Readline parts words at colons, which addresses and orders have inside.
  for ((i = 1; i <= COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    if ((${#words[@]} > 0)) && [[ $word == :* || ${words[-1]} == *: ]]; then
      words[-1]+=$word
    else
      words+=("$word")
    fi
  done
  cur=${words[-1]-}
  [[ $cur == *:* && $COMP_WORDBREAKS == *:* ]] && trim=${cur%"${cur##*:}"}
  unset 'words[-1]'
  for word in "${words[@]}"; do
    if [[ $word == '=' ]]; then
      continue
    elif [[ -n $expects ]]; then
      expects=''
    elif [[ $word == -* ]]; then
      [[ -z $(_voltaris_value "$path" "$word") ]] || expects=$word
    elif [[ " $(_voltaris_commands "$path") " == *" $word "* ]]; then
      path=${path:+$path }$word
    fi
  done
  if [[ $cur == '=' || ( ${#words[@]} -gt 0 && ${words[-1]} == '=' ) ]]; then
    [[ $cur != '=' ]] || cur=''
    # What an attribute is set to, nobody knows.
    [[ -n $expects ]] || return 0
  fi
  if [[ -n $expects ]]; then
    value=$(_voltaris_value "$path" "$expects")
  elif [[ $cur == -* ]]; then
    value="words $(_voltaris_options "$path")"
  else
    value="words $(_voltaris_commands "$path")"
    [[ $value != 'words ' ]] || value=$(_voltaris_value "$path" '')
  fi
  case $value in
    file)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      ;;
    'list '*)
      compopt -o nospace 2>/dev/null
      head=${cur%"${cur##*,}"}
      mapfile -t COMPREPLY < <(compgen -P "$head" -W "${value#list }" -- "${cur##*,}")
      ;;
    'words '*)
      mapfile -t COMPREPLY < <(compgen -W "${value#words }" -- "$cur")
      ;;
  esac
  [[ -z $trim ]] || COMPREPLY=("${COMPREPLY[@]#"$trim"}")
  [[ ${#COMPREPLY[@]} -ne 1 || ${COMPREPLY[0]} != *= ]] || compopt -o nospace 2>/dev/null
}

complete -F _voltaris voltaris
)script";

std::string Joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

// Case is one branch: what is printed when one of the patterns is asked for.
std::string Case(const std::vector<std::string>& patterns, const std::string& printed) {
  std::string branch = "    ";
  for (const std::string& pattern : patterns) {
    branch += (branch.size() > 4 ? " | " : "") + ShellQuoted(pattern);
  }
  return branch + ") echo " + ShellQuoted(printed) + " ;;\n";
}

std::string TextOf(const CompletedValue& value) {
  switch (value.kind) {
    case Kind::kNone:
      break;
    case Kind::kAny:
      return "any";
    case Kind::kFile:
      return "file";
    case Kind::kWords:
      return "words " + Joined(value.words);
    case Kind::kList:
      return "list " + Joined(value.words);
  }
  return "";
}

struct Tables {
  std::string commands;
  std::string options;
  std::string values;
};

void AddValue(const std::string& path, const std::vector<std::string>& names,
              const CompletedValue& value, Tables& tables) {
  if (value.kind == Kind::kNone) return;
  std::vector<std::string> patterns;
  patterns.reserve(names.size());
  for (const std::string& name : names) {
    patterns.push_back(std::string(path).append(" ").append(name));
  }
  tables.values += Case(patterns, TextOf(value));
}

void AddCommand(const CompletedCommand& command, Tables& tables) {
  std::vector<std::string> names;
  for (const CompletedCommand& below : command.commands) names.push_back(below.name());
  if (!names.empty()) tables.commands += Case({command.path}, Joined(names));
  std::vector<std::string> options;
  for (const CompletedOption& option : command.options) {
    options.insert(options.end(), option.names.begin(), option.names.end());
    AddValue(command.path, option.names, option.value, tables);
  }
  tables.options += Case({command.path}, Joined(options));
  AddValue(command.path, {""}, command.operands, tables);
  for (const CompletedCommand& below : command.commands) AddCommand(below, tables);
}

std::string Function(const std::string& name, const std::string& comment,
                     const std::string& subject, const std::string& branches) {
  return "# " + comment + "\n" + name + "() {\n  case " + subject + " in\n" + branches +
         "  esac\n}\n\n";
}

}  // namespace

std::string BashCompletion(const CompletedCommand& program) {
  Tables tables;
  AddCommand(program, tables);
  const std::string values =
      Function("_voltaris_value",
               "_voltaris_value PATH OPTION: what stands behind it; without OPTION, the operands.",
               "\"$1 $2\"", tables.values);
  return kHead +
         Function("_voltaris_commands", "_voltaris_commands PATH: the commands below it.", "$1",
                  tables.commands) +
         Function("_voltaris_options", "_voltaris_options PATH: the options of a command.", "$1",
                  tables.options) +
         values.substr(0, values.size() - 1) + kTail;
}

}  // namespace vt::tools
