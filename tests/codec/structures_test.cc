// The structured kinds: their wire form written out by hand, every truncation of it, copies,
// sizes and release.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/codec/codec_support.h"
#include "tests/harness/faults.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace {

using namespace vt::testing;

template <class Record>
using UnpackPtr = Record* (*)(const void*, std::uint32_t*, std::int32_t*, std::uint32_t*);
template <class Record>
using UnpackInto = void (*)(const void*, Record*, std::uint32_t*, std::int32_t*, std::uint32_t*);

// The owners of decoded records.
struct FreeNeighbor {
  void operator()(neighbor* value) const { vt_free_neighbor_ptr(value); }
};
struct FreeRecurrence {
  void operator()(recurrence* value) const { vt_free_recurrence_ptr(value); }
};
using NeighborPtr = std::unique_ptr<neighbor, FreeNeighbor>;
using RecurrencePtr = std::unique_ptr<recurrence, FreeRecurrence>;

// Filled is a caller's record that was never initialised.
template <class Record>
Record Filled() {
  Record record;
  std::memset(static_cast<void*>(&record), 0xAA, sizeof record);
  return record;
}

Bytes RawBytes(const void* record, std::size_t size) {
  const auto* bytes = static_cast<const std::uint8_t*>(record);
  return Bytes(bytes, bytes + size);
}

// ExpectPack packs into exactly the room of the expected bytes, at an odd address.
template <class Pack>
void ExpectPack(Pack pack, const char* hex) {
  const Bytes expected = Hex(hex);
  GuardedBytes out = GuardedBytes::AtOddAddress(Bytes(expected.size(), 0xEE));
  EXPECT_EQ(pack(out.data()), expected.size());
  EXPECT_TRUE(SameBytes(expected, out.data(), out.size()));
}

// Unpack calls a _ptr function on the first left bytes of wire, which end at a guard page.
template <class Record>
Record* Unpack(UnpackPtr<Record> unpack, const Bytes& wire, std::size_t left, UnpackReport* got) {
  const GuardedBytes input(Bytes(wire.begin(), wire.begin() + static_cast<std::ptrdiff_t>(left)));
  *got = UnpackReport{.remaining = static_cast<std::int32_t>(left)};
  return unpack(input.data(), &got->consumed, &got->remaining, &got->status);
}

// Boundary is how many of left bytes have been counted when a record runs short: up to the last of
// its pieces (fields, and the length words of texts and blocks) that was there.
std::uint32_t Boundary(const std::vector<std::uint32_t>& pieces, std::size_t left) {
  std::uint32_t whole = 0;
  for (const std::uint32_t piece : pieces) {
    if (whole + piece > left) break;
    whole += piece;
  }
  return whole;
}

void ExpectShortAt(const std::vector<std::uint32_t>& pieces, std::size_t left,
                   const UnpackReport& got) {
  EXPECT_EQ(got.status, 8U);
  EXPECT_EQ(got.consumed, Boundary(pieces, left));
  EXPECT_EQ(got.remaining, static_cast<std::int32_t>(left - Boundary(pieces, left)));
}

// ExpectTruncations cuts wire everywhere, and calls with less than nothing left.
template <class Record>
void ExpectTruncations(UnpackPtr<Record> unpack, const char* hex,
                       const std::vector<std::uint32_t>& pieces) {
  const Bytes wire = Hex(hex);
  for (std::size_t left = 0; left < wire.size(); ++left) {
    SCOPED_TRACE(left);
    UnpackReport got;
    EXPECT_EQ(Unpack(unpack, wire, left, &got), nullptr);
    ExpectShortAt(pieces, left, got);
  }
  const GuardedBytes nothing({});
  UnpackReport got{.remaining = -5};
  EXPECT_EQ(unpack(nothing.data(), &got.consumed, &got.remaining, &got.status), nullptr);
  EXPECT_EQ(got.status, 8U);
  EXPECT_EQ(got.consumed, 0U);
  EXPECT_EQ(got.remaining, -5);
}

// ExpectExhaustion fails each allocation of make, which returns null and status 1 then.
template <class Owner, class Make>
void ExpectExhaustion(Make make) {
  const FillAllocations fill(0xA5);
  EXPECT_GT(SweepAllocationFailures([&](AllocationFault& fault) {
              std::uint32_t status = 77;
              const Owner made(make(&status));
              EXPECT_EQ(made == nullptr, fault.hit());
              EXPECT_EQ(status, fault.hit() ? 1U : 0U);
            }),
            0U);
}

template <class Owner, class Record>
void ExpectUnpackExhaustion(UnpackPtr<Record> unpack, const char* hex) {
  const GuardedBytes input(Hex(hex));
  ExpectExhaustion<Owner>([&](std::uint32_t* status) {
    std::uint32_t consumed = 0;
    auto remaining = static_cast<std::int32_t>(input.size());
    return unpack(input.data(), &consumed, &remaining, status);
  });
}

// ---- corvane id.

TEST(CorvaneId, TravelsAsItIs) {
  corvane_id id;
  for (std::size_t i = 0; i < 32; ++i) id.bytes[i] = static_cast<std::uint8_t>(i);
  const char* wire = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
  ExpectPack([&](void* dst) { return vt_pack_corvane_id(dst, &id); }, wire);

  UnpackReport got;
  const BlockPtr<corvane_id> made(Unpack(vt_unpack_corvane_id_ptr, Hex(wire), 32, &got));
  ASSERT_NE(made, nullptr);
  EXPECT_BYTES(made->bytes, 32, wire);
  EXPECT_EQ(got.consumed, 32U);
  EXPECT_EQ(got.remaining, 0);
  EXPECT_EQ(got.status, 0U);

  const GuardedBytes input = GuardedBytes::AtOddAddress(Hex(wire));
  auto into = Filled<corvane_id>();
  got = UnpackReport{.remaining = 40};
  vt_unpack_corvane_id(input.data(), &into, &got.consumed, &got.remaining, &got.status);
  EXPECT_BYTES(into.bytes, 32, wire);
  EXPECT_EQ(got.consumed, 32U);
  EXPECT_EQ(got.remaining, 8);
  EXPECT_EQ(got.status, 0U);
}

