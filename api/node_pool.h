// Memory that is given out in small pieces and returned all at once.
#ifndef VT_API_NODE_POOL_H
#define VT_API_NODE_POOL_H

#include <cstddef>

namespace vt::api {

// NodePool takes chunks from the heap, which become larger with what it holds. A zero-filled one is
// empty.
class NodePool {
 public:
  // New returns memory for so many T, with anything in it, or null.
  template <class T>
  [[nodiscard]] T* New(std::size_t count = 1) {
    return static_cast<T*>(New(count * sizeof(T)));
  }

  // New returns that many bytes, aligned for pointers, or null.
  [[nodiscard]] void* New(std::size_t n) {
    const std::size_t size = RoundUpToPointer(n);
    if (size > room_ && !AddChunk(size)) return nullptr;
    std::byte* piece = next_;
    next_ += size;
    room_ -= size;
    return piece;
  }

  // Holds tells whether a piece was given out by this pool.
  [[nodiscard]] bool Holds(const void* piece) const;

  // ReleaseAll returns everything that was given out.
  void ReleaseAll();

 private:
  struct Chunk {
    Chunk* next;
    std::size_t size;
  };

  static constexpr std::size_t RoundUpToPointer(std::size_t n) {
    return (n + sizeof(void*) - 1) / sizeof(void*) * sizeof(void*);
  }

  // AddChunk provides a chunk of at least so many bytes.
  [[nodiscard]] bool AddChunk(std::size_t least);

  Chunk* chunks_ = nullptr;
  std::byte* next_ = nullptr;
  std::size_t room_ = 0;
  std::size_t total_ = 0;  // bytes of all chunks
};

}  // namespace vt::api

#endif  // VT_API_NODE_POOL_H
