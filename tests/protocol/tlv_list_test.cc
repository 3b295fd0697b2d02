#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/protocol/events.h"

namespace vt::protocol {
namespace {

using vt::testing::AddText;
using vt::testing::AllocationFault;
using vt::testing::Bytes;
using vt::testing::EventPtr;
using vt::testing::GuardedBytes;
using vt::testing::HeapBytes;
using vt::testing::Hex;
using vt::testing::kSilent;
using vt::testing::kTrace;
using vt::testing::LogCapture;
using vt::testing::NewEvent;
using vt::testing::SweepAllocationFailures;

int AddUsage(Event* ev, std::uint16_t usage, std::uint32_t qualifier = 0) {
  return cv_add_tlv_common(ev, 13, 14, &usage, qualifier);
}

std::uint16_t UsageOf(const Tlv* tlv) {
  std::uint16_t usage = 0;
  std::memcpy(&usage, tlv->value, sizeof usage);
  return usage;
}

TEST(TlvList, AppendStoresTypeLengthQualifierAndACopy) {
  const EventPtr ev = NewEvent();
  std::uint16_t usage = 700;
  EXPECT_EQ(cv_add_tlv_common(ev.get(), 13, 14, &usage, 1), 0);
  usage = 0;
  ASSERT_EQ(ev->pak->tlv_count, 1);
  const Tlv* tlv = ev->tlvs[0];
  ASSERT_NE(tlv, nullptr);
  EXPECT_EQ(tlv->type, 13u);
  EXPECT_EQ(tlv->length, 14u);
  EXPECT_EQ(tlv->qualifier, 1u);
  EXPECT_EQ(UsageOf(tlv), 700);
}

TEST(TlvList, AddTlvAppendsAnAttribute) {
  const EventPtr ev = NewEvent();
  const std::uint8_t level = 5;
  EXPECT_EQ(cv_add_tlv(ev.get(), 14, 13, &level), 0);
  ASSERT_EQ(ev->pak->tlv_count, 1);
  EXPECT_EQ(ev->tlvs[0]->qualifier, 0u);
}

TEST(TlvList, AppendKeepsTheQualifierWordWhole) {
  const EventPtr ev = NewEvent();
  EXPECT_EQ(AddUsage(ev.get(), 1, 0xFFFFFF01u), 0);
  EXPECT_EQ(ev->tlvs[0]->qualifier, 0xFFFFFF01u);
}

TEST(TlvList, SeventeenElementsGrowTheArrayTwice) {
  const EventPtr ev = NewEvent();
  EXPECT_EQ(ev->tlv_capacity, 0u);
  for (std::uint16_t i = 0; i < 16; ++i) {
    ASSERT_EQ(AddUsage(ev.get(), i), 0);
    EXPECT_EQ(ev->tlv_capacity, 16u);
  }
  ASSERT_EQ(AddUsage(ev.get(), 16), 0);
  EXPECT_EQ(ev->tlv_capacity, 32u);
  ASSERT_EQ(ev->pak->tlv_count, 17);
  for (std::uint16_t i = 0; i < 17; ++i) EXPECT_EQ(UsageOf(ev->tlvs[i]), i);
  for (std::uint16_t i = 17; i < 32; ++i) EXPECT_EQ(ev->tlvs[i], nullptr);
}

TEST(TlvList, ALengthBelowTheElementHeaderAddsNothing) {
  for (const std::uint32_t length : {0u, 1u, 11u}) {
    const EventPtr ev = NewEvent();
    const LogCapture log(kTrace);
    EXPECT_EQ(cv_add_tlv_common(ev.get(), 13, length, "xx", 0), 1) << length;
    EXPECT_EQ(ev->pak->tlv_count, 0) << length;
    EXPECT_TRUE(log.lines().empty()) << length;
  }
}

TEST(TlvList, ALengthOfTwelveAddsAnElementWithoutAValue) {
  const EventPtr ev = NewEvent();
  EXPECT_EQ(cv_add_tlv_common(ev.get(), 13, 12, "xx", 1), 0);
  ASSERT_EQ(ev->pak->tlv_count, 1);
  EXPECT_EQ(ev->tlvs[0]->length, 12u);
  EXPECT_EQ(ev->tlvs[0]->value, nullptr);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 12u);
}

TEST(TlvList, AFailedCloneLeavesTheSlotEmptyAndGivesItsStatus) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddUsage(ev.get(), 1), 0);
  EXPECT_EQ(cv_add_tlv_common(ev.get(), 9, 16, nullptr, 0), 4);
  EXPECT_EQ(ev->pak->tlv_count, 1);
  EXPECT_EQ(ev->tlvs[1], nullptr);
  EXPECT_EQ(AddUsage(ev.get(), 2), 0);
  EXPECT_EQ(UsageOf(ev->tlvs[1]), 2);
}

