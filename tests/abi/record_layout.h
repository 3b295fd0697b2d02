/*
 * The sizes and offsets of all public records, for both word sizes. Compiling this header is the
 * test; record_layout_c.c does so as C and record_layout_cc.cc as C++.
 */
#ifndef VT_TESTS_ABI_RECORD_LAYOUT_H_
#define VT_TESTS_ABI_RECORD_LAYOUT_H_

#include <stddef.h>
#include <sys/time.h>

#include "vtapi.h"

#ifdef __cplusplus
#define VT_LAYOUT(condition) static_assert(condition, #condition)
#else
/* C99 has no assertion of its own: an array type of negative size stops the compiler. */
#define VT_LAYOUT_JOIN(a, b) a##b
#define VT_LAYOUT_NAME(line) VT_LAYOUT_JOIN(vt_layout_line_, line)
#define VT_LAYOUT(condition) typedef char VT_LAYOUT_NAME(__LINE__)[(condition) ? 1 : -1]
#endif

/* The last two arguments are the numbers for 32-bit and for 64-bit pointers. */
#define VT_BY_WORD(bits32, bits64) (sizeof(void*) == 4 ? (bits32) : (bits64))
#define VT_SIZE(record, bits32, bits64) VT_LAYOUT(sizeof(record) == VT_BY_WORD(bits32, bits64))
#define VT_OFFSET(record, field, bits32, bits64) \
  VT_LAYOUT(offsetof(record, field) == VT_BY_WORD(bits32, bits64))
#define VT_FIELD_SIZE(record, field, bytes) VT_LAYOUT(sizeof(((record*)0)->field) == (bytes))

VT_LAYOUT(sizeof(void*) == 4 || sizeof(void*) == 8);
/* Time-outs are passed as struct timeval, which 64-bit times on i386 would change. */
VT_SIZE(struct timeval, 8, 16);
VT_SIZE(struct sockaddr_in, 16, 16);

VT_SIZE(hmac_context, 160, 160);
VT_OFFSET(hmac_context, hash_state, 0, 0);
VT_FIELD_SIZE(hmac_context, hash_state, 96);
VT_OFFSET(hmac_context, outer_pad, 96, 96);
VT_FIELD_SIZE(hmac_context, outer_pad, 64);

VT_SIZE(SocketEndpoint, 36, 36);
VT_OFFSET(SocketEndpoint, descriptor, 0, 0);
VT_FIELD_SIZE(SocketEndpoint, descriptor, 4);
VT_OFFSET(SocketEndpoint, local, 4, 4);
VT_OFFSET(SocketEndpoint, remote, 20, 20);

VT_SIZE(Session, 336, 336);
VT_OFFSET(Session, descriptor, 0, 0);
VT_OFFSET(Session, local, 4, 4);
VT_OFFSET(Session, target, 20, 20);
VT_OFFSET(Session, key, 36, 36);
VT_OFFSET(Session, sequence_number, 196, 196);
VT_FIELD_SIZE(Session, sequence_number, 4);
VT_OFFSET(Session, identity, 200, 200);
VT_FIELD_SIZE(Session, identity, 37);
VT_OFFSET(Session, reserved, 237, 237);
VT_FIELD_SIZE(Session, reserved, 99);

VT_SIZE(queue_element, 4, 8);
VT_SIZE(queue, 16, 24);
VT_OFFSET(queue, head, 0, 0);
VT_OFFSET(queue, tail, 4, 8);
VT_OFFSET(queue, depth, 8, 16);
VT_FIELD_SIZE(queue, depth, 4);
VT_OFFSET(queue, size, 12, 20);
VT_FIELD_SIZE(queue, size, 4);

VT_SIZE(attribute_list_entry, 8, 16);
VT_OFFSET(attribute_list_entry, next, 0, 0);
VT_OFFSET(attribute_list_entry, attribute, 4, 8);
VT_FIELD_SIZE(attribute_list_entry, attribute, 4);

