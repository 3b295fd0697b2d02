#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/protocol/events.h"

namespace vt::protocol {
namespace {

using vt::testing::AllocationFault;
using vt::testing::Bytes;
using vt::testing::EventPtr;
using vt::testing::FillAllocations;
using vt::testing::HeapBytes;
using vt::testing::Hex;
using vt::testing::kDebug;
using vt::testing::KeyedContext;
using vt::testing::kInfo;
using vt::testing::kSilent;
using vt::testing::kTrace;
using vt::testing::LogCapture;
using vt::testing::LogLine;
using vt::testing::NewEvent;
using vt::testing::Printf;
using vt::testing::SweepAllocationFailures;
using vt::testing::Wrap;

// Signed is an Event that owns everything an Event can own.
EventPtr Signed() {
  EventPtr ev = NewEvent();
  const hmac_context key = KeyedContext("secret");
  EXPECT_EQ(vt::testing::AddText(ev.get(), 8, "home"), 0);
  EXPECT_EQ(vtn_createPdu(ev.get(), 1, 0, 10, 11, Bytes(32, 'a').data(), 7, &key, 0), 0);
  return ev;
}

// The pieces of an Event as the log prints them, noted while they exist.
struct Addresses {
  explicit Addresses(const Event* ev)
      : event(Printf("%p", static_cast<const void*>(ev))),
        raw(Printf("%p", static_cast<const void*>(ev->raw))),
        pak(Printf("%p", static_cast<const void*>(ev->pak))),
        sec(Printf("%p", static_cast<const void*>(ev->sec))) {}
  std::string event, raw, pak, sec;
};

TEST(OutgoingEvent, StartsEmptyWithTheFixedHeaderFields) {
  const FillAllocations garbage(0xA5);
  const EventPtr ev = NewEvent();
  ASSERT_NE(ev, nullptr);
  EXPECT_EQ(ev->next, nullptr);
  EXPECT_EQ(ev->raw_valid, 0u);
  EXPECT_EQ(ev->pak_valid, 1u);
  EXPECT_EQ(ev->state, 0x101u);
  EXPECT_EQ(ev->raw, nullptr);
  EXPECT_EQ(ev->raw_len, 0u);
  EXPECT_EQ(ev->raw_hdr, nullptr);
  EXPECT_EQ(ev->sec, nullptr);
  EXPECT_EQ(ev->tlvs, nullptr);
  EXPECT_EQ(ev->tlv_capacity, 0u);
  EXPECT_EQ(ev->spare, 0u);
  ASSERT_NE(ev->pak, nullptr);
  EXPECT_EQ(ev->pak->type, 10);
  EXPECT_EQ(ev->pak->app, 17);
  EXPECT_EQ(ev->pak->ver, 1);
  EXPECT_EQ(ev->pak->seq, 0u);
  EXPECT_BYTES(ev->pak->voltarisid, 32, "32*00");
  EXPECT_EQ(ev->pak->shipment, 0);
  EXPECT_EQ(ev->pak->pri, 0);
  EXPECT_EQ(ev->pak->class_, 0);
  EXPECT_EQ(ev->pak->action, 0);
  EXPECT_EQ(ev->pak->tlv_bytes, 0);
  EXPECT_EQ(ev->pak->tlv_count, 0);
}

TEST(OutgoingEvent, IsReportedWithItsSequenceNumber) {
  const LogCapture log(kTrace);
  const EventPtr ev = NewEvent();
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(log.Has(kTrace, Printf("corvane_create_my_packet: \n[VLTRS]:New my packet %p(0)",
                                     static_cast<void*>(ev.get()))));
}

TEST(OutgoingEvent, IsNullWithoutALineWhenAnAllocationFails) {
  const std::size_t count = SweepAllocationFailures([](AllocationFault& fault) {
    const LogCapture log(kTrace);
    const EventPtr ev = NewEvent();
    fault.Disarm();
    EXPECT_EQ(ev == nullptr, fault.hit());
    EXPECT_EQ(log.lines().empty(), fault.hit());
  });
  EXPECT_EQ(count, 2u);
}

TEST(CommonHeader, StampsTheFixedFieldsAndKeepsTheOthers) {
  const EventPtr ev = NewEvent();
  ev->pak->type = 1;
  ev->pak->app = 2;
  ev->pak->ver = 3;
  ev->pak->pri = 4;
  ev->pak->seq = 5;
  ev->pak_valid = 0;
  EXPECT_EQ(cv_set_common_hdr(ev.get()), 0);
  EXPECT_EQ(ev->pak->type, 10);
  EXPECT_EQ(ev->pak->app, 17);
  EXPECT_EQ(ev->pak->ver, 1);
  EXPECT_EQ(ev->pak->pri, 4);
  EXPECT_EQ(ev->pak->seq, 5u);
  EXPECT_EQ(ev->pak_valid, 1u);
}

TEST(CommonHeader, DropsTheWireImage) {
  const EventPtr ev = Signed();
  ASSERT_NE(ev->raw, nullptr);
  EXPECT_EQ(cv_set_common_hdr(ev.get()), 0);
  EXPECT_EQ(ev->raw, nullptr);
  EXPECT_EQ(ev->raw_hdr, nullptr);
  EXPECT_EQ(ev->raw_len, 0u);
  EXPECT_EQ(ev->raw_valid, 0u);
  EXPECT_EQ(ev->pak->tlv_count, 1);
}

TEST(CommonHeader, LetsAnEventBeSignedAgain) {
  const EventPtr ev = Signed();
  const Bytes first(ev->raw, ev->raw + ev->raw_len);
  cv_set_common_hdr(ev.get());
  const hmac_context key = KeyedContext("secret");
  ASSERT_EQ(vtn_createPdu(ev.get(), 1, 0, 10, 11, Bytes(32, 'a').data(), 7, &key, 0), 0);
  EXPECT_TRUE(vt::testing::SameBytes(first, ev->raw, ev->raw_len));
}

TEST(ReceivedEvent, HoldsACopyOfTheDatagram) {
  const FillAllocations garbage(0xA5);
  const Bytes image = Hex("60*37");
  const LogCapture log(kTrace);
  const EventPtr ev = Wrap(image);
  ASSERT_NE(ev, nullptr);
  EXPECT_BYTES(ev->raw, 60, "60*37");
  EXPECT_EQ(ev->raw_len, 60u);
  EXPECT_EQ(ev->raw_valid, 1u);
  EXPECT_EQ(ev->pak_valid, 0u);
  EXPECT_EQ(ev->state, 0x101u);
  EXPECT_EQ(ev->next, nullptr);
  EXPECT_EQ(ev->raw_hdr, nullptr);
  EXPECT_EQ(ev->sec, nullptr);
  EXPECT_EQ(ev->pak, nullptr);
  EXPECT_EQ(ev->tlvs, nullptr);
  EXPECT_EQ(ev->tlv_capacity, 0u);
  EXPECT_EQ(ev->spare, 0u);
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{kTrace, "cv_mkevent_from_rawbuffer: size 60"}}));
}

