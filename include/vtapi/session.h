/*
 * A Session: where queries go (one IPv4 node and TCP port), who asks (a 36-character identity) and
 * how messages are signed. It has no lock: one Session executes and collects one Query at a time,
 * on one thread at a time.
 *
 * Release in this order: the result, the query, the session, for the result reads the query and the
 * query reads the session.
 */
#ifndef VTAPI_SESSION_H
#define VTAPI_SESSION_H

#include <netinet/in.h>

#include "vtapi/hmac.h"

VT_BEGIN_DECLS

/* Session: 336 bytes. Its first three fields are those of a SocketEndpoint. */
typedef struct Session {
  int32_t descriptor;        /* 0: socket of the query being executed, or -1 */
  struct sockaddr_in local;  /* 4: own address of that connection */
  struct sockaddr_in target; /* 20: the node */
  hmac_context key;          /* 36: keyed once; every message copies it */
  uint32_t sequence_number;  /* 196: number of the next Pdu */
  char identity[37];         /* 200: 36 characters and a zero */
  uint8_t reserved[99];      /* 237 */
} Session;

/* new_session returns a zero-filled Session, for voltaris_closeSession to release, or null. */
VT_API Session* new_session(void);

/*
 * voltaris_createSession returns a new Session, the caller's to release with voltaris_closeSession,
 * or null: without memory or for an address that cannot be read (both FATAL), and, without a line,
 * for a null identity. address is dotted text as inet_addr takes it (255.255.255.255 is refused),
 * port a TCP port of which the low 16 bits count, identity 36 bytes, which need no terminator. With
 * a key_len of 1 or more, messages are signed with exactly the first 20 bytes of key, whatever
 * key_len says: a key must have at least 20 bytes. With a key_len below 1 the key is the first 32
 * bytes of the identity. No connection is made yet.
 */
VT_API Session* voltaris_createSession(const char* address, uint32_t port, const void* identity,
                                       const void* key, int32_t key_len);

/* voltaris_closeSession wipes the key and releases the record; it closes no socket. Null is
 * ignored.
 */
VT_API void voltaris_closeSession(Session* session);

/*
 * getNextSequenceNumber returns the number for the next Pdu, 0 at first, and counts on. After
 * 0xFFFFFFFE the process ends through an assertion (unit "MgmtApi"): numbers never repeat.
 */
VT_API uint32_t getNextSequenceNumber(Session* session);

VT_END_DECLS

#endif /* VTAPI_SESSION_H */
