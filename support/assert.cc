#include "support/assert.h"

// The C library's reporter, which <assert.h> hides under NDEBUG.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the C library's name
extern "C" [[noreturn]] void __assert_fail(const char* text, const char* file, unsigned line,
                                           const char* function) noexcept;

namespace vt::support {

void AssertionFailed(const char* text, const char* unit, unsigned line, const char* function) {
  __assert_fail(text, unit, line, function);
}

}  // namespace vt::support
