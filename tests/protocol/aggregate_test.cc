#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/pdu_image.h"
#include "tests/protocol/events.h"

namespace vt::protocol {
namespace {

using vt::testing::AllocationFault;
using vt::testing::Bytes;
using vt::testing::Device;
using vt::testing::EventPtr;
using vt::testing::FillAllocations;
using vt::testing::GuardedBytes;
using vt::testing::Hex;
using vt::testing::KeyedContext;
using vt::testing::kSilent;
using vt::testing::LogCapture;
using vt::testing::NewEvent;
using vt::testing::PduImage;
using vt::testing::SweepAllocationFailures;
using vt::testing::Text;
using vt::testing::TlvArea;
using vt::testing::Wrap;

const aggregated_value& ValueOf(const Tlv* tlv) {
  return *static_cast<const aggregated_value*>(tlv->value);
}

const plain_entry& PlainAt(const Tlv* tlv, std::size_t index) {
  return *static_cast<const plain_entry*>(ValueOf(tlv).entries[index]);
}

const combo_entry& ComboAt(const Tlv* tlv, std::size_t index) {
  return *static_cast<const combo_entry*>(ValueOf(tlv).entries[index]);
}

int AddDeviceUsage(Event* ev, std::uint32_t tag, const device_header& device) {
  const std::uint16_t usage = 700;
  return cv_add_aggr_type_tlv(ev, 13, &usage, tag, &device, nullptr);
}

// Lamp is a usage header with all texts set; the texts are the caller's and are only copied.
usage_cmn_hdr Lamp() {
  usage_cmn_hdr usage;
  std::memset(&usage, 0, sizeof usage);
  static char name[] = "lamp-7";
  static char role[] = "lamp";
  static char keywords[] = "a,b";
  usage.word = 1;
  usage.value = -2;
  usage.text1 = name;
  usage.text2 = role;
  usage.small = -3;
  usage.byte1 = 5;
  usage.byte2 = 50;
  usage.text3 = keywords;
  return usage;
}

usage_cmn_hdr NoUsage() {
  usage_cmn_hdr usage;
  std::memset(&usage, 0, sizeof usage);
  return usage;
}

int CreatePdu(Event* ev) {
  const hmac_context key = KeyedContext("secret");
  return vtn_createPdu(ev, 0, 0, 10, 11, Bytes(32, 'a').data(), 1, &key, 0);
}

TEST(Aggregate, GathersTwoValuesOfOneDeviceInOneElement) {
  const EventPtr ev = NewEvent();
  EXPECT_EQ(AddDeviceUsage(ev.get(), 1, Device('d')), 0);
  EXPECT_EQ(AddDeviceUsage(ev.get(), 2, Device('d')), 0);
  ASSERT_EQ(ev->pak->tlv_count, 1);
  const Tlv* tlv = ev->tlvs[0];
  EXPECT_EQ(tlv->type, 0x8000000Du);
  EXPECT_EQ(tlv->length, 60u);
  EXPECT_EQ(tlv->qualifier, 0u);
  EXPECT_BYTES(ValueOf(tlv).device.id.bytes, 32, "32*64");
  ASSERT_EQ(ValueOf(tlv).entry_count, 2u);
  EXPECT_EQ(PlainAt(tlv, 0).tag, 1u);
  EXPECT_EQ(PlainAt(tlv, 1).tag, 2u);
  EXPECT_EQ(PlainAt(tlv, 1).data_len, 2u);
  EXPECT_EQ(*static_cast<std::uint16_t*>(PlainAt(tlv, 1).data), 700);
}

TEST(Aggregate, KeepsTwoDevicesInTwoElements) {
  const EventPtr ev = NewEvent();
  device_header second = Device('d');
  second.id.bytes[31] = 'e';  // the last byte of the identity counts
  EXPECT_EQ(AddDeviceUsage(ev.get(), 1, Device('d')), 0);
  EXPECT_EQ(AddDeviceUsage(ev.get(), 2, second), 0);
  EXPECT_EQ(AddDeviceUsage(ev.get(), 3, Device('d')), 0);
  ASSERT_EQ(ev->pak->tlv_count, 2);
  EXPECT_EQ(ValueOf(ev->tlvs[0]).entry_count, 2u);
  EXPECT_EQ(ValueOf(ev->tlvs[1]).entry_count, 1u);
  EXPECT_EQ(PlainAt(ev->tlvs[1], 0).tag, 2u);
}

TEST(Aggregate, KeepsTwoTypesInTwoElements) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  const std::uint8_t level = 5;
  EXPECT_EQ(AddDeviceUsage(ev.get(), 1, device), 0);
  EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), 14, &level, 1, &device, nullptr), 0);
  ASSERT_EQ(ev->pak->tlv_count, 2);
  EXPECT_EQ(ev->tlvs[1]->type, 0x8000000Eu);
}

