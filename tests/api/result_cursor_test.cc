// Rows through a cursor: the same rows and values as ever, again and again, and nothing changed.
#include "vtapi/result_cursor.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/hex.h"

namespace {

using namespace vt::testing;

std::optional<Bytes> Value(const ResultCursor& cursor, std::int32_t attribute,
                           std::uint32_t ordinal = 0) {
  std::uint32_t len = 0xABCDEF01;
  const void* const value = voltaris_readValue(&cursor, attribute, ordinal, &len);
  if (value == nullptr) {
    EXPECT_EQ(len, 0xABCDEF01) << "attribute " << attribute;
    return std::nullopt;
  }
  const auto* bytes = static_cast<const std::uint8_t*>(value);
  return Bytes(bytes, bytes + len);
}

ResultCursor CursorOf(const ResultSet* result) {
  ResultCursor cursor;
  std::memset(&cursor, 0xA5, sizeof cursor);
  voltaris_startCursor(&cursor, result);
  return cursor;
}

std::vector<std::string> NamesOf(const ResultSet* result) {
  std::vector<std::string> names;
  ResultCursor cursor = CursorOf(result);
  while (voltaris_advanceCursor(&cursor) != 0) {
    const auto* id = reinterpret_cast<const char*>(cursor.identity.device_id);
    names.push_back(std::string(id, strnlen(id, 32)) + "/" +
                    std::to_string(cursor.identity.entity_index));
  }
  return names;
}

TEST(ResultCursor, OfAnEmptyResultIsAtTheEndAtOnce) {
  Collection c({9});
  ResultCursor cursor = CursorOf(c.result());
  EXPECT_EQ(cursor.at_end, 0u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(voltaris_advanceCursor(&cursor), 0);
  EXPECT_EQ(cursor.at_end, 1u);
  EXPECT_EQ(cursor.device, nullptr);
  EXPECT_EQ(cursor.row, nullptr);
}

TEST(ResultCursor, WalksTheRowsInOrderAndStaysAtTheEnd) {
  Collection c({9});
  c.Reply({Aggregate(14, "mast", {Entry(3, {5}), Entry(1, {5})}), Aggregate(14, "empty", {}),
           Aggregate(14, "lamp", {Entry(2, {5})})});
  EXPECT_EQ(NamesOf(c.result()), (std::vector<std::string>{"lamp/2", "mast/1", "mast/3"}));
  ResultCursor cursor = CursorOf(c.result());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(voltaris_advanceCursor(&cursor), 1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(voltaris_advanceCursor(&cursor), 0);
}

TEST(ResultCursor, LeavesTheClassicWalkAndItsValuesAlone) {
  Collection c({9});
  c.Reply({Aggregate(14, "lamp", {Entry(1, {5}), Entry(2, {6})})});
  ResultRow* row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  ResultCursor cursor = CursorOf(c.result());
  while (voltaris_advanceCursor(&cursor) != 0) EXPECT_TRUE(Value(cursor, 9).has_value());
  EXPECT_EQ(row->entity_index, 1u);
  EXPECT_EQ(Read(row, 9), Bytes{5});
  row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->entity_index, 2u);
  EXPECT_EQ(Read(row, 9), Bytes{6});
}

TEST(ResultCursor, ManyAtOnceDoNotDisturbEachOther) {
  Collection c({9});
  c.Reply({Aggregate(14, "lamp", {Entry(1, {1}), Entry(2, {2}), Entry(3, {3})})});
  ResultCursor outer = CursorOf(c.result());
  std::vector<std::pair<Bytes, Bytes>> pairs;
  while (voltaris_advanceCursor(&outer) != 0) {
    ResultCursor inner = CursorOf(c.result());
    while (voltaris_advanceCursor(&inner) != 0)
      pairs.emplace_back(*Value(outer, 9), *Value(inner, 9));
  }
  std::vector<std::pair<Bytes, Bytes>> expected;
  for (std::uint8_t a = 1; a <= 3; ++a) {
    for (std::uint8_t b = 1; b <= 3; ++b) expected.emplace_back(Bytes{a}, Bytes{b});
  }
  EXPECT_EQ(pairs, expected);
}

TEST(ResultCursor, ReadsAValueAgainAndAgainAlsoOnceItWasHandedOut) {
  Collection c({9});
  c.Reply({Aggregate(14, "lamp", {Entry(1, {5})})});
  EXPECT_EQ(Read(voltaris_getNextRow(c.result()), 9), Bytes{5});
  ResultCursor cursor = CursorOf(c.result());
  ASSERT_EQ(voltaris_advanceCursor(&cursor), 1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Value(cursor, 9), Bytes{5});
}

TEST(ResultCursor, TellsSeveralValuesOfAnAttributeApartByTheirOrdinal) {
  Collection c({9});
  c.Reply({Aggregate(14, "lamp", {Entry(1, {5}), Entry(1, {6})})});
  c.Reply({Aggregate(14, "lamp", {Entry(1, {7})})});
  ResultCursor cursor = CursorOf(c.result());
  ASSERT_EQ(voltaris_advanceCursor(&cursor), 1);
  EXPECT_EQ(voltaris_countValues(&cursor, 9), 3u);
  for (std::uint8_t i = 0; i < 3; ++i) {
    EXPECT_EQ(Value(cursor, 9, i), Bytes{static_cast<std::uint8_t>(5 + i)});
  }
  EXPECT_EQ(Value(cursor, 9, 3), std::nullopt);
  EXPECT_EQ(Value(cursor, 9, 0xFFFFFFFF), std::nullopt);
  EXPECT_EQ(voltaris_countValues(&cursor, 8), 0u);
  EXPECT_EQ(Value(cursor, 8), std::nullopt);
}

TEST(ResultCursor, CountsAValueWithoutBytesAndGivesNullForIt) {
  Collection c({5});
  c.Reply({Aggregate(10, "lamp", {Entry(1, Counted({})), Entry(1, Counted(Hex("616200")))})});
  ResultCursor cursor = CursorOf(c.result());
  ASSERT_EQ(voltaris_advanceCursor(&cursor), 1);
  EXPECT_EQ(voltaris_countValues(&cursor, 5), 2u);
  EXPECT_EQ(Value(cursor, 5, 0), std::nullopt);
  EXPECT_EQ(Value(cursor, 5, 1), Hex("616200"));
}

TEST(ResultCursor, GivesNullForWhatAnApplicationAddedWithoutBytes) {
  Collection c({9});
  c.Reply({Aggregate(14, "lamp", {Entry(1, {5})})});
  ResultCursor cursor = CursorOf(c.result());
  ASSERT_EQ(voltaris_advanceCursor(&cursor), 1);
  auto* const row = const_cast<entity_node*>(cursor.row);
  std::uint8_t level = 7;
  vtn_addTlvToResultRow(row, 9, 0, &level, c.result());
  vtn_addTlvToResultRow(row, 9, 1, nullptr, c.result());
  vtn_addTlvToResultRow(row, 9, 1, &level, c.result());
  EXPECT_EQ(voltaris_countValues(&cursor, 9), 4u);
  EXPECT_EQ(Value(cursor, 9, 1), std::nullopt);
  EXPECT_EQ(Value(cursor, 9, 2), std::nullopt);
  EXPECT_EQ(Value(cursor, 9, 3), Bytes{7});
}

TEST(ResultCursor, HasOneIdentityOneDomainAndOneSender) {
  Collection c({9});
  const Bytes address = Hex("0200 0f3c c0a80107 0000000000000000");
  c.Reply(
      {Element(8, 0, Text("office")),
       Element(0x8000000E, 0, DeviceHeader("lamp", address) + Hex("00000001") + Entry(7, {5}))});
  ResultCursor cursor = CursorOf(c.result());
  ASSERT_EQ(voltaris_advanceCursor(&cursor), 1);
  Bytes identity = Identity32("lamp");
  identity.insert(identity.end(), {7, 0, 0, 0});
  EXPECT_EQ(Value(cursor, 1), identity);
  EXPECT_EQ(Value(cursor, 3), Text("office") + Hex("00"));
  EXPECT_EQ(Value(cursor, 12), address);
  ASSERT_NE(cursor.sender, nullptr);
  for (const std::int32_t attribute : {1, 3, 12}) {
    EXPECT_EQ(voltaris_countValues(&cursor, attribute), 1u);
    EXPECT_EQ(Value(cursor, attribute, 1), std::nullopt);
  }
}

TEST(ResultCursor, HasNoDomainAndNoSenderWhereTheReplyNamesNone) {
  Collection c({9});
  c.Reply({Element(0x8000000E, 0, DeviceHeader("lamp") + Hex("00000001") + Entry(7, {5}))});
  ResultCursor cursor = CursorOf(c.result());
  ASSERT_EQ(voltaris_advanceCursor(&cursor), 1);
  EXPECT_EQ(cursor.sender, nullptr);
  for (const std::int32_t attribute : {3, 12}) {
    EXPECT_EQ(voltaris_countValues(&cursor, attribute), 0u);
    EXPECT_EQ(Value(cursor, attribute), std::nullopt);
  }
}

TEST(ResultCursor, HasNoValuesBeforeTheFirstAndBehindTheLastRow) {
  Collection c({9});
  c.Reply({Aggregate(14, "lamp", {Entry(1, {5})})});
  ResultCursor cursor = CursorOf(c.result());
  for (int i = 0; i < 2; ++i) {
    for (const std::int32_t attribute : {1, 3, 9, 12}) {
      EXPECT_EQ(voltaris_countValues(&cursor, attribute), 0u);
      EXPECT_EQ(Value(cursor, attribute), std::nullopt);
    }
    while (voltaris_advanceCursor(&cursor) != 0) {
    }
  }
}

}  // namespace
