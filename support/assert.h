// Assertions that stop the process on misuse, in release builds too. Bad input never reaches one.
#ifndef VT_SUPPORT_ASSERT_H
#define VT_SUPPORT_ASSERT_H

namespace vt::support {

// AssertionFailed reports "<unit>:<line>: <function>: Assertion `<text>' failed." and aborts.
[[noreturn]] void AssertionFailed(const char* text, const char* unit, unsigned line,
                                  const char* function);

}  // namespace vt::support

// A macro for the sake of __LINE__ and __func__. The texts and units are part of the interface:
// operators search their logs for them.
#define VT_ASSERT(condition, text, unit) \
  ((condition) ? static_cast<void>(0)    \
               : ::vt::support::AssertionFailed(text, unit, __LINE__, __func__))

#endif  // VT_SUPPORT_ASSERT_H
