// Folding replies: acknowledgements into the arrays, aggregates into rows.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/guard.h"

namespace {

using namespace vt::testing;

LogLine GotAck(const std::string& address, const std::string& device, int count) {
  return {kDebug, "add_acks: got AGGREGATE ACK type from " + address + ", device: " + device +
                      ", count: " + std::to_string(count)};
}

std::vector<std::uint32_t> Entities(const AckEntry* entries, std::int32_t count) {
  std::vector<std::uint32_t> result;
  for (std::int32_t i = 0; i < count; ++i) result.push_back(entries[i].entity_index);
  return result;
}

std::vector<std::uint32_t> Acks(const ResultSet* result) {
  return Entities(result->acks, result->ack_count);
}
std::vector<std::uint32_t> Naks(const ResultSet* result) {
  return Entities(result->naks, result->nak_count);
}

// The attribute numbers of a row, in order of arrival.
std::vector<std::int32_t> Types(const ResultRow* row) {
  std::vector<std::int32_t> types;
  for (const queue_element* e = row->attributes->head; e != nullptr; e = e->next) {
    types.push_back(reinterpret_cast<const attribute_node*>(e)->type);
  }
  return types;
}

TEST(AddAcks, WillAnswerCountsTheElementAndEveryEntity) {
  Collection c({8});
  const EventPtr event = Decoded(ReplyWith(
      {Aggregate(42, "lamp", {Entry(5), Entry(0)}), Aggregate(42, "fan", {Entry(0x01020304)})},
      -1));
  const LogCapture log(kTrace);
  add_acks(event.get(), c.result());
  EXPECT_EQ(log.lines(),
            (Lines{GotAck("192.168.1.7", "lamp", 2), GotAck("192.168.1.7", "fan", 1)}));
  // Entity 0 counts here, unlike in rows.
  EXPECT_EQ(Acks(c.result()), (std::vector<std::uint32_t>{5, 0, 0x01020304}));
  EXPECT_TRUE(SameBytes(Identity32("lamp"), c.result()->acks[0].device_id, 32));
  EXPECT_TRUE(SameBytes(Identity32("fan"), c.result()->acks[2].device_id, 32));
  EXPECT_TRUE(Naks(c.result()).empty());
  EXPECT_EQ(c.result()->answers_pending, 2);
  EXPECT_EQ(c.result()->answers_received, 0);
}

TEST(AddAcks, IsSilentAboveDebug) {
  Collection c({8});
  const EventPtr event = Decoded(ReplyWith({Aggregate(42, "lamp", {Entry(5)})}, -1));
  const LogCapture log(kInfo);
  add_acks(event.get(), c.result());
  EXPECT_EQ(log.lines(), Lines{});
}

TEST(AddAcks, WontAnswerLeavesThePendingCountAlone) {
  Collection c({8});
  const EventPtr event = Decoded(ReplyWith({Aggregate(42, "lamp", {Entry(5), Entry(0)})}, -2));
  const LogCapture log(kTrace);
  add_acks(event.get(), c.result());
  EXPECT_EQ(log.lines(), (Lines{GotAck("192.168.1.7", "lamp", 2),
                                {kDebug, "add_nack: adding ack for index 5"},
                                {kDebug, "add_nack: adding ack for index 0"}}));
  EXPECT_EQ(Naks(c.result()), (std::vector<std::uint32_t>{5, 0}));
  EXPECT_TRUE(Acks(c.result()).empty());
  EXPECT_EQ(c.result()->answers_pending, 0);
}

TEST(AddAcks, OfOtherShipmentsAddsNothing) {
  for (const std::int8_t shipment :
       {std::int8_t{-4}, std::int8_t{-3}, std::int8_t{0}, std::int8_t{1}}) {
    Collection c({8});
    const EventPtr event = Decoded(ReplyWith({Aggregate(42, "lamp", {Entry(5)})}, shipment));
    const LogCapture log(kTrace);
    add_acks(event.get(), c.result());
    EXPECT_EQ(log.lines(), (Lines{GotAck("192.168.1.7", "lamp", 1)}));
    EXPECT_TRUE(Acks(c.result()).empty());
    EXPECT_TRUE(Naks(c.result()).empty());
    EXPECT_EQ(c.result()->answers_pending, 0);
  }
}

TEST(AddAcks, WithoutEntitiesIsStillPending) {
  Collection c({8});
  const EventPtr event = Decoded(ReplyWith({Aggregate(42, "lamp", {})}, -1));
  add_acks(event.get(), c.result());
  EXPECT_EQ(c.result()->answers_pending, 1);
  EXPECT_TRUE(Acks(c.result()).empty());
}

TEST(AddAcks, OfAnElementWithoutItsArrayIsPendingAlone) {
  Collection c({8});
  const EventPtr event = Decoded(ReplyWith({Aggregate(42, "lamp", {Entry(1), Entry(2)})}, -1));
  // As an application may make one; the array lies in the block of its element.
  static_cast<aggregated_value*>(event->tlvs[0]->value)->entries = nullptr;
  add_acks(event.get(), c.result());
  EXPECT_EQ(c.result()->answers_pending, 1);
  EXPECT_TRUE(Acks(c.result()).empty());
}

TEST(AddAcks, GoesPastAnElementWithoutAValue) {
  Collection c({8});
  const EventPtr event =
      Decoded(ReplyWith({Aggregate(42, "lamp", {Entry(1)}), Element(0x8000002A, 0, {}),
                         Aggregate(42, "fan", {Entry(2)})},
                        -1));
  add_acks(event.get(), c.result());
  EXPECT_EQ(Acks(c.result()), (std::vector<std::uint32_t>{1, 2}));
  EXPECT_EQ(c.result()->answers_pending, 2);
}

// DropEntry empties the first slot of the aggregate that is the first element of the event.
void DropEntry(const EventPtr& event) {
  // A decoded entry lies in the block of its element, and is not released by itself.
  static_cast<aggregated_value*>(event->tlvs[0]->value)->entries[0] = nullptr;
}

TEST(AddAcks, GoesPastAnEmptySlot) {
  Collection c({8});
  const EventPtr event = Decoded(ReplyWith({Aggregate(42, "lamp", {Entry(5), Entry(6)})}, -1));
  DropEntry(event);
  add_acks(event.get(), c.result());
  EXPECT_EQ(Acks(c.result()), std::vector<std::uint32_t>{6});
}

TEST(AddAcks, LooksAtAttributesAmongOtherElementsOnly) {
  Bytes qualifier = Aggregate(42, "lamp", {Entry(1)});
  qualifier[11] = 1;
  Collection c({8});
  const EventPtr event = Decoded(
      ReplyWith({Element(8, 0, Text("lab")), qualifier, Element(42, 0, {}),
                 Aggregate(13, "lamp", {Entry(3, {0, 1})}), Aggregate(42, "lamp", {Entry(2)})},
                -1));
  add_acks(event.get(), c.result());
  EXPECT_EQ(Acks(c.result()), (std::vector<std::uint32_t>{2}));
}

TEST(AddAcks, PrintsAtMost32BytesOfTheIdentityAndWhatAddressThereIs) {
  const struct {
    std::string_view device;
    Bytes address;
    std::string printed_address, printed_device;
  } kCases[] = {
      {"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA", DeviceAddress(), "192.168.1.7", std::string(32, 'A')},
      {"%n%s", {}, "0.0.0.0", "%n%s"},
      {"lamp", Hex("02001d10"), "0.0.0.0", "lamp"},
      {"lamp", Hex("02001d10 c0a801"), "0.0.0.0", "lamp"},
      {"lamp", Hex("02001d10 c0a80107"), "192.168.1.7", "lamp"},
      {std::string_view("ab\0cd", 5), DeviceAddress(), "192.168.1.7", "ab"}};
  for (const auto& row : kCases) {
    Collection c({8});
    const EventPtr event =
        Decoded(ReplyWith({Aggregate(42, row.device, {Entry(1)}, row.address)}, -1));
    const LogCapture log(kDebug);
    add_acks(event.get(), c.result());
    EXPECT_EQ(log.lines(), (Lines{GotAck(row.printed_address, row.printed_device, 1)}));
  }
}

TEST(AddResult, MakesARowForEveryDeviceAndEntityInOrder) {
  Collection c({8});
  c.Reply({Aggregate(13, "fan", {Entry(0x80000000, {0, 1}), Entry(2, {0, 2}), Entry(1, {0, 3})}),
           Aggregate(13, "desk", {Entry(9, {0, 4})})});
  c.Reply({Aggregate(13, "lamp", {Entry(0x7FFFFFFF, {0, 5})}),
           Aggregate(13, "fan", {Entry(7, {0, 6})})});
  EXPECT_EQ(voltaris_getRowCount(c.result()), 6);
  EXPECT_EQ(RowNames(c.result()), (std::vector<std::string>{"desk/9", "fan/1", "fan/2", "fan/7",
                                                            "fan/2147483648", "lamp/2147483647"}));
}

TEST(AddResult, OfTwoRepliesForOneEntityMakesOneRow) {
  Collection c({8, 4});
  c.Reply({Aggregate(13, "lamp", {Entry(5, {0x12, 0x34})})});
  c.Reply({Aggregate(9, "lamp", {Entry(5, Counted(Text("hall")))})});
  EXPECT_EQ(voltaris_getRowCount(c.result()), 1);
  EXPECT_EQ(c.result()->rows.depth, 1);
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Types(row), (std::vector<std::int32_t>{8, 4}));
  EXPECT_EQ(Read(row, 8), HostBytes(std::uint16_t{0x1234}));
  EXPECT_EQ(Read(row, 4), Terminated("hall"));
}

