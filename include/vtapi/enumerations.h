/*
 * Every enumeration of the protocol: its values, their names, and the look-ups between the two.
 *
 * Each enumeration is one list of X(name, value, match), in the order in which a name is looked
 * up. The constants, the names and both look-ups come from that list. match says how a candidate
 * name is compared with the constant's:
 *   VT_MATCH_WHOLE   the two are equal;
 *   VT_MATCH_PREFIX  the candidate begins with the constant's name. Deliberate, for five names.
 */
#ifndef VTAPI_ENUMERATIONS_H
#define VTAPI_ENUMERATIONS_H

#include "vtapi/base.h"

VT_BEGIN_DECLS

/* VT_UNKNOWN_NAME is what cv_util_s2e_* give for a name that stands for nothing. */
#define VT_UNKNOWN_NAME 0x0BADDA7A

#define CV_CLASS_LIST(X)                    \
  X(CV_CLASS_QUERY, 10, VT_MATCH_WHOLE)     \
  X(CV_CLASS_AGGREGATE, 11, VT_MATCH_WHOLE) \
  X(CV_CLASS_NOTIFY, 12, VT_MATCH_WHOLE)    \
  X(CV_CLASS_REPLY, 13, VT_MATCH_WHOLE)     \
  X(CV_CLASS_DISCOVERY, 14, VT_MATCH_WHOLE)

#define CV_TYPE_LIST(X) X(CV_TYPE_MXRT, 10, VT_MATCH_WHOLE)

#define CV_APPLICATION_LIST(X) X(CV_APPLICATION_CORVANE, 17, VT_MATCH_WHOLE)

#define CV_ACTION_MXRT_CORVANE_QUERY_LIST(X)                  \
  X(CV_ACTION_MXRT_CORVANE_QUERY_SET, 10, VT_MATCH_WHOLE)     \
  X(CV_ACTION_MXRT_CORVANE_QUERY_COLLECT, 11, VT_MATCH_WHOLE) \
  X(CV_ACTION_MXRT_CORVANE_QUERY_COMMIT, 12, VT_MATCH_WHOLE)  \
  X(CV_ACTION_MXRT_CORVANE_QUERY_INVENTORY, 13, VT_MATCH_WHOLE)

#define CV_ACTION_MXRT_CORVANE_AGGREGATE_LIST(X)                  \
  X(CV_ACTION_MXRT_CORVANE_AGGREGATE_SUM, 10, VT_MATCH_WHOLE)     \
  X(CV_ACTION_MXRT_CORVANE_AGGREGATE_AVERAGE, 11, VT_MATCH_WHOLE) \
  X(CV_ACTION_MXRT_CORVANE_AGGREGATE_MIN, 12, VT_MATCH_WHOLE)     \
  X(CV_ACTION_MXRT_CORVANE_AGGREGATE_MAX, 13, VT_MATCH_WHOLE)

#define CV_ACTION_MXRT_CORVANE_NOTIFY_LIST(X)                 \
  X(CV_ACTION_MXRT_CORVANE_NOTIFY_CREATE, 10, VT_MATCH_WHOLE) \
  X(CV_ACTION_MXRT_CORVANE_NOTIFY_UPDATE, 11, VT_MATCH_WHOLE) \
  X(CV_ACTION_MXRT_CORVANE_NOTIFY_DELETE, 12, VT_MATCH_WHOLE)

#define CV_ACTION_MXRT_CORVANE_REPLY_LIST(X)               \
  X(CV_ACTION_MXRT_CORVANE_REPLY_DONE, 10, VT_MATCH_WHOLE) \
  X(CV_ACTION_MXRT_CORVANE_REPLY_DIDNOT, 11, VT_MATCH_WHOLE)

#define CV_ACTION_MXRT_CORVANE_DISCOVERY_LIST(X)                           \
  X(CV_ACTION_MXRT_CORVANE_DISCOVERY_DISCOVERY_UPDATE, 10, VT_MATCH_WHOLE) \
  X(CV_ACTION_MXRT_CORVANE_DISCOVERY_KEEPALIVE, 11, VT_MATCH_WHOLE)        \
  X(CV_ACTION_MXRT_CORVANE_DISCOVERY_DELETE, 12, VT_MATCH_WHOLE)

