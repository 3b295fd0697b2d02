// voltaris: collects, sets, sums up and records attributes of devices from the command line. The
// answer goes to standard output; everything else goes to standard error.

#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <string>

#include "tools/check_command.h"
#include "tools/console.h"
#include "tools/exit_code.h"
#include "tools/options.h"
#include "tools/ping_command.h"
#include "tools/read_command.h"
#include "tools/record_command.h"
#include "tools/set_command.h"
#include "tools/standard_descriptors.h"
#include "tools/standard_output.h"
#include "tools/stop_signals.h"
#include "tools/watch_command.h"

namespace vt::tools {
namespace {

void PrepareProcess(Options& options) {
  // A reader that has gone is noticed where it is written to.
  if (std::signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
    throw Failure(kExitInternal, "signals cannot be ignored");
  }
  CatchStopSignals();
  options.console.progress = options.progress == When::kAuto && options.console.verbosity >= 0 &&
                             isatty(STDERR_FILENO) == 1;
  OpenConsole(options.console);
}

void EndOutput() {
  std::cout.flush();
  if (!std::cout) throw Failure(kExitInternal, "standard output cannot be written");
}

// Act runs a command that asks no node. It ends by signals as any filter does.
int Act(const Options& options) {
  OpenConsole(options.console);
  const ExitCode code = options.action({std::cin, std::cout, Complain});
  EndOutput();
  return code;
}

int Run(int argc, const char* const* argv) {
  // Whoever started this may ignore the signal, which is how filters learn that nobody reads them.
  (void)std::signal(SIGPIPE, SIG_DFL);
  std::optional<Options> options;
  try {
    options = ParseOptions(argc, argv);
  } catch (const CheckFailure& failure) {
    return TellCheckFailure(failure);
  }
  if (!options) {
    EndOutput();
    return kExitOk;
  }
  if (options->action) return Act(*options);
  PrepareProcess(*options);
  switch (options->command) {
    case Command::kCollect:
    case Command::kSum:
      return RunRead(*options);
    case Command::kSet:
      return RunSet(*options);
    case Command::kRecord:
      return RunRecord(*options);
    case Command::kCheck:
      return RunCheck(*options);
    case Command::kPing:
      return RunPing(*options);
    case Command::kWatch:
      return RunWatch(*options);
  }
  return kExitUsage;
}

}  // namespace
}  // namespace vt::tools

int main(int argc, char** argv) {
  vt::tools::HoldStandardDescriptors();
  try {
    return vt::tools::Run(argc, argv);
  } catch (const vt::tools::NoReader&) {
    // As if the signal had ended it, which shells expect in front of a pipe.
    return vt::tools::kExitSignal + SIGPIPE;
  } catch (const vt::tools::Failures& failures) {
    for (const std::string& line : failures.lines()) vt::tools::Complain(line);
    return failures.code();
  } catch (const vt::tools::Failure& failure) {
    vt::tools::Complain(failure.what());
    return failure.code();
  } catch (const std::exception& error) {
    vt::tools::Complain(error.what());
    return vt::tools::kExitInternal;
  }
}