TEST(TlvList, AValueLongerThanAnyBlockIsNoMemory) {
  const EventPtr ev = NewEvent();
  EXPECT_EQ(cv_add_tlv_common(ev.get(), 10, 12 + 0x80000000u, "x", 0), 1);
  EXPECT_EQ(ev->pak->tlv_count, 0);
}

// Types that carry no value keep the length that was asked for, and travel as a bare header.
TEST(TlvList, ATypeWithoutValueKeepsItsLength) {
  for (const std::uint32_t type : {37u, 42u}) {
    const EventPtr ev = NewEvent();
    const std::uint32_t value = 9;
    EXPECT_EQ(cv_add_tlv(ev.get(), type, 16, &value), 0);
    EXPECT_EQ(ev->tlvs[0]->length, 16u);
    EXPECT_EQ(ev->tlvs[0]->value, nullptr);
    EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 12u);
  }
}

TEST(TlvList, TakesValuesAtOddAddresses) {
  const struct {
    std::uint32_t type;
    std::uint32_t length;
    const char* value;
  } rows[] = {{1, 48, "36*11"},  {2, 44, "32*22"},  {35, 48, "36*33"}, {36, 56, "44*44"},
              {39, 34, "22*55"}, {13, 14, "6677"},  {25, 16, "88*01"}, {38, 16, "99999999"},
              {31, 16, "04*05"}, {10, 17, "5*0102"}};
  for (const auto& row : rows) {
    const EventPtr ev = NewEvent();
    const GuardedBytes value = GuardedBytes::AtOddAddress(Hex(row.value));
    ASSERT_EQ(cv_add_tlv(ev.get(), row.type, row.length, value.data()), 0) << row.type;
    EXPECT_EQ(std::memcmp(ev->tlvs[0]->value, value.data(), row.length - 12), 0) << row.type;
  }
}

TEST(TlvList, EndsAt65535Elements) {
  const EventPtr ev = NewEvent();
  ev->pak->tlv_count = 65534;
  EXPECT_EQ(AddUsage(ev.get(), 3), 0);
  EXPECT_EQ(ev->pak->tlv_count, 65535);
  EXPECT_EQ(ev->tlv_capacity, 65536u);
  EXPECT_EQ(UsageOf(ev->tlvs[65534]), 3);
  EXPECT_EQ(AddUsage(ev.get(), 4), 1);
  EXPECT_EQ(ev->pak->tlv_count, 65535);
  EXPECT_EQ(ev->tlvs[65535], nullptr);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 14u);
}

TEST(TlvList, AFailedElementAllocationAddsNothing) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddUsage(ev.get(), 1), 0);
  const LogCapture log(kTrace);
  const std::size_t count = SweepAllocationFailures([&](AllocationFault& fault) {
    const int before = ev->pak->tlv_count;
    const int status = AddText(ev.get(), 9, "lamp");
    fault.Disarm();
    EXPECT_EQ(status, fault.hit() ? 1 : 0);
    EXPECT_EQ(ev->pak->tlv_count, before + (fault.hit() ? 0 : 1));
    EXPECT_EQ(UsageOf(ev->tlvs[0]), 1);
  });
  EXPECT_EQ(count, 1u);  // one block for the element and its value
  EXPECT_TRUE(log.lines().empty());
}

TEST(TlvList, AFailedGrowthEmptiesTheListAndKeepsTheCount) {
  const EventPtr ev = NewEvent();
  for (std::uint16_t i = 0; i < 15; ++i) ASSERT_EQ(AddUsage(ev.get(), i), 0);
  ASSERT_EQ(AddText(ev.get(), 9, "with a value of its own"), 0);
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(AddUsage(ev.get(), 16), 1);
  }
  EXPECT_EQ(ev->tlvs, nullptr);
  EXPECT_EQ(ev->tlv_capacity, 0u);
  EXPECT_EQ(ev->pak->tlv_count, 16);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 0u);
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 13), nullptr);
}

