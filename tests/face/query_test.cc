// Descriptions of queries: the message that each makes, and what is told of those that make none.
#include "vtapi/face/query.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/face/face_support.h"

namespace {

using namespace vt::testing;
using namespace std::chrono_literals;

using voltaris::Category;
using voltaris::Cause;
using voltaris::collect_query;
using voltaris::DeviceId;
using voltaris::Error;
using voltaris::QueryDescription;
using voltaris::QueryKind;
using voltaris::set_query;
using voltaris::sum_query;

DeviceId Device() { return DeviceId::from_text(std::string(32, 'd')).value(); }

// ElementsOf is the elements of a query as they will travel, or the error's text.
std::vector<Bytes> ElementsOf(const QueryDescription& description) {
  const auto query = description.build();
  if (!query) return {Text(query.error().text)};
  std::vector<Bytes> elements;
  const Event* event = query->get()->event;
  for (std::size_t i = 0; i < event->pak->tlv_count; ++i) elements.push_back(Wire(event->tlvs[i]));
  return elements;
}

const Bytes kSixSeconds = Element(41, 0, {6});
const Bytes kOffice = Element(8, 0, Text("office"));

TEST(FaceQuery, OfEachKindHasItsNumbersAndItsDomain) {
  const auto collect = collect_query("office").priority(3).build();
  ASSERT_TRUE(collect);
  EXPECT_EQ(collect->get()->class_, 10);
  EXPECT_EQ(collect->get()->action, 11);
  EXPECT_EQ(collect->get()->priority, 3);
  EXPECT_EQ(set_query("office").build()->get()->action, 10);
  EXPECT_EQ(set_query("office").build()->get()->priority, 100);
  EXPECT_EQ(sum_query("office").build()->get()->class_, 11);
  EXPECT_EQ(ElementsOf(collect_query("office")), (std::vector{kOffice, kSixSeconds}));
}

TEST(FaceQuery, AsksForAttributesInTheirOrderWithTheirUnits) {
  const auto description =
      collect_query("office").get(voltaris::name, voltaris::usage).get(voltaris::level);
  EXPECT_EQ(ElementsOf(description), (std::vector{kOffice, kSixSeconds, Element(9, 0, {}),
                                                  Element(13, 0, {0, 0}), Element(14, 0, {0})}));
  EXPECT_EQ(Columns(description.build()->get()), (std::vector<std::int32_t>{4, 8, 7, 9}));
}

TEST(FaceQuery, CanAskForEveryAttributeOfTheCatalogue) {
  const auto description = collect_query("office").get(
      voltaris::identity, voltaris::role, voltaris::domain, voltaris::name, voltaris::keywords,
      voltaris::error_text, voltaris::units, voltaris::usage, voltaris::level, voltaris::importance,
      voltaris::entity_type, voltaris::address, voltaris::neighbor, voltaris::neighbor_count,
      voltaris::nanny_vector, voltaris::delta_vector, voltaris::caliber, voltaris::usage_vector,
      voltaris::query_timeout, voltaris::recurrence, voltaris::text_21, voltaris::category);
  const auto query = description.build();
  ASSERT_TRUE(query) << query.error().text;
  std::vector<std::int32_t> columns = Columns(query->get());
  EXPECT_EQ(std::erase(columns, VT_ATTRIBUTE_UNITS), 4);
  EXPECT_EQ(columns, (std::vector<std::int32_t>{1,  2,  3,  4,  5,  6,  8,  9,  10, 11, 12,
                                                13, 14, 15, 16, 17, 18, 19, 20, 21, 22}));
}

TEST(FaceQuery, NarrowsByEachQualifier) {
  const auto description = collect_query("office")
                               .where(voltaris::category, Category::kMeter)
                               .where(voltaris::identity, Device())
                               .where(voltaris::role, "lamp*")
                               .where(voltaris::role, "fan")
                               .where(voltaris::name, "west")
                               .where(voltaris::keywords, {"a", "b"})
                               .where(voltaris::keywords, {"c"})
                               .timeout(9s);
  EXPECT_EQ(ElementsOf(description),
            (std::vector{kOffice, Element(51, 1, U32(0)), Element(1, 1, Bytes(32, 'd') + U32(0)),
                         Element(7, 1, Text("lamp*")), Element(7, 1, Text("fan")),
                         Element(9, 1, Text("west")), Element(10, 1, Hex("6100 6200 6300")),
                         Element(41, 0, {9})}));
}

TEST(FaceQuery, SetsValuesOfEachKind) {
  const auto description = set_query("office")
                               .set(voltaris::name, "desk lamp")
                               .set(voltaris::keywords, {"light", "new"})
                               .set(voltaris::level, 3)
                               .set(voltaris::importance, 255)
                               .set(voltaris::units, -3)
                               .set(voltaris::usage, 0x1234)
                               .set(voltaris::nanny_vector, 0xFFFFFFFF)
                               .set(voltaris::caliber, voltaris::Caliber::kMax)
                               .set(voltaris::usage_vector, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11})
                               .set(voltaris::recurrence, {"daily", 1, 2, 3});
  EXPECT_EQ(
      ElementsOf(description),
      (std::vector{kOffice, kSixSeconds, Element(9, 0, Text("desk lamp")),
                   Element(10, 0, Terminated("light,new")), Element(14, 0, {3}),
                   Element(17, 0, {255}), Element(12, 0, {0xFD}), Element(13, 0, {0x12, 0x34}),
                   Element(34, 0, U32(0xFFFFFFFF)), Element(38, 0, U32(0xFFFFFFFE)),
                   Element(39, 0, Hex("0001 0002 0003 0004 0005 0006 0007 0008 0009 000a 000b")),
                   Element(46, 0, Counted(Text("daily")) + Bytes{1, 2} + U32(3))}));
  EXPECT_EQ(Columns(description.build()->get()),
            (std::vector<std::int32_t>{4, 5, 9, 10, 7, 8, 15, 17, 18, 20}));
}

