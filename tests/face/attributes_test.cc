// Every attribute as a row gives it, read from hand-written replies; values that are absent or of
// another length than their type.
#include "vtapi/face/attributes.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "tests/face/face_support.h"

namespace {

using namespace vt::testing;

using voltaris::AnyAttribute;
using voltaris::collect_query;
using voltaris::OwnedRow;
using voltaris::Results;
using voltaris::Row;

// Told is what the row and its copy give for an attribute; the two must agree.
template <AnyAttribute A>
std::optional<typename A::value_type> Told(const Results& results, A attribute,
                                           std::size_t ordinal = 0) {
  return OnlyRow(results).get(attribute, ordinal);
}

// ExpectValue reads one attribute from a reply with these elements, from the row and from a copy.
template <AnyAttribute A>
void ExpectValue(A attribute, std::vector<Bytes> elements, const typename A::value_type& expected) {
  const Results results = ResultsOf(collect_query("office").get(attribute), std::move(elements));
  const auto told = Told(results, attribute);
  ASSERT_TRUE(told.has_value()) << voltaris::word_of(A::number);
  EXPECT_EQ(*told, expected) << voltaris::word_of(A::number);
  const OwnedRow copy = OnlyRow(results).copy();
  EXPECT_EQ(copy.get(attribute), told) << voltaris::word_of(A::number);
  EXPECT_EQ(copy.count(attribute), 1u);
  EXPECT_EQ(OnlyRow(results).all(attribute), std::vector<typename A::value_type>(1, expected));
  EXPECT_EQ(OnlyRow(results).get(attribute, 1), std::nullopt);
  EXPECT_EQ(copy.get(attribute, 1), std::nullopt);
}

TEST(FaceAttributes, Texts) {
  static_assert(std::is_same_v<decltype(voltaris::name)::value_type, std::string_view>);
  ExpectValue(voltaris::role, {Plain(7, Counted(Text("lamp")))}, "lamp");
  ExpectValue(voltaris::name, {Plain(9, Counted(Text("west")))}, "west");
  ExpectValue(voltaris::error_text, {Plain(11, Counted(Text("overload")))}, "overload");
  ExpectValue(voltaris::text_21, {Plain(48, Counted(Text("model")))}, "model");
  ExpectValue(voltaris::name, {Plain(9, Counted({}))}, "");
  ExpectValue(voltaris::name, {Plain(9, Counted(Hex("61 00 62")))}, "a");
  ExpectValue(voltaris::domain, {Element(8, 0, Text("office")), Plain(14, {1})}, "office");
}

TEST(FaceAttributes, Keywords) {
  using List = std::vector<std::string>;
  static_assert(std::is_same_v<decltype(voltaris::keywords)::value_type, List>);
  const auto expect = [](const Bytes& value, const List& items) {
    ExpectValue(voltaris::keywords, {Plain(10, Counted(value))}, items);
  };
  expect(Hex("6100 6200"), {"a", "b"});
  expect(Hex("6100 62"), {"a", "b"});
  expect(Hex("6162 00"), {"ab"});
  expect(Text("a,b"), {"a", "b"});
  expect(Terminated("a,b"), {"a", "b"});
  expect(Hex("6100 00 6200"), {"a", "", "b"});
  expect(Hex("00"), {});
}

TEST(FaceAttributes, Numbers) {
  ExpectValue(voltaris::units, {Plain(12, {0xFD})}, -3);
  ExpectValue(voltaris::level, {Plain(14, {10})}, 10);
  ExpectValue(voltaris::importance, {Plain(17, {200})}, 200);
  ExpectValue(voltaris::neighbor_count, {Plain(29, {0xFF, 0xFE})}, 65534);
  ExpectValue(voltaris::nanny_vector, {Plain(34, U32(0xFEDCBA98))}, 0xFEDCBA98u);
  ExpectValue(voltaris::query_timeout, {Plain(41, {180})}, 180);
}

TEST(FaceAttributes, Enumerations) {
  using voltaris::Caliber;
  using voltaris::Category;
  using voltaris::EntityType;
  ExpectValue(voltaris::caliber, {Plain(38, U32(0xFFFFFFFE))}, Caliber::kMax);
  ExpectValue(voltaris::category, {Plain(51, U32(0xFFFFFFFF))}, Category::kProducer);
  ExpectValue(voltaris::entity_type, {Plain(22, U32(4))}, EntityType::kAdminOff);
  ExpectValue(voltaris::entity_type, {Plain(22, U32(77))}, static_cast<EntityType>(77));
}

TEST(FaceAttributes, IdentityAndAddressAreOfTheRow) {
  const Results results = ResultsOf(collect_query("office").get(voltaris::level), {Plain(14, {1})});
  const Row row = OnlyRow(results);
  const auto id = row.get(voltaris::identity);
  ASSERT_TRUE(id.has_value());
  EXPECT_EQ(id->index, 1u);
  EXPECT_EQ(id->device, row.device());
  EXPECT_EQ(*id, row.id());
  EXPECT_EQ(row.entity(), 1u);
  EXPECT_EQ(DeviceName(row), "lamp");
  EXPECT_EQ(row.copy().id(), *id);
  const auto address = row.get(voltaris::address);
  ASSERT_TRUE(address.has_value());
  EXPECT_EQ(address->text(), "192.168.1.7");
  EXPECT_EQ(address->port, 7440);
  EXPECT_EQ(address->endpoint(), "192.168.1.7:7440");
  EXPECT_EQ(row.copy().get(voltaris::address), address);
  EXPECT_EQ(row.count(voltaris::address), 1u);
  EXPECT_EQ(row.get(voltaris::address, 1), std::nullopt);
}

TEST(FaceAttributes, AnAddressThatIsNoneIsAbsent) {
  for (const Bytes& address : {Bytes(), Bytes(15, 2)}) {
    const Results results = ResultsOf(collect_query("office").get(voltaris::level),
                                      {Aggregate(14, "lamp", {Entry(1, {1})}, address)});
    EXPECT_EQ(Told(results, voltaris::address), std::nullopt);
    EXPECT_EQ(OnlyRow(results).count(voltaris::address), 0u);
    EXPECT_EQ(OnlyRow(results).copy().get(voltaris::address), std::nullopt);
  }
}

TEST(FaceAttributes, UsageInUnitsAndInWatts) {
  ExpectValue(voltaris::usage, {Plain(13, {0x01, 0xF4}), Plain(12, {0xFF})},
              voltaris::Usage{500, -1});
  const Results results = ResultsOf(collect_query("office").get(voltaris::usage),
                                    {Plain(13, {0x01, 0xF4}), Plain(12, {0xFF})});
  EXPECT_EQ(Told(results, voltaris::usage)->watts(), 50.0);
  EXPECT_EQ(Told(results, voltaris::units), -1);
}

TEST(FaceAttributes, UsageWithoutUnitsHasNoWatts) {
  ExpectValue(voltaris::usage, {Plain(13, {0x01, 0xF4})}, voltaris::Usage{500, std::nullopt});
  EXPECT_EQ((voltaris::Usage{500, std::nullopt}.watts()), std::nullopt);
}

TEST(FaceAttributes, Vectors) {
  const Bytes usages = Hex("0001 0002 0003 0004 0005 0006 0007 0008 0009 000a ffff");
  const Bytes changes = Cat({U32(0xFFFFFFFF), Bytes(36, 0), U32(7)});
  const voltaris::UsageVector usage_vector = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 65535}, 3};
  const voltaris::DeltaVector delta_vector = {{-1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}, -3};
  ExpectValue(voltaris::usage_vector, {Plain(39, usages), Plain(12, {3})}, usage_vector);
  ExpectValue(voltaris::delta_vector, {Plain(36, changes), Plain(12, {0xFD})}, delta_vector);
  EXPECT_EQ(usage_vector.watts(10), 65535000.0);
  EXPECT_EQ(delta_vector.watts(0), -0.001);
  EXPECT_EQ(delta_vector.watts(11), std::nullopt);
  EXPECT_EQ((voltaris::DeltaVector{{1}, std::nullopt}.watts(0)), std::nullopt);
}

