// Elements and aggregates as owners: how they are released whole, and the size of their arrays.
#ifndef VT_CODEC_TLV_MEMORY_H
#define VT_CODEC_TLV_MEMORY_H

#include <cstdint>
#include <memory>

#include "vtapi/tlv.h"

#include "codec/memory.h"

namespace vt::codec {

// Entry arrays grow by blocks of 16 slots, and only when the count is a multiple of 16. Arrays made
// by decoding and cloning are therefore rounded up too: an entry may be appended to them later.
constexpr std::uint32_t kEntryBlock = 16;

constexpr std::uint32_t RoundUpToEntryBlock(std::uint32_t count) {
  return (count + kEntryBlock - 1) / kEntryBlock * kEntryBlock;
}

// NewEntrySlots returns zeroed slots for count entries, rounded up, or null.
[[nodiscard]] inline void** NewEntrySlots(std::uint32_t count) {
  return NewPointers(RoundUpToEntryBlock(count));
}

struct TlvDeleter {
  void operator()(Tlv* tlv) const { vt_free_tlv_ptr(tlv); }
};
using OwnedTlv = std::unique_ptr<Tlv, TlvDeleter>;

// ReleaseEntry releases one entry of an aggregate of the given type word, with all it owns.
void ReleaseEntry(std::uint32_t type, void* entry);

// ReleaseEntries releases all entries and the array, and leaves the aggregate without any.
void ReleaseEntries(std::uint32_t type, aggregated_value& aggregate);

// ReleaseAggregate releases the aggregate with all it owns; null is ignored.
void ReleaseAggregate(std::uint32_t type, aggregated_value* aggregate);

}  // namespace vt::codec

#endif  // VT_CODEC_TLV_MEMORY_H
