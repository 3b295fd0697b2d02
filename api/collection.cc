// A Query executed and its replies collected in steps that never wait.
#include "vtapi/collection.h"

#include <poll.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "vtapi/socket.h"

#include "api/query_message.h"
#include "api/reply.h"
#include "support/heap.h"
#include "support/log.h"
#include "transport/address.h"
#include "transport/framing.h"

using vt::api::Taken;
using vt::transport::FramePart;

namespace {

constexpr const char kStart[] = "voltaris_startCollection";

using Milliseconds = std::int64_t;
constexpr Milliseconds kNever = std::numeric_limits<Milliseconds>::max();

Milliseconds Now() {
  constexpr Milliseconds kPerSecond = 1000;
  constexpr long kNanoseconds = 1000000;
  timespec now;
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kPerSecond + now.tv_nsec / kNanoseconds;
}

enum class Phase { kConnecting, kSending, kReceiving, kEnded };

}  // namespace

struct ReplyCollection {
  ResultSet* result;
  hmac_context key;
  sockaddr_in target;
  CollectionOptions limits;  // none is 0
  CollectionCounters counters;
  Phase phase;
  int fd;
  std::int32_t outcome;
  std::int32_t error;
  Milliseconds phase_limit;  // when connecting, or waiting for a message, takes too long
  Milliseconds end;
  std::uint8_t* message;  // the query, until it is sent
  std::size_t message_size;
  std::size_t sent;
  std::size_t used;  // of buffer
  std::array<std::uint8_t, VT_MAX_PDU_SIZE> buffer;
};