TEST(CorvaneId, ThirtyOneBytesAreShortAndConsumeNothing) {
  const GuardedBytes input(Hex("31*61"));
  auto into = Filled<corvane_id>();
  UnpackReport got{.remaining = 31};
  vt_unpack_corvane_id(input.data(), &into, &got.consumed, &got.remaining, &got.status);
  EXPECT_EQ(got.status, 8U);
  EXPECT_EQ(got.consumed, 0U);
  EXPECT_EQ(got.remaining, 31);
  ExpectTruncations<corvane_id>(vt_unpack_corvane_id_ptr, "32*61", {32});
}

TEST(CorvaneId, ExhaustedMemoryIsStatusOne) {
  ExpectUnpackExhaustion<BlockPtr<corvane_id>>(&vt_unpack_corvane_id_ptr, "32*61");
}

// ---- sender id and event id.

constexpr const char* kSenderWire = "16*a1 16*a2 01020304";
constexpr const char* kEventWire = "0badcafe 16*a1 16*a2";

sender_id Sender() {
  sender_id sender = {};
  std::memset(sender.id.bytes, 0xA1, 16);
  std::memset(sender.id.bytes + 16, 0xA2, 16);
  sender.number = 0x01020304;
  return sender;
}

event_id EventId() {
  event_id event = {};
  event.id = Sender().id;
  event.number = 0x0BADCAFE;
  return event;
}

TEST(SenderId, IsTheIdentityThenTheNumber) {
  const sender_id sender = Sender();
  ExpectPack([&](void* dst) { return vt_pack_sender_id(dst, &sender); }, kSenderWire);
  EXPECT_EQ(vt_get_sender_id_size(&sender), 36U);
  UnpackReport got;
  const BlockPtr<sender_id> made(Unpack(vt_unpack_sender_id_ptr, Hex(kSenderWire), 36, &got));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(std::memcmp(made.get(), &sender, sizeof sender), 0);
  EXPECT_EQ(got.consumed, 36U);
  EXPECT_EQ(got.remaining, 0);
  EXPECT_EQ(got.status, 0U);
}

TEST(EventId, IsTheNumberThenTheIdentity) {
  const event_id event = EventId();
  ExpectPack([&](void* dst) { return vt_pack_event_id(dst, &event); }, kEventWire);
  EXPECT_EQ(vt_get_event_id_size(&event), 36U);
  UnpackReport got;
  const BlockPtr<event_id> made(Unpack(vt_unpack_event_id_ptr, Hex(kEventWire), 36, &got));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(std::memcmp(made.get(), &event, sizeof event), 0);
  EXPECT_EQ(got.consumed, 36U);
  EXPECT_EQ(got.status, 0U);
}

TEST(SenderId, EveryTruncationIsShort) {
  ExpectTruncations<sender_id>(vt_unpack_sender_id_ptr, kSenderWire, {32, 4});
}

TEST(EventId, EveryTruncationIsShort) {
  ExpectTruncations<event_id>(vt_unpack_event_id_ptr, kEventWire, {4, 32});
}

TEST(SenderId, ClonesIntoARecordAndIntoANewOne) {
  const sender_id sender = Sender();
  auto into = Filled<sender_id>();
  std::uint32_t status = 77;
  EXPECT_EQ(vt_clone_sender_id(&sender, &into, &status), 0U);
  EXPECT_EQ(status, 0U);
  EXPECT_EQ(std::memcmp(&into, &sender, sizeof sender), 0);
  status = 77;
  const BlockPtr<sender_id> made(vt_clone_sender_id_ptr(&sender, &status));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(status, 0U);
  EXPECT_NE(made.get(), &sender);
  EXPECT_EQ(std::memcmp(made.get(), &sender, sizeof sender), 0);
}

TEST(EventId, ClonesIntoARecordAndIntoANewOne) {
  const event_id event = EventId();
  auto into = Filled<event_id>();
  std::uint32_t status = 77;
  EXPECT_EQ(vt_clone_event_id(&event, &into, &status), 0U);
  EXPECT_EQ(status, 0U);
  EXPECT_EQ(std::memcmp(&into, &event, sizeof event), 0);
  status = 77;
  const BlockPtr<event_id> made(vt_clone_event_id_ptr(&event, &status));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(status, 0U);
  EXPECT_EQ(std::memcmp(made.get(), &event, sizeof event), 0);
}

TEST(SenderId, ExhaustedMemoryIsStatusOne) {
  ExpectUnpackExhaustion<BlockPtr<sender_id>>(&vt_unpack_sender_id_ptr, kSenderWire);
  const sender_id sender = Sender();
  ExpectExhaustion<BlockPtr<sender_id>>(
      [&](std::uint32_t* status) { return vt_clone_sender_id_ptr(&sender, status); });
}

TEST(EventId, ExhaustedMemoryIsStatusOne) {
  ExpectUnpackExhaustion<BlockPtr<event_id>>(&vt_unpack_event_id_ptr, kEventWire);
  const event_id event = EventId();
  ExpectExhaustion<BlockPtr<event_id>>(
      [&](std::uint32_t* status) { return vt_clone_event_id_ptr(&event, status); });
}

// ---- device header.

constexpr const char* kDeviceWire = "32*d1 00000005 6162006364";

device_header Device(void* data, std::uint32_t data_len) {
  device_header device = {};
  std::memset(device.id.bytes, 0xD1, 32);
  device.data = data;
  device.data_len = data_len;
  return device;
}