#define CV_SHIPMENT_LIST(X)                        \
  X(CV_SHIPMENT_SEND, 0, VT_MATCH_WHOLE)           \
  X(CV_SHIPMENT_ACK_WILL, -1, VT_MATCH_WHOLE)      \
  X(CV_SHIPMENT_ACK_WONT, -2, VT_MATCH_WHOLE)      \
  X(CV_SHIPMENT_ACK_ILL, -3, VT_MATCH_WHOLE)       \
  X(CV_SHIPMENT_ACK_LATER, -4, VT_MATCH_PREFIX)    \
  X(CV_SHIPMENT_REPLY_NO_ERROR, 1, VT_MATCH_WHOLE) \
  X(CV_SHIPMENT_REPLY_WITH_ERROR, 2, VT_MATCH_WHOLE)

#define CV_RUNTIME_ERROR_LIST(X)                         \
  X(CV_RUNTIME_ERROR_NONE, 0, VT_MATCH_WHOLE)            \
  X(CV_RUNTIME_ERROR_NO_MEMORY, 1, VT_MATCH_WHOLE)       \
  X(CV_RUNTIME_ERROR_NOT_SUPPORTED, 2, VT_MATCH_WHOLE)   \
  X(CV_RUNTIME_ERROR_OVERFLOW, 3, VT_MATCH_WHOLE)        \
  X(CV_RUNTIME_ERROR_NO_SUCH_DATA, 4, VT_MATCH_WHOLE)    \
  X(CV_RUNTIME_ERROR_CANT_DECRYPT, 5, VT_MATCH_WHOLE)    \
  X(CV_RUNTIME_ERROR_SYSTEM_SERVICES, 6, VT_MATCH_WHOLE) \
  X(CV_RUNTIME_ERROR_NOT_IN_RANGE, 7, VT_MATCH_WHOLE)    \
  X(CV_RUNTIME_ERROR_ENUM_BAD_MAGIC, VT_UNKNOWN_NAME, VT_MATCH_WHOLE)

/* The types that have names; catalogue.h numbers the others (36 to 51). */
#define CV_CORVANE_TLV_TYPE_LIST(X)                            \
  X(CV_CORVANE_TLV_TYPE_RESERVED, 0, VT_MATCH_PREFIX)          \
  X(CV_CORVANE_TLV_TYPE_VLTRS_ID, 1, VT_MATCH_WHOLE)           \
  X(CV_CORVANE_TLV_TYPE_ID, 2, VT_MATCH_WHOLE)                 \
  X(CV_CORVANE_TLV_TYPE_ENT_ID, 3, VT_MATCH_WHOLE)             \
  X(CV_CORVANE_TLV_TYPE_AUTHORIZATION, 4, VT_MATCH_WHOLE)      \
  X(CV_CORVANE_TLV_TYPE_ADDRESSEE, 5, VT_MATCH_WHOLE)          \
  X(CV_CORVANE_TLV_TYPE_RECUR, 6, VT_MATCH_WHOLE)              \
  X(CV_CORVANE_TLV_TYPE_ROLE, 7, VT_MATCH_WHOLE)               \
  X(CV_CORVANE_TLV_TYPE_DOMAIN, 8, VT_MATCH_WHOLE)             \
  X(CV_CORVANE_TLV_TYPE_NAME, 9, VT_MATCH_WHOLE)               \
  X(CV_CORVANE_TLV_TYPE_KEYWORDS, 10, VT_MATCH_WHOLE)          \
  X(CV_CORVANE_TLV_TYPE_ERROR_STRING, 11, VT_MATCH_WHOLE)      \
  X(CV_CORVANE_TLV_TYPE_UNITS, 12, VT_MATCH_WHOLE)             \
  X(CV_CORVANE_TLV_TYPE_USAGE, 13, VT_MATCH_WHOLE)             \
  X(CV_CORVANE_TLV_TYPE_LEVEL_CURRENT, 14, VT_MATCH_WHOLE)     \
  X(CV_CORVANE_TLV_TYPE_LEVEL_PROVISIONED, 15, VT_MATCH_WHOLE) \
  X(CV_CORVANE_TLV_TYPE_IMPORTANCE, 16, VT_MATCH_WHOLE)        \
  X(CV_CORVANE_TLV_TYPE_IMPORTANCE_I, 17, VT_MATCH_WHOLE)      \
  X(CV_CORVANE_TLV_TYPE_IMPORTANCE_E, 18, VT_MATCH_WHOLE)      \
  X(CV_CORVANE_TLV_TYPE_IMPORTANCE_MAX, 19, VT_MATCH_WHOLE)    \
  X(CV_CORVANE_TLV_TYPE_IMPORTANCE_MAX_ID, 20, VT_MATCH_WHOLE) \
  X(CV_CORVANE_TLV_TYPE_IMPORTANCE_PARENT, 21, VT_MATCH_WHOLE) \
  X(CV_CORVANE_TLV_TYPE_ENTITY_TYPE, 22, VT_MATCH_WHOLE)       \
  X(CV_CORVANE_TLV_TYPE_REPLY_TO, 23, VT_MATCH_WHOLE)          \
  X(CV_CORVANE_TLV_TYPE_PROXY_ADDRESS, 24, VT_MATCH_WHOLE)     \
  X(CV_CORVANE_TLV_TYPE_PROXY_PORT, 25, VT_MATCH_WHOLE)        \
  X(CV_CORVANE_TLV_TYPE_PROXY_PROTO, 26, VT_MATCH_WHOLE)       \
  X(CV_CORVANE_TLV_TYPE_PROXY_CLASS, 27, VT_MATCH_WHOLE)       \
  X(CV_CORVANE_TLV_TYPE_NEIGHBOR, 28, VT_MATCH_WHOLE)          \
  X(CV_CORVANE_TLV_TYPE_NEIGHBOR_COUNT, 29, VT_MATCH_WHOLE)    \
  X(CV_CORVANE_TLV_TYPE_PARENT, 30, VT_MATCH_WHOLE)            \
  X(CV_CORVANE_TLV_TYPE_HEARTBEAT, 31, VT_MATCH_WHOLE)         \
  X(CV_CORVANE_TLV_TYPE_CLOCK, 32, VT_MATCH_WHOLE)             \
  X(CV_CORVANE_TLV_TYPE_SENDER_CLOCK, 33, VT_MATCH_WHOLE)      \
  X(CV_CORVANE_TLV_TYPE_NANNY_VECTOR, 34, VT_MATCH_WHOLE)      \
  X(CV_CORVANE_TLV_TYPE_EVENT_ID, 35, VT_MATCH_WHOLE)

