/*
 * One typed element of a message (type, length, value) and its conversion from and to the wire.
 *
 * On the wire: type (4 bytes), length of the whole element including these 12 bytes (4 bytes),
 * qualifier (4 bytes), value; all big-endian, at any address, without padding. A plain value fills
 * the element. An aggregated one (VT_TLV_AGGREGATED) is a device header, a 4-byte entry count and
 * the entries: a 4-byte tag, for combined types a usage common header, and the value, in which
 * texts and blocks are preceded by a 4-byte length.
 */
#ifndef VTAPI_TLV_H
#define VTAPI_TLV_H

#include "vtapi/catalogue.h"
#include "vtapi/structures.h"

VT_BEGIN_DECLS

#define VT_TLV_HEADER_SIZE 12 /* bytes of an element's header */

/*
 * Tlv: 16/24 bytes. length is 12 + the bytes of the value as it was built or received; of a decoded
 * text it counts the terminator, which does not travel. value is what the type's codec makes (an
 * aggregated_value for aggregated types), owned, and null where the value is empty, of an unknown
 * type, or of one that carries none.
 *
 * An element that the library made, by decoding or as part of an Event, may be one block of memory
 * with all its parts, or several. Its parts may be read and changed in place, but are released with
 * the element and never by themselves. An element that the application makes consists of a block
 * from malloc for each part.
 */
typedef struct Tlv {
  uint32_t type;      /* 0: with its flags */
  uint32_t length;    /* 4 */
  uint32_t qualifier; /* 8: 1 for a qualifier, 0 for an attribute */
  void* value;        /* 12/16 */
} Tlv;

/*
 * cv_create_tlv_from_raw_buf decodes the element at *cursor, of which *remaining bytes are left,
 * and returns it, the caller's to release with vt_free_tlv_ptr. *cursor then stands behind it and
 * *remaining is less by its length. Null is the answer when fewer than 12 bytes are left (then
 * *remaining is unchanged), when the length is below 12 or above what is left, when the value is
 * short, has bytes left over (ERROR "Received mismatched TLV for type %d, dropping packet") or
 * counts more entries than it can hold, and when memory is exhausted; *cursor is unchanged and
 * *remaining less by the length, but not below INT32_MIN. An element of an unknown type is kept
 * without its value (TRACE "Skipping unknown TLV, type = %d").
 */
VT_API Tlv* cv_create_tlv_from_raw_buf(int32_t* remaining, uint8_t** cursor);

/*
 * cv_update_raw_buf_from_tlv writes the element at dst, which has room for vt_get_tlv_size(tlv)
 * bytes, and returns the bytes written, always that size. Null texts travel as empty ones, bytes
 * that a block lacks as zeros.
 */
VT_API uint32_t cv_update_raw_buf_from_tlv(const Tlv* tlv, uint8_t* dst);

/* vt_get_tlv_size returns the bytes of the element on the wire, header included; 0 for null. */
VT_API uint32_t vt_get_tlv_size(const Tlv* tlv);

/*
 * vt_clone_tlv_ptr makes a deep copy of a value of the given type (with its flags), to become the
 * value of an element, which vt_free_tlv_ptr releases. value_len is the length of opaque values and
 * the least length of identities and vectors, whose copies are padded with zeros; other types know
 * their size. *status is 0, 1 (no memory, or a value_len above 0x7FFFFFFF) or 4 (value is null).
 * Null with status 0 is right for types that carry no value and for unknown ones.
 */
VT_API void* vt_clone_tlv_ptr(uint32_t type, uint32_t value_len, const void* value,
                              uint32_t* status);

/* vt_free_tlv_ptr releases an element, its value, and all entries of an aggregate; null is ignored.
 */
VT_API void vt_free_tlv_ptr(Tlv* tlv);

VT_END_DECLS

#endif /* VTAPI_TLV_H */
