/*
 * The rules by which an endpoint decides whether a received query is meant for it. Each filter
 * looks at the qualifiers of a decoded Event and returns 1 (the query concerns this endpoint) or 0;
 * an Event that is null or not decoded gives 0. They read their arguments only.
 */
#ifndef VTAPI_FILTER_H
#define VTAPI_FILTER_H

#include "vtapi/event.h"

VT_BEGIN_DECLS

/* corvane_endpoint describes an endpoint: 48/64 bytes. Nothing in it is owned by the library. */
typedef struct corvane_endpoint {
  const char* keywords; /* 0: comma list; null counts as empty */
  const char* name;     /* 4/8: null fails every query that reaches the name filter */
  const char* role;     /* 8/16: null fails every query that reaches the role filter */
  uint8_t identity[32]; /* 12/24 */
  uint32_t (*category)(const Event* ev, const struct corvane_endpoint* endpoint); /* 44/56: null
                           stands for category 1 */
} corvane_endpoint;

/*
 * cv_exec_filter passes a query whose priority is not below importance (both as signed numbers) and
 * that passes cv_sender_id_or_wildcard_filter.
 */
VT_API int cv_exec_filter(Event* ev, const corvane_endpoint* endpoint, int importance);

/*
 * cv_sender_id_or_wildcard_filter decides by the identity qualifiers (type 1, the first 32 of their
 * 36 bytes) alone when there are any, else by the role, name, keyword and category filters in that
 * order, all of which must pass.
 */
VT_API int cv_sender_id_or_wildcard_filter(Event* ev, const corvane_endpoint* endpoint);

/*
 * cv_role_filter (type 7) and cv_name_filter (type 9) pass when there is no such qualifier or
 * cv_wildcard_match(own, qualifier) holds for one.
 */
VT_API int cv_role_filter(Event* ev, const corvane_endpoint* endpoint);
VT_API int cv_name_filter(Event* ev, const corvane_endpoint* endpoint);

/* cv_keyword_filter (type 10) passes without such a qualifier or when the first shares an item. */
VT_API int cv_keyword_filter(Event* ev, const corvane_endpoint* endpoint);

/*
 * cv_category_filter (type 51, uint32) passes when a qualifier equals the endpoint's category or,
 * without one, when the category is 1.
 */
VT_API int cv_category_filter(Event* ev, const corvane_endpoint* endpoint);

VT_END_DECLS

#endif /* VTAPI_FILTER_H */