TEST(TlvList, GrowsAgainAfterAFailedGrowth) {
  const EventPtr ev = NewEvent();
  for (std::uint16_t i = 0; i < 16; ++i) ASSERT_EQ(AddUsage(ev.get(), i), 0);
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    ASSERT_EQ(AddUsage(ev.get(), 16), 1);
  }
  EXPECT_EQ(AddUsage(ev.get(), 17), 0);
  EXPECT_EQ(ev->tlv_capacity, 32u);
  EXPECT_EQ(ev->pak->tlv_count, 17);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 14u);
  const Tlv* tlv = cv_get_next_tlv(ev.get(), 13);
  ASSERT_NE(tlv, nullptr);
  EXPECT_EQ(UsageOf(tlv), 17);
}

TEST(TlvList, GrowsPastTheCountAfterItsElementsWereFreed) {
  const EventPtr ev = NewEvent();
  for (std::uint16_t i = 0; i < 20; ++i) ASSERT_EQ(AddUsage(ev.get(), i), 0);
  EXPECT_EQ(cv_free_tlvs(ev.get()), 0);
  EXPECT_EQ(ev->tlvs, nullptr);
  EXPECT_EQ(ev->tlv_capacity, 0u);
  EXPECT_EQ(ev->pak->tlv_count, 20);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 0u);
  EXPECT_EQ(AddUsage(ev.get(), 99), 0);
  EXPECT_EQ(ev->tlv_capacity, 32u);
  EXPECT_EQ(ev->pak->tlv_count, 21);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 14u);
  const Tlv* tlv = cv_get_next_tlv(ev.get(), 13);
  ASSERT_NE(tlv, nullptr);
  EXPECT_EQ(UsageOf(tlv), 99);
}

TEST(TlvList, OfAnEventThatIsNotDecodedYetTakesNoBytes) {
  const Bytes image = Hex("00 02 0000 00000000 00 10 0014 48*00");
  const EventPtr ev(cv_mkevent_from_rawbuffer(60, image.data()));
  ASSERT_NE(ev, nullptr);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 0u);
}

TEST(TlvList, ACapacityWithoutSlotsIsNotBelieved) {
  const EventPtr ev = NewEvent();
  ev->tlv_capacity = 16;
  ASSERT_EQ(AddUsage(ev.get(), 7), 0);
  EXPECT_EQ(ev->tlv_capacity, 16u);
  EXPECT_EQ(UsageOf(ev->tlvs[0]), 7);
}

TEST(TlvList, EverySizeOfAnAppendSurvivesEveryFailedAllocation) {
  const std::size_t count = SweepAllocationFailures([](AllocationFault& fault) {
    const LogCapture quiet(kSilent);
    const EventPtr ev = NewEvent();
    if (ev == nullptr) return;
    for (std::uint16_t i = 0; i < 40; ++i) {
      const int status = (i % 2 == 0) ? AddUsage(ev.get(), i) : AddText(ev.get(), 7, "role");
      EXPECT_TRUE(status == 0 || status == 1);
    }
    EXPECT_LE(vt_get_total_tlvs_data_size(ev.get()), 20u * 14 + 20u * 16);
    fault.Disarm();
    EXPECT_EQ(AddUsage(ev.get(), 41), 0);
  });
  EXPECT_GT(count, 40u);
}

TEST(FreeTlvs, ReleasesSlotsAboveTheCount) {
  const EventPtr ev = NewEvent();
  for (std::uint16_t i = 0; i < 3; ++i) ASSERT_EQ(AddUsage(ev.get(), i), 0);
  ev->pak->tlv_count = 1;
  EXPECT_EQ(cv_free_tlvs(ev.get()), 0);  // the leak check sees what would be left
  EXPECT_EQ(ev->pak->tlv_count, 1);
}

TEST(FreeTlvs, OfAnEventWithoutListResetsTheCapacity) {
  const EventPtr ev = NewEvent();
  ev->tlv_capacity = 16;
  EXPECT_EQ(cv_free_tlvs(ev.get()), 0);
  EXPECT_EQ(ev->tlv_capacity, 0u);
}

