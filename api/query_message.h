// A Query made into the signed message that goes to the node.
#ifndef VT_API_QUERY_MESSAGE_H
#define VT_API_QUERY_MESSAGE_H

#include "vtapi/query.h"

namespace vt::api {

// MakeMessage puts the wire image into the Query's Event, or returns false after a line in the name
// of function; then the Query is as it was, but may have got a time-out.
[[nodiscard]] bool MakeMessage(Session& session, Query& query, const char* function);

}  // namespace vt::api

#endif  // VT_API_QUERY_MESSAGE_H
