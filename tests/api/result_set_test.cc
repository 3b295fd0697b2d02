// The result set: its record, the acknowledgement arrays, the sorted node queue and the release.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"

namespace {

using namespace vt::testing;

AckEntry EntryOf(char device, std::uint32_t entity) {
  AckEntry entry = {};
  std::fill(std::begin(entry.device_id), std::end(entry.device_id),
            static_cast<std::uint8_t>(device));
  entry.entity_index = entity;
  return entry;
}

// The two arrays behave alike but for their lines.
struct Kind {
  void (*add)(ResultSet*, const AckEntry*);
  AckEntry* ResultSet::*entries;
  std::int32_t ResultSet::*count;
};
constexpr Kind kAcks = {add_ack, &ResultSet::acks, &ResultSet::ack_count};
constexpr Kind kNaks = {add_nack, &ResultSet::naks, &ResultSet::nak_count};

// AddUpTo adds entries with the entity indexes from the present count on.
void AddUpTo(ResultSet* result, const Kind& kind, std::int32_t count) {
  while (result->*kind.count < count) {
    const AckEntry entry = EntryOf('a', static_cast<std::uint32_t>(result->*kind.count));
    const std::int32_t before = result->*kind.count;
    kind.add(result, &entry);
    ASSERT_EQ(result->*kind.count, before + 1);
  }
}

void ExpectEntries(const ResultSet* result, const Kind& kind, std::int32_t count) {
  ASSERT_EQ(result->*kind.count, count);
  for (std::int32_t i = 0; i < count; ++i) {
    const AckEntry expected = EntryOf('a', static_cast<std::uint32_t>(i));
    ASSERT_TRUE(SameBytes(HostBytes(expected), &(result->*kind.entries)[i], 36)) << i;
  }
}

TEST(NewResultset, IsZeroFilledAndLogsItsSize) {
  const QueryPtr query(new_query());
  const LogCapture log(kTrace);
  const FillAllocations fill;
  const ResultPtr result(new_resultset());
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(sizeof(ResultSet), 216u);
  EXPECT_BYTES(result.get(), sizeof(ResultSet), "216*00");
  EXPECT_EQ(log.lines(), (Lines{{kTrace, "new_resultset: allocated 216 bytes for result set"}}));
  result->query = query.get();
}

TEST(NewResultset, WithoutMemoryIsNullAndSilent) {
  const LogCapture log(kTrace);
  const AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(new_resultset(), nullptr);
  EXPECT_TRUE(fault.hit());
  EXPECT_EQ(log.lines(), Lines{});
}

TEST(ResultGetters, ReadTheirFields) {
  ResultSet result = {};
  AckEntry acks[1] = {};
  AckEntry naks[1] = {};
  result.row_count = 1;
  result.error_code = 104;
  result.ack_count = 3;
  result.nak_count = 4;
  result.acks = acks;
  result.naks = naks;
  EXPECT_EQ(voltaris_getRowCount(&result), 1);
  EXPECT_EQ(voltaris_getErrorCode(&result), 104);
  EXPECT_EQ(voltaris_getAckCount(&result), 3);
  EXPECT_EQ(voltaris_getNakCount(&result), 4);
  EXPECT_EQ(voltaris_getAcks(&result), acks);
  EXPECT_EQ(voltaris_getNaks(&result), naks);
}

TEST(AddAck, CopiesTheEntrySilently) {
  Collection c({8});
  AckEntry entry = EntryOf('x', 7);
  const LogCapture log(kTrace);
  add_ack(c.result(), &entry);
  entry.entity_index = 9;
  EXPECT_EQ(log.lines(), Lines{});
  EXPECT_EQ(voltaris_getAckCount(c.result()), 1);
  EXPECT_EQ(voltaris_getAcks(c.result())[0].entity_index, 7u);
  EXPECT_EQ(voltaris_getAcks(c.result())[0].device_id[31], 'x');
  EXPECT_EQ(voltaris_getNakCount(c.result()), 0);
}

TEST(AddNack, LogsTheWordAck) {
  // Deliberate: the path of the refusals says "ack" too.
  Collection c({8});
  const AckEntry entry = EntryOf('x', 7);
  const LogCapture log(kTrace);
  add_nack(c.result(), &entry);
  EXPECT_EQ(log.lines(), (Lines{{kDebug, "add_nack: adding ack for index 7"}}));
  EXPECT_EQ(voltaris_getNakCount(c.result()), 1);
  EXPECT_EQ(voltaris_getNaks(c.result())[0].entity_index, 7u);
  EXPECT_EQ(voltaris_getAckCount(c.result()), 0);
}

TEST(AddAck, The1029thEntryTriggersExactlyOneGrowth) {
  Collection c({8});
  AddUpTo(c.result(), kAcks, 1028);
  const std::string old_array = Printed(c.result()->acks);
  const LogCapture log(kTrace);
  const AllocationCount count;
  AddUpTo(c.result(), kAcks, 1029);
  EXPECT_EQ(count.allocations(), 1u);
  EXPECT_EQ(count.bytes(), 2056u * 36);
  EXPECT_EQ(log.lines(), (Lines{{kDebug, "add_ack: realloc acks[] " + old_array},
                                {kDebug, "add_ack: done realloc " + Printed(c.result()->acks)}}));
  AddUpTo(c.result(), kAcks, 2056);
  EXPECT_EQ(count.allocations(), 1u);
  AddUpTo(c.result(), kAcks, 2057);
  EXPECT_EQ(count.allocations(), 2u);
  EXPECT_EQ(count.bytes(), 2056u * 36 + 3084u * 36);
  ExpectEntries(c.result(), kAcks, 2057);
}

TEST(AddNack, The1029thEntryTriggersExactlyOneGrowth) {
  Collection c({8});
  {
    const LogCapture log(kSilent);
    AddUpTo(c.result(), kNaks, 1028);
  }
  const LogCapture log(kTrace);
  const AllocationCount count;
  AddUpTo(c.result(), kNaks, 1029);
  EXPECT_EQ(count.bytes(), 2056u * 36);
  EXPECT_EQ(log.lines(), (Lines{{kTrace, "add_nack: realloc naks[]"},
                                {kDebug, "add_nack: adding ack for index 1028"}}));
  ExpectEntries(c.result(), kNaks, 1029);
}

TEST(AddAck, AFailedGrowthLosesTheNewEntryOnly) {
  Collection c({8});
  AddUpTo(c.result(), kAcks, 1028);
  const AckEntry lost = EntryOf('z', 99);
  const LogCapture log(kTrace);
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    add_ack(c.result(), &lost);
    EXPECT_TRUE(fault.hit());
  }
  EXPECT_EQ(log.lines(), (Lines{{kDebug, "add_ack: realloc acks[] " + Printed(c.result()->acks)},
                                {kDebug, "add_ack: done realloc " + Printed(nullptr)},
                                {kFatal, "add_ack: out of memory"}}));
  ExpectEntries(c.result(), kAcks, 1028);
  EXPECT_EQ(voltaris_getErrorCode(c.result()), 0);
  // The next one grows the array after all.
  AddUpTo(c.result(), kAcks, 1029);
  ExpectEntries(c.result(), kAcks, 1029);
}

