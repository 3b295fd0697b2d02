// A Query executed and its replies collected in steps that never wait.
#include "api/collection.h"

#include <arpa/inet.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>
#include <utility>

#include "vtapi/socket.h"

#include "api/query_message.h"
#include "api/reply.h"
#include "support/heap.h"
#include "support/log.h"
#include "transport/address.h"
#include "transport/framing.h"

namespace vt::api {

namespace {

using transport::Frame;
using transport::FramePart;

constexpr const char kStep[] = "voltaris_stepCollection";

// No pointers, which would have to be set right whenever the library is loaded.
constexpr std::size_t kLongestOutcome = 21;
constexpr char kOutcomes[][kLongestOutcome + 1] = {"pending",
                                                   "complete",
                                                   "connection refused",
                                                   "unreachable",
                                                   "no connection in time",
                                                   "query not sent",
                                                   "no message in time",
                                                   "not complete in time",
                                                   "read error",
                                                   "message too long",
                                                   "cancelled"};
static_assert(std::size(kOutcomes) == VT_COLLECTION_CANCELLED + 1);

Milliseconds After(Milliseconds now, std::int32_t limit) {
  return limit < 0 ? kNever : now + limit;
}

CollectionOptions WithDefaults(const CollectionOptions* options) {
  constexpr CollectionOptions kDefaults = {10000, 180000, -1};
  CollectionOptions limits = options != nullptr ? *options : kDefaults;
  if (limits.connect_ms == 0) limits.connect_ms = kDefaults.connect_ms;
  if (limits.idle_ms == 0) limits.idle_ms = kDefaults.idle_ms;
  if (limits.total_ms == 0) limits.total_ms = kDefaults.total_ms;
  return limits;
}

// ErrorCode is what the result tells of an outcome.
std::int32_t ErrorCode(const ReplyCollection& c) {
  switch (c.outcome) {
    case VT_COLLECTION_COMPLETE:
      return c.result->error_code;  // memory may have ended in between
    case VT_COLLECTION_CONNECT_TIMEOUT:
    case VT_COLLECTION_IDLE:
    case VT_COLLECTION_DEADLINE:
      return VT_ERROR_TIMEOUT;
    default:
      return c.error;
  }
}

static_assert(EAGAIN == EWOULDBLOCK);
bool IsForLater(int error) { return error == EAGAIN; }

void EndUnconnected(ReplyCollection& c, int error) {
  End(c, error == ECONNREFUSED ? VT_COLLECTION_REFUSED : VT_COLLECTION_UNREACHABLE, error);
}

void NoteConnected(ReplyCollection& c, Milliseconds now) {
  c.phase = Phase::kSending;
  c.phase_limit = After(now, c.limits.idle_ms);
}

// Connect begins to connect or, from the second time on, asks how it goes.
void Connect(ReplyCollection& c, Milliseconds now) {
  const int connected =
      connect(c.fd, transport::AsSocketAddress(&c.target), transport::kAddressSize);
  if (connected == 0 || errno == EISCONN) {
    NoteConnected(c, now);
    return;
  }
  // An interrupted connect goes on by itself.
  const bool goes_on = errno == EINPROGRESS || errno == EALREADY || errno == EINTR;
  if (!goes_on) EndUnconnected(c, errno);
}

void Send(ReplyCollection& c) {
  while (c.sent < c.message_size) {
    const ssize_t sent =
        send(c.fd, c.message + c.sent, c.message_size - c.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) {
      if (!IsForLater(errno)) End(c, VT_COLLECTION_SEND_ERROR, errno);
      return;
    }
    c.sent += static_cast<std::size_t>(sent);
  }
  std::free(std::exchange(c.message, nullptr));
  c.phase = Phase::kReceiving;
}

void TakeMessage(ReplyCollection& c, support::Bytes message, Milliseconds now) {
  const auto size = static_cast<std::int32_t>(message.size());
  const Taken taken = TakeReply(message.data(), size, *c.result, c.key, Arrays::kOnDemand);
  if (taken == Taken::kNoMemory) c.result->error_code = VT_ERROR_NO_MEMORY;
  if (taken == Taken::kForged) ++c.counters.forged;
  if (taken == Taken::kMalformed) ++c.counters.malformed;
  if (taken != Taken::kAccepted) return;
  ++c.counters.accepted;
  c.phase_limit = After(now, c.limits.idle_ms);
}

// TakeMessages takes those that are there whole, and keeps what is there of the next.
void TakeMessages(ReplyCollection& c, Milliseconds now) {
  support::Bytes rest(c.buffer.data(), c.used);
  Frame frame = transport::FrameOf(rest);
  for (; frame.part == FramePart::kNothing; frame = transport::FrameOf(rest)) {
    TakeMessage(c, rest.first(frame.end), now);
    rest = rest.subspan(frame.end);
  }
  std::memmove(c.buffer.data(), rest.data(), rest.size());
  c.used = rest.size();
  if (frame.part == FramePart::kOverSize) End(c, VT_COLLECTION_OVER_SIZE, EMSGSIZE);
}

// Read takes what has arrived, often several messages. False when there is nothing more for now.
bool Read(ReplyCollection& c, Milliseconds now) {
  const std::span<std::uint8_t> room = std::span(c.buffer).subspan(c.used);
  const ssize_t got = recvfrom(c.fd, room.data(), room.size(), MSG_DONTWAIT, nullptr, nullptr);
  if (got < 0 && errno == EINTR) return true;
  if (got < 0) {
    if (!IsForLater(errno)) End(c, VT_COLLECTION_READ_ERROR, errno);
    return false;
  }
  if (got == 0) {
    if (c.used != 0) ++c.counters.malformed;  // cut off
    End(c, VT_COLLECTION_COMPLETE);
    return false;
  }
  c.used += static_cast<std::size_t>(got);
  c.counters.bytes += static_cast<std::uint64_t>(got);
  TakeMessages(c, now);
  return c.phase == Phase::kReceiving;
}

void Receive(ReplyCollection& c, Milliseconds now) {
  // A node that never pauses must not keep the others of a thread waiting.
  constexpr int kReadsOfAStep = 64;
  int reads = 0;
  while (reads < kReadsOfAStep && Read(c, now)) ++reads;
  c.has_more = reads == kReadsOfAStep;
}

void CheckLimits(ReplyCollection& c, Milliseconds now) {
  if (now >= c.end) {
    End(c, VT_COLLECTION_DEADLINE, ETIMEDOUT);
  } else if (now >= c.phase_limit) {
    const bool is_connecting = c.phase == Phase::kConnecting;
    End(c, is_connecting ? VT_COLLECTION_CONNECT_TIMEOUT : VT_COLLECTION_IDLE, ETIMEDOUT);
  }
}

struct CollectionDeleter {
  void operator()(ReplyCollection* c) const { voltaris_releaseCollection(c); }
};

}  // namespace

Milliseconds Now() {
  constexpr Milliseconds kPerSecond = 1000;
  constexpr long kNanoseconds = 1000000;
  timespec now;
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kPerSecond + now.tv_nsec / kNanoseconds;
}

std::int32_t TimeoutUntil(Milliseconds moment) {
  if (moment == kNever) return -1;
  return static_cast<std::int32_t>(
      std::clamp<Milliseconds>(moment - Now(), 0, std::numeric_limits<std::int32_t>::max()));
}

ReplyCollection* Prepare(Session& session, Query& query, const CollectionOptions* options,
                         const char* function) {
  std::unique_ptr<ReplyCollection, CollectionDeleter> c(
      support::AllocateZeroed<ReplyCollection>().release());
  if (c != nullptr) {
    c->fd = -1;
    c->result = new_resultset();
  }
  if (c == nullptr || c->result == nullptr) {
    VT_LOG_AS(kFatal, function, "out of memory");
    return nullptr;
  }
  if (!MakeMessage(session, query, function)) return nullptr;
  BeginResult(*c->result, query);
  c->key = session.key;
  c->target = session.target;
  c->message = std::exchange(query.event->raw, nullptr);
  c->message_size = query.event->raw_len;
  (void)cv_cleanup_event(std::exchange(query.event, nullptr));
  c->limits = WithDefaults(options);
  c->phase_limit = kNever;
  c->end = kNever;
  return c.release();
}

bool Open(ReplyCollection& c, Milliseconds now, bool may_wait) {
  c.fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (c.fd == -1) {
    if (may_wait && (errno == EMFILE || errno == ENFILE)) return false;
    EndUnconnected(c, errno);
    return true;
  }
  c.phase = Phase::kConnecting;
  c.phase_limit = After(now, c.limits.connect_ms);
  c.end = After(now, c.limits.total_ms);
  Connect(c, now);
  return true;
}

void Step(ReplyCollection& c, Milliseconds now, News news) {
  if (c.phase == Phase::kConnecting) {
    news.is_connected ? NoteConnected(c, now) : Connect(c, now);
  }
  if (c.phase == Phase::kSending) Send(c);
  if (c.phase == Phase::kReceiving && news.may_be_readable) Receive(c, now);
  CheckLimits(c, now);
}

void End(ReplyCollection& c, vt_collection_outcome outcome, int error) {
  if (c.phase == Phase::kEnded) return;
  c.phase = Phase::kEnded;
  c.outcome = outcome;
  c.error = error;
  if (c.member.fleet != nullptr) NoteEnd(c);
  if (c.fd != -1) (void)closeSocket(std::exchange(c.fd, -1));
  std::free(std::exchange(c.message, nullptr));
  c.result->error_code = ErrorCode(c);
  c.counters.acknowledgements =
      static_cast<std::uint32_t>(c.result->ack_count + c.result->nak_count);
  SortArrays(*c.result);
  VT_LOG_AS(kDebug, kStep, "%s:%d: %s, errno %d", inet_ntoa(c.target.sin_addr),
            transport::PortOf(c.target), kOutcomes[outcome], error);
}

Milliseconds NextLimit(const ReplyCollection& c) { return std::min(c.phase_limit, c.end); }

}  // namespace vt::api

