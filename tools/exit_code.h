// What voltaris tells the shell. The numbers are part of its interface and stand in --help.
#ifndef VT_TOOLS_EXIT_CODE_H_
#define VT_TOOLS_EXIT_CODE_H_

#include <stdexcept>
#include <string>

namespace vt::tools {

enum ExitCode : int {
  kExitOk = 0,
  kExitNothingAnswered = 1,
  kExitUsage = 2,
  kExitNoConnection = 3,
  kExitIncomplete = 4,
  kExitInternal = 5,
};

// Failure ends the program with a message and an exit code.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}

  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_EXIT_CODE_H_