TEST(FaceQuery, OfASumAsksForUsageAndChanges) {
  const auto description = sum_query("office").get(voltaris::usage, voltaris::delta_vector);
  const std::vector<Bytes> elements = ElementsOf(description);
  ASSERT_EQ(elements.size(), 4u);
  EXPECT_EQ(elements[2][3], 43);
  EXPECT_EQ(elements[3][3], 45);
}

// ErrorOf is the error that building gives; that of an Expected that holds none ends the test.
Error ErrorOf(const QueryDescription& description) {
  const LogCapture quiet(kSilent);
  const auto query = description.build();
  if (!query) return query.error();
  ADD_FAILURE() << "the description was built";
  return {};
}

void ExpectError(const QueryDescription& description, Cause cause, const std::string& part) {
  const Error error = ErrorOf(description);
  EXPECT_EQ(error.cause, cause) << error.text;
  EXPECT_NE(error.text.find(part), std::string::npos) << error.text;
}

TEST(FaceQuery, WithValuesThatCannotBeSetIsAnError) {
  const auto with = [](auto attribute, const auto& value) {
    return set_query("office").set(attribute, value);
  };
  ExpectError(with(voltaris::level, 11), Cause::kBadValue, "level: must be from 0 to 10, not 11");
  ExpectError(with(voltaris::level, -1), Cause::kBadValue, "level");
  ExpectError(with(voltaris::importance, 256), Cause::kBadValue, "importance");
  ExpectError(with(voltaris::units, 128), Cause::kBadValue, "from -128 to 127");
  ExpectError(with(voltaris::neighbor_count, 65536), Cause::kBadValue, "neighbor-count");
  ExpectError(with(voltaris::nanny_vector, -1), Cause::kBadValue, "nanny-vector");
  ExpectError(with(voltaris::name, std::string_view("a\0b", 3)), Cause::kBadValue, "no zero byte");
  ExpectError(with(voltaris::recurrence, voltaris::Recurrence{std::string_view("a\0", 2), 0, 0, 0}),
              Cause::kBadValue, "recurrence");
  const std::string long_text(246, 'r');
  ExpectError(with(voltaris::recurrence, voltaris::Recurrence{long_text, 0, 0, 0}),
              Cause::kBadValue, "245");
}

TEST(FaceQuery, WithKeywordsThatWouldBeCutIsAnError) {
  const auto with = [](const std::vector<std::string>& items) {
    return set_query("office").set(voltaris::keywords, items);
  };
  EXPECT_TRUE(with({std::string(254, 'k')}).build());
  EXPECT_EQ(ElementsOf(with({})).back(), Element(10, 0, {0}));
  ExpectError(with({std::string(255, 'k')}), Cause::kBadValue, "keywords");
  ExpectError(with({std::string(200, 'k'), std::string(54, 'k')}), Cause::kBadValue, "254");
  ExpectError(with({"a,b"}), Cause::kBadValue, "comma");
  ExpectError(with({"a", ""}), Cause::kBadValue, "empty");
  ExpectError(with({std::string("a\0b", 3)}), Cause::kBadValue, "zero byte");
}