#define CV_ENTITY_TYPE_LIST(X)                   \
  X(CV_ENTITY_TYPE_NONE, 0, VT_MATCH_WHOLE)      \
  X(CV_ENTITY_TYPE_LOCAL, 1, VT_MATCH_WHOLE)     \
  X(CV_ENTITY_TYPE_REMOTE, 2, VT_MATCH_WHOLE)    \
  X(CV_ENTITY_TYPE_CORVANE, 3, VT_MATCH_WHOLE)   \
  X(CV_ENTITY_TYPE_ADMIN_OFF, 4, VT_MATCH_WHOLE) \
  X(CV_ENTITY_TYPE_NON_POE, 5, VT_MATCH_WHOLE)

#define CV_ENT_ADMIN_STATUS_LIST(X)                \
  X(CV_ENT_ADMIN_STATUS_ENABLE, 1, VT_MATCH_WHOLE) \
  X(CV_ENT_ADMIN_STATUS_DISABLE, 0, VT_MATCH_WHOLE)

#define CV_ENT_OPS_STATUS_LIST(X)              \
  X(CV_ENT_OPS_STATUS_UP, 1, VT_MATCH_WHOLE)   \
  X(CV_ENT_OPS_STATUS_DOWN, 0, VT_MATCH_WHOLE) \
  X(CV_ENT_OPS_STATUS_ERROR, -1, VT_MATCH_WHOLE)

/* Bit flags: only these single values have names, a combination has none. */
#define CV_DISCOVERY_FLAGS_LIST(X)                                       \
  X(CV_DISCOVERY_FLAGS_CORVANE_DISCOVERY_FLAG_NONE, 0, VT_MATCH_WHOLE)   \
  X(CV_DISCOVERY_FLAGS_CORVANE_DISCOVERY_FLAG_STATIC, 1, VT_MATCH_WHOLE) \
  X(CV_DISCOVERY_FLAGS_CORVANE_DISCOVERY_FLAG_NBDP, 2, VT_MATCH_WHOLE)   \
  X(CV_DISCOVERY_FLAGS_CORVANE_DISCOVERY_FLAG_UDP, 4, VT_MATCH_WHOLE)

