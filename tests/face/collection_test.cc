// Collections, sessions and results: every outcome, what outlives what, and objects that were moved
// from.
#include "vtapi/face/collection.hpp"

#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/face/face_support.h"

namespace {

using namespace vt::testing;
using namespace std::chrono_literals;

using voltaris::Cause;
using voltaris::collect_query;
using voltaris::Deadlines;
using voltaris::EntityId;
using voltaris::Expected;
using voltaris::Outcome;
using voltaris::Results;

TEST(FaceSession, ExecutesAndGivesWhatCame) {
  ScriptedPeer peer(Answering({Acknowledgement(-1, "lamp", {2, 1}), Acknowledgement(-2, "fan", {3}),
                               LevelReply("lamp", 1, 11)}));
  const Results results = FaceSession(peer.port()).execute(kLevels).value();
  EXPECT_TRUE(results.complete());
  EXPECT_EQ(results.outcome(), Outcome::kComplete);
  EXPECT_EQ(results.error_number(), 0);
  EXPECT_EQ(results.error_code(), 0);
  EXPECT_EQ(results.failure(), std::nullopt);
  EXPECT_EQ(results.counters().accepted, 3u);
  EXPECT_EQ(results.counters().acknowledgements, 3u);
  ASSERT_EQ(results.accepted().size(), 2u);
  EXPECT_EQ(EntityId(results.accepted()[0]).index, 1u);
  ASSERT_EQ(results.refused().size(), 1u);
  EXPECT_EQ(EntityId(results.refused()[0]).device.bytes[0], 'f');
  EXPECT_EQ(OnlyRow(results).get(voltaris::level), 11);
}

TEST(FaceSession, SendsItsIdentityAndSignsWithItsKey) {
  Bytes query;
  ScriptedPeer peer([&query](PeerConnection& c) { query = c.ReadPdu(); });
  EXPECT_TRUE(FaceSession(peer.port()).execute(kLevels));
  ASSERT_TRUE(peer.Join());
  EXPECT_EQ(Sign(query, SessionKey()), query);
  EXPECT_EQ(Bytes(query.begin() + 36, query.begin() + 68), Text({kIdentity, 32}));
}

TEST(FaceSession, WithoutAKeySignsWithItsIdentity) {
  Bytes query;
  ScriptedPeer peer([&query](PeerConnection& c) { query = c.ReadPdu(); }, 2);
  const auto open = [&peer] {
    return voltaris::Session::open("127.0.0.1", peer.port(), FaceIdentity()).value();
  };
  EXPECT_TRUE(open().execute(kLevels));
  EXPECT_TRUE(voltaris::Session::open("127.0.0.1", peer.port()).value().execute(kLevels));
  ASSERT_TRUE(peer.Join());
  const Bytes identity(query.begin() + 36, query.begin() + 68);
  EXPECT_NE(identity, Text({kIdentity, 32}));
  EXPECT_EQ(Sign(query, identity), query);
}

TEST(FaceSession, OfAnAddressThatIsNoneIsAnError) {
  for (const std::string& host :
       {std::string(), std::string("localhost"), std::string("127.1"), std::string("1.2.3.4.5"),
        std::string("255.255.255.255"), std::string("127.0.0.1\0", 10), std::string("::1")}) {
    const auto session = voltaris::Session::open(host, 7440);
    ASSERT_FALSE(session) << host;
    EXPECT_EQ(session.error().cause, Cause::kBadAddress);
    EXPECT_NE(session.error().text.find(host + ":7440"), std::string::npos);
  }
  EXPECT_EQ(voltaris::Session::open("127.0.0.1", 0).error().cause, Cause::kBadAddress);
}

TEST(FaceSession, WithAKeyThatWasMovedAwayIsAnError) {
  voltaris::Key key = FaceKey();
  const voltaris::Key taken = std::move(key);
  // NOLINTNEXTLINE(bugprone-use-after-move)
  EXPECT_EQ(voltaris::Session::open("127.0.0.1", 1, key).error().cause, Cause::kUsed);
  EXPECT_TRUE(voltaris::Session::open("127.0.0.1", 1, taken));
}

TEST(FaceSession, WithoutMemoryIsAnError) {
  const LogCapture quiet(kSilent);
  const AllocationFault fault = AllocationFault::FromNth(0);
  const auto session = voltaris::Session::open("127.0.0.1", 1, FaceIdentity());
  EXPECT_EQ(session.error().cause, Cause::kNoMemory);
}

TEST(FaceSession, DoesNotStartWhatCannotBeBuilt) {
  voltaris::Session session = FaceSession(1);
  const auto bad = collect_query("office").timeout(0s);
  EXPECT_EQ(session.execute(bad).error().cause, Cause::kBadTimeout);
  EXPECT_EQ(session.start(bad).error().cause, Cause::kBadTimeout);
}

TEST(FaceSession, ThatWasMovedFromStartsNothing) {
  voltaris::Session session = FaceSession(static_cast<std::uint16_t>(UnusedPort()));
  voltaris::Session other = std::move(session);
  // NOLINTNEXTLINE(bugprone-use-after-move)
  EXPECT_EQ(session.execute(kLevels).error().cause, Cause::kUsed);
  EXPECT_EQ(session.get(), nullptr);
  session = std::move(other);
  EXPECT_EQ(session.execute(kLevels)->outcome(), Outcome::kRefused);
}

TEST(FaceSession, ExecutesOneDescriptionOnSeveralNodesAndAgain) {
  ScriptedPeer first(Answering({LevelReply("lamp", 1, 1)}), 2);
  ScriptedPeer second(Answering({LevelReply("fan", 2, 2)}));
  voltaris::Session one = FaceSession(first.port());
  voltaris::Session two = FaceSession(second.port());
  EXPECT_EQ(DeviceName(OnlyRow(one.execute(kLevels).value())), "lamp");
  EXPECT_EQ(DeviceName(OnlyRow(two.execute(kLevels).value())), "fan");
  EXPECT_EQ(DeviceName(OnlyRow(one.execute(kLevels).value())), "lamp");
}

TEST(FaceSession, OfANodeThatStaysSilentEndsWithThePartialAnswer) {
  ScriptedPeer peer([](PeerConnection& c) {
    c.ReadPdu();
    c.Send(LevelReply("lamp", 1, 11) + Bytes(40, 0));
    c.WaitForClose();
  });
  const Results results = FaceSession(peer.port())
                              .execute(kLevels, {.connect = 10s, .idle = 50ms, .total = {}})
                              .value();
  EXPECT_EQ(results.outcome(), Outcome::kIdle);
  EXPECT_FALSE(results.complete());
  EXPECT_EQ(results.error_code(), VT_ERROR_TIMEOUT);
  EXPECT_EQ(results.error_number(), ETIMEDOUT);
  EXPECT_EQ(results.row_count(), 1u);
  const auto failure = results.failure();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->cause, Cause::kIncomplete);
  EXPECT_EQ(failure->text, voltaris::text_of(Outcome::kIdle));
  EXPECT_TRUE(peer.Join());
}

