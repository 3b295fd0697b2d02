// An outgoing Event made ready for the wire, and its elements put there.
#include "protocol/event_encode.h"

#include "protocol/tlv_list.h"
#include "protocol/wire_layout.h"
#include "support/assert.h"
#include "support/heap.h"

namespace vt::protocol {

void PackElements(Event& ev, std::uint32_t size) {
  // Asserted before the first byte is written: the image may be smaller than the elements when
  // their sum does not fit its counter.
  if (ev.pak->tlv_bytes != size) {
    support::AssertionFailed("!dlen", kUnit, __LINE__, "cv_pack_tlvs");
  }
  std::uint8_t* cursor = ev.raw_hdr + VT_MESSAGE_HEADER_SIZE;
  for (const Tlv* tlv : Slots(ev)) cursor += cv_update_raw_buf_from_tlv(tlv, cursor);
}

}  // namespace vt::protocol

extern "C" {

int cv_pack_event(Event* ev, std::uint32_t* out_tlv_bytes) {
  VT_ASSERT(ev->pak != nullptr, "ev->pak", vt::protocol::kUnit);
  VT_ASSERT(ev->raw == nullptr, "!ev->raw", vt::protocol::kUnit);
  *out_tlv_bytes = vt_get_total_tlvs_data_size(ev);
  // 16 bits travel. The caller has the whole sum and sizes the image by it.
  ev->pak->tlv_bytes = static_cast<std::uint16_t>(*out_tlv_bytes);
  if (ev->sec == nullptr) {
    ev->sec = vt::support::AllocateZeroed<security_header>().release();
    if (ev->sec == nullptr) {
      ev->state = CV_EVENT_STATE_FAILED;
      return 1;
    }
  }
  *ev->sec = {};
  return 0;
}

int cv_pack_tlvs(Event* ev) {
  vt::protocol::PackElements(*ev, vt_get_total_tlvs_data_size(ev));
  return 0;
}

}  // extern "C"
