// Many nodes asked at once: a fleet of collections with one deadline for all, tried again where
// that may help, ended in order by a signal.
#ifndef VT_TOOLS_GATHERING_H_
#define VT_TOOLS_GATHERING_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "vtapi.hpp"

namespace vt::tools {

using Clock = std::chrono::steady_clock;

struct GatherLimits {
  std::chrono::milliseconds connect{};  // from the start with a node to the connection
  std::chrono::milliseconds idle{};     // from one message to the next
  Clock::time_point deadline{};         // for everything
  unsigned retries = 0;                 // further attempts with a node that told nothing
  std::uint32_t fanout = 1;             // nodes at a time
};

// GatherProgress is how many nodes wait, run, and are done.
struct GatherProgress {
  std::size_t waiting = 0;
  std::size_t running = 0;
  std::size_t done = 0;
};

// GatherCalls is what a gathering asks of its caller and tells it, in its own thread. Nodes are
// known by their place in the list of sessions.
struct GatherCalls {
  std::function<voltaris::QueryDescription(std::size_t node)> query;
  // Called once for each node, as they end; results is null for one that was not asked.
  std::function<void(std::size_t node, unsigned attempts, const voltaris::Results* results)> ended;
  // Called now and then; may be empty.
  std::function<void(const GatherProgress&)> progress;
};

// Gather asks the named nodes, all of which have a session, and returns when all have ended: by
// their answers, by the limits, or by a signal that was caught (tools/stop_signals.h). It throws
// Failure for a query that cannot be built, and where there is no memory or descriptor for a fleet.
void Gather(std::vector<std::optional<voltaris::Session>>& sessions,
            const std::vector<std::size_t>& nodes, const GatherLimits& limits,
            const GatherCalls& calls);

}  // namespace vt::tools

#endif  // VT_TOOLS_GATHERING_H_
