#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/pdu_image.h"
#include "tests/protocol/events.h"

namespace vt::protocol {
namespace {

using vt::testing::AddText;
using vt::testing::AllocationCount;
using vt::testing::AllocationFault;
using vt::testing::Bytes;
using vt::testing::EventPtr;
using vt::testing::FillAllocations;
using vt::testing::GuardedBytes;
using vt::testing::Hex;
using vt::testing::HmacSha1;
using vt::testing::KeyedContext;
using vt::testing::kSilent;
using vt::testing::kTrace;
using vt::testing::LogCapture;
using vt::testing::LogLine;
using vt::testing::NewEvent;
using vt::testing::Printf;
using vt::testing::SweepAllocationFailures;
using vt::testing::Text;
using vt::testing::Wrap;

// Create builds the Pdu that the hexadecimal images below show.
int Create(Event* ev) {
  const hmac_context key = KeyedContext("secret");
  return vtn_createPdu(ev, 7, 0, 10, 11, Bytes(32, 'a').data(), 0x01020304, &key, 0);
}

TEST(CreatePdu, WritesHeadersElementsAndDigest) {
  const FillAllocations garbage(0xA5);
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 8, "home"), 0);
  EXPECT_EQ(Create(ev.get()), 0);
  EXPECT_BYTES(ev->raw, ev->raw_len,
               "00 02 0000 00000000 00 10 0014 |"
               "94a94209 fc712fef ea98b7c5 1f87634e 96ebecea |"
               "01020304 32*61 01 00 07 0a 11 0a 000b 0010 0001 |"
               "00000008 00000010 00000000 686f6d65");
  EXPECT_EQ(ev->raw_len, 96u);
  EXPECT_EQ(ev->raw_valid, 1u);
  EXPECT_EQ(ev->raw_hdr, ev->raw + 32);
  EXPECT_EQ(ev->pak->seq, 0x01020304u);
  EXPECT_EQ(ev->pak->tlv_bytes, 16);
  EXPECT_EQ(ev->sec->byte0, 0);
  EXPECT_EQ(ev->sec->byte1, 0x20);
  EXPECT_EQ(ev->sec->byte9, 0x01);
  EXPECT_EQ(ev->sec->digest_len, 20);
}

TEST(CreatePdu, WithoutElementsIsEightyBytes) {
  const EventPtr ev = NewEvent();
  EXPECT_EQ(Create(ev.get()), 0);
  EXPECT_BYTES(ev->raw, ev->raw_len,
               "00 02 0000 00000000 00 10 0014 |"
               "fde619de 5fba7ce1 57cc10ff 1ffc94d5 f8a3c74e |"
               "01020304 32*61 01 00 07 0a 11 0a 000b 0000 0000");
}

TEST(CreatePdu, ReportsTheImage) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 8, "home"), 0);
  const LogCapture log(kTrace);
  ASSERT_EQ(Create(ev.get()), 0);
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{{kTrace, Printf("vtn_createPdu: allocated raw size 96 @ %p",
                                                  static_cast<void*>(ev->raw))}}));
}

TEST(CreatePdu, AllocatesTheImageAndTheSecurityHeaderOnly) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 8, "home"), 0);
  const AllocationCount count;
  EXPECT_EQ(Create(ev.get()), 0);
  EXPECT_EQ(count.allocations(), 2u);
  EXPECT_EQ(count.bytes(), 96u + sizeof(security_header));
}

TEST(CreatePdu, OverwritesTheFixedHeaderFields) {
  const EventPtr ev = NewEvent();
  ev->pak->ver = 9;
  ev->pak->type = 9;
  ev->pak->app = 9;
  ASSERT_EQ(Create(ev.get()), 0);
  EXPECT_BYTES(ev->raw + 68, 12, "01 00 07 0a 11 0a 000b 0000 0000");
}

