// Standard error: what is said to people and logs while data goes to standard output, as text or as
// an object a line, and a line of progress on terminals. Control characters are escaped in all of
// it.
#ifndef VT_TOOLS_CONSOLE_H_
#define VT_TOOLS_CONSOLE_H_

#include <string>
#include <string_view>

namespace vt::tools {

enum class LogFormat { kText, kJson };

struct ConsoleSettings {
  LogFormat format = LogFormat::kText;
  int verbosity = 0;  // -1 errors alone; 1 to 3 the library's info, debug and trace lines
  bool progress = false;
};

// OpenConsole applies settings, also to the log of the library. Until then they are the initial
// ones.
void OpenConsole(const ConsoleSettings& settings);

// Lines, without a line end. Notices and warnings are left out when errors alone are wanted; what
// was changed is always told.
void Complain(std::string_view message);
void Warn(std::string_view message);
void Notice(std::string_view message);
void TellChange(std::string_view message);

// ShowProgress shows a text in place of the one before, where progress is wanted. Any line, and an
// empty text, takes it away.
void ShowProgress(std::string_view text);

}  // namespace vt::tools

#endif  // VT_TOOLS_CONSOLE_H_
