// A pause between rounds, which a signal ends.
#ifndef VT_TOOLS_PAUSE_H_
#define VT_TOOLS_PAUSE_H_

#include <chrono>

namespace vt::tools {

// PauseUntil returns when the moment has come, or earlier when a signal was caught; it tells
// whether none was.
bool PauseUntil(std::chrono::steady_clock::time_point moment);

}  // namespace vt::tools

#endif  // VT_TOOLS_PAUSE_H_