TEST(Aggregate, ComparesTheIdentityAndNotTheBlock) {
  const EventPtr ev = NewEvent();
  device_header device = Device('d');
  char block[] = "0123456789abcdef";
  device.data = block;
  device.data_len = 16;
  EXPECT_EQ(AddDeviceUsage(ev.get(), 1, Device('d')), 0);
  EXPECT_EQ(AddDeviceUsage(ev.get(), 2, device), 0);
  EXPECT_EQ(ev->pak->tlv_count, 1);
}

TEST(Aggregate, OwnsACopyOfTheDeviceBlock) {
  const EventPtr ev = NewEvent();
  device_header device = Device('d');
  char block[] = "0123456789abcdef";
  device.data = block;
  device.data_len = 16;
  EXPECT_EQ(AddDeviceUsage(ev.get(), 1, device), 0);
  std::memset(block, 0, sizeof block);
  const device_header& copy = ValueOf(ev->tlvs[0]).device;
  ASSERT_EQ(copy.data_len, 16u);
  EXPECT_EQ(std::memcmp(copy.data, "0123456789abcdef", 16), 0);
}

// The length of a new aggregate is the same number in both word sizes, whatever its record takes.
TEST(Aggregate, ReportsFortyEightBytesOfValue) {
  const EventPtr ev = NewEvent();
  EXPECT_EQ(AddDeviceUsage(ev.get(), 1, Device('d')), 0);
  std::int32_t index = 0;
  std::uint32_t len = 0;
  EXPECT_EQ(cv_get_next_tlv_value_common(ev.get(), &index, 0x8000000Du, &len, 0),
            ev->tlvs[0]->value);
  EXPECT_EQ(len, 48u);
}

TEST(Aggregate, GrowsItsEntriesBySixteen) {
  const EventPtr ev = NewEvent();
  for (std::uint32_t tag = 0; tag < 33; ++tag) {
    ASSERT_EQ(AddDeviceUsage(ev.get(), tag, Device('d')), 0);
    // Address sanitizers check the slots; the count tells that none was lost.
    ASSERT_EQ(ValueOf(ev->tlvs[0]).entry_count, tag + 1);
  }
  for (std::uint32_t tag = 0; tag < 33; ++tag) EXPECT_EQ(PlainAt(ev->tlvs[0], tag).tag, tag);
}

TEST(Aggregate, AllocatesTheEntriesInBlocksOfSixteen) {
  const EventPtr ev = NewEvent();
  const std::size_t slots = sizeof(void*);
  for (std::uint32_t tag = 0; tag < 33; ++tag) {
    std::size_t bytes = 0;
    std::size_t allocations = 0;
    {
      const vt::testing::AllocationCount count;
      ASSERT_EQ(AddDeviceUsage(ev.get(), tag, Device('d')), 0);
      bytes = count.bytes();
      allocations = count.allocations();
    }
    if (tag == 0) continue;  // this one made the aggregate as well
    const bool grows = tag == 16 || tag == 32;
    EXPECT_EQ(allocations, grows ? 3u : 2u) << tag;
    EXPECT_EQ(bytes, sizeof(plain_entry) + 2 + (grows ? (tag + 16) * slots : 0)) << tag;
  }
}

TEST(Aggregate, ReceivedOneTakesFurtherEntries) {
  PduImage image;
  image.elements = {
      Hex("8000000d 00000046 00000000 32*64 00000000 00000003 "
          "00000001 0001 00000002 0002 00000003 0003")};
  const EventPtr ev = Wrap(image.Signed(Text("secret")));
  const hmac_context key = KeyedContext("secret");
  ASSERT_EQ(cv_unpack_event(ev.get(), &key), 0);
  for (std::uint32_t tag = 4; tag <= 20; ++tag)
    ASSERT_EQ(AddDeviceUsage(ev.get(), tag, Device('d')), 0);
  ASSERT_EQ(ev->pak->tlv_count, 1);
  ASSERT_EQ(ValueOf(ev->tlvs[0]).entry_count, 20u);
  for (std::uint32_t i = 0; i < 20; ++i) EXPECT_EQ(PlainAt(ev->tlvs[0], i).tag, i + 1);
}

