// The life of an Event: made for sending, or around received bytes, and released by its state.
#include "protocol/event.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "vtapi/enumerations.h"

#include "protocol/event_parts.h"
#include "protocol/wire_image.h"
#include "protocol/wire_layout.h"
#include "support/heap.h"
#include "support/log.h"

namespace vt::protocol {

namespace {

constexpr const char kReceive[] = "cv_mkevent_from_rawbuffer";

// NewPooled makes an Event in a pool, with room for its headers, its slots and, as a rule, its
// elements: these take two to three times their bytes on the wire in 64 bits, and half of that
// in 32.
OwnedRecord NewPooled(const std::uint8_t* raw, std::uint32_t raw_len, codec::MessagePool& pool) {
  constexpr std::size_t kRoomForByte = sizeof(void*) / 2;
  const std::size_t tlv_bytes = raw_len > VT_PDU_HEADER_SIZE ? raw_len - VT_PDU_HEADER_SIZE : 0;
  void* head = pool.NewHead(sizeof(Event) + SecSize(raw, raw_len), tlv_bytes * kRoomForByte);
  return OwnedRecord(static_cast<Event*>(head));
}

// NewRecord makes an Event with anything in it, in the pool if it can.
OwnedRecord NewRecord(const void* image, std::uint32_t size, codec::MessagePool* pool) {
  if (pool != nullptr) {
    if (OwnedRecord ev = NewPooled(static_cast<const std::uint8_t*>(image), size, *pool)) return ev;
  }
  return OwnedRecord(static_cast<Event*>(support::AllocateBytes(sizeof(Event)).release()));
}

// NewReceived makes an Event that has not been decoded yet, of an image that is not truncated, and
// that the Event does not own.
OwnedRecord NewReceived(std::int32_t size, const void* image, codec::MessagePool* pool) {
  if (size < static_cast<std::int32_t>(kSmallestImage)) {
    VT_LOG_AS(kDebug, kReceive, "Dropping truncated packet");
    return nullptr;
  }
  const auto raw_len = static_cast<std::uint32_t>(size);
  OwnedRecord ev = NewRecord(image, raw_len, pool);
  if (ev == nullptr) return nullptr;
  std::memset(ev.get(), 0, sizeof *ev);  // what lies between the fields too
  // Nothing writes to an image that was received.
  ev->raw = static_cast<std::uint8_t*>(const_cast<void*>(image));
  ev->raw_valid = 1;
  ev->raw_len = raw_len;
  ev->state = CV_EVENT_STATE_OK;
  return ev;
}

// OwnImage replaces the image by a copy, or returns false without memory and leaves none.
bool OwnImage(Event& ev) {
  auto* copy = static_cast<std::uint8_t*>(support::DuplicateBytes(ev.raw, ev.raw_len).release());
  if (copy == nullptr) {
    VT_LOG_AS(kInfo, kReceive, "Can't allocate memory for pkt creation");
    ForgetImage(ev);
    return false;
  }
  if (ev.raw_hdr != nullptr) ev.raw_hdr = copy + (ev.raw_hdr - ev.raw);
  ev.raw = copy;
  return true;
}

// Discard releases an Event without an image and elements, of which nobody has heard.
void Discard(OwnedRecord ev) {
  ReleasePak(*ev);
  ReleaseSec(*ev);
}

}  // namespace

Event* ReceiveEvent(std::int32_t size, const void* buf, const hmac_context* key,
                    codec::MessagePool* pool, int& error, Verdict& verdict) {
  OwnedRecord ev = NewReceived(size, buf, pool);
  if (ev == nullptr) return nullptr;
  VT_LOG_AS(kTrace, kReceive, "size %d", size);
  if (!codec::IsPooled(ev.get())) pool = nullptr;
  error = UnpackEvent(*ev, key, {.pool = pool, .owns_image = false}, verdict);
  if (ev->raw != nullptr && !OwnImage(*ev)) {
    Discard(std::move(ev));
    if (pool != nullptr) pool->TakeBack();
    return nullptr;
  }
  return ev.release();
}

}  // namespace vt::protocol

extern "C" {

Event* corvane_create_my_packet() {
  vt::support::Owned<Event> ev = vt::support::AllocateZeroed<Event>();
  if (ev == nullptr) return nullptr;
  ev->pak = vt::support::AllocateZeroed<message_header>().release();
  if (ev->pak == nullptr) return nullptr;
  cv_set_common_hdr(ev.get());
  ev->state = CV_EVENT_STATE_OK;
  VT_LOG(kTrace, "\n[VLTRS]:New my packet %p(%d)", static_cast<void*>(ev.get()), ev->pak->seq);
  return ev.release();
}

int cv_set_common_hdr(Event* ev) {
  ev->pak->type = CV_TYPE_MXRT;
  ev->pak->app = CV_APPLICATION_CORVANE;
  ev->pak->ver = 1;
  ev->pak_valid = 1;
  vt::protocol::DropImage(*ev);
  return 0;
}

Event* cv_mkevent_from_rawbuffer(std::int32_t size, const void* buf) {
  vt::protocol::OwnedRecord ev = vt::protocol::NewReceived(size, buf, nullptr);
  if (ev == nullptr || !vt::protocol::OwnImage(*ev)) return nullptr;
  VT_LOG(kTrace, "size %d", size);
  return ev.release();
}

int cv_free_data(Event* ev) {
  if (ev->raw != nullptr) {
    VT_LOG(kTrace, "free raw (%c %d) %p", ev->raw_valid == 1 ? 'T' : 'F', ev->raw_len,
           static_cast<void*>(ev->raw));
    std::free(ev->raw);
    ev->raw = nullptr;
    ev->raw_hdr = nullptr;
  }
  if (ev->pak != nullptr) {
    VT_LOG(kTrace, "free pak %p", static_cast<void*>(ev->pak));
    vt::protocol::ReleasePak(*ev);
  }
  if (ev->sec != nullptr) {
    VT_LOG(kTrace, "free sec %p", static_cast<void*>(ev->sec));
    vt::protocol::ReleaseSec(*ev);
  }
  ev->raw_valid = 0;
  ev->pak_valid = 0;
  return 0;
}

int corvane_try_gc(Event* ev) {
  // Deliberate: despite its name it always releases.
  VT_LOG(kTrace, "cleanup tlvs %p", static_cast<void*>(ev->tlvs));
  cv_free_tlvs(ev);
  VT_LOG(kTrace, "cleanup data %p", static_cast<void*>(ev->raw));
  cv_free_data(ev);
  VT_LOG(kTrace, "\n[VLTRS]:released event %p", static_cast<void*>(ev));
  vt::protocol::ReleaseRecord(ev);
  return 0;
}

int corvane_free_rply(Event* ev) {
  if (ev == nullptr || ev->state != CV_EVENT_STATE_REPLY) return 0;
  cv_free_tlvs(ev);
  vt::protocol::ReleasePak(*ev);
  vt::protocol::DropImage(*ev);
  vt::protocol::ReleaseSec(*ev);
  VT_LOG(kDebug, "Rply freed (%p)", static_cast<void*>(ev));
  vt::protocol::ReleaseRecord(ev);
  return 0;
}

int cv_cleanup_event(Event* ev) {
  if (ev == nullptr || ev->state == CV_EVENT_STATE_HELD) return 0;
  return ev->state == CV_EVENT_STATE_REPLY ? corvane_free_rply(ev) : corvane_try_gc(ev);
}

}  // extern "C"