#define CV_PROXY_PROTO_LIST(X)               \
  X(CV_PROXY_PROTO_TCP, 10, VT_MATCH_WHOLE)  \
  X(CV_PROXY_PROTO_UDP, 11, VT_MATCH_WHOLE)  \
  X(CV_PROXY_PROTO_HTTP, 12, VT_MATCH_WHOLE) \
  X(CV_PROXY_PROTO_SNMP, 13, VT_MATCH_WHOLE)

#define CV_CORVANE_NGBR_TYPE_LIST(X)                  \
  X(CV_CORVANE_NGBR_TYPE_STATIC, 0, VT_MATCH_WHOLE)   \
  X(CV_CORVANE_NGBR_TYPE_DYN_NBDP, 1, VT_MATCH_WHOLE) \
  X(CV_CORVANE_NGBR_TYPE_DYN_UDP, 2, VT_MATCH_WHOLE)

#define CV_CORVANE_NGBR_STATE_LIST(X)                      \
  X(CV_CORVANE_NGBR_STATE_OK, 1, VT_MATCH_WHOLE)           \
  X(CV_CORVANE_NGBR_STATE_DISCOVERING, 0, VT_MATCH_WHOLE)  \
  X(CV_CORVANE_NGBR_STATE_UNREACHABLE, -1, VT_MATCH_WHOLE) \
  X(CV_CORVANE_NGBR_STATE_LOOSING, -2, VT_MATCH_WHOLE)

#define CV_CORVANE_USAGE_CALIBER_LIST(X)                   \
  X(CV_CORVANE_USAGE_CALIBER_MAX, -2, VT_MATCH_WHOLE)      \
  X(CV_CORVANE_USAGE_CALIBER_PRESUMED, -1, VT_MATCH_WHOLE) \
  X(CV_CORVANE_USAGE_CALIBER_UNKNOWN, 0, VT_MATCH_WHOLE)   \
  X(CV_CORVANE_USAGE_CALIBER_ACTUAL, 1, VT_MATCH_WHOLE)    \
  X(CV_CORVANE_USAGE_CALIBER_TRUSTED, 2, VT_MATCH_WHOLE)

#define CV_CORVANE_USAGE_CATEGORY_LIST(X)           \
  X(CV_CORVANE_USAGE_CONSUMER, 1, VT_MATCH_PREFIX)  \
  X(CV_CORVANE_USAGE_PRODUCER, -1, VT_MATCH_PREFIX) \
  X(CV_CORVANE_USAGE_METER, 0, VT_MATCH_PREFIX)

#define CV_INTERNAL_ETYPE_LIST(X)                    \
  X(CV__INTERNAL_ETYPE_INTERFACE, 0, VT_MATCH_WHOLE) \
  X(CV__INTERNAL_ETYPE_OTHER, 1, VT_MATCH_WHOLE)

#define CV_NANNY_VECTOR_LIST(X) X(CV_NANNY_VECTOR_BIT_POS_POWER_LAST, 6, VT_MATCH_WHOLE)

/* The error codes of a reply, one enumeration per class and action. */
#define CV_ERROR_QUERY_SET_LIST(X)                                         \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_SET_NOT_SUPPORTED, 1, VT_MATCH_WHOLE) \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_SET_WRONGTYPE, 2, VT_MATCH_WHOLE)     \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_SET_OUTOFRANGE, 3, VT_MATCH_WHOLE)    \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_SET_SWFAULT, 4, VT_MATCH_WHOLE)       \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_SET_HWFAULT, 5, VT_MATCH_WHOLE)

#define CV_ERROR_QUERY_COLLECT_LIST(X)                                         \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_COLLECT_NOT_SUPPORTED, 1, VT_MATCH_WHOLE) \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_COLLECT_WRONGTYPE, 2, VT_MATCH_WHOLE)     \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_COLLECT_OVERFLOW, 3, VT_MATCH_WHOLE)

#define CV_ERROR_QUERY_COMMIT_LIST(X) \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_COMMIT_UNSUPPORTED, 1, VT_MATCH_WHOLE)

#define CV_ERROR_QUERY_INVENTORY_LIST(X)                                      \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_INVENTORY_NSUPPORTED, 1, VT_MATCH_WHOLE) \
  X(CV_ERROR_CODE_MXRT_CORVANE_QUERY_INVENTORY_NOTINDOMAIN, 2, VT_MATCH_WHOLE)

#define CV_ERROR_AGGREGATE_SUM_LIST(X)                                         \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_SUM_NOT_SUPPORTED, 1, VT_MATCH_WHOLE) \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_SUM_NOTINDOMAIN, 2, VT_MATCH_WHOLE)   \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_SUM_OVERFLOW, 3, VT_MATCH_WHOLE)

