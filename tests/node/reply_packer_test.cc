#include "node/reply_packer.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::DeviceHeader;
using node::ReceivedQuery;
using node::ReplyPacker;

constexpr std::size_t kShipmentOffset = 69;

sockaddr_in SomeAddress() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  return address;
}

ReceivedQuery SomeQuery() {
  PduImage image = Asking({9});
  image.seq = 77;
  image.pri = 42;
  return ReceivedQuery(image.Signed(KeyOfSender()), std::nullopt);
}

// An element with one entry takes 68 bytes besides its tag and value.
constexpr std::size_t kLeastElement = 12 + 32 + 4 + 16 + 4 + 4;

TEST(ReplyPacker, NothingPackedIsNoMessage) {
  const ReceivedQuery query = SomeQuery();
  EXPECT_TRUE(ReplyPacker(query, DeviceId(0), "test").Finish().empty());
}

TEST(ReplyPacker, AMessageIsThatOfTheHarnessByteForByte) {
  const ReceivedQuery query = SomeQuery();
  ReplyPacker packer(query, DeviceId(0), "test");
  const DeviceHeader device(DeviceId(1), SomeAddress());
  packer.Add(device, 3, 13, U16(500));
  packer.Add(device, 4, 13, U16(600));
  packer.Add(device, 3, 12, Hex("ff"));
  PduImage expected;
  expected.seq = 77;
  expected.pri = 42;
  expected.identity = Identity32(DeviceId(0));
  expected.shipment = 1;
  const Bytes header = vt::testing::DeviceHeader(DeviceId(1), Hex("0200 | 14*00"));
  expected.elements = {
      Element(8, 0, Text("test")),
      Element(0x8000000D, 0, Cat({header, U32(2), U32(3), U16(500), U32(4), U16(600)})),
      Element(0x8000000C, 0, Cat({header, U32(1), U32(3), Hex("ff")})),
  };
  const std::vector<Bytes> messages = packer.Finish();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0], expected.Signed(KeyOfSender()));
}

TEST(ReplyPacker, AcknowledgementsStandBeforeRefusalsAndThoseBeforeResults) {
  const ReceivedQuery query = SomeQuery();
  ReplyPacker packer(query, DeviceId(0), "test");
  const DeviceHeader device(DeviceId(1), SomeAddress());
  packer.Add(device, 1, 14, Hex("01"));
  packer.Refuse(device, 2);
  packer.Accept(device, 1);
  const std::vector<Bytes> messages = packer.Finish();
  ASSERT_EQ(messages.size(), 3u);
  EXPECT_EQ(messages[0][kShipmentOffset], 0xFF);
  EXPECT_EQ(messages[1][kShipmentOffset], 0xFE);
  EXPECT_EQ(messages[2][kShipmentOffset], 0x01);
}

// What stands in the message beside the value: 80 bytes of header, the domain, the element.
constexpr std::size_t kBesideOneValue = 80 + 12 + 4 + kLeastElement;

TEST(ReplyPacker, AMessageMayHave1400BytesAndNotOneMore) {
  const ReceivedQuery query = SomeQuery();
  const DeviceHeader device(DeviceId(1), SomeAddress());
  ReplyPacker packer(query, DeviceId(0), "test");
  packer.Add(device, 1, 10, Bytes(1400 - kBesideOneValue, 'x'));
  const std::vector<Bytes> messages = packer.Finish();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].size(), 1400u);
  ReplyPacker other(query, DeviceId(0), "test");
  EXPECT_THROW(other.Add(device, 1, 10, Bytes(1401 - kBesideOneValue, 'x')), std::length_error);
}

TEST(ReplyPacker, AnEntryThatJustFitsIsAddedAndTheNextBeginsAMessage) {
  const ReceivedQuery query = SomeQuery();
  const DeviceHeader device(DeviceId(1), SomeAddress());
  for (const std::size_t short_of : {0u, 1u}) {
    ReplyPacker packer(query, DeviceId(0), "test");
    packer.Add(device, 1, 10, Bytes(1400 - kBesideOneValue - 6 + short_of, 'x'));
    packer.Add(device, 2, 10, U16(1));  // 6 bytes with its tag
    const std::vector<Bytes> messages = packer.Finish();
    ASSERT_EQ(messages.size(), 1 + short_of);
    EXPECT_EQ(messages[0].size(), 1400 - 5 * short_of);
  }
}

TEST(ReplyPacker, WhatALargeElementLeavesSmallerOnesFill) {
  const ReceivedQuery query = SomeQuery();
  ReplyPacker packer(query, DeviceId(0), "test");
  // Two of the large do not fit together; the small fit behind either.
  for (int i = 0; i < 4; ++i) {
    packer.Add(DeviceHeader(DeviceId(i), SomeAddress()), 1, 10, Bytes(700, 'x'));
  }
  for (int i = 0; i < 4 * 6; ++i) {
    packer.Add(DeviceHeader(DeviceId(100 + i), SomeAddress()), 1, 14, Hex("05"));
  }
  EXPECT_EQ(packer.Finish().size(), 4u);
}

TEST(ReplyPacker, MessagesAreFullButForLessThanAnElement) {
  const ReceivedQuery query = SomeQuery();
  ReplyPacker packer(query, DeviceId(0), "test");
  constexpr int count = 5000;
  for (int i = 0; i < count; ++i) {
    packer.Accept(DeviceHeader(DeviceId(i), SomeAddress()), 1);
  }
  const std::vector<Bytes> messages = packer.Finish();
  // 18 elements of 72 bytes in each.
  EXPECT_EQ(messages.size(), (count + 17u) / 18u);
  std::size_t elements = 0;
  for (const Bytes& message : messages) {
    elements += (message.size() - 80) / kLeastElement;
    EXPECT_EQ((message.size() - 80) % kLeastElement, 0u);
  }
  EXPECT_EQ(elements, static_cast<std::size_t>(count));
}

TEST(ReplyPacker, EntitiesOfADeviceShareAnElement) {
  const ReceivedQuery query = SomeQuery();
  ReplyPacker packer(query, DeviceId(0), "");
  const DeviceHeader device(DeviceId(1), SomeAddress());
  for (std::uint32_t entity = 1; entity <= 300; ++entity) packer.Accept(device, entity);
  const std::vector<Bytes> messages = packer.Finish();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].size(), 80 + kLeastElement + 299 * 4);
}

}  // namespace
}  // namespace vt::testing