TEST(FreeTlvs, SkipsEmptySlots) {
  const EventPtr ev = NewEvent();
  for (std::uint16_t i = 0; i < 3; ++i) ASSERT_EQ(AddUsage(ev.get(), i), 0);
  vt_free_tlv_ptr(ev->tlvs[1]);
  ev->tlvs[1] = nullptr;
  EXPECT_EQ(cv_free_tlvs(ev.get()), 0);
  EXPECT_EQ(ev->tlvs, nullptr);
}

TEST(TlvLookup, FindsTheFirstElementOfExactlyThatType) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 9, "name"), 0);
  ASSERT_EQ(AddUsage(ev.get(), 1, 1), 0);
  ASSERT_EQ(AddUsage(ev.get(), 2, 0), 0);
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 13), ev->tlvs[1]);
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 9), ev->tlvs[0]);
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 7), nullptr);
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 0x8000000Du), nullptr);
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 0x4000000Du), nullptr);
}

TEST(TlvLookup, ComparesTheAggregatedBitToo) {
  const EventPtr ev = NewEvent();
  const device_header device = vt::testing::Device('d');
  ASSERT_EQ(cv_aggr_ack(ev.get(), 1, &device), 0);
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 42), nullptr);
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 0x8000002Au), ev->tlvs[0]);
}

TEST(TlvLookup, SkipsEmptySlots) {
  const EventPtr ev = NewEvent();
  for (std::uint16_t i = 0; i < 3; ++i) ASSERT_EQ(AddUsage(ev.get(), i), 0);
  vt_free_tlv_ptr(ev->tlvs[0]);
  ev->tlvs[0] = nullptr;
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 13), ev->tlvs[1]);
  std::int32_t index = 0;
  std::uint32_t len = 0;
  EXPECT_EQ(cv_get_next_tlv_value_common(ev.get(), &index, 13, &len, 0), ev->tlvs[1]->value);
  EXPECT_EQ(index, 1);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 28u);
}

TEST(TlvLookup, RefusesAnEventThatIsNotUsable) {
  EXPECT_EQ(cv_get_next_tlv(nullptr, 13), nullptr);
  const EventPtr ev = NewEvent();
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 13), nullptr);  // no list yet
  ASSERT_EQ(AddUsage(ev.get(), 1), 0);
  ev->pak_valid = 0;
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 13), nullptr);
  ev->pak_valid = 1;
  message_header* const pak = ev->pak;
  ev->pak = nullptr;
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 13), nullptr);
  ev->pak = pak;
  EXPECT_NE(cv_get_next_tlv(ev.get(), 13), nullptr);
}

TEST(TlvLookup, ByIndexRefusesAnEventThatIsNotUsable) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddUsage(ev.get(), 1), 0);
  const auto refused = [](const Event* event) {
    std::int32_t index = 0;
    std::uint32_t len = 77;
    const void* value = cv_get_next_tlv_value_common(event, &index, 13, &len, 0);
    return value == nullptr && index == -1 && len == 0;
  };
  EXPECT_TRUE(refused(nullptr));
  EXPECT_FALSE(refused(ev.get()));
  ev->pak_valid = 0;
  EXPECT_TRUE(refused(ev.get()));
  ev->pak_valid = 1;
  message_header* const pak = ev->pak;
  ev->pak = nullptr;
  EXPECT_TRUE(refused(ev.get()));
  ev->pak = pak;
  cv_free_tlvs(ev.get());
  EXPECT_TRUE(refused(ev.get()));
}

TEST(TlvLookup, ByIndexWalksAllMatchesWhenTheCallerAddsOne) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 9, "lamp", 1), 0);
  ASSERT_EQ(AddUsage(ev.get(), 5, 1), 0);
  ASSERT_EQ(AddText(ev.get(), 9, "tv", 1), 0);
  std::int32_t index = 0;
  std::uint32_t len = 77;
  EXPECT_STREQ(static_cast<char*>(cv_get_next_tlv_value_common(ev.get(), &index, 9, &len, 1)),
               "lamp");
  EXPECT_EQ(index, 0);
  EXPECT_EQ(len, 5u);
  // Without adding one the same element is found again.
  EXPECT_STREQ(static_cast<char*>(cv_get_next_tlv_value_common(ev.get(), &index, 9, &len, 1)),
               "lamp");
  EXPECT_EQ(index, 0);
  ++index;
  EXPECT_STREQ(static_cast<char*>(cv_get_next_tlv_value_common(ev.get(), &index, 9, &len, 1)),
               "tv");
  EXPECT_EQ(index, 2);
  EXPECT_EQ(len, 3u);
  ++index;
  EXPECT_EQ(cv_get_next_tlv_value_common(ev.get(), &index, 9, &len, 1), nullptr);
  EXPECT_EQ(index, -1);
  EXPECT_EQ(len, 0u);
}

