#include "codec/message_pool.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include "support/heap.h"

namespace vt::codec {

// A chunk belongs to the messages in it and, while messages are made there, to the pool.
struct MessagePool::Chunk {
  std::atomic<std::size_t> owners;
  std::size_t total;   // bytes of this and of all chunks before
  std::byte* next;     // what is free
  std::byte* end;      // of that
  std::byte* message;  // where the message begun last begins
};

namespace {

constexpr std::size_t kSmallestChunk = std::size_t{64} << 10U;

// A part begins half-way between two places where blocks of the heap can.
constexpr std::size_t kPlace = kHeapAlignment / 2;

// Before each head stands which chunk it lies in.
constexpr std::size_t kOwner = sizeof(void*);

std::size_t GapBefore(const std::byte* at) {
  return (kPlace - reinterpret_cast<std::uintptr_t>(at)) % kHeapAlignment;
}

}  // namespace

bool MessagePool::HasRoom(std::size_t n) const {
  return open_ != nullptr && n <= static_cast<std::size_t>(open_->end - open_->next);
}

bool MessagePool::AddChunk(std::size_t room) {
  // By a quarter of what there is: few chunks, and little in vain.
  const std::size_t before = open_ != nullptr ? open_->total : 0;
  const std::size_t size = std::max({sizeof(Chunk) + room, kSmallestChunk, before / 4});
  void* block = support::LargeBlock(size);
  if (block == nullptr) return false;
  Close();
  auto* bytes = static_cast<std::byte*>(block);
  open_ = ::new (block) Chunk{{1}, before + size, bytes + sizeof(Chunk), bytes + size, nullptr};
  return true;
}

void* MessagePool::NewHead(std::size_t size, std::size_t room) {
  constexpr std::size_t kBefore = kOwner + kHeapAlignment;
  if (!HasRoom(kBefore + size + room) && !AddChunk(kBefore + size + room)) return nullptr;
  open_->message = open_->next;
  open_->next += kOwner;
  void* head = NewPart(size);
  std::memcpy(static_cast<std::byte*>(head) - kOwner, &open_, kOwner);
  open_->owners.fetch_add(1, std::memory_order_relaxed);
  return head;
}

void* MessagePool::NewPart(std::size_t n) {
  const std::size_t gap = GapBefore(open_->next);
  const auto room = static_cast<std::size_t>(open_->end - open_->next);
  if (gap > room || n > room - gap) return nullptr;
  std::byte* part = open_->next + gap;
  open_->next = part + n;
  return part;
}

void MessagePool::GiveBack(std::size_t n) { open_->next -= n; }

void MessagePool::ReleaseHead(void* head) {
  Chunk* chunk = nullptr;
  std::memcpy(&chunk, static_cast<std::byte*>(head) - kOwner, kOwner);
  Leave(chunk);
}

void MessagePool::TakeBack() { open_->next = open_->message; }

void MessagePool::Leave(Chunk* chunk) {
  if (chunk->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) std::free(chunk);
}

void MessagePool::Close() {
  if (open_ != nullptr) Leave(open_);
  open_ = nullptr;
}

}  // namespace vt::codec