TEST(AddResult, ComparesIdentitiesOverAll32Bytes) {
  Bytes first = Aggregate(13, "lamp", {Entry(1, {0, 1})});
  Bytes second = first;
  second[12 + 31] = 1;
  Collection c({8});
  c.Reply({second, first});
  EXPECT_EQ(c.result()->rows.depth, 2);
  const ResultRow* row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->device->device.id.bytes[31], 0);
}

TEST(AddResult, GivesNoRowToEntity0) {
  Collection c({8});
  c.Reply({Aggregate(13, "lamp", {Entry(0, {0, 1})}),
           Aggregate(43, "fan", {Combined{.data = {0, 7}}.At(0)})});
  EXPECT_EQ(voltaris_getRowCount(c.result()), 0);
  EXPECT_EQ(voltaris_getNextRow(c.result()), nullptr);
  c.Reply({Aggregate(13, "lamp", {Entry(0, {0, 1}), Entry(3, {0, 2}), Entry(0, {0, 3})})});
  EXPECT_EQ(RowNames(c.result()), (std::vector<std::string>{"lamp/3"}));
}

TEST(AddResult, DropsAttributesThatWereNotAskedFor) {
  Collection c({4});
  c.Reply({Aggregate(13, "lamp", {Entry(5, {0, 9})}),  // usage: not asked for
           Aggregate(15, "lamp", {Entry(5, {1})}),     // has no number at all
           Aggregate(9, "lamp", {Entry(5, Counted(Text("x")))})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Types(row), (std::vector<std::int32_t>{4}));
  EXPECT_EQ(voltaris_getRowCount(c.result()), 1);
}

// One aggregated value of every attribute and what its row hands out.
struct ValueCase {
  std::int32_t attribute;
  std::uint32_t type;
  Bytes wire;
  Bytes value;
};

TEST(AddResult, HandsOutEveryAttributeWithItsLength) {
  const ValueCase kCases[] = {{2, 7, Counted(Text("role")), Terminated("role")},
                              {4, 9, Counted(Text("")), Terminated("")},
                              {5, 10, Counted(Hex("61006200")), Hex("61006200")},
                              {6, 11, Counted(Text("bad")), Terminated("bad")},
                              {7, 12, {0xFD}, {0xFD}},
                              {8, 13, {0x12, 0x34}, HostBytes(std::uint16_t{0x1234})},
                              {9, 14, {7}, {7}},
                              {10, 17, {9}, {9}},
                              {11, 22, U32(3), HostBytes(std::int32_t{3})},
                              {14, 29, {0, 5}, HostBytes(std::uint16_t{5})},
                              {15, 34, U32(0x80000001), HostBytes(std::uint32_t{0x80000001})},
                              {16, 36, Cat({U32(0xFFFFFFFF), Bytes(36, 0), U32(2)}),
                               HostBytes(delta_vector{{-1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2}})},
                              {17, 38, U32(0xFFFFFFFE), HostBytes(std::int32_t{-2})},
                              {18, 39, Cat({{0, 1}, Bytes(18, 0), {1, 2}}),
                               HostBytes(usage_vector{{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x102}})},
                              {19, 41, {30}, {30}},
                              {21, 48, Counted(Text("t")), Terminated("t")},
                              {22, 51, U32(0xFFFFFFFF), HostBytes(std::int32_t{-1})}};
  for (const ValueCase& row : kCases) {
    SCOPED_TRACE(row.attribute);
    Collection c({row.attribute});
    c.Reply({Aggregate(row.type, "lamp", {Entry(5, row.wire)})});
    ResultRow* const result = voltaris_getNextRow(c.result());
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(Types(result), (std::vector<std::int32_t>{row.attribute}));
    EXPECT_EQ(Read(result, row.attribute), row.value);
    EXPECT_EQ(Read(result, row.attribute), std::nullopt);
  }
}

TEST(AddResult, HandsOutRecordsWithTheirWireLength) {
  Collection c({13, 20});
  c.Reply(
      {Aggregate(
           28, "lamp",
           {Entry(5, Cat({Identity32("next"), Counted(Text("rack")), Counted({1, 2}), U32(1)}))}),
       Aggregate(46, "lamp", {Entry(5, Cat({Counted(Text("Mon")), {7, 8}, U32(1)}))})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  std::uint32_t len = 0;
  const auto* const ngbr =
      static_cast<const neighbor*>(voltaris_getAttributeFromRowByType(row, 13, &len));
  ASSERT_NE(ngbr, nullptr);
  EXPECT_EQ(len, 44u + 4 + 2);
  EXPECT_STREQ(ngbr->label, "rack");
  const auto* const recur =
      static_cast<const recurrence*>(voltaris_getAttributeFromRowByType(row, 20, &len));
  ASSERT_NE(recur, nullptr);
  EXPECT_EQ(len, 13u);
  EXPECT_STREQ(recur->text, "Mon");
}

TEST(AddResult, OfASetQueryYieldsRowsFromCombinedElementsOnly) {
  for (const auto create : {&voltaris_createSetQuery, &voltaris_createSumQuery}) {
    Collection c({8}, create);
    c.Reply(
        {Aggregate(13, "desk", {Entry(1, {0, 1})}),
         Aggregate(43, "lamp", {Combined{.data = {0, 7}}.At(2)}),
         // Bit 30 makes it a plain one.
         Element(0xC000002B, 0, DeviceHeader("fan", DeviceAddress()) + U32(1) + Entry(3, {0, 9}))});
    EXPECT_EQ(RowNames(c.result()), (std::vector<std::string>{"lamp/2"}));
    ResultRow* const row = voltaris_getNextRow(c.result());
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(Read(row, 8), HostBytes(std::uint16_t{7}));
  }
}

TEST(AddResult, OfOtherQueriesTakesPlainAndCombinedElements) {
  const auto further = [](const char* domain, std::uint32_t priority) {
    return voltaris_createQuery(1, 3, domain, priority);
  };
  for (Query* (*create)(const char*, std::uint32_t) :
       {static_cast<Query* (*)(const char*, std::uint32_t)>(voltaris_createCollectQuery),
        static_cast<Query* (*)(const char*, std::uint32_t)>(further)}) {
    Collection c({8}, create);
    c.Reply({Aggregate(13, "desk", {Entry(1, {0, 1})}),
             Aggregate(43, "lamp", {Combined{.data = {0, 7}}.At(2)})});
    EXPECT_EQ(RowNames(c.result()), (std::vector<std::string>{"desk/1", "lamp/2"}));
  }
}

TEST(AddResult, NeverTakesAnElementWithBit30ForACombinedOne) {
  // Its entries are plain: 2, 22 and 44 bytes. Such a type has no attribute number.
  Collection c({2, 4, 5, 8, 16, 17, 18});
  const std::size_t kSizes[] = {2, 22, 44};
  for (std::uint32_t i = 0; i < 3; ++i) {
    c.Reply({Element(0xC000002B + i, 0,
                     DeviceHeader("lamp", DeviceAddress()) + U32(2) +
                         Entry(1, Bytes(kSizes[i], 0x11)) + Entry(2, Bytes(kSizes[i], 0x22)))});
  }
  EXPECT_EQ(voltaris_getRowCount(c.result()), 2);
  while (const ResultRow* const row = voltaris_getNextRow(c.result())) {
    EXPECT_EQ(row->attributes->depth, 0);
  }
}

TEST(AddResult, TheLastDomainWins) {
  Collection c({3, 8});
  EXPECT_EQ(c.result()->domain, nullptr);
  c.Reply({Element(8, 0, Text("first")), Aggregate(13, "lamp", {Entry(1, {0, 1})}),
           Element(8, 1, Text("second"))});
  EXPECT_STREQ(c.result()->domain, "second");
  c.Reply({Element(8, 0, Text("third"))});
  EXPECT_STREQ(c.result()->domain, "third");
  c.Reply({Aggregate(13, "lamp", {Entry(2, {0, 1})})});
  EXPECT_STREQ(c.result()->domain, "third");
  // An element of 12 bytes has no value; it is the last one all the same.
  c.Reply({Element(8, 0, {})});
  EXPECT_EQ(c.result()->domain, nullptr);
}

TEST(AddResult, GoesPastEmptySlots) {
  Collection c({8});
  const EventPtr event = Decoded(ReplyWith(
      {Aggregate(13, "lamp", {Entry(5, {0, 1}), Entry(6, {0, 2})}),
       Aggregate(13, "fan", {Entry(7, {0, 3})}), Aggregate(13, "door", {Entry(8, {0, 4})})}));
  DropEntry(event);
  vt_free_tlv_ptr(std::exchange(event->tlvs[1], nullptr));
  vtn_addResult(event.get(), c.result());
  EXPECT_EQ(RowNames(c.result()), (std::vector<std::string>{"door/8", "lamp/6"}));
}

TEST(AddResult, WithoutAQueryMakesRowsWithoutValues) {
  Collection c({8, 4});
  c.result()->query = nullptr;
  const EventPtr event =
      Decoded(ReplyWith({Aggregate(13, "lamp", {Entry(5, {0, 1})}),
                         Aggregate(43, "fan", {Combined{.name = "f", .data = {0, 1}}.At(6)})}));
  vtn_addResult(event.get(), c.result());
  while (const ResultRow* const row = voltaris_getNextRow(c.result())) {
    EXPECT_EQ(row->attributes->depth, 0);
  }
  EXPECT_EQ(RowNames(c.result()), (std::vector<std::string>{"fan/6", "lamp/5"}));
  EXPECT_EQ(vtn_get_tlv_index_from_query(nullptr, 8), -1);
}

TEST(AddResult, IgnoresAllOtherPlainElements) {
  Collection c({8, 4});
  c.Reply({Element(13, 0, {0, 1}), Element(9, 0, Text("lamp")), Element(41, 0, {9}),
           Element(60, 0, {1, 2, 3})});
  EXPECT_EQ(voltaris_getRowCount(c.result()), 0);
  EXPECT_EQ(c.result()->answers_received, 1);
}

TEST(AddResult, StopsWithErrorCode12WithoutMemory) {
  const EventPtr event =
      Decoded(ReplyWith({Aggregate(13, "lamp", {Entry(5, {0, 1}), Entry(6, {0, 2})}),
                         Aggregate(43, "fan", {Combined{.name = "n", .data = {0, 3}}.At(7)})}));
  const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
    std::unique_ptr<Collection> c;
    {
      const AllocationFault::Pause pause;
      c = std::make_unique<Collection>(std::initializer_list<std::int32_t>{8, 4});
    }
    vtn_addResult(event.get(), c->result());
    fault.Disarm();
    EXPECT_EQ(voltaris_getErrorCode(c->result()), fault.hit() ? 12 : 0);
    EXPECT_LE(voltaris_getRowCount(c->result()), 3);
    // What was folded before is in order.
    const auto names = RowNames(c->result());
    EXPECT_EQ(names.size(), static_cast<std::size_t>(voltaris_getRowCount(c->result())));
  });
  // The store of the rows, its first chunk of nodes, and one for the index of the devices.
  EXPECT_EQ(failures, 3u);
}

TEST(AddResult, WithoutMemoryForANodeEndsTheFoldOfTheWholeReply) {
  // First the device of the first element, then its entity; the second element would succeed.
  for (const std::size_t allocation : {0u, 1u}) {
    Collection c({8});
    const EventPtr event = Decoded(ReplyWith(
        {Aggregate(13, "lamp", {Entry(5, {0, 1})}), Aggregate(13, "fan", {Entry(6, {0, 2})})}));
    AllocationFault fault = AllocationFault::Nth(allocation);
    vtn_addResult(event.get(), c.result());
    fault.Disarm();
    EXPECT_EQ(voltaris_getErrorCode(c.result()), 12);
    EXPECT_EQ(voltaris_getRowCount(c.result()), 0);
    EXPECT_EQ(voltaris_getNextRow(c.result()), nullptr);
  }
}

TEST(AddTlvToResultRow, AppendsANodeThatPointsAtTheValue) {
  Collection c({8});
  entity_node entity = {};
  std::uint16_t usage = 7;
  std::uint8_t level = 1;
  vtn_addTlvToResultRow(&entity, 8, 2, &usage, c.result());
  vtn_addTlvToResultRow(&entity, 9, 1, &level, c.result());
  EXPECT_EQ(entity.attributes.depth, 2);
  auto* const first = static_cast<attribute_node*>(dequeue(&entity.attributes));
  auto* const second = static_cast<attribute_node*>(dequeue(&entity.attributes));
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(first->type, 8);
  EXPECT_EQ(first->taken, 0u);
  EXPECT_EQ(first->length, 2u);
  EXPECT_EQ(first->value, &usage);
  EXPECT_EQ(second->type, 9);
  EXPECT_EQ(second->value, &level);
  std::free(first);
  std::free(second);
}

// Three values to a row of the result, which holds one of them beside it, and goes with the result.
TEST(AddTlvToResultRow, AppendsToARowOfTheResult) {
  Collection c({8});
  std::vector<Bytes> entries;
  for (std::uint32_t entity = 1; entity <= 200; ++entity) entries.push_back(Entry(entity, {0, 7}));
  c.Reply({Aggregate(13, "lamp", std::move(entries))});
  auto* const device = reinterpret_cast<device_node*>(c.result()->rows.head);
  ASSERT_NE(device, nullptr);
  auto* const first = reinterpret_cast<entity_node*>(device->entities.head);
  std::uint8_t level = 1;
  for (entity_node* row = first; row != nullptr; row = row->next) {
    vtn_addTlvToResultRow(row, 9, 1, &level, c.result());
    vtn_addTlvToResultRow(row, 9, 1, &level, c.result());
  }
  ResultRow* row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Read(row, 8), (Bytes{7, 0}));
  EXPECT_EQ(Read(row, 9), Bytes{1});
  EXPECT_EQ(Read(row, 9), Bytes{1});
  EXPECT_EQ(Read(row, 9), std::nullopt);
}

