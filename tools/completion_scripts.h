// What a shell may complete of a command line, and the scripts for shells that are made of it.
#ifndef VT_TOOLS_COMPLETION_SCRIPTS_H_
#define VT_TOOLS_COMPLETION_SCRIPTS_H_

#include <string>
#include <vector>

namespace vt::tools {

// CompletedValue is what may stand behind an option, or in the place of an operand.
struct CompletedValue {
  enum class Kind {
    kNone,   // there is no value
    kAny,    // there is one, and nobody knows which
    kFile,   // the name of a file
    kWords,  // one of the words; behind one that ends in '=' more follows
    kList,   // some of the words, with commas in between
  };

  Kind kind = Kind::kNone;
  std::string name;  // such as FILE
  std::vector<std::string> words;
};

struct CompletedOption {
  std::vector<std::string> names;  // "-o", "--output"
  std::string meaning;
  CompletedValue value;
  bool is_repeatable = false;
};

struct CompletedCommand {
  std::string path;  // the words that lead to it without the program's: "", "key", "key derive"
  std::string meaning;
  std::vector<CompletedOption> options;
  CompletedValue operands;
  std::vector<CompletedCommand> commands;

  // name is the last word of the path.
  std::string name() const { return path.substr(path.rfind(' ') + 1); }
};

// The scripts. What comes from the parser is quoted in them.
std::string BashCompletion(const CompletedCommand& program);
std::string ZshCompletion(const CompletedCommand& program);
std::string FishCompletion(const CompletedCommand& program);

// ShellQuoted is a word in single quotes, as bash and zsh read it.
std::string ShellQuoted(const std::string& word);

}  // namespace vt::tools

#endif  // VT_TOOLS_COMPLETION_SCRIPTS_H_
