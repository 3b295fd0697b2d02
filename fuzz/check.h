// What a target asserts beyond what the sanitizers see.
#ifndef VT_FUZZ_CHECK_H_
#define VT_FUZZ_CHECK_H_

#include <cstdio>
#include <cstdlib>

namespace vt::fuzz {

[[noreturn]] inline void CheckFailed(const char* text, const char* file, int line) {
  (void)std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, text);
  std::abort();
}

}  // namespace vt::fuzz

#define FUZZ_CHECK(condition) \
  ((condition) ? static_cast<void>(0) : vt::fuzz::CheckFailed(#condition, __FILE__, __LINE__))

#endif  // VT_FUZZ_CHECK_H_
