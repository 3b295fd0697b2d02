#include "tools/completion_scripts.h"

namespace vt::tools {

std::string ShellQuoted(const std::string& word) {
  std::string quoted = "'";
  for (const char letter : word) {
    if (letter == '\'') {
      quoted += "'\\''";
    } else {
      quoted += letter;
    }
  }
  return quoted + "'";
}

}  // namespace vt::tools
