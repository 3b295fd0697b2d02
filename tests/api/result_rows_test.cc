// Walking rows and reading their values.
#include <gtest/gtest.h>

#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"

namespace {

using namespace vt::testing;

TEST(GetNextRow, OfAnEmptyResultIsNullEveryTime) {
  Collection c({8});
  EXPECT_EQ(voltaris_getNextRow(c.result()), nullptr);
  EXPECT_EQ(voltaris_getNextRow(c.result()), nullptr);
}

TEST(GetNextRow, WalksDevicesAndEntitiesInAscendingOrder) {
  Collection c({8});
  c.Reply({Aggregate(13, "lamp", {Entry(2, {0, 1}), Entry(1, {0, 2})}),
           Aggregate(13, "desk", {Entry(300, {0, 3}), Entry(4, {0, 4})})});
  EXPECT_EQ(RowNames(c.result()),
            (std::vector<std::string>{"desk/4", "desk/300", "lamp/1", "lamp/2"}));
}

TEST(GetNextRow, BeginsAnewAfterTheEnd) {
  Collection c({8});
  c.Reply({Aggregate(13, "lamp", {Entry(1, {0, 1}), Entry(2, {0, 2})})});
  const std::vector<std::string> rows = {"lamp/1", "lamp/2"};
  EXPECT_EQ(RowNames(c.result()), rows);
  // Deliberate: the null that ends the walk leaves no cursor behind.
  EXPECT_EQ(c.result()->device_cursor, nullptr);
  EXPECT_EQ(c.result()->entity_cursor, nullptr);
  EXPECT_EQ(RowNames(c.result()), rows);
}

TEST(GetNextRow, PassesOverDevicesWithoutRows) {
  Collection c({8});
  c.Reply({Aggregate(13, "a", {Entry(0, {0, 1})}), Aggregate(13, "b", {Entry(1, {0, 2})}),
           Aggregate(13, "c", {}), Aggregate(13, "d", {Entry(0, {0, 1}), Entry(2, {0, 3})}),
           Aggregate(13, "e", {Entry(0, {0, 4})})});
  EXPECT_EQ(c.result()->rows.depth, 5);
  EXPECT_EQ(RowNames(c.result()), (std::vector<std::string>{"b/1", "d/2"}));
  EXPECT_EQ(RowNames(c.result()), (std::vector<std::string>{"b/1", "d/2"}));
}

TEST(GetNextRow, FillsTheOneRowOfTheProcess) {
  Collection first({8});
  first.Reply({Element(8, 0, Text("lab")), Aggregate(13, "lamp", {Entry(1, {0, 1})})});
  Collection second({8});
  second.Reply({Aggregate(13, "desk", {Entry(7, {0, 1})}, {})});
  ResultRow* const row = voltaris_getNextRow(first.result());
  ASSERT_NE(row, nullptr);
  EXPECT_TRUE(SameBytes(Identity32("lamp"), row->device, 32));
  EXPECT_EQ(row->entity_index, 1u);
  EXPECT_STREQ(row->domain, "lab");
  EXPECT_EQ(row->attributes->depth, 1);
  EXPECT_TRUE(SameBytes(DeviceAddress(), row->sender, 16));
  // Deliberate: a row of another result takes its place.
  EXPECT_EQ(voltaris_getNextRow(second.result()), row);
  EXPECT_EQ(row->entity_index, 7u);
  EXPECT_EQ(row->domain, nullptr);
  EXPECT_EQ(row->sender, nullptr);
}

TEST(GetNextRow, TakesABlockOfFewerThan16BytesForNoSender) {
  for (const std::size_t size : {0u, 4u, 15u, 16u, 20u}) {
    Collection c({12});
    Bytes block = DeviceAddress();
    block.resize(size, 0xEE);
    c.Reply({Aggregate(13, "lamp", {Entry(1, {0, 1})}, block)});
    ResultRow* const row = voltaris_getNextRow(c.result());
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->sender != nullptr, size >= 16) << size;
    EXPECT_EQ(Read(row, 12).has_value(), size >= 16) << size;
  }
}

TEST(GetAttribute, OfTheIdentityIsOneBufferOf36Bytes) {
  Collection c({8});
  c.Reply({Aggregate(13, "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA", {Entry(1, {0, 1})}),
           Aggregate(13, "b", {Entry(0x01020304, {0, 1})})});
  ResultRow* row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  const Bytes first = Bytes(32, 'A') + HostBytes(std::uint32_t{1});
  EXPECT_EQ(Read(row, 1), first);
  // As often as one likes.
  EXPECT_EQ(Read(row, 1), first);
  std::uint32_t len = 0;
  const void* const buffer = voltaris_getAttributeFromRowByType(row, 1, &len);
  row = voltaris_getNextRow(c.result());
  EXPECT_EQ(voltaris_getAttributeFromRowByType(row, 1, &len), buffer);
  EXPECT_EQ(len, 36u);
  EXPECT_TRUE(SameBytes(Identity32("b") + HostBytes(std::uint32_t{0x01020304}), buffer, 36));
}

