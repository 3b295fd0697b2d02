// The attributes of a query: what each adds to the message, the columns, and the size budget.
#include <gtest/gtest.h>

#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/guard.h"

namespace {

using namespace vt::testing;

// Deliberately on top of what the elements take: header, digest and a reserve.
constexpr std::uint32_t kAllowance = 180;
constexpr std::uint32_t kLimit = 1400;

QueryPtr Make(QueryCreator create) { return QueryPtr(create("office", 7)); }

std::string GetLine(const std::string& message) { return "voltaris_addGetAttribute: " + message; }
std::string SetLine(const std::string& message) { return "voltaris_addSetAttribute: " + message; }

// What one GET adds on a query that is no sum.
struct GetCase {
  std::int32_t attribute;
  std::uint32_t type;
  std::uint32_t length;  // of the placeholder
  const char* wire;
};

constexpr GetCase kGets[] = {
    {1, 1, 36, "00000001 00000030 00000000 36*00"},
    {2, 7, 0, "00000007 0000000c 00000000"},
    {3, 8, 0, "00000008 0000000c 00000000"},
    {4, 9, 0, "00000009 0000000c 00000000"},
    {5, 10, 0, "0000000a 0000000c 00000000"},
    {6, 11, 0, "0000000b 0000000c 00000000"},
    {7, 12, 1, "0000000c 0000000d 00000000 00"},
    {8, 13, 2, "0000000d 0000000e 00000000 0000"},
    {9, 14, 1, "0000000e 0000000d 00000000 00"},
    {10, 17, 1, "00000011 0000000d 00000000 00"},
    {11, 22, 4, "00000016 00000010 00000000 00000000"},
    {12, 23, 16, "00000017 0000001c 00000000 16*00"},
    {13, 28, 84, "0000001c 00000038 00000000 44*00"},
    {14, 29, 2, "0000001d 0000000e 00000000 0000"},
    {15, 34, 4, "00000022 00000010 00000000 00000000"},
    {16, 36, 44, "00000024 00000038 00000000 44*00"},
    {17, 38, 4, "00000026 00000010 00000000 00000000"},
    {18, 39, 22, "00000027 00000022 00000000 22*00"},
    {19, 41, 1, "00000029 0000000d 00000000 00"},
    {20, 46, 10, "0000002e 00000016 00000000 10*00"},
    {21, 48, 0, "00000030 0000000c 00000000"},
    {22, 51, 4, "00000033 00000010 00000000 00000000"},
};

std::vector<std::int32_t> ColumnsOfGet(std::int32_t attribute) {
  if (attribute == 8 || attribute == 16 || attribute == 18) return {attribute, 7};
  return {attribute};
}

TEST(AddGetAttribute, AddsAPlaceholderOfEveryType) {
  for (const GetCase& row : kGets) {
    SCOPED_TRACE(row.attribute);
    const QueryPtr query = Make(voltaris_createCollectQuery);
    const LogCapture log(kTrace);
    ASSERT_EQ(voltaris_addGetAttribute(query.get(), row.attribute), 0);
    EXPECT_EQ(log.lines(),
              (Lines{{kDebug, GetLine("adding type of length " + std::to_string(row.length))}}));
    ASSERT_EQ(query->event->pak->tlv_count, 2);
    const Tlv* const tlv = LastElement(query.get());
    EXPECT_EQ(tlv->type, row.type);
    EXPECT_EQ(tlv->length, row.length + 12);
    EXPECT_EQ(tlv->qualifier, 0u);
    EXPECT_EQ(Wire(tlv), Hex(row.wire));
    EXPECT_EQ(Columns(query.get()), ColumnsOfGet(row.attribute));
    EXPECT_EQ(query->attribute_count, ColumnsOfGet(row.attribute).size());
  }
}

TEST(AddGetAttribute, OfANeighborLogs84AndLeavesAs56Bytes) {
  const QueryPtr query = Make(voltaris_createCollectQuery);
  const LogCapture log(kDebug);
  ASSERT_EQ(voltaris_addGetAttribute(query.get(), 13), 0);
  EXPECT_TRUE(log.Has(kDebug, GetLine("adding type of length 84")));
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("0000001c 00000038 00000000 44*00"));
}

