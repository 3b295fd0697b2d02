#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/pdu_image.h"
#include "tests/protocol/elements.h"
#include "tests/protocol/events.h"

namespace vt::protocol {
namespace {

using vt::testing::AllocationCount;
using vt::testing::AllocationFault;
using vt::testing::Bytes;
using vt::testing::Element;
using vt::testing::EventPtr;
using vt::testing::EveryElement;
using vt::testing::FillAllocations;
using vt::testing::Hex;
using vt::testing::kDebug;
using vt::testing::kError;
using vt::testing::KeyedContext;
using vt::testing::kSilent;
using vt::testing::kTrace;
using vt::testing::kWarn;
using vt::testing::LogCapture;
using vt::testing::LogLine;
using vt::testing::PduImage;
using vt::testing::SweepAllocationFailures;
using vt::testing::Text;
using vt::testing::Wrap;

const Bytes kKey = Text("secret");

hmac_context Key() { return KeyedContext("secret"); }

int Unpack(const EventPtr& ev) {
  const hmac_context key = Key();
  return cv_unpack_event(ev.get(), &key);
}

PduImage WithElements(std::vector<Bytes> elements) {
  PduImage image;
  image.elements = std::move(elements);
  return image;
}

PduImage WithUsage() { return WithElements({Element(13, 0, Hex("1388"))}); }

// DecodedHeaderOnly decodes an image without elements, which keeps its wire bytes.
EventPtr DecodedHeaderOnly(const PduImage& image) {
  EventPtr ev = Wrap(image.Signed(kKey));
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_NE(ev->raw, nullptr);
  return ev;
}

TEST(EventDecode, FillsHeadersAndListAndDropsTheImage) {
  const FillAllocations garbage(0xA5);
  PduImage image = WithElements({Element(8, 0, Text("home")), Element(13, 1, Hex("1388"))});
  image.seq = 0x01020304;
  image.shipment = 0xFE;
  image.pri = 9;
  image.cls = 13;
  image.action = 0x0A0B;
  image.comm = 4;
  const EventPtr ev = Wrap(image.Signed(kKey));
  const LogCapture log(kTrace);
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(ev->pak_valid, 1u);
  EXPECT_EQ(ev->state, 0x101u);
  EXPECT_EQ(ev->raw, nullptr);
  EXPECT_EQ(ev->raw_hdr, nullptr);
  EXPECT_EQ(ev->raw_len, 0u);
  EXPECT_EQ(ev->raw_valid, 0u);
  EXPECT_EQ(ev->spare, 0u);
  EXPECT_EQ(ev->next, nullptr);
  ASSERT_NE(ev->sec, nullptr);
  EXPECT_EQ(ev->sec->byte1, 0x20);
  EXPECT_EQ(ev->sec->byte9, 0x41);
  EXPECT_EQ(ev->sec->digest_len, 20);
  EXPECT_EQ(ev->sec->tag, 0u);
  ASSERT_NE(ev->pak, nullptr);
  EXPECT_EQ(ev->pak->seq, 0x01020304u);
  EXPECT_BYTES(ev->pak->voltarisid, 32, "32*61");
  EXPECT_EQ(ev->pak->ver, 1);
  EXPECT_EQ(ev->pak->shipment, -2);
  EXPECT_EQ(ev->pak->pri, 9);
  EXPECT_EQ(ev->pak->type, 10);
  EXPECT_EQ(ev->pak->app, 17);
  EXPECT_EQ(ev->pak->class_, 13);
  EXPECT_EQ(ev->pak->action, 0x0A0B);
  EXPECT_EQ(ev->pak->tlv_bytes, 30);
  EXPECT_EQ(ev->pak->tlv_count, 2);
  ASSERT_NE(ev->tlvs, nullptr);
  EXPECT_EQ(ev->tlv_capacity, 2u);
  EXPECT_EQ(ev->tlvs[0]->type, 8u);
  EXPECT_EQ(ev->tlvs[0]->length, 17u);
  EXPECT_STREQ(static_cast<char*>(ev->tlvs[0]->value), "home");
  EXPECT_EQ(ev->tlvs[1]->type, 13u);
  EXPECT_EQ(ev->tlvs[1]->length, 14u);
  EXPECT_EQ(ev->tlvs[1]->qualifier, 1u);
  EXPECT_EQ(*static_cast<std::uint16_t*>(ev->tlvs[1]->value), 5000);
}

TEST(EventDecode, OfADecodedEventGrowsItsListFromTheCount) {
  const EventPtr ev = Wrap(WithUsage().Signed(kKey));
  ASSERT_EQ(Unpack(ev), 0);
  EXPECT_EQ(vt::testing::AddText(ev.get(), 9, "lamp"), 0);
  EXPECT_EQ(ev->tlv_capacity, 17u);
  EXPECT_EQ(ev->pak->tlv_count, 2);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 30u);
}

TEST(EventDecode, ASecondTimeDoesNothing) {
  const EventPtr ev = Wrap(WithUsage().Signed(kKey));
  ASSERT_EQ(Unpack(ev), 0);
  const Event before = *ev;
  const LogCapture log(kTrace);
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(std::memcmp(&before, ev.get(), sizeof before), 0);
}

TEST(EventDecode, ASecondTimeDoesNothingWithoutElementsEither) {
  const EventPtr ev = DecodedHeaderOnly(PduImage());
  const Event before = *ev;
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(std::memcmp(&before, ev.get(), sizeof before), 0);
}

TEST(EventDecode, LeavesAnOutgoingEventAlone) {
  const EventPtr ev = vt::testing::NewEvent();
  const Event before = *ev;
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(std::memcmp(&before, ev.get(), sizeof before), 0);
}

TEST(EventDecode, WithoutElementsKeepsTheImageAndChecksNoDigest) {
  const EventPtr ev = Wrap(PduImage().Unsigned());
  const LogCapture log(kTrace);
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(ev->pak_valid, 1u);
  EXPECT_EQ(ev->state, 0x101u);
  EXPECT_NE(ev->raw, nullptr);
  EXPECT_EQ(ev->raw_hdr, ev->raw + 32);
  EXPECT_EQ(ev->raw_len, 80u);
  EXPECT_EQ(ev->raw_valid, 1u);
  EXPECT_EQ(ev->tlvs, nullptr);
  EXPECT_EQ(ev->tlv_capacity, 0u);
}

TEST(EventDecode, TlvBytesWithoutAnElementAreAccepted) {
  PduImage image = WithUsage();
  image.tlv_count = 0;
  const EventPtr ev = Wrap(image.Signed(kKey));
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(ev->tlvs, nullptr);
  EXPECT_EQ(ev->raw_len, 94u);
}

TEST(EventDecode, TlvBytesBehindTheLastElementAreAccepted) {
  PduImage image = WithElements({Element(8, 0, Text("home")), Element(13, 0, Hex("1388"))});
  image.tlv_count = 1;
  const EventPtr ev = Wrap(image.Signed(kKey));
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(ev->pak->tlv_count, 1);
  EXPECT_EQ(ev->tlv_capacity, 1u);
  EXPECT_EQ(vt_get_total_tlvs_data_size(ev.get()), 16u);
}

TEST(EventDecode, OfSixtyBytesWithoutADigestFindsTheHeaderBehindTheSecurityHeader) {
  // 12 bytes of security header, then at once the message header.
  const Bytes image =
      Hex("00 02 0000 00000000 00 12 0014 | 0a0b0c0d 32*62 01 ff 02 0a 11 0d 0b0c |"
          "0000 0000");
  ASSERT_EQ(image.size(), 60u);
  const EventPtr ev = Wrap(image);
  const LogCapture log(kTrace);
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(ev->pak_valid, 1u);
  EXPECT_EQ(ev->state, 0x101u);
  EXPECT_NE(ev->raw, nullptr);
  EXPECT_EQ(ev->raw_len, 60u);
  EXPECT_EQ(ev->raw_hdr, ev->raw + 12);
  EXPECT_EQ(ev->tlvs, nullptr);
  ASSERT_NE(ev->pak, nullptr);
  EXPECT_EQ(ev->pak->seq, 0x0a0b0c0du);
  EXPECT_BYTES(ev->pak->voltarisid, 32, "32*62");
  EXPECT_EQ(ev->pak->shipment, -1);
  EXPECT_EQ(ev->pak->pri, 2);
  EXPECT_EQ(ev->pak->class_, 13);
  EXPECT_EQ(ev->pak->action, 0x0b0c);
  EXPECT_EQ(ev->pak->tlv_bytes, 0);
  EXPECT_EQ(ev->pak->tlv_count, 0);
  ASSERT_NE(ev->sec, nullptr);
  EXPECT_EQ(ev->sec->byte9, 0x21);
}

TEST(EventDecode, OfSixtyBytesWithoutMemoryFailsAndCanBeRepeated) {
  const Bytes image = Hex("00 02 0000 00000000 00 10 0014 48*00");
  const std::size_t count = SweepAllocationFailures([&](AllocationFault& fault) {
    const LogCapture quiet(kSilent);
    const EventPtr ev = [&] {
      const AllocationFault::Pause pause;
      return Wrap(image);
    }();
    const int status = Unpack(ev);
    fault.Disarm();
    EXPECT_EQ(status, fault.hit() ? 1 : 0);
    EXPECT_EQ(ev->state, fault.hit() ? 0x107u : 0x101u);
    EXPECT_EQ(ev->pak == nullptr, fault.hit());
    EXPECT_EQ(Unpack(ev), 0);
    EXPECT_EQ(ev->state, 0x101u);
  });
  EXPECT_EQ(count, 1u);  // one block for both headers
}

TEST(EventDecode, OfSixtyBytesWithAnyElementWordIsASizeMismatch) {
  for (std::size_t i = 56; i < 60; ++i) {
    Bytes image = Hex("00 02 0000 00000000 00 10 0014 48*00");
    image[i] = 1;
    const EventPtr ev = Wrap(image);
    const LogCapture log(kTrace);
    EXPECT_EQ(Unpack(ev), 3) << i;
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{
                  {kTrace, "cv_unpack_event: Cant unpack size mismatch: got 60, expecting: 80"}}))
        << i;
    EXPECT_EQ(ev->state, 0x107u) << i;
    EXPECT_EQ(ev->pak_valid, 0u) << i;
  }
}