TEST(ReceivedEvent, OfLessThanSixtyBytesIsDropped) {
  const HeapBytes image(Hex("59*00"));
  for (const std::int32_t size : {59, 58, 12, 1, 0, -1, INT32_MIN}) {
    const LogCapture log(kTrace);
    EXPECT_EQ(cv_mkevent_from_rawbuffer(size, image.data()), nullptr) << size;
    EXPECT_EQ(
        log.lines(),
        (std::vector<LogLine>{{kDebug, "cv_mkevent_from_rawbuffer: Dropping truncated packet"}}))
        << size;
  }
}

TEST(ReceivedEvent, WithoutMemoryForTheRecordIsNullInSilence) {
  const HeapBytes image(Hex("60*00"));
  const LogCapture log(kTrace);
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(cv_mkevent_from_rawbuffer(60, image.data()), nullptr);
  }
  EXPECT_TRUE(log.lines().empty());
}

TEST(ReceivedEvent, WithoutMemoryForTheImageIsNullWithALine) {
  const HeapBytes image(Hex("60*00"));
  const LogCapture log(kTrace);
  {
    const AllocationFault fault = AllocationFault::Nth(1);
    EXPECT_EQ(cv_mkevent_from_rawbuffer(60, image.data()), nullptr);
  }
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{
                {kInfo, "cv_mkevent_from_rawbuffer: Can't allocate memory for pkt creation"}}));
}

