#include "tools/pause.h"

#include <poll.h>

#include <algorithm>

#include "tools/stop_signals.h"

namespace vt::tools {

bool PauseUntil(std::chrono::steady_clock::time_point moment) {
  using std::chrono::milliseconds;
  while (StopSignal() == 0) {
    const auto left = std::chrono::ceil<milliseconds>(moment - std::chrono::steady_clock::now());
    if (left <= milliseconds(0)) return true;
    pollfd watched = {StopDescriptor(), POLLIN, 0};
    const auto longest = milliseconds(std::chrono::hours(1));
    (void)poll(&watched, 1, static_cast<int>(std::min<milliseconds>(left, longest).count()));
  }
  return false;
}

}  // namespace vt::tools