VT_SIZE(Query, 40, 56);
VT_OFFSET(Query, session, 0, 0);
VT_OFFSET(Query, class_, 4, 8);
VT_FIELD_SIZE(Query, class_, 4);
VT_OFFSET(Query, action, 8, 12);
VT_FIELD_SIZE(Query, action, 4);
VT_OFFSET(Query, priority, 12, 16);
VT_FIELD_SIZE(Query, priority, 1);
VT_OFFSET(Query, attribute_count, 16, 20);
VT_FIELD_SIZE(Query, attribute_count, 4);
VT_OFFSET(Query, event, 20, 24);
VT_OFFSET(Query, attributes, 24, 32);
VT_FIELD_SIZE(Query, attributes, sizeof(queue));

VT_SIZE(AckEntry, 36, 36);
VT_OFFSET(AckEntry, device_id, 0, 0);
VT_FIELD_SIZE(AckEntry, device_id, 32);
VT_OFFSET(AckEntry, entity_index, 32, 32);

VT_SIZE(ResultSet, 216, 216);
VT_OFFSET(ResultSet, rows, 0, 0);
VT_OFFSET(ResultSet, events, 16, 24);
VT_OFFSET(ResultSet, domain, 32, 48);
VT_OFFSET(ResultSet, query, 36, 56);
VT_OFFSET(ResultSet, ack_count, 40, 64);
VT_OFFSET(ResultSet, nak_count, 44, 68);
VT_OFFSET(ResultSet, answers_pending, 48, 72);
VT_OFFSET(ResultSet, answers_received, 52, 76);
VT_OFFSET(ResultSet, unused, 56, 80);
VT_OFFSET(ResultSet, expected, 60, 84);
VT_OFFSET(ResultSet, row_count, 64, 88);
VT_OFFSET(ResultSet, device_cursor, 68, 96);
VT_OFFSET(ResultSet, entity_cursor, 72, 104);
VT_OFFSET(ResultSet, error_code, 76, 112);
VT_FIELD_SIZE(ResultSet, error_code, 4);
VT_OFFSET(ResultSet, flag, 80, 116);
VT_FIELD_SIZE(ResultSet, flag, 1);
VT_OFFSET(ResultSet, naks, 84, 120);
VT_OFFSET(ResultSet, acks, 88, 128);
VT_OFFSET(ResultSet, reserved, 92, 136);
/* The reserved words reach to the very end of the record. */
VT_LAYOUT(offsetof(ResultSet, reserved) + sizeof(((ResultSet*)0)->reserved) == 216);

VT_SIZE(device_node, 24, 40);
VT_OFFSET(device_node, next, 0, 0);
VT_OFFSET(device_node, key, 4, 8);
VT_OFFSET(device_node, entities, 8, 16);

VT_SIZE(entity_node, 24, 40);
VT_OFFSET(entity_node, next, 0, 0);
VT_OFFSET(entity_node, entity_index, 4, 8);
VT_FIELD_SIZE(entity_node, entity_index, 4);
VT_OFFSET(entity_node, attributes, 8, 16);

VT_SIZE(attribute_node, 20, 32);
VT_OFFSET(attribute_node, next, 0, 0);
VT_OFFSET(attribute_node, taken, 4, 8);
VT_OFFSET(attribute_node, type, 8, 12);
VT_OFFSET(attribute_node, length, 12, 16);
VT_FIELD_SIZE(attribute_node, length, 4);
VT_OFFSET(attribute_node, value, 16, 24);

VT_SIZE(CollectionOptions, 12, 12);
VT_OFFSET(CollectionOptions, connect_ms, 0, 0);
VT_OFFSET(CollectionOptions, idle_ms, 4, 4);
VT_OFFSET(CollectionOptions, total_ms, 8, 8);

VT_SIZE(CollectionCounters, 24, 24);
VT_OFFSET(CollectionCounters, bytes, 0, 0);
VT_OFFSET(CollectionCounters, accepted, 8, 8);
VT_OFFSET(CollectionCounters, forged, 12, 12);
VT_OFFSET(CollectionCounters, malformed, 16, 16);
VT_OFFSET(CollectionCounters, acknowledgements, 20, 20);

VT_SIZE(FleetCounters, 16, 16);
VT_OFFSET(FleetCounters, waiting, 0, 0);
VT_OFFSET(FleetCounters, running, 4, 4);
VT_OFFSET(FleetCounters, ended, 8, 8);
VT_OFFSET(FleetCounters, finished, 12, 12);

