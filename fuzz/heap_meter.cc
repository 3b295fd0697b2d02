// Every allocation is seen: through the hooks of the sanitizer where one is in the build, and
// elsewhere by standing in front of the allocator of the C library.
#include "fuzz/heap_meter.h"

#include <malloc.h>

#include <cstdint>

#include "fuzz/check.h"
#include "tests/harness/sanitizers.h"

#ifdef VT_SANITIZER
// As <sanitizer/allocator_interface.h> has them, which does not come with every compiler.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" int __sanitizer_install_malloc_and_free_hooks(
    void (*on_malloc)(const volatile void* block, std::size_t size),
    void (*on_free)(const volatile void* block));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* block);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
#endif

namespace {

// Signed: blocks may be released that were allocated before the meter.
std::intptr_t live;
std::intptr_t highest;

// The fuzzer has a thread of its own, whose blocks do not count.
thread_local bool metering;

void CountAllocated(std::size_t size) {
  if (!metering) return;
  FUZZ_CHECK(size <= vt::fuzz::kAllocationLimit);
  live += static_cast<std::intptr_t>(size);
  if (live > highest) highest = live;
}

void CountReleased(std::size_t size) {
  if (metering) live -= static_cast<std::intptr_t>(size);
}

#ifdef VT_SANITIZER

void OnMalloc(const volatile void* /*block*/, std::size_t size) { CountAllocated(size); }

void OnFree(const volatile void* block) {
  if (block != nullptr) CountReleased(__sanitizer_get_allocated_size(block));
}

void InstallHooks() {
  static const int installed = __sanitizer_install_malloc_and_free_hooks(OnMalloc, OnFree);
  FUZZ_CHECK(installed > 0);
}

#else

void InstallHooks() {}

#endif

}  // namespace

#ifndef VT_SANITIZER

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) noexcept {
  void* block = __libc_malloc(size);
  if (block != nullptr) CountAllocated(malloc_usable_size(block));
  return block;
}

void* calloc(std::size_t count, std::size_t size) noexcept {
  void* block = __libc_calloc(count, size);
  if (block != nullptr) CountAllocated(malloc_usable_size(block));
  return block;
}

void* realloc(void* block, std::size_t size) noexcept {
  const std::size_t before = block != nullptr ? malloc_usable_size(block) : 0;
  void* resized = __libc_realloc(block, size);
  if (resized != nullptr || size == 0) CountReleased(before);
  if (resized != nullptr) CountAllocated(malloc_usable_size(resized));
  return resized;
}

void free(void* block) noexcept {
  if (block != nullptr) CountReleased(malloc_usable_size(block));
  __libc_free(block);
}

}  // extern "C"

#endif  // VT_SANITIZER

namespace vt::fuzz {

HeapMeter::HeapMeter() {
  InstallHooks();
  live = 0;
  highest = 0;
  metering = true;
}

std::size_t HeapMeter::peak() const { return static_cast<std::size_t>(highest); }

bool HeapMeter::balanced() const { return live == 0; }

}  // namespace vt::fuzz