// The block that holds the image ends with it, so a read of a header that is not all there shows.
TEST(EventDecode, Of61To79BytesIsASizeMismatch) {
  for (std::size_t size = 61; size < 80; ++size) {
    Bytes image = Hex("00 02 0000 00000000 00 10 0014");
    image.resize(size);
    const EventPtr ev = Wrap(image);
    const LogCapture log(kTrace);
    EXPECT_EQ(Unpack(ev), 3) << size;
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{kTrace, "cv_unpack_event: Cant unpack size mismatch: got " +
                                                 std::to_string(size) + ", expecting: 80"}}));
    EXPECT_EQ(ev->state, 0x107u);
    EXPECT_EQ(ev->pak, nullptr);
    EXPECT_NE(ev->sec, nullptr);
  }
}

TEST(EventDecode, Of78And79BytesExpectsWhatTheTlvBytesSay) {
  for (const std::size_t size : {78u, 79u}) {
    Bytes image = Hex("00 02 0000 00000000 00 10 0014 64*00 0102");
    image.resize(size);
    const EventPtr ev = Wrap(image);
    const LogCapture log(kTrace);
    EXPECT_EQ(Unpack(ev), 3);
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{kTrace, "cv_unpack_event: Cant unpack size mismatch: got " +
                                                 std::to_string(size) + ", expecting: 338"}}));
  }
}