TEST(DeviceHeader, IsTheIdentityAndACountedBlock) {
  char data[] = "ab\0cd";
  const device_header device = Device(data, 5);
  ExpectPack([&](void* dst) { return vt_pack_deviceheader(dst, &device); }, kDeviceWire);
  EXPECT_EQ(vt_get_deviceheader_size(&device), 41U);

  const GuardedBytes input = GuardedBytes::AtOddAddress(Hex(kDeviceWire));
  auto into = Filled<device_header>();
  UnpackReport got{.remaining = 41};
  vt_unpack_deviceheader(input.data(), &into, &got.consumed, &got.remaining, &got.status);
  EXPECT_EQ(got.status, 0U);
  EXPECT_EQ(got.consumed, 41U);
  EXPECT_EQ(got.remaining, 0);
  EXPECT_BYTES(into.id.bytes, 32, "32*d1");
  EXPECT_EQ(into.data_len, 5U);
  EXPECT_BYTES(into.data, 5, "6162006364");
  vt_free_deviceheader(&into);
}

TEST(DeviceHeader, EmptyBlockIsNullAndTravelsAgain) {
  const char* wire = "32*d1 00000000";
  const GuardedBytes input(Hex(wire));
  auto into = Filled<device_header>();
  UnpackReport got{.remaining = 36};
  vt_unpack_deviceheader(input.data(), &into, &got.consumed, &got.remaining, &got.status);
  EXPECT_EQ(got.status, 0U);
  EXPECT_EQ(got.consumed, 36U);
  EXPECT_EQ(into.data, nullptr);
  EXPECT_EQ(into.data_len, 0U);
  EXPECT_EQ(vt_get_deviceheader_size(&into), 36U);
  ExpectPack([&](void* dst) { return vt_pack_deviceheader(dst, &into); }, wire);
  vt_free_deviceheader(&into);
}

TEST(DeviceHeader, EveryTruncationIsShortAndOwnsNothing) {
  const Bytes wire = Hex(kDeviceWire);
  for (std::size_t left = 0; left < wire.size(); ++left) {
    SCOPED_TRACE(left);
    const GuardedBytes input(Bytes(wire.begin(), wire.begin() + static_cast<std::ptrdiff_t>(left)));
    auto into = Filled<device_header>();
    UnpackReport got{.remaining = static_cast<std::int32_t>(left)};
    vt_unpack_deviceheader(input.data(), &into, &got.consumed, &got.remaining, &got.status);
    ExpectShortAt({32, 4, 5}, left, got);
    EXPECT_EQ(into.data, nullptr);
  }
}

TEST(DeviceHeader, ExhaustedMemoryIsStatusOneAndOwnsNothing) {
  const GuardedBytes input(Hex(kDeviceWire));
  char data[] = "ab\0cd";
  const device_header device = Device(data, 5);
  EXPECT_GT(SweepAllocationFailures([&](AllocationFault& fault) {
              auto into = Filled<device_header>();
              UnpackReport got{.remaining = 41};
              vt_unpack_deviceheader(input.data(), &into, &got.consumed, &got.remaining,
                                     &got.status);
              EXPECT_EQ(got.status, fault.hit() ? 1U : 0U);
              EXPECT_EQ(into.data == nullptr, fault.hit());
              vt_free_deviceheader(&into);
            }),
            0U);
  EXPECT_GT(SweepAllocationFailures([&](AllocationFault& fault) {
              auto into = Filled<device_header>();
              std::uint32_t status = 77;
              const std::uint32_t result = vt_clone_deviceheader(&device, &into, &status);
              EXPECT_EQ(result, status);
              EXPECT_EQ(status, fault.hit() ? 1U : 0U);
              if (fault.hit()) {
                EXPECT_EQ(RawBytes(&into, sizeof into), Bytes(sizeof into, 0));
              }
              vt_free_deviceheader(&into);
            }),
            0U);
}

TEST(DeviceHeader, ClonesItsBlock) {
  char data[] = "ab\0cd";
  const device_header device = Device(data, 5);
  auto into = Filled<device_header>();
  std::uint32_t status = 77;
  EXPECT_EQ(vt_clone_deviceheader(&device, &into, &status), 0U);
  EXPECT_EQ(status, 0U);
  EXPECT_NE(into.data, device.data);
  EXPECT_BYTES(into.id.bytes, 32, "32*d1");
  EXPECT_EQ(into.data_len, 5U);
  EXPECT_BYTES(into.data, 5, "6162006364");
  vt_free_deviceheader(&into);
}

TEST(DeviceHeader, LengthAndBlockOfACloneAgree) {
  char data[] = "x";
  for (const device_header& device : {Device(nullptr, 0), Device(nullptr, 9), Device(data, 0)}) {
    auto into = Filled<device_header>();
    std::uint32_t status = 77;
    EXPECT_EQ(vt_clone_deviceheader(&device, &into, &status), 0U);
    EXPECT_EQ(status, 0U);
    EXPECT_EQ(into.data, nullptr);
    EXPECT_EQ(into.data_len, 0U);
    vt_free_deviceheader(&into);
  }
}

TEST(DeviceHeader, MissingBlockCountsAsEmptyWhateverItsLength) {
  const device_header device = Device(nullptr, 9);
  EXPECT_EQ(vt_get_deviceheader_size(&device), 36U);
  ExpectPack([&](void* dst) { return vt_pack_deviceheader(dst, &device); }, "32*d1 00000000");
}

TEST(DeviceHeader, FreeReleasesTheBlockAndMayBeRepeated) {
  device_header device = Device(HeapCopy("abc", 3), 3);
  vt_free_deviceheader(&device);
  EXPECT_EQ(device.data, nullptr);
  EXPECT_EQ(device.data_len, 0U);
  EXPECT_BYTES(device.id.bytes, 32, "32*d1");
  vt_free_deviceheader(&device);
  vt_free_deviceheader(nullptr);
}

// ---- alarm.

constexpr const char* kAlarmWire = "01020304 05 f6 fffffffe 7ffffffd";

alarm_value Alarm() {
  alarm_value alarm = {};
  alarm.word = 0x01020304;
  alarm.byte1 = 5;
  alarm.byte2 = 0xF6;
  alarm.value1 = -2;
  alarm.value2 = 0x7FFFFFFD;
  return alarm;
}

void ExpectSameAlarm(const alarm_value* got) {
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(got->word, 0x01020304U);
  EXPECT_EQ(got->byte1, 5);
  EXPECT_EQ(got->byte2, 0xF6);
  EXPECT_EQ(got->value1, -2);
  EXPECT_EQ(got->value2, 0x7FFFFFFD);
}