TEST(CreatePdu, KeepsOnlyTheBitsThatTheFieldsHave) {
  const EventPtr ev = NewEvent();
  const hmac_context key = KeyedContext("secret");
  ASSERT_EQ(
      vtn_createPdu(ev.get(), 0x1FE, 0x5FF, 0x30A, 0x7000B, Bytes(32, 'a').data(), 1, &key, 0x13),
      0);
  EXPECT_BYTES(ev->raw, 12, "00 02 0000 00000000 00 13 0014");
  EXPECT_BYTES(ev->raw + 68, 8, "01 ff fe 0a 11 0a 000b");
}

TEST(CreatePdu, TakesAnIdentityAtAnOddAddressAndCopiesEveryByte) {
  const EventPtr ev = NewEvent();
  const hmac_context key = KeyedContext("secret");
  const GuardedBytes id = GuardedBytes::AtOddAddress(Hex("00 15*61 00 14*62 00"));
  ASSERT_EQ(vtn_createPdu(ev.get(), 0, 0, 10, 11, id.data(), 0xFFFFFFFF, &key, 0), 0);
  EXPECT_BYTES(ev->raw + 32, 36, "ffffffff 00 15*61 00 14*62 00");
}

TEST(CreatePdu, DoesNotChangeTheKey) {
  hmac_context key = KeyedContext("secret");
  const hmac_context before = key;
  for (int i = 0; i < 2; ++i) {
    const EventPtr ev = NewEvent();
    ASSERT_EQ(vtn_createPdu(ev.get(), 7, 0, 10, 11, Bytes(32, 'a').data(), 0x01020304, &key, 0), 0);
    EXPECT_BYTES(ev->raw + 12, 20, "fde619de 5fba7ce1 57cc10ff 1ffc94d5 f8a3c74e");
  }
  EXPECT_EQ(std::memcmp(&key, &before, sizeof key), 0);
}

TEST(CreatePdu, IsAcceptedByTheCheckOfReceivedMessages) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 8, "home"), 0);
  ASSERT_EQ(Create(ev.get()), 0);
  const hmac_context key = KeyedContext("secret");
  const LogCapture log(kTrace);
  EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 1);
  EXPECT_TRUE(log.lines().empty());
}

TEST(CreatePdu, IsDecodedToWhatWentIn) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 8, "home"), 0);
  ASSERT_EQ(AddText(ev.get(), 9, "lamp*", 1), 0);
  ASSERT_EQ(Create(ev.get()), 0);
  const EventPtr back = Wrap(Bytes(ev->raw, ev->raw + ev->raw_len));
  const hmac_context key = KeyedContext("secret");
  ASSERT_EQ(cv_unpack_event(back.get(), &key), 0);
  EXPECT_EQ(back->pak->seq, 0x01020304u);
  EXPECT_STREQ(static_cast<char*>(back->tlvs[0]->value), "home");
  EXPECT_STREQ(static_cast<char*>(back->tlvs[1]->value), "lamp*");
  EXPECT_EQ(back->tlvs[1]->qualifier, 1u);
}

TEST(CreatePdu, WithoutMemoryFailsAndCanBeRepeated) {
  const std::size_t count = SweepAllocationFailures([](AllocationFault& fault) {
    const LogCapture quiet(kSilent);
    const EventPtr ev = [] {
      const AllocationFault::Pause pause;
      EventPtr made = NewEvent();
      EXPECT_EQ(AddText(made.get(), 8, "home"), 0);
      return made;
    }();
    const int status = Create(ev.get());
    fault.Disarm();
    EXPECT_EQ(status, fault.hit() ? 1 : 0);
    if (!fault.hit()) return;
    EXPECT_EQ(ev->raw, nullptr);
    EXPECT_EQ(ev->raw_valid, 0u);
    EXPECT_EQ(Create(ev.get()), 0);
    EXPECT_EQ(ev->raw_len, 96u);
  });
  EXPECT_EQ(count, 2u);  // the security header and the image
}

TEST(CreatePdu, WithoutMemoryForTheImageReportsNothing) {
  const EventPtr ev = NewEvent();
  const LogCapture log(kTrace);
  {
    const AllocationFault fault = AllocationFault::Nth(1);
    EXPECT_EQ(Create(ev.get()), 1);
  }
  EXPECT_TRUE(log.lines().empty());
}