TEST(Aggregate, ReceivedWithoutEntriesTakesTheFirst) {
  PduImage image;
  image.elements = {Hex("8000000d 00000034 00000000 32*64 00000000 00000000")};
  const EventPtr ev = Wrap(image.Signed(Text("secret")));
  const hmac_context key = KeyedContext("secret");
  ASSERT_EQ(cv_unpack_event(ev.get(), &key), 0);
  EXPECT_EQ(AddDeviceUsage(ev.get(), 4, Device('d')), 0);
  EXPECT_EQ(ev->pak->tlv_count, 1);
  EXPECT_EQ(ValueOf(ev->tlvs[0]).entry_count, 1u);
}

TEST(Aggregate, ReceivedWithoutAValueIsPassedOver) {
  PduImage image;
  image.elements = {Hex("8000000d 0000000c 00000000"),
                    Hex("8000000d 00000034 00000000 32*64 00000000 00000000")};
  const EventPtr ev = Wrap(image.Signed(Text("secret")));
  const hmac_context key = KeyedContext("secret");
  ASSERT_EQ(cv_unpack_event(ev.get(), &key), 0);
  const device_header device = Device('d');
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, &device, 0), ev->tlvs[1]);
  const device_header other = Device('x');
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, &other, 0), nullptr);
  EXPECT_EQ(AddDeviceUsage(ev.get(), 1, other), 0);
  EXPECT_EQ(ev->pak->tlv_count, 3);
}

TEST(FindAggregate, CreatesOnlyWhenTheLowByteSaysSo) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  for (const std::uint32_t create : {0u, 0x100u, 0xFFFFFF00u}) {
    EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, &device, create), nullptr) << create;
    EXPECT_EQ(ev->pak->tlv_count, 0);
  }
  for (const std::uint32_t create : {1u, 0x80u, 0x1FFu}) {
    const Tlv* tlv = cv_get_next_tlv_by_dh(ev.get(), 13, &device, create);
    ASSERT_NE(tlv, nullptr) << create;
    EXPECT_EQ(tlv, ev->tlvs[0]);
    EXPECT_EQ(ev->pak->tlv_count, 1);
  }
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, &device, 0), ev->tlvs[0]);
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, &device, 0x100), ev->tlvs[0]);
}

TEST(FindAggregate, AddsTheFlagToTheType) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  const Tlv* tlv = cv_get_next_tlv_by_dh(ev.get(), 0x8000000Du, &device, 1);
  ASSERT_NE(tlv, nullptr);
  EXPECT_EQ(tlv->type, 0x8000000Du);
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, &device, 0), tlv);
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 0x4000000Du, &device, 0), nullptr);
}

TEST(FindAggregate, NeedsAnEventAndADevice) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  EXPECT_EQ(cv_get_next_tlv_by_dh(nullptr, 13, &device, 1), nullptr);
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, nullptr, 1), nullptr);
  ASSERT_EQ(AddDeviceUsage(ev.get(), 1, device), 0);
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, nullptr, 1), nullptr);
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, nullptr, 0), nullptr);
  EXPECT_EQ(ev->pak->tlv_count, 1);
}

TEST(FindAggregate, SkipsEmptySlots) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  ASSERT_EQ(AddDeviceUsage(ev.get(), 1, Device('x')), 0);
  ASSERT_EQ(AddDeviceUsage(ev.get(), 1, device), 0);
  vt_free_tlv_ptr(ev->tlvs[0]);
  ev->tlvs[0] = nullptr;
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, &device, 0), ev->tlvs[1]);
}

TEST(FindAggregate, ReadsExactlyThirtyTwoBytesOfIdentity) {
  const EventPtr ev = NewEvent();
  device_header device = Device(0);
  device.id.bytes[31] = 1;
  ASSERT_EQ(AddDeviceUsage(ev.get(), 1, device), 0);
  device.id.bytes[31] = 2;
  EXPECT_EQ(cv_get_next_tlv_by_dh(ev.get(), 13, &device, 0), nullptr);
}