TEST(EventDecode, OfAnImageOneByteTooLongIsASizeMismatch) {
  Bytes bytes = WithUsage().Signed(kKey);
  bytes.push_back(0);
  const EventPtr ev = Wrap(bytes);
  const LogCapture log(kTrace);
  EXPECT_EQ(Unpack(ev), 3);
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{
                {kTrace, "cv_unpack_event: Cant unpack size mismatch: got 95, expecting: 94"}}));
  EXPECT_EQ(ev->state, 0x107u);
  EXPECT_EQ(ev->pak_valid, 0u);
  EXPECT_EQ(ev->pak, nullptr);
  EXPECT_NE(ev->sec, nullptr);
  EXPECT_NE(ev->raw, nullptr);
}

TEST(EventDecode, OfAnImageOneByteTooShortIsASizeMismatch) {
  Bytes bytes = WithUsage().Signed(kKey);
  bytes.pop_back();
  const EventPtr ev = Wrap(bytes);
  const LogCapture log(kTrace);
  EXPECT_EQ(Unpack(ev), 3);
  EXPECT_TRUE(log.Has(kTrace, "cv_unpack_event: Cant unpack size mismatch: got 93, expecting: 94"));
}

TEST(EventDecode, RefusesSecurityHeadersThatBreakTheRules) {
  std::vector<PduImage> images;
  for (std::uint8_t comm = 5; comm < 16; ++comm) images.emplace_back().comm = comm;
  for (const std::uint16_t len :
       std::initializer_list<std::uint16_t>{0, 16, 19, 21, 24, 0x1400, 0xFFFF}) {
    images.emplace_back().digest_len = len;
  }
  for (std::uint8_t nibble = 0; nibble < 16; ++nibble) {
    if (nibble != 2) images.emplace_back().enc = nibble;
    if (nibble != 1) images.emplace_back().auth = nibble;
  }
  for (const PduImage& image : images) {
    const Bytes bytes = image.Signed(kKey);
    const EventPtr ev = Wrap(bytes);
    const LogCapture log(kTrace);
    EXPECT_EQ(Unpack(ev), 5) << vt::testing::ToHex(bytes);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(ev->state, 0x107u);
    EXPECT_EQ(ev->pak_valid, 0u);
    EXPECT_EQ(ev->sec, nullptr);
    EXPECT_EQ(ev->pak, nullptr);
    EXPECT_NE(ev->raw, nullptr);
  }
}

