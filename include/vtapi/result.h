/*
 * The ResultSet of an executed Query: the devices that will or will not answer, and one row per
 * answering device and entity with the values that were asked for.
 *
 * Values are not copied: they point into the replies, which the ResultSet owns, and are valid until
 * voltaris_releaseResult. There is one ResultRow, and one buffer for identities, in the whole
 * process: rows of two ResultSets cannot be walked at the same time. Nothing here takes a lock.
 */
#ifndef VTAPI_RESULT_H
#define VTAPI_RESULT_H

#include "vtapi/query.h"

VT_BEGIN_DECLS

#define VT_ERROR_TIMEOUT 10   /* error code: no message within 180 seconds */
#define VT_ERROR_NO_MEMORY 12 /* error code: memory exhausted */

/* AckEntry: 36 bytes. */
typedef struct AckEntry {
  uint8_t device_id[32]; /* 0 */
  uint32_t entity_index; /* 32: host byte order */
} AckEntry;

/* attribute_node: one value of a row, 20/32 bytes. */
typedef struct attribute_node {
  struct attribute_node* next; /* 0 */
  uint32_t taken;              /* 4/8: 1 once handed out */
  int32_t type;                /* 8/12: enum vt_attribute */
  uint32_t length; /* 12/16: of value, in bytes; see voltaris_getAttributeFromRowByType */
  void* value;     /* 16/24: inside a reply, not owned */
} attribute_node;

/* entity_node: one row, 24/40 bytes. */
typedef struct entity_node {
  struct entity_node* next; /* 0 */
  uint32_t entity_index;    /* 4/8 */
  queue attributes;         /* 8/16: of attribute_node, in order of arrival */
} entity_node;

/* device_node: the rows of one device, 24/40 bytes. */
typedef struct device_node {
  struct device_node* next; /* 0 */
  aggregated_value* key;    /* 4/8: the device's first aggregate, inside a reply, not owned */
  queue entities;           /* 8/16: of entity_node, ascending index */
} device_node;

/* ResultSet: 216 bytes. */
typedef struct ResultSet {
  queue rows;                 /* 0: of device_node, ascending identity */
  queue events;               /* 16/24: of Event, owned */
  const char* domain;         /* 32/48: last domain in a reply, inside that reply */
  Query* query;               /* 36/56: not owned */
  int32_t ack_count;          /* 40/64 */
  int32_t nak_count;          /* 44/68 */
  int32_t answers_pending;    /* 48/72: acknowledged less answered; may go negative */
  int32_t answers_received;   /* 52/76 */
  int32_t unused;             /* 56/80 */
  int32_t expected;           /* 60/84: the Query's attribute count */
  int32_t row_count;          /* 64/88 */
  device_node* device_cursor; /* 68/96: row cursor, first level */
  entity_node* entity_cursor; /* 72/104: row cursor, second level */
  int32_t error_code;         /* 76/112: 0, VT_ERROR_TIMEOUT, VT_ERROR_NO_MEMORY or an errno */
  uint8_t flag;               /* 80/116: 0 */
  AckEntry* naks;             /* 84/120: owned */
  AckEntry* acks;             /* 88/128: owned */
  uint32_t reserved[sizeof(void*) == 4 ? 31 : 20]; /* 92/136 */
} ResultSet;

/* ResultRow: 20/40 bytes, one for the whole process, overwritten by every voltaris_getNextRow. */
typedef struct ResultRow {
  aggregated_value* device;   /* 0: its first 32 bytes are the device's identity */
  struct sockaddr_in* sender; /* 4/8: the device's address, 16 bytes, or null */
  uint32_t entity_index;      /* 8/16 */
  queue* attributes;          /* 12/24: of attribute_node */
  const char* domain;         /* 16/32 */
} ResultRow;

/*
 * voltaris_queryResults collects the replies to an executed Query until the node closes the
 * connection, sends nothing for 180 seconds, or a read fails, and returns the ResultSet, the
 * caller's to release with voltaris_releaseResult; voltaris_getErrorCode tells how it ended. Null
 * when the Query was not sent or there is no memory for the ResultSet; without memory for its
 * arrays it comes back empty with VT_ERROR_NO_MEMORY. Messages that are malformed or not signed
 * with the Session's key are dropped. A peer that stalls inside a message blocks the call.
 */
VT_API ResultSet* voltaris_queryResults(Session* session, Query* query);

/*
 * voltaris_getNextRow returns the next row, in ascending order of device identity and entity index,
 * or null at the end, after which the next call begins anew.
 */
