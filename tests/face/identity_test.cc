// Identities of those who ask and of those who answer.
#include "vtapi/face/identity.hpp"

#include <gtest/gtest.h>

#include <string>
#include <unordered_set>
#include <vector>

#include "tests/harness/hex.h"

namespace {

using voltaris::Cause;
using voltaris::DeviceId;
using voltaris::EntityId;
using voltaris::Identity;
using vt::testing::Hex;

const std::string kIdentityDigits = "0123456789abcdef0123456789abcdef";

TEST(FaceIdentity, OfTextHasAllItsCharacters) {
  EXPECT_EQ(Identity::from_text(kIdentityDigits + "#001").value().text(), kIdentityDigits + "#001");
}

TEST(FaceIdentity, OfThirtyTwoCharactersEndsInZeros) {
  EXPECT_EQ(Identity::from_text(kIdentityDigits).value().text(), kIdentityDigits + "0000");
}

TEST(FaceIdentity, OfAnotherLengthIsAnError) {
  for (const std::size_t size : {0u, 1u, 31u, 33u, 35u, 37u, 64u}) {
    const auto made = Identity::from_text(std::string(size, 'a'));
    ASSERT_FALSE(made) << size;
    EXPECT_EQ(made.error().cause, Cause::kBadIdentity);
    EXPECT_NE(made.error().text.find("not " + std::to_string(size)), std::string::npos);
  }
}

TEST(FaceIdentity, FreshOnesDiffer) {
  const Identity first = Identity::fresh();
  const Identity second = Identity::fresh();
  EXPECT_NE(first, second);
  EXPECT_EQ(first, Identity(first));
  EXPECT_EQ(first.text().find_first_not_of("0123456789abcdef"), std::string_view::npos);
  EXPECT_EQ(first.text().substr(32), "0000");
}

TEST(FaceDeviceId, IsItsCharactersWhereTheyCanBePrinted) {
  const DeviceId id = DeviceId::from_text(kIdentityDigits).value();
  EXPECT_EQ(id.text(), kIdentityDigits);
  EXPECT_EQ(id.bytes[1], '1');
}

TEST(FaceDeviceId, IsDigitsOtherwiseWhichMakeTheSameAgain) {
  DeviceId id = DeviceId::from_text(kIdentityDigits).value();
  id.bytes[31] = 0xA5;
  const std::string text = id.text();
  EXPECT_EQ(text.size(), 64u);
  EXPECT_EQ(text.substr(60), "65a5");
  EXPECT_EQ(DeviceId::from_text(text).value(), id);
  for (const std::uint8_t odd : Hex("00 20 7f")) {
    id.bytes[31] = odd;
    EXPECT_EQ(id.text().size(), 64u);
  }
}

TEST(FaceDeviceId, OfAnotherTextIsAnError) {
  for (const std::string& text : std::vector<std::string>{
           "", std::string(31, 'a'), kIdentityDigits + kIdentityDigits.substr(1) + "g",
           "g" + kIdentityDigits + kIdentityDigits.substr(1)}) {
    EXPECT_EQ(DeviceId::from_text(text).error().cause, Cause::kBadIdentity) << text;
  }
}

TEST(FaceEntityId, IsOrderedByDeviceAndIndexAndCanBeAKey) {
  const DeviceId lamp = DeviceId::from_text(kIdentityDigits).value();
  DeviceId later = lamp;
  later.bytes[0] = 0xFF;
  EXPECT_LT(EntityId(lamp, 2), EntityId(later, 1));
  EXPECT_LT(EntityId(lamp, 1), EntityId(lamp, 2));
  const std::unordered_set<EntityId> set = {{lamp, 1}, {lamp, 2}, {later, 1}, {lamp, 1}};
  EXPECT_EQ(set.size(), 3u);
  EXPECT_TRUE(set.contains(EntityId(later, 1)));
}

TEST(FaceEntityId, OfAnAcknowledgementHasItsBytes) {
  AckEntry entry{};
  entry.device_id[0] = 7;
  entry.device_id[31] = 9;
  entry.entity_index = 3;
  const EntityId id(entry);
  EXPECT_EQ(id.device.bytes[0], 7);
  EXPECT_EQ(id.device.bytes[31], 9);
  EXPECT_EQ(id.index, 3u);
}

}  // namespace