TEST(EventDecode, RefusesTheSecurityHeaderOfAShortImageBeforeItsSize) {
  for (const std::size_t size : {60u, 61u, 79u}) {
    Bytes image = Hex("00 02 0000 00000000 00 10 0010");
    image.resize(size);
    EXPECT_EQ(Unpack(Wrap(image)), 5) << size;
  }
}

TEST(EventDecode, AcceptsEveryCommUpToFour) {
  for (std::uint8_t comm = 0; comm <= 4; ++comm) {
    PduImage image = WithUsage();
    image.comm = comm;
    const EventPtr ev = Wrap(image.Signed(kKey));
    EXPECT_EQ(Unpack(ev), 0) << int{comm};
    EXPECT_EQ(ev->sec->byte9, comm << 4 | 1);
  }
}

TEST(EventDecode, IgnoresTheUnnamedFields) {
  PduImage image = WithUsage();
  image.byte0 = 0xAB;
  image.nibble1 = 0xC;
  image.word2 = 0xDEF0;
  image.byte8 = 0x99;
  const EventPtr ev = Wrap(image.Signed(kKey));
  const LogCapture log(kTrace);
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(ev->sec->byte0, 0xBA);
  EXPECT_EQ(ev->sec->byte1, 0x2C);
  EXPECT_EQ(ev->sec->unnamed16, 0xDEF0);
  EXPECT_EQ(ev->sec->unnamed8, 0x99);
}

// At this layer a wrong digest is only logged; whoever trusts the message has to check.
TEST(EventDecode, AWrongDigestIsOnlyLogged) {
  Bytes bytes = WithUsage().Signed(kKey);
  bytes[12] ^= 1;
  const EventPtr ev = Wrap(bytes);
  const LogCapture log(kDebug);
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(ev->state, 0x101u);
  EXPECT_EQ(ev->pak_valid, 1u);
  EXPECT_EQ(ev->pak->tlv_count, 1);
  EXPECT_EQ(ev->raw, nullptr);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(
      log.HasMatch(kWarn, "^vtn_validateMessageHeader: HMAC_SHA1 header mismatch -?[1-9][0-9]*$"));
}

TEST(EventDecode, OfAForgedMessageLogsTheDifferenceOfTheFirstBytesThatDiffer) {
  const Bytes whole = WithUsage().Signed(kKey);
  for (const std::size_t at : {std::size_t{12}, std::size_t{20}, std::size_t{31}}) {
    for (const int added : {1, 7, 0x80}) {
      Bytes bytes = whole;
      bytes[at] = static_cast<std::uint8_t>(bytes[at] + added);
      bytes[31] = static_cast<std::uint8_t>(bytes[31] + (at == 31 ? 0 : 3));
      const LogCapture log(kWarn);
      EXPECT_EQ(Unpack(Wrap(bytes)), 0);
      ASSERT_EQ(log.lines().size(), 1u);
      EXPECT_EQ(log.lines()[0].text, "vtn_validateMessageHeader: HMAC_SHA1 header mismatch " +
                                         std::to_string(whole[at] - bytes[at]));
    }
  }
}

TEST(EventDecode, AnotherKeyIsOnlyLogged) {
  const EventPtr ev = Wrap(WithUsage().Signed(Text("other")));
  const LogCapture log(kWarn);
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.HasMatch(kWarn, "HMAC_SHA1 header mismatch"));
}

TEST(EventDecode, ASilencedLogChangesNothing) {
  const EventPtr ev = Wrap(WithUsage().Signed(Text("other")));
  const LogCapture log(kSilent);
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(ev->pak->tlv_count, 1);
  EXPECT_TRUE(log.lines().empty());
}

TEST(EventDecode, DoesNotLookAtAnImageThatIsNotValid) {
  const EventPtr ev = Wrap(WithUsage().Signed(kKey));
  ev->raw_valid = 0;
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(ev->pak, nullptr);
  EXPECT_EQ(ev->pak_valid, 0u);
  EXPECT_NE(ev->raw, nullptr);
}

TEST(EventDecode, ATagOnASilencedLogIsNoDifference) {
  PduImage image = WithUsage();
  image.tag = 5;
  const EventPtr ev = Wrap(image.Signed(kKey));
  const LogCapture log(kSilent);
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(ev->pak->tlv_count, 1);
  EXPECT_TRUE(log.lines().empty());
}