#define CV_ERROR_AGGREGATE_AVERAGE_LIST(X)                                         \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_AVERAGE_NOT_SUPPORTED, 1, VT_MATCH_WHOLE) \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_AVERAGE_OVERFLOW, 2, VT_MATCH_WHOLE)      \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_AVERAGE_OUTBOUND, 3, VT_MATCH_WHOLE)

#define CV_ERROR_AGGREGATE_MIN_LIST(X)                                         \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MIN_NOT_SUPPORTED, 1, VT_MATCH_WHOLE) \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MIN_OVERFLOW, 2, VT_MATCH_WHOLE)      \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MIN_OUTBOUND, 3, VT_MATCH_WHOLE)

#define CV_ERROR_AGGREGATE_MAX_LIST(X)                                         \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MAX_NOT_SUPPORTED, 1, VT_MATCH_WHOLE) \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MAX_OVERFLOW, 2, VT_MATCH_WHOLE)      \
  X(CV_ERROR_CODE_MXRT_CORVANE_AGGREGATE_MAX_OUTBOUND, 3, VT_MATCH_WHOLE)

#define CV_ERROR_NOTIFY_CREATE_LIST(X) \
  X(CV_ERROR_CODE_MXRT_CORVANE_NOTIFY_CREATE_OVERFLOW, 1, VT_MATCH_WHOLE)

#define CV_ERROR_NOTIFY_UPDATE_LIST(X) \
  X(CV_ERROR_CODE_MXRT_CORVANE_NOTIFY_UPDATE_OVERFLOW, 1, VT_MATCH_WHOLE)

#define CV_ERROR_NOTIFY_DELETE_LIST(X)                                \
  X(CV_ERROR_CODE_MXRT_CORVANE_NOTIFY_DELETE_CANT, 1, VT_MATCH_WHOLE) \
  X(CV_ERROR_CODE_MXRT_CORVANE_NOTIFY_DELETE_NOENTRY, 2, VT_MATCH_WHOLE)

#define CV_ERROR_REPLY_DONE_LIST(X)                                   \
  X(CV_ERROR_CODE_MXRT_CORVANE_REPLY_DONE_WITHERR, 1, VT_MATCH_WHOLE) \
  X(CV_ERROR_CODE_MXRT_CORVANE_REPLY_DONE_WITHEXP, 2, VT_MATCH_WHOLE)

#define CV_ERROR_REPLY_DIDNOT_LIST(X)                                   \
  X(CV_ERROR_CODE_MXRT_CORVANE_REPLY_DIDNOT_WITHERR, 1, VT_MATCH_WHOLE) \
  X(CV_ERROR_CODE_MXRT_CORVANE_REPLY_DIDNOT_WITHEXP, 2, VT_MATCH_WHOLE)

#define CV_ERROR_DISCOVERY_UPDATE_LIST(X) \
  X(CV_ERROR_CODE_MXRT_CORVANE_DISCOVERY_DISCOVERY_UPDATE_UPDATEERR, 1, VT_MATCH_WHOLE)

#define CV_ERROR_DISCOVERY_KEEPALIVE_LIST(X) \
  X(CV_ERROR_CODE_MXRT_CORVANE_DISCOVERY_KEEPALIVE_HBMISSED, 1, VT_MATCH_WHOLE)

#define CV_ERROR_DISCOVERY_DELETE_LIST(X) \
  X(CV_ERROR_CODE_MXRT_CORVANE_DISCOVERY_DELETE_DELMISSED, 1, VT_MATCH_WHOLE)

/*
 * All enumerations: X(word, list), word being what the names of the two look-ups end in (words as
 * irregular as "_internal_etype" are kept).
 */
