#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/pdu_image.h"
#include "tests/protocol/elements.h"
#include "tests/protocol/events.h"

namespace vt::protocol {
namespace {

using vt::testing::AddText;
using vt::testing::AllocationFault;
using vt::testing::Bytes;
using vt::testing::EventPtr;
using vt::testing::EveryElement;
using vt::testing::FillAllocations;
using vt::testing::Hex;
using vt::testing::KeyedContext;
using vt::testing::kTrace;
using vt::testing::LogCapture;
using vt::testing::NewEvent;
using vt::testing::PduImage;
using vt::testing::SweepAllocationFailures;
using vt::testing::Text;
using vt::testing::TlvArea;
using vt::testing::Wrap;

// Image gives the Event a blank wire image for its elements, so that cv_pack_tlvs can fill it.
void Image(Event* ev) {
  std::uint32_t tlv_bytes = 0;
  ASSERT_EQ(cv_pack_event(ev, &tlv_bytes), 0);
  ev->raw_len = tlv_bytes + 80;
  ev->raw = static_cast<std::uint8_t*>(std::malloc(ev->raw_len));
  ASSERT_NE(ev->raw, nullptr);
  std::memset(ev->raw, 0xEE, ev->raw_len);
  ev->raw_valid = 1;
  ev->raw_hdr = ev->raw + 32;
}

TEST(PackEvent, CountsTheElementsAndClearsTheSecurityHeader) {
  const FillAllocations garbage(0xA5);
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 9, "lamp"), 0);
  ASSERT_EQ(AddText(ev.get(), 7, "x"), 0);
  std::uint32_t tlv_bytes = 99;
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_pack_event(ev.get(), &tlv_bytes), 0);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(tlv_bytes, 29u);
  EXPECT_EQ(ev->pak->tlv_bytes, 29);
  EXPECT_EQ(ev->pak->tlv_count, 2);
  ASSERT_NE(ev->sec, nullptr);
  EXPECT_BYTES(ev->sec, 12, "12*00");
  EXPECT_EQ(ev->raw, nullptr);
  EXPECT_EQ(ev->state, 0x101u);
}

TEST(PackEvent, WithoutElementsCountsNothing) {
  const EventPtr ev = NewEvent();
  std::uint32_t tlv_bytes = 99;
  EXPECT_EQ(cv_pack_event(ev.get(), &tlv_bytes), 0);
  EXPECT_EQ(tlv_bytes, 0u);
  EXPECT_EQ(ev->pak->tlv_bytes, 0);
}

TEST(PackEvent, ASecondTimeClearsTheSameSecurityHeader) {
  const EventPtr ev = NewEvent();
  std::uint32_t tlv_bytes = 0;
  ASSERT_EQ(cv_pack_event(ev.get(), &tlv_bytes), 0);
  const security_header* sec = ev->sec;
  std::memset(ev->sec, 0x77, 12);
  EXPECT_EQ(cv_pack_event(ev.get(), &tlv_bytes), 0);
  EXPECT_EQ(ev->sec, sec);
  EXPECT_BYTES(ev->sec, 12, "12*00");
}

TEST(PackEvent, StoresSixteenBitsOfALargerCount) {
  const EventPtr ev = NewEvent();
  const std::string text(70000, 'x');
  ASSERT_EQ(AddText(ev.get(), 9, text), 0);
  std::uint32_t tlv_bytes = 0;
  EXPECT_EQ(cv_pack_event(ev.get(), &tlv_bytes), 0);
  EXPECT_EQ(tlv_bytes, 70012u);
  EXPECT_EQ(ev->pak->tlv_bytes, 70012 - 65536);
}

TEST(PackEvent, WithoutMemoryFails) {
  const EventPtr ev = NewEvent();
  std::uint32_t tlv_bytes = 0;
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(cv_pack_event(ev.get(), &tlv_bytes), 1);
  }
  EXPECT_EQ(ev->state, 0x107u);
  EXPECT_EQ(ev->sec, nullptr);
}

TEST(PackEvent, WithoutAHeaderIsMisuse) {
  const EventPtr ev = NewEvent();
  cv_free_data(ev.get());
  std::uint32_t tlv_bytes = 0;
  EXPECT_ASSERTION(cv_pack_event(ev.get(), &tlv_bytes), "cv_pack_event", "ev->pak");
}

TEST(PackEvent, WithAnImageAlreadyIsMisuse) {
  const EventPtr ev = NewEvent();
  Image(ev.get());
  std::uint32_t tlv_bytes = 0;
  EXPECT_ASSERTION(cv_pack_event(ev.get(), &tlv_bytes), "cv_pack_event", "!ev->raw");
}

