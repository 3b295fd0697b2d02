// One round trip: a connection, a signed query, and the first message of the answer whose digest is
// right, with the time that each phase took.
#ifndef VT_TOOLS_PING_PROBE_H_
#define VT_TOOLS_PING_PROBE_H_

#include <poll.h>

#include <chrono>
#include <optional>

#include "vtapi.hpp"

#include "tools/verdict.h"

namespace vt::tools {

// PingTimes are the phases, each from the end of the one before. A phase that was not reached has
// none.
struct PingTimes {
  using Time = std::optional<std::chrono::nanoseconds>;

  Time connect;
  Time send;
  Time first_byte;
  Time verify;  // until a message has arrived whole and was verified

  // total is the sum of all phases, or nothing when one is missing.
  Time total() const;
};

// PingResult is how a round trip ended. One that was answered is kOk, whatever the answer says.
struct PingResult {
  PingTimes times;
  Verdict verdict;

  bool IsAnswered() const { return verdict.status == Status::kOk; }
};

// PingProbe is a round trip on its way. Once it has been answered the connection is closed: the
// rest of the answer does not matter.
class PingProbe {
 public:
  // It begins to connect. It throws Failure for a query that cannot be built, and without memory.
  PingProbe(voltaris::Session& session, const voltaris::QueryDescription& description,
            const voltaris::Deadlines& deadlines);

  // What to wait for, and for how long; a probe that has ended waits for nothing.
  pollfd Watched() const;
  std::optional<std::chrono::milliseconds> timeout() const { return collection_.timeout(); }

  // Step does what can be done after poll has told these events, and returns whether it has ended.
  bool Step(short events);

  // Cancel ends it, unless it has ended.
  void Cancel();

  bool has_ended() const { return has_ended_; }
  // result is that of a probe that has ended.
  const PingResult& result() const { return result_; }

 private:
  void NoteEvents(short events);
  void NoteProgress();
  // Lap is the time since the end of the phase before.
  std::chrono::nanoseconds Lap();
  void End();

  std::chrono::steady_clock::time_point last_;
  voltaris::Collection collection_;
  PingResult result_;
  bool has_ended_ = false;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_PING_PROBE_H_