TEST(AddGetAttribute, OfUsageAddsOneElementAndAUnitsColumn) {
  const QueryPtr query = Make(voltaris_createCollectQuery);
  ASSERT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
  EXPECT_EQ(query->event->pak->tlv_count, 2);
  EXPECT_EQ(Columns(query.get()), (std::vector<std::int32_t>{8, 7}));
  EXPECT_EQ(query->attribute_count, 2u);
}

TEST(AddGetAttribute, KeepsTheOrderOfTheCalls) {
  const QueryPtr query = Make(voltaris_createCollectQuery);
  for (const std::int32_t attribute : {4, 18, 4, 16, 2}) {
    ASSERT_EQ(voltaris_addGetAttribute(query.get(), attribute), 0);
  }
  EXPECT_EQ(Columns(query.get()), (std::vector<std::int32_t>{4, 18, 7, 4, 16, 7, 2}));
  EXPECT_EQ(query->attribute_count, 7u);
  EXPECT_EQ(query->attributes.depth, 7);
  EXPECT_EQ(query->event->pak->tlv_count, 6);
}

TEST(AddGetAttribute, TestsNeitherClassNorActionOfOtherQueries) {
  for (const QueryCreator create : {&voltaris_createSetQuery, &CreateFurtherQuery}) {
    const QueryPtr query = Make(create);
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), 4), 0);
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
    EXPECT_EQ(query->event->pak->tlv_count, 3);
  }
  // Only the sum is special among the aggregating actions.
  const QueryPtr average = Make(voltaris_createSumQuery);
  average->action = 11;
  EXPECT_EQ(voltaris_addGetAttribute(average.get(), 4), 0);
  EXPECT_EQ(LastElement(average.get())->type, 9u);
}

TEST(AddGetAttribute, RefusesNumbersThatNameNoAttribute) {
  for (const std::int32_t attribute : {0, 23, -1, 255, INT32_MAX, INT32_MIN}) {
    for (const QueryCreator create : {&voltaris_createCollectQuery, &voltaris_createSumQuery}) {
      const QueryPtr query = Make(create);
      const LogCapture log(kDebug);
      EXPECT_EQ(voltaris_addGetAttribute(query.get(), attribute), -1);
      EXPECT_EQ(log.lines(), (Lines{{kError, GetLine("Invalid attribute type.")}}));
      EXPECT_EQ(query->event->pak->tlv_count, 1);
      EXPECT_EQ(query->attribute_count, 0u);
    }
  }
}

TEST(AddGetAttribute, OfUsageOnASumQueryAddsAnAggregateOfZeros) {
  const QueryPtr query = Make(voltaris_createSumQuery);
  const LogCapture log(kDebug);
  ASSERT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
  EXPECT_EQ(log.lines(), Lines{});
  ASSERT_EQ(query->event->pak->tlv_count, 2);
  const Tlv* const tlv = LastElement(query.get());
  EXPECT_EQ(tlv->type, 0x8000002Bu);
  EXPECT_EQ(static_cast<const aggregated_value*>(tlv->value)->entry_count, 1u);
  EXPECT_EQ(vt_get_tlv_size(tlv), 81u);
  EXPECT_EQ(Wire(tlv), Hex("8000002b | 00000051 | 00000000 | 32*00 | 00000000 | 00000001 | "
                           "00000000 | 23*00 | 0000"));
  EXPECT_EQ(Columns(query.get()), (std::vector<std::int32_t>{8, 7}));
  EXPECT_EQ(query->attribute_count, 2u);
}

TEST(AddGetAttribute, OfADeltaVectorOnASumQueryAddsAnAggregateOfZeros) {
  const QueryPtr query = Make(voltaris_createSumQuery);
  ASSERT_EQ(voltaris_addGetAttribute(query.get(), 16), 0);
  const Tlv* const tlv = LastElement(query.get());
  EXPECT_EQ(vt_get_tlv_size(tlv), 123u);
  EXPECT_EQ(Wire(tlv), Hex("8000002d | 0000007b | 00000000 | 32*00 | 00000000 | 00000001 | "
                           "00000000 | 23*00 | 44*00"));
  EXPECT_EQ(Columns(query.get()), (std::vector<std::int32_t>{16, 7}));
}