TEST(EventDecode, ANullKeyCountsAsAnUnkeyedContext) {
  const EventPtr ev = Wrap(WithUsage().Signed(kKey));
  const LogCapture log(kWarn);
  EXPECT_EQ(cv_unpack_event(ev.get(), nullptr), 0);
  EXPECT_TRUE(log.HasMatch(kWarn, "HMAC_SHA1 header mismatch"));
}

TEST(EventDecode, ATagIsReportedOnce) {
  PduImage image = WithUsage();
  image.tag = 5;
  const EventPtr ev = Wrap(image.Signed(kKey));
  const LogCapture log(kTrace);
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(
      log.lines(),
      (std::vector<LogLine>{{kWarn, "vtn_validateMessageHeader: Unexpected HMAC tag value 5"}}));
}

TEST(EventDecode, AMalformedElementFailsTheWholeMessage) {
  const EventPtr ev = Wrap(WithElements({Element(9, 0, Text("lamp")),
                                         Hex("8000000d 00000042 00000000 32*63 00000002 aabb "
                                             "00000002 00000001 0064 00000002 00c8"),
                                         Element(13, 0, Hex("01020304"))})
                               .Signed(kKey));
  const LogCapture log(kTrace);
  EXPECT_EQ(Unpack(ev), 1);
  EXPECT_EQ(
      log.lines(),
      (std::vector<LogLine>{
          {kError,
           "cv_create_tlv_from_raw_buf: Received mismatched TLV for type 13, dropping packet"},
          {kTrace, "cv_unpack_event: Cant unpack payload tlvs"}}));
  EXPECT_EQ(ev->state, 0x107u);
  EXPECT_EQ(ev->pak_valid, 0u);
  EXPECT_EQ(ev->pak, nullptr);
  EXPECT_EQ(ev->sec, nullptr);
  EXPECT_EQ(ev->tlvs, nullptr);
  EXPECT_EQ(ev->tlv_capacity, 0u);
  EXPECT_NE(ev->raw, nullptr);
}

TEST(EventDecode, MoreElementsThanBytesFailTheMessage) {
  for (const std::uint16_t count : std::initializer_list<std::uint16_t>{2, 3, 1000, 65535}) {
    PduImage image = WithUsage();
    image.tlv_count = count;
    const EventPtr ev = Wrap(image.Signed(kKey));
    const LogCapture log(kTrace);
    EXPECT_EQ(Unpack(ev), 1) << count;
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{kTrace, "cv_unpack_event: Cant unpack payload tlvs"}}));
  }
}

// A list of 65535 slots would take half a megabyte for a message of 94 bytes.
TEST(EventDecode, MoreElementsThanBytesGetNoMemoryForTheirSlots) {
  PduImage image = WithUsage();
  image.tlv_count = 65535;
  const EventPtr ev = Wrap(image.Signed(kKey));
  const AllocationCount count;
  EXPECT_EQ(Unpack(ev), 1);
  // The two headers, the block of the element that is there, and one slot beyond it.
  EXPECT_LE(count.bytes(), 80u + 2 * sizeof(Tlv*) + 64);
}

TEST(EventDecode, OfAnImpossibleCountStillReportsOnTheElementsThatAreThere) {
  for (const std::uint16_t count : std::initializer_list<std::uint16_t>{4, 65535}) {
    PduImage image = WithElements({Element(60, 0, Hex("00")), Element(13, 0, Hex("01020304"))});
    image.tlv_count = count;
    const EventPtr ev = Wrap(image.Signed(kKey));
    const LogCapture log(kTrace);
    EXPECT_EQ(Unpack(ev), 1) << count;
    EXPECT_EQ(
        log.lines(),
        (std::vector<LogLine>{
            {kTrace, "cv_create_tlv_from_raw_buf: Skipping unknown TLV, type = 60"},
            {kError,
             "cv_create_tlv_from_raw_buf: Received mismatched TLV for type 13, dropping packet"},
            {kTrace, "cv_unpack_event: Cant unpack payload tlvs"}}));
    EXPECT_EQ(ev->tlvs, nullptr);
    EXPECT_EQ(ev->tlv_capacity, 0u);
  }
}

TEST(EventDecode, AfterAFailureStartsAfreshAndLeaksNothing) {
  Bytes too_long = WithUsage().Signed(kKey);
  too_long.push_back(0);
  const struct {
    Bytes image;
    int status;
  } rows[] = {
      {too_long, 3},
      {Hex("00 02 0000 00000000 00 10 0014 50*00"), 3},
      {Hex("00 02 0000 00000000 00 15 0014 68*00"), 5},
      {WithElements({Element(9, 0, Text("lamp")), Element(13, 0, Hex("01"))}).Signed(kKey), 1},
  };
  for (const auto& row : rows) {
    const LogCapture quiet(kSilent);
    const EventPtr ev = Wrap(row.image);
    EXPECT_EQ(Unpack(ev), row.status);
    EXPECT_EQ(Unpack(ev), row.status);
    EXPECT_EQ(ev->state, 0x107u);
  }
}