TEST(GetAttribute, OfTheDomainIsItsTextAgainAndAgain) {
  Collection c({3});
  c.Reply({Element(8, 0, Text("lab")), Aggregate(13, "lamp", {Entry(1, {0, 1})})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Read(row, 3), Terminated("lab"));
  EXPECT_EQ(Read(row, 3), Terminated("lab"));
}

TEST(GetAttribute, OfAMissingOrEmptyDomainIsNull) {
  {
    Collection c({3});
    c.Reply({Aggregate(13, "lamp", {Entry(1, {0, 1})})});
    EXPECT_EQ(Read(voltaris_getNextRow(c.result()), 3), std::nullopt);
  }
  {
    Collection c({3});
    c.Reply(
        {Element(8, 0, Text("lab")), Aggregate(13, "lamp", {Entry(1, {0, 1})}), Element(8, 0, {})});
    EXPECT_EQ(Read(voltaris_getNextRow(c.result()), 3), std::nullopt);
  }
}

TEST(GetAttribute, OfTheSenderIsItsAddressAgainAndAgain) {
  Collection c({12});
  c.Reply({Aggregate(13, "lamp", {Entry(1, {0, 1})}, DeviceAddress() + Bytes{1, 2, 3})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Read(row, 12), DeviceAddress());
  EXPECT_EQ(Read(row, 12), DeviceAddress());
}

TEST(GetAttribute, HandsOutAValueOnceThenNull) {
  Collection c({8});
  c.Reply({Aggregate(13, "lamp", {Entry(1, {0x12, 0x34})})});
  ResultRow* row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Read(row, 8), HostBytes(std::uint16_t{0x1234}));
  EXPECT_EQ(Read(row, 8), std::nullopt);
  // Deliberate: a value stays taken when the walk comes round again.
  EXPECT_EQ(voltaris_getNextRow(c.result()), nullptr);
  row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Read(row, 8), std::nullopt);
}

TEST(GetAttribute, MarksAValueThatItHandedOutWithA1) {
  Collection c({8});
  c.Reply({Aggregate(13, "lamp", {Entry(1, {0, 1}), Entry(1, {0, 2})})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  const auto* const first = reinterpret_cast<const attribute_node*>(row->attributes->head);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(first->next, nullptr);
  EXPECT_EQ(first->taken, 0u);
  EXPECT_EQ(Read(row, 8), HostBytes(std::uint16_t{1}));
  EXPECT_EQ(first->taken, 1u);
  EXPECT_EQ(first->next->taken, 0u);
}

TEST(GetAttribute, HandsOutSuccessiveValuesOfOneType) {
  Collection c({8, 4});
  c.Reply({Aggregate(13, "lamp", {Entry(1, {0, 1}), Entry(1, {0, 2})}),
           Aggregate(9, "lamp", {Entry(1, Counted(Text("n")))})});
  c.Reply({Aggregate(13, "lamp", {Entry(1, {0, 3})})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Read(row, 8), HostBytes(std::uint16_t{1}));
  EXPECT_EQ(Read(row, 4), Terminated("n"));
  EXPECT_EQ(Read(row, 8), HostBytes(std::uint16_t{2}));
  EXPECT_EQ(Read(row, 8), HostBytes(std::uint16_t{3}));
  EXPECT_EQ(Read(row, 8), std::nullopt);
}

TEST(GetAttribute, OfAnOpaqueEntryWithoutBytesIsNullWithLength0AndTaken) {
  Collection c({5});
  c.Reply({Aggregate(10, "lamp", {Entry(1, Counted({})), Entry(1, Counted(Hex("616200")))})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->attributes->depth, 2);
  std::uint32_t len = 99;
  EXPECT_EQ(voltaris_getAttributeFromRowByType(row, 5, &len), nullptr);
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(Read(row, 5), Hex("616200"));
  EXPECT_EQ(Read(row, 5), std::nullopt);
}

TEST(GetAttribute, ThatTheRowHasNotIsNullAndLeavesTheLength) {
  Collection c({8});
  c.Reply({Aggregate(13, "lamp", {Entry(1, {0, 1})})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  for (const std::int32_t attribute : {0, 2, 7, 9, 22, 23, -1, INT32_MIN}) {
    EXPECT_EQ(Read(row, attribute), std::nullopt) << attribute;
  }
}

TEST(GetAttribute, PointsIntoTheReply) {
  Collection c({4});
  c.Reply({Aggregate(9, "lamp", {Entry(1, Counted(Text("hall")))})});
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  const auto* const entry = static_cast<const plain_entry*>(row->device->entries[0]);
  std::uint32_t len = 0;
  EXPECT_EQ(voltaris_getAttributeFromRowByType(row, 4, &len), entry->data);
  EXPECT_EQ(len, 5u);
}

}  // namespace
