// The headers and the slots of an Event, which decoding puts into one block, and their release.
#ifndef VT_PROTOCOL_EVENT_PARTS_H
#define VT_PROTOCOL_EVENT_PARTS_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "vtapi/event.h"

namespace vt::protocol {

// What decoding makes begins with sec, which keeps room for its digest. Behind it stand pak and the
// slots, unless they are many, at addresses where no block of the heap begins: by these it is known
// that they go with sec.
constexpr std::size_t kHeapAlignment = 16;
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

inline void ReleaseSec(Event& ev) {
  std::free(ev.sec);
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

}  // namespace vt::protocol

#endif  // VT_PROTOCOL_EVENT_PARTS_H