TEST(CreatePdu, WithoutAHeaderIsMisuse) {
  const EventPtr ev = NewEvent();
  cv_free_data(ev.get());
  EXPECT_ASSERTION(Create(ev.get()), "cv_pack_event", "ev->pak");
}

TEST(CreatePdu, ASecondTimeIsMisuse) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(Create(ev.get()), 0);
  EXPECT_ASSERTION(Create(ev.get()), "cv_pack_event", "!ev->raw");
}

TEST(CreatePdu, OfTheMostBytesThatFitIsDecodedAgain) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 8, std::string(65535 - 12, 'x')), 0);
  ASSERT_EQ(Create(ev.get()), 0);
  ASSERT_EQ(ev->raw_len, 65615u);
  EXPECT_BYTES(ev->raw + 76, 4, "ffff 0001");
  const EventPtr back = Wrap(Bytes(ev->raw, ev->raw + ev->raw_len));
  const hmac_context key = KeyedContext("secret");
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_unpack_event(back.get(), &key), 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(CreatePdu, OfMoreElementBytesThanTheHeaderCountsIsMisuse) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 8, std::string(65536 - 12, 'x')), 0);
  EXPECT_ASSERTION(Create(ev.get()), "cv_pack_tlvs", "!dlen");
}

// Deliberate: the digest's length is held in sixteen bits, so a large image is signed over a
// prefix.
TEST(CreatePdu, OfAnImageOf65568BytesIsSignedOverNothing) {
  for (const std::size_t extra : {0u, 1u, 40u}) {
    const EventPtr ev = NewEvent();
    ASSERT_EQ(AddText(ev.get(), 8, std::string(65568 - 80 - 12 + extra, 'x')), 0);
    ASSERT_EQ(Create(ev.get()), 0);
    ASSERT_EQ(ev->raw_len, 65568u + extra);
    const Bytes prefix(ev->raw + 32, ev->raw + 32 + extra);
    EXPECT_TRUE(vt::testing::SameBytes(HmacSha1(Text("secret"), prefix), ev->raw + 12, 20));
    const hmac_context key = KeyedContext("secret");
    EXPECT_EQ(vtn_validateMessageHeader(ev.get(), &key), 1);
  }
}

TEST(CreatePdu, OfAnImageOf65567BytesIsSignedWhole) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 8, std::string(65567 - 80 - 12, 'x')), 0);
  ASSERT_EQ(Create(ev.get()), 0);
  ASSERT_EQ(ev->raw_len, 65567u);
  const Bytes message(ev->raw + 32, ev->raw + ev->raw_len);
  EXPECT_TRUE(vt::testing::SameBytes(HmacSha1(Text("secret"), message), ev->raw + 12, 20));
}

// Deliberately narrow: headers and elements stay with whoever noted them before.
TEST(ReleasePacket, ReleasesTheImageAndTheRecordOnly) {
  EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 8, "home"), 0);
  ASSERT_EQ(Create(ev.get()), 0);
  message_header* const pak = ev->pak;
  security_header* const sec = ev->sec;
  Tlv** const tlvs = ev->tlvs;
  const std::string raw_line =
      Printf("vtn_releasePacket: free pdu %p", static_cast<void*>(ev->raw));
  const std::string record_line =
      Printf("vtn_releasePacket: free pkt %p", static_cast<void*>(ev.get()));
  const LogCapture log(kTrace);
  vtn_releasePacket(ev.release());
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{kTrace, raw_line}, {kTrace, record_line}}));
  EXPECT_EQ(pak->tlv_count, 1);
  EXPECT_EQ(sec->digest_len, 20);
  EXPECT_STREQ(static_cast<char*>(tlvs[0]->value), "home");
  vt_free_tlv_ptr(tlvs[0]);
  std::free(tlvs);
  std::free(pak);
  std::free(sec);
}

TEST(ReleasePacket, SaysNothingOnASilencedLog) {
  auto* ev = static_cast<Event*>(std::calloc(1, sizeof(Event)));
  ASSERT_NE(ev, nullptr);
  const LogCapture log(kSilent);
  vtn_releasePacket(ev);
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
}  // namespace vt::protocol