TEST(EventDecode, AfterASizeMismatchSucceedsOnceTheImageIsMended) {
  Bytes bytes = WithUsage().Signed(kKey);
  bytes.push_back(0);
  const EventPtr ev = Wrap(bytes);
  const LogCapture log(kWarn);
  ASSERT_EQ(Unpack(ev), 3);
  --ev->raw_len;
  EXPECT_EQ(Unpack(ev), 0);
  EXPECT_EQ(ev->state, 0x101u);
  EXPECT_TRUE(log.lines().empty());
}

TEST(EventDecode, SurvivesEveryFailedAllocation) {
  std::vector<Bytes> elements = EveryElement();  // and so often that their slots are a block
  while (elements.size() <= 64) elements.push_back(elements[elements.size() % 7]);
  const Bytes bytes = WithElements(elements).Signed(kKey);
  std::size_t without_slots = 0;
  const std::size_t count = SweepAllocationFailures([&](AllocationFault& fault) {
    const LogCapture quiet(kSilent);
    const EventPtr ev = [&] {
      const AllocationFault::Pause pause;
      return Wrap(bytes);
    }();
    const int status = Unpack(ev);
    fault.Disarm();
    ASSERT_EQ(status, fault.hit() ? 1 : 0);
    if (!fault.hit()) return;
    EXPECT_EQ(ev->pak_valid, 0u);
    EXPECT_EQ(ev->tlvs, nullptr);
    EXPECT_EQ(ev->tlv_capacity, 0u);
    if (ev->pak != nullptr) {  // the array of slots: the header stays, and the state as it was
      ++without_slots;
      EXPECT_EQ(ev->pak->tlv_count, 0);
      EXPECT_EQ(ev->state, 0x101u);
      return;
    }
    EXPECT_EQ(ev->state, 0x107u);
    EXPECT_EQ(Unpack(ev), 0);
    EXPECT_EQ(ev->state, 0x101u);
  });
  EXPECT_EQ(count, 2u + elements.size());  // the headers, the slots, a block an element
  EXPECT_EQ(without_slots, 2u);            // once alone, once with all that follow
}

TEST(EventDecode, OfEveryTruncationFails) {
  const Bytes whole = WithElements(EveryElement()).Signed(kKey);
  const LogCapture quiet(kSilent);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const EventPtr ev = Wrap(Bytes(whole.begin(), whole.begin() + static_cast<long>(size)));
    ASSERT_EQ(ev == nullptr, size < 60) << size;
    if (ev != nullptr) ASSERT_EQ(Unpack(ev), 3) << size;
  }
}

TEST(EventDecode, OfEveryTruncationWithAMatchingSizeFails) {
  const Bytes whole = WithElements(EveryElement()).Unsigned();
  const LogCapture quiet(kSilent);
  for (std::size_t size = 80; size < whole.size(); ++size) {
    Bytes cut(whole.begin(), whole.begin() + static_cast<long>(size));
    cut[76] = static_cast<std::uint8_t>((size - 80) >> 8);
    cut[77] = static_cast<std::uint8_t>((size - 80) & 0xFF);
    const EventPtr ev = Wrap(vt::testing::Sign(cut, kKey));
    ASSERT_EQ(Unpack(ev), 1) << size;
    ASSERT_EQ(ev->state, 0x107u) << size;
  }
}

// Whatever a changed byte does to the elements, the decoder ends in order and tells of the digest.
TEST(EventDecode, OfAnyChangedByteEndsInOrder) {
  const Bytes whole = WithElements(EveryElement()).Signed(kKey);
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (const std::uint8_t change : std::initializer_list<std::uint8_t>{0x01, 0x80, 0xFF}) {
      Bytes changed = whole;
      changed[i] ^= change;
      const EventPtr ev = Wrap(changed);
      const LogCapture log(kWarn);
      const int status = Unpack(ev);
      ASSERT_TRUE(status == 0 || status == 1 || status == 3 || status == 5) << i;
      ASSERT_EQ(ev->state, status == 0 ? 0x101u : 0x107u) << i;
      if (i >= 12 && status == 0) {
        ASSERT_TRUE(log.HasMatch(kWarn, "HMAC_SHA1 header mismatch")) << i;
      }
    }
  }
}

