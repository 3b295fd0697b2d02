/*
 * The message in memory: an Event owns its wire image, its two headers in host order and its list
 * of elements. An outgoing Event is created, filled, made into a signed Pdu, sent and cleaned up; a
 * received one is wrapped around its bytes, decoded, read and cleaned up. An Event belongs to one
 * thread at a time.
 *
 * Misuse (not bad input) ends the process through an assertion that names the unit "corvane_util".
 */
#ifndef VTAPI_EVENT_H
#define VTAPI_EVENT_H

#include "vtapi/pdu.h"
#include "vtapi/tlv.h"

VT_BEGIN_DECLS

/* The states of an Event. */
enum cv_event_state {
  CV_EVENT_STATE_OK = 0x101,    /* created or decoded */
  CV_EVENT_STATE_HELD = 0x103,  /* owned elsewhere: cv_cleanup_event leaves it alone */
  CV_EVENT_STATE_REPLY = 0x104, /* released through corvane_free_rply */
  CV_EVENT_STATE_FAILED = 0x107 /* decoding or packing failed */
};

/*
 * Event: 48/80 bytes. The number of elements in use is pak->tlv_count; slots above it are null.
 * Everything it points at is owned, raw_hdr excepted. Of a decoded Event, pak and tlvs may lie in
 * the block of sec: they are released with the Event or by the calls below, not by themselves. Of
 * one that a ResultSet has taken in, sec and the elements may lie with the Event too, and are valid
 * until its release, which may come after that of the ResultSet.
 */
typedef struct Event {
  struct Event* next;    /* 0: link while the Event sits in a queue */
  uint32_t raw_valid;    /* 4/8: 1 while raw holds a wire image */
  uint32_t pak_valid;    /* 8/12: 1 while pak and tlvs may be used */
  uint32_t state;        /* 12/16: enum cv_event_state */
  uint8_t* raw;          /* 16/24: wire image, or null */
  uint32_t raw_len;      /* 20/32: bytes at raw */
  uint8_t* raw_hdr;      /* 24/40: the message header inside raw */
  security_header* sec;  /* 28/48 */
  message_header* pak;   /* 32/56 */
  Tlv** tlvs;            /* 36/64 */
  uint32_t tlv_capacity; /* 40/72: slots at tlvs */
  uint32_t spare;        /* 44/76: the library leaves it alone */
} Event;

/*
 * corvane_create_my_packet returns a new outgoing Event with the fixed header fields set and no
 * elements, to be released with cv_cleanup_event; null when memory is exhausted.
 */
VT_API Event* corvane_create_my_packet(void);

/*
 * cv_set_common_hdr sets type, app and ver, marks the header valid and drops the wire image.
 * Returns 0.
 */
VT_API int cv_set_common_hdr(Event* ev);

/*
 * cv_mkevent_from_rawbuffer returns a new Event that holds a copy of the size bytes at buf, not yet
 * decoded; null below 60 bytes (DEBUG "Dropping truncated packet") or without memory.
 */
VT_API Event* cv_mkevent_from_rawbuffer(int32_t size, const void* buf);

/*
 * cv_unpack_event decodes the wire image and returns 0, or 1 (no memory or an element that cannot
 * be decoded), 3 (the sizes do not agree) or 5 (security header not acceptable). An Event that is
 * decoded already is left alone, with 0 (one left half decoded for want of memory asserts
 * "!ev->pak"). The digest is compared with that of key but, at this layer, a mismatch is only
 * logged; a message without elements is not compared and keeps its image.
 */
VT_API int cv_unpack_event(Event* ev, const hmac_context* key);

/*
 * cv_unpack_tlvs decodes the elements of the wire image into tlvs; 0, or 1 with the list empty.
 * Asserts "ev", "ev->pak" and "ev->tlvs".
 */
VT_API int cv_unpack_tlvs(Event* ev);

/*
 * cv_pack_event readies an outgoing Event: it counts the bytes of the elements into *out_tlv_bytes
 * and the header and provides a zeroed sec. Returns 0, or 1 without memory. Asserts "ev->pak" and
 * "!ev->raw".
 */