TEST(FreeData, ReleasesImageAndHeadersAndKeepsTheLength) {
  const EventPtr ev = Signed();
  const Addresses at(ev.get());
  const std::uint32_t raw_len = ev->raw_len;
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_free_data(ev.get()), 0);
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{
                             {kTrace, "cv_free_data: free raw (T 96) " + at.raw},
                             {kTrace, "cv_free_data: free pak " + at.pak},
                             {kTrace, "cv_free_data: free sec " + at.sec},
                         }));
  EXPECT_EQ(ev->raw, nullptr);
  EXPECT_EQ(ev->raw_hdr, nullptr);
  EXPECT_EQ(ev->pak, nullptr);
  EXPECT_EQ(ev->sec, nullptr);
  EXPECT_EQ(ev->raw_valid, 0u);
  EXPECT_EQ(ev->pak_valid, 0u);
  EXPECT_EQ(ev->raw_len, raw_len);
}

TEST(FreeData, CallsAnImageThatIsNotValidFalse) {
  const EventPtr ev = Wrap(Hex("60*00"));
  ev->raw_valid = 0;
  const std::string raw = Printf("%p", static_cast<void*>(ev->raw));
  const LogCapture log(kTrace);
  cv_free_data(ev.get());
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{kTrace, "cv_free_data: free raw (F 60) " + raw}}));
}

TEST(FreeData, OfAnEventWithoutDataSaysNothing) {
  const EventPtr ev = NewEvent();
  cv_free_data(ev.get());
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_free_data(ev.get()), 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(TryGc, ReleasesEverythingAndReportsEachStep) {
  EventPtr ev = Signed();
  const Addresses at(ev.get());
  const LogCapture log(kTrace);
  EXPECT_EQ(corvane_try_gc(ev.release()), 0);
  const std::vector<LogLine> lines = log.lines();
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[0].text.rfind("corvane_try_gc: cleanup tlvs ", 0), 0u) << lines[0];
  EXPECT_EQ(lines[1].text.rfind("corvane_try_gc: cleanup data ", 0), 0u) << lines[1];
  EXPECT_EQ(lines[2], (LogLine{kTrace, "cv_free_data: free raw (T 96) " + at.raw}));
  EXPECT_EQ(lines[3], (LogLine{kTrace, "cv_free_data: free pak " + at.pak}));
  EXPECT_EQ(lines[4], (LogLine{kTrace, "cv_free_data: free sec " + at.sec}));
  EXPECT_EQ(lines[5], (LogLine{kTrace, "corvane_try_gc: \n[VLTRS]:released event " + at.event}));
  EXPECT_EQ(lines[0].level, kTrace);
  EXPECT_EQ(lines[1].level, kTrace);
}

// Despite its name it always releases: the state does not matter.
TEST(TryGc, ReleasesAnEventInAnyState) {
  for (const std::uint32_t state : {0x101u, 0x103u, 0x104u, 0x107u, 0u}) {
    EventPtr ev = Signed();
    ev->state = state;
    const std::string event = Addresses(ev.get()).event;
    const LogCapture log(kTrace);
    EXPECT_EQ(corvane_try_gc(ev.release()), 0);
    EXPECT_TRUE(log.Has(kTrace, "corvane_try_gc: \n[VLTRS]:released event " + event)) << state;
  }
}