TEST(Alarm, PacksToFourteenBytes) {
  const alarm_value alarm = Alarm();
  ExpectPack([&](void* dst) { return vt_pack_alarm(dst, &alarm); }, kAlarmWire);
  EXPECT_EQ(vt_get_alarm_size(&alarm), 14U);
  EXPECT_EQ(vt_get_alarm_size(nullptr), 0U);
}

TEST(Alarm, UnpacksAllItsFields) {
  UnpackReport got;
  const BlockPtr<alarm_value> made(Unpack(vt_unpack_alarm_ptr, Hex(kAlarmWire), 14, &got));
  ExpectSameAlarm(made.get());
  EXPECT_EQ(got.consumed, 14U);
  EXPECT_EQ(got.remaining, 0);
  EXPECT_EQ(got.status, 0U);
}

TEST(Alarm, EveryTruncationIsShort) {
  ExpectTruncations<alarm_value>(vt_unpack_alarm_ptr, kAlarmWire, {4, 1, 1, 4, 4});
}

TEST(Alarm, ClonesAllItsFields) {
  const alarm_value alarm = Alarm();
  std::uint32_t status = 77;
  const BlockPtr<alarm_value> made(vt_clone_alarm_ptr(&alarm, &status));
  EXPECT_EQ(status, 0U);
  EXPECT_NE(made.get(), &alarm);
  ExpectSameAlarm(made.get());
}

TEST(Alarm, ExhaustedMemoryIsStatusOne) {
  ExpectUnpackExhaustion<BlockPtr<alarm_value>>(&vt_unpack_alarm_ptr, kAlarmWire);
  const alarm_value alarm = Alarm();
  ExpectExhaustion<BlockPtr<alarm_value>>(
      [&](std::uint32_t* status) { return vt_clone_alarm_ptr(&alarm, status); });
}

// ---- recurrence.

constexpr const char* kRecurrenceWire = "00000004 30203132 07 f9 80000001";

TEST(Recurrence, IsACountedTextTwoBytesAndABoolean) {
  char text[] = "0 12";
  recurrence repeat = {};
  repeat.text = text;
  repeat.byte1 = 7;
  repeat.byte2 = 0xF9;
  repeat.flag = -0x7FFFFFFF;
  ExpectPack([&](void* dst) { return vt_pack_recurrence(dst, &repeat); }, kRecurrenceWire);
  EXPECT_EQ(vt_get_recurrence_size(&repeat), 14U);

  UnpackReport got;
  const RecurrencePtr made(Unpack(vt_unpack_recurrence_ptr, Hex(kRecurrenceWire), 14, &got));
  ASSERT_NE(made, nullptr);
  EXPECT_STREQ(made->text, "0 12");
  EXPECT_EQ(made->byte1, 7);
  EXPECT_EQ(made->byte2, 0xF9);
  EXPECT_EQ(made->flag, -0x7FFFFFFF);
  EXPECT_EQ(got.consumed, 14U);
  EXPECT_EQ(got.remaining, 0);
  EXPECT_EQ(got.status, 0U);
}

// Deliberate: not even the length word is packed, so the rest moves up.
TEST(Recurrence, NullTextPacksNoLengthWord) {
  recurrence repeat = {};
  repeat.byte1 = 7;
  repeat.byte2 = 8;
  repeat.flag = 9;
  ExpectPack([&](void* dst) { return vt_pack_recurrence(dst, &repeat); }, "07 08 00000009");
  EXPECT_EQ(vt_get_recurrence_size(&repeat), 10U);
}

TEST(Recurrence, EveryTruncationIsShort) {
  ExpectTruncations<recurrence>(vt_unpack_recurrence_ptr, kRecurrenceWire, {4, 4, 1, 1, 4});
}

TEST(Recurrence, ClonesItsText) {
  char text[] = "0 12";
  recurrence repeat = {};
  repeat.text = text;
  repeat.byte2 = 8;
  repeat.flag = 9;
  std::uint32_t status = 77;
  const RecurrencePtr made(vt_clone_recurrence_ptr(&repeat, &status));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(status, 0U);
  EXPECT_NE(made->text, text);
  EXPECT_STREQ(made->text, "0 12");
  EXPECT_EQ(made->byte1, 0);
  EXPECT_EQ(made->byte2, 8);
  EXPECT_EQ(made->flag, 9);
}

TEST(Recurrence, NullTextClonesToNullWithSuccess) {
  const recurrence repeat = {};
  std::uint32_t status = 77;
  const RecurrencePtr made(vt_clone_recurrence_ptr(&repeat, &status));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(status, 0U);
  EXPECT_EQ(made->text, nullptr);
}

TEST(Recurrence, ExhaustedMemoryIsStatusOne) {
  ExpectUnpackExhaustion<RecurrencePtr>(&vt_unpack_recurrence_ptr, kRecurrenceWire);
  char text[] = "0 12";
  recurrence repeat = {};
  repeat.text = text;
  ExpectExhaustion<RecurrencePtr>(
      [&](std::uint32_t* status) { return vt_clone_recurrence_ptr(&repeat, status); });
}

TEST(Recurrence, FreeAcceptsNullAndNullParts) {
  vt_free_recurrence_ptr(nullptr);
  vt_free_recurrence_ptr(HeapRecord<recurrence>());
}

// ---- neighbor.

constexpr const char* kNeighborWire = "32*e1 00000003 616263 00000004 0a000b0c 01020304";

neighbor Neighbor(char* label, void* data, std::uint32_t data_len) {
  auto near = Filled<neighbor>();
  std::memset(near.id.bytes, 0xE1, 32);
  near.label = label;
  near.data = data;
  near.data_len = data_len;
  near.flag = 0x01020304;
  return near;
}

void ExpectNothingElseIn(const neighbor& near) {
  EXPECT_EQ(near.unused1, 0);
  for (const std::uint32_t word : near.unused2) EXPECT_EQ(word, 0U);
}