TEST(CreateAggregate, AlwaysAppendsANewElement) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  const Tlv* first = vt_create_aggr_tlv(ev.get(), 0x80000009u, &device);
  const Tlv* second = vt_create_aggr_tlv(ev.get(), 0x80000009u, &device);
  ASSERT_EQ(ev->pak->tlv_count, 2);
  EXPECT_EQ(first, ev->tlvs[0]);
  EXPECT_EQ(second, ev->tlvs[1]);
  EXPECT_EQ(first->length, 60u);
  EXPECT_EQ(ValueOf(first).entry_count, 0u);
  EXPECT_EQ(ValueOf(first).entries, nullptr);
}

TEST(CreateAggregate, WithoutADeviceIsNull) {
  const EventPtr ev = NewEvent();
  EXPECT_EQ(vt_create_aggr_tlv(ev.get(), 13, nullptr), nullptr);
  EXPECT_EQ(ev->pak->tlv_count, 0);
}

TEST(CreateAggregate, WithoutMemoryIsNull) {
  device_header device = Device('d');
  char block[] = "0123456789abcdef";
  device.data = block;
  device.data_len = 16;
  const LogCapture quiet(kSilent);
  const std::size_t count = SweepAllocationFailures([&](AllocationFault& fault) {
    const EventPtr ev = [] {
      const AllocationFault::Pause pause;
      return NewEvent();
    }();
    const Tlv* tlv = vt_create_aggr_tlv(ev.get(), 0x8000000Du, &device);
    fault.Disarm();
    EXPECT_EQ(tlv == nullptr, fault.hit());
    EXPECT_EQ(ev->pak->tlv_count, fault.hit() ? 0 : 1);
  });
  EXPECT_GT(count, 2u);
}

TEST(AddToAggregate, ATypeThatCannotBeGatheredFails) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), 8, "home", 1, &device, nullptr), 1);
  const Tlv* tlv = cv_get_next_tlv_by_dh(ev.get(), 8, &device, 0);
  ASSERT_NE(tlv, nullptr);
  EXPECT_EQ(ValueOf(tlv).entry_count, 0u);
}

TEST(AddToAggregate, AFailedFillLeavesTheCount) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  ASSERT_EQ(AddDeviceUsage(ev.get(), 1, device), 0);
  EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), 13, nullptr, 2, &device, nullptr), 1);
  EXPECT_EQ(ValueOf(ev->tlvs[0]).entry_count, 1u);
}

// Deliberate: what can be neither found nor created is silently not added.
TEST(AddToAggregate, WithoutAnAggregateReportsSuccess) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  const std::uint16_t usage = 1;
  const usage_cmn_hdr none = NoUsage();
  EXPECT_EQ(cv_add_aggr_type_tlv(nullptr, 13, &usage, 1, &device, nullptr), 0);
  EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), 13, &usage, 1, nullptr, nullptr), 0);
  EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), 43, &usage, 1, nullptr, &none), 0);
  EXPECT_EQ(cv_aggr_ack(nullptr, 1, &device), 0);
  EXPECT_EQ(cv_aggr_ack(ev.get(), 1, nullptr), 0);
  EXPECT_EQ(ev->pak->tlv_count, 0);
  {
    const AllocationFault fault = AllocationFault::FromNth(0);
    EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), 13, &usage, 1, &device, nullptr), 0);
  }
  {
    const AllocationFault fault = AllocationFault::FromNth(1);  // the entry comes first here
    EXPECT_EQ(cv_aggr_ack(ev.get(), 1, &device), 0);
  }
  EXPECT_EQ(ev->pak->tlv_count, 0);
}

TEST(AddToAggregate, CombinesTheUsageHeaderWithTheValue) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('c');
  const usage_cmn_hdr usage = Lamp();
  const std::uint16_t watts = 2000;
  EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), 43, &watts, 9, &device, &usage), 0);
  ASSERT_EQ(ev->pak->tlv_count, 1);
  EXPECT_EQ(ev->tlvs[0]->type, 0x8000002Bu);
  EXPECT_EQ(ev->tlvs[0]->length, 60u);
  const combo_entry& entry = ComboAt(ev->tlvs[0], 0);
  EXPECT_EQ(entry.tag, 9u);
  EXPECT_EQ(entry.usage.word, 1u);
  EXPECT_EQ(entry.usage.value, -2);
  EXPECT_STREQ(entry.usage.text1, "lamp-7");
  EXPECT_NE(entry.usage.text1, usage.text1);
  EXPECT_STREQ(entry.usage.text2, "lamp");
  EXPECT_EQ(entry.usage.small, -3);
  EXPECT_EQ(entry.usage.byte1, 5);
  EXPECT_EQ(entry.usage.byte2, 50);
  EXPECT_STREQ(entry.usage.text3, "a,b");
  EXPECT_EQ(*static_cast<std::uint16_t*>(entry.data), 2000);

  ASSERT_EQ(CreatePdu(ev.get()), 0);
  EXPECT_TRUE(vt::testing::SameBytes(
      Hex("8000002b 0000005e 00000000 32*63 00000000 00000001 00000009 00000001 fffffffe "
          "00000006 6c616d702d37 00000004 6c616d70 fd 05 32 00000003 612c62 07d0"),
      TlvArea(*ev)));
}