TEST(EventDecode, AnEventWithAHeaderAlreadyIsMisuse) {
  const EventPtr ev = Wrap(WithUsage().Signed(kKey));
  ev->pak = static_cast<message_header*>(std::calloc(1, sizeof(message_header)));
  EXPECT_ASSERTION(Unpack(ev), "cv_unpack_event", "!ev->pak");
}

TEST(EventDecode, AnEventWithoutAnImageIsMisuse) {
  const EventPtr ev = Wrap(WithUsage().Signed(kKey));
  std::free(ev->raw);
  ev->raw = nullptr;
  EXPECT_ASSERTION(Unpack(ev), "cv_unpack_event", "ev->raw");
}

TEST(UnpackTlvs, WithoutEventHeaderOrListIsMisuse) {
  EXPECT_ASSERTION(cv_unpack_tlvs(nullptr), "cv_unpack_tlvs", "ev");
  const EventPtr received = Wrap(WithUsage().Signed(kKey));
  EXPECT_ASSERTION(cv_unpack_tlvs(received.get()), "cv_unpack_tlvs", "ev->pak");
  const EventPtr outgoing = vt::testing::NewEvent();
  EXPECT_ASSERTION(cv_unpack_tlvs(outgoing.get()), "cv_unpack_tlvs", "ev->tlvs");
}

// Prepared is an Event up to the point where its elements are decoded.
EventPtr Prepared(const PduImage& image, std::uint16_t slots) {
  EventPtr ev = Wrap(image.Unsigned());
  ev->raw_hdr = ev->raw + 32;
  ev->pak = static_cast<message_header*>(std::calloc(1, sizeof(message_header)));
  cv_corvane_event_nw_to_host(ev->raw_hdr, ev->pak);
  ev->tlvs = static_cast<Tlv**>(std::calloc(slots, sizeof(Tlv*)));
  ev->tlv_capacity = slots;
  return ev;
}

TEST(UnpackTlvs, FillsTheSlotsInOrder) {
  const EventPtr ev =
      Prepared(WithElements({Element(9, 0, Text("lamp")), Element(14, 0, Hex("05"))}), 2);
  EXPECT_EQ(cv_unpack_tlvs(ev.get()), 0);
  EXPECT_EQ(ev->tlvs[0]->type, 9u);
  EXPECT_EQ(ev->tlvs[1]->type, 14u);
}

TEST(UnpackTlvs, EmptiesTheSlotsWhenTheLastElementIsMalformed) {
  const EventPtr ev = Prepared(
      WithElements({Element(9, 0, Text("lamp")), EveryElement()[20], Element(13, 0, Hex("01"))}),
      3);
  EXPECT_EQ(cv_unpack_tlvs(ev.get()), 1);
  ASSERT_NE(ev->tlvs, nullptr);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(ev->tlvs[i], nullptr) << i;
}

// Received is an Event around a signed image with its message header found, not decoded.
EventPtr Received(const Bytes& image) {
  EventPtr ev = Wrap(image);
  ev->raw_hdr = ev->raw + 32;
  return ev;
}

TEST(ValidateMessageHeader, AcceptsTheRightDigest) {
  const hmac_context key = Key();
  const hmac_context before = key;
  for (const PduImage& image : {PduImage(), WithUsage(), WithElements(EveryElement())}) {
    const EventPtr ev = Received(image.Signed(kKey));
    const LogCapture log(kTrace);
    EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 1);
    EXPECT_TRUE(log.lines().empty());
  }
  EXPECT_EQ(std::memcmp(&key, &before, sizeof key), 0);
}

TEST(ValidateMessageHeader, AcceptsADecodedMessageWithoutElements) {
  const EventPtr ev = DecodedHeaderOnly(PduImage());
  const hmac_context key = Key();
  EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 1);
}

TEST(ValidateMessageHeader, RefusesEveryFlippedByteFromTheMessageHeaderOn) {
  const EventPtr ev = Received(WithElements(EveryElement()).Signed(kKey));
  const hmac_context key = Key();
  const LogCapture quiet(kSilent);
  for (std::size_t i = 32; i < ev->raw_len; ++i) {
    ev->raw[i] ^= 0xFF;
    ASSERT_EQ(vtn_validateMessageHeader(ev.get(), &key), 0) << i;
    ev->raw[i] ^= 0xFF;
  }
  EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 1);
}

TEST(ValidateMessageHeader, RefusesEveryFlippedBitOfTheMessageHeader) {
  const EventPtr ev = DecodedHeaderOnly(PduImage());
  const hmac_context key = Key();
  const LogCapture quiet(kSilent);
  for (std::size_t bit = 32 * 8; bit < 80 * 8; ++bit) {
    const auto mask = static_cast<std::uint8_t>(1 << bit % 8);
    ev->raw[bit / 8] ^= mask;
    ASSERT_EQ(vtn_validateMessageHeader(ev.get(), &key), 0) << bit;
    ev->raw[bit / 8] ^= mask;
  }
}

