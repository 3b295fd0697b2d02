// The ResultSet: its arrays of acknowledgements, its counts and its release.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"
#include "vtapi/result.h"

#include "api/attribute_list.h"
#include "api/result_tail.h"
#include "api/row_store.h"
#include "support/heap.h"
#include "support/log.h"

namespace {

static_assert(sizeof(ResultSet) == 216 && sizeof(AckEntry) == 36);

constexpr std::size_t kGrowth = 1028;  // entries by which the arrays grow

constexpr std::uint32_t kAcknowledgement = VT_TLV_AGGREGATED | VT_TLV_ACKNOWLEDGEMENT;

bool IsFull(std::int32_t count) {
  return count > 0 && static_cast<std::size_t>(count) % kGrowth == 0;
}

AckEntry* Grow(AckEntry* entries, std::int32_t count) {
  const std::size_t size = (static_cast<std::size_t>(count) + kGrowth) * sizeof(AckEntry);
  return static_cast<AckEntry*>(std::realloc(entries, size));
}

// LogAcknowledgement reports one aggregate. Its identity need not be terminated, and its block need
// not hold an address.
void LogAcknowledgement(const aggregated_value& aggregate) {
  if (!vt::support::LogEnabled(vt::support::Level::kDebug)) return;
  std::array<char, sizeof(corvane_id) + 1> identity{};
  std::memcpy(identity.data(), aggregate.device.id.bytes, sizeof(corvane_id));
  sockaddr_in sender{};
  constexpr std::size_t kUpToAddress = 8;
  if (aggregate.device.data != nullptr && aggregate.device.data_len >= kUpToAddress) {
    std::memcpy(&sender, aggregate.device.data, kUpToAddress);
  }
  vt::support::LogLine(vt::support::Level::kDebug, "add_acks",
                       "got AGGREGATE ACK type from %s, device: %s, count: %d",
                       inet_ntoa(sender.sin_addr), identity.data(), aggregate.entry_count);
}

void AddEntries(const aggregated_value& aggregate, ResultSet* result,
                void (*add)(ResultSet*, const AckEntry*)) {
  if (aggregate.entries == nullptr) return;
  AckEntry entry{};
  std::memcpy(entry.device_id, aggregate.device.id.bytes, sizeof entry.device_id);
  for (std::uint32_t i = 0; i < aggregate.entry_count; ++i) {
    const auto* acknowledged = static_cast<const plain_entry*>(aggregate.entries[i]);
    if (acknowledged == nullptr) continue;
    entry.entity_index = acknowledged->tag;
    add(result, &entry);
  }
}

}  // namespace

extern "C" {

ResultSet* new_resultset() {
  ResultSet* result = vt::support::AllocateZeroed<ResultSet>().release();
  if (result == nullptr) return nullptr;
  VT_LOG(kTrace, "allocated %d bytes for result set", static_cast<int>(sizeof(ResultSet)));
  return result;
}

void add_ack(ResultSet* result, const AckEntry* entry) {
  AckEntry* acks = result->acks;
  if (IsFull(result->ack_count)) {
    VT_LOG(kDebug, "realloc acks[] %p", static_cast<void*>(acks));
    acks = Grow(acks, result->ack_count);
    VT_LOG(kDebug, "done realloc %p", static_cast<void*>(acks));
  }
  if (acks == nullptr) {
    VT_LOG(kFatal, "out of memory");  // the entries before are kept
    return;
  }
  result->acks = acks;
  acks[result->ack_count++] = *entry;
}

void add_nack(ResultSet* result, const AckEntry* entry) {
  AckEntry* naks = result->naks;
  if (IsFull(result->nak_count)) {
    VT_LOG(kTrace, "realloc naks[]");
    naks = Grow(naks, result->nak_count);
  }
  if (naks == nullptr) {
    VT_LOG(kFatal, "out of memory");
    return;
  }
  result->naks = naks;
  naks[result->nak_count++] = *entry;
  // Deliberate: the word is "ack" here too.
  VT_LOG(kDebug, "adding ack for index %d", entry->entity_index);
}

void add_acks(Event* event, ResultSet* result) {
  std::int32_t index = 0;
  for (;; ++index) {
    std::uint32_t length = 0;
    const auto* aggregate = static_cast<const aggregated_value*>(
        cv_get_next_tlv_value_common(event, &index, kAcknowledgement, &length, 0));
    if (index < 0) return;
    if (aggregate == nullptr) continue;
    LogAcknowledgement(*aggregate);
    if (event->pak->shipment == CV_SHIPMENT_ACK_WILL) {
      ++result->answers_pending;
      AddEntries(*aggregate, result, add_ack);
    } else if (event->pak->shipment == CV_SHIPMENT_ACK_WONT) {
      AddEntries(*aggregate, result, add_nack);
    }
  }
}

std::int32_t voltaris_getRowCount(const ResultSet* result) { return result->row_count; }
std::int32_t voltaris_getErrorCode(const ResultSet* result) { return result->error_code; }
std::int32_t voltaris_getAckCount(const ResultSet* result) { return result->ack_count; }
std::int32_t voltaris_getNakCount(const ResultSet* result) { return result->nak_count; }
AckEntry* voltaris_getAcks(const ResultSet* result) { return result->acks; }
AckEntry* voltaris_getNaks(const ResultSet* result) { return result->naks; }

void voltaris_releaseResult(ResultSet* result) {
  vt::api::RowStore::Release(*result);
  // Deliberate: with its result a Query loses its attributes, and cannot be executed with them
  // again.
  if (result->query != nullptr) vt::api::ReleaseAttributes(*result->query);
  while (void* event = dequeue(&result->events)) {
    if (result->events.head != nullptr) {
      auto* next = static_cast<Event*>(static_cast<void*>(result->events.head));
      __builtin_prefetch(next->sec);
      __builtin_prefetch(next->next);
    }
    (void)cv_cleanup_event(static_cast<Event*>(event));
  }
  vt::api::TailOf(*result).messages.Close();
  VT_LOG(kTrace, "freeing acks %p", static_cast<void*>(result->acks));
  std::free(result->acks);
  VT_LOG(kTrace, "freeing naks %p", static_cast<void*>(result->naks));
  std::free(result->naks);
  VT_LOG(kTrace, "free %p", static_cast<void*>(result));
  std::free(result);
}

}  // extern "C"