Bytes NeighborWire(std::string_view label, const Bytes& data) {
  return Cat({Identity32("next"), Counted(Text(label)), Counted(data), U32(0x80000001)});
}

TEST(FaceAttributes, Neighbor) {
  const Results results =
      ResultsOf(collect_query("office").get(voltaris::neighbor),
                {Plain(28, NeighborWire("port 3", {9, 8, 7})), Plain(28, NeighborWire("", {}))});
  OwnedRow copy = OnlyRow(results).copy();
  const auto check = [](const auto& row) {
    const auto told = row.get(voltaris::neighbor);
    ASSERT_TRUE(told.has_value());
    EXPECT_EQ(Bytes(told->device.bytes.begin(), told->device.bytes.end()), Identity32("next"));
    EXPECT_EQ(told->label, "port 3");
    EXPECT_EQ(Bytes(told->data.begin(), told->data.end()), (Bytes{9, 8, 7}));
    EXPECT_EQ(told->flag, static_cast<std::int32_t>(0x80000001));
    const auto second = row.get(voltaris::neighbor, 1);
    ASSERT_TRUE(second.has_value());
    EXPECT_EQ(second->label, "");
    EXPECT_TRUE(second->data.empty());
    EXPECT_EQ(row.all(voltaris::neighbor).size(), 2u);
  };
  check(OnlyRow(results));
  check(copy);
}