TEST(FreeReply, ReleasesAReplyOnASilencedLogToo) {
  EventPtr ev = Signed();
  ev->state = CV_EVENT_STATE_REPLY;
  const LogCapture log(kSilent);
  EXPECT_EQ(corvane_free_rply(ev.release()), 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(FreeReply, ReleasesAReplyWithOneLine) {
  EventPtr ev = Signed();
  ev->state = CV_EVENT_STATE_REPLY;
  const Addresses at(ev.get());
  const LogCapture log(kTrace);
  EXPECT_EQ(corvane_free_rply(ev.release()), 0);
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{{kDebug, "corvane_free_rply: Rply freed (" + at.event + ")"}}));
}

TEST(FreeReply, LeavesEveryOtherEventUntouched) {
  for (const std::uint32_t state : {0x101u, 0x103u, 0x107u, 0u}) {
    const EventPtr ev = Signed();
    ev->state = state;
    const LogCapture log(kTrace);
    EXPECT_EQ(corvane_free_rply(ev.get()), 0);
    EXPECT_TRUE(log.lines().empty()) << state;
    EXPECT_NE(ev->raw, nullptr);
    EXPECT_NE(ev->pak, nullptr);
    EXPECT_NE(ev->sec, nullptr);
    EXPECT_NE(ev->tlvs, nullptr);
    ev->state = CV_EVENT_STATE_OK;
  }
}

TEST(FreeReply, IgnoresNull) {
  const LogCapture log(kTrace);
  EXPECT_EQ(corvane_free_rply(nullptr), 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(FreeReply, ReleasesABareReply) {
  EventPtr ev = NewEvent();
  cv_free_data(ev.get());
  ev->state = CV_EVENT_STATE_REPLY;
  const LogCapture log(kDebug);
  EXPECT_EQ(corvane_free_rply(ev.release()), 0);
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(CleanupEvent, IgnoresNull) {
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_cleanup_event(nullptr), 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(CleanupEvent, ReleasesOrdinaryAndFailedEvents) {
  for (const std::uint32_t state : {0x101u, 0x107u, 0u}) {
    EventPtr ev = Signed();
    ev->state = state;
    const std::string event = Addresses(ev.get()).event;
    const LogCapture log(kTrace);
    EXPECT_EQ(cv_cleanup_event(ev.release()), 0);
    EXPECT_TRUE(log.Has(kTrace, "corvane_try_gc: \n[VLTRS]:released event " + event)) << state;
  }
}

TEST(CleanupEvent, LeavesAHeldEventAlone) {
  const EventPtr ev = Signed();
  ev->state = CV_EVENT_STATE_HELD;
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_cleanup_event(ev.get()), 0);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_NE(ev->raw, nullptr);
  EXPECT_NE(ev->pak, nullptr);
  EXPECT_NE(ev->tlvs, nullptr);
  ev->state = CV_EVENT_STATE_OK;
}

// The reply is gone after the first step; nothing may look at it for the second.
TEST(CleanupEvent, ReleasesAReplyOnce) {
  EventPtr ev = Signed();
  ev->state = CV_EVENT_STATE_REPLY;
  const Addresses at(ev.get());
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_cleanup_event(ev.release()), 0);
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{{kDebug, "corvane_free_rply: Rply freed (" + at.event + ")"}}));
}

TEST(CleanupEvent, ReleasesAnEventThatTheCallerMadeWithMalloc) {
  auto* ev = static_cast<Event*>(std::calloc(1, sizeof(Event)));
  ASSERT_NE(ev, nullptr);
  ev->raw = static_cast<std::uint8_t*>(std::malloc(60));
  ev->raw_len = 60;
  ev->raw_valid = 1;
  ev->pak = static_cast<message_header*>(std::calloc(1, sizeof(message_header)));
  ev->sec = static_cast<security_header*>(std::calloc(1, sizeof(security_header)));
  EXPECT_EQ(cv_cleanup_event(ev), 0);
}

}  // namespace
}  // namespace vt::protocol
