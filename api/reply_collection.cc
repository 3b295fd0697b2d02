// The collection of replies: wait, read, check, decode, fold, until the node has closed the
// connection.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"
#include "vtapi/reception.h"
#include "vtapi/result.h"
#include "vtapi/socket.h"

#include "protocol/event_decode.h"
#include "support/heap.h"
#include "support/log.h"
#include "support/reader.h"
#include "transport/wait.h"

namespace {

using vt::protocol::Verdict;

constexpr const char kLoop[] = "vtn_queryLoop";
constexpr long kWaitSeconds = 180;
constexpr std::size_t kInitialArraySize = 37008;  // 1028 entries
static_assert(kInitialArraySize == 1028 * sizeof(AckEntry));

// Deliberate: entries are ordered by their raw bytes, the index as it is stored, so that on this
// processor index 256 comes before index 1.
int CompareEntries(const void* a, const void* b) { return std::memcmp(a, b, sizeof(AckEntry)); }

void Sort(AckEntry* entries, std::int32_t count) {
  std::qsort(entries, static_cast<std::size_t>(count), sizeof(AckEntry), CompareEntries);
}

AckEntry* NewArray() {
  return static_cast<AckEntry*>(vt::support::AllocateBytes(kInitialArraySize).release());
}

// WasSent tells whether there is a connection with replies. A Session that never executed anything
// has descriptor 0, which is not its own.
bool WasSent(const Session& session, const Query& query) {
  return session.descriptor != -1 && (session.descriptor != 0 || query.session != nullptr);
}

// WaitForMessage returns 1 when there is something to read and 0 when the collection is over.
int WaitForMessage(int fd, ResultSet& result) {
  for (;;) {
    const timeval limit{kWaitSeconds, 0};
    bool marked;
    const int ready = vt::transport::WaitReadable(fd, &limit, &marked);
    if (marked) return 1;
    if (ready == 0) {
      VT_LOG_AS(kDebug, kLoop, "select() timout expired");  // Deliberate: spelt so.
      result.error_code = VT_ERROR_TIMEOUT;
      return 0;
    }
    const int error = vtn_getErrorCode();
    VT_LOG_AS(kWarn, kLoop, "unexpected read status value %d, error: %d(%s)", ready, error,
              std::strerror(error));
    // An interrupted wait is retried; a descriptor that cannot be waited for never becomes better.
    if (ready < 0 && (error == EBADF || error == EINVAL)) {
      result.error_code = error;
      return 0;
    }
  }
}

// IsAuthentic completes the verdict of decoding: messages without elements are not checked there.
bool IsAuthentic(const Event& event, Verdict verdict, const hmac_context* key) {
  if (verdict != Verdict::kNotChecked) return verdict == Verdict::kAuthentic;
  std::uint8_t computed[VT_DIGEST_SIZE];
  return vt::protocol::HasDigest(event) &&
         vt::protocol::DigestDifference(event, key, computed) == 0;
}

// DecodeAuthentic returns 0 for a message that is decoded and signed with the key, else why not.
int DecodeAuthentic(Event& event, const hmac_context* key) {
  constexpr int kForged = 5;
  Verdict verdict;
  const int error = vt::protocol::UnpackEvent(event, key, verdict);
  if (error != 0) return error;
  return IsAuthentic(event, verdict, key) ? 0 : kForged;
}

bool IsAnswer(const message_header& pak) {
  struct Accepted {
    std::uint8_t cls;
    std::uint16_t first_action;
    std::uint16_t last_action;
  };
  constexpr Accepted kAccepted[] = {
      {CV_CLASS_QUERY, CV_ACTION_MXRT_CORVANE_QUERY_SET, CV_ACTION_MXRT_CORVANE_QUERY_COLLECT},
      {CV_CLASS_QUERY, VT_ACTION_QUERY_FURTHER, VT_ACTION_QUERY_FURTHER},
      {CV_CLASS_AGGREGATE, CV_ACTION_MXRT_CORVANE_AGGREGATE_SUM,
       CV_ACTION_MXRT_CORVANE_AGGREGATE_MAX},
  };
  for (const Accepted& row : kAccepted) {
    if (pak.class_ == row.cls && pak.action >= row.first_action && pak.action <= row.last_action) {
      return true;
    }
  }
  return false;
}

}  // namespace

