// The log of the node on standard error: its own lines and those of the library, each written whole
// however many connections are served at once.
#ifndef VT_NODE_LOG_H_
#define VT_NODE_LOG_H_

#include <cstdint>
#include <string>

namespace vt::node {

// StartLog admits lines from that level on (enum vt_log_level) and takes over the library's log. It
// is called once, before other threads run.
void StartLog(std::uint32_t level);

// Log writes one line of that level.
void Log(std::uint32_t level, const std::string& message);

}  // namespace vt::node

#endif  // VT_NODE_LOG_H_