TEST(AddToAggregate, AnEmptyCombinedEntryTravelsWithEmptyTexts) {
  const struct {
    std::uint32_t type;
    const char* data;
    const char* wire;
  } rows[] = {
      {43, "2*00", "8000002b 00000051 00000000 32*00 00000000 00000001 00000000 23*00 0000"},
      {44, "22*00", "8000002c 00000065 00000000 32*00 00000000 00000001 00000000 23*00 22*00"},
      {45, "44*00", "8000002d 0000007b 00000000 32*00 00000000 00000001 00000000 23*00 44*00"},
  };
  const device_header device = Device(0);
  const usage_cmn_hdr usage = NoUsage();
  for (const auto& row : rows) {
    const EventPtr ev = NewEvent();
    const GuardedBytes data(Hex(row.data));
    ASSERT_EQ(cv_add_aggr_type_tlv(ev.get(), row.type, data.data(), 0, &device, &usage), 0);
    EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), Hex(row.wire).size());
    ASSERT_EQ(CreatePdu(ev.get()), 0);
    EXPECT_TRUE(vt::testing::SameBytes(Hex(row.wire), TlvArea(*ev))) << row.type;
    const EventPtr back = Wrap(Bytes(ev->raw, ev->raw + ev->raw_len));
    const hmac_context key = KeyedContext("secret");
    EXPECT_EQ(cv_unpack_event(back.get(), &key), 0) << row.type;
  }
}

TEST(AddToAggregate, ACombinedTypeNeedsAUsageHeader) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  const std::uint16_t watts = 1;
  EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), 43, &watts, 1, &device, nullptr), 1);
  EXPECT_EQ(ValueOf(ev->tlvs[0]).entry_count, 0u);
}

TEST(AddToAggregate, ACombinedTypeNeedsData) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  const usage_cmn_hdr usage = Lamp();
  for (const std::uint32_t type : {43u, 44u, 45u}) {
    EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), type, nullptr, 1, &device, &usage), 1) << type;
  }
}

// With bit 30 a type is not combined, and the plain table does not know it.
TEST(AddToAggregate, ACombinedTypeWithBitThirtyFails) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  const usage_cmn_hdr usage = Lamp();
  const std::uint16_t watts = 1;
  EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), 0x4000002Bu, &watts, 1, &device, &usage), 1);
}

TEST(AddToAggregate, SurvivesEveryFailedAllocation) {
  const LogCapture quiet(kSilent);
  const device_header device = Device('d');
  const usage_cmn_hdr usage = Lamp();
  const Bytes data(44, 1);
  for (const std::uint32_t type : {7u, 10u, 13u, 36u, 43u, 44u, 45u}) {
    const std::size_t count = SweepAllocationFailures([&](AllocationFault& fault) {
      const EventPtr ev = [&] {
        const AllocationFault::Pause pause;
        EventPtr made = NewEvent();
        EXPECT_NE(vt_create_aggr_tlv(made.get(), type | 0x80000000u, &device), nullptr);
        return made;
      }();
      const char* text = "text";
      const void* value = type < 12 ? static_cast<const void*>(text) : data.data();
      const int status = cv_add_aggr_type_tlv(ev.get(), type, value, 1, &device, &usage);
      fault.Disarm();
      EXPECT_EQ(status, fault.hit() ? 1 : 0);
      EXPECT_EQ(ValueOf(ev->tlvs[0]).entry_count, fault.hit() ? 0u : 1u);
      EXPECT_EQ(cv_add_aggr_type_tlv(ev.get(), type, value, 2, &device, &usage), 0);
    });
    EXPECT_GT(count, 1u) << type;
  }
}