TEST(PackTlvs, WritesTheElementsBackToBackAndNothingElse) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 9, "tv!", 1), 0);  // an odd length: the next element is unaligned
  const std::uint16_t usage = 5000;
  ASSERT_EQ(cv_add_tlv(ev.get(), 13, 14, &usage), 0);
  const std::uint32_t entity = 0x01020304;
  ASSERT_EQ(cv_add_tlv(ev.get(), 3, 16, &entity), 0);
  Image(ev.get());
  EXPECT_EQ(cv_pack_tlvs(ev.get()), 0);
  EXPECT_BYTES(ev->raw, ev->raw_len,
               "80*ee | 00000009 0000000f 00000001 747621 |"
               "0000000d 0000000e 00000000 1388 | 00000003 00000010 00000000 01020304");
}

TEST(PackTlvs, WithoutElementsWritesNothing) {
  const EventPtr ev = NewEvent();
  Image(ev.get());
  EXPECT_EQ(cv_pack_tlvs(ev.get()), 0);
  EXPECT_BYTES(ev->raw, ev->raw_len, "80*ee");
}

TEST(PackTlvs, SkipsEmptySlots) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 9, "gone"), 0);
  ASSERT_EQ(AddText(ev.get(), 7, "stays"), 0);
  vt_free_tlv_ptr(ev->tlvs[0]);
  ev->tlvs[0] = nullptr;
  Image(ev.get());
  EXPECT_EQ(cv_pack_tlvs(ev.get()), 0);
  EXPECT_BYTES(ev->raw + 80, ev->raw_len - 80, "00000007 00000011 00000000 7374617973");
}

TEST(PackTlvs, StopsAtTheCapacity) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 7, "stays"), 0);
  ev->pak->tlv_count = 1000;
  Image(ev.get());
  EXPECT_EQ(cv_pack_tlvs(ev.get()), 0);
  EXPECT_BYTES(ev->raw + 80, ev->raw_len - 80, "00000007 00000011 00000000 7374617973");
}

TEST(PackTlvs, StopsAtANullArray) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 7, "gone"), 0);
  cv_free_tlvs(ev.get());
  Image(ev.get());
  EXPECT_EQ(ev->raw_len, 80u);
  EXPECT_EQ(cv_pack_tlvs(ev.get()), 0);
}

TEST(PackTlvs, LeftoverBytesAreMisuse) {
  const EventPtr ev = NewEvent();
  ASSERT_EQ(AddText(ev.get(), 7, "role"), 0);
  Image(ev.get());
  ++ev->pak->tlv_bytes;
  EXPECT_ASSERTION(cv_pack_tlvs(ev.get()), "cv_pack_tlvs", "!dlen");
  ev->pak->tlv_bytes = static_cast<std::uint16_t>(ev->pak->tlv_bytes - 2);
  EXPECT_ASSERTION(cv_pack_tlvs(ev.get()), "cv_pack_tlvs", "!dlen");
}

// Copied makes an outgoing Event of clones of the elements that were received.
EventPtr Copied(const Event& received) {
  EventPtr out = NewEvent();
  for (int i = 0; i < received.pak->tlv_count; ++i) {
    const Tlv& tlv = *received.tlvs[i];
    EXPECT_EQ(cv_add_tlv_common(out.get(), tlv.type, tlv.length, tlv.value, tlv.qualifier), 0) << i;
  }
  return out;
}

TEST(EncodeDecode, KeepsTheBytesOfEveryKindOfElement) {
  const hmac_context key = KeyedContext("secret");
  PduImage image;
  image.elements = EveryElement();
  const EventPtr received = Wrap(image.Signed(Text("secret")));
  ASSERT_EQ(cv_unpack_event(received.get(), &key), 0);
  const EventPtr out = Copied(*received);
  ASSERT_EQ(vtn_createPdu(out.get(), 0, 0, 10, 11, Bytes(32, 'a').data(), 1, &key, 0), 0);
  EXPECT_TRUE(vt::testing::SameBytes(vt::testing::Joined(image.elements), TlvArea(*out)));
}

TEST(EncodeDecode, KeepsTheBytesOfEachElementAlone) {
  const hmac_context key = KeyedContext("secret");
  for (const Bytes& element : EveryElement()) {
    PduImage image;
    image.elements = {element};
    const EventPtr received = Wrap(image.Signed(Text("secret")));
    ASSERT_EQ(cv_unpack_event(received.get(), &key), 0) << vt::testing::ToHex(element);
    const EventPtr out = Copied(*received);
    ASSERT_EQ(vtn_createPdu(out.get(), 0, 0, 10, 11, Bytes(32, 'a').data(), 1, &key, 0), 0);
    EXPECT_TRUE(vt::testing::SameBytes(element, TlvArea(*out)));
  }
}

