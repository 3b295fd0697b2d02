#include "tests/harness/guard.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <new>
#include <utility>

#include "tests/harness/faults.h"

namespace vt::testing {

GuardedBytes::GuardedBytes(const Bytes& bytes) : GuardedBytes(bytes, 0) {}

GuardedBytes GuardedBytes::AtOddAddress(const Bytes& bytes) {
  return GuardedBytes(bytes, bytes.size() % 2 == 0 ? 1 : 0);
}

// slack is the number of accessible bytes after the copy.
GuardedBytes::GuardedBytes(const Bytes& bytes, std::size_t slack) : size_(bytes.size()) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t accessible = (size_ + slack + page - 1) / page * page;
  mapping_size_ = accessible + page;
  mapping_ = mmap(nullptr, mapping_size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping_ == MAP_FAILED) throw std::bad_alloc();
  if (accessible > 0 && mprotect(mapping_, accessible, PROT_READ | PROT_WRITE) != 0) {
    munmap(mapping_, mapping_size_);
    throw std::bad_alloc();
  }
  data_ = static_cast<std::uint8_t*>(mapping_) + accessible - slack - size_;
  for (std::size_t i = 0; i < size_; ++i) data_[i] = bytes[i];
}

GuardedBytes::~GuardedBytes() { munmap(mapping_, mapping_size_); }

HeapBytes::HeapBytes(const Bytes& bytes) : data_(nullptr), size_(bytes.size()) {
  const AllocationFault::Pause pause;
  data_ = static_cast<std::uint8_t*>(std::malloc(size_));
  if (data_ == nullptr) throw std::bad_alloc();
  for (std::size_t i = 0; i < size_; ++i) data_[i] = bytes[i];
}

HeapBytes::~HeapBytes() { std::free(data_); }

std::uint8_t* HeapBytes::release() { return std::exchange(data_, nullptr); }

}  // namespace vt::testing
