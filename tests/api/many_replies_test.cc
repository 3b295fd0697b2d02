// Results of so many replies that these are made in the result's pool, from the 65th on.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"

namespace {

using namespace vt::testing;

constexpr std::int32_t kFew = 64;  // replies that are blocks of their own

PduImage Numbered(std::uint32_t entity) {
  const Bytes usage = {static_cast<std::uint8_t>(entity >> 8U), static_cast<std::uint8_t>(entity)};
  return ReplyWith({Aggregate(13, "lamp", {Entry(entity, usage)}),
                    Aggregate(9, "lamp", {Entry(entity, Counted(Text("name")))}),
                    Element(8, 0, Text("lab"))});
}

// Filled has taken replies for the entities from 1 on.
class Filled : public Collection {
 public:
  explicit Filled(std::uint32_t replies) : Collection({8, 4}) {
    for (std::uint32_t entity = 1; entity <= replies; ++entity) Reply(Numbered(entity));
  }
  void ExpectRows(std::uint32_t count) {
    ASSERT_EQ(voltaris_getRowCount(result()), static_cast<std::int32_t>(count));
    for (std::uint32_t entity = 1; entity <= count; ++entity) {
      ResultRow* const row = voltaris_getNextRow(result());
      ASSERT_EQ(row->entity_index, entity);
      const auto value = static_cast<std::uint16_t>(entity);
      EXPECT_EQ(Read(row, 8), HostBytes(value));
      EXPECT_EQ(Read(row, 4), Terminated("name"));
      EXPECT_EQ(Read(row, 3), Terminated("lab"));
    }
    EXPECT_EQ(voltaris_getNextRow(result()), nullptr);
  }
  Event* TakeLast() {
    Event* last = nullptr;
    for (std::int32_t n = result()->events.depth; n > 0; --n) {
      last = static_cast<Event*>(dequeue(&result()->events));
      if (n > 1) (void)enqueue(&result()->events, last);
    }
    return last;
  }
};

class ManyReplies : public ::testing::Test {
 protected:
  // libcrypto keeps what its first use makes, which is no leak.
  ManyReplies() { const Filled first(1); }
};

TEST_F(ManyReplies, GiveTheirRowsAndLeaveNothing) {
  const LiveBlocks live;
  {
    Filled c(3000);
    c.ExpectRows(3000);
  }
  EXPECT_EQ(live.count(), 0);
}

TEST_F(ManyReplies, TakeFewAllocations) {
  Filled c(kFew);
  constexpr std::uint32_t kMore = 500;
  const hmac_context key = Keyed(SessionKey());
  std::vector<Bytes> wires;
  for (std::uint32_t entity = 1; entity <= kMore; ++entity) {
    wires.push_back(Numbered(entity).Signed(SessionKey()));
  }
  const AllocationCount count;
  for (const Bytes& wire : wires) {
    vtn_processReply(wire.data(), static_cast<std::int32_t>(wire.size()), c.result(), &key);
  }
  EXPECT_EQ(c.result()->events.depth, static_cast<std::int32_t>(kFew + kMore));
  EXPECT_LE(count.allocations(), 40u);
}

TEST_F(ManyReplies, ThoseThatAreTakenOutOutliveTheirResult) {
  const LiveBlocks live;
  Event* taken = nullptr;
  {
    Filled c(kFew + 10);
    taken = c.TakeLast();
  }
  EXPECT_EQ(live.count(), 1);  // what the reply lies in
  const auto* const usage =
      static_cast<const aggregated_value*>(cv_get_next_tlv(taken, 0x8000000D)->value);
  EXPECT_EQ(static_cast<const plain_entry*>(usage->entries[0])->tag, std::uint32_t{kFew + 10});
  (void)cv_cleanup_event(taken);
  EXPECT_EQ(live.count(), 0);
}

TEST_F(ManyReplies, ThoseThatAreHeldOutliveTheirResult) {
  const LiveBlocks live;
  Event* held = nullptr;
  {
    Filled c(kFew + 10);
    held = reinterpret_cast<Event*>(c.result()->events.tail);
    held->state = CV_EVENT_STATE_HELD;
  }
  EXPECT_EQ(live.count(), 1);
  EXPECT_STREQ(static_cast<const char*>(cv_get_next_tlv(held, 8)->value), "lab");
  held->state = CV_EVENT_STATE_OK;
  (void)cv_cleanup_event(held);
  EXPECT_EQ(live.count(), 0);
}

TEST_F(ManyReplies, EveryWayToReleaseOneReleasesIt) {
  const std::function<void(Event*)> kWays[] = {
      [](Event* ev) { (void)corvane_try_gc(ev); },
      [](Event* ev) {
        ev->state = CV_EVENT_STATE_REPLY;
        (void)corvane_free_rply(ev);
      },
      [](Event* ev) {
        (void)cv_free_tlvs(ev);
        (void)cv_free_data(ev);
        (void)cv_cleanup_event(ev);
      },
      [](Event* ev) {
        (void)cv_free_tlvs(ev);
        (void)cv_free_data(ev);
        vtn_releasePacket(ev);
      },
      [](Event* ev) {
        vt_free_tlv_ptr(ev->tlvs[1]);
        ev->tlvs[1] = nullptr;
        (void)cv_cleanup_event(ev);
      },
  };
  for (const auto& release : kWays) {
    const LiveBlocks live;
    {
      Filled c(kFew + 10);
      release(c.TakeLast());
    }
    EXPECT_EQ(live.count(), 0);
  }
}

TEST_F(ManyReplies, WhatIsAddedToOneIsReleasedWithIt) {
  const LiveBlocks live;
  {
    Filled c(kFew + 10);
    auto* const ev = reinterpret_cast<Event*>(c.result()->events.tail);
    device_header device = {};
    std::memcpy(device.id.bytes, DeviceHeader("lamp", {}).data(), sizeof device.id);
    EXPECT_EQ(cv_add_aggr_type_tlv(ev, 9, "another", 7, &device, nullptr), 0);
    EXPECT_EQ(cv_add_tlv(ev, 9, 12 + 4, "abc"), 0);
    auto* const other = static_cast<char*>(std::malloc(4));
    std::memcpy(other, "new", 4);
    cv_get_next_tlv(ev, 8)->value = other;  // an exchanged value goes with its element too
  }
  EXPECT_EQ(live.count(), 0);
}

TEST_F(ManyReplies, ThoseThatAreRefusedGiveTheirMemoryToTheNext) {
  Filled c(kFew + 1);
  const LogCapture log(kSilent);
  Bytes forged = Numbered(1).Signed(SessionKey());
  forged.back() ^= 1;
  PduImage broken = Numbered(1);
  broken.elements.push_back(Element(13, 0, {1}));
  const Bytes malformed = broken.Signed(SessionKey());
  const LiveBlocks live;
  for (int i = 0; i < 2000; ++i) {
    c.Process(forged);
    c.Process(malformed);
  }
  EXPECT_EQ(live.count(), 0);
  c.Reply(Numbered(kFew + 2));
  c.ExpectRows(kFew + 2);
}

TEST_F(ManyReplies, AMessageOfMoreBytesThanUsualIsDecodedToo) {
  Filled c(kFew + 1);
  std::vector<Bytes> entries;
  for (std::uint32_t entity = 1; entity <= 9000; ++entity) entries.push_back(Entry(entity, {0, 1}));
  c.Reply({Aggregate(13, "fan", entries)});
  EXPECT_EQ(voltaris_getRowCount(c.result()), kFew + 1 + 9000);
}

TEST_F(ManyReplies, WithoutMemoryAMessageIsLostOrFoldedInPartAndNothingLeaks) {
  const Bytes wires[] = {Numbered(1000).Signed(SessionKey()), ReplyWith({}).Signed(SessionKey())};
  for (const Bytes& wire : wires) {
    const hmac_context key = Keyed(SessionKey());
    const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
      const LiveBlocks live;
      {
        std::unique_ptr<Filled> c;
        {
          const AllocationFault::Pause pause;
          c = std::make_unique<Filled>(kFew);  // the next one needs the first chunk
        }
        const LogCapture log(kSilent);
        vtn_processReply(wire.data(), static_cast<std::int32_t>(wire.size()), c->result(), &key);
        fault.Disarm();
        const AllocationFault::Pause pause;
        if (c->result()->events.depth == kFew) {
          c->ExpectRows(kFew);
        } else {
          EXPECT_GE(voltaris_getRowCount(c->result()), kFew);
        }
        c.reset();
      }
      EXPECT_EQ(live.count(), 0);
    });
    EXPECT_GE(failures, 1u);
  }
}

}  // namespace
