// The one seam through which the codec, and who appends to what it made, gets and returns memory:
// elements, aggregates, entries and values. Whoever wants to lay messages out differently starts
// here.
#ifndef VT_CODEC_MEMORY_H
#define VT_CODEC_MEMORY_H

#include <cstddef>
#include <cstdlib>
#include <memory>

#include "support/heap.h"

namespace vt::codec {

// NewBlock returns n bytes, or null; a block of 0 bytes is not null. NewZeroedBlock returns n
// bytes, which are at least one, zero-filled.
[[nodiscard]] inline void* NewBlock(std::size_t n) { return support::AllocateBytes(n).release(); }
[[nodiscard]] inline void* NewZeroedBlock(std::size_t n) { return std::calloc(1, n); }

template <class T>
[[nodiscard]] T* NewRecord() {
  return static_cast<T*>(NewZeroedBlock(sizeof(T)));
}

// NewPointers returns count null pointers, or null.
[[nodiscard]] inline void** NewPointers(std::size_t count) {
  return static_cast<void**>(std::calloc(count, sizeof(void*)));
}

// CopyBlock and CopyText return copies, or null.
[[nodiscard]] inline void* CopyBlock(const void* bytes, std::size_t n) {
  return support::DuplicateBytes(bytes, n).release();
}
[[nodiscard]] inline char* CopyText(const char* text) {
  return support::DuplicateText(text).release();
}

// ResizeBlock returns the block with room for n bytes, or null and leaves it as it was.
[[nodiscard]] inline void* ResizeBlock(void* block, std::size_t n) {
  return std::realloc(block, n);
}

inline void ReleaseBlock(void* block) { std::free(block); }

struct BlockDeleter {
  void operator()(void* block) const { ReleaseBlock(block); }
};

// OwnedBlock is the one owner of a block until it becomes part of a message.
template <class T>
using OwnedBlock = std::unique_ptr<T, BlockDeleter>;

}  // namespace vt::codec

#endif  // VT_CODEC_MEMORY_H
