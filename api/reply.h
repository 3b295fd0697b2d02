// One reply taken into a result.
#ifndef VT_API_REPLY_H
#define VT_API_REPLY_H

#include <cstdint>

#include "vtapi/result.h"

namespace vt::api {

enum class Taken { kAccepted, kForged, kMalformed, kNoMemory };

// Arrays tells whether a result has its arrays for acknowledgements from the beginning, or gets
// them with the first one: they are large, and most replies are not acknowledgements.
enum class Arrays { kAreThere, kOnDemand };

// TakeReply is vtn_processReply, and tells what became of the message.
Taken TakeReply(const void* message, std::int32_t len, ResultSet& result, const hmac_context& key,
                Arrays arrays);

// BeginResult prepares a new ResultSet for the replies to a Query.
void BeginResult(ResultSet& result, Query& query);

// MakeArrays provides those arrays for acknowledgements that are not there, or returns false
// without memory.
[[nodiscard]] bool MakeArrays(ResultSet& result);

// SortArrays sorts them once all are there.
void SortArrays(ResultSet& result);

}  // namespace vt::api

#endif  // VT_API_REPLY_H
