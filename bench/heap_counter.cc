#include "bench/heap_counter.h"

#include <malloc.h>

#include <cstdint>

namespace {

bool counting;
std::size_t calls;
// Signed: blocks may be released that were allocated before.
std::intptr_t live;
std::intptr_t highest;

std::intptr_t Footprint(void* block) {
  return static_cast<std::intptr_t>(malloc_usable_size(block) + sizeof(std::size_t));
}

void* Allocated(void* block) {
  if (!counting || block == nullptr) return block;
  ++calls;
  live += Footprint(block);
  if (live > highest) highest = live;
  return block;
}

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) noexcept { return Allocated(__libc_malloc(size)); }

void* calloc(std::size_t count, std::size_t size) noexcept {
  return Allocated(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) noexcept {
  const std::intptr_t before = block != nullptr ? Footprint(block) : 0;
  void* const resized = __libc_realloc(block, size);
  if (counting && (resized != nullptr || size == 0)) live -= before;
  return Allocated(resized);
}

void free(void* block) noexcept {
  if (counting && block != nullptr) live -= Footprint(block);
  __libc_free(block);
}

}  // extern "C"

namespace vt::bench {

HeapCounter::HeapCounter() {
  calls = 0;
  live = 0;
  highest = 0;
  counting = true;
}

HeapCounter::~HeapCounter() { counting = false; }

std::size_t HeapCounter::allocations() const { return calls; }

std::size_t HeapCounter::peak_bytes() const { return static_cast<std::size_t>(highest); }

}  // namespace vt::bench