VT_SIZE(ResultCursor, 56, 72);
VT_OFFSET(ResultCursor, result, 0, 0);
VT_OFFSET(ResultCursor, device, 4, 8);
VT_OFFSET(ResultCursor, row, 8, 16);
VT_OFFSET(ResultCursor, sender, 12, 24);
VT_OFFSET(ResultCursor, identity, 16, 32);
VT_FIELD_SIZE(ResultCursor, identity, 36);
VT_OFFSET(ResultCursor, at_end, 52, 68);
VT_FIELD_SIZE(ResultCursor, at_end, 4);

VT_SIZE(ResultRow, 20, 40);
VT_OFFSET(ResultRow, device, 0, 0);
VT_OFFSET(ResultRow, sender, 4, 8);
VT_OFFSET(ResultRow, entity_index, 8, 16);
VT_FIELD_SIZE(ResultRow, entity_index, 4);
VT_OFFSET(ResultRow, attributes, 12, 24);
VT_OFFSET(ResultRow, domain, 16, 32);

VT_SIZE(Event, 48, 80);
VT_OFFSET(Event, next, 0, 0);
VT_OFFSET(Event, raw_valid, 4, 8);
VT_OFFSET(Event, pak_valid, 8, 12);
VT_OFFSET(Event, state, 12, 16);
VT_OFFSET(Event, raw, 16, 24);
VT_OFFSET(Event, raw_len, 20, 32);
VT_FIELD_SIZE(Event, raw_len, 4);
VT_OFFSET(Event, raw_hdr, 24, 40);
VT_OFFSET(Event, sec, 28, 48);
VT_OFFSET(Event, pak, 32, 56);
VT_OFFSET(Event, tlvs, 36, 64);
VT_OFFSET(Event, tlv_capacity, 40, 72);
VT_OFFSET(Event, spare, 44, 76);
VT_FIELD_SIZE(Event, spare, 4);

VT_SIZE(Tlv, 16, 24);
VT_OFFSET(Tlv, type, 0, 0);
VT_OFFSET(Tlv, length, 4, 4);
VT_OFFSET(Tlv, qualifier, 8, 8);
VT_FIELD_SIZE(Tlv, qualifier, 4);
VT_OFFSET(Tlv, value, 12, 16);

VT_SIZE(security_header, 12, 12);
VT_OFFSET(security_header, byte0, 0, 0);
VT_OFFSET(security_header, byte1, 1, 1);
VT_OFFSET(security_header, unnamed16, 2, 2);
VT_FIELD_SIZE(security_header, unnamed16, 2);
VT_OFFSET(security_header, tag, 4, 4);
VT_FIELD_SIZE(security_header, tag, 4);
VT_OFFSET(security_header, unnamed8, 8, 8);
VT_OFFSET(security_header, byte9, 9, 9);
VT_OFFSET(security_header, digest_len, 10, 10);
VT_FIELD_SIZE(security_header, digest_len, 2);

VT_SIZE(message_header, 48, 48);
VT_OFFSET(message_header, seq, 0, 0);
VT_OFFSET(message_header, voltarisid, 4, 4);
VT_FIELD_SIZE(message_header, voltarisid, 32);
VT_OFFSET(message_header, ver, 36, 36);
VT_OFFSET(message_header, shipment, 37, 37);
VT_OFFSET(message_header, pri, 38, 38);
VT_OFFSET(message_header, type, 39, 39);
VT_OFFSET(message_header, app, 40, 40);
VT_OFFSET(message_header, class_, 41, 41);
VT_OFFSET(message_header, action, 42, 42);
VT_FIELD_SIZE(message_header, action, 2);
VT_OFFSET(message_header, tlv_bytes, 44, 44);
VT_FIELD_SIZE(message_header, tlv_bytes, 2);
VT_OFFSET(message_header, tlv_count, 46, 46);
VT_FIELD_SIZE(message_header, tlv_count, 2);

VT_SIZE(corvane_id, 32, 32);

VT_SIZE(sender_id, 36, 36);
VT_OFFSET(sender_id, id, 0, 0);
VT_OFFSET(sender_id, number, 32, 32);