TEST(AddGetAttribute, OnASumQuerySupportsUsageAndDeltaVectorOnly) {
  for (const GetCase& row : kGets) {
    if (row.attribute == 8 || row.attribute == 16) continue;
    const QueryPtr query = Make(voltaris_createSumQuery);
    const LogCapture log(kDebug);
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), row.attribute), -1) << row.attribute;
    EXPECT_EQ(log.lines(),
              (Lines{{kWarn, GetLine("Sum query only supports usage and delta vector")}}));
    EXPECT_EQ(query->event->pak->tlv_count, 1);
    EXPECT_EQ(query->attribute_count, 0u);
  }
}

TEST(AddGetAttribute, OfANameOnASumQueryFails) {
  const QueryPtr query = Make(voltaris_createSumQuery);
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_addGetAttribute(query.get(), 4), -1);
  EXPECT_TRUE(log.Has(kWarn, GetLine("Sum query only supports usage and delta vector")));
}

// ExpectLastRoom checks that need bytes beside the allowance are the last that fit.
void ExpectLastRoom(QueryCreator create, std::int32_t attribute, std::uint32_t need) {
  SCOPED_TRACE("attribute " + std::to_string(attribute));
  const QueryPtr fits = Make(create);
  FillTo(fits.get(), kLimit - kAllowance - need);
  EXPECT_EQ(voltaris_addGetAttribute(fits.get(), attribute), 0);
  EXPECT_EQ(fits->event->pak->tlv_count, 3);

  const QueryPtr full = Make(create);
  FillTo(full.get(), kLimit - kAllowance - need + 1);
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_addGetAttribute(full.get(), attribute), -1);
  EXPECT_EQ(log.lines(),
            (Lines{{kWarn, GetLine("Unable to add GET attribute " + std::to_string(attribute) +
                                   ", query packet has reached maximum size")}}));
  EXPECT_EQ(full->event->pak->tlv_count, 2);
  EXPECT_EQ(full->attribute_count, 0u);
}

TEST(AddGetAttribute, FillsTheMessageUpTo1400Bytes) {
  // The table's length counts, also where fewer bytes leave (13).
  for (const GetCase& row : kGets) {
    ExpectLastRoom(voltaris_createCollectQuery, row.attribute, row.length + 12);
  }
}

TEST(AddGetAttribute, OnASumQueryReckonsWith94And136Bytes) {
  ExpectLastRoom(voltaris_createSumQuery, 8, 94);
  ExpectLastRoom(voltaris_createSumQuery, 16, 136);
}

TEST(AddGetAttribute, FailsSilentlyWhenTheElementCannotBeAdded) {
  for (const std::int32_t attribute : {4, 8, 13, 20}) {
    SCOPED_TRACE(attribute);
    std::size_t allocations = 0;
    {
      const QueryPtr query = Make(voltaris_createCollectQuery);
      const AllocationCount count;
      ASSERT_EQ(voltaris_addGetAttribute(query.get(), attribute), 0);
      allocations = count.allocations();
    }
    const std::size_t entries = ColumnsOfGet(attribute).size();
    for (std::size_t k = 0; k < allocations; ++k) {
      SCOPED_TRACE(k);
      const QueryPtr query = Make(voltaris_createCollectQuery);
      const LogCapture log(kInfo);
      AllocationFault fault = AllocationFault::Nth(k);
      EXPECT_EQ(voltaris_addGetAttribute(query.get(), attribute), -1);
      fault.Disarm();
      const bool element_added = k + entries >= allocations;
      EXPECT_EQ(query->event->pak->tlv_count, element_added ? 2 : 1);
      // The list entries come last; for them the element stays in the message.
      EXPECT_EQ(log.lines(), element_added ? (Lines{{kFatal, GetLine("Out of memory")}}) : Lines{});
      const std::size_t columns = element_added ? k + entries - allocations : 0;
      EXPECT_EQ(query->attribute_count, columns);
      EXPECT_EQ(Columns(query.get()).size(), columns);
    }
  }
}

