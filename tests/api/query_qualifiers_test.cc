// Qualifiers: which devices a query is meant for, and its time-out.
#include <gtest/gtest.h>

#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/guard.h"

namespace {

using namespace vt::testing;

constexpr std::uint32_t kRoom = 1400 - 180;  // for elements; the rest is header and reserve

LogLine Adding(std::int32_t attribute) {
  return {kDebug, "voltaris_addQualifier: adding qualifier type " + std::to_string(attribute)};
}

LogLine Failed(int code) {
  return {kError, "voltaris_addQualifier: add qualifier failed, err=" + std::to_string(code)};
}

LogLine NoRoom(std::int32_t attribute) {
  return {kWarn, "voltaris_addQualifier: Unable to add qualifier type " +
                     std::to_string(attribute) + ", query packet has reached maximum size"};
}

TEST(AddQualifier, OfKeywordsSeparatesThemByZeroBytes) {
  const QueryPtr query = CollectQuery();
  char text[] = "a,b,c";
  const LogCapture log(kTrace);
  ASSERT_EQ(voltaris_addQualifier(query.get(), 5, text), 0);
  EXPECT_STREQ(text, "a,b,c");
  EXPECT_EQ(log.lines(), (Lines{Adding(5)}));
  EXPECT_EQ(LastElement(query.get())->length, 18u);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("0000000a 00000012 00000001 61 00 62 00 63 00"));
}

TEST(AddQualifier, OfRoleAndNameTakesTextsAsTheyAre) {
  const QueryPtr query = CollectQuery();
  ASSERT_EQ(voltaris_addQualifier(query.get(), 2, "desk,lamp*"), 0);
  EXPECT_EQ(LastElement(query.get())->length, 23u);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("00000007 00000016 00000001 6465736b2c6c616d702a"));
  ASSERT_EQ(voltaris_addQualifier(query.get(), 4, "%n%s"), 0);
  EXPECT_EQ(LastElement(query.get())->length, 17u);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("00000009 00000010 00000001 256e2573"));
}

TEST(AddQualifier, OfAnIdentityTakes36BytesWithANumberInHostOrder) {
  const QueryPtr query = CollectQuery();
  GuardedBytes id = GuardedBytes::AtOddAddress(Hex("32*61 01000000 ff"));
  ASSERT_EQ(voltaris_addQualifier(query.get(), 1, id.data()), 0);
  EXPECT_EQ(LastElement(query.get())->length, 48u);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("00000001 00000030 00000001 32*61 00000001"));
}

TEST(AddQualifier, OfATimeoutIsNoQualifierOnTheWire) {
  const QueryPtr query = CollectQuery();
  const std::uint8_t nine = 9;
  const std::uint8_t ten = 10;
  ASSERT_EQ(voltaris_addQualifier(query.get(), 19, &nine), 0);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("00000029 0000000d 00000000 09"));
  EXPECT_EQ(cv_get_timeout_val_from_query(query->event), 9u);
  // A second one is added and ignored.
  ASSERT_EQ(voltaris_addQualifier(query.get(), 19, &ten), 0);
  EXPECT_EQ(query->event->pak->tlv_count, 3);
  EXPECT_EQ(cv_get_timeout_val_from_query(query->event), 9u);
}

TEST(AddQualifier, ShortFormsNameTheKindAndLogAsTheWholeCall) {
  const sender_id id = {{{'x'}}, 1};
  const struct {
    std::int32_t (*add)(Query*, const void*);
    std::int32_t attribute;
    const void* value;
    const char* wire;
  } kCases[] = {{voltaris_addIdQualifier, 1, &id, "00000001 00000030 00000001 78 31*00 00000001"},
                {voltaris_addRoleQualifier, 2, "r", "00000007 0000000d 00000001 72"},
                {voltaris_addNameQualifier, 4, "n", "00000009 0000000d 00000001 6e"},
                {voltaris_addKeyQualifier, 5, "k", "0000000a 0000000e 00000001 6b00"}};
  for (const auto& row : kCases) {
    const QueryPtr query = CollectQuery();
    const LogCapture log(kTrace);
    ASSERT_EQ(row.add(query.get(), row.value), 0);
    EXPECT_EQ(log.lines(), (Lines{Adding(row.attribute)}));
    EXPECT_EQ(Wire(LastElement(query.get())), Hex(row.wire));
  }
}

TEST(AddQualifier, StaysOutOfTheColumns) {
  const QueryPtr query = CollectQuery();
  const std::uint8_t nine = 9;
  ASSERT_EQ(voltaris_addNameQualifier(query.get(), "lamp"), 0);
  ASSERT_EQ(voltaris_addQualifier(query.get(), 19, &nine), 0);
  EXPECT_EQ(query->attribute_count, 0u);
  EXPECT_TRUE(Columns(query.get()).empty());
}