VT_SIZE(event_id, 36, 36);
VT_OFFSET(event_id, number, 0, 0);
VT_OFFSET(event_id, id, 4, 4);

VT_SIZE(device_header, 40, 48);
VT_OFFSET(device_header, id, 0, 0);
VT_OFFSET(device_header, data_len, 32, 32);
VT_FIELD_SIZE(device_header, data_len, 4);
VT_OFFSET(device_header, data, 36, 40);

VT_SIZE(aggregated_value, 48, 64);
VT_OFFSET(aggregated_value, device, 0, 0);
VT_OFFSET(aggregated_value, entry_count, 40, 48);
VT_FIELD_SIZE(aggregated_value, entry_count, 4);
VT_OFFSET(aggregated_value, entries, 44, 56);

VT_SIZE(plain_entry, 12, 16);
VT_OFFSET(plain_entry, tag, 0, 0);
VT_OFFSET(plain_entry, data_len, 4, 4);
VT_OFFSET(plain_entry, data, 8, 8);

VT_SIZE(usage_cmn_hdr, 24, 40);
VT_OFFSET(usage_cmn_hdr, word, 0, 0);
VT_OFFSET(usage_cmn_hdr, value, 4, 4);
VT_OFFSET(usage_cmn_hdr, text1, 8, 8);
VT_OFFSET(usage_cmn_hdr, text2, 12, 16);
VT_OFFSET(usage_cmn_hdr, small, 16, 24);
VT_OFFSET(usage_cmn_hdr, byte1, 17, 25);
VT_OFFSET(usage_cmn_hdr, byte2, 18, 26);
VT_OFFSET(usage_cmn_hdr, text3, 20, 32);

VT_SIZE(combo_entry, 32, 56);
VT_OFFSET(combo_entry, tag, 0, 0);
VT_OFFSET(combo_entry, usage, 4, 8);
VT_OFFSET(combo_entry, data, 28, 48);

VT_SIZE(recurrence, 12, 16);
VT_OFFSET(recurrence, text, 0, 0);
VT_OFFSET(recurrence, byte1, 4, 8);
VT_OFFSET(recurrence, byte2, 5, 9);
VT_OFFSET(recurrence, flag, 8, 12);
VT_FIELD_SIZE(recurrence, flag, 4);

VT_SIZE(alarm_value, 16, 16);
VT_OFFSET(alarm_value, word, 0, 0);
VT_OFFSET(alarm_value, byte1, 4, 4);
VT_OFFSET(alarm_value, byte2, 5, 5);
VT_OFFSET(alarm_value, value1, 8, 8);
VT_OFFSET(alarm_value, value2, 12, 12);

VT_SIZE(neighbor, 84, 104);
VT_OFFSET(neighbor, unused1, 0, 0);
VT_FIELD_SIZE(neighbor, unused1, 2);
VT_OFFSET(neighbor, id, 2, 2);
VT_OFFSET(neighbor, label, 36, 40);
VT_OFFSET(neighbor, data_len, 40, 48);
VT_OFFSET(neighbor, data, 44, 56);
VT_OFFSET(neighbor, flag, 48, 64);
VT_FIELD_SIZE(neighbor, flag, 4);
VT_OFFSET(neighbor, unused2, 52, 68);
VT_FIELD_SIZE(neighbor, unused2, 32);

VT_SIZE(delta_vector, 44, 44);
VT_FIELD_SIZE(delta_vector, values[0], 4);
VT_SIZE(usage_vector, 22, 22);
VT_FIELD_SIZE(usage_vector, values[0], 2);

VT_SIZE(corvane_endpoint, 48, 64);
VT_OFFSET(corvane_endpoint, keywords, 0, 0);
VT_OFFSET(corvane_endpoint, name, 4, 8);
VT_OFFSET(corvane_endpoint, role, 8, 16);
VT_OFFSET(corvane_endpoint, identity, 12, 24);
VT_FIELD_SIZE(corvane_endpoint, identity, 32);
VT_OFFSET(corvane_endpoint, category, 44, 56);

#endif /* VT_TESTS_ABI_RECORD_LAYOUT_H_ */
