// The bytes that faults of a connection make of an answer.
#include "node/spoil.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

using node::Delivery;
using node::Fault;
using node::FaultKind;

Bytes MessageWith(const std::vector<Bytes>& elements) {
  PduImage image;
  image.elements = elements;
  return image.Signed(KeyOfSender());
}

// Two messages, of 96 and of 100 bytes.
std::vector<Bytes> TwoMessages() {
  return {MessageWith({Element(8, 0, Text("test"))}),
          MessageWith({Element(9, 0, Text("lamp-one"))})};
}

Delivery Spoiled(const Fault& fault, std::vector<Bytes> messages = TwoMessages()) {
  hmac_context key{};
  const Bytes secret = KeyOfSender();
  hmac_shainit(&key, secret.data(), static_cast<std::uint32_t>(secret.size()));
  Delivery delivery;
  delivery.messages = std::move(messages);
  node::SpoilDelivery(fault, key, delivery);
  return delivery;
}

std::vector<std::size_t> Sizes(const Delivery& delivery) {
  std::vector<std::size_t> sizes;
  for (const Bytes& message : delivery.messages) sizes.push_back(message.size());
  return sizes;
}

Fault FaultOf(FaultKind kind) {
  Fault fault;
  fault.kind = kind;
  return fault;
}

Fault DropAfter(std::size_t bytes) {
  Fault fault = FaultOf(FaultKind::kDrop);
  fault.after = bytes;
  return fault;
}

using Many = std::vector<std::size_t>;

TEST(Spoil, ADelayAndADripChangeThePaceAndNoByte) {
  Fault delay = FaultOf(FaultKind::kDelay);
  delay.delay = std::chrono::milliseconds(70);
  EXPECT_EQ(Spoiled(delay).delay.count(), 70);
  EXPECT_EQ(Spoiled(delay).messages, TwoMessages());
  Fault drip = FaultOf(FaultKind::kDrip);
  drip.bytes = 3;
  drip.pause = std::chrono::milliseconds(20);
  EXPECT_EQ(Spoiled(drip).step, 3u);
  EXPECT_EQ(Spoiled(drip).pause.count(), 20);
  EXPECT_EQ(Spoiled(drip).messages, TwoMessages());
}

TEST(Spoil, ADropEndsInTheMiddleOfTheLastMessageUnlessItSaysWhere) {
  EXPECT_EQ(Sizes(Spoiled(FaultOf(FaultKind::kDrop))), (Many{96, 50}));
  EXPECT_EQ(Sizes(Spoiled(DropAfter(1))), (Many{1}));
  EXPECT_EQ(Sizes(Spoiled(DropAfter(95))), (Many{95}));
  EXPECT_EQ(Sizes(Spoiled(DropAfter(96))), (Many{96}));
  EXPECT_EQ(Sizes(Spoiled(DropAfter(97))), (Many{96, 1}));
  EXPECT_EQ(Sizes(Spoiled(DropAfter(195))), (Many{96, 99}));
  EXPECT_EQ(Sizes(Spoiled(DropAfter(196))), (Many{96, 100})) << "it is over by then";
  EXPECT_EQ(Sizes(Spoiled(DropAfter(1000))), (Many{96, 100}));
  EXPECT_EQ(Spoiled(DropAfter(97)).messages[0], TwoMessages()[0]);
  EXPECT_FALSE(Spoiled(DropAfter(97)).reset);
  Fault reset = DropAfter(97);
  reset.reset = true;
  EXPECT_TRUE(Spoiled(reset).reset);
}

TEST(Spoil, ClosingEarlyKeepsWholeMessages) {
  Fault fault = FaultOf(FaultKind::kCloseEarly);
  EXPECT_EQ(Sizes(Spoiled(fault)), (Many{}));
  fault.messages = 1;
  EXPECT_EQ(Spoiled(fault).messages, std::vector<Bytes>{TwoMessages()[0]});
  fault.messages = 5;
  EXPECT_EQ(Spoiled(fault).messages, TwoMessages());
}

TEST(Spoil, ALengthTooGreatAnnouncesBytesThatDoNotCome) {
  Fault fault = FaultOf(FaultKind::kBadLength);
  fault.by = 8;
  const Delivery delivery = Spoiled(fault);
  EXPECT_EQ(delivery.messages[0], TwoMessages()[0]);
  PduImage image;
  image.tlv_bytes = 28;
  image.elements = {Element(9, 0, Text("lamp-one"))};
  EXPECT_EQ(delivery.messages[1], image.Signed(KeyOfSender()));
}

TEST(Spoil, ALengthTooSmallCutsTheElementUnderARightDigest) {
  Fault fault = FaultOf(FaultKind::kBadLength);
  fault.by = -3;
  PduImage image;
  image.tlv_bytes = 17;
  image.tlv_count = 1;
  image.elements = {ElementWithLength(9, 20, 0, Text("lamp-"))};
  EXPECT_EQ(Spoiled(fault).messages[1], image.Signed(KeyOfSender()) + Text("one"));
}

TEST(Spoil, ALengthIsNeverLessThanNothing) {
  Fault fault = FaultOf(FaultKind::kBadLength);
  fault.by = -1320;
  PduImage image;
  image.tlv_count = 1;
  EXPECT_EQ(Spoiled(fault).messages[1],
            image.Signed(KeyOfSender()) + Element(9, 0, Text("lamp-one")));
}

TEST(Spoil, AnOverSizeMessageIsAsLongAsItAnnouncesAndSigned) {
  for (const std::size_t size : {1412u, 2000u, 65567u}) {
    Fault fault = FaultOf(FaultKind::kOverSize);
    fault.size = size;
    const Delivery delivery = Spoiled(fault);
    EXPECT_EQ(delivery.messages[0], TwoMessages()[0]);
    const Bytes filling(size - 100 - 12, 0);
    EXPECT_EQ(delivery.messages[1],
              MessageWith({Element(9, 0, Text("lamp-one")), Element(0, 0, filling)}));
    EXPECT_EQ(delivery.messages[1].size(), size);
  }
}

TEST(Spoil, AFullMessageBecomesOverSizeToo) {
  const Bytes full = MessageWith({Element(9, 0, Bytes(1400 - 80 - 12, 'n'))});
  ASSERT_EQ(full.size(), 1400u);
  Fault fault = FaultOf(FaultKind::kOverSize);
  fault.size = 1412;
  EXPECT_EQ(Spoiled(fault, {full}).messages[0],
            MessageWith({Element(9, 0, Bytes(1400 - 80 - 12, 'n')), Element(0, 0, {})}));
}

TEST(Spoil, WhereNobodyAnswersThereIsNothingToSpoil) {
  for (const FaultKind kind :
       {FaultKind::kDrop, FaultKind::kCloseEarly, FaultKind::kBadLength, FaultKind::kOverSize}) {
    Fault fault = FaultOf(kind);
    fault.size = 2000;
    fault.by = 1;
    EXPECT_EQ(Sizes(Spoiled(fault, {})), (Many{}));
  }
}

}  // namespace
}  // namespace vt::testing
