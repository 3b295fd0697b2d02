// The elements of an Event as a range. The count stands in the header and the capacity in the
// Event; after a failed growth or a release the count may be the larger one, so every walk stops at
// the lesser of the two.
#ifndef VT_PROTOCOL_TLV_LIST_H
#define VT_PROTOCOL_TLV_LIST_H

#include <algorithm>
#include <cstdint>
#include <span>

#include "vtapi/event.h"

namespace vt::protocol {

// Slots gives the slots in use, some of which may be null; none of an Event without a list.
[[nodiscard]] inline std::span<Tlv* const> Slots(const Event& ev) {
  if (ev.pak == nullptr || ev.tlvs == nullptr) return {};
  return {ev.tlvs, std::min<std::size_t>(ev.pak->tlv_count, ev.tlv_capacity)};
}

// IsReadable tells whether look-ups may use the Event.
[[nodiscard]] inline bool IsReadable(const Event* ev) {
  return ev != nullptr && ev->pak_valid != 0 && ev->pak != nullptr && ev->tlvs != nullptr;
}

}  // namespace vt::protocol

#endif  // VT_PROTOCOL_TLV_LIST_H
