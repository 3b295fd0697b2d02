// Ownership of heap blocks. All blocks come from the malloc family, because many leave the library
// and callers release them with free.
#ifndef VT_SUPPORT_HEAP_H
#define VT_SUPPORT_HEAP_H

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
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

// ZeroedBlock returns n bytes, which are at least one, zero-filled, or null. Not calloc: that of
// the C library passes by the caches from which malloc serves small blocks at once.
[[nodiscard]] inline void* ZeroedBlock(std::size_t n) {
  void* block = std::malloc(n);
  if (block != nullptr) std::memset(block, 0, n);
  return block;
}

// LargeBlock returns n bytes or null. What lies on whole large pages is asked to be made of them:
// it becomes resident with fewer faults, and is reached at random with fewer misses.
[[nodiscard]] inline void* LargeBlock(std::size_t n) {
  constexpr std::size_t kLargePage = std::size_t{2} << 20;
  void* block = std::malloc(n);
  if (block == nullptr || n < 2 * kLargePage) return block;
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  const std::size_t before = (0 - address) & (kLargePage - 1);
  const std::size_t whole = (n - before) & ~(kLargePage - 1);
  // No matter if the kernel has none.
  (void)madvise(static_cast<std::byte*>(block) + before, whole, MADV_HUGEPAGE);
  return block;
}

// AllocateZeroed returns a zero-filled T, or null.
template <class T>
[[nodiscard]] Owned<T> AllocateZeroed() {
  return Owned<T>(static_cast<T*>(ZeroedBlock(sizeof(T))));
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
