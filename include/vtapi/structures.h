/*
 * The codec of structured values. The conventions are those of scalars.h; the records stand in
 * values.h.
 *
 * A structure travels as its fields one after another without padding; texts (s bytes) and blocks
 * (n bytes) are preceded by a 4-byte length. A null text packs as nothing at all, not even its
 * length; a null block as a length of 0. Unpacking stops at the first field that is short:
 * *consumed and *remaining then account for the fields, and the lengths, before it. A _ptr call
 * never hands out a partly filled record; unpacking into a caller's record leaves no owned part set
 * on failure. Unpacking and cloning treat a
 * caller's record as uninitialised: release what it owns before. Clones copy texts and blocks; a
 * null one inside a record stays null with status 0. A clone into a caller's record returns what it
 * stores at *status, and leaves the record zero-filled on failure.
 */
#ifndef VTAPI_STRUCTURES_H
#define VTAPI_STRUCTURES_H

#include "vtapi/scalars.h"
#include "vtapi/values.h"

VT_BEGIN_DECLS

/* corvane id: 32 bytes, copied as they are. */
VT_API uint32_t vt_pack_corvane_id(void* dst, const corvane_id* src);
VT_API void vt_unpack_corvane_id(const void* src, corvane_id* dst, uint32_t* consumed,
                                 int32_t* remaining, uint32_t* status);
VT_API corvane_id* vt_unpack_corvane_id_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                            uint32_t* status);

/* sender id, 36 bytes: corvane id, uint32. */
VT_API uint32_t vt_pack_sender_id(void* dst, const sender_id* src);
VT_API sender_id* vt_unpack_sender_id_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                          uint32_t* status);
VT_API uint32_t vt_get_sender_id_size(const sender_id* src); /* 36; null: 0 */
VT_API uint32_t vt_clone_sender_id(const sender_id* src, sender_id* dst, uint32_t* status);
VT_API sender_id* vt_clone_sender_id_ptr(const sender_id* src, uint32_t* status);

/* event id, 36 bytes: uint32, corvane id. */
VT_API uint32_t vt_pack_event_id(void* dst, const event_id* src);
VT_API event_id* vt_unpack_event_id_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                        uint32_t* status);
VT_API uint32_t vt_get_event_id_size(const event_id* src); /* 36; null: 0 */
VT_API uint32_t vt_clone_event_id(const event_id* src, event_id* dst, uint32_t* status);
VT_API event_id* vt_clone_event_id_ptr(const event_id* src, uint32_t* status);

/* device header, 36 + n bytes: corvane id, counted block. */
VT_API uint32_t vt_pack_deviceheader(void* dst, const device_header* src);
VT_API void vt_unpack_deviceheader(const void* src, device_header* dst, uint32_t* consumed,
                                   int32_t* remaining, uint32_t* status);
VT_API uint32_t vt_get_deviceheader_size(const device_header* src); /* 36 + n; null: 0 */
VT_API uint32_t vt_clone_deviceheader(const device_header* src, device_header* dst,
                                      uint32_t* status);
/* vt_free_deviceheader releases what the header owns, nulls it and zeroes data_len; the record
 * stays. */
VT_API void vt_free_deviceheader(device_header* header);

/* alarm, 14 bytes: uint32, uint8, uint8, int32, int32. */
VT_API uint32_t vt_pack_alarm(void* dst, const alarm_value* src);
VT_API alarm_value* vt_unpack_alarm_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                        uint32_t* status);
VT_API uint32_t vt_get_alarm_size(const alarm_value* src); /* 14; null: 0 */
VT_API alarm_value* vt_clone_alarm_ptr(const alarm_value* src, uint32_t* status);

/* recurrence, 10 + s bytes: counted text, uint8, uint8, boolean. */
VT_API uint32_t vt_pack_recurrence(void* dst, const recurrence* src);
VT_API recurrence* vt_unpack_recurrence_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                            uint32_t* status);
VT_API uint32_t vt_get_recurrence_size(const recurrence* src); /* 10 + s; null: 0 */
VT_API recurrence* vt_clone_recurrence_ptr(const recurrence* src, uint32_t* status);
VT_API void vt_free_recurrence_ptr(
    recurrence* value); /* releases the record too; null is ignored */

/*
 * neighbor, 44 + s + n bytes: corvane id, counted text, counted block, boolean. The fields that do
 * not travel are zero in decoded and cloned records.
 */
VT_API uint32_t vt_pack_neighbor(void* dst, const neighbor* src);
VT_API neighbor* vt_unpack_neighbor_ptr(const void* src, uint32_t* consumed, int32_t* remaining,
                                        uint32_t* status);
VT_API uint32_t vt_get_neighbor_size(const neighbor* src); /* 44 + s + n; null: 0 */
VT_API neighbor* vt_clone_neighbor_ptr(const neighbor* src, uint32_t* status);
VT_API void vt_free_neighbor_ptr(neighbor* value); /* releases the record too; null is ignored */

/*
 * usage common header, 23 + s1 + s2 + s3 bytes: uint32, int32, counted text, counted text, int8,
 * uint8, uint8, counted text.
 */
VT_API uint32_t vt_pack_usage_cmn_hdr(void* dst, const usage_cmn_hdr* src);
VT_API void vt_unpack_usage_cmn_hdr(const void* src, usage_cmn_hdr* dst, uint32_t* consumed,
                                    int32_t* remaining, uint32_t* status);
VT_API uint32_t vt_get_usage_cmn_hdr_size(const usage_cmn_hdr* src); /* null: 0 */
VT_API uint32_t vt_clone_usage_cmn_hdr(const usage_cmn_hdr* src, usage_cmn_hdr* dst,
                                       uint32_t* status);
/* vt_free_usage_cmn_hdr releases the three texts and nulls them; the record stays. */
VT_API void vt_free_usage_cmn_hdr(usage_cmn_hdr* header);

/* delta vector, 44 bytes: 11 int32. On short input the whole elements before the end are set. */
VT_API uint32_t vt_pack_delta_vector(void* dst, const delta_vector* src);
VT_API void vt_unpack_delta_vector(const void* src, delta_vector* dst, uint32_t* consumed,
                                   int32_t* remaining, uint32_t* status);
VT_API delta_vector* vt_unpack_delta_vector_ptr(const void* src, uint32_t* consumed,
                                                int32_t* remaining, uint32_t* status);

/* usage vector, 22 bytes: 11 uint16. On short input the whole elements before the end are set. */
VT_API uint32_t vt_pack_usage_vector(void* dst, const usage_vector* src);
VT_API void vt_unpack_usage_vector(const void* src, usage_vector* dst, uint32_t* consumed,
                                   int32_t* remaining, uint32_t* status);
VT_API usage_vector* vt_unpack_usage_vector_ptr(const void* src, uint32_t* consumed,
                                                int32_t* remaining, uint32_t* status);

VT_END_DECLS

#endif /* VTAPI_STRUCTURES_H */
