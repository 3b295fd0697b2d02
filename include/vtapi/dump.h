/*
 * Dumps of messages and buffers to the log, for tracing traffic. Nothing is formatted while the log
 * level is above TRACE.
 */
#ifndef VTAPI_DUMP_H
#define VTAPI_DUMP_H

#include "vtapi/event.h"

VT_BEGIN_DECLS

/* voltaris_dump_pdu logs six TRACE lines on an Event with sec and pak; without them, nothing. */
VT_API void voltaris_dump_pdu(const Event* ev);

/*
 * voltaris_dump_payload dumps the elements behind the message header in network order at hdr; null
 * is WARN "NULL".
 */
VT_API void voltaris_dump_payload(const void* hdr);

/*
 * voltaris_dump_buf logs len bytes as TRACE lines of 16: the offset, the bytes in hexadecimal, and
 * the bytes as characters (0x20 to 0x7E, others as a point). Null or a negative len counts as 0.
 * Deliberate: a dump that is not empty begins with an empty line.
 */
VT_API void voltaris_dump_buf(const void* buf, int32_t len);

VT_END_DECLS

#endif /* VTAPI_DUMP_H */