TEST(AddGetAttribute, WithoutMemoryForTheUnitsColumnKeepsTheFirst) {
  const QueryPtr query = Make(voltaris_createSumQuery);
  std::size_t allocations = 0;
  {
    const QueryPtr other = Make(voltaris_createSumQuery);
    const AllocationCount count;
    ASSERT_EQ(voltaris_addGetAttribute(other.get(), 8), 0);
    allocations = count.allocations();
  }
  const LogCapture log(kDebug);
  AllocationFault fault = AllocationFault::Nth(allocations - 1);
  EXPECT_EQ(voltaris_addGetAttribute(query.get(), 8), -1);
  fault.Disarm();
  EXPECT_EQ(log.lines(), (Lines{{kFatal, GetLine("Out of memory")}}));
  EXPECT_EQ(Columns(query.get()), (std::vector<std::int32_t>{8}));
  EXPECT_EQ(query->attribute_count, 1u);
  EXPECT_EQ(LastElement(query.get())->type, 0x8000002Bu);
}

TEST(AddGetAttribute, OnASumQueryIgnoresWhetherTheAggregateWasAdded) {
  const QueryPtr query = Make(voltaris_createSumQuery);
  const LogCapture log(kDebug);
  AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
  fault.Disarm();
  EXPECT_TRUE(fault.hit());
  EXPECT_EQ(log.lines(), Lines{});
  EXPECT_EQ(query->attribute_count, 2u);
}

TEST(AddGetAttribute, SurvivesTheLossOfTheElementsWhenTheListCannotGrow) {
  const QueryPtr query = Make(voltaris_createCollectQuery);
  for (int i = 1; i < 16; ++i) ASSERT_EQ(voltaris_addGetAttribute(query.get(), 4), 0);
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), 4), -1);
  }
  EXPECT_EQ(query->event->tlvs, nullptr);
  EXPECT_EQ(query->attribute_count, 15u);
  EXPECT_EQ(voltaris_addGetAttribute(query.get(), 9), 0);
}

TEST(AddGetAttribute, OnAQueryWithoutAnEventFailsSilently) {
  const QueryPtr query = Make(voltaris_createCollectQuery);
  cv_cleanup_event(query->event);
  query->event = nullptr;
  const LogCapture log(kTrace);
  EXPECT_EQ(voltaris_addGetAttribute(query.get(), 8), -1);
  EXPECT_EQ(log.lines(), Lines{});
  EXPECT_EQ(voltaris_addGetAttribute(query.get(), 0), -1);
  EXPECT_EQ(log.lines(), (Lines{{kError, GetLine("Invalid attribute type.")}}));
}

// Set values: a text, or the record or number of the type in host order.
struct SetCase {
  std::int32_t attribute;
  const void* value;
  std::uint32_t length;  // that the element is given
  const char* wire;
};