TEST(FaceQuery, WithQualifiersThatCannotTravelIsAnError) {
  const std::string zero("a\0b", 3);
  ExpectError(collect_query("office").where(voltaris::role, zero), Cause::kBadQualifier, "role");
  ExpectError(collect_query("office").where(voltaris::name, zero), Cause::kBadQualifier, "name");
  ExpectError(collect_query("office").where(voltaris::keywords, {zero}), Cause::kBadQualifier,
              "keywords");
  ExpectError(collect_query("office").where(voltaris::keywords, {"a,b"}), Cause::kBadQualifier,
              "comma");
}

TEST(FaceQuery, WithAttributesOfAnotherKindIsAnError) {
  ExpectError(collect_query("office").set(voltaris::level, 3), Cause::kBadAttribute,
              "level can be set by a set query only");
  ExpectError(sum_query("office").set(voltaris::level, 3), Cause::kBadAttribute, "level");
  ExpectError(sum_query("office").get(voltaris::name), Cause::kBadAttribute, "not of name");
  ExpectError(sum_query("office").get(voltaris::usage_vector), Cause::kBadAttribute,
              "not of usage-vector");
}

// A request for a level holds a zero, which switches off what obeys it.
TEST(FaceQuery, ThatSetsMustNotAskForWhatItWouldSet) {
  ExpectError(set_query("office").get(voltaris::level), Cause::kBadAttribute, "would set it to 0");
  ExpectError(set_query("office").get(voltaris::importance), Cause::kBadAttribute, "importance");
  ExpectError(set_query("office").get(voltaris::nanny_vector), Cause::kBadAttribute, "nanny");
  ExpectError(set_query("office").get(voltaris::recurrence), Cause::kBadAttribute, "recurrence");
  ExpectError(set_query("office").get(voltaris::query_timeout), Cause::kBadAttribute, "timeout");
  EXPECT_TRUE(set_query("office").get(voltaris::name, voltaris::usage, voltaris::caliber).build());
}

TEST(FaceQuery, WithATimeOutOutOfRangeIsAnError) {
  for (const auto time : {0s, -1s, 181s}) {
    ExpectError(collect_query("office").timeout(time), Cause::kBadTimeout,
                std::to_string(time.count()));
  }
  EXPECT_TRUE(collect_query("office").timeout(1s).build());
  EXPECT_TRUE(collect_query("office").timeout(180s).build());
}

TEST(FaceQuery, WithADomainThatCannotTravelIsAnError) {
  ExpectError(collect_query(std::string("a\0b", 3)), Cause::kBadDomain, "domain");
  ExpectError(collect_query(std::string(1300, 'd')), Cause::kTooLong, "the domain could not");
  ExpectError(collect_query(std::string(100000, 'd')), Cause::kTooLong, "the domain");
}

TEST(FaceQuery, TooLongForOneMessageNamesThePartThatDoesNotFit) {
  const std::string filling(1150, 'f');
  const auto nearly_full = [&filling] {
    return set_query("office").where(voltaris::role, filling);
  };
  EXPECT_TRUE(nearly_full().build());
  const std::string much(60, 'm');
  ExpectError(nearly_full().where(voltaris::role, much), Cause::kTooLong, "role " + much);
  ExpectError(nearly_full().where(voltaris::name, much), Cause::kTooLong, "name " + much);
  ExpectError(nearly_full().where(voltaris::keywords, {much, "x"}), Cause::kTooLong,
              "keywords " + much + ",x");
  ExpectError(nearly_full().where(voltaris::identity, Device()), Cause::kTooLong,
              "role " + filling);
  ExpectError(collect_query("office").where(voltaris::role, std::string(1180, 'f')),
              Cause::kTooLong, "the time-out");
  ExpectError(nearly_full().set(voltaris::name, much), Cause::kTooLong,
              "name could not be added: a query must fit into 1400 bytes");
  ExpectError(nearly_full().set(voltaris::keywords, {much}), Cause::kTooLong, "keywords");
  ExpectError(nearly_full().set(voltaris::delta_vector, {}), Cause::kTooLong, "delta-vector");
  ExpectError(nearly_full().get(voltaris::delta_vector), Cause::kTooLong, "delta-vector");
  QueryDescription categories = set_query("office");
  for (int i = 0; i < 76; ++i) categories.where(voltaris::category, Category::kMeter);
  ExpectError(categories, Cause::kTooLong, "category");
  QueryDescription devices = set_query("office");
  for (int i = 0; i < 30; ++i) devices.where(voltaris::identity, Device());
  ExpectError(devices, Cause::kTooLong, "identity " + std::string(32, 'd'));
}

