/*
 * A Query executed and its replies collected without blocking: under any event loop, or many at
 * once in one thread (vtapi/fleet.h). A Collection tells which descriptor to watch for what and how
 * long; each step after an event or when that time is over takes it further and never waits. It
 * keeps no state outside of itself, starts no thread and raises no signal. One Collection belongs
 * to one thread at a time.
 *
 *   ReplyCollection* c = voltaris_startCollection(session, query, NULL);
 *   while (voltaris_stepCollection(c) == VT_COLLECTION_PENDING) {
 *     struct pollfd watched = {voltaris_getCollectionDescriptor(c),
 *                              voltaris_getCollectionEvents(c), 0};
 *     poll(&watched, 1, voltaris_getCollectionTimeout(c));
 *   }
 *   ResultSet* result = voltaris_takeCollectionResult(c);
 *   voltaris_releaseCollection(c);
 */
#ifndef VTAPI_COLLECTION_H
#define VTAPI_COLLECTION_H

#include "vtapi/result.h"

VT_BEGIN_DECLS

typedef struct ReplyCollection ReplyCollection;

/* How a Collection stands, or how it ended. */
enum vt_collection_outcome {
  VT_COLLECTION_PENDING = 0,
  VT_COLLECTION_COMPLETE = 1,        /* the node sent what it had and closed the connection */
  VT_COLLECTION_REFUSED = 2,         /* nobody listens there */
  VT_COLLECTION_UNREACHABLE = 3,     /* no connection for another reason; the errno tells */
  VT_COLLECTION_CONNECT_TIMEOUT = 4, /* no connection within connect_ms */
  VT_COLLECTION_SEND_ERROR = 5,      /* the query could not be sent; the errno tells */
  VT_COLLECTION_IDLE = 6,            /* no acceptable message within idle_ms */
  VT_COLLECTION_DEADLINE = 7,        /* not complete within total_ms */
  VT_COLLECTION_READ_ERROR = 8,      /* reading failed; the errno tells */
  VT_COLLECTION_OVER_SIZE = 9,       /* a message longer than VT_MAX_PDU_SIZE was announced */
  VT_COLLECTION_CANCELLED = 10
};

/*
 * CollectionOptions: 12 bytes. Limits in milliseconds on the monotonic clock; 0 stands for the
 * default, a negative number for no limit.
 */
typedef struct CollectionOptions {
  int32_t connect_ms; /* 0: from the start to the connection; 10,000 by default */
  int32_t idle_ms;    /* 4: from one acceptable message to the next; 180,000 by default */
  int32_t total_ms;   /* 8: from the start to the end; no limit by default */
} CollectionOptions;

/* CollectionCounters: 24 bytes. */
typedef struct CollectionCounters {
  uint64_t bytes;            /* 0: received */
  uint32_t accepted;         /* 8: messages folded into the result */
  uint32_t forged;           /* 12: messages dropped because their digest is another */
  uint32_t malformed;        /* 16: messages dropped because they cannot be decoded */
  uint32_t acknowledgements; /* 20: entities that accepted or refused */
} CollectionCounters;

/*
 * voltaris_startCollection signs the Query, as voltaris_execQuery does, which takes its elements,
 * and begins to connect to the Session's node; options may be null. The Session is not used any
 * more when it returns, so that many Collections can run on one; the Query has to exist until its
 * ResultSet is released. A node that cannot be reached is an outcome. Null without memory, or for a
 * Query that was executed before.
 */
VT_API ReplyCollection* voltaris_startCollection(Session* session, Query* query,
                                                 const CollectionOptions* options);

/*
 * What to wait for: the descriptor (-1 once the Collection has ended), POLLIN or POLLOUT, and the
 * milliseconds until the next limit, rounded up: 0 when one is over already, -1 without any.
 */
VT_API int voltaris_getCollectionDescriptor(const ReplyCollection* collection);
VT_API int16_t voltaris_getCollectionEvents(const ReplyCollection* collection);
VT_API int32_t voltaris_getCollectionTimeout(const ReplyCollection* collection);

/*
 * voltaris_stepCollection does what can be done now and returns the outcome so far. It may be
 * called at any time and any number of times.
 */
VT_API int32_t voltaris_stepCollection(ReplyCollection* collection);

/* voltaris_cancelCollection ends a pending Collection; one that has ended stays as it is. */
VT_API void voltaris_cancelCollection(ReplyCollection* collection);

/*
 * The outcome so far, the errno that led to it or 0, and the counters, which are the Collection's.
 */
VT_API int32_t voltaris_getCollectionOutcome(const ReplyCollection* collection);
VT_API int32_t voltaris_getCollectionErrno(const ReplyCollection* collection);
VT_API const CollectionCounters* voltaris_getCollectionCounters(const ReplyCollection* collection);

/* voltaris_nameOutcome returns an outcome in words, such as "connection refused", or null. */
VT_API const char* voltaris_nameOutcome(int32_t outcome);

/*
 * voltaris_takeCollectionResult ends a pending Collection and hands over what has been collected,
 * for voltaris_releaseResult; null from the second time on. Its arrays of acknowledgements are
 * sorted, and null where none came. Its error code is 0 for a complete Collection,
 * VT_ERROR_TIMEOUT where a limit was reached, VT_ERROR_NO_MEMORY where memory ended in between,
 * else the errno, which is ECANCELED for a cancelled one and EMSGSIZE for one of over-size.
 */
VT_API ResultSet* voltaris_takeCollectionResult(ReplyCollection* collection);

/* voltaris_releaseCollection ends and releases the Collection with all it owns; null is ignored. */
VT_API void voltaris_releaseCollection(ReplyCollection* collection);

VT_END_DECLS

#endif /* VTAPI_COLLECTION_H */