TEST(FaceSession, WaitsByDefaultAsLongAsDevicesMayTakeAndTwoSeconds) {
  ScriptedPeer peer([](PeerConnection& c) {
    c.ReadPdu();
    c.WaitForClose();
  });
  voltaris::Session session = FaceSession(peer.port());
  const Results results = session.execute(collect_query("office").timeout(1s)).value();
  EXPECT_EQ(results.outcome(), Outcome::kIdle);
}

// OutcomeOf executes on a peer.
Results Executed(ScriptedPeer::Script script, const Deadlines& deadlines = {}) {
  ScriptedPeer peer(std::move(script));
  return FaceSession(peer.port()).execute(kLevels, deadlines).value();
}

TEST(FaceOutcome, OfEachKindIsToldWithItsCause) {
  const Results refused =
      FaceSession(static_cast<std::uint16_t>(UnusedPort())).execute(kLevels).value();
  EXPECT_EQ(refused.outcome(), Outcome::kRefused);
  EXPECT_EQ(refused.failure()->number, ECONNREFUSED);
  EXPECT_EQ(refused.failure()->text, voltaris::text_of(Outcome::kRefused));

  const Results reset = Executed([](PeerConnection& c) {
    c.ReadPdu();
    c.Reset();
  });
  EXPECT_EQ(reset.outcome(), Outcome::kReadError);
  EXPECT_EQ(reset.failure()->number, ECONNRESET);
  EXPECT_NE(reset.failure()->text.find(std::strerror(ECONNRESET)), std::string::npos);

  const Results deadline = Executed([](PeerConnection& c) { c.WaitForClose(); },
                                    {.connect = {}, .idle = {}, .total = 40ms});
  EXPECT_EQ(deadline.outcome(), Outcome::kDeadline);

  const Results over_size = Executed([](PeerConnection& c) {
    c.ReadPdu();
    Bytes reply = LevelReply("lamp", 1, 11);
    reply[kTlvBytesOffset] = 0xFF;
    c.Send(reply);
    c.WaitForClose();
  });
  EXPECT_EQ(over_size.outcome(), Outcome::kOverSize);
  EXPECT_EQ(over_size.failure()->number, EMSGSIZE);
}

