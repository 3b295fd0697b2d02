/*
 * The wire form of a message (Pdu), its two headers in host order, and the derivation of keys.
 *
 * A Pdu is a 12-byte security header, a 20-byte digest, a 48-byte message header and the elements:
 *
 *   offset size field
 *        0    1 two unnamed nibbles, 0 when sent
 *        1    1 high nibble unnamed, low nibble enc (2)
 *        2    2 unnamed, 0 when sent
 *        4    4 tag, 0 when sent
 *        8    1 unnamed, 0 when sent
 *        9    1 high nibble auth (1), low nibble comm (0 to 4)
 *       10    2 digest length (20)
 *       12   20 digest: HMAC-SHA1 of all bytes from offset 32 to the end
 *       32    4 seq, sequence number
 *       36   32 voltarisid, identity of the sender
 *       68    1 ver (1)
 *       69    1 shipment, enum cv_shipment
 *       70    1 pri, priority
 *       71    1 type (10)
 *       72    1 app (17)
 *       73    1 class, enum cv_class
 *       74    2 action
 *       76    2 TLV bytes, length of the elements
 *       78    2 TLV count, number of elements
 *       80      elements (see tlv.h)
 *
 * All integers are big-endian. A message read from a stream has at most 1400 bytes.
 */
#ifndef VTAPI_PDU_H
#define VTAPI_PDU_H

#include "vtapi/hmac.h"
#include "vtapi/identifiers.h"

VT_BEGIN_DECLS

#define VT_SECURITY_HEADER_SIZE 12 /* bytes on the wire and in memory */
#define VT_MESSAGE_HEADER_SIZE 48  /* bytes on the wire and in memory */
#define VT_PDU_HEADER_SIZE 80      /* security header, digest, message header */
#define VT_MAX_PDU_SIZE 1400       /* bytes of a message read from a stream or of a query */

/*
 * security_header: the first 12 bytes in host order. In byte0, byte1 and byte9 the wire's high
 * nibble is the low one here and the other way round.
 */
typedef struct security_header {
  uint8_t byte0;       /* 0 */
  uint8_t byte1;       /* 1: high nibble enc */
  uint16_t unnamed16;  /* 2 */
  uint32_t tag;        /* 4 */
  uint8_t unnamed8;    /* 8 */
  uint8_t byte9;       /* 9: low nibble auth, high nibble comm */
  uint16_t digest_len; /* 10 */
} security_header;

/* message_header: the 48 bytes in host order. */
typedef struct message_header {
  uint32_t seq;           /* 0 */
  uint8_t voltarisid[32]; /* 4 */
  uint8_t ver;            /* 36 */
  int8_t shipment;        /* 37 */
  uint8_t pri;            /* 38 */
  uint8_t type;           /* 39 */
  uint8_t app;            /* 40 */
  uint8_t class_;         /* 41 */
  uint16_t action;        /* 42 */
  uint16_t tlv_bytes;     /* 44 */
  uint16_t tlv_count;     /* 46 */
} message_header;

/*
 * vtn_getPduSize returns the size of the message header plus the elements (TLV bytes + 48) of the
 * message header in network order at hdr.
 */
VT_API uint32_t vtn_getPduSize(const void* hdr);

/* vtn_isValidPduAddress returns 1 when p lies in the vtn_getPduSize(hdr) bytes at hdr, else 0. */
VT_API int vtn_isValidPduAddress(const void* hdr, const void* p);

/*
 * The four conversions between 48 or 12 wire bytes, at any address, and the host records. Source
 * and destination must not overlap. They return 0.
 */
VT_API int cv_corvane_event_nw_to_host(const void* wire, message_header* host);
VT_API int cv_corvane_event_host_to_nw(const message_header* host, void* wire);
VT_API int cv_corvane_secure_nw_to_host(const void* wire, security_header* host);
VT_API int cv_corvane_secure_host_to_nw(const security_header* host, void* wire);

/*
 * voltaris_utl_composeKey writes HMAC-SHA1(secret, the 32 bytes at id) to out and returns 20. With
 * an out_size below 20 it logs WARN "Insufficient buffer", writes nothing and returns 0. Only the
 * low 16 bits of secret_len count.
 */
VT_API int voltaris_utl_composeKey(const void* secret, uint32_t secret_len, const void* id,
                                   void* out, int32_t out_size);

/*
 * voltaris_utl_composeNonce writes HMAC-SHA1(secret, data) to the 20 bytes at out and returns 20.
 * Only the low 16 bits of both lengths count.
 */
VT_API int voltaris_utl_composeNonce(const void* secret, uint32_t secret_len, const void* data,
                                     uint32_t data_len, void* out);

/*
 * corvane_id_cmp compares two identities over exactly 32 bytes and returns the difference of the
 * first bytes that differ (as unsigned values, a - b), or 0.
 */
VT_API int corvane_id_cmp(const void* a, const void* b);

VT_END_DECLS

#endif /* VTAPI_PDU_H */
