#include "api/reply.h"

#include <cstdlib>
#include <cstring>

#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"

#include "api/result_tail.h"
#include "protocol/event.h"
#include "support/heap.h"
#include "support/log.h"

namespace vt::api {

namespace {

using protocol::Verdict;

constexpr const char kProcess[] = "vtn_processReply";
constexpr std::size_t kInitialArraySize = 37008;  // 1028 entries
static_assert(kInitialArraySize == 1028 * sizeof(AckEntry));

// Deliberate: entries are ordered by their raw bytes, the index as it is stored, so that on this
// processor index 256 comes before index 1.
int CompareEntries(const void* a, const void* b) { return std::memcmp(a, b, sizeof(AckEntry)); }

void Sort(AckEntry* entries, std::int32_t count) {
  if (count == 0) return;  // there may be no array
  std::qsort(entries, static_cast<std::size_t>(count), sizeof(AckEntry), CompareEntries);
}

AckEntry* NewArray() {
  return static_cast<AckEntry*>(support::AllocateBytes(kInitialArraySize).release());
}

// IsAuthentic completes the verdict of decoding: messages without elements are not checked there.
bool IsAuthentic(const Event& event, Verdict verdict, const hmac_context* key) {
  if (verdict != Verdict::kNotChecked) return verdict == Verdict::kAuthentic;
  std::uint8_t computed[VT_DIGEST_SIZE];
  return protocol::HasDigest(event) && protocol::DigestDifference(event, key, computed) == 0;
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

// PoolFor is the pool in which the next message of a result is made, or null. The blocks of few
// messages are better off with the C library, which keeps what is small from one result to the
// next.
codec::MessagePool* PoolFor(ResultSet& result) {
  constexpr std::int32_t kFew = 64;
  return result.events.depth >= kFew ? &TailOf(result).messages : nullptr;
}

// Drop releases a message that does not count. In the pool, the next one takes its place.
Taken Drop(Event* event, codec::MessagePool* pool, int error, Taken why) {
  VT_LOG_AS(kDebug, kProcess, "Error while unpacking, error_code=%d", error);
  const bool is_pooled = codec::IsPooled(event);
  (void)cv_cleanup_event(event);
  if (is_pooled) pool->TakeBack();
  return why;
}

bool IsAcknowledgement(const message_header& pak) {
  return pak.shipment == CV_SHIPMENT_ACK_WILL || pak.shipment == CV_SHIPMENT_ACK_WONT;
}

// Fold takes an authentic message, which the result owns already, into acknowledgements and rows.
void Fold(Event* event, ResultSet& result) {
  const message_header& pak = *event->pak;
  if (IsAcknowledgement(pak)) {
    add_acks(event, &result);
  } else if (pak.shipment < 0) {
    return;  // other acknowledgements are kept and tell nothing
  }
  VT_LOG_AS(kTrace, kProcess, "process reply class=%d action=%d", pak.class_, pak.action);
  if (!IsAnswer(pak)) {
    VT_LOG_AS(kWarn, kProcess, "unexpected response class=%d action=%d", pak.class_, pak.action);
    return;
  }
  // Deliberate: an acknowledgement with an accepted class and action counts as an answer too.
  ++result.answers_received;
  --result.answers_pending;
  vtn_addResult(event, &result);
}

}  // namespace

Taken TakeReply(const void* message, std::int32_t len, ResultSet& result, const hmac_context& key,
                Arrays arrays) {
  constexpr std::int32_t kSmallestMessage = 60;
  constexpr int kForged = 5;
  int error = 0;
  Verdict verdict = Verdict::kNotChecked;
  codec::MessagePool* pool = PoolFor(result);
  Event* event = protocol::ReceiveEvent(len, message, &key, pool, error, verdict);
  if (event == nullptr) {
    VT_LOG_AS(kError, kProcess, "Error creating new raw event, dropping event.");
    return len < kSmallestMessage ? Taken::kMalformed : Taken::kNoMemory;
  }
  if (error != 0) return Drop(event, pool, error, Taken::kMalformed);
  if (!IsAuthentic(*event, verdict, &key)) return Drop(event, pool, kForged, Taken::kForged);
  const bool lacks_arrays =
      arrays == Arrays::kOnDemand && IsAcknowledgement(*event->pak) && !MakeArrays(result);
  (void)enqueue(&result.events, event);
  Fold(event, result);
  return lacks_arrays ? Taken::kNoMemory : Taken::kAccepted;
}

void BeginResult(ResultSet& result, Query& query) {
  (void)queue_init(&result.rows, 0);
  (void)queue_init(&result.events, 0);
  result.expected = static_cast<std::int32_t>(query.attribute_count);
  result.query = &query;
}

bool MakeArrays(ResultSet& result) {
  if (result.acks == nullptr) result.acks = NewArray();
  if (result.naks == nullptr) result.naks = NewArray();
  return result.acks != nullptr && result.naks != nullptr;
}

void SortArrays(ResultSet& result) {
  Sort(result.acks, result.ack_count);
  Sort(result.naks, result.nak_count);
}

}  // namespace vt::api
