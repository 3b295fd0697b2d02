// voltaris: collects, sets, sums up and records attributes of devices from the command line. The
// answer goes to standard output; messages and the library's log go to standard error.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>

#include "vtapi.hpp"

#include "tools/exit_code.h"
#include "tools/options.h"
#include "tools/output.h"
#include "tools/query_command.h"
#include "tools/record_command.h"

namespace vt::tools {
namespace {

bool WantsColour() {
  const char* no_colour = std::getenv("NO_COLOR");
  if (no_colour != nullptr && *no_colour != '\0') return false;
  const char* terminal = std::getenv("TERM");
  if (terminal == nullptr || std::strcmp(terminal, "dumb") == 0) return false;
  return isatty(STDOUT_FILENO) == 1;
}

void Complain(const std::string& message) { std::cerr << "voltaris: " << message << std::endl; }

ExitCode Judge(const Answer& answer) {
  if (answer.timed_out) {
    Complain("the answer is incomplete: the time was up before the node had ended it");
    return kExitIncomplete;
  }
  if (answer.failure) {
    const bool lacked_memory = answer.failure->cause == voltaris::Cause::kNoMemory;
    Complain(std::string("the answer is incomplete: ") +
             (lacked_memory ? "out of memory" : std::strerror(answer.failure->number)));
    return kExitIncomplete;
  }
  if (!answer.rows.empty() || answer.acknowledged > 0) return kExitOk;
  Complain(answer.refused > 0
               ? "no device accepted the query (see --role, --name, --keyword, --priority)"
               : "nothing answered: no device is in the domain, or the keys differ");
  return kExitNothingAnswered;
}

// Record writes what was answered, when it is whole.
ExitCode Record(const Options& options) {
  const Recorded recorded = RunRecord(options);
  const ExitCode code = Judge(recorded.answer);
  if (code != kExitOk) return code;
  if (recorded.recording.entities.empty()) {
    Complain("the devices have nothing of what was asked for");
    return kExitNothingAnswered;
  }
  WriteRecorded(recorded.recording, options);
  return kExitOk;
}

ExitCode Run(int argc, const char* const* argv) {
  const std::optional<Options> options = ParseOptions(argc, argv);
  if (!options) return kExitOk;
  voltaris::set_log(static_cast<voltaris::LogLevel>(options->log_level), stderr);
  if (options->command == Command::kRecord) return Record(*options);
  const Answer answer = RunQuery(*options);
  PrintAnswer(std::cout, answer, *options, WantsColour());
  std::cout.flush();
  if (!std::cout) throw Failure(kExitInternal, "standard output cannot be written");
  return Judge(answer);
}

}  // namespace
}  // namespace vt::tools

int main(int argc, char** argv) {
  try {
    return vt::tools::Run(argc, argv);
  } catch (const vt::tools::Failure& failure) {
    vt::tools::Complain(failure.what());
    return failure.code();
  } catch (const std::exception& error) {
    vt::tools::Complain(error.what());
    return vt::tools::kExitInternal;
  }
}