TEST(AddQualifier, IsAcceptedOnEveryKindOfQuery) {
  for (const QueryCreator create : {&voltaris_createSetQuery, &voltaris_createCollectQuery,
                                    &voltaris_createSumQuery, &CreateFurtherQuery}) {
    const QueryPtr query(create("office", 7));
    EXPECT_EQ(voltaris_addNameQualifier(query.get(), "lamp"), 0);
    EXPECT_EQ(query->event->pak->tlv_count, 2);
  }
}

TEST(AddQualifier, RefusesNumbersThatNameNoAttribute) {
  for (const std::int32_t attribute : {0, 23, -1, INT32_MAX, INT32_MIN}) {
    const QueryPtr query = CollectQuery();
    query->class_ = 12;  // the number goes before the class
    const LogCapture log(kTrace);
    EXPECT_EQ(voltaris_addQualifier(query.get(), attribute, "x"), -1);
    EXPECT_EQ(log.lines(), (Lines{{kError, "voltaris_addQualifier: Invalid attribute type."}}));
  }
}

TEST(AddQualifier, RefusesOtherClasses) {
  for (const std::int32_t cls : {9, 12, 0, -1}) {
    const QueryPtr query = CollectQuery();
    query->class_ = cls;
    query->action = 99;  // the class goes before the action
    const LogCapture log(kTrace);
    EXPECT_EQ(voltaris_addQualifier(query.get(), 4, "x"), -1);
    EXPECT_EQ(log.lines(),
              (Lines{{kError, "voltaris_addQualifier: must be QUERY or AGGREGATE event"}}));
    EXPECT_EQ(query->event->pak->tlv_count, 1);
  }
}

TEST(AddQualifier, RefusesOtherActionsWithMinus2) {
  for (const std::int32_t action : {9, 12, 13, 15, -1}) {
    const QueryPtr query = CollectQuery();
    query->action = action;
    const LogCapture log(kTrace);
    EXPECT_EQ(voltaris_addQualifier(query.get(), 4, "x"), -2);
    EXPECT_EQ(log.lines(),
              (Lines{{kError, "voltaris_addQualifier: must be GET or SET or SUM query"}}));
    EXPECT_EQ(query->event->pak->tlv_count, 1);
  }
}

TEST(AddQualifier, ReportsAnUnsupportedKindAsSuccess) {
  // Deliberate: nothing is added, but after the warning the call succeeds.
  for (const std::int32_t attribute :
       {3, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 20, 21, 22}) {
    const QueryPtr query = CollectQuery();
    const LogCapture log(kTrace);
    EXPECT_EQ(voltaris_addQualifier(query.get(), attribute, "x"), 0);
    EXPECT_EQ(log.lines(), (Lines{Adding(attribute),
                                  {kWarn, "voltaris_addQualifier: invalid qualifier type " +
                                              std::to_string(attribute)}}));
    EXPECT_EQ(query->event->pak->tlv_count, 1);
  }
}

TEST(AddQualifier, OfUsageReturns0AndAddsNothing) {
  const QueryPtr query = CollectQuery();
  EXPECT_EQ(voltaris_addQualifier(query.get(), 8, "x"), 0);
  EXPECT_EQ(query->event->pak->tlv_count, 1);
}

TEST(AddQualifier, FillsTheMessageUpTo1400Bytes) {
  const std::uint8_t nine = 9;
  const sender_id id = {};
  const struct {
    std::int32_t attribute;
    const void* value;
    std::uint32_t need;
  } kCases[] = {{2, "desk", 17}, {4, "lamp", 17}, {5, "a,b", 16}, {19, &nine, 13}, {1, &id, 48}};
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.attribute);
    const QueryPtr fits = CollectQuery();
    FillTo(fits.get(), kRoom - row.need);
    EXPECT_EQ(voltaris_addQualifier(fits.get(), row.attribute, row.value), 0);
    EXPECT_EQ(fits->event->pak->tlv_count, 3);

    const QueryPtr full = CollectQuery();
    FillTo(full.get(), kRoom - row.need + 1);
    const LogCapture log(kTrace);
    EXPECT_EQ(voltaris_addQualifier(full.get(), row.attribute, row.value), -1);
    EXPECT_EQ(log.lines(), (Lines{Adding(row.attribute), NoRoom(row.attribute), Failed(2)}));
    EXPECT_EQ(full->event->pak->tlv_count, 2);
  }
}