TEST(FaceOutcome, OfHooksForWhatLoopbackDoesNotDo) {
  const auto failing = [](int error) {
    return [error](int, const sockaddr*, socklen_t) -> std::optional<int> {
      errno = error;
      return -1;
    };
  };
  {
    const ConnectHook hook(failing(ENETUNREACH));
    const Results results = FaceSession(1).execute(kLevels).value();
    EXPECT_EQ(results.outcome(), Outcome::kUnreachable);
    EXPECT_NE(results.failure()->text.find(std::strerror(ENETUNREACH)), std::string::npos);
  }
  {
    const ConnectHook hook(failing(EINPROGRESS));
    const Results results =
        FaceSession(1).execute(kLevels, {.connect = 20ms, .idle = {}, .total = {}}).value();
    EXPECT_EQ(results.outcome(), Outcome::kConnectTimeout);
  }
}

TEST(FaceOutcome, HasWords) {
  EXPECT_EQ(voltaris::text_of(Outcome::kRefused), "connection refused");
  for (int i = 0; i <= 10; ++i) EXPECT_NE(voltaris::text_of(static_cast<Outcome>(i)), "");
  EXPECT_EQ(voltaris::text_of(static_cast<Outcome>(11)), "");
}

TEST(FaceOutcome, OfAnAnswerThatMemoryDidNotSufficeForIsNotComplete) {
  const LogCapture quiet(kSilent);
  bool was_seen = false;
  SweepAllocationFailures([&](AllocationFault& fault) {
    std::optional<ScriptedPeer> peer;
    std::optional<voltaris::Session> session;
    std::optional<Expected<voltaris::Collection>> collection;
    {
      const AllocationFault::Pause pause;
      peer.emplace(Answering({LevelReply("lamp", 1, 1)}));
      session = FaceSession(peer->port());
      collection = session->start(kLevels);
    }
    const Outcome outcome = (*collection)->run();
    fault.Disarm();
    const Results results = (*collection)->take_results().value();
    EXPECT_EQ(outcome, Outcome::kComplete);
    EXPECT_EQ(results.complete(), results.error_code() == 0);
    if (results.error_code() == 0) return;
    was_seen = true;
    EXPECT_EQ(results.error_code(), VT_ERROR_NO_MEMORY);
    EXPECT_EQ(results.failure()->cause, Cause::kNoMemory);
  });
  EXPECT_TRUE(was_seen);
}