TEST(AddTlvToResultRow, AppendsToARowOfTheCallersBesideThoseOfAResult) {
  Collection c({8});
  c.Reply({Aggregate(13, "lamp", {Entry(1, {0, 7})})});
  entity_node entity = {};
  std::uint16_t usage = 7;
  vtn_addTlvToResultRow(&entity, 8, 2, &usage, c.result());
  auto* const node = static_cast<attribute_node*>(dequeue(&entity.attributes));
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->value, &usage);
  std::free(node);
}

TEST(AddTlvToResultRow, WithoutMemorySetsErrorCode12) {
  Collection c({8});
  entity_node entity = {};
  std::uint16_t usage = 7;
  const AllocationFault fault = AllocationFault::Nth(0);
  vtn_addTlvToResultRow(&entity, 8, 2, &usage, c.result());
  EXPECT_TRUE(fault.hit());
  EXPECT_EQ(voltaris_getErrorCode(c.result()), 12);
  EXPECT_EQ(entity.attributes.depth, 0);
  EXPECT_EQ(entity.attributes.head, nullptr);
}

TEST(AddComboTlvsToResultRow, TakesEachAttributeFromItsField) {
  // Distinct values everywhere, all attributes asked for; the columns give the order.
  const Combined lamp = {.word = 0x01010101,
                         .caliber = -2,
                         .name = "name",
                         .role = "the role",
                         .units = 0xFD,
                         .level = 5,
                         .importance = 77,
                         .keywords = "key,words",
                         .data = {}};
  const struct {
    std::uint32_t type;
    Bytes data;
    std::int32_t attribute;
    Bytes value;
  } kCases[] = {{43, {0x12, 0x34}, 8, HostBytes(std::uint16_t{0x1234})},
                {44, Cat({{0, 1}, Bytes(18, 0), {1, 2}}), 18,
                 HostBytes(usage_vector{{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x102}})},
                {45, Cat({U32(0xFFFFFFFF), Bytes(36, 0), U32(2)}), 16,
                 HostBytes(delta_vector{{-1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2}})}};
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.type);
    Collection c({5, 17, 10, 9, 2, 4, 8, 18, 16, 1, 3, 12, 11});
    Combined entry = lamp;
    entry.data = row.data;
    c.Reply({Aggregate(row.type, "lamp", {entry.At(5)})});
    ResultRow* const result = voltaris_getNextRow(c.result());
    ASSERT_NE(result, nullptr);
    // 8, 16 and 18 each have a units column behind them, so the units come three times.
    std::vector<std::int32_t> types = {5, 17, 10, 9, 2, 4};
    for (const std::int32_t usage : {8, 18, 16}) {
      if (usage == row.attribute) types.push_back(usage);
      types.push_back(7);
    }
    EXPECT_EQ(Types(result), types);
    EXPECT_EQ(Read(result, 17), HostBytes(std::int32_t{-2}));
    EXPECT_EQ(Read(result, 4), Terminated("name"));
    EXPECT_EQ(Read(result, 2), Terminated("the role"));
    EXPECT_EQ(Read(result, 5), Terminated("key,words"));
    EXPECT_EQ(Read(result, 7), (Bytes{0xFD}));
    EXPECT_EQ(Read(result, 9), (Bytes{5}));
    EXPECT_EQ(Read(result, 10), (Bytes{77}));
    EXPECT_EQ(Read(result, row.attribute), row.value);
    for (const std::int32_t other : {8, 16, 18}) {
      EXPECT_EQ(Read(result, other), std::nullopt) << other;
    }
  }
}

