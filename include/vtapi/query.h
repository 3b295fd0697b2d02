/*
 * A Query: a kind (collect, set, sum), a domain and a priority, the attributes to read or to set
 * and the qualifiers that select the devices. It is built, executed once and its results collected.
 *
 * A Query leaves as one Pdu. The add calls refuse what would take it past 1400 bytes, by an
 * estimate of the elements so far plus 180 bytes plus the new one. Two things escape the estimate
 * and must be kept short by the application, for nodes read no more than 1400 bytes: the domain,
 * and texts that are set (their length is held in 8 bits). More than 65535 bytes of elements end
 * the process through an assertion (unit "corvane_util", text "!dlen").
 */
#ifndef VTAPI_QUERY_H
#define VTAPI_QUERY_H

#include "vtapi/event.h"
#include "vtapi/queue.h"
#include "vtapi/session.h"

VT_BEGIN_DECLS

/* attribute_list_entry: one column of the result rows, 8/16 bytes. */
typedef struct attribute_list_entry {
  struct attribute_list_entry* next; /* 0 */
  int32_t attribute;                 /* 4/8: enum vt_attribute */
} attribute_list_entry;

/* Query: 40/56 bytes. */
typedef struct Query {
  Session* session;         /* 0: set by execution; not owned */
  int32_t class_;           /* 4/8: protocol number, enum cv_class */
  int32_t action;           /* 8/12: protocol number */
  uint8_t priority;         /* 12/16 */
  uint32_t attribute_count; /* 16/20: entries ever added to attributes */
  Event* event;             /* 20/24: owned; null once executed */
  queue attributes;         /* 24/32: of attribute_list_entry, owned */
} Query;

/* new_query returns a zero-filled Query or null. */
VT_API Query* new_query(void);

/*
 * voltaris_createQuery returns a new Query of a class and action (enum vt_query_class, enum
 * vt_query_action) or null. domain is text, not null; of priority the low 8 bits count.
 */
VT_API Query* voltaris_createQuery(int32_t cls, int32_t action, const char* domain,
                                   uint32_t priority);

/* The short forms of voltaris_createQuery. */
VT_API Query* voltaris_createSetQuery(const char* domain, uint32_t priority);
VT_API Query* voltaris_createCollectQuery(const char* domain, uint32_t priority);
VT_API Query* voltaris_createSumQuery(const char* domain, uint32_t priority);

/*
 * voltaris_releaseQuery releases an executed Query and closes the connection of its Session, or
 * releases a Query that was never executed with all it holds. Release the result before.
 */
VT_API void voltaris_releaseQuery(Query* query);

/*
 * voltaris_addGetAttribute asks for an attribute (enum vt_attribute), one column of the rows;
 * usage, delta vector and usage vector (8, 16, 18) add a units column behind their own. A sum query
 * takes 8 and 16 only. Returns 0 or -1: with a log line for a wrong number, a full Query or no
 * memory for the column; without one when the element cannot be added or the Query was executed
 * before.
 */
VT_API int32_t voltaris_addGetAttribute(Query* query, int32_t attribute);

/*
 * voltaris_addSetAttribute sets an attribute of the devices of a set query. value is copied: a
 * zero-terminated text for texts and keywords, 16 bytes for the address (12), else the record or
 * integer of the attribute's type in host byte order; null adds an empty element where a text is
 * meant and fails elsewhere. Returns 0, -1 as above, or -2 (with a log line) when the Query's
 * action is not set. Deliberate: the length is held in 8 bits, which cuts keywords (255 characters
 * wrap to 0); texts travel whole.
 */
VT_API int32_t voltaris_addSetAttribute(Query* query, int32_t attribute, const void* value);

/*
 * voltaris_addQualifier selects devices: by identity (1; a 36-byte sender_id, at any address), role
 * (2), name (4), keywords (5; text, separated by commas); names and roles may end in a star. 19
 * sets the query's time-out (1 byte of seconds). Returns 0; -1, with a log line unless the Query
 * was executed before; or -2 (with a log line) when the Query's action allows none. Deliberate: a
 * number that is no qualifier logs WARN and is reported as success.
 */
VT_API int32_t voltaris_addQualifier(Query* query, int32_t attribute, const void* value);

/* The short forms of voltaris_addQualifier. */
VT_API int32_t voltaris_addIdQualifier(Query* query, const void* value);
VT_API int32_t voltaris_addRoleQualifier(Query* query, const void* value);
VT_API int32_t voltaris_addNameQualifier(Query* query, const void* value);
VT_API int32_t voltaris_addKeyQualifier(Query* query, const void* value);

/*
 * cv_get_timeout_val_from_query returns the seconds of the first time-out element of an Event,
 * clamped to 1 to 180, or 0 when there is none.
 */
VT_API uint32_t cv_get_timeout_val_from_query(const Event* event);

/*
 * voltaris_execQuery connects, sends the Query as one signed Pdu and binds it to the Session.
 * Blocks in connect and send, without a time-out of its own. Returns 0 when all was sent, -1 when
 * no Pdu could be made (or the Query was executed before), else how many bytes of the Pdu were not
 * sent: its size when no connection was made, its size + 1 when sending failed. A time-out of 6
 * seconds is added to a Query that has none. The connection stays open until voltaris_releaseQuery;
 * to execute another Query on the Session before abandons it for good. A Query that could not take
 * an element for want of memory (-1 of the add calls) is to be released and built again: it may
 * count elements that are no longer there, which every receiver refuses.
 */
VT_API int32_t voltaris_execQuery(Session* session, Query* query);

VT_END_DECLS

#endif /* VTAPI_QUERY_H */