using vt::api::Phase;

extern "C" {

ReplyCollection* voltaris_startCollection(Session* session, Query* query,
                                          const CollectionOptions* options) {
  ReplyCollection* c = vt::api::Prepare(*session, *query, options, "voltaris_startCollection");
  if (c != nullptr) (void)vt::api::Open(*c, vt::api::Now(), false);
  return c;
}

int voltaris_getCollectionDescriptor(const ReplyCollection* collection) { return collection->fd; }

std::int16_t voltaris_getCollectionEvents(const ReplyCollection* collection) {
  if (collection->phase == Phase::kReceiving) return POLLIN;
  return collection->fd != -1 ? POLLOUT : 0;
}

std::int32_t voltaris_getCollectionTimeout(const ReplyCollection* collection) {
  if (collection->phase == Phase::kEnded) return 0;
  return vt::api::TimeoutUntil(vt::api::NextLimit(*collection));
}

std::int32_t voltaris_stepCollection(ReplyCollection* collection) {
  vt::api::Step(*collection, vt::api::Now());
  return collection->outcome;
}

void voltaris_cancelCollection(ReplyCollection* collection) {
  vt::api::End(*collection, VT_COLLECTION_CANCELLED, ECANCELED);
}

std::int32_t voltaris_getCollectionOutcome(const ReplyCollection* collection) {
  return collection->outcome;
}

std::int32_t voltaris_getCollectionErrno(const ReplyCollection* collection) {
  return collection->error;
}

const CollectionCounters* voltaris_getCollectionCounters(const ReplyCollection* collection) {
  return &collection->counters;
}

const char* voltaris_nameOutcome(std::int32_t outcome) {
  const auto index = static_cast<std::size_t>(outcome);
  return index < std::size(vt::api::kOutcomes) ? vt::api::kOutcomes[index] : nullptr;
}

ResultSet* voltaris_takeCollectionResult(ReplyCollection* collection) {
  voltaris_cancelCollection(collection);
  return std::exchange(collection->result, nullptr);
}

void voltaris_releaseCollection(ReplyCollection* collection) {
  if (collection == nullptr) return;
  if (collection->result != nullptr)
    voltaris_releaseResult(voltaris_takeCollectionResult(collection));
  explicit_bzero(&collection->key, sizeof collection->key);
  std::free(collection);
}

}  // extern "C"
