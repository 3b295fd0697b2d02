// No message counts that the key did not sign: whatever is changed behind the security header is
// detected, and what is dropped leaves no trace in the collection.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <string>

#include "vtapi.h"

#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

// A receiver that has taken a good message, and what a dropped one has to leave as it is.
class Guarded {
 public:
  Guarded() {
    receiver_.Process(SignedReply(RichReply(-1)));
    EXPECT_EQ(receiver_.result()->ack_count, 2);
    EXPECT_FALSE(receiver_.Contents().empty());
    record_ = receiver_.Record();
    contents_ = receiver_.Contents();
  }

  // Drops tells whether the message changed nothing in the record.
  [[nodiscard]] bool Drops(const Bytes& wire) {
    receiver_.Process(wire);
    ++dropped_;
    return receiver_.Record() == record_;
  }

  // ExpectWhole checks what a record does not show, and that good messages still count.
  void ExpectWhole(const Bytes& good) {
    EXPECT_EQ(receiver_.Contents(), contents_);
    const std::int32_t depth = receiver_.result()->events.depth;
    const std::int32_t answers = receiver_.result()->answers_received;
    receiver_.Process(good);
    EXPECT_EQ(receiver_.result()->events.depth, depth + 1);
    EXPECT_EQ(receiver_.result()->answers_received, answers + 1);
    record_ = receiver_.Record();
    contents_ = receiver_.Contents();
  }

  std::size_t dropped() const { return dropped_; }

 private:
  Receiver receiver_;
  Bytes record_;
  std::vector<std::string> contents_;
  std::size_t dropped_ = 0;
};

void Report(const Guarded& guarded) { std::cout << guarded.dropped() << " forgeries dropped\n"; }

TEST(Authentication, EverySingleBitFlipOfEveryMessageIsDetected) {
  const LogCapture quiet(kSilent);
  const std::size_t step = Thinned(5);
  Guarded guarded;
  std::size_t number = 0;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    Bytes wire = message.wire;
    for (std::size_t bit = kDigestOffset * 8; bit < wire.size() * 8; ++bit) {
      if (++number % step != 0) continue;
      const auto mask = static_cast<std::uint8_t>(1u << bit % 8);
      wire[bit / 8] ^= mask;
      ASSERT_TRUE(guarded.Drops(wire)) << "bit " << bit;
      wire[bit / 8] ^= mask;
    }
    guarded.ExpectWhole(wire);
  }
  Report(guarded);
}

TEST(Authentication, EveryByteValueAtEveryOffsetOfRepresentativeMessagesIsDetected) {
  const LogCapture quiet(kSilent);
  const std::size_t step = Thinned(11);
  Guarded guarded;
  std::size_t number = 0;
  std::size_t messages = 0;
  for (const Message& message : Corpus()) {
    const std::string_view names[] = {"without elements",
                                      "reply",
                                      "wont",
                                      "type 9",
                                      "type 28",
                                      "type 10 aggregated",
                                      "type 43 aggregated",
                                      "type 46",
                                      "type 60 aggregated"};
    if (std::find(std::begin(names), std::end(names), message.name) == std::end(names)) continue;
    ++messages;
    SCOPED_TRACE(message.name);
    Bytes wire = message.wire;
    for (std::size_t at = kDigestOffset; at < wire.size(); ++at) {
      const std::uint8_t right = wire[at];
      for (unsigned value = 0; value < 256; ++value) {
        if (value == right || ++number % step != 0) continue;
        wire[at] = static_cast<std::uint8_t>(value);
        ASSERT_TRUE(guarded.Drops(wire)) << "offset " << at << ", value " << value;
      }
      wire[at] = right;
    }
    guarded.ExpectWhole(wire);
  }
  EXPECT_GE(messages, 7u);
  Report(guarded);
}

// All pairs of bits would take one test too long; each quarter takes the pairs by their first bit.
class TwoBitFlips : public ::testing::TestWithParam<std::size_t> {};