TEST(FaceCollection, IsDrivenByAPollLoop) {
  ScriptedPeer peer(Answering({LevelReply("lamp", 1, 11)}));
  voltaris::Session session = FaceSession(peer.port());
  auto collection = session.start(kLevels).value();
  EXPECT_EQ(collection.outcome(), Outcome::kPending);
  EXPECT_EQ(collection.events(), POLLOUT);
  EXPECT_GE(collection.descriptor(), 0);
  ASSERT_TRUE(collection.timeout());
  EXPECT_LE(*collection.timeout(), 10s);
  while (collection.step() == Outcome::kPending) {
    pollfd watched = {collection.descriptor(), collection.events(), 0};
    (void)poll(&watched, 1, static_cast<int>(collection.timeout()->count()));
  }
  EXPECT_EQ(collection.outcome(), Outcome::kComplete);
  EXPECT_EQ(collection.error_number(), 0);
  EXPECT_EQ(collection.descriptor(), -1);
  EXPECT_EQ(collection.events(), 0);
  EXPECT_EQ(collection.timeout(), 0ms);
  EXPECT_EQ(collection.counters().accepted, 1u);
  EXPECT_EQ(collection.take_results()->row_count(), 1u);
  EXPECT_EQ(collection.take_results().error().cause, Cause::kUsed);
}

TEST(FaceCollection, HasNoTimeoutWithoutLimits) {
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); });
  voltaris::Session session = FaceSession(peer.port());
  const auto endless = session.start(kLevels, {.connect = {}, .idle = {}, .total = {}}).value();
  EXPECT_EQ(endless.timeout(), std::nullopt);
}

TEST(FaceCollection, TakesLimitsThatAreOverAndLimitsBeyondAllMeasure) {
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); }, 2);
  voltaris::Session session = FaceSession(peer.port());
  auto over = session.start(kLevels, {.connect = {}, .idle = {}, .total = -5ms}).value();
  EXPECT_EQ(over.run(), Outcome::kDeadline);
  const auto far =
      session.start(kLevels, {.connect = 1000000h, .idle = 1000000h, .total = 1000000h}).value();
  EXPECT_GT(far.timeout(), 24h);
}

TEST(FaceCollection, CanBeCancelled) {
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); });
  voltaris::Session session = FaceSession(peer.port());
  auto collection = session.start(kLevels).value();
  collection.cancel();
  EXPECT_EQ(collection.outcome(), Outcome::kCancelled);
  EXPECT_EQ(collection.error_number(), ECANCELED);
  const Results results = collection.take_results().value();
  EXPECT_EQ(results.outcome(), Outcome::kCancelled);
  EXPECT_EQ(results.failure()->text, "cancelled");
  EXPECT_TRUE(results.accepted().empty());
  EXPECT_TRUE(results.refused().empty());
  EXPECT_TRUE(results.rows().empty());
}

TEST(FaceCollection, WhoseResultsAreTakenWhilePendingIsCancelled) {
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); });
  voltaris::Session session = FaceSession(peer.port());
  auto collection = session.start(kLevels).value();
  EXPECT_EQ(collection.take_results()->outcome(), Outcome::kCancelled);
  EXPECT_EQ(collection.step(), Outcome::kCancelled);
}

TEST(FaceCollection, ThatWasMovedFromHasEnded) {
  ScriptedPeer peer(Answering({LevelReply("lamp", 1, 11)}));
  voltaris::Session session = FaceSession(peer.port());
  auto collection = session.start(kLevels).value();
  auto other = std::move(collection);
  // NOLINTBEGIN(bugprone-use-after-move)
  EXPECT_EQ(collection.outcome(), Outcome::kCancelled);
  EXPECT_EQ(collection.step(), Outcome::kCancelled);
  EXPECT_EQ(collection.run(), Outcome::kCancelled);
  EXPECT_EQ(collection.descriptor(), -1);
  EXPECT_EQ(collection.events(), 0);
  EXPECT_EQ(collection.timeout(), 0ms);
  EXPECT_EQ(collection.error_number(), 0);
  EXPECT_EQ(collection.counters().bytes, 0u);
  EXPECT_EQ(collection.get(), nullptr);
  collection.cancel();
  EXPECT_EQ(collection.take_results().error().cause, Cause::kUsed);
  // NOLINTEND(bugprone-use-after-move)
  EXPECT_EQ(other.run(), Outcome::kComplete);
}