// Full is an Event with one aggregate whose entries fill their array.
EventPtr Full(std::uint32_t type) {
  EventPtr ev = NewEvent();
  const device_header device = Device('d');
  const usage_cmn_hdr usage = Lamp();
  const Bytes data(44, 1);
  for (std::uint32_t tag = 1; tag <= 16; ++tag) {
    EXPECT_EQ(type == 42 ? cv_aggr_ack(ev.get(), tag, &device)
                         : cv_add_aggr_type_tlv(ev.get(), type, data.data(), tag, &device, &usage),
              0);
  }
  return ev;
}

// A growth that fails empties the aggregate; whatever fails before leaves it as it was.
TEST(AddToAggregate, AFailedGrowthEmptiesTheAggregate) {
  const LogCapture quiet(kSilent);
  const device_header device = Device('d');
  const usage_cmn_hdr usage = Lamp();
  const Bytes data(44, 1);
  for (const std::uint32_t type : {13u, 36u, 42u, 43u, 45u}) {
    const auto append = [&](Event* ev, std::uint32_t tag) {
      return type == 42 ? cv_aggr_ack(ev, tag, &device)
                        : cv_add_aggr_type_tlv(ev, type, data.data(), tag, &device, &usage);
    };
    std::size_t emptied = 0;
    SweepAllocationFailures([&](AllocationFault& fault) {
      const EventPtr ev = [&] {
        const AllocationFault::Pause pause;
        return Full(type);
      }();
      const int status = append(ev.get(), 17);
      fault.Disarm();
      const aggregated_value& value = ValueOf(ev->tlvs[0]);
      ASSERT_EQ(status, fault.hit() ? 1 : 0);
      if (!fault.hit()) {
        EXPECT_EQ(value.entry_count, 17u);
        return;
      }
      if (value.entries == nullptr) {
        ++emptied;
        EXPECT_EQ(value.entry_count, 0u);
        EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 52u);
        EXPECT_EQ(CreatePdu(ev.get()), 0);
        EXPECT_EQ(ev->raw_len, 132u);
        cv_set_common_hdr(ev.get());
      } else {
        EXPECT_EQ(value.entry_count, 16u);
      }
      EXPECT_EQ(append(ev.get(), 18), 0);
      EXPECT_EQ(CreatePdu(ev.get()), 0);
    });
    EXPECT_EQ(emptied, 2u) << type;  // the growth alone, and with all that follows
  }
}

TEST(FillPlainEntry, CopiesAsTheTypeSays) {
  const struct {
    std::uint32_t type;
    const char* data;  // hexadecimal, exact
    std::uint32_t data_len;
  } rows[] = {
      {7, "616200", 2},        {9, "616200", 2},    {48, "616200", 2},   {10, "616200", 3},
      {12, "fd", 1},           {14, "05", 1},       {16, "32", 1},       {17, "33", 1},
      {13, "1388", 2},         {38, "01020304", 4}, {51, "05060708", 4}, {39, "11*0102", 22},
      {36, "11*01020304", 44},
  };
  for (const auto& row : rows) {
    for (const std::uint32_t flag : {0u, 0x80000000u}) {
      const Bytes bytes = Hex(row.data);
      const GuardedBytes data = GuardedBytes::AtOddAddress(bytes);
      plain_entry entry;
      std::memset(&entry, 0, sizeof entry);
      EXPECT_EQ(cv_populate_aggr_tlv_data(&entry, row.type | flag, data.data(), 77), 1) << row.type;
      EXPECT_EQ(entry.tag, 77u);
      EXPECT_EQ(entry.data_len, row.data_len) << row.type;
      EXPECT_TRUE(vt::testing::SameBytes(bytes, entry.data, bytes.size())) << row.type;
      std::free(entry.data);
    }
  }
}

// The terminator counts for keywords, and for no other text.
TEST(FillPlainEntry, CountsTheTerminatorOfKeywordsOnly) {
  plain_entry keywords;
  plain_entry name;
  std::memset(&keywords, 0, sizeof keywords);
  std::memset(&name, 0, sizeof name);
  EXPECT_EQ(cv_populate_aggr_tlv_data(&keywords, 10, "ab", 1), 1);
  EXPECT_EQ(cv_populate_aggr_tlv_data(&name, 9, "ab", 1), 1);
  EXPECT_EQ(keywords.data_len, 3u);
  EXPECT_EQ(name.data_len, 2u);
  std::free(keywords.data);
  std::free(name.data);
}

