// How much memory the library holds: a target measures one input with a HeapMeter of its own.
#ifndef VT_FUZZ_HEAP_METER_H_
#define VT_FUZZ_HEAP_METER_H_

#include <cstddef>

namespace vt::fuzz {

// The most that decoding a message of at most 1400 bytes may hold at any moment.
inline constexpr std::size_t kDecodingLimit = std::size_t{64} * 1024;

// The most that one allocation may ask for.
inline constexpr std::size_t kAllocationLimit = std::size_t{1024} * 1024;

// HeapMeter counts the bytes that are allocated after it was made. There is one at a time.
class HeapMeter {
 public:
  HeapMeter();
  // The most bytes that were held at once.
  [[nodiscard]] std::size_t peak() const;
  // Whether all blocks that were allocated since have been released.
  [[nodiscard]] bool balanced() const;
};

}  // namespace vt::fuzz

#endif  // VT_FUZZ_HEAP_METER_H_