extern "C" {

ResultSet* voltaris_queryResults(Session* session, Query* query) {
  if (!WasSent(*session, *query)) {
    VT_LOG(kError, "Query failed to execute, no results available.");
    return nullptr;
  }
  ResultSet* result = new_resultset();
  if (result == nullptr) {
    VT_LOG(kFatal, "out of memory");
    return nullptr;
  }
  (void)queue_init(&result->rows, 0);
  (void)queue_init(&result->events, 0);
  result->expected = static_cast<std::int32_t>(query->attribute_count);
  result->query = query;
  result->acks = NewArray();
  result->naks = NewArray();
  if (result->acks == nullptr || result->naks == nullptr) {
    VT_LOG(kFatal, "out of memory");
    result->error_code = VT_ERROR_NO_MEMORY;
    return result;
  }
  vtn_queryLoop(session, result);
  VT_LOG(kDebug, "ACK %d/NAK %d ans pending=%d ans received=%d", result->ack_count,
         result->nak_count, result->answers_pending, result->answers_received);
  VT_LOG(kDebug, "sorting ACK/NAK results");
  Sort(result->acks, result->ack_count);
  Sort(result->naks, result->nak_count);
  return result;
}

void vtn_queryLoop(Session* session, ResultSet* result) {
  std::array<std::uint8_t, VT_MAX_PDU_SIZE> buffer;
  while (WaitForMessage(session->descriptor, *result) != 0) {
    sockaddr_in sender{};
    const int count = vtn_read_tcp_message(session->descriptor, buffer.data(),
                                           static_cast<std::int32_t>(buffer.size()), &sender);
    if (count == 0) {
      VT_LOG(kDebug, "bytes read %d", count);
      return;
    }
    if (count < 0) {
      const int error = errno;
      result->error_code = error;
      VT_LOG(kWarn, "no response read:  %d(%s)", error, std::strerror(error));
      return;
    }
    if (count > VT_MAX_PDU_SIZE) {
      VT_LOG(kError,
             "Dropping packet from %s, size exceeds maximum threshold.  Expected max:  %d bytes, "
             "Actual size:  %d bytes",
             inet_ntoa(sender.sin_addr), VT_MAX_PDU_SIZE, count);
      continue;
    }
    vtn_processReply(buffer.data(), count, result, &session->key);
  }
}

void vtn_processReply(const void* buf, std::int32_t len, ResultSet* result,
                      const hmac_context* key) {
  Event* event = cv_mkevent_from_rawbuffer(len, buf);
  if (event == nullptr) {
    VT_LOG(kError, "Error creating new raw event, dropping event.");
    return;
  }
  if (const int error = DecodeAuthentic(*event, key); error != 0) {
    VT_LOG(kDebug, "Error while unpacking, error_code=%d", error);
    (void)cv_cleanup_event(event);
    return;
  }
  (void)enqueue(&result->events, event);
  const message_header& pak = *event->pak;
  if (pak.shipment == CV_SHIPMENT_ACK_WILL || pak.shipment == CV_SHIPMENT_ACK_WONT) {
    add_acks(event, result);
  } else if (pak.shipment < 0) {
    return;  // other acknowledgements are kept and tell nothing
  }
  VT_LOG(kTrace, "process reply class=%d action=%d", pak.class_, pak.action);
  if (!IsAnswer(pak)) {
    VT_LOG(kWarn, "unexpected response class=%d action=%d", pak.class_, pak.action);
    return;
  }
  // Deliberate: an acknowledgement with an accepted class and action counts as an answer too.
  ++result->answers_received;
  --result->answers_pending;
  vtn_addResult(event, result);
}

std::uint32_t vtn_getDomainFromPayload(const void* payload, std::uint32_t len) {
  if (payload == nullptr) return 0;
  vt::support::Reader in({static_cast<const std::uint8_t*>(payload), len});
  for (;;) {
    std::uint32_t type = 0;
    std::uint32_t length = 0;
    if (!in.Read(type) || !in.Read(length) || !in.Skip(sizeof(std::uint32_t))) return 0;
    if (type == CV_CORVANE_TLV_TYPE_DOMAIN) {
      std::uint32_t domain = 0;
      const std::size_t there = std::min(in.remaining(), sizeof domain);
      std::memcpy(&domain, in.cursor(), there);
      return domain;
    }
    if (length < VT_TLV_HEADER_SIZE) return 0;
    if (!in.Skip(length - VT_TLV_HEADER_SIZE) || in.remaining() == 0) return 0;
  }
}

}  // extern "C"
