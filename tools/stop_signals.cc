#include "tools/stop_signals.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "tools/exit_code.h"

namespace vt::tools {
namespace {

constinit int descriptor = -1;
constinit int came = 0;

// IsIgnored is true of what whoever started the process wants it to outlive: a job in the
// background of a script ignores SIGINT.
bool IsIgnored(int number) {
  struct sigaction action {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t OurSignals() {
  sigset_t ours;
  sigemptyset(&ours);
  for (const int number : {SIGINT, SIGTERM}) {
    if (!IsIgnored(number)) sigaddset(&ours, number);
  }
  return ours;
}

}  // namespace

void CatchStopSignals() {
  const sigset_t ours = OurSignals();
  descriptor = signalfd(-1, &ours, SFD_NONBLOCK | SFD_CLOEXEC);
  if (descriptor < 0) throw Failure(kExitInternal, "there is no descriptor left for signals");
  pthread_sigmask(SIG_BLOCK, &ours, nullptr);
}

int StopSignal() {
  signalfd_siginfo signal{};
  if (came != 0 || descriptor < 0) return came;
  if (read(descriptor, &signal, sizeof signal) != sizeof signal) return 0;
  came = static_cast<int>(signal.ssi_signo);
  const sigset_t ours = OurSignals();
  pthread_sigmask(SIG_UNBLOCK, &ours, nullptr);
  return came;
}

int StopDescriptor() { return descriptor; }

}  // namespace vt::tools