TEST(AddQualifier, OfAnIdentityNeedsRoomFor48Bytes) {
  const sender_id id = {};
  const QueryPtr fits = CollectQuery();
  FillTo(fits.get(), 1352 - 180);
  EXPECT_EQ(voltaris_addIdQualifier(fits.get(), &id), 0);
  const QueryPtr full = CollectQuery();
  FillTo(full.get(), 1353 - 180);
  const LogCapture log(kInfo);
  EXPECT_EQ(voltaris_addIdQualifier(full.get(), &id), -1);
  EXPECT_EQ(log.lines(), (Lines{NoRoom(1), Failed(2)}));
}

TEST(AddQualifier, RefusesANullValueWithStatus4) {
  for (const std::int32_t attribute : {1, 2, 4, 5, 19}) {
    const QueryPtr query = CollectQuery();
    const LogCapture log(kTrace);
    EXPECT_EQ(voltaris_addQualifier(query.get(), attribute, nullptr), -1);
    EXPECT_EQ(log.lines(), (Lines{Adding(attribute), Failed(4)})) << attribute;
    EXPECT_EQ(query->event->pak->tlv_count, 1);
  }
  const QueryPtr query = CollectQuery();
  EXPECT_EQ(voltaris_addNameQualifier(query.get(), nullptr), -1);
  EXPECT_EQ(voltaris_addRoleQualifier(query.get(), nullptr), -1);
  EXPECT_EQ(voltaris_addKeyQualifier(query.get(), nullptr), -1);
  EXPECT_EQ(voltaris_addIdQualifier(query.get(), nullptr), -1);
}

TEST(AddQualifier, OfAnEmptyTextLeavesAs12Bytes) {
  const QueryPtr query = CollectQuery();
  ASSERT_EQ(voltaris_addNameQualifier(query.get(), ""), 0);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("00000009 0000000c 00000001"));
  ASSERT_EQ(voltaris_addRoleQualifier(query.get(), ""), 0);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("00000007 0000000c 00000001"));
}

TEST(AddQualifier, OfEmptyKeywordsLeavesWithTheOneTerminator) {
  const QueryPtr query = CollectQuery();
  ASSERT_EQ(voltaris_addKeyQualifier(query.get(), ""), 0);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("0000000a 0000000d 00000001 00"));
}

TEST(AddQualifier, WithoutMemoryForTheKeywordListAddsTheTextUnconverted) {
  const QueryPtr query = CollectQuery();
  const LogCapture log(kTrace);
  AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(voltaris_addKeyQualifier(query.get(), "a,b,c"), 0);
  fault.Disarm();
  EXPECT_TRUE(fault.hit());
  EXPECT_EQ(log.lines(), (Lines{Adding(5)}));
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("0000000a 00000012 00000001 612c622c6300"));
}

TEST(AddQualifier, WithoutMemoryForTheElementFailsWithStatus1) {
  const std::uint8_t nine = 9;
  const sender_id id = {};
  const struct {
    std::int32_t attribute;
    const void* value;
  } kCases[] = {{1, &id}, {2, "desk"}, {4, "lamp"}, {5, "a,b"}, {19, &nine}};
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.attribute);
    const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
      QueryPtr query;
      {
        const AllocationFault::Pause pause;
        query = CollectQuery();
      }
      const LogCapture log(kInfo);
      const std::int32_t status = voltaris_addQualifier(query.get(), row.attribute, row.value);
      fault.Disarm();
      const bool added = query->event->pak->tlv_count == 2;
      EXPECT_EQ(status, added ? 0 : -1);
      EXPECT_EQ(log.lines(), added ? Lines{} : (Lines{Failed(1)}));
      // A keyword list that cannot be made is no failure.
      if (fault.hit() && row.attribute != 5) {
        EXPECT_FALSE(added);
      }
      if (!fault.hit()) {
        EXPECT_TRUE(added);
      }
    });
    EXPECT_EQ(failures, row.attribute == 5 ? 2u : 1u);
  }
}

TEST(AddQualifier, WithoutMemoryFailsTheSameOnASilencedLog) {
  const QueryPtr query = CollectQuery();
  const LogCapture log(kSilent);
  const AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(voltaris_addQualifier(query.get(), 4, "lamp"), -1);
  EXPECT_EQ(log.lines(), Lines{});
}

TEST(AddQualifier, OnAQueryWithoutAnEventFailsSilently) {
  const QueryPtr query = CollectQuery();
  cv_cleanup_event(query->event);
  query->event = nullptr;
  const LogCapture log(kTrace);
  for (const std::int32_t attribute : {1, 2, 4, 5, 19}) {
    EXPECT_EQ(voltaris_addQualifier(query.get(), attribute, "x"), -1);
  }
  EXPECT_EQ(log.lines(), Lines{});
  query->action = 12;
  EXPECT_EQ(voltaris_addQualifier(query.get(), 4, "x"), -2);
  EXPECT_EQ(log.lines().size(), 1u);
}

}  // namespace