TEST(Neighbor, IsTheIdentityATextABlockAndABoolean) {
  char label[] = "abc";
  char data[] = "\x0a\0\x0b\x0c";
  const neighbor near = Neighbor(label, data, 4);
  ExpectPack([&](void* dst) { return vt_pack_neighbor(dst, &near); }, kNeighborWire);
  EXPECT_EQ(vt_get_neighbor_size(&near), 51U);
}

TEST(Neighbor, UnpacksWithZerosInWhatDoesNotTravel) {
  const FillAllocations fill(0xA5);
  UnpackReport got;
  const NeighborPtr made(Unpack(vt_unpack_neighbor_ptr, Hex(kNeighborWire), 51, &got));
  ASSERT_NE(made, nullptr);
  EXPECT_BYTES(made->id.bytes, 32, "32*e1");
  EXPECT_STREQ(made->label, "abc");
  EXPECT_EQ(made->data_len, 4U);
  EXPECT_BYTES(made->data, 4, "0a000b0c");
  EXPECT_EQ(made->flag, 0x01020304);
  ExpectNothingElseIn(*made);
  EXPECT_EQ(got.consumed, 51U);
  EXPECT_EQ(got.remaining, 0);
  EXPECT_EQ(got.status, 0U);
}

TEST(Neighbor, EmptyLabelAndBlockPackToFortyFourBytes) {
  char label[] = "";
  char data[] = "x";
  const neighbor near = Neighbor(label, data, 0);
  ExpectPack([&](void* dst) { return vt_pack_neighbor(dst, &near); },
             "32*e1 00000000 00000000 01020304");
  EXPECT_EQ(vt_get_neighbor_size(&near), 44U);
  UnpackReport got;
  const NeighborPtr made(
      Unpack(vt_unpack_neighbor_ptr, Hex("32*e1 00000000 00000000 01020304"), 44, &got));
  ASSERT_NE(made, nullptr);
  EXPECT_STREQ(made->label, "");
  EXPECT_EQ(made->data, nullptr);
  EXPECT_EQ(made->data_len, 0U);
  EXPECT_EQ(made->flag, 0x01020304);
}

// Deliberate: not even the length word is packed, so everything after the label moves up.
TEST(Neighbor, NullLabelPacksNoLengthWord) {
  const neighbor near = Neighbor(nullptr, nullptr, 0);
  ExpectPack([&](void* dst) { return vt_pack_neighbor(dst, &near); }, "32*e1 00000000 01020304");
  EXPECT_EQ(vt_get_neighbor_size(&near), 44U);
}

TEST(Neighbor, MissingBlockCountsAsEmptyWhateverItsLength) {
  char label[] = "";
  const neighbor near = Neighbor(label, nullptr, 9);
  EXPECT_EQ(vt_get_neighbor_size(&near), 44U);
  ExpectPack([&](void* dst) { return vt_pack_neighbor(dst, &near); },
             "32*e1 00000000 00000000 01020304");
}

TEST(Neighbor, EveryTruncationIsShort) {
  ExpectTruncations<neighbor>(vt_unpack_neighbor_ptr, kNeighborWire, {32, 4, 3, 4, 4, 4});
}

TEST(Neighbor, FailedLabelCountsItsLengthWord) {
  const GuardedBytes input(Hex("32*e1 0000000a 616263646566"));
  UnpackReport got{.remaining = 42};
  EXPECT_EQ(vt_unpack_neighbor_ptr(input.data(), &got.consumed, &got.remaining, &got.status),
            nullptr);
  EXPECT_EQ(got.status, 8U);
  EXPECT_EQ(got.consumed, 36U);
  EXPECT_EQ(got.remaining, 6);
}

TEST(Neighbor, ClonesItsPartsAndZerosTheRest) {
  const FillAllocations fill(0xA5);
  char label[] = "abc";
  char data[] = "\x0a\0\x0b\x0c";
  const neighbor near = Neighbor(label, data, 4);
  std::uint32_t status = 77;
  const NeighborPtr made(vt_clone_neighbor_ptr(&near, &status));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(status, 0U);
  EXPECT_BYTES(made->id.bytes, 32, "32*e1");
  EXPECT_NE(made->label, label);
  EXPECT_STREQ(made->label, "abc");
  EXPECT_NE(made->data, data);
  EXPECT_EQ(made->data_len, 4U);
  EXPECT_BYTES(made->data, 4, "0a000b0c");
  EXPECT_EQ(made->flag, 0x01020304);
  ExpectNothingElseIn(*made);
}

TEST(Neighbor, AllZeroNeighborClonesWithSuccess) {
  const neighbor near = {};
  std::uint32_t status = 77;
  const NeighborPtr made(vt_clone_neighbor_ptr(&near, &status));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(status, 0U);
  EXPECT_EQ(made->label, nullptr);
  EXPECT_EQ(made->data, nullptr);
}

TEST(Neighbor, LengthAndBlockOfACloneAgree) {
  char data[] = "x";
  for (const neighbor& near : {Neighbor(nullptr, nullptr, 9), Neighbor(nullptr, data, 0)}) {
    std::uint32_t status = 77;
    const NeighborPtr made(vt_clone_neighbor_ptr(&near, &status));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(status, 0U);
    EXPECT_EQ(made->data, nullptr);
    EXPECT_EQ(made->data_len, 0U);
  }
}

TEST(Neighbor, ExhaustedMemoryIsStatusOne) {
  ExpectUnpackExhaustion<NeighborPtr>(&vt_unpack_neighbor_ptr, kNeighborWire);
  char label[] = "abc";
  char data[] = "abcd";
  const neighbor near = Neighbor(label, data, 4);
  ExpectExhaustion<NeighborPtr>(
      [&](std::uint32_t* status) { return vt_clone_neighbor_ptr(&near, status); });
}

TEST(Neighbor, FreeAcceptsNullAndNullParts) {
  vt_free_neighbor_ptr(nullptr);
  vt_free_neighbor_ptr(HeapRecord<neighbor>());
}

// ---- usage common header.

constexpr const char* kUsageWire =
    "00000102 fffffffe 00000004 6c616d70 00000003 726f6c fd 0a 64 00000002 6b77";