TEST(ValidateMessageHeader, RefusesEveryFlippedByteOfTheDigest) {
  const EventPtr ev = Received(WithUsage().Signed(kKey));
  const hmac_context key = Key();
  const LogCapture quiet(kSilent);
  for (std::size_t i = 12; i < 32; ++i) {
    ev->raw[i] ^= 0x01;
    EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 0) << i;
    ev->raw[i] ^= 0x01;
  }
}

// The digest begins behind the security header.
TEST(ValidateMessageHeader, DoesNotCoverTheSecurityHeader) {
  const EventPtr ev = Received(WithUsage().Signed(kKey));
  const hmac_context key = Key();
  for (const std::size_t i : {0u, 2u, 3u, 8u}) {
    ev->raw[i] ^= 0xFF;
    EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 1) << i;
    ev->raw[i] ^= 0xFF;
  }
}

TEST(ValidateMessageHeader, ReportsATagAndStillAccepts) {
  PduImage image;
  image.tag = 5;
  const EventPtr ev = DecodedHeaderOnly(image);
  const hmac_context key = Key();
  const LogCapture log(kTrace);
  EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 1);
  EXPECT_EQ(
      log.lines(),
      (std::vector<LogLine>{{kWarn, "vtn_validateMessageHeader: Unexpected HMAC tag value 5"}}));
}

TEST(ValidateMessageHeader, SkipsTheTagWithoutASecurityHeader) {
  PduImage image;
  image.tag = 5;
  const EventPtr ev = Received(image.Signed(kKey));
  const hmac_context key = Key();
  const LogCapture log(kTrace);
  EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 1);
  EXPECT_TRUE(log.lines().empty());
}

TEST(ValidateMessageHeader, DumpsTheReceivedAndThenTheComputedDigest) {
  Bytes bytes = WithUsage().Signed(kKey);
  const Bytes computed(bytes.begin() + 12, bytes.begin() + 32);
  for (std::size_t i = 12; i < 32; ++i) bytes[i] = 0xAB;
  const EventPtr ev = Received(bytes);
  const hmac_context key = Key();
  std::string computed_text;
  for (const std::uint8_t byte : computed) computed_text += vt::testing::Printf("%02x", byte);

  const LogCapture log(kTrace);
  EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 0);
  const std::vector<LogLine> lines = log.lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_TRUE(
      log.HasMatch(kWarn, "^vtn_validateMessageHeader: HMAC_SHA1 header mismatch -?[1-9][0-9]*$"));
  EXPECT_EQ(lines[0].level, kWarn);
  EXPECT_EQ(
      lines[1],
      (LogLine{kTrace, "voltaris_dump_digest: digest: abababababababababababababababababababab"}));
  EXPECT_EQ(lines[2], (LogLine{kTrace, "voltaris_dump_digest: digest: " + computed_text}));
}

TEST(ValidateMessageHeader, DumpsNothingWhenOnlyTheWarningIsWanted) {
  Bytes bytes = WithUsage().Signed(kKey);
  bytes[12] ^= 0xFF;
  const EventPtr ev = Received(bytes);
  const hmac_context key = Key();
  for (const std::uint32_t level : {1u, 2u, 3u}) {
    const LogCapture log(level);
    EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 0);
    EXPECT_EQ(log.lines().size(), 1u) << level;
  }
}

TEST(ValidateMessageHeader, WithoutAWholeImageIsZeroInSilence) {
  const hmac_context key = Key();
  const EventPtr decoded = Wrap(WithUsage().Signed(kKey));
  ASSERT_EQ(Unpack(decoded), 0);
  const EventPtr short_image = Wrap(Hex("00 02 0000 00000000 00 10 0014 48*00"));
  ASSERT_EQ(Unpack(short_image), 0);
  const EventPtr no_header = Wrap(PduImage().Signed(kKey));
  const EventPtr cut = Received(PduImage().Signed(kKey));
  cut->raw_len = 79;
  const EventPtr outgoing = vt::testing::NewEvent();
  for (const Event* ev :
       {decoded.get(), short_image.get(), no_header.get(), cut.get(), outgoing.get()}) {
    const LogCapture log(kTrace);
    EXPECT_EQ(vtn_validateMessageHeader(const_cast<Event*>(ev), &key), 0);
    EXPECT_TRUE(log.lines().empty());
  }
}

}  // namespace
}  // namespace vt::protocol
