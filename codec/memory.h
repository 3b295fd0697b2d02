// Where the codec, and who appends to what it made, gets and returns memory. What an exported call
// hands out has a block of its own for each part, for its caller to release. A decoded element is
// one block, which holds its record, its entries, its values and their texts; what is put into it
// later has blocks of its own again.
#ifndef VT_CODEC_MEMORY_H
#define VT_CODEC_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "support/heap.h"

namespace vt::codec {

// NewBlock returns n bytes, or null; a block of 0 bytes is not null. NewZeroedBlock returns n
// bytes, which are at least one, zero-filled.
[[nodiscard]] inline void* NewBlock(std::size_t n) { return support::AllocateBytes(n).release(); }
[[nodiscard]] inline void* NewZeroedBlock(std::size_t n) { return support::ZeroedBlock(n); }

template <class T>
[[nodiscard]] T* NewRecord() {
  return static_cast<T*>(NewZeroedBlock(sizeof(T)));
}

// NewPointers returns count null pointers, or null.
[[nodiscard]] inline void** NewPointers(std::size_t count) {
  return static_cast<void**>(NewZeroedBlock(count * sizeof(void*)));
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

// What follows are the memories that wire forms read into and are released from. New returns n
// bytes with the alignment of a T, or null; Release takes back what New returned.

// Heap has a block for each part.
struct Heap {
  template <class T>
  [[nodiscard]] void* New(std::size_t n) const {
    return NewBlock(n);
  }
  void Release(void* block) const { ReleaseBlock(block); }
};

// Arena has all parts, of one byte or more, in one block, with which they are released. Its owner
// makes it as large as what will be read, which the lengths on the wire tell.
class Arena {
 public:
  Arena(void* block, std::size_t size) : next_(static_cast<std::byte*>(block)), room_(size) {}

  template <class T>
  [[nodiscard]] void* New(std::size_t n) {
    return Take(n, alignof(T));
  }
  void Release(void* /*part*/) const {}

  // room is how many bytes are left.
  [[nodiscard]] std::size_t room() const { return room_; }

 private:
  [[nodiscard]] void* Take(std::size_t n, std::size_t alignment) {
    const std::size_t gap = Gap(alignment);
    if (gap > room_ || n > room_ - gap) return nullptr;
    std::byte* part = next_ + gap;
    next_ = part + n;
    room_ -= gap + n;
    return part;
  }

  // Gap is how many bytes are skipped to reach an address with an alignment.
  [[nodiscard]] std::size_t Gap(std::size_t alignment) const {
    return (0 - reinterpret_cast<std::uintptr_t>(next_)) & (alignment - 1);
  }

  std::byte* next_;
  std::size_t room_;
};

// Extent is a block, which parts may lie in or not: those that do are released with it.
class Extent {
 public:
  Extent() : begin_(0), size_(0) {}
  Extent(const void* block, std::size_t size)
      : begin_(reinterpret_cast<std::uintptr_t>(block)), size_(size) {}

  [[nodiscard]] bool Holds(const void* part) const {
    return reinterpret_cast<std::uintptr_t>(part) - begin_ < size_;
  }
  void Release(void* part) const {
    if (!Holds(part)) ReleaseBlock(part);
  }

 private:
  std::uintptr_t begin_;
  std::size_t size_;
};

}  // namespace vt::codec

#endif  // VT_CODEC_MEMORY_H