const std::vector<std::uint32_t> kUsagePieces = {4, 4, 4, 4, 4, 3, 1, 1, 1, 4, 2};

TEST(UsageHeader, TravelsInTheOrderOfItsFields) {
  char name[] = "lamp";
  char role[] = "rol";
  char keywords[] = "kw";
  usage_cmn_hdr usage = {};
  usage.word = 0x102;
  usage.value = -2;
  usage.text1 = name;
  usage.text2 = role;
  usage.small = -3;
  usage.byte1 = 10;
  usage.byte2 = 100;
  usage.text3 = keywords;
  ExpectPack([&](void* dst) { return vt_pack_usage_cmn_hdr(dst, &usage); }, kUsageWire);
  EXPECT_EQ(vt_get_usage_cmn_hdr_size(&usage), 32U);

  const GuardedBytes input = GuardedBytes::AtOddAddress(Hex(kUsageWire));
  auto into = Filled<usage_cmn_hdr>();
  UnpackReport got{.remaining = 32};
  vt_unpack_usage_cmn_hdr(input.data(), &into, &got.consumed, &got.remaining, &got.status);
  EXPECT_EQ(got.status, 0U);
  EXPECT_EQ(got.consumed, 32U);
  EXPECT_EQ(got.remaining, 0);
  EXPECT_EQ(into.word, 0x102U);
  EXPECT_EQ(into.value, -2);
  EXPECT_STREQ(into.text1, "lamp");
  EXPECT_STREQ(into.text2, "rol");
  EXPECT_EQ(into.small, -3);
  EXPECT_EQ(into.byte1, 10);
  EXPECT_EQ(into.byte2, 100);
  EXPECT_STREQ(into.text3, "kw");
  vt_free_usage_cmn_hdr(&into);
}

// Deliberate: the exported packer writes nothing for null texts; the size counts their length word.
TEST(UsageHeader, NullTextsPackNoLengthWords) {
  const usage_cmn_hdr usage = {};
  ExpectPack([&](void* dst) { return vt_pack_usage_cmn_hdr(dst, &usage); }, "11*00");
  EXPECT_EQ(vt_get_usage_cmn_hdr_size(&usage), 23U);
}

TEST(UsageHeader, EveryTruncationIsShortAndOwnsNothing) {
  const Bytes wire = Hex(kUsageWire);
  for (std::size_t left = 0; left < wire.size(); ++left) {
    SCOPED_TRACE(left);
    const GuardedBytes input(Bytes(wire.begin(), wire.begin() + static_cast<std::ptrdiff_t>(left)));
    auto into = Filled<usage_cmn_hdr>();
    UnpackReport got{.remaining = static_cast<std::int32_t>(left)};
    vt_unpack_usage_cmn_hdr(input.data(), &into, &got.consumed, &got.remaining, &got.status);
    ExpectShortAt(kUsagePieces, left, got);
    EXPECT_EQ(into.text1, nullptr);
    EXPECT_EQ(into.text2, nullptr);
    EXPECT_EQ(into.text3, nullptr);
  }
}

TEST(UsageHeader, ClonesItsTexts) {
  char name[] = "lamp";
  char keywords[] = "kw";
  usage_cmn_hdr usage = {};
  usage.word = 1;
  usage.value = 2;
  usage.small = -3;
  usage.byte1 = 4;
  usage.byte2 = 5;
  usage.text1 = name;
  usage.text3 = keywords;
  auto into = Filled<usage_cmn_hdr>();
  std::uint32_t status = 77;
  EXPECT_EQ(vt_clone_usage_cmn_hdr(&usage, &into, &status), 0U);
  EXPECT_EQ(status, 0U);
  EXPECT_EQ(into.word, 1U);
  EXPECT_EQ(into.value, 2);
  EXPECT_EQ(into.small, -3);
  EXPECT_EQ(into.byte1, 4);
  EXPECT_EQ(into.byte2, 5);
  EXPECT_NE(into.text1, name);
  EXPECT_STREQ(into.text1, "lamp");
  EXPECT_EQ(into.text2, nullptr);
  EXPECT_STREQ(into.text3, "kw");
  vt_free_usage_cmn_hdr(&into);
}

TEST(UsageHeader, ExhaustedMemoryIsStatusOneAndOwnsNothing) {
  const GuardedBytes input(Hex(kUsageWire));
  EXPECT_GT(SweepAllocationFailures([&](AllocationFault& fault) {
              auto into = Filled<usage_cmn_hdr>();
              UnpackReport got{.remaining = 32};
              vt_unpack_usage_cmn_hdr(input.data(), &into, &got.consumed, &got.remaining,
                                      &got.status);
              EXPECT_EQ(got.status, fault.hit() ? 1U : 0U);
              EXPECT_EQ(into.text1 == nullptr, fault.hit());
              EXPECT_EQ(into.text2 == nullptr, fault.hit());
              EXPECT_EQ(into.text3 == nullptr, fault.hit());
              vt_free_usage_cmn_hdr(&into);
            }),
            2U);
  char text[] = "text";
  usage_cmn_hdr usage = {};
  usage.word = 7;
  usage.text1 = usage.text2 = usage.text3 = text;
  EXPECT_GT(SweepAllocationFailures([&](AllocationFault& fault) {
              auto into = Filled<usage_cmn_hdr>();
              std::uint32_t status = 77;
              const std::uint32_t result = vt_clone_usage_cmn_hdr(&usage, &into, &status);
              EXPECT_EQ(result, status);
              EXPECT_EQ(status, fault.hit() ? 1U : 0U);
              if (fault.hit()) {
                EXPECT_EQ(RawBytes(&into, sizeof into), Bytes(sizeof into, 0));
              }
              vt_free_usage_cmn_hdr(&into);
            }),
            2U);
}