TEST(AddComboTlvsToResultRow, AddsNothingForANullTextOrBlock) {
  Collection c({2, 4, 5, 8, 9});
  entity_node entity = {};
  combo_entry entry = {};
  entry.usage.byte1 = 6;
  vtn_addComboTlvsToResultRow(&entity, &entry, c.result(), 43);
  // Units (behind usage) and level are bytes of the header itself.
  EXPECT_EQ(entity.attributes.depth, 2);
  auto* const units = static_cast<attribute_node*>(dequeue(&entity.attributes));
  auto* const level = static_cast<attribute_node*>(dequeue(&entity.attributes));
  ASSERT_NE(units, nullptr);
  ASSERT_NE(level, nullptr);
  EXPECT_EQ(units->type, 7);
  EXPECT_EQ(level->type, 9);
  EXPECT_EQ(level->value, &entry.usage.byte1);
  std::free(units);
  std::free(level);
}

TEST(AddComboTlvsToResultRow, TakesAnEmptyTextForOneByte) {
  Collection c({4});
  c.Reply({Aggregate(43, "lamp", {Combined{.data = {0, 1}}.At(5)})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Read(row, 4), Terminated(""));
}

TEST(AddComboTlvsToResultRow, AddsAValueForEveryColumnThatAsksForIt) {
  Collection c({9, 4, 9});
  c.Reply({Aggregate(43, "lamp", {Combined{.name = "n", .level = 3, .data = {0, 1}}.At(5)})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Types(row), (std::vector<std::int32_t>{9, 4, 9}));
}

}  // namespace