TEST_P(TwoBitFlips, OfOneMessageOf200BytesAreAllDetected) {
  const LogCapture quiet(kSilent);
  const std::size_t step = Thinned(61);
  Bytes wire = SignedReply(
      ReplyWith({Aggregate(13, "lamp", {Entry(1, {0, 11})}),
                 Element(9, 0, Text("nineteen characters")), Element(8, 0, Text("dom"))}));
  ASSERT_EQ(wire.size(), 200u);
  const auto flip = [&wire](std::size_t bit) {
    wire[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
  };
  Guarded guarded;
  std::size_t number = 0;
  const std::size_t end = wire.size() * 8;
  for (std::size_t first = kDigestOffset * 8 + GetParam(); first < end; first += 4) {
    flip(first);
    for (std::size_t second = first + 1; second < end; ++second) {
      if (++number % step != 0) continue;
      flip(second);
      ASSERT_TRUE(guarded.Drops(wire)) << "bits " << first << " and " << second;
      flip(second);
    }
    flip(first);
  }
  guarded.ExpectWhole(wire);
  Report(guarded);
}

INSTANTIATE_TEST_SUITE_P(Quarter, TwoBitFlips, ::testing::Range(std::size_t{0}, std::size_t{4}));

TEST(Authentication, TheUnsignedFirst12BytesAreTakenByTheirOwnRules) {
  const Bytes good = UsageReply("lamp", 1, 11);
  for (std::size_t at = 0; at < kDigestOffset; ++at) {
    for (unsigned value = 0; value < 256; ++value) {
      SCOPED_TRACE("offset " + std::to_string(at) + ", value " + std::to_string(value));
      Bytes wire = good;
      wire[at] = static_cast<std::uint8_t>(value);
      // Only these fields have rules; a tag is reported and accepted.
      bool accepted = true;
      Lines expected;
      if (at == 1) accepted = (value & 0x0F) == 2;
      if (at == 9) accepted = (value >> 4) == 1 && (value & 0x0F) <= 4;
      if (at == 10) accepted = value == 0;
      if (at == 11) accepted = value == 20;
      if (!accepted) {
        expected = {{kDebug, "vtn_processReply: Error while unpacking, error_code=5"}};
      } else if (at >= 4 && at <= 7 && value != 0) {
        const auto tag = static_cast<std::int32_t>(value << 8 * (7 - at));
        expected = {
            {kWarn, "vtn_validateMessageHeader: Unexpected HMAC tag value " + std::to_string(tag)}};
      }
      Receiver receiver;
      const Bytes empty = receiver.Record();
      const LogCapture log(kDebug);
      receiver.Process(wire);
      EXPECT_EQ(log.lines(), expected);
      if (accepted) {
        EXPECT_EQ(receiver.result()->answers_received, 1);
        EXPECT_EQ(receiver.result()->row_count, 1);
      } else {
        EXPECT_EQ(receiver.Record(), empty);
      }
      if (HasFailure()) return;
    }
  }
}

TEST(Authentication, ForgedMessagesLeaveNoTraceAndTheNextGoodOneCounts) {
  const LogCapture quiet(kSilent);
  Guarded guarded;
  for (const Message& message : Corpus()) {
    SCOPED_TRACE(message.name);
    Bytes zero_digest = message.wire;
    std::fill(zero_digest.begin() + kDigestOffset, zero_digest.begin() + kMessageHeaderOffset,
              std::uint8_t{0});
    EXPECT_TRUE(guarded.Drops(zero_digest));
    // Of keys that are not the session's, the empty one is what an unkeyed peer has.
    for (const Bytes& key : {Bytes(20, 0), Head(SessionKey(), 19), Bytes(64, 0xFF)}) {
      EXPECT_TRUE(guarded.Drops(Sign(message.wire, key)));
    }
    Bytes shorter = message.wire;
    shorter.pop_back();
    EXPECT_TRUE(guarded.Drops(shorter));
    EXPECT_TRUE(guarded.Drops(message.wire + Bytes{0}));
    guarded.ExpectWhole(message.wire);
  }
  Report(guarded);
}

TEST(Authentication, TheDigestOfOneMessageDoesNotServeAnother) {
  const LogCapture quiet(kSilent);
  Guarded guarded;
  const std::vector<Message> corpus = Corpus();
  for (std::size_t i = 0; i < corpus.size(); ++i) {
    Bytes wire = corpus[i].wire;
    const Bytes& other = corpus[(i + 1) % corpus.size()].wire;
    std::copy(other.begin() + kDigestOffset, other.begin() + kMessageHeaderOffset,
              wire.begin() + kDigestOffset);
    EXPECT_TRUE(guarded.Drops(wire)) << corpus[i].name;
  }
  guarded.ExpectWhole(corpus[0].wire);
}

// The length of the digest is no choice of the sender: neither a digest of no bytes nor one whose
// first bytes are right serves.
TEST(Authentication, TheSenderDoesNotChooseTheLengthOfTheDigest) {
  const LogCapture quiet(kSilent);
  Guarded guarded;
  const Bytes key = SessionKey();
  for (std::uint16_t length = 0; length < 400; ++length) {
    if (length == 20) continue;
    PduImage image = RichReply();
    image.digest_len = length;
    const std::size_t field = (length + 3u) / 4 * 4;
    const Bytes good = SignedReply(image);
    Bytes digest(good.begin() + kDigestOffset, good.begin() + kMessageHeaderOffset);
    digest.resize(field);
    const Bytes rest(good.begin() + kMessageHeaderOffset, good.end());
    EXPECT_TRUE(guarded.Drops(Head(good, kDigestOffset) + digest + rest)) << length;
    EXPECT_TRUE(guarded.Drops(good)) << length;
  }
  guarded.ExpectWhole(SignedReply(RichReply()));
}

}  // namespace