TEST(UsageHeader, FreeReleasesTheTextsAndMayBeRepeated) {
  usage_cmn_hdr usage = {};
  usage.word = 7;
  usage.text1 = HeapText("a");
  usage.text2 = HeapText("b");
  usage.text3 = HeapText("c");
  vt_free_usage_cmn_hdr(&usage);
  EXPECT_EQ(usage.text1, nullptr);
  EXPECT_EQ(usage.text2, nullptr);
  EXPECT_EQ(usage.text3, nullptr);
  EXPECT_EQ(usage.word, 7U);
  vt_free_usage_cmn_hdr(&usage);
  vt_free_usage_cmn_hdr(nullptr);
}

// ---- vectors.

constexpr const char* kDeltaWire =
    "fffffffb fffffffc fffffffd fffffffe ffffffff 00000000 00000001 00000002 00000003 00000004"
    "7fffffff";
constexpr delta_vector kDeltas = {{-5, -4, -3, -2, -1, 0, 1, 2, 3, 4, 0x7FFFFFFF}};
constexpr const char* kUsagesWire = "0000 0001 0002 0003 0104 0205 0306 0407 0508 0609 ffff";
constexpr usage_vector kUsages = {{0, 1, 2, 3, 0x104, 0x205, 0x306, 0x407, 0x508, 0x609, 0xFFFF}};

TEST(DeltaVector, IsElevenSignedWords) {
  ExpectPack([](void* dst) { return vt_pack_delta_vector(dst, &kDeltas); }, kDeltaWire);
  UnpackReport got;
  const BlockPtr<delta_vector> made(Unpack(vt_unpack_delta_vector_ptr, Hex(kDeltaWire), 44, &got));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(std::memcmp(made.get(), &kDeltas, sizeof kDeltas), 0);
  EXPECT_EQ(got.consumed, 44U);
  EXPECT_EQ(got.remaining, 0);
  EXPECT_EQ(got.status, 0U);
}

TEST(UsageVector, IsElevenUnsignedHalfWords) {
  ExpectPack([](void* dst) { return vt_pack_usage_vector(dst, &kUsages); }, kUsagesWire);
  UnpackReport got;
  const BlockPtr<usage_vector> made(Unpack(vt_unpack_usage_vector_ptr, Hex(kUsagesWire), 22, &got));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(std::memcmp(made.get(), &kUsages, sizeof kUsages), 0);
  EXPECT_EQ(got.consumed, 22U);
  EXPECT_EQ(got.remaining, 0);
  EXPECT_EQ(got.status, 0U);
}

// ExpectWholeElements unpacks into a caller's record from every truncation.
template <class Record>
void ExpectWholeElements(UnpackInto<Record> unpack, const char* hex, const Record& expected) {
  const Bytes wire = Hex(hex);
  constexpr std::size_t kWidth = sizeof expected.values[0];
  for (std::size_t left = 0; left <= wire.size(); ++left) {
    SCOPED_TRACE(left);
    const GuardedBytes input(Bytes(wire.begin(), wire.begin() + static_cast<std::ptrdiff_t>(left)));
    auto into = Filled<Record>();
    UnpackReport got{.remaining = static_cast<std::int32_t>(left)};
    unpack(input.data(), &into, &got.consumed, &got.remaining, &got.status);
    const std::size_t whole = left / kWidth;
    EXPECT_EQ(got.status, whole == 11 ? 0U : 8U);
    EXPECT_EQ(got.consumed, whole * kWidth);
    EXPECT_EQ(got.remaining, static_cast<std::int32_t>(left - whole * kWidth));
    for (std::size_t i = 0; i < whole; ++i) EXPECT_EQ(into.values[i], expected.values[i]) << i;
    // Nothing was there for the others.
    EXPECT_EQ(RawBytes(into.values + whole, (11 - whole) * kWidth),
              Bytes((11 - whole) * kWidth, 0xAA));
  }
}

TEST(DeltaVector, ShortInputSetsTheElementsBeforeItsEnd) {
  ExpectWholeElements<delta_vector>(vt_unpack_delta_vector, kDeltaWire, kDeltas);
}

TEST(UsageVector, ShortInputSetsTheElementsBeforeItsEnd) {
  ExpectWholeElements<usage_vector>(vt_unpack_usage_vector, kUsagesWire, kUsages);
}

TEST(DeltaVector, TwentyBytesAreFiveValues) {
  const GuardedBytes input(Hex("00000001 00000002 00000003 00000004 00000005"));
  delta_vector into = {};
  UnpackReport got{.remaining = 20};
  vt_unpack_delta_vector(input.data(), &into, &got.consumed, &got.remaining, &got.status);
  EXPECT_EQ(got.status, 8U);
  EXPECT_EQ(got.consumed, 20U);
  EXPECT_EQ(got.remaining, 0);
  EXPECT_EQ(into.values[4], 5);
  EXPECT_EQ(into.values[5], 0);
}

// A single int32 keeps a stale count on short input; a vector counts its whole elements only.
TEST(DeltaVector, CountsWholeElementsOnly) {
  for (const std::uint32_t left : {20U, 43U, 0U}) {
    SCOPED_TRACE(left);
    const GuardedBytes input(Bytes(left, 1));
    delta_vector into = {};
    UnpackReport got{.remaining = static_cast<std::int32_t>(left)};
    vt_unpack_delta_vector(input.data(), &into, &got.consumed, &got.remaining, &got.status);
    EXPECT_EQ(got.status, 8U);
    EXPECT_EQ(got.consumed, left / 4 * 4);
    got = UnpackReport{.remaining = static_cast<std::int32_t>(left)};
    EXPECT_EQ(vt_unpack_delta_vector_ptr(input.data(), &got.consumed, &got.remaining, &got.status),
              nullptr);
    EXPECT_EQ(got.status, 8U);
    EXPECT_EQ(got.consumed, left / 4 * 4);
  }
}

TEST(DeltaVector, EveryTruncationOfANewOneIsShort) {
  ExpectTruncations<delta_vector>(vt_unpack_delta_vector_ptr, kDeltaWire,
                                  std::vector<std::uint32_t>(11, 4));
}

TEST(UsageVector, EveryTruncationOfANewOneIsShort) {
  ExpectTruncations<usage_vector>(vt_unpack_usage_vector_ptr, kUsagesWire,
                                  std::vector<std::uint32_t>(11, 2));
}