TEST(FaceCollection, StartsOnlyQueriesThatWereNotExecuted) {
  ScriptedPeer peer(Answering({LevelReply("lamp", 1, 11)}));
  voltaris::Session session = FaceSession(peer.port());
  voltaris::Query query = kLevels.build().value();
  auto collection = session.start(std::move(query)).value();
  // NOLINTNEXTLINE(bugprone-use-after-move)
  EXPECT_EQ(session.start(std::move(query)).error().cause, Cause::kUsed);
  EXPECT_EQ(collection.run(), Outcome::kComplete);
}

TEST(FaceCollection, WithoutMemoryIsAnErrorAndLeavesNothingBehind) {
  const LogCapture quiet(kSilent);
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); }, 1000);
  const LiveBlocks live;
  const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
    std::optional<voltaris::Session> session;
    {
      const AllocationFault::Pause pause;
      session = FaceSession(peer.port());
    }
    const auto collection = session->start(kLevels);
    fault.Disarm();
    EXPECT_EQ(collection.has_value(), !fault.hit());
    if (!collection) EXPECT_EQ(collection.error().cause, Cause::kNoMemory);
  });
  EXPECT_GT(failures, 5u);
  EXPECT_EQ(live.count(), 0);
}

TEST(FaceResults, OutliveSessionAndCollection) {
  std::optional<Results> results;
  {
    ScriptedPeer peer(Answering({LevelReply("lamp", 1, 11)}));
    voltaris::Session session = FaceSession(peer.port());
    auto collection = session.start(kLevels).value();
    { const voltaris::Session gone = std::move(session); }
    EXPECT_EQ(collection.run(), Outcome::kComplete);
    results = collection.take_results().value();
  }
  EXPECT_EQ(OnlyRow(*results).get(voltaris::level), 11);
}

TEST(FaceResults, ReplaceEachOther) {
  (void)ResultsOf(kLevels, {Plain(14, {1})});  // what libcrypto allocates once
  const LiveBlocks live;
  {
    Results results = ResultsOf(kLevels, {Plain(14, {1})});
    results = ResultsOf(kLevels, {Plain(14, {2})});
    EXPECT_EQ(OnlyRow(results).get(voltaris::level), 2);
    Results other = std::move(results);
    // NOLINTBEGIN(bugprone-use-after-move)
    EXPECT_EQ(results.row_count(), 0u);
    EXPECT_TRUE(results.rows().empty());
    EXPECT_TRUE(results.accepted().empty());
    EXPECT_TRUE(results.refused().empty());
    EXPECT_EQ(results.error_code(), 0);
    EXPECT_EQ(results.get(), nullptr);
    // NOLINTEND(bugprone-use-after-move)
    EXPECT_EQ(OnlyRow(other).get(voltaris::level), 2);
    results = std::move(other);
    EXPECT_EQ(OnlyRow(results).get(voltaris::level), 2);
  }
  EXPECT_EQ(live.count(), 0);
}

TEST(FaceCollection, ReplacesAnotherAndLeavesNothingBehind) {
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); }, 2);
  voltaris::Session session = FaceSession(peer.port());
  const std::set<int> before = OpenDescriptors();
  const LiveBlocks live;
  {
    auto collection = session.start(kLevels).value();
    collection = session.start(kLevels).value();
    EXPECT_EQ(collection.step(), Outcome::kPending);
  }
  EXPECT_EQ(live.count(), 0);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(FaceResults, AreReadByManyThreads) {
  std::vector<Bytes> entries;
  for (std::uint32_t i = 1; i <= 100; ++i) entries.push_back(Entry(i, {9}));
  const Results results = ResultsOf(kLevels, {Aggregate(14, "lamp", entries)});
  std::vector<std::thread> threads;
  std::vector<int> sums(4);
  for (int& sum : sums) {
    threads.emplace_back([&results, &sum] {
      for (const voltaris::Row row : results.rows()) sum += *row.get(voltaris::level);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(sums, std::vector<int>(4, 900));
}

}  // namespace
