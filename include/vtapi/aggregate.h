/*
 * Aggregated elements: many values of one type gathered under one device, and the combined usage
 * entries and acknowledgements that travel in them. The entries are owned by the aggregate, that by
 * its element, and that by the Event.
 */
#ifndef VTAPI_AGGREGATE_H
#define VTAPI_AGGREGATE_H

#include "vtapi/event.h"

VT_BEGIN_DECLS

/*
 * cv_get_next_tlv_by_dh finds the aggregate of a base type for the device whose first 32 bytes are
 * those of dh. When there is none, it creates one if the low byte of create is not 0, else returns
 * null. The element belongs to the Event.
 */
VT_API Tlv* cv_get_next_tlv_by_dh(Event* ev, uint32_t type, const device_header* dh,
                                  uint32_t create);

/*
 * vt_create_aggr_tlv appends an aggregate without entries for dh, which is copied, and returns the
 * element, or null without memory. type has VT_TLV_AGGREGATED, or gets it.
 */
VT_API Tlv* vt_create_aggr_tlv(Event* ev, uint32_t type, const device_header* dh);

/*
 * cv_add_aggr_type_tlv appends a copy of data, under tag, to the aggregate of a base type for dh.
 * For combined types (43 to 45) usage is copied too. Returns 0, or 1 without memory or for a type
 * that cannot be gathered. When the array of entries cannot grow, the aggregate loses all its
 * entries. Deliberate: an aggregate that can be neither found nor created is 0 as well.
 */
VT_API int cv_add_aggr_type_tlv(Event* ev, uint32_t type, const void* data, uint32_t tag,
                                const device_header* dh, const usage_cmn_hdr* usage);

/*
 * cv_populate_combo_tlv_data fills an entry: 2 bytes of data for type 43, 22 for 44, 44 for 45.
 * Returns 1, or 0 for any other type, null data or no memory. After a failure the usage header is
 * the caller's to release with vt_free_usage_cmn_hdr, which does no harm to one that is released.
 */
VT_API int cv_populate_combo_tlv_data(combo_entry* entry, uint32_t type, const void* data,
                                      uint32_t tag, const usage_cmn_hdr* usage);

/*
 * cv_populate_aggr_tlv_data fills an entry by base type: 7, 9, 48 a text (data_len without the
 * terminator), 10 a text (data_len with it, deliberately), 12, 14, 16, 17 one byte, 13 two, 38, 51
 * four, 39 twenty-two, 36 forty-four. Returns 1, or 0 for any other type, null data or no memory.
 */
VT_API int cv_populate_aggr_tlv_data(plain_entry* entry, uint32_t type, const void* data,
                                     uint32_t tag);

/*
 * cv_aggr_ack appends an acknowledgement, an entry of which only the tag is set, to the aggregate
 * of type 42 for dh. Returns 0, also when there is no aggregate to append to; 1 without memory,
 * after which the aggregate may have lost all its entries.
 */
VT_API int cv_aggr_ack(Event* ev, uint32_t value, const device_header* dh);

VT_END_DECLS

#endif /* VTAPI_AGGREGATE_H */