TEST(Vectors, ExhaustedMemoryIsStatusOne) {
  ExpectUnpackExhaustion<BlockPtr<delta_vector>>(&vt_unpack_delta_vector_ptr, kDeltaWire);
  ExpectUnpackExhaustion<BlockPtr<usage_vector>>(&vt_unpack_usage_vector_ptr, kUsagesWire);
}

// ---- Null records.

TEST(Structures, NullRecordHasNoSize) {
  EXPECT_EQ(vt_get_alarm_size(nullptr), 0U);
  EXPECT_EQ(vt_get_recurrence_size(nullptr), 0U);
  EXPECT_EQ(vt_get_neighbor_size(nullptr), 0U);
  EXPECT_EQ(vt_get_deviceheader_size(nullptr), 0U);
  EXPECT_EQ(vt_get_usage_cmn_hdr_size(nullptr), 0U);
  EXPECT_EQ(vt_get_event_id_size(nullptr), 0U);
  EXPECT_EQ(vt_get_sender_id_size(nullptr), 0U);
}

TEST(Structures, NullRecordPacksNothing) {
  std::uint8_t out[1] = {0xEE};
  EXPECT_EQ(vt_pack_corvane_id(out, nullptr), 0U);
  EXPECT_EQ(vt_pack_sender_id(out, nullptr), 0U);
  EXPECT_EQ(vt_pack_event_id(out, nullptr), 0U);
  EXPECT_EQ(vt_pack_deviceheader(out, nullptr), 0U);
  EXPECT_EQ(vt_pack_alarm(out, nullptr), 0U);
  EXPECT_EQ(vt_pack_recurrence(out, nullptr), 0U);
  EXPECT_EQ(vt_pack_neighbor(out, nullptr), 0U);
  EXPECT_EQ(vt_pack_usage_cmn_hdr(out, nullptr), 0U);
  EXPECT_EQ(vt_pack_delta_vector(out, nullptr), 0U);
  EXPECT_EQ(vt_pack_usage_vector(out, nullptr), 0U);
  EXPECT_EQ(out[0], 0xEE);
}

template <class Clone>
void ExpectNullSource(Clone clone) {
  std::uint32_t status = 77;
  EXPECT_EQ(clone(nullptr, &status), nullptr);
  EXPECT_EQ(status, 4U);
}

template <class Record>
void ExpectNullSourceInto(std::uint32_t (*clone)(const Record*, Record*, std::uint32_t*)) {
  auto into = Filled<Record>();
  std::uint32_t status = 77;
  EXPECT_EQ(clone(nullptr, &into, &status), 4U);
  EXPECT_EQ(status, 4U);
  EXPECT_EQ(RawBytes(&into, sizeof into), Bytes(sizeof into, 0));
}

TEST(Structures, NullRecordIsANullSource) {
  ExpectNullSource(vt_clone_alarm_ptr);
  ExpectNullSource(vt_clone_recurrence_ptr);
  ExpectNullSource(vt_clone_neighbor_ptr);
  ExpectNullSource(vt_clone_sender_id_ptr);
  ExpectNullSource(vt_clone_event_id_ptr);
  ExpectNullSourceInto<device_header>(vt_clone_deviceheader);
  ExpectNullSourceInto<usage_cmn_hdr>(vt_clone_usage_cmn_hdr);
  ExpectNullSourceInto<sender_id>(vt_clone_sender_id);
  ExpectNullSourceInto<event_id>(vt_clone_event_id);
}

// Records and their parts are blocks of their own, which a caller may release one by one.
TEST(Structures, RecordsAndTheirPartsComeFromMalloc) {
  UnpackReport got;
  neighbor* near = Unpack(vt_unpack_neighbor_ptr, Hex(kNeighborWire), 51, &got);
  ASSERT_NE(near, nullptr);
  vt_free_ptr(near->label);
  std::free(near->data);
  vt_free_ptr(near);

  recurrence* repeat = Unpack(vt_unpack_recurrence_ptr, Hex(kRecurrenceWire), 14, &got);
  ASSERT_NE(repeat, nullptr);
  std::free(repeat->text);
  std::free(repeat);
}

// ---- Hostile lengths inside records.

TEST(Structures, HostileLengthWordsAreShortAndAllocateNoBlock) {
  for (const char* length : {"00000007", "7fffffff", "80000000", "fffffffb", "ffffffff"}) {
    SCOPED_TRACE(length);
    const Bytes tail = Hex(length) + Text("abcdef");
    const auto expect_short = [&](const Bytes& wire, auto unpack) {
      const GuardedBytes input(wire);
      const AllocationCount allocations;
      UnpackReport got{.remaining = static_cast<std::int32_t>(wire.size())};
      unpack(input.data(), &got);
      EXPECT_EQ(got.status, 8U);
      EXPECT_EQ(got.consumed, wire.size() - 6);
      EXPECT_EQ(got.remaining, 6);
      EXPECT_LE(allocations.bytes(), 256U);
    };
    expect_short(Hex("32*61") + tail, [](const void* src, UnpackReport* got) {
      auto into = Filled<device_header>();
      vt_unpack_deviceheader(src, &into, &got->consumed, &got->remaining, &got->status);
      EXPECT_EQ(into.data, nullptr);
    });
    expect_short(Hex("00000000 00000000") + tail, [](const void* src, UnpackReport* got) {
      auto into = Filled<usage_cmn_hdr>();
      vt_unpack_usage_cmn_hdr(src, &into, &got->consumed, &got->remaining, &got->status);
      EXPECT_EQ(into.text1, nullptr);
    });
    expect_short(tail, [](const void* src, UnpackReport* got) {
      EXPECT_EQ(vt_unpack_recurrence_ptr(src, &got->consumed, &got->remaining, &got->status),
                nullptr);
    });
    expect_short(Hex("32*61 00000001 7a") + tail, [](const void* src, UnpackReport* got) {
      EXPECT_EQ(vt_unpack_neighbor_ptr(src, &got->consumed, &got->remaining, &got->status),
                nullptr);
    });
  }
}

}  // namespace
