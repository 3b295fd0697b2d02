// The headers and the slots of an Event, which decoding puts into one block, and their release with
// that of the Event itself.
#ifndef VT_PROTOCOL_EVENT_PARTS_H
#define VT_PROTOCOL_EVENT_PARTS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "vtapi/event.h"

#include "codec/message_pool.h"
#include "protocol/wire_layout.h"
#include "support/bytes.h"

namespace vt::protocol {

// What decoding makes begins with sec, which keeps room for its digest. Behind it stand pak and the
// slots, unless they are many, at addresses where no block of the heap begins: by these it is known
// that they go with sec. The head of a message in a pool is an Event and, right behind it, all
// this.
using codec::kHeapAlignment;
constexpr std::size_t kPakBehindSec = VT_SECURITY_HEADER_SIZE + VT_DIGEST_SIZE + kHeapAlignment / 2;
constexpr std::size_t kSlotsBehindSec = kPakBehindSec + sizeof(message_header);
static_assert(kPakBehindSec % kHeapAlignment == kHeapAlignment / 2 &&
              kSlotsBehindSec % kHeapAlignment == kHeapAlignment / 2);

// BehindSec is where a part is that goes with sec. GoesWithSec tells whether it is there.
inline void* BehindSec(const Event& ev, std::size_t offset) {
  return static_cast<std::byte*>(static_cast<void*>(ev.sec)) + offset;
}
inline bool GoesWithSec(const Event& ev, const void* part, std::size_t offset) {
  return reinterpret_cast<std::uintptr_t>(part) ==
         reinterpret_cast<std::uintptr_t>(ev.sec) + offset;
}

// GoesWithEvent tells whether sec is part of the Event's own block.
inline bool GoesWithEvent(const Event& ev) {
  return codec::IsPooled(&ev) && static_cast<const void*>(ev.sec) == &ev + 1;
}

inline void ReleaseSec(Event& ev) {
  if (!GoesWithEvent(ev)) std::free(ev.sec);
  ev.sec = nullptr;
}

inline void ReleasePak(Event& ev) {
  if (!GoesWithSec(ev, ev.pak, kPakBehindSec)) std::free(ev.pak);
  ev.pak = nullptr;
}

// ReleaseSlots releases the array, without the elements.
inline void ReleaseSlots(Event& ev) {
  if (!GoesWithSec(ev, ev.tlvs, kSlotsBehindSec)) std::free(ev.tlvs);
  ev.tlvs = nullptr;
}

// ReleaseRecord releases the Event alone, with what is part of its block.
inline void ReleaseRecord(Event* ev) {
  codec::IsPooled(ev) ? codec::MessagePool::ReleaseHead(ev) : std::free(ev);
}

struct RecordDeleter {
  void operator()(Event* ev) const { ReleaseRecord(ev); }
};

// OwnedRecord is the owner of an Event that has no other parts yet.
using OwnedRecord = std::unique_ptr<Event, RecordDeleter>;

// SlotCount is how many slots an image is given. No memory for more elements than there can be. Of
// a count beyond that, one slot more is enough: its element is missing, and what stands before it
// is decoded and reported on as ever.
inline std::uint32_t SlotCount(std::uint32_t tlv_bytes, std::uint32_t tlv_count) {
  return std::min(tlv_count, tlv_bytes / VT_TLV_HEADER_SIZE + 1);
}

// SlotsGoWithSec tells of so many slots whether they stand in the block of sec.
constexpr bool SlotsGoWithSec(std::uint32_t slots) {
  constexpr std::uint32_t kMost = 64;
  return slots <= kMost;
}

// SlotsAhead is how many slots will go with sec, from an image that may be too short for what it
// says.
inline std::uint32_t SlotsAhead(const std::uint8_t* raw, std::uint32_t raw_len) {
  if (raw_len < VT_PDU_HEADER_SIZE) return 0;
  constexpr std::size_t kTlvCountInHeader = kTlvBytesInHeader + sizeof(std::uint16_t);
  const std::uint8_t* header = raw + kMessageHeaderOffset;
  const std::uint32_t slots =
      SlotCount(support::LoadNetwork<std::uint16_t>(header + kTlvBytesInHeader),
                support::LoadNetwork<std::uint16_t>(header + kTlvCountInHeader));
  return SlotsGoWithSec(slots) ? slots : 0;
}

// SecSize is the size of the block of sec.
inline std::size_t SecSize(const std::uint8_t* raw, std::uint32_t raw_len) {
  return kSlotsBehindSec + SlotsAhead(raw, raw_len) * sizeof(Tlv*);
}

}  // namespace vt::protocol

#endif  // VT_PROTOCOL_EVENT_PARTS_H
