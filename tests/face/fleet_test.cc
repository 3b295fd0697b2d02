// Fleets: many nodes at once, in a loop of one's own or in one call.
#include "vtapi/face/fleet.hpp"

#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/face/face_support.h"

namespace {

using namespace vt::testing;
using namespace std::chrono_literals;

using voltaris::Cause;
using voltaris::collect_query;
using voltaris::Fleet;
using voltaris::Outcome;

TEST(FaceFleet, RunsManyAndGivesEachItsResults) {
  constexpr std::uint64_t kMany = 20;
  ScriptedPeer peer(Answering({LevelReply("lamp", 1, 5)}), kMany);
  voltaris::Session session = FaceSession(peer.port());
  Fleet fleet = Fleet::create(3).value();
  for (std::uint64_t i = 0; i < kMany; ++i) ASSERT_TRUE(fleet.add(session, kLevels, i));
  EXPECT_EQ(fleet.counters().waiting, kMany);
  std::set<std::uint64_t> tags;
  const bool all = fleet.run([&tags](std::uint64_t tag, voltaris::Collection& ended) {
    tags.insert(tag);
    EXPECT_EQ(ended.outcome(), Outcome::kComplete);
    const voltaris::Results results = ended.take_results().value();
    EXPECT_EQ(OnlyRow(results).get(voltaris::level), 5);
  });
  EXPECT_TRUE(all);
  EXPECT_EQ(tags.size(), kMany);
  EXPECT_EQ(fleet.counters().finished, kMany);
  EXPECT_EQ(fleet.counters().ended, 0u);
}

TEST(FaceFleet, EndsEachInItsOwnWay) {
  ScriptedPeer answers(Answering({LevelReply("lamp", 1, 5)}));
  ScriptedPeer silent([](PeerConnection& c) { c.WaitForClose(); });
  voltaris::Session first = FaceSession(answers.port());
  voltaris::Session second = FaceSession(silent.port());
  voltaris::Session third = FaceSession(static_cast<std::uint16_t>(UnusedPort()));
  Fleet fleet = Fleet::create().value();
  const voltaris::Deadlines deadlines{.connect = 10s, .idle = {}, .total = 50ms};
  ASSERT_TRUE(fleet.add(first, kLevels, 1));
  ASSERT_TRUE(fleet.add(second, kLevels, 2, deadlines));
  ASSERT_TRUE(fleet.add(third, kLevels.build().value(), 3));
  std::map<std::uint64_t, Outcome> outcomes;
  EXPECT_TRUE(fleet.run([&outcomes](std::uint64_t tag, voltaris::Collection& ended) {
    outcomes[tag] = ended.outcome();
    return true;
  }));
  EXPECT_EQ(outcomes,
            (std::map<std::uint64_t, Outcome>{
                {1, Outcome::kComplete}, {2, Outcome::kDeadline}, {3, Outcome::kRefused}}));
}

TEST(FaceFleet, IsDrivenByALoopOfOnesOwn) {
  ScriptedPeer peer(Answering({LevelReply("lamp", 1, 5)}), 2);
  std::optional<voltaris::Collection> kept;
  {
    voltaris::Session session = FaceSession(peer.port());
    Fleet fleet = Fleet::create().value();
    EXPECT_EQ(fleet.timeout(), std::nullopt);
    EXPECT_EQ(fleet.take_ended(), std::nullopt);
    ASSERT_TRUE(fleet.add(session, kLevels, 1));
    ASSERT_TRUE(fleet.add(session, kLevels, 2));
    { const voltaris::Session gone = std::move(session); }
    EXPECT_EQ(fleet.timeout(), 0ms);
    while (fleet.step()) {
      pollfd watched = {fleet.descriptor(), POLLIN, 0};
      (void)poll(&watched, 1, static_cast<int>(fleet.timeout().value_or(-1ms).count()));
    }
    EXPECT_EQ(fleet.counters().ended, 2u);
    auto ended = fleet.take_ended();
    ASSERT_TRUE(ended);
    kept = std::move(ended->collection);
  }
  // The other one went with the fleet.
  const voltaris::Results results = kept->take_results().value();
  EXPECT_EQ(OnlyRow(results).get(voltaris::level), 5);
}

TEST(FaceFleet, MayGrowWhileItRuns) {
  ScriptedPeer peer(Answering({LevelReply("lamp", 1, 5)}), 5);
  voltaris::Session session = FaceSession(peer.port());
  Fleet fleet = Fleet::create().value();
  ASSERT_TRUE(fleet.add(session, kLevels, 1));
  std::vector<std::uint64_t> tags;
  EXPECT_TRUE(fleet.run([&](std::uint64_t tag, voltaris::Collection&) {
    tags.push_back(tag);
    if (tag < 5) EXPECT_TRUE(fleet.add(session, kLevels, tag + 1));
  }));
  EXPECT_EQ(tags, (std::vector<std::uint64_t>{1, 2, 3, 4, 5}));
}

TEST(FaceFleet, IsCancelledByItsCallback) {
  ScriptedPeer answers(Answering({LevelReply("lamp", 1, 5)}));
  ScriptedPeer silent([](PeerConnection& c) { c.WaitForClose(); }, 2);
  voltaris::Session first = FaceSession(answers.port());
  voltaris::Session second = FaceSession(silent.port());
  Fleet fleet = Fleet::create().value();
  ASSERT_TRUE(fleet.add(first, kLevels, 1));
  ASSERT_TRUE(fleet.add(second, kLevels, 2));
  ASSERT_TRUE(fleet.add(second, kLevels, 3));
  std::map<std::uint64_t, Outcome> outcomes;
  EXPECT_FALSE(fleet.run([&outcomes](std::uint64_t tag, const voltaris::Collection& ended) {
    outcomes[tag] = ended.outcome();
    return false;
  }));
  EXPECT_EQ(outcomes,
            (std::map<std::uint64_t, Outcome>{
                {1, Outcome::kComplete}, {2, Outcome::kCancelled}, {3, Outcome::kCancelled}}));
}

TEST(FaceFleet, LetsExceptionsOfItsCallbackThroughAndCanBeRunAgain) {
  ScriptedPeer peer(Answering({LevelReply("lamp", 1, 5)}), 2);
  voltaris::Session session = FaceSession(peer.port());
  Fleet fleet = Fleet::create().value();
  ASSERT_TRUE(fleet.add(session, kLevels, 1));
  ASSERT_TRUE(fleet.add(session, kLevels, 2));
  EXPECT_THROW(
      fleet.run([](std::uint64_t, voltaris::Collection&) { throw std::runtime_error("enough"); }),
      std::runtime_error);
  int rest = 0;
  EXPECT_TRUE(fleet.run([&rest](std::uint64_t, voltaris::Collection&) { ++rest; }));
  EXPECT_EQ(rest, 1);
}

TEST(FaceFleet, CancelsOneOrAll) {
  ScriptedPeer silent([](PeerConnection& c) { c.WaitForClose(); }, 3);
  voltaris::Session session = FaceSession(silent.port());
  Fleet fleet = Fleet::create().value();
  for (std::uint64_t tag = 1; tag <= 3; ++tag) ASSERT_TRUE(fleet.add(session, kLevels, tag));
  EXPECT_TRUE(fleet.step());
  EXPECT_EQ(fleet.cancel(2), 1u);
  EXPECT_EQ(fleet.cancel(2), 0u);
  EXPECT_EQ(fleet.cancel(9), 0u);
  const auto ended = fleet.take_ended();
  ASSERT_TRUE(ended);
  EXPECT_EQ(ended->tag, 2u);
  EXPECT_EQ(ended->collection.outcome(), Outcome::kCancelled);
  EXPECT_EQ(fleet.cancel(), 2u);
  EXPECT_FALSE(fleet.step());
}

TEST(FaceFleet, ReportsWhatCannotBeAdded) {
  voltaris::Session session = FaceSession(static_cast<std::uint16_t>(UnusedPort()));
  Fleet fleet = Fleet::create().value();
  EXPECT_EQ(fleet.add(session, collect_query("office").timeout(0s)).error().cause,
            Cause::kBadTimeout);
  voltaris::Query query = kLevels.build().value();
  ASSERT_TRUE(fleet.add(session, std::move(query)));
  // NOLINTNEXTLINE(bugprone-use-after-move)
  EXPECT_EQ(fleet.add(session, std::move(query)).error().cause, Cause::kUsed);
  const voltaris::Session gone = std::move(session);
  // NOLINTNEXTLINE(bugprone-use-after-move)
  EXPECT_EQ(fleet.add(session, kLevels).error().cause, Cause::kUsed);
}

TEST(FaceFleet, WithoutMemoryIsAnErrorAndLeavesNothingBehind) {
  const LogCapture quiet(kSilent);
  voltaris::Session session = FaceSession(static_cast<std::uint16_t>(UnusedPort()));
  const LiveBlocks live;
  const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
    auto fleet = Fleet::create();
    if (!fleet) {
      fault.Disarm();
      EXPECT_EQ(fleet.error().cause, Cause::kNoMemory);
      return;
    }
    const auto added = fleet->add(session, kLevels);
    fault.Disarm();
    EXPECT_EQ(added.has_value(), !fault.hit());
    if (!added) EXPECT_EQ(added.error().cause, Cause::kNoMemory);
    EXPECT_EQ(fleet->counters().waiting, added ? 1u : 0u);
  });
  EXPECT_GT(failures, 5u);
  EXPECT_EQ(live.count(), 0);
}

