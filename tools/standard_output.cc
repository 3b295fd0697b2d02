#include "tools/standard_output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "tools/exit_code.h"
#include "tools/stop_signals.h"

namespace vt::tools {
namespace {

// AwaitReader returns when something can be written, or no more.
void AwaitReader(int descriptor) {
  const int stop = StopSignal() == 0 ? StopDescriptor() : -1;
  std::array<pollfd, 2> watched = {pollfd{descriptor, POLLOUT, 0}, pollfd{stop, POLLIN, 0}};
  while (poll(watched.data(), watched.size(), -1) > 0 && watched[0].revents == 0) {
    (void)StopSignal();
    watched[1].fd = -1;
  }
}

}  // namespace

int WritePatiently(int descriptor, std::string_view text) {
  while (!text.empty()) {
    AwaitReader(descriptor);
    // A pipe that can be written takes as much as this without waiting.
    const ssize_t written =
        write(descriptor, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      return errno;
    }
  }
  return 0;
}

void WriteOut(std::string_view text) {
  const int error = WritePatiently(STDOUT_FILENO, text);
  if (error == EPIPE) throw NoReader();
  if (error == 0) return;
  throw Failure(kExitInternal,
                std::string("standard output cannot be written: ") + std::strerror(error));
}

}  // namespace vt::tools
