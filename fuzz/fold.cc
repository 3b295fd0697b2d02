// Several messages folded into one ResultSet, which is walked twice and released. The target signs
// each message, unless bit 0 of its first byte is set; byte 2 of the first message, which nobody
// reads, chooses the query.
#include <cerrno>

#include "fuzz/check.h"
#include "fuzz/heap_meter.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "fuzz/time_limit.h"

namespace vt::fuzz {

const Layout kInputLayout = Layout::kMessages;

namespace {

constexpr std::size_t kAcknowledgementArraySize = 37008;

Query* AskingForAll(Query* query) {
  FUZZ_CHECK(query != nullptr);
  for (std::int32_t attribute = VT_ATTRIBUTE_ID; attribute <= VT_ATTRIBUTE_USAGE_CATEGORY;
       ++attribute) {
    (void)voltaris_addGetAttribute(query, attribute);
  }
  return query;
}

// Folding only reads the query: the same three serve all inputs.
Query* QueryFor(Bytes input) {
  static Query* const collect = AskingForAll(voltaris_createCollectQuery("fuzz", 0));
  static Query* const set = AskingForAll(voltaris_createSetQuery("fuzz", 0));
  static Query* const sum = AskingForAll(voltaris_createSumQuery("fuzz", 0));
  const unsigned choice = input.size() > 2 ? input[2] & 3u : 0;
  return choice == 1 ? set : choice == 2 ? sum : collect;
}

ResultSet* NewResult(Query* query) {
  ResultSet* result = new_resultset();
  FUZZ_CHECK(result != nullptr);
  result->query = query;
  result->acks = static_cast<AckEntry*>(std::malloc(kAcknowledgementArraySize));
  result->naks = static_cast<AckEntry*>(std::malloc(kAcknowledgementArraySize));
  return result;
}

// Of a neighbor and a recurrence the value is the record, and the length that of its wire form.
std::size_t ReadableLength(std::int32_t attribute, std::uint32_t length) {
  if (attribute == VT_ATTRIBUTE_NEIGHBOR) return sizeof(neighbor);
  if (attribute == VT_ATTRIBUTE_RECURRENCE) return sizeof(recurrence);
  return length;
}

void ReadRow(ResultRow* row) {
  Look(row->device, sizeof *row->device);
  for (std::int32_t attribute = 0; attribute <= VT_ATTRIBUTE_USAGE_CATEGORY + 1; ++attribute) {
    const bool given_again = attribute == VT_ATTRIBUTE_ID || attribute == VT_ATTRIBUTE_DOMAIN ||
                             attribute == VT_ATTRIBUTE_REPLY_TO;
    for (;;) {
      std::uint32_t length = 0xABCDEF01;
      const void* value = voltaris_getAttributeFromRowByType(row, attribute, &length);
      if (value == nullptr) break;
      Look(value, ReadableLength(attribute, length));
      if (given_again) break;
    }
  }
}

// Walk reads all rows and checks that they are ascending and as many as they are said to be.
void Walk(ResultSet* result) {
  std::int32_t rows = 0;
  AckEntry last;
  while (ResultRow* row = voltaris_getNextRow(result)) {
    AckEntry here;
    std::memcpy(here.device_id, row->device->device.id.bytes, sizeof here.device_id);
    here.entity_index = row->entity_index;
    FUZZ_CHECK(here.entity_index != 0);
    if (rows != 0) {
      const int order = std::memcmp(last.device_id, here.device_id, sizeof last.device_id);
      FUZZ_CHECK(order < 0 || (order == 0 && last.entity_index < here.entity_index));
    }
    last = here;
    ++rows;
    ReadRow(row);
  }
  FUZZ_CHECK(rows == voltaris_getRowCount(result));
}

void Process(Bytes message, ResultSet* result) {
  const Block wire(message);
  if (wire.size() != 0 && (wire.data()[0] & 1) == 0) Sign(wire.data(), wire.size());
  vtn_processReply(wire.data(), static_cast<std::int32_t>(wire.size()), result, &RightKey());
}

void Fold(Bytes input) {
  Query* query = QueryFor(input);
  const HeapMeter meter;
  ResultSet* result = NewResult(query);
  std::int32_t messages = 0;
  while (!input.empty()) {
    const std::int32_t rows = voltaris_getRowCount(result);
    Process(TakeMessage(input), result);
    FUZZ_CHECK(voltaris_getRowCount(result) >= rows);
    ++messages;
  }
  FUZZ_CHECK(voltaris_getErrorCode(result) == 0);
  FUZZ_CHECK(result->answers_received >= 0 && result->answers_received <= messages);
  FUZZ_CHECK(voltaris_getAckCount(result) >= 0 && voltaris_getNakCount(result) >= 0);
  Look(voltaris_getAcks(result),
       static_cast<std::size_t>(voltaris_getAckCount(result)) * sizeof(AckEntry));
  Look(voltaris_getNaks(result),
       static_cast<std::size_t>(voltaris_getNakCount(result)) * sizeof(AckEntry));
  Walk(result);
  Walk(result);
  result->query = nullptr;  // which would lose its attributes
  voltaris_releaseResult(result);
  FUZZ_CHECK(meter.balanced());
}

}  // namespace

}  // namespace vt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vt::fuzz::TimeLimit limit;
  vt::fuzz::SetUpLog(size);
  vt::fuzz::Fold({data, size});
  return 0;
}
