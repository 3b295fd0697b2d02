// A Collection from within: what its own calls and a fleet need to know of it.
#ifndef VT_API_COLLECTION_H
#define VT_API_COLLECTION_H

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "vtapi/fleet.h"
#include "vtapi/pdu.h"

namespace vt::api {

// Milliseconds are counted on the monotonic clock.
using Milliseconds = std::int64_t;
inline constexpr Milliseconds kNever = std::numeric_limits<Milliseconds>::max();

[[nodiscard]] Milliseconds Now();

// TimeoutUntil is what a wait for that moment is told: 0 when it is over, -1 for never.
[[nodiscard]] std::int32_t TimeoutUntil(Milliseconds moment);

enum class Phase : std::uint8_t { kWaiting, kConnecting, kSending, kReceiving, kEnded };

inline constexpr std::size_t kNotRunning = std::numeric_limits<std::size_t>::max();

// FleetMember is what a fleet keeps of a Collection; all null for one on its own.
struct FleetMember {
  CollectionFleet* fleet;
  void* tag;
  ReplyCollection* previous;  // of those that wait, or of those that have ended
  ReplyCollection* next;
  Milliseconds wake;  // when its limits are to be looked at; never later than NextLimit
  std::size_t place;  // among those that run, or kNotRunning
};

}  // namespace vt::api

struct ReplyCollection {
  ResultSet* result;
  hmac_context key;
  sockaddr_in target;
  CollectionOptions limits;  // none is 0
  CollectionCounters counters;
  int fd;
  std::int32_t outcome;
  std::int32_t error;
  vt::api::Phase phase;
  bool has_more;                      // a step left bytes behind that no new event will announce
  vt::api::Milliseconds phase_limit;  // when connecting, or waiting for a message, takes too long
  vt::api::Milliseconds end;
  std::uint8_t* message;  // the query, until it is sent
  std::size_t message_size;
  std::size_t sent;
  vt::api::FleetMember member;
  std::size_t used;  // of buffer
  std::array<std::uint8_t, VT_MAX_PDU_SIZE> buffer;
};

namespace vt::api {

// Prepare makes a Collection that waits, or returns null after a line in the name of function.
[[nodiscard]] ReplyCollection* Prepare(Session& session, Query& query,
                                       const CollectionOptions* options, const char* function);

// Open begins to connect. A failure is an outcome; but where the process has no descriptor left and
// may_wait is true it goes on waiting, and false is returned.
bool Open(ReplyCollection& c, Milliseconds now, bool may_wait);

// News is what is known of a descriptor beforehand, which saves asking the system.
struct News {
  bool is_connected = false;  // for certain
  bool may_be_readable = true;
};

// Step does what can be done now.
void Step(ReplyCollection& c, Milliseconds now, News news = {});

// End is what every way to an outcome comes to. One that has ended stays as it is.
void End(ReplyCollection& c, vt_collection_outcome outcome, int error = 0);

// NextLimit is when the next limit is reached.
[[nodiscard]] Milliseconds NextLimit(const ReplyCollection& c);

// NoteEnd tells the fleet of a Collection that it has ended; its descriptor is still open.
void NoteEnd(ReplyCollection& c);

}  // namespace vt::api

#endif  // VT_API_COLLECTION_H
