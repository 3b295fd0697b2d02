#include "tools/ping_probe.h"

#include <sys/socket.h>

#include <utility>

#include "tools/unwrap.h"

namespace vt::tools {
namespace {

using Clock = std::chrono::steady_clock;

voltaris::Collection Start(voltaris::Session& session,
                           const voltaris::QueryDescription& description,
                           const voltaris::Deadlines& deadlines) {
  return Unwrap(session.start(description, deadlines));
}

bool IsConnected(int descriptor) {
  sockaddr_storage peer{};
  socklen_t size = sizeof peer;
  return getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0;
}

// HasByte tells an answer from the end of a connection, which can be read as well.
bool HasByte(int descriptor) {
  char byte = 0;
  return recv(descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
}

}  // namespace

PingTimes::Time PingTimes::total() const {
  if (!connect || !send || !first_byte || !verify) return std::nullopt;
  return *connect + *send + *first_byte + *verify;
}

PingProbe::PingProbe(voltaris::Session& session, const voltaris::QueryDescription& description,
                     const voltaris::Deadlines& deadlines)
    : last_(Clock::now()), collection_(Start(session, description, deadlines)) {}

pollfd PingProbe::Watched() const {
  if (has_ended_) return {-1, 0, 0};
  return {collection_.descriptor(), collection_.events(), 0};
}

bool PingProbe::Step(short events) {
  if (has_ended_) return true;
  NoteEvents(events);
  const voltaris::Outcome outcome = collection_.step();
  NoteProgress();
  if (result_.times.verify || outcome != voltaris::Outcome::kPending) End();
  return has_ended_;
}

void PingProbe::Cancel() {
  if (has_ended_) return;
  collection_.cancel();
  End();
}

// The step that follows sends at once, or reads and verifies: what the events tell has to be noted
// before it.
void PingProbe::NoteEvents(short events) {
  PingTimes& times = result_.times;
  const int descriptor = collection_.descriptor();
  const bool can_be_written = (events & POLLOUT) != 0;
  const bool can_be_read = (events & POLLIN) != 0;
  if (can_be_written && !times.connect && IsConnected(descriptor)) times.connect = Lap();
  if (can_be_read && times.send && !times.first_byte && HasByte(descriptor)) {
    times.first_byte = Lap();
  }
}

void PingProbe::NoteProgress() {
  PingTimes& times = result_.times;
  const CollectionCounters counters = collection_.counters();
  const bool was_sent = collection_.events() == POLLIN || counters.bytes > 0;
  if (was_sent && !times.connect) times.connect = Lap();
  if (was_sent && !times.send) times.send = Lap();
  if (counters.bytes > 0 && !times.first_byte) times.first_byte = Lap();
  if (counters.accepted > 0 && !times.verify) times.verify = Lap();
}

std::chrono::nanoseconds PingProbe::Lap() {
  const Clock::time_point now = Clock::now();
  return now - std::exchange(last_, now);
}

void PingProbe::End() {
  has_ended_ = true;
  if (result_.times.verify) {
    collection_.cancel();
    result_.verdict = {Status::kOk, ""};
    return;
  }
  result_.verdict = Judge({.outcome = collection_.outcome(),
                           .error_number = collection_.error_number(),
                           .counters = collection_.counters()});
}

}  // namespace vt::tools