TEST(AddSetAttribute, EncodesAValueOfEveryType) {
  const sender_id id = {{{1, 2, 3}}, 0x01020304};
  const std::int8_t units = -3;
  const std::uint16_t usage = 0x1234;
  const std::uint8_t level = 5;
  const std::int32_t number = -2;
  const std::uint32_t flags = 0xF0000001;
  std::uint8_t address[16] = {2, 0, 0x1d, 0x10, 192, 168, 1, 7};
  char label[] = "rack";
  char block[] = {9, 8};
  neighbor ngbr = {};
  ngbr.id.bytes[31] = 0x1F;
  ngbr.label = label;
  ngbr.data_len = 2;
  ngbr.data = block;
  ngbr.flag = 1;
  const delta_vector deltas = {{1, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0x01020304}};
  const usage_vector usages = {{1, 0xFFFF, 0, 0, 0, 0, 0, 0, 0, 0, 0x0102}};
  char text[] = "Mon";
  const recurrence recur = {text, 7, 8, 1};
  const SetCase kSets[] = {
      {1, &id, 48, "00000001 00000030 00000000 010203 29*00 01020304"},
      {2, "desk", 17, "00000007 00000010 00000000 6465736b"},
      {3, "lab", 16, "00000008 0000000f 00000000 6c6162"},
      {4, "lamp", 17, "00000009 00000010 00000000 6c616d70"},
      {5, "a,b", 16, "0000000a 00000010 00000000 612c6200"},
      {6, "bad", 16, "0000000b 0000000f 00000000 626164"},
      {7, &units, 13, "0000000c 0000000d 00000000 fd"},
      {8, &usage, 14, "0000000d 0000000e 00000000 1234"},
      {9, &level, 13, "0000000e 0000000d 00000000 05"},
      {10, &level, 13, "00000011 0000000d 00000000 05"},
      {11, &number, 16, "00000016 00000010 00000000 fffffffe"},
      {12, address, 28, "00000017 0000001c 00000000 02001d10 c0a80107 8*00"},
      {13, &ngbr, 96,
       "0000001c 0000003e 00000000 31*00 1f 00000004 7261636b 00000002 0908 00000001"},
      {14, &usage, 14, "0000001d 0000000e 00000000 1234"},
      {15, &flags, 16, "00000022 00000010 00000000 f0000001"},
      {16, &deltas, 56, "00000024 00000038 00000000 00000001 ffffffff 32*00 01020304"},
      {17, &number, 16, "00000026 00000010 00000000 fffffffe"},
      {18, &usages, 34, "00000027 00000022 00000000 0001 ffff 16*00 0102"},
      {19, &level, 13, "00000029 0000000d 00000000 05"},
      {20, &recur, 25, "0000002e 00000019 00000000 00000003 4d6f6e 07 08 00000001"},
      {21, "xyz", 16, "00000030 0000000f 00000000 78797a"},
      {22, &number, 16, "00000033 00000010 00000000 fffffffe"},
  };
  for (const SetCase& row : kSets) {
    SCOPED_TRACE(row.attribute);
    const QueryPtr query = Make(voltaris_createSetQuery);
    const LogCapture log(kTrace);
    ASSERT_EQ(voltaris_addSetAttribute(query.get(), row.attribute, row.value), 0);
    EXPECT_EQ(log.lines(), Lines{});
    ASSERT_EQ(query->event->pak->tlv_count, 2);
    const Tlv* const tlv = LastElement(query.get());
    EXPECT_EQ(tlv->length, row.length);
    EXPECT_EQ(tlv->qualifier, 0u);
    EXPECT_EQ(Wire(tlv), Hex(row.wire));
    // No units column, not even for 8, 16 and 18.
    EXPECT_EQ(Columns(query.get()), (std::vector<std::int32_t>{row.attribute}));
    EXPECT_EQ(query->attribute_count, 1u);
  }
}

TEST(AddSetAttribute, CopiesTheValue) {
  const QueryPtr query = Make(voltaris_createSetQuery);
  std::uint8_t level = 3;
  char name[] = "lamp";
  ASSERT_EQ(voltaris_addSetAttribute(query.get(), 9, &level), 0);
  ASSERT_EQ(voltaris_addSetAttribute(query.get(), 4, name), 0);
  level = 9;
  name[0] = 'X';
  EXPECT_EQ(Wire(query->event->tlvs[1]), Hex("0000000e 0000000d 00000000 03"));
  EXPECT_EQ(Wire(query->event->tlvs[2]), Hex("00000009 00000010 00000000 6c616d70"));
}

TEST(AddSetAttribute, ReadsNumbersAtOddAddresses) {
  const QueryPtr query = Make(voltaris_createSetQuery);
  GuardedBytes id = GuardedBytes::AtOddAddress(Hex("32*41 07000000") + Bytes{0});
  ASSERT_EQ(voltaris_addSetAttribute(query.get(), 1, id.data()), 0);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("00000001 00000030 00000000 32*41 00000007"));
}

TEST(AddSetAttribute, RefusesNumbersThatNameNoAttribute) {
  for (const std::int32_t attribute : {0, 23, -1, INT32_MAX, INT32_MIN}) {
    // The number goes before class and action.
    for (const QueryCreator create :
         {&voltaris_createSetQuery, &voltaris_createCollectQuery, &voltaris_createSumQuery}) {
      const QueryPtr query = Make(create);
      const LogCapture log(kDebug);
      EXPECT_EQ(voltaris_addSetAttribute(query.get(), attribute, "x"), -1);
      EXPECT_EQ(log.lines(), (Lines{{kError, SetLine("Invalid attribute type.")}}));
    }
  }
}

