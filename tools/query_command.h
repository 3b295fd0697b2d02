// One command from the options to the answer: build the query, send it, collect what comes back.
#ifndef VT_TOOLS_QUERY_COMMAND_H_
#define VT_TOOLS_QUERY_COMMAND_H_

#include <cstdint>
#include <vector>

#include "vtapi.hpp"

#include "tools/answer.h"
#include "tools/options.h"

namespace vt::tools {

// Execute collects attributes, by their numbers, of the devices that the options select. It throws
// Failure like RunQuery.
voltaris::Results Execute(const Options& options, const std::vector<std::int32_t>& attributes);

// RunQuery throws Failure when the query cannot be built or sent. An answer that came in part is
// returned, and says so itself.
Answer RunQuery(const Options& options);

}  // namespace vt::tools

#endif  // VT_TOOLS_QUERY_COMMAND_H_