TEST(FaceAttributes, Recurrence) {
  ExpectValue(voltaris::recurrence, {Plain(46, Counted(Text("daily")) + Bytes{1, 2} + U32(3))},
              voltaris::Recurrence{"daily", 1, 2, 3});
  ExpectValue(voltaris::recurrence, {Plain(46, Counted({}) + Bytes{0, 0} + U32(0))},
              voltaris::Recurrence{"", 0, 0, 0});
}

TEST(FaceAttributes, OfCombinedEntries) {
  const Combined combined{.caliber = 1,
                          .name = "west",
                          .role = "lamp",
                          .units = 0xFF,
                          .level = 9,
                          .importance = 200,
                          .keywords = "a,b",
                          .data = {0, 70}};
  const Results results =
      ResultsOf(collect_query("office").get(voltaris::name, voltaris::role, voltaris::keywords,
                                            voltaris::usage, voltaris::level, voltaris::importance,
                                            voltaris::caliber),
                {Aggregate(43, "lamp", {combined.At(1)})});
  EXPECT_EQ(Told(results, voltaris::name), "west");
  EXPECT_EQ(Told(results, voltaris::role), "lamp");
  EXPECT_EQ(Told(results, voltaris::keywords), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(Told(results, voltaris::usage), (voltaris::Usage{70, -1}));
  EXPECT_EQ(Told(results, voltaris::level), 9);
  EXPECT_EQ(Told(results, voltaris::importance), 200);
  EXPECT_EQ(Told(results, voltaris::caliber), voltaris::Caliber::kActual);
}

TEST(FaceAttributes, AbsentOnesAreNothing) {
  const Results results = ResultsOf(collect_query("office").get(voltaris::level), {Plain(14, {1})});
  const auto absent = [&results](auto attribute) {
    EXPECT_EQ(OnlyRow(results).count(attribute), 0u);
    EXPECT_TRUE(OnlyRow(results).all(attribute).empty());
    EXPECT_FALSE(OnlyRow(results).copy().get(attribute).has_value());
    return !Told(results, attribute).has_value();
  };
  EXPECT_TRUE(absent(voltaris::role));
  EXPECT_TRUE(absent(voltaris::domain));
  EXPECT_TRUE(absent(voltaris::keywords));
  EXPECT_TRUE(absent(voltaris::units));
  EXPECT_TRUE(absent(voltaris::usage));
  EXPECT_TRUE(absent(voltaris::importance));
  EXPECT_TRUE(absent(voltaris::entity_type));
  EXPECT_TRUE(absent(voltaris::neighbor));
  EXPECT_TRUE(absent(voltaris::delta_vector));
  EXPECT_TRUE(absent(voltaris::usage_vector));
  EXPECT_TRUE(absent(voltaris::recurrence));
}

// NodeOf is the one value of the one row, to be spoiled.
attribute_node& NodeOf(const Results& results) {
  return *static_cast<attribute_node*>(
      static_cast<void*>(OnlyRow(results).cursor().row->attributes.head));
}

// ExpectAbsentInOtherLengths gives a value all lengths up to a few more than its own.
template <AnyAttribute A>
void ExpectAbsentInOtherLengths(A attribute, std::uint32_t type, const Bytes& value) {
  const Results results = ResultsOf(collect_query("office").get(attribute), {Plain(type, value)});
  ASSERT_TRUE(Told(results, attribute).has_value());
  attribute_node& node = NodeOf(results);
  const std::uint32_t length = node.length;
  for (std::uint32_t other = 0; other <= length + 4; ++other) {
    node.length = other;
    EXPECT_EQ(Told(results, attribute).has_value(), other == length) << A::number << " " << other;
  }
  node.length = length;
}

TEST(FaceAttributes, OfAnotherLengthAreAbsent) {
  ExpectAbsentInOtherLengths(voltaris::units, 12, {1});
  ExpectAbsentInOtherLengths(voltaris::usage, 13, {0, 1});
  ExpectAbsentInOtherLengths(voltaris::level, 14, {1});
  ExpectAbsentInOtherLengths(voltaris::importance, 17, {1});
  ExpectAbsentInOtherLengths(voltaris::entity_type, 22, U32(1));
  ExpectAbsentInOtherLengths(voltaris::neighbor_count, 29, {0, 1});
  ExpectAbsentInOtherLengths(voltaris::nanny_vector, 34, U32(1));
  ExpectAbsentInOtherLengths(voltaris::delta_vector, 36, Bytes(44, 0));
  ExpectAbsentInOtherLengths(voltaris::caliber, 38, U32(1));
  ExpectAbsentInOtherLengths(voltaris::usage_vector, 39, Bytes(22, 0));
  ExpectAbsentInOtherLengths(voltaris::query_timeout, 41, {1});
  ExpectAbsentInOtherLengths(voltaris::category, 51, U32(1));
}

TEST(FaceAttributes, RecordsOfLessThanTheirLeastLengthAreAbsent) {
  const Results neighbor =
      ResultsOf(collect_query("office").get(voltaris::neighbor), {Plain(28, NeighborWire("", {}))});
  EXPECT_EQ(NodeOf(neighbor).length, 44u);
  NodeOf(neighbor).length = 43;
  EXPECT_FALSE(Told(neighbor, voltaris::neighbor).has_value());
  EXPECT_FALSE(OnlyRow(neighbor).copy().get(voltaris::neighbor).has_value());
  EXPECT_EQ(OnlyRow(neighbor).copy().count(voltaris::neighbor), 1u);
  const Results recurrence = ResultsOf(collect_query("office").get(voltaris::recurrence),
                                       {Plain(46, Counted({}) + Bytes{0, 0} + U32(0))});
  EXPECT_EQ(NodeOf(recurrence).length, 10u);
  NodeOf(recurrence).length = 9;
  EXPECT_FALSE(Told(recurrence, voltaris::recurrence).has_value());
  EXPECT_FALSE(OnlyRow(recurrence).copy().get(voltaris::recurrence).has_value());
}

TEST(FaceAttributes, TextsAreNotReadBeyondTheirLength) {
  const Results results =
      ResultsOf(collect_query("office").get(voltaris::name), {Plain(9, Counted(Text("west")))});
  NodeOf(results).length = 2;  // its zero byte lies behind
  EXPECT_EQ(Told(results, voltaris::name), "we");
  NodeOf(results).length = 0;
  EXPECT_EQ(Told(results, voltaris::name), std::nullopt);
}

TEST(FaceAttributes, WithoutBytesAreAbsentAndCounted) {
  const Results results =
      ResultsOf(collect_query("office").get(voltaris::keywords), {Plain(10, Counted({}))});
  EXPECT_EQ(Told(results, voltaris::keywords), std::nullopt);
  EXPECT_EQ(OnlyRow(results).count(voltaris::keywords), 1u);
  EXPECT_TRUE(OnlyRow(results).all(voltaris::keywords).empty());
  EXPECT_EQ(OnlyRow(results).copy().count(voltaris::keywords), 1u);
  EXPECT_EQ(OnlyRow(results).copy().get(voltaris::keywords), std::nullopt);
}

TEST(FaceAttributes, ValuesNeedNoAlignment) {
  for (std::size_t shift = 0; shift < 8; ++shift) {
    alignas(16) std::uint8_t place[64] = {};
    const std::int32_t number = -2;
    std::memcpy(place + shift, &number, sizeof number);
    EXPECT_EQ(decltype(voltaris::caliber)::Kind::Decode({place + shift, 4}),
              voltaris::Caliber::kMax);
    EXPECT_TRUE(decltype(voltaris::delta_vector)::Kind::Decode({place + shift, 44}, 0));
  }
}

TEST(FaceAttributes, FlatRecordsThatAreCutAreAbsent) {
  const std::string neighbor =
      voltaris::kind::NeighborRecord::Flatten({.device = {}, .label = "ab", .data = {}, .flag = 1});
  const std::string recurrence = voltaris::kind::RecurrenceRecord::Flatten({"ab", 1, 2, 3});
  for (std::uint32_t length = 1; length <= neighbor.size(); ++length) {
    EXPECT_EQ(voltaris::kind::NeighborRecord::Decode({neighbor.data(), length, true}).has_value(),
              length == neighbor.size());
  }
  for (std::uint32_t length = 1; length <= recurrence.size(); ++length) {
    EXPECT_EQ(
        voltaris::kind::RecurrenceRecord::Decode({recurrence.data(), length, true}).has_value(),
        length == recurrence.size());
  }
}

TEST(FaceUnits, AreTheNextBehindAValue) {
  const Results results =
      ResultsOf(collect_query("office").get(voltaris::usage, voltaris::usage_vector),
                {Plain(13, {0, 5}), Plain(12, {1}), Plain(39, Bytes(22, 0)), Plain(12, {2})});
  EXPECT_EQ(Told(results, voltaris::usage)->exponent, 1);
  EXPECT_EQ(Told(results, voltaris::usage_vector)->exponent, 2);
  EXPECT_EQ(OnlyRow(results).all(voltaris::units), (std::vector{1, 2}));
  const OwnedRow copy = OnlyRow(results).copy();
  EXPECT_EQ(copy.get(voltaris::usage)->exponent, 1);
  EXPECT_EQ(copy.get(voltaris::usage_vector)->exponent, 2);
}

TEST(FaceUnits, MayBeToldOnceForSeveralValues) {
  const auto description = collect_query("office").get(voltaris::usage, voltaris::usage_vector);
  const Results behind =
      ResultsOf(description, {Plain(13, {0, 5}), Plain(39, Bytes(22, 0)), Plain(12, {2})});
  EXPECT_EQ(Told(behind, voltaris::usage)->exponent, 2);
  EXPECT_EQ(Told(behind, voltaris::usage_vector)->exponent, 2);
  const Results between =
      ResultsOf(description, {Plain(13, {0, 5}), Plain(12, {2}), Plain(39, Bytes(22, 0))});
  EXPECT_EQ(Told(between, voltaris::usage)->exponent, 2);
  EXPECT_EQ(Told(between, voltaris::usage_vector)->exponent, 2);
  const Results before =
      ResultsOf(description, {Plain(12, {2}), Plain(13, {0, 5}), Plain(39, Bytes(22, 0))});
  EXPECT_EQ(Told(before, voltaris::usage)->exponent, 2);
  EXPECT_EQ(Told(before, voltaris::usage_vector)->exponent, 2);
}

// A combined entry gives its units once for each units column, also for those of other values.
TEST(FaceUnits, OfCombinedEntriesAreTheirOwn) {
  const Combined usage{.units = 1, .data = {0, 5}};
  const Combined vector{.units = 2, .data = Bytes(22, 0)};
  const Results results =
      ResultsOf(collect_query("office").get(voltaris::usage, voltaris::usage_vector),
                {Aggregate(43, "lamp", {usage.At(1)}), Aggregate(44, "lamp", {vector.At(1)})});
  EXPECT_EQ(OnlyRow(results).count(voltaris::units), 4u);
  EXPECT_EQ(Told(results, voltaris::usage)->exponent, 1);
  EXPECT_EQ(Told(results, voltaris::usage_vector)->exponent, 2);
}

TEST(FaceUnits, OfEachOfSeveralValues) {
  const Results results =
      ResultsOf(collect_query("office").get(voltaris::usage),
                {Plain(13, {0, 5}), Plain(12, {1}), Plain(13, {0, 6}), Plain(12, {2})});
  EXPECT_EQ(Told(results, voltaris::usage, 0), (voltaris::Usage{5, 1}));
  EXPECT_EQ(Told(results, voltaris::usage, 1), (voltaris::Usage{6, 2}));
  EXPECT_EQ(OnlyRow(results).all(voltaris::usage).size(), 2u);
}

TEST(FaceUnits, OfAnotherLengthAreNone) {
  const Results results =
      ResultsOf(collect_query("office").get(voltaris::usage), {Plain(13, {0, 5}), Plain(12, {1})});
  NodeOf(results).next->length = 2;
  EXPECT_EQ(Told(results, voltaris::usage), (voltaris::Usage{5, std::nullopt}));
}

TEST(FaceValues, WattsAreTheNearestNumber) {
  EXPECT_EQ(voltaris::to_watts(36, -1), 3.6);
  EXPECT_EQ(voltaris::to_watts(-3, -3), -0.003);
  EXPECT_EQ(voltaris::to_watts(7, 3), 7000.0);
  EXPECT_EQ(voltaris::to_watts(7, 0), 7.0);
}

TEST(FaceValues, OfEnumerationsHaveWords) {
  using voltaris::name_of;
  EXPECT_EQ(name_of(voltaris::Caliber::kMax), "max");
  EXPECT_EQ(name_of(voltaris::Caliber::kPresumed), "presumed");
  EXPECT_EQ(name_of(voltaris::Category::kMeter), "meter");
  EXPECT_EQ(name_of(voltaris::EntityType::kAdminOff), "admin-off");
  EXPECT_EQ(name_of(static_cast<voltaris::Caliber>(99)), std::nullopt);
  EXPECT_EQ(name_of(static_cast<voltaris::Category>(99)), std::nullopt);
  EXPECT_EQ(name_of(static_cast<voltaris::EntityType>(99)), std::nullopt);
}

TEST(FaceAttributes, AreVisitedByTheirNumber) {
  for (std::int32_t number = 1; number <= 22; ++number) {
    std::vector<std::int32_t> visited;
    const auto visitor = [&visited](auto attribute) { visited.push_back(attribute.number); };
    EXPECT_TRUE(voltaris::visit_attribute(number, visitor));
    EXPECT_EQ(visited, std::vector{number});
  }
  for (const std::int32_t number : {-1, 0, 23}) {
    EXPECT_FALSE(voltaris::visit_attribute(number, [](auto) { ADD_FAILURE(); }));
  }
}

TEST(FaceValues, AttributesHaveWords) {
  EXPECT_EQ(voltaris::word_of(voltaris::identity.number), "identity");
  EXPECT_EQ(voltaris::word_of(voltaris::usage_vector.number), "usage-vector");
  EXPECT_EQ(voltaris::word_of(voltaris::category.number), "category");
  for (const std::int32_t number : {-1, 0, 23, 1000}) EXPECT_EQ(voltaris::word_of(number), "");
}

}  // namespace