TEST(TlvLookup, ByIndexAtTheCountGivesMinusOne) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddUsage(ev.get(), 1), 0);
  for (const std::int32_t start : {1, 2, 16, INT32_MAX, -1, -2, INT32_MIN}) {
    std::int32_t index = start;
    std::uint32_t len = 77;
    EXPECT_EQ(cv_get_next_tlv_value_common(ev.get(), &index, 13, &len, 0), nullptr) << start;
    EXPECT_EQ(index, -1) << start;
    EXPECT_EQ(len, 0u) << start;
  }
}

TEST(TlvLookup, ByIndexComparesTheQualifier) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddUsage(ev.get(), 1, 0), 0);
  std::int32_t index = 0;
  std::uint32_t len = 77;
  EXPECT_EQ(cv_get_next_tlv_value_common(ev.get(), &index, 13, &len, 1), nullptr);
  EXPECT_EQ(index, -1);
  EXPECT_EQ(len, 0u);
}

TEST(TlvLookup, ByIndexOfAnEmptyElementIsAHitWithNull) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(cv_add_tlv(ev.get(), 9, 12, nullptr), 0);
  std::int32_t index = 0;
  std::uint32_t len = 77;
  EXPECT_EQ(cv_get_next_tlv_value_common(ev.get(), &index, 9, &len, 0), nullptr);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(len, 0u);
}

TEST(TlvLookup, StopsAtTheCapacityWhenTheCountIsLarger) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddUsage(ev.get(), 1), 0);
  ev->pak->tlv_count = 500;
  EXPECT_EQ(cv_get_next_tlv(ev.get(), 9), nullptr);
  std::int32_t index = 0;
  std::uint32_t len = 77;
  EXPECT_EQ(cv_get_next_tlv_value_common(ev.get(), &index, 9, &len, 0), nullptr);
  EXPECT_EQ(index, -1);
  index = 400;
  EXPECT_EQ(cv_get_next_tlv_value_common(ev.get(), &index, 13, &len, 0), nullptr);
  EXPECT_EQ(index, -1);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 14u);
}

TEST(TotalTlvSize, IsTheSumOfTheWireSizes) {
  const EventPtr ev = NewEvent();
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 0u);
  ASSERT_EQ(AddText(ev.get(), 9, "lamp"), 0);  // 16: the terminator does not travel
  ASSERT_EQ(AddUsage(ev.get(), 1), 0);         // 14
  const Bytes id(36, 'i');
  ASSERT_EQ(cv_add_tlv(ev.get(), 1, 48, id.data()), 0);  // 48
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 78u);
}

TEST(TotalTlvSize, OfAnEventWithoutElementsIsZero) {
  EXPECT_EQ(vt_get_total_tlvs_data_size(nullptr), 0u);
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddUsage(ev.get(), 1), 0);
  message_header* const pak = std::exchange(ev->pak, nullptr);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 0u);
  ev->pak = pak;
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 14u);
}

// Text and identity blocks of the exact size: nothing behind them is read.
TEST(TlvList, ReadsNoMoreThanTheValue) {
  const EventPtr ev = NewEvent();
  const HeapBytes keywords(Hex("61 00 62 00"));
  EXPECT_EQ(cv_add_tlv(ev.get(), 10, 16, keywords.data()), 0);
  EXPECT_BYTES(ev->tlvs[0]->value, 4, "61006200");
  const GuardedBytes name(Hex("6c616d7000"));
  EXPECT_EQ(cv_add_tlv(ev.get(), 9, 400, name.data()), 0);
  EXPECT_EQ(ev->tlvs[1]->length, 400u);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 32u);
}

}  // namespace
}  // namespace vt::protocol
