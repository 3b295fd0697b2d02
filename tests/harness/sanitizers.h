// VT_SANITIZER_ADDRESS, VT_SANITIZER_MEMORY or VT_SANITIZER_THREAD is defined in builds with that
// sanitizer, and VT_SANITIZER with each: such a build brings an allocator of its own.
#ifndef VT_TESTS_HARNESS_SANITIZERS_H_
#define VT_TESTS_HARNESS_SANITIZERS_H_

#if defined(__SANITIZE_ADDRESS__)
#define VT_SANITIZER_ADDRESS 1
#elif defined(__SANITIZE_THREAD__)
#define VT_SANITIZER_THREAD 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VT_SANITIZER_ADDRESS 1
#elif __has_feature(memory_sanitizer)
#define VT_SANITIZER_MEMORY 1
#elif __has_feature(thread_sanitizer)
#define VT_SANITIZER_THREAD 1
#endif
#endif

#if defined(VT_SANITIZER_ADDRESS) || defined(VT_SANITIZER_MEMORY) || defined(VT_SANITIZER_THREAD)
#define VT_SANITIZER 1
#endif

#include <cstdlib>

namespace vt::testing {

// IsWatched tells whether a sanitizer or memcheck looks on, with which everything is slow, and
// whose allocator keeps what was released.
inline bool IsWatched() {
#ifdef VT_SANITIZER
  return true;
#else
  return std::getenv("VT_TESTS_UNDER_MEMCHECK") != nullptr;
#endif
}

}  // namespace vt::testing

#endif  // VT_TESTS_HARNESS_SANITIZERS_H_
