// What voltaris tells the shell. The numbers are part of its interface and stand in --help.
#ifndef VT_TOOLS_EXIT_CODE_H_
#define VT_TOOLS_EXIT_CODE_H_

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vt::tools {

// ExitCode tells how one node was asked, and how all of them were; verdict.h has the rules.
enum ExitCode : int {
  kExitOk = 0,              // all answers arrived and were verified
  kExitPartial = 1,         // some did
  kExitUsage = 2,           // the command line, a key file, or a query that does not fit
  kExitNoConnection = 3,    // no connection
  kExitNoAnswer = 4,        // connected, but no answer in time
  kExitUnverified = 5,      // nothing but answers that are forged or signed with another key
  kExitProtocol = 6,        // what came cannot be decoded, or broke off
  kExitRefused = 7,         // all devices refused
  kExitNothingMatched = 8,  // answered, but no device was concerned
  kExitInternal = 9,        // no memory, or the output cannot be written
  kExitSignal = 128,        // + the number of the signal that ended it
};

// Failure ends the program with a message and an exit code.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}

  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

// Failures is a Failure of several things at once, each of which is told on a line of its own; what
// joins them.
class Failures : public Failure {
 public:
  Failures(ExitCode code, std::vector<std::string> lines)
      : Failure(code, Joined(lines)), lines_(std::move(lines)) {}

  const std::vector<std::string>& lines() const { return lines_; }

 private:
  static std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += (text.empty() ? "" : "; ") + line;
    return text;
  }

  std::vector<std::string> lines_;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_EXIT_CODE_H_