VT_API ResultRow* voltaris_getNextRow(ResultSet* result);

/*
 * voltaris_getAttributeFromRowByType returns a value of the row and stores its length in bytes at
 * *out_len; null, with *out_len untouched, when there is none. 1 (36 bytes: the device's identity
 * and the entity index in host order), 3 (the domain with its terminator) and 12 (the sender's
 * struct sockaddr_in) can be read again and again; of every other attribute each call hands out the
 * next value, each once. A length of 0 gives null and takes the value. Texts count their
 * terminator. Of a neighbor (13) and a recurrence (20) the value is the record, and the length that
 * of its wire form, not sizeof.
 */
VT_API void* voltaris_getAttributeFromRowByType(ResultRow* row, int32_t attribute,
                                                uint32_t* out_len);

/* The getters take a ResultSet that is not null. */
VT_API int32_t voltaris_getRowCount(const ResultSet* result);
VT_API int32_t voltaris_getErrorCode(const ResultSet* result);
VT_API int32_t voltaris_getAckCount(const ResultSet* result);
VT_API int32_t voltaris_getNakCount(const ResultSet* result);

/* The accepting and the refusing devices, sorted by their 36 raw bytes; owned by the ResultSet. */
VT_API AckEntry* voltaris_getAcks(const ResultSet* result);
VT_API AckEntry* voltaris_getNaks(const ResultSet* result);

/*
 * voltaris_releaseResult releases the ResultSet with its replies, and empties the Query's list of
 * attributes (its count stays). The Query must still exist.
 */
VT_API void voltaris_releaseResult(ResultSet* result);

/*
 * The pieces of collection, for applications that feed replies themselves.
 */

/* new_resultset returns a zero-filled ResultSet without arrays, or null. */
VT_API ResultSet* new_resultset(void);

/* vtn_queryLoop receives and processes messages on the Session's connection until it ends. */
VT_API void vtn_queryLoop(Session* session, ResultSet* result);

/*
 * vtn_processReply decodes the len bytes of one message, drops it unless its digest is that of key,
 * and folds it into the ResultSet.
 */
VT_API void vtn_processReply(const void* buf, int32_t len, ResultSet* result,
                             const hmac_context* key);

/*
 * vtn_getDomainFromPayload returns the 4 bytes behind the header of the first element of type 8 in
 * len bytes of elements, as they are stored (missing ones as zeros), or 0.
 */
VT_API uint32_t vtn_getDomainFromPayload(const void* payload, uint32_t len);

/* add_ack and add_nack append a copy of the entry; without memory the entry alone is lost. */
VT_API void add_ack(ResultSet* result, const AckEntry* entry);
VT_API void add_nack(ResultSet* result, const AckEntry* entry);

/* add_acks appends the entities of all acknowledgements in a message to the one or other array. */
VT_API void add_acks(Event* event, ResultSet* result);

/* vtn_addResult folds the aggregates of a message into rows. */
VT_API void vtn_addResult(Event* event, ResultSet* result);

/*
 * vtn_checkQueue finds the node that compares equal to key in a sorted queue, or inserts a new
 * zero-filled one of node_size bytes in its place; *created tells which. compare returns 0 when the
 * node sorts before the key, 1 when equal, 2 when after. Null without memory, or when there is none
 * and node_size is 0.
 */
VT_API void* vtn_checkQueue(queue* q, const void* key,
                            uint32_t (*compare)(const void* node, const void* key),
                            uint32_t node_size, int32_t* created);

/* dh_id_compare orders device_nodes by the 32 bytes at key: 0 before, 1 equal, 2 after. */
VT_API uint32_t dh_id_compare(const void* node, const void* key);

/* ent_entidx_compare orders entity_nodes by the uint32_t at key, unsigned. */
VT_API uint32_t ent_entidx_compare(const void* node, const void* key);

/* vtn_get_tlv_index_from_query returns the column of an attribute, counted from 0, or -1. */
VT_API int32_t vtn_get_tlv_index_from_query(const Query* query, int32_t type);

/* vtn_addTlvToResultRow appends a value, not copied; without memory the error code becomes 12. */
VT_API void vtn_addTlvToResultRow(entity_node* entity, int32_t type, uint32_t len, void* value,
                                  ResultSet* result);

/* vtn_addComboTlvsToResultRow appends what a combined entry of type 43 to 45 has of the columns. */
VT_API void vtn_addComboTlvsToResultRow(entity_node* entity, combo_entry* entry, ResultSet* result,
                                        uint32_t type);

VT_END_DECLS

#endif /* VTAPI_RESULT_H */
