// Sessions with the nodes to ask, each under the identity and the key that belong to it.
#ifndef VT_TOOLS_SESSIONS_H_
#define VT_TOOLS_SESSIONS_H_

#include <optional>
#include <vector>

#include "vtapi.hpp"

#include "tools/options.h"
#include "tools/resolve.h"

namespace vt::tools {

// OpenSessions opens one for each of the options' targets, in their order, with the address that
// belongs to it, and none where there is no address; nothing is sent. Each file with a key or an
// identity is read once; one that others than its owner may open is refused. It throws Failure.
std::vector<std::optional<voltaris::Session>> OpenSessions(
    const Options& options, const std::vector<Resolution>& addresses);

}  // namespace vt::tools

#endif  // VT_TOOLS_SESSIONS_H_
