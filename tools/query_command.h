// One command from the options to the answer: build the query, send it, collect what comes back.
#ifndef VT_TOOLS_QUERY_COMMAND_H_
#define VT_TOOLS_QUERY_COMMAND_H_

#include "tools/answer.h"
#include "tools/options.h"

namespace vt::tools {

// RunQuery throws Failure when the query cannot be built or sent. An answer that came in part is
// returned, and says so itself.
Answer RunQuery(const Options& options);

}  // namespace vt::tools

#endif  // VT_TOOLS_QUERY_COMMAND_H_
