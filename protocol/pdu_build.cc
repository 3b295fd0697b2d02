// A signed Pdu from an outgoing Event.
#include <cstdlib>
#include <cstring>

#include "vtapi/enumerations.h"
#include "vtapi/event.h"

#include "protocol/event_encode.h"
#include "protocol/event_parts.h"
#include "protocol/wire_layout.h"
#include "support/heap.h"
#include "support/log.h"

namespace {

using namespace vt::protocol;  // NOLINT(google-build-using-namespace): its wire layout, no more

struct MessageFields {
  std::uint32_t pri;
  std::uint32_t shipment;
  std::uint32_t cls;
  std::uint32_t action;
  const void* id;
  std::uint32_t seq;
};

void FillMessageHeader(message_header& pak, const MessageFields& fields) {
  pak.seq = fields.seq;
  std::memcpy(pak.voltarisid, fields.id, sizeof pak.voltarisid);
  pak.ver = 1;
  pak.class_ = static_cast<std::uint8_t>(fields.cls);
  pak.action = static_cast<std::uint16_t>(fields.action);
  pak.shipment = static_cast<std::int8_t>(fields.shipment);
  pak.pri = static_cast<std::uint8_t>(fields.pri);
  pak.type = CV_TYPE_MXRT;
  pak.app = CV_APPLICATION_CORVANE;
}

security_header SecurityHeader(std::uint32_t comm) {
  security_header sec{};
  sec.byte1 = Nibbles(kEnc, 0);
  sec.byte9 = Nibbles(static_cast<std::uint8_t>(comm & 0x0FU), kAuth);
  sec.digest_len = VT_DIGEST_SIZE;
  return sec;
}

}  // namespace

extern "C" {

int vtn_createPdu(Event* ev, std::uint32_t pri, std::uint32_t shipment, std::uint32_t cls,
                  std::uint32_t action, const void* id, std::uint32_t seq, const hmac_context* key,
                  std::uint32_t comm) {
  if (ev->pak != nullptr) FillMessageHeader(*ev->pak, {pri, shipment, cls, action, id, seq});
  std::uint32_t tlv_bytes = 0;
  if (cv_pack_event(ev, &tlv_bytes) != 0) return 1;

  const std::uint32_t raw_len = tlv_bytes + VT_PDU_HEADER_SIZE;
  ev->raw_len = raw_len;
  ev->raw = static_cast<std::uint8_t*>(vt::support::ZeroedBlock(raw_len));
  if (ev->raw == nullptr) return 1;
  VT_LOG(kTrace, "allocated raw size %d @ %p", raw_len, static_cast<void*>(ev->raw));
  ev->raw_valid = 1;

  *ev->sec = SecurityHeader(comm);
  cv_corvane_secure_host_to_nw(ev->sec, ev->raw);
  ev->raw_hdr = ev->raw + kMessageHeaderOffset;
  cv_corvane_event_host_to_nw(ev->pak, ev->raw_hdr);
  PackElements(*ev, tlv_bytes);
  hmac_sha_msg(key, ev->raw_hdr, (raw_len - kMessageHeaderOffset) & 0xFFFFU,
               ev->raw + kDigestOffset);
  return 0;
}

void vtn_releasePacket(Event* ev) {
  // Deliberately narrow: the headers and the elements are the caller's to release before.
  VT_LOG(kTrace, "free pdu %p", static_cast<void*>(ev->raw));
  std::free(ev->raw);
  VT_LOG(kTrace, "free pkt %p", static_cast<void*>(ev));
  vt::protocol::ReleaseRecord(ev);
}

}  // extern "C"