TEST(AddSetAttribute, OnASumQueryIsMinus1) {
  const QueryPtr query = Make(voltaris_createSumQuery);
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_addSetAttribute(query.get(), 4, "x"), -1);
  EXPECT_EQ(log.lines(), (Lines{{kWarn, SetLine("not supported for class type 11")}}));
  EXPECT_EQ(query->event->pak->tlv_count, 1);
}

TEST(AddSetAttribute, OnACollectQueryIsMinus2) {
  const QueryPtr query = Make(voltaris_createCollectQuery);
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_addSetAttribute(query.get(), 4, "x"), -2);
  EXPECT_EQ(log.lines(), (Lines{{kWarn, SetLine("not supported for action type 11")}}));
  EXPECT_EQ(query->event->pak->tlv_count, 1);
}

TEST(AddSetAttribute, OnTheFurtherActionIsMinus2) {
  const QueryPtr query = Make(CreateFurtherQuery);
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_addSetAttribute(query.get(), 4, "x"), -2);
  EXPECT_EQ(log.lines(), (Lines{{kWarn, SetLine("not supported for action type 14")}}));
}

TEST(AddSetAttribute, RefusesANullValueOfAFixedLength) {
  for (const std::int32_t attribute :
       {1, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 22}) {
    const QueryPtr query = Make(voltaris_createSetQuery);
    const LogCapture log(kDebug);
    EXPECT_EQ(voltaris_addSetAttribute(query.get(), attribute, nullptr), -1);
    EXPECT_EQ(log.lines(),
              (Lines{{kWarn, SetLine("Can't add attribute " + std::to_string(attribute) +
                                     " due to invalid value address.")}}));
    EXPECT_EQ(query->event->pak->tlv_count, 1);
    EXPECT_EQ(query->attribute_count, 0u);
  }
}

TEST(AddSetAttribute, OfANullTextAddsAnEmptyElement) {
  for (const std::int32_t attribute : {2, 3, 4, 5, 6, 21}) {
    const QueryPtr query = Make(voltaris_createSetQuery);
    ASSERT_EQ(voltaris_addSetAttribute(query.get(), attribute, nullptr), 0);
    const Tlv* const tlv = LastElement(query.get());
    EXPECT_EQ(tlv->length, 12u);
    EXPECT_EQ(tlv->value, nullptr);
    EXPECT_EQ(vt_get_tlv_size(tlv), 12u);
    EXPECT_EQ(Columns(query.get()), (std::vector<std::int32_t>{attribute}));
  }
}

TEST(AddSetAttribute, OfAnEmptyTextCountsTheTerminator) {
  const QueryPtr query = Make(voltaris_createSetQuery);
  ASSERT_EQ(voltaris_addSetAttribute(query.get(), 4, ""), 0);
  EXPECT_EQ(LastElement(query.get())->length, 13u);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("00000009 0000000c 00000000"));
}

TEST(AddSetAttribute, TheLengthIsHeldIn8BitsSo255CharactersWrapToAnEmptyValue) {
  const QueryPtr query = Make(voltaris_createSetQuery);
  const std::string text(255, 'n');
  ASSERT_EQ(voltaris_addSetAttribute(query.get(), 4, text.c_str()), 0);
  EXPECT_EQ(LastElement(query.get())->length, 12u);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("00000009 0000000c 00000000"));
  ASSERT_EQ(voltaris_addSetAttribute(query.get(), 5, text.c_str()), 0);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("0000000a 0000000c 00000000"));
}

TEST(AddSetAttribute, ALongTextGoesOutWholeAlthoughItsLengthWraps) {
  const QueryPtr query = Make(voltaris_createSetQuery);
  const std::string text(300, 'n');
  ASSERT_EQ(voltaris_addSetAttribute(query.get(), 4, text.c_str()), 0);
  EXPECT_EQ(LastElement(query.get())->length, 57u);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("00000009 00000138 00000000 300*6e"));
}

TEST(AddSetAttribute, LongKeywordsAreCutByTheWrappedLength) {
  const QueryPtr query = Make(voltaris_createSetQuery);
  const std::string text(300, 'k');
  ASSERT_EQ(voltaris_addSetAttribute(query.get(), 5, text.c_str()), 0);
  EXPECT_EQ(LastElement(query.get())->length, 57u);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("0000000a 00000039 00000000 45*6b"));
}