TEST(FillPlainEntry, RefusesEveryOtherType) {
  const std::uint32_t known[] = {7, 9, 10, 12, 13, 14, 16, 17, 36, 38, 39, 48, 51};
  const Bytes data(64, 0);
  for (std::uint32_t type = 0; type < 70; ++type) {
    if (std::find(std::begin(known), std::end(known), type) != std::end(known)) continue;
    plain_entry entry;
    std::memset(&entry, 0, sizeof entry);
    EXPECT_EQ(cv_populate_aggr_tlv_data(&entry, type, data.data(), 1), 0) << type;
    EXPECT_EQ(entry.data, nullptr) << type;
  }
}

TEST(FillPlainEntry, NeedsAnEntryAndData) {
  plain_entry entry;
  std::memset(&entry, 0, sizeof entry);
  EXPECT_EQ(cv_populate_aggr_tlv_data(nullptr, 13, "ab", 1), 0);
  for (const std::uint32_t type : {7u, 10u, 12u, 13u, 36u, 38u, 39u, 48u}) {
    EXPECT_EQ(cv_populate_aggr_tlv_data(&entry, type, nullptr, 1), 0) << type;
    EXPECT_EQ(entry.data, nullptr);
  }
}

TEST(FillPlainEntry, WithoutMemoryFails) {
  const Bytes data(44, 0);
  for (const std::uint32_t type : {7u, 9u, 10u, 12u, 13u, 14u, 16u, 17u, 36u, 38u, 39u, 48u, 51u}) {
    plain_entry entry;
    std::memset(&entry, 0, sizeof entry);
    int result = 1;
    {
      const AllocationFault fault = AllocationFault::Nth(0);
      result = cv_populate_aggr_tlv_data(&entry, type, data.data(), 1);
    }
    EXPECT_EQ(result, 0) << type;
    EXPECT_EQ(entry.data, nullptr) << type;
  }
}

TEST(FillComboEntry, CopiesTheHeaderAndTheBytesOfItsType) {
  const usage_cmn_hdr usage = Lamp();
  const struct {
    std::uint32_t type;
    std::size_t bytes;
  } rows[] = {{43, 2}, {44, 22}, {45, 44}, {0x8000002Bu, 2}, {0x8000002Cu, 22}, {0x8000002Du, 44}};
  for (const auto& row : rows) {
    const Bytes bytes(row.bytes, 0x6B);
    const GuardedBytes data = GuardedBytes::AtOddAddress(bytes);
    combo_entry entry;
    std::memset(&entry, 0xA5, sizeof entry);
    EXPECT_EQ(cv_populate_combo_tlv_data(&entry, row.type, data.data(), 5, &usage), 1) << row.type;
    EXPECT_EQ(entry.tag, 5u);
    EXPECT_STREQ(entry.usage.text1, "lamp-7");
    EXPECT_STREQ(entry.usage.text3, "a,b");
    EXPECT_TRUE(vt::testing::SameBytes(bytes, entry.data, bytes.size()));
    vt_free_usage_cmn_hdr(&entry.usage);
    std::free(entry.data);
  }
}

TEST(FillComboEntry, OfAnotherTypeLeavesAHeaderThatMayBeReleasedAgain) {
  const usage_cmn_hdr usage = Lamp();
  const Bytes data(44, 0);
  for (const std::uint32_t type : {13u, 39u, 42u, 46u, 0x4000002Bu}) {
    combo_entry entry;
    std::memset(&entry, 0, sizeof entry);
    EXPECT_EQ(cv_populate_combo_tlv_data(&entry, type, data.data(), 5, &usage), 0) << type;
    EXPECT_EQ(entry.usage.text1, nullptr);
    EXPECT_EQ(entry.usage.text2, nullptr);
    EXPECT_EQ(entry.usage.text3, nullptr);
    EXPECT_EQ(entry.data, nullptr);
    vt_free_usage_cmn_hdr(&entry.usage);
  }
}