TEST(AddNack, AFailedGrowthLosesTheNewEntryOnly) {
  Collection c({8});
  {
    const LogCapture log(kSilent);
    AddUpTo(c.result(), kNaks, 1028);
  }
  const AckEntry lost = EntryOf('z', 99);
  const LogCapture log(kTrace);
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    add_nack(c.result(), &lost);
    EXPECT_TRUE(fault.hit());
  }
  EXPECT_EQ(log.lines(),
            (Lines{{kTrace, "add_nack: realloc naks[]"}, {kFatal, "add_nack: out of memory"}}));
  ExpectEntries(c.result(), kNaks, 1028);
}

TEST(AddAck, WithoutAnArrayDropsTheEntry) {
  const QueryPtr query(voltaris_createCollectQuery("office", 7));
  const ResultPtr result(new_resultset());
  result->query = query.get();
  const AckEntry entry = EntryOf('a', 1);
  const LogCapture log(kTrace);
  add_ack(result.get(), &entry);
  add_nack(result.get(), &entry);
  EXPECT_EQ(log.lines(),
            (Lines{{kFatal, "add_ack: out of memory"}, {kFatal, "add_nack: out of memory"}}));
  EXPECT_EQ(voltaris_getAckCount(result.get()), 0);
  EXPECT_EQ(voltaris_getNakCount(result.get()), 0);
}

device_node DeviceOf(aggregated_value* key) {
  device_node node = {};
  node.key = key;
  return node;
}

