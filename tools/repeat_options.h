// How often something is done.
#ifndef VT_TOOLS_REPEAT_OPTIONS_H_
#define VT_TOOLS_REPEAT_OPTIONS_H_

#include <chrono>

namespace vt::tools {

struct RepeatOptions {
  unsigned count = 0;                     // rounds; 0 until a signal or a key ends it
  std::chrono::milliseconds interval{0};  // from the start of one to the start of the next
};

}  // namespace vt::tools

#endif  // VT_TOOLS_REPEAT_OPTIONS_H_