namespace {

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

void End(ReplyCollection& c, vt_collection_outcome outcome, int error = 0) {
  if (c.phase == Phase::kEnded) return;
  c.phase = Phase::kEnded;
  c.outcome = outcome;
  c.error = error;
  if (c.fd != -1) (void)closeSocket(c.fd);
  c.fd = -1;
  std::free(c.message);
  c.message = nullptr;
  c.result->error_code = ErrorCode(c);
  c.counters.acknowledgements =
      static_cast<std::uint32_t>(c.result->ack_count + c.result->nak_count);
  vt::api::SortArrays(*c.result);
}

bool IsForLater(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

void EndUnconnected(ReplyCollection& c, int error) {
  End(c, error == ECONNREFUSED ? VT_COLLECTION_REFUSED : VT_COLLECTION_UNREACHABLE, error);
}

// Connect begins to connect or, from the second time on, asks how it goes.
void Connect(ReplyCollection& c, Milliseconds now) {
  const int connected =
      connect(c.fd, vt::transport::AsSocketAddress(&c.target), vt::transport::kAddressSize);
  if (connected == 0 || errno == EISCONN) {
    c.phase = Phase::kSending;
    c.phase_limit = After(now, c.limits.idle_ms);
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
  std::free(c.message);
  c.message = nullptr;
  c.phase = Phase::kReceiving;
}

void TakeMessage(ReplyCollection& c, Milliseconds now) {
  const auto size = static_cast<std::int32_t>(std::exchange(c.used, 0));
  const bool has_arrays = vt::api::MakeArrays(*c.result);
  const Taken taken = vt::api::TakeReply(c.buffer.data(), size, *c.result, c.key);
  if (!has_arrays || taken == Taken::kNoMemory) c.result->error_code = VT_ERROR_NO_MEMORY;
  if (taken == Taken::kForged) ++c.counters.forged;
  if (taken == Taken::kMalformed) ++c.counters.malformed;
  if (taken != Taken::kAccepted) return;
  ++c.counters.accepted;
  c.phase_limit = After(now, c.limits.idle_ms);
}

// Read takes what has arrived of one part of a message. False when there is nothing more for now.
bool Read(ReplyCollection& c, Milliseconds now) {
  const std::size_t end = vt::transport::FrameOf({c.buffer.data(), c.used}).end;
  const ssize_t got =
      recvfrom(c.fd, c.buffer.data() + c.used, end - c.used, MSG_DONTWAIT, nullptr, nullptr);
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
  const FramePart missing = vt::transport::FrameOf({c.buffer.data(), c.used}).part;
  if (missing == FramePart::kOverSize) End(c, VT_COLLECTION_OVER_SIZE, EMSGSIZE);
  if (missing == FramePart::kNothing) TakeMessage(c, now);
  return c.phase == Phase::kReceiving;
}

void Receive(ReplyCollection& c, Milliseconds now) {
  // A node that never pauses must not keep the others of a thread waiting.
  constexpr int kLooksOfAStep = 256;
  for (int i = 0; i < kLooksOfAStep && Read(c, now); ++i) {
  }
}

void CheckLimits(ReplyCollection& c, Milliseconds now) {
  if (now >= c.end) {
    End(c, VT_COLLECTION_DEADLINE, ETIMEDOUT);
  } else if (now >= c.phase_limit) {
    const bool is_connecting = c.phase == Phase::kConnecting;
    End(c, is_connecting ? VT_COLLECTION_CONNECT_TIMEOUT : VT_COLLECTION_IDLE, ETIMEDOUT);
  }
}

// Open begins to connect. A failure is an outcome.
void Open(ReplyCollection& c, Milliseconds now) {
  c.fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (c.fd == -1) {
    EndUnconnected(c, errno);
  } else {
    Connect(c, now);
  }
}

struct CollectionDeleter {
  void operator()(ReplyCollection* c) const { voltaris_releaseCollection(c); }
};

}  // namespace

extern "C" {

ReplyCollection* voltaris_startCollection(Session* session, Query* query,
                                          const CollectionOptions* options) {
  std::unique_ptr<ReplyCollection, CollectionDeleter> c(
      vt::support::AllocateZeroed<ReplyCollection>().release());
  if (c == nullptr) {
    VT_LOG(kFatal, "out of memory");
    return nullptr;
  }
  c->fd = -1;
  c->result = new_resultset();
  if (c->result == nullptr) {
    VT_LOG(kFatal, "out of memory");
    return nullptr;
  }
  if (!vt::api::MakeMessage(*session, *query, kStart)) return nullptr;
  vt::api::BeginResult(*c->result, *query);
  c->key = session->key;
  c->target = session->target;
  c->message = std::exchange(query->event->raw, nullptr);
  c->message_size = query->event->raw_len;
  (void)cv_cleanup_event(std::exchange(query->event, nullptr));
  const Milliseconds now = Now();
  c->limits = WithDefaults(options);
  c->phase_limit = After(now, c->limits.connect_ms);
  c->end = After(now, c->limits.total_ms);
  Open(*c, now);
  return c.release();
}

int voltaris_getCollectionDescriptor(const ReplyCollection* collection) { return collection->fd; }

std::int16_t voltaris_getCollectionEvents(const ReplyCollection* collection) {
  if (collection->phase == Phase::kEnded) return 0;
  return collection->phase == Phase::kReceiving ? POLLIN : POLLOUT;
}

std::int32_t voltaris_getCollectionTimeout(const ReplyCollection* collection) {
  if (collection->phase == Phase::kEnded) return 0;
  const Milliseconds limit = std::min(collection->phase_limit, collection->end);
  if (limit == kNever) return -1;
  return static_cast<std::int32_t>(
      std::clamp<Milliseconds>(limit - Now(), 0, std::numeric_limits<std::int32_t>::max()));
}

std::int32_t voltaris_stepCollection(ReplyCollection* collection) {
  const Milliseconds now = Now();
  if (collection->phase == Phase::kConnecting) Connect(*collection, now);
  if (collection->phase == Phase::kSending) Send(*collection);
  if (collection->phase == Phase::kReceiving) Receive(*collection, now);
  CheckLimits(*collection, now);
  return collection->outcome;
}

void voltaris_cancelCollection(ReplyCollection* collection) {
  End(*collection, VT_COLLECTION_CANCELLED, ECANCELED);
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

ResultSet* voltaris_takeCollectionResult(ReplyCollection* collection) {
  voltaris_cancelCollection(collection);
  return std::exchange(collection->result, nullptr);
}

void voltaris_releaseCollection(ReplyCollection* collection) {
  if (collection == nullptr) return;
  if (collection->result != nullptr)
    voltaris_releaseResult(voltaris_takeCollectionResult(collection));
  std::free(collection);
}

}  // extern "C"