VT_API int cv_pack_event(Event* ev, uint32_t* out_tlv_bytes);

/*
 * cv_pack_tlvs encodes the elements behind raw_hdr + 48; returns 0. Asserts "!dlen": that their
 * sizes add up to the TLV bytes of the header.
 */
VT_API int cv_pack_tlvs(Event* ev);

/*
 * vtn_validateMessageHeader returns 1 when the digest in the wire image is the HMAC of the message
 * under key, else 0 with WARN "HMAC_SHA1 header mismatch %d". A tag that is not 0 is only warned
 * of. 0 without a line when there is no image of at least 80 bytes.
 */
VT_API int vtn_validateMessageHeader(Event* ev, const hmac_context* key);

/* vt_get_total_tlvs_data_size returns the sum of the wire sizes of the elements, in bytes. */
VT_API uint32_t vt_get_total_tlvs_data_size(const Event* ev);

/*
 * cv_add_tlv_common appends an element with a copy of value. length is 12 + the bytes of the value.
 * Returns 0, 1 without memory (the Event is usable as before or, when the list could not grow, has
 * lost its elements), for a length below 12 or beyond 65535 elements, or the status of
 * vt_clone_tlv_ptr. cv_add_tlv is the same with qualifier 0.
 */
VT_API int cv_add_tlv_common(Event* ev, uint32_t type, uint32_t length, const void* value,
                             uint32_t qualifier);
VT_API int cv_add_tlv(Event* ev, uint32_t type, uint32_t length, const void* value);

/*
 * cv_get_next_tlv returns the first element of exactly that type, flags included, or null. It stays
 * the Event's.
 */
VT_API Tlv* cv_get_next_tlv(const Event* ev, uint32_t type);

/*
 * cv_get_next_tlv_value_common finds the first element at or above *index_io with that type and
 * qualifier, stores its slot at *index_io and its length - 12 at *out_value_len and returns its
 * value, which may be null and stays the Event's. No hit: *index_io is -1 and *out_value_len 0. For
 * the next match, go on at *index_io + 1.
 */
VT_API void* cv_get_next_tlv_value_common(const Event* ev, int32_t* index_io, uint32_t type,
                                          uint32_t* out_value_len, uint32_t qualifier);

/* cv_free_tlvs releases the elements and their array; pak->tlv_count stays. Returns 0. */
VT_API int cv_free_tlvs(Event* ev);

/* cv_free_data releases the wire image and both headers; raw_len stays. Returns 0. */
VT_API int cv_free_data(Event* ev);

/* corvane_try_gc releases the Event with all it owns, always. Returns 0. */
VT_API int corvane_try_gc(Event* ev);

/* corvane_free_rply releases an Event in state CV_EVENT_STATE_REPLY and no other. Returns 0. */
VT_API int corvane_free_rply(Event* ev);

/*
 * cv_cleanup_event releases an Event by its state: replies through corvane_free_rply, held ones not
 * at all, others through corvane_try_gc; null is ignored. Returns 0.
 */
VT_API int cv_cleanup_event(Event* ev);

/*
 * vtn_createPdu turns an outgoing Event into a signed wire image (raw, raw_len). pri, shipment and
 * cls are 8 bits wide, action 16, comm 4; id is 32 bytes; key is a keyed context. Returns 0, or 1
 * without memory. An image of 65568 bytes or more is signed over the first (raw_len - 32) mod 65536
 * bytes only, for the digest's length is 16 bits wide; more than 65535 bytes of elements end the
 * process through the assertion "!dlen".
 */
VT_API int vtn_createPdu(Event* ev, uint32_t pri, uint32_t shipment, uint32_t cls, uint32_t action,
                         const void* id, uint32_t seq, const hmac_context* key, uint32_t comm);

/*
 * vtn_releasePacket releases the wire image and the record, and deliberately nothing else: release
 * pak, sec and the elements (cv_free_tlvs) before.
 */
VT_API void vtn_releasePacket(Event* ev);

VT_END_DECLS

#endif /* VTAPI_EVENT_H */
