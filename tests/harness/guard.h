// Buffers that catch a read or write past their end. GuardedBytes ends at an inaccessible page, so
// an overrun stops the process in every build; HeapBytes is a malloc block of the exact size, so
// AddressSanitizer names the overrun, and its block can be handed to code that frees it.
#ifndef VT_TESTS_HARNESS_GUARD_H_
#define VT_TESTS_HARNESS_GUARD_H_

#include <cstddef>
#include <cstdint>

#include "tests/harness/hex.h"

namespace vt::testing {

// GuardedBytes is a writable copy of bytes whose last byte is the last before the inaccessible
// page. With no bytes, data points at that page itself.
class GuardedBytes {
 public:
  explicit GuardedBytes(const Bytes& bytes);
  // AtOddAddress places the copy at an odd address, for unaligned access. The end still touches
  // the inaccessible page when the size is odd; with an even size one accessible byte lies between.
  static GuardedBytes AtOddAddress(const Bytes& bytes);
  ~GuardedBytes();
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;

  std::uint8_t* data() { return data_; }
  const std::uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }
  // end is the first address past the copy.
  const std::uint8_t* end() const { return data_ + size_; }

 private:
  GuardedBytes(const Bytes& bytes, std::size_t slack);

  void* mapping_ = nullptr;
  std::size_t mapping_size_ = 0;
  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

// HeapBytes is a copy of bytes in a malloc block of exactly that size, never null.
class HeapBytes {
 public:
  explicit HeapBytes(const Bytes& bytes);
  ~HeapBytes();
  HeapBytes(const HeapBytes&) = delete;
  HeapBytes& operator=(const HeapBytes&) = delete;

  std::uint8_t* data() { return data_; }
  const std::uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }
  // release hands the block to the caller, who frees it with free.
  [[nodiscard]] std::uint8_t* release();

 private:
  std::uint8_t* data_;
  std::size_t size_;
};

}  // namespace vt::testing

#endif  // VT_TESTS_HARNESS_GUARD_H_