TEST(DhIdCompare, OrdersByUnsignedBytesOverAll32) {
  aggregated_value low = {};
  aggregated_value high = {};
  low.device.id.bytes[31] = 0x7F;
  high.device.id.bytes[31] = 0x80;
  // What follows the identity does not count.
  low.device.data_len = 9;
  const device_node node = DeviceOf(&low);
  const device_node high_node = DeviceOf(&high);
  aggregated_value same = {};
  same.device.id.bytes[31] = 0x7F;
  EXPECT_EQ(dh_id_compare(&node, &high), 0u);
  EXPECT_EQ(dh_id_compare(&node, &same), 1u);
  EXPECT_EQ(dh_id_compare(&high_node, &low), 2u);
}

TEST(EntEntidxCompare, OrdersIndexesAsUnsignedNumbers) {
  entity_node node = {};
  const std::uint32_t low = 0x7FFFFFFF;
  const std::uint32_t high = 0x80000000;
  node.entity_index = low;
  EXPECT_EQ(ent_entidx_compare(&node, &high), 0u);
  EXPECT_EQ(ent_entidx_compare(&node, &low), 1u);
  node.entity_index = high;
  EXPECT_EQ(ent_entidx_compare(&node, &low), 2u);
}

// A queue of entity nodes in the order of their indexes.
class CheckQueue : public ::testing::Test {
 protected:
  ~CheckQueue() override {
    while (void* const node = dequeue(&queue_)) std::free(node);
  }

  // Find returns the node for an index; created_ tells whether it is new.
  entity_node* Find(std::uint32_t index, std::uint32_t size = sizeof(entity_node)) {
    created_ = 77;
    auto* const node = static_cast<entity_node*>(
        vtn_checkQueue(&queue_, &index, &ent_entidx_compare, size, &created_));
    if (node != nullptr && created_ == 1) {
      // All but the link is zero.
      EXPECT_EQ(node->entity_index, 0u);
      EXPECT_TRUE(SameBytes(Bytes(sizeof(queue), 0), &node->attributes, sizeof(queue)));
      node->entity_index = index;
    }
    return node;
  }

  std::vector<std::uint32_t> Order() const {
    std::vector<std::uint32_t> indexes;
    for (const queue_element* e = queue_.head; e != nullptr; e = e->next) {
      indexes.push_back(reinterpret_cast<const entity_node*>(e)->entity_index);
    }
    return indexes;
  }

  queue queue_ = {};
  std::int32_t created_ = 0;
};

TEST_F(CheckQueue, InsertsInOrderAndFindsAgain) {
  const FillAllocations fill;
  for (const std::uint32_t index : {5u, 9u, 1u, 7u, 0x80000000u, 0x7FFFFFFFu}) {
    ASSERT_NE(Find(index), nullptr);
    EXPECT_EQ(created_, 1);
  }
  EXPECT_EQ(Order(), (std::vector<std::uint32_t>{1, 5, 7, 9, 0x7FFFFFFF, 0x80000000}));
  EXPECT_EQ(queue_.depth, 6);
  EXPECT_EQ(validqueue(&queue_, 1), 1);
  for (const std::uint32_t index : Order()) {
    entity_node* const node = Find(index);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(created_, 0);
    EXPECT_EQ(node->entity_index, index);
  }
  EXPECT_EQ(queue_.depth, 6);
  // The tail is the right one: the next insertion at the end stays in order.
  ASSERT_NE(Find(0x90000000), nullptr);
  EXPECT_EQ(Order().back(), 0x90000000u);
}

TEST_F(CheckQueue, AllocatesANodeOfTheGivenSizeAndNoMore) {
  const AllocationCount count;
  ASSERT_NE(Find(5), nullptr);
  EXPECT_EQ(count.allocations(), 1u);
  EXPECT_EQ(count.bytes(), sizeof(entity_node));
}

TEST_F(CheckQueue, WithSizeZeroOnlyFinds) {
  EXPECT_EQ(Find(5, 0), nullptr);
  EXPECT_EQ(created_, 0);
  ASSERT_NE(Find(5), nullptr);
  EXPECT_NE(Find(5, 0), nullptr);
  EXPECT_EQ(created_, 0);
  for (const std::uint32_t missing : {1u, 9u}) {
    EXPECT_EQ(Find(missing, 0), nullptr);
    EXPECT_EQ(created_, 0);
  }
  EXPECT_EQ(queue_.depth, 1);
}