// The library would take the length of the second for 0, that of the third for 1.
TEST(FaceQuery, WithTextsThatWouldBeCutIsAnError) {
  const auto with = [](std::size_t size) {
    return set_query("office").set(voltaris::name, std::string(size, 'n'));
  };
  EXPECT_EQ(ElementsOf(with(254)).back(), Element(9, 0, Bytes(254, 'n')));
  for (const std::size_t size : {255u, 256u, 1280u}) {
    ExpectError(with(size), Cause::kBadValue, "name: a text has at most 254 characters");
  }
}

QueryDescription OfEverything() {
  return set_query("office")
      .where(voltaris::category, Category::kMeter)
      .where(voltaris::identity, Device())
      .where(voltaris::role, "lamp*")
      .where(voltaris::name, "west")
      .where(voltaris::keywords, {"a", "b"})
      .set(voltaris::name, "desk lamp")
      .set(voltaris::keywords, {"light"})
      .set(voltaris::level, 3)
      .set(voltaris::recurrence, {"daily", 1, 2, 3})
      .get(voltaris::usage, voltaris::role);
}

TEST(FaceQuery, WithoutMemoryIsAnErrorAndLeavesNothingBehind) {
  const LogCapture quiet(kSilent);
  const QueryDescription description = OfEverything();
  const LiveBlocks live;
  const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
    const auto query = description.build();
    fault.Disarm();
    EXPECT_EQ(query.has_value(), !fault.hit());
    if (!query) EXPECT_EQ(query.error().cause, Cause::kNoMemory) << query.error().text;
  });
  EXPECT_GT(failures, 20u);
  EXPECT_EQ(live.count(), 0);
}

TEST(FaceQuery, PlainTextsHaveTheCharactersOfNames) {
  EXPECT_TRUE(voltaris::is_plain("desk lamp-1"));
  for (const std::string& text : {std::string(), std::string("a*"), std::string("a\0", 2)}) {
    EXPECT_FALSE(voltaris::is_plain(text)) << text;
  }
}

TEST(FaceQueryDescription, IsAValue) {
  const QueryDescription original = OfEverything();
  QueryDescription copy = original;
  EXPECT_EQ(copy, original);
  EXPECT_EQ(ElementsOf(copy), ElementsOf(original));
  copy.get(voltaris::caliber);
  EXPECT_NE(copy, original);
  EXPECT_NE(collect_query("office"), collect_query("home"));
  EXPECT_NE(collect_query("office"), set_query("office"));
  EXPECT_NE(collect_query("office"), collect_query("office").priority(1));
  EXPECT_NE(collect_query("office"), collect_query("office").timeout(7s));
  EXPECT_NE(set_query("office").set(voltaris::level, 3),
            set_query("office").set(voltaris::level, 4));
}

TEST(FaceQueryDescription, TellsWhatItIs) {
  const QueryDescription description = sum_query("office").priority(9).timeout(8s);
  EXPECT_EQ(description.query_kind(), QueryKind::kSum);
  EXPECT_EQ(description.query_domain(), "office");
  EXPECT_EQ(description.priority(), 9);
  EXPECT_EQ(description.timeout(), 8s);
}

TEST(FaceQueryDescription, CanBeBuiltStepByStep) {
  QueryDescription description = collect_query("office");
  description.get(voltaris::name).where(voltaris::role, "lamp").priority(1).timeout(2s);
  description.where(voltaris::keywords, {"a"});
  EXPECT_EQ(description, collect_query("office")
                             .get(voltaris::name)
                             .where(voltaris::role, "lamp")
                             .where(voltaris::keywords, {"a"})
                             .priority(1)
                             .timeout(2s));
}

}  // namespace