#define CV_ENUMERATION_LIST(X)                                                          \
  X(class, CV_CLASS_LIST)                                                               \
  X(type, CV_TYPE_LIST)                                                                 \
  X(application, CV_APPLICATION_LIST)                                                   \
  X(action_mxrt_corvane_query, CV_ACTION_MXRT_CORVANE_QUERY_LIST)                       \
  X(action_mxrt_corvane_aggregate, CV_ACTION_MXRT_CORVANE_AGGREGATE_LIST)               \
  X(action_mxrt_corvane_notify, CV_ACTION_MXRT_CORVANE_NOTIFY_LIST)                     \
  X(action_mxrt_corvane_reply, CV_ACTION_MXRT_CORVANE_REPLY_LIST)                       \
  X(action_mxrt_corvane_discovery, CV_ACTION_MXRT_CORVANE_DISCOVERY_LIST)               \
  X(shipment, CV_SHIPMENT_LIST)                                                         \
  X(runtime_error, CV_RUNTIME_ERROR_LIST)                                               \
  X(corvane_tlv_type, CV_CORVANE_TLV_TYPE_LIST)                                         \
  X(entity_type, CV_ENTITY_TYPE_LIST)                                                   \
  X(ent_admin_status, CV_ENT_ADMIN_STATUS_LIST)                                         \
  X(ent_ops_status, CV_ENT_OPS_STATUS_LIST)                                             \
  X(discovery_flags, CV_DISCOVERY_FLAGS_LIST)                                           \
  X(proxy_proto, CV_PROXY_PROTO_LIST)                                                   \
  X(corvane_ngbr_type, CV_CORVANE_NGBR_TYPE_LIST)                                       \
  X(corvane_ngbr_state, CV_CORVANE_NGBR_STATE_LIST)                                     \
  X(corvane_usage_caliber, CV_CORVANE_USAGE_CALIBER_LIST)                               \
  X(corvane_usage_category, CV_CORVANE_USAGE_CATEGORY_LIST)                             \
  X(_internal_etype, CV_INTERNAL_ETYPE_LIST)                                            \
  X(nanny_vector, CV_NANNY_VECTOR_LIST)                                                 \
  X(error_code_mxrt_corvane_query_set, CV_ERROR_QUERY_SET_LIST)                         \
  X(error_code_mxrt_corvane_query_collect, CV_ERROR_QUERY_COLLECT_LIST)                 \
  X(error_code_mxrt_corvane_query_commit, CV_ERROR_QUERY_COMMIT_LIST)                   \
  X(error_code_mxrt_corvane_query_inventory, CV_ERROR_QUERY_INVENTORY_LIST)             \
  X(error_code_mxrt_corvane_aggregate_sum, CV_ERROR_AGGREGATE_SUM_LIST)                 \
  X(error_code_mxrt_corvane_aggregate_average, CV_ERROR_AGGREGATE_AVERAGE_LIST)         \
  X(error_code_mxrt_corvane_aggregate_min, CV_ERROR_AGGREGATE_MIN_LIST)                 \
  X(error_code_mxrt_corvane_aggregate_max, CV_ERROR_AGGREGATE_MAX_LIST)                 \
  X(error_code_mxrt_corvane_notify_create, CV_ERROR_NOTIFY_CREATE_LIST)                 \
  X(error_code_mxrt_corvane_notify_update, CV_ERROR_NOTIFY_UPDATE_LIST)                 \
  X(error_code_mxrt_corvane_notify_delete, CV_ERROR_NOTIFY_DELETE_LIST)                 \
  X(error_code_mxrt_corvane_reply_done, CV_ERROR_REPLY_DONE_LIST)                       \
  X(error_code_mxrt_corvane_reply_didnot, CV_ERROR_REPLY_DIDNOT_LIST)                   \
  X(error_code_mxrt_corvane_discovery_discovery_update, CV_ERROR_DISCOVERY_UPDATE_LIST) \
  X(error_code_mxrt_corvane_discovery_keepalive, CV_ERROR_DISCOVERY_KEEPALIVE_LIST)     \
  X(error_code_mxrt_corvane_discovery_delete, CV_ERROR_DISCOVERY_DELETE_LIST)

/*
 * For every enumeration:
 *   enum cv_<word>                           its constants;
 *   cv_util_e2s_<word>(value)                the constant's name, a static text, or null for a
 *                                            value without a name;
 *   cv_util_s2e_<word>(name)                 the value of a name, or VT_UNKNOWN_NAME for an
 *                                            unknown or null name.
 * Pure functions, safe in any number of threads.
 */
#define VT_ENUMERATOR(name, value, match) name = (value),
#define VT_DECLARE_ENUMERATION(word, LIST)              \
  enum cv_##word{LIST(VT_ENUMERATOR)};                  \
  VT_API const char* cv_util_e2s_##word(int32_t value); \
  VT_API int32_t cv_util_s2e_##word(const char* name);

CV_ENUMERATION_LIST(VT_DECLARE_ENUMERATION)

VT_END_DECLS

#endif /* VTAPI_ENUMERATIONS_H */