TEST_F(CheckQueue, WithoutMemoryIsNullAndCreatesNothing) {
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(Find(5), nullptr);
    EXPECT_EQ(created_, 0);
  }
  ASSERT_NE(Find(5), nullptr);
  for (const std::uint32_t index : {1u, 9u}) {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(Find(index), nullptr);
    EXPECT_EQ(created_, 0);
  }
  EXPECT_EQ(Order(), (std::vector<std::uint32_t>{5}));
}

TEST(GetTlvIndexFromQuery, IsTheFirstColumnOfThatAttribute) {
  const QueryPtr query(voltaris_createCollectQuery("office", 7));
  EXPECT_EQ(vtn_get_tlv_index_from_query(query.get(), 8), -1);
  for (const std::int32_t attribute : {4, 8, 4, 2}) {
    ASSERT_EQ(voltaris_addGetAttribute(query.get(), attribute), 0);
  }
  EXPECT_EQ(vtn_get_tlv_index_from_query(query.get(), 4), 0);
  EXPECT_EQ(vtn_get_tlv_index_from_query(query.get(), 8), 1);
  EXPECT_EQ(vtn_get_tlv_index_from_query(query.get(), 7), 2);
  EXPECT_EQ(vtn_get_tlv_index_from_query(query.get(), 2), 4);
  EXPECT_EQ(vtn_get_tlv_index_from_query(query.get(), 9), -1);
  EXPECT_EQ(vtn_get_tlv_index_from_query(query.get(), -1), -1);
}

TEST(ReleaseResult, LogsWhatItFreesLast) {
  const QueryPtr query(voltaris_createCollectQuery("office", 7));
  ResultPtr result = EmptyResult(query.get());
  const Lines expected = {{kTrace, "voltaris_releaseResult: freeing acks " + Printed(result->acks)},
                          {kTrace, "voltaris_releaseResult: freeing naks " + Printed(result->naks)},
                          {kTrace, "voltaris_releaseResult: free " + Printed(result.get())}};
  const LogCapture log(kTrace);
  result.reset();
  EXPECT_EQ(log.lines(), expected);
}

TEST(ReleaseResult, ReleasesRepliesBeforeTheArrays) {
  auto c = std::make_unique<Collection>(std::initializer_list<std::int32_t>{8});
  c->Reply({Aggregate(13, "lamp", {Entry(1, {0, 1}), Entry(2, {0, 2})}),
            Aggregate(13, "fan", {Entry(1, {0, 3})})});
  c->Reply({Aggregate(13, "lamp", {Entry(2, {0, 4})})});
  EXPECT_EQ(c->result()->events.depth, 2);
  const LogCapture log(kTrace);
  c.reset();
  const Lines lines = log.lines();
  std::vector<std::size_t> released;
  std::size_t arrays = lines.size();
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].text.find("[VLTRS]:released event") != std::string::npos) released.push_back(i);
    if (lines[i].text.starts_with("voltaris_releaseResult: freeing acks")) arrays = i;
  }
  // Two replies here; the query releases its own message after the result.
  ASSERT_EQ(released.size(), 3u);
  EXPECT_LT(released[1], arrays);
  EXPECT_GT(released[2], arrays);
}

TEST(ReleaseResult, EmptiesTheQuerysListAndKeepsItsCount) {
  const QueryPtr query(voltaris_createCollectQuery("office", 7));
  ASSERT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
  ASSERT_EQ(voltaris_addGetAttribute(query.get(), 4), 0);
  EmptyResult(query.get()).reset();
  EXPECT_TRUE(Columns(query.get()).empty());
  EXPECT_EQ(query->attributes.depth, 0);
  EXPECT_EQ(query->attribute_count, 3u);
  // The list is in order and takes new columns.
  ASSERT_EQ(voltaris_addGetAttribute(query.get(), 2), 0);
  EXPECT_EQ(Columns(query.get()), (std::vector<std::int32_t>{2}));
}

TEST(ReleaseResult, CopesWithArraysThatWereNeverMade) {
  const QueryPtr query(voltaris_createCollectQuery("office", 7));
  const FillAllocations fill;
  ResultPtr result(new_resultset());
  result->query = query.get();
  const LogCapture log(kTrace);
  result.reset();
  EXPECT_EQ(log.lines().size(), 3u);
}

}  // namespace
