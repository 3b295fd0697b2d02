// Ownership of heap blocks. All blocks come from the malloc family, because many leave the library
// and callers release them with free.
#ifndef VT_SUPPORT_HEAP_H
#define VT_SUPPORT_HEAP_H

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace vt::support {

struct FreeDeleter {
  void operator()(void* block) const { std::free(block); }
};

// Owned is the one owner of a block without owned parts of its own.
template <class T>
using Owned = std::unique_ptr<T, FreeDeleter>;

// AllocateZeroed returns a zero-filled T, or null.
template <class T>
[[nodiscard]] Owned<T> AllocateZeroed() {
  return Owned<T>(static_cast<T*>(std::calloc(1, sizeof(T))));
}

// AllocateBytes returns a block of n bytes, or null; for n = 0 a block that is not null.
[[nodiscard]] inline Owned<void> AllocateBytes(std::size_t n) {
  return Owned<void>(std::malloc(n != 0 ? n : 1));
}

// DuplicateBytes returns a copy of n bytes, or null; for n = 0 a block that is not null.
[[nodiscard]] inline Owned<void> DuplicateBytes(const void* bytes, std::size_t n) {
  Owned<void> copy = AllocateBytes(n);
  if (copy != nullptr && n != 0) std::memcpy(copy.get(), bytes, n);
  return copy;
}

// DuplicateText returns a copy of a zero-terminated text, or null.
[[nodiscard]] inline Owned<char> DuplicateText(const char* text) {
  const std::size_t size = std::strlen(text) + 1;
  Owned<char> copy(static_cast<char*>(std::malloc(size)));
  if (copy != nullptr) std::memcpy(copy.get(), text, size);
  return copy;
}

}  // namespace vt::support

#endif  // VT_SUPPORT_HEAP_H