TEST(FaceFleet, ThatWasMovedKeepsItsCollections) {
  ScriptedPeer peer(Answering({LevelReply("lamp", 1, 5)}));
  voltaris::Session session = FaceSession(peer.port());
  Fleet fleet = Fleet::create().value();
  ASSERT_TRUE(fleet.add(session, kLevels, 1));
  Fleet other = std::move(fleet);
  // NOLINTBEGIN(bugprone-use-after-move)
  EXPECT_EQ(fleet.add(session, kLevels).error().cause, Cause::kUsed);
  EXPECT_FALSE(fleet.step());
  EXPECT_EQ(fleet.take_ended(), std::nullopt);
  EXPECT_EQ(fleet.descriptor(), -1);
  EXPECT_EQ(fleet.timeout(), std::nullopt);
  EXPECT_EQ(fleet.cancel(), 0u);
  EXPECT_EQ(fleet.counters().finished, 0u);
  EXPECT_EQ(fleet.get(), nullptr);
  EXPECT_TRUE(fleet.run([](std::uint64_t, voltaris::Collection&) { ADD_FAILURE(); }));
  // NOLINTEND(bugprone-use-after-move)
  Fleet third = Fleet::create().value();
  ASSERT_TRUE(third.add(session, kLevels, 9));
  third = std::move(other);
  std::vector<std::uint64_t> tags;
  EXPECT_TRUE(
      third.run([&tags](std::uint64_t tag, voltaris::Collection&) { tags.push_back(tag); }));
  EXPECT_EQ(tags, std::vector<std::uint64_t>{1});
}

}  // namespace
