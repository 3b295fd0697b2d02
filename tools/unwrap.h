// What the library's C++ interface returns, where the program has to end without it.
#ifndef VT_TOOLS_UNWRAP_H_
#define VT_TOOLS_UNWRAP_H_

#include <utility>

#include "vtapi.hpp"

#include "tools/exit_code.h"

namespace vt::tools {

// Unwrap is the result. Without one it throws Failure, of usage unless there was no memory.
template <typename T>
T Unwrap(voltaris::Expected<T> expected) {
  if (expected) return *std::move(expected);
  const voltaris::Error& error = expected.error();
  throw Failure(error.cause == voltaris::Cause::kNoMemory ? kExitInternal : kExitUsage, error.text);
}

}  // namespace vt::tools

#endif  // VT_TOOLS_UNWRAP_H_
