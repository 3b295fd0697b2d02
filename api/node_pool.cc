#include "api/node_pool.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "support/heap.h"

namespace vt::api {

namespace {

constexpr std::size_t kSmallestChunk = 4096;

}  // namespace

bool NodePool::Holds(const void* piece) const {
  const auto address = reinterpret_cast<std::uintptr_t>(piece);
  for (const Chunk* chunk = chunks_; chunk != nullptr; chunk = chunk->next) {
    if (address - reinterpret_cast<std::uintptr_t>(chunk + 1) < chunk->size) return true;
  }
  return false;
}

void NodePool::ReleaseAll() {
  while (chunks_ != nullptr) {
    Chunk* next = chunks_->next;
    std::free(chunks_);
    chunks_ = next;
  }
  *this = {};
}

bool NodePool::AddChunk(std::size_t least) {
  // By a quarter of what there is: few chunks, and little in vain.
  const std::size_t size = std::max({kSmallestChunk, total_ / 4, least + sizeof(Chunk)});
  auto* chunk = static_cast<Chunk*>(support::LargeBlock(size));
  if (chunk == nullptr) return false;
  *chunk = {chunks_, size - sizeof(Chunk)};
  total_ += size;
  chunks_ = chunk;
  next_ = reinterpret_cast<std::byte*>(chunk + 1);
  room_ = chunk->size;
  return true;
}

}  // namespace vt::api
