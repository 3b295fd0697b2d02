// Elements and aggregates as owners: how they are released whole, and the size of their arrays.
#ifndef VT_CODEC_TLV_MEMORY_H
#define VT_CODEC_TLV_MEMORY_H

#include <cstdint>
#include <memory>

#include "vtapi/tlv.h"

#include "codec/memory.h"
#include "codec/message_pool.h"
#include "codec/status.h"

namespace vt::codec {

// Entry arrays grow by blocks of 16 slots, and only when the count is a multiple of 16 or the array
// lies in the block of its element. Arrays made by cloning are therefore rounded up too: an entry
// may be appended to them later.
constexpr std::uint32_t kEntryBlock = 16;

constexpr std::uint32_t RoundUpToEntryBlock(std::uint32_t count) {
  return (count + kEntryBlock - 1) / kEntryBlock * kEntryBlock;
}

// NewEntrySlots returns zeroed slots for count entries, rounded up, or null.
[[nodiscard]] inline void** NewEntrySlots(std::uint32_t count) {
  return NewPointers(RoundUpToEntryBlock(count));
}

// A compact element is one block, which begins so and goes on with the value. Its value stands
// where no block of the heap begins, as these lie a multiple of 16 bytes apart: that tells it from
// an element that somebody else made. Instead of a block it may be a part of a pool, where no heap
// has its blocks at all.
struct CompactTlv {
  Tlv tlv;
  std::size_t size;         // of the block
  std::uintptr_t is_whole;  // 1 while no part lies elsewhere
};
static_assert(sizeof(CompactTlv) % kHeapAlignment == kHeapAlignment / 2);

// NewCompactTlv returns an element without a value, with value_room bytes behind it that may hold
// anything; or null. It is made in the pool, if there is one that has room, or is a block.
[[nodiscard]] inline CompactTlv* NewCompactTlv(std::uint32_t type, std::uint32_t length,
                                               std::uint32_t qualifier, std::size_t value_room,
                                               MessagePool* pool = nullptr) {
  const std::size_t size = sizeof(CompactTlv) + value_room;
  auto* made = static_cast<CompactTlv*>(pool != nullptr ? pool->NewPart(size) : nullptr);
  if (made == nullptr) made = static_cast<CompactTlv*>(NewBlock(size));
  if (made != nullptr) *made = {{type, length, qualifier, nullptr}, size, 1};
  return made;
}

// AsCompact is the element if it is compact, else null, as of one whose value was exchanged.
[[nodiscard]] inline CompactTlv* AsCompact(Tlv& tlv) {
  const std::uintptr_t behind = reinterpret_cast<std::uintptr_t>(&tlv) + sizeof(CompactTlv);
  const bool is_compact = reinterpret_cast<std::uintptr_t>(tlv.value) == behind;
  return is_compact ? reinterpret_cast<CompactTlv*>(&tlv) : nullptr;
}

// ReleaseElement releases the memory of an element that was one block or a part of a pool.
inline void ReleaseElement(Tlv* tlv) {
  if (!IsPooled(tlv)) ReleaseBlock(tlv);
}

[[nodiscard]] inline Extent ExtentOf(const CompactTlv* compact) {
  return compact != nullptr ? Extent(compact, compact->size) : Extent();
}

struct TlvDeleter {
  void operator()(Tlv* tlv) const { vt_free_tlv_ptr(tlv); }
};
using OwnedTlv = std::unique_ptr<Tlv, TlvDeleter>;

// NewTlv makes an element with a copy of value, which for a length of the header alone is none.
[[nodiscard]] Status NewTlv(std::uint32_t type, std::uint32_t length, std::uint32_t qualifier,
                            const void* value, OwnedTlv& out);

// ReleaseEntry releases one entry of an aggregate of the given type word, with all it owns; what
// lies in the block of its element stays.
void ReleaseEntry(const Extent& own, std::uint32_t type, void* entry);

// ReleaseEntries releases all entries and the array, and leaves the aggregate without any.
void ReleaseEntries(const Extent& own, std::uint32_t type, aggregated_value& aggregate);

// ReleaseAggregate releases the aggregate with all it owns; null is ignored.
void ReleaseAggregate(const Extent& own, std::uint32_t type, aggregated_value* aggregate);

}  // namespace vt::codec

#endif  // VT_CODEC_TLV_MEMORY_H
