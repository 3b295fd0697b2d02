/*
 * Reading whole messages, and waiting for them or for connections. All calls but vtn_frame_message
 * block the caller's thread; there is no time-out inside a message, so a peer that stalls after its
 * first bytes blocks the read. Descriptors may have any number.
 */
#ifndef VTAPI_RECEPTION_H
#define VTAPI_RECEPTION_H

#include <netinet/in.h>
#include <sys/time.h>

#include "vtapi/base.h"

VT_BEGIN_DECLS

/*
 * On 32-bit systems the interface takes the classic struct timeval of 8 bytes: this does not
 * compile under -D_TIME_BITS=64.
 */
typedef char vt_timeval_is_classic[sizeof(void*) != 4 || sizeof(struct timeval) == 8 ? 1 : -1];

/*
 * vtn_read_tcp_message reads one framed message into the size bytes at buf and returns its length;
 * 0 when the peer closed the stream (inside a message too); a negative result of recvfrom with
 * errno; -1 for a message of more than 1400 bytes, the rest of which stays in the stream. A buffer
 * smaller than the message is filled and its size returned. sender may be null and is never filled.
 */
VT_API int vtn_read_tcp_message(int fd, void* buf, int32_t size, struct sockaddr_in* sender);

/*
 * vtn_frame_message looks at the first size bytes of a stream, however they were read: 1 when a
 * whole message is there, whose length is stored at *length; 0 when more is needed, of which
 * *length tells how many bytes to have before looking again, 12 to 1400; -1, with *length
 * untouched, for a message of more than 1400 bytes.
 */
VT_API int vtn_frame_message(const void* bytes, uint32_t size, uint32_t* length);

/* vtn_read_udp_message reads one datagram of up to size bytes; the result is that of recvfrom. */
VT_API int vtn_read_udp_message(int fd, void* buf, int32_t size);

/*
 * waitfor_tcp_connect waits for a connection on a listening fd and returns its descriptor, or -1.
 * *peer, not null, is the IPv4 address in network order that alone is accepted, 0 for anyone.
 * Deliberate: whoever knocks is stored there, so that a stranger is refused once and accepted on
 * the next call. A null timeout waits without limit; it is not updated.
 */
VT_API int waitfor_tcp_connect(int fd, uint32_t* peer, struct timeval* timeout);

/*
 * waitfor_tcp_message waits for a message on a connected fd and returns what vtn_read_tcp_message
 * returns, or 0 when nothing came in time or the wait failed. timeout as above.
 */
VT_API int waitfor_tcp_message(int fd, void* buf, int32_t size, struct timeval* timeout);

VT_END_DECLS

#endif /* VTAPI_RECEPTION_H */