TEST(FillComboEntry, NeedsAnEntryAHeaderAndData) {
  const usage_cmn_hdr usage = Lamp();
  combo_entry entry;
  std::memset(&entry, 0, sizeof entry);
  EXPECT_EQ(cv_populate_combo_tlv_data(nullptr, 43, "ab", 1, &usage), 0);
  EXPECT_EQ(cv_populate_combo_tlv_data(&entry, 43, "ab", 1, nullptr), 0);
  vt_free_usage_cmn_hdr(&entry.usage);
  for (const std::uint32_t type : {43u, 44u, 45u}) {
    EXPECT_EQ(cv_populate_combo_tlv_data(&entry, type, nullptr, 1, &usage), 0) << type;
    EXPECT_EQ(entry.data, nullptr);
    vt_free_usage_cmn_hdr(&entry.usage);
  }
}

TEST(FillComboEntry, WithoutMemoryFailsAndTheHeaderMayBeReleased) {
  const usage_cmn_hdr usage = Lamp();
  const Bytes data(44, 0);
  for (const std::uint32_t type : {43u, 44u, 45u}) {
    const std::size_t count = SweepAllocationFailures([&](AllocationFault& fault) {
      combo_entry entry;
      std::memset(&entry, 0, sizeof entry);
      const int result = cv_populate_combo_tlv_data(&entry, type, data.data(), 1, &usage);
      fault.Disarm();
      EXPECT_EQ(result, fault.hit() ? 0 : 1);
      EXPECT_EQ(entry.data == nullptr, fault.hit());
      vt_free_usage_cmn_hdr(&entry.usage);
      std::free(entry.data);
    });
    EXPECT_GT(count, 1u) << type;
  }
}

TEST(AggregateAck, GathersAcknowledgementsWithNothingButATag) {
  const FillAllocations garbage(0xA5);
  const EventPtr ev = NewEvent();
  device_header device = Device('d');
  EXPECT_EQ(cv_aggr_ack(ev.get(), 5, &device), 0);
  EXPECT_EQ(cv_aggr_ack(ev.get(), 0, &device), 0);
  ASSERT_EQ(ev->pak->tlv_count, 1);
  const Tlv* tlv = ev->tlvs[0];
  EXPECT_EQ(tlv->type, 0x8000002Au);
  EXPECT_EQ(tlv->length, 60u);
  ASSERT_EQ(ValueOf(tlv).entry_count, 2u);
  EXPECT_EQ(PlainAt(tlv, 0).tag, 5u);
  EXPECT_EQ(PlainAt(tlv, 1).tag, 0u);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(PlainAt(tlv, i).data_len, 0u);
    EXPECT_EQ(PlainAt(tlv, i).data, nullptr);
  }
  ASSERT_EQ(CreatePdu(ev.get()), 0);
  EXPECT_TRUE(vt::testing::SameBytes(
      Hex("8000002a 0000003c 00000000 32*64 00000000 00000002 00000005 00000000"), TlvArea(*ev)));
}

TEST(AggregateAck, GrowsItsEntriesBySixteen) {
  const EventPtr ev = NewEvent();
  const device_header device = Device('d');
  for (std::uint32_t tag = 0; tag < 40; ++tag) ASSERT_EQ(cv_aggr_ack(ev.get(), tag, &device), 0);
  ASSERT_EQ(ev->pak->tlv_count, 1);
  for (std::uint32_t tag = 0; tag < 40; ++tag) EXPECT_EQ(PlainAt(ev->tlvs[0], tag).tag, tag);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 52u + 40 * 4);
}

TEST(AggregateAck, SurvivesEveryFailedAllocation) {
  const LogCapture quiet(kSilent);
  const device_header device = Device('d');
  const std::size_t count = SweepAllocationFailures([&](AllocationFault& fault) {
    const EventPtr ev = [] {
      const AllocationFault::Pause pause;
      return NewEvent();
    }();
    const int status = cv_aggr_ack(ev.get(), 1, &device);
    fault.Disarm();
    if (!fault.hit()) {
      EXPECT_EQ(status, 0);
    } else if (ev->pak->tlv_count == 1 || fault.seen() == 1) {
      EXPECT_EQ(status, 1);  // the entry, or the array of entries
    } else {
      EXPECT_EQ(status, 0);  // the aggregate could not be made
    }
    EXPECT_EQ(cv_aggr_ack(ev.get(), 2, &device), 0);
    EXPECT_GE(ValueOf(ev->tlvs[0]).entry_count, 1u);
  });
  EXPECT_GT(count, 2u);
}

}  // namespace
}  // namespace vt::protocol