// An unknown type is kept as a bare header.
TEST(EncodeDecode, DropsTheValueOfAnUnknownType) {
  const hmac_context key = KeyedContext("secret");
  PduImage image;
  image.elements = {Hex("0000003c 00000014 00000001 8*77")};
  const EventPtr received = Wrap(image.Signed(Text("secret")));
  ASSERT_EQ(cv_unpack_event(received.get(), &key), 0);
  EXPECT_EQ(received->tlvs[0]->length, 20u);
  EXPECT_EQ(received->tlvs[0]->value, nullptr);
  EXPECT_EQ(vt_get_total_tlvs_data_size(received.get()), 12u);
}

// An element of a bare header has no value whatever its type says, and everything copes with that.
TEST(EncodeDecode, KeepsABareHeaderOfEveryType) {
  const hmac_context key = KeyedContext("secret");
  PduImage image;
  for (const std::uint32_t flags : {0u, 0x80000000u, 0x40000000u, 0xC0000000u}) {
    for (std::uint32_t type = 0; type < 64; ++type) {
      image.elements.push_back(vt::testing::Element(flags | type, type % 2, {}));
    }
  }
  const EventPtr received = Wrap(image.Signed(Text("secret")));
  ASSERT_EQ(cv_unpack_event(received.get(), &key), 0);
  ASSERT_EQ(received->pak->tlv_count, 256);
  const device_header device = vt::testing::Device('d');
  for (int i = 0; i < 256; ++i) {
    const Tlv& tlv = *received->tlvs[i];
    EXPECT_EQ(tlv.length, 12u);
    EXPECT_EQ(tlv.value, nullptr) << tlv.type;
    EXPECT_EQ(vt_get_tlv_size(&tlv), 12u) << tlv.type;
    EXPECT_EQ(cv_get_next_tlv_by_dh(received.get(), tlv.type, &device, 0), nullptr);
  }
  const EventPtr out = Copied(*received);
  ASSERT_EQ(vtn_createPdu(out.get(), 0, 0, 10, 11, Bytes(32, 'a').data(), 1, &key, 0), 0);
  EXPECT_TRUE(vt::testing::SameBytes(vt::testing::Joined(image.elements), TlvArea(*out)));
}

// An aggregate of an unknown type is skipped like any other unknown element.
TEST(EncodeDecode, DropsTheValueOfAnUnknownAggregate) {
  const hmac_context key = KeyedContext("secret");
  PduImage image;
  image.elements = {Hex("8000003c 00000014 00000000 8*77"), Hex("0000000d 0000000e 00000000 1388")};
  const EventPtr received = Wrap(image.Signed(Text("secret")));
  ASSERT_EQ(cv_unpack_event(received.get(), &key), 0);
  EXPECT_EQ(received->tlvs[0]->value, nullptr);
  EXPECT_EQ(*static_cast<std::uint16_t*>(received->tlvs[1]->value), 5000);
  const device_header device = vt::testing::Device(0x77);
  EXPECT_EQ(cv_get_next_tlv_by_dh(received.get(), 60, &device, 0), nullptr);
}

TEST(EncodeDecode, CopyingSurvivesEveryFailedAllocation) {
  const hmac_context key = KeyedContext("secret");
  PduImage image;
  image.elements = EveryElement();
  const EventPtr received = Wrap(image.Signed(Text("secret")));
  ASSERT_EQ(cv_unpack_event(received.get(), &key), 0);
  const LogCapture quiet(vt::testing::kSilent);
  const std::size_t count = SweepAllocationFailures([&](AllocationFault& fault) {
    const EventPtr out = [] {
      const AllocationFault::Pause pause;
      return NewEvent();
    }();
    int failures = 0;
    for (int i = 0; i < received->pak->tlv_count; ++i) {
      const Tlv& tlv = *received->tlvs[i];
      const int status =
          cv_add_tlv_common(out.get(), tlv.type, tlv.length, tlv.value, tlv.qualifier);
      if (status != 0) {
        EXPECT_EQ(status, 1);
        ++failures;
      }
    }
    fault.Disarm();
    EXPECT_EQ(failures > 0, fault.hit());
  });
  EXPECT_GT(count, 100u);
}

}  // namespace
}  // namespace vt::protocol
