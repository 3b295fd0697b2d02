// The list of elements: appending, looking up, measuring, releasing.
#include "protocol/tlv_list.h"

#include <cstdlib>
#include <limits>

#include "vtapi/event.h"

#include "codec/tlv_memory.h"
#include "codec/tlv_size.h"
#include "protocol/event_parts.h"
#include "support/heap.h"

namespace {

using vt::codec::OwnedTlv;
using vt::protocol::IsReadable;
using vt::protocol::Slots;

constexpr std::uint32_t kSlotBlock = 16;
constexpr std::uint32_t kMostElements = std::numeric_limits<std::uint16_t>::max();

// GrowTo provides slots for more than count elements, 16 at a time. When there is no memory for
// them, the list is emptied: what it held could not be sent as it was meant.
bool GrowTo(Event& ev, std::uint32_t count) {
  std::uint32_t capacity = ev.tlv_capacity;
  while (capacity <= count) capacity += kSlotBlock;
  if (capacity == ev.tlv_capacity && ev.tlvs != nullptr) return true;
  auto** grown = static_cast<Tlv**>(vt::support::ZeroedBlock(capacity * sizeof(Tlv*)));
  if (grown == nullptr) {
    cv_free_tlvs(&ev);
    return false;
  }
  if (ev.tlvs != nullptr) std::copy_n(ev.tlvs, ev.tlv_capacity, grown);
  vt::protocol::ReleaseSlots(ev);
  ev.tlvs = grown;
  ev.tlv_capacity = capacity;
  return true;
}

}  // namespace

extern "C" {

int cv_add_tlv_common(Event* ev, std::uint32_t type, std::uint32_t length, const void* value,
                      std::uint32_t qualifier) {
  const std::uint32_t count = ev->pak->tlv_count;
  if (length < VT_TLV_HEADER_SIZE || count >= kMostElements) return 1;
  if (!GrowTo(*ev, count)) return 1;
  OwnedTlv tlv;
  const auto status = vt::codec::NewTlv(type, length, qualifier, value, tlv);
  if (status != vt::codec::Status::kOk) return static_cast<int>(ToWord(status));
  ev->tlvs[count] = tlv.release();
  ev->pak->tlv_count = static_cast<std::uint16_t>(count + 1);
  return 0;
}

int cv_add_tlv(Event* ev, std::uint32_t type, std::uint32_t length, const void* value) {
  return cv_add_tlv_common(ev, type, length, value, 0);
}

Tlv* cv_get_next_tlv(const Event* ev, std::uint32_t type) {
  if (!IsReadable(ev)) return nullptr;
  for (Tlv* tlv : Slots(*ev)) {
    if (tlv != nullptr && tlv->type == type) return tlv;
  }
  return nullptr;
}

void* cv_get_next_tlv_value_common(const Event* ev, std::int32_t* index_io, std::uint32_t type,
                                   std::uint32_t* out_value_len, std::uint32_t qualifier) {
  *out_value_len = 0;
  const std::int32_t first = *index_io;
  *index_io = -1;
  if (!IsReadable(ev) || first < 0) return nullptr;
  const auto slots = Slots(*ev);
  for (auto i = static_cast<std::size_t>(first); i < slots.size(); ++i) {
    const Tlv* tlv = slots[i];
    if (tlv == nullptr || tlv->type != type || tlv->qualifier != qualifier) continue;
    *index_io = static_cast<std::int32_t>(i);
    *out_value_len = tlv->length - VT_TLV_HEADER_SIZE;
    return tlv->value;
  }
  return nullptr;
}

std::uint32_t vt_get_total_tlvs_data_size(const Event* ev) {
  std::uint32_t size = 0;
  if (ev == nullptr) return size;
  for (const Tlv* tlv : Slots(*ev)) {
    if (tlv != nullptr) size += vt::codec::TlvSize(*tlv);
  }
  return size;
}

int cv_free_tlvs(Event* ev) {
  if (ev->tlvs != nullptr) {
    // All slots, not only those that the header counts: the header may be gone or reset.
    const std::span elements(ev->tlvs, ev->tlv_capacity);
    for (const Tlv* tlv : elements) __builtin_prefetch(tlv);
    for (Tlv* tlv : elements) vt_free_tlv_ptr(tlv);
    vt::protocol::ReleaseSlots(*ev);
  }
  ev->tlv_capacity = 0;
  return 0;
}

}  // extern "C"
