// Counts what goes through malloc, calloc, realloc and free, of the library and everybody else, by
// standing in front of the allocator of the C library. Programs that measure time do not use it.
#ifndef VT_BENCH_HEAP_COUNTER_H_
#define VT_BENCH_HEAP_COUNTER_H_

#include <cstddef>

namespace vt::bench {

// HeapCounter counts while it lives; one at a time.
class HeapCounter {
 public:
  HeapCounter();
  ~HeapCounter();
  HeapCounter(const HeapCounter&) = delete;
  HeapCounter& operator=(const HeapCounter&) = delete;

  // allocations is the number of successful calls of malloc, calloc and realloc.
  [[nodiscard]] std::size_t allocations() const;
  // peak_bytes is the most that was allocated at any time and not yet released, with the word that
  // the allocator keeps for each block.
  [[nodiscard]] std::size_t peak_bytes() const;
};

}  // namespace vt::bench

#endif  // VT_BENCH_HEAP_COUNTER_H_