TEST(AddSetAttribute, OfARecurrenceTakesItsEncodedSize) {
  const QueryPtr query = Make(voltaris_createSetQuery);
  recurrence value = {nullptr, 1, 2, 3};
  ASSERT_EQ(voltaris_addSetAttribute(query.get(), 20, &value), 0);
  EXPECT_EQ(LastElement(query.get())->length, 22u);
  EXPECT_EQ(Wire(LastElement(query.get())),
            Hex("0000002e 00000016 00000000 00000000 01 02 00000003"));
  // 246 characters take 256 bytes, which 8 bits hold as none.
  std::string text(246, 'r');
  value.text = text.data();
  ASSERT_EQ(voltaris_addSetAttribute(query.get(), 20, &value), 0);
  EXPECT_EQ(Wire(LastElement(query.get())), Hex("0000002e 0000000c 00000000"));
}

TEST(AddSetAttribute, FillsTheMessageUpToExactly1400Bytes) {
  const std::uint8_t level = 5;
  const recurrence recur = {nullptr, 1, 2, 3};
  const neighbor ngbr = {};
  const struct {
    std::int32_t attribute;
    const void* value;
    std::uint32_t need;
  } kCases[] = {{9, &level, 13},  {4, "lamp", 17}, {5, "a,b", 16},
                {20, &recur, 22}, {13, &ngbr, 96}, {4, nullptr, 12}};
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.attribute);
    const QueryPtr fits = Make(voltaris_createSetQuery);
    FillTo(fits.get(), kLimit - kAllowance - row.need);
    EXPECT_EQ(voltaris_addSetAttribute(fits.get(), row.attribute, row.value), 0);
    EXPECT_EQ(fits->event->pak->tlv_count, 3);

    const QueryPtr full = Make(voltaris_createSetQuery);
    FillTo(full.get(), kLimit - kAllowance - row.need + 1);
    const LogCapture log(kDebug);
    EXPECT_EQ(voltaris_addSetAttribute(full.get(), row.attribute, row.value), -1);
    EXPECT_EQ(
        log.lines(),
        (Lines{{kWarn, SetLine("Unable to add SET attribute " + std::to_string(row.attribute) +
                               ", query packet has reached maximum size")}}));
    EXPECT_EQ(full->event->pak->tlv_count, 2);
    EXPECT_EQ(full->attribute_count, 0u);
  }
}

TEST(AddSetAttribute, WithoutMemoryForTheColumnKeepsTheElement) {
  const std::uint8_t level = 5;
  const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
    QueryPtr query;
    {
      const AllocationFault::Pause pause;
      query = Make(voltaris_createSetQuery);
    }
    const LogCapture log(kDebug);
    const std::int32_t status = voltaris_addSetAttribute(query.get(), 9, &level);
    fault.Disarm();
    EXPECT_EQ(status, fault.hit() ? -1 : 0);
    const bool added = query->event->pak->tlv_count == 2;
    EXPECT_EQ(log.lines(),
              fault.hit() && added ? (Lines{{kFatal, SetLine("Out of memory")}}) : Lines{});
    EXPECT_EQ(query->attribute_count, fault.hit() ? 0u : 1u);
  });
  // The element with its value, and the column.
  EXPECT_EQ(failures, 2u);
}

TEST(AddSetAttribute, OnAQueryWithoutAnEventFailsSilently) {
  const QueryPtr query = Make(voltaris_createSetQuery);
  cv_cleanup_event(query->event);
  query->event = nullptr;
  const LogCapture log(kTrace);
  EXPECT_EQ(voltaris_addSetAttribute(query.get(), 4, "x"), -1);
  EXPECT_EQ(log.lines(), Lines{});
  query->action = 11;
  EXPECT_EQ(voltaris_addSetAttribute(query.get(), 4, "x"), -2);
  query->class_ = 11;
  EXPECT_EQ(voltaris_addSetAttribute(query.get(), 4, "x"), -1);
  EXPECT_EQ(log.lines(), (Lines{{kWarn, SetLine("not supported for action type 11")},
                                {kWarn, SetLine("not supported for class type 11")}}));
}

}  // namespace
