// Many collections in one thread: turns, limits, callbacks, lack of descriptors and of memory.
#include "vtapi/fleet.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/peer.h"

namespace {

using namespace vt::testing;

using Outcomes = std::multiset<std::int32_t>;

constexpr CollectionOptions kShort = {.connect_ms = 40, .idle_ms = 40, .total_ms = 0};

// A fleet with the queries that its results read.
struct Ships {
  std::vector<QueryPtr> queries;
  FleetPtr fleet;

  explicit Ships(std::uint32_t most_running = 0) : fleet(voltaris_createFleet(most_running)) {}

  ReplyCollection* Add(Session& session, void* tag = nullptr, const CollectionOptions& o = {}) {
    QueryPtr query(voltaris_createCollectQuery("office", 7));
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
    queries.push_back(std::move(query));
    return voltaris_addToFleet(fleet.get(), &session, queries.back().get(), &o, tag);
  }
  ReplyCollection* Add(std::uint16_t port, const CollectionOptions& o = {}) {
    return Add(*LoopbackSession(port), nullptr, o);
  }

  const FleetCounters& counters() const { return *voltaris_getFleetCounters(fleet.get()); }
};

// A peer that reads the query and answers with one row.
ScriptedPeer::Script Answering() {
  return [](PeerConnection& c) {
    c.ReadPdu();
    c.Send(UsageReply("lamp", 1, 11));
  };
}

ScriptedPeer::Script Silent() {
  return [](PeerConnection& c) { c.WaitForClose(); };
}

std::uint16_t ClosedPort() { return static_cast<std::uint16_t>(UnusedPort()); }

// TakeAll takes those that have ended and gives how they did.
Outcomes TakeAll(CollectionFleet* fleet) {
  Outcomes outcomes;
  while (const CollectionPtr c{voltaris_takeEnded(fleet, nullptr)}) {
    outcomes.insert(voltaris_getCollectionOutcome(c.get()));
  }
  return outcomes;
}

// StepToEnd watches the fleet's descriptor as an event loop does.
void StepToEnd(CollectionFleet* fleet) {
  while (voltaris_stepFleet(fleet) != 0) {
    pollfd watched = {voltaris_getFleetDescriptor(fleet), POLLIN, 0};
    (void)poll(&watched, 1, voltaris_getFleetTimeout(fleet));
  }
}

// Told calls a function for each collection that ended.
using Told = std::function<std::int32_t(ReplyCollection*, void*, const FleetCounters&)>;

std::int32_t Tell(void* context, ReplyCollection* c, void* tag, const FleetCounters* counters) {
  return (*static_cast<Told*>(context))(c, tag, *counters);
}

std::int32_t RunAndTell(CollectionFleet* fleet, Told told) {
  return voltaris_runFleet(fleet, Tell, &told);
}

TEST(Fleet, EndsWhenAllHaveEndedEachWithItsTag) {
  ScriptedPeer answering(Answering());
  ScriptedPeer silent(Silent());
  Ships ships;
  std::map<std::string, std::int32_t> outcomes;
  std::string answers = "answers";
  std::string refuses = "refuses";
  std::string is_silent = "is silent";
  ships.Add(*LoopbackSession(answering.port()), &answers);
  ships.Add(*LoopbackSession(ClosedPort()), &refuses);
  ships.Add(*LoopbackSession(silent.port()), &is_silent, kShort);
  std::uint32_t told = 0;
  const auto note = [&](ReplyCollection* c, void* tag, const FleetCounters& counters) {
    EXPECT_EQ(counters.finished - counters.ended, ++told);
    EXPECT_EQ(counters.waiting + counters.running + counters.finished, 3U);
    outcomes[*static_cast<std::string*>(tag)] = voltaris_getCollectionOutcome(c);
    return 0;
  };
  EXPECT_EQ(RunAndTell(ships.fleet.get(), note), 0);
  EXPECT_EQ(outcomes, (std::map<std::string, std::int32_t>{{answers, VT_COLLECTION_COMPLETE},
                                                           {refuses, VT_COLLECTION_REFUSED},
                                                           {is_silent, VT_COLLECTION_IDLE}}));
}

TEST(Fleet, HandsOverResultsThroughTheCallback) {
  ScriptedPeer peer(Answering(), 3);
  Ships ships;
  for (int i = 0; i < 3; ++i) ships.Add(peer.port());
  std::vector<ResultPtr> results;
  const auto keep = [&](ReplyCollection* c, void*, const FleetCounters&) {
    results.emplace_back(voltaris_takeCollectionResult(c));
    return 0;
  };
  EXPECT_EQ(RunAndTell(ships.fleet.get(), keep), 0);
  ships.fleet.reset();
  ASSERT_EQ(results.size(), 3U);
  for (const ResultPtr& result : results) EXPECT_EQ(result->row_count, 1);
}

TEST(Fleet, RunsNoMoreThanItsBoundAtATime) {
  constexpr std::uint32_t kNodes = 20;
  constexpr std::uint32_t kBound = 3;
  ScriptedPeer peer(Answering(), kNodes);
  Ships ships(kBound);
  for (std::uint32_t i = 0; i < kNodes; ++i) ships.Add(peer.port());
  EXPECT_EQ(ships.counters().waiting, kNodes);
  EXPECT_EQ(ships.counters().running, 0U);
  EXPECT_EQ(voltaris_getFleetTimeout(ships.fleet.get()), 0);
  std::uint32_t most = 0;
  while (voltaris_stepFleet(ships.fleet.get()) != 0) {
    most = std::max(most, ships.counters().running);
    pollfd watched = {voltaris_getFleetDescriptor(ships.fleet.get()), POLLIN, 0};
    (void)poll(&watched, 1, voltaris_getFleetTimeout(ships.fleet.get()));
  }
  EXPECT_EQ(most, kBound);
  EXPECT_EQ(ships.counters().ended, kNodes);
  EXPECT_EQ(ships.counters().finished, kNodes);
  EXPECT_EQ(TakeAll(ships.fleet.get()).count(VT_COLLECTION_COMPLETE), kNodes);
  EXPECT_EQ(ships.counters().ended, 0U);
  EXPECT_EQ(ships.counters().finished, kNodes);
}

TEST(Fleet, HandsOverInTheOrderOfEnding) {
  ScriptedPeer answering(Answering());
  ScriptedPeer silent(Silent());
  Ships ships;
  ReplyCollection* last = ships.Add(silent.port(), kShort);
  ReplyCollection* first = ships.Add(answering.port());
  EXPECT_EQ(voltaris_takeEnded(ships.fleet.get(), nullptr), nullptr);
  StepToEnd(ships.fleet.get());
  CollectionPtr taken(voltaris_takeEnded(ships.fleet.get(), nullptr));
  EXPECT_EQ(taken.get(), first);
  taken.reset(voltaris_takeEnded(ships.fleet.get(), nullptr));
  EXPECT_EQ(taken.get(), last);
  EXPECT_EQ(voltaris_takeEnded(ships.fleet.get(), nullptr), nullptr);
}

TEST(Fleet, WithNothingInItHasNothingToDo) {
  const Ships ships;
  EXPECT_EQ(voltaris_getFleetTimeout(ships.fleet.get()), -1);
  EXPECT_EQ(voltaris_stepFleet(ships.fleet.get()), 0);
  EXPECT_EQ(voltaris_runFleet(ships.fleet.get(), nullptr, nullptr), 0);
}

TEST(Fleet, WithoutACallbackLeavesWhatEndedToBeTaken) {
  ScriptedPeer peer(Answering(), 2);
  Ships ships;
  ships.Add(peer.port());
  ships.Add(peer.port());
  EXPECT_EQ(voltaris_runFleet(ships.fleet.get(), nullptr, nullptr), 0);
  EXPECT_EQ(TakeAll(ships.fleet.get()), (Outcomes{VT_COLLECTION_COMPLETE, VT_COLLECTION_COMPLETE}));
}

TEST(Fleet, TellsTheTimeOfItsFirstLimit) {
  ScriptedPeer silent(Silent(), 3);
  Ships ships;
  const auto with_total = [](std::int32_t total) {
    return CollectionOptions{.connect_ms = -1, .idle_ms = -1, .total_ms = total};
  };
  ships.Add(silent.port(), with_total(-1));
  (void)voltaris_stepFleet(ships.fleet.get());
  EXPECT_EQ(voltaris_getFleetTimeout(ships.fleet.get()), -1);
  ships.Add(silent.port(), with_total(2000000));
  ships.Add(silent.port(), with_total(1000000));
  (void)voltaris_stepFleet(ships.fleet.get());
  EXPECT_GT(voltaris_getFleetTimeout(ships.fleet.get()), 0);
  EXPECT_LE(voltaris_getFleetTimeout(ships.fleet.get()), 1000000);
}

TEST(Fleet, EndsThemInTheOrderOfTheirLimits) {
  constexpr std::int32_t kNodes = 30;
  ScriptedPeer silent(Silent(), kNodes);
  Ships ships;
  std::vector<std::int32_t> limits;
  for (std::int32_t i = 0; i < kNodes; ++i) limits.push_back(10 + i * 7 % kNodes);
  for (std::int32_t& limit : limits) {
    ships.Add(*LoopbackSession(silent.port()), &limit,
              {.connect_ms = -1, .idle_ms = -1, .total_ms = limit});
  }
  std::vector<std::int32_t> ended;
  const auto note = [&](ReplyCollection* c, void* tag, const FleetCounters&) {
    EXPECT_EQ(voltaris_getCollectionOutcome(c), VT_COLLECTION_DEADLINE);
    ended.push_back(*static_cast<std::int32_t*>(tag));
    return 0;
  };
  EXPECT_EQ(RunAndTell(ships.fleet.get(), note), 0);
  std::ranges::sort(limits);
  EXPECT_EQ(ended, limits);
}

TEST(Fleet, AMessageDelaysTheIdleLimit) {
  constexpr int kMessages = 8;
  constexpr std::int64_t kIdle = 100;
  std::int64_t now = 1000;  // the library's clock stands still unless it is told
  const ClockGettimeHook clock([&now](clockid_t, timespec* out) {
    *out = {static_cast<time_t>(now / 1000), static_cast<long>(now % 1000 * 1000000)};
    return std::optional<int>(0);
  });
  ScriptedPeer peer([](PeerConnection& c) {
    c.ReadPdu();
    c.Send(UsageReply("lamp", 1, 11));
    for (int i = 1; i < kMessages; ++i) {
      c.ReadExactly(1);
      c.Send(UsageReply("lamp", 1, 11));
    }
    c.WaitForClose();
  });
  Ships ships;
  const ReplyCollection* c =
      ships.Add(peer.port(), {.connect_ms = -1, .idle_ms = kIdle, .total_ms = 0});
  const CollectionCounters& counters = *voltaris_getCollectionCounters(c);
  for (std::uint32_t message = 1; message <= kMessages; ++message) {
    while (counters.accepted < message) {
      ASSERT_EQ(voltaris_stepFleet(ships.fleet.get()), 1);
      pollfd watched = {voltaris_getFleetDescriptor(ships.fleet.get()), POLLIN, 0};
      if (counters.accepted < message) ASSERT_EQ(poll(&watched, 1, -1), 1);
    }
    now += kIdle - 1;
    ASSERT_EQ(voltaris_stepFleet(ships.fleet.get()), 1);
    ASSERT_EQ(send(voltaris_getCollectionDescriptor(c), "", 1, 0), 1);  // lets the peer go on
  }
  EXPECT_EQ(voltaris_getFleetTimeout(ships.fleet.get()), 1);
  ++now;
  EXPECT_EQ(voltaris_stepFleet(ships.fleet.get()), 0);
  EXPECT_EQ(voltaris_getCollectionOutcome(c), VT_COLLECTION_IDLE);
}

TEST(Fleet, ServesOthersWhileANodeNeverPauses) {
  ScriptedPeer endless([](PeerConnection& c) {
    c.ReadPdu();
    const Bytes reply = UsageReply("lamp", 1, 11);
    try {
      for (;;) c.Send(reply);
    } catch (const PeerError&) {
      // The other side is gone, which is what this waits for.
    }
  });
  ScriptedPeer answering(Answering(), 5);
  Ships ships;
  ReplyCollection* never =
      ships.Add(endless.port(), {.connect_ms = 0, .idle_ms = 0, .total_ms = -1});
  for (int i = 0; i < 5; ++i) ships.Add(answering.port());
  std::uint32_t complete = 0;
  const auto note = [&](ReplyCollection* c, void*, const FleetCounters&) {
    if (voltaris_getCollectionOutcome(c) == VT_COLLECTION_COMPLETE) ++complete;
    if (complete == 5) voltaris_cancelCollection(never);
    return 0;
  };
  EXPECT_EQ(RunAndTell(ships.fleet.get(), note), 0);
  EXPECT_EQ(complete, 5U);
}

TEST(Fleet, TakesWhatANodeSentInAFloodToTheEnd) {
  constexpr std::uint32_t kReplies = 3000;  // more than one step reads
  ScriptedPeer peer([](PeerConnection& c) {
    c.ReadPdu();
    const Bytes reply = UsageReply("lamp", 1, 11);
    for (std::uint32_t i = 0; i < kReplies; ++i) c.Send(reply);
  });
  Ships ships;
  ships.Add(peer.port());
  std::uint32_t told = 0;
  const auto note = [&](ReplyCollection* c, void*, const FleetCounters&) {
    ++told;
    EXPECT_EQ(voltaris_getCollectionCounters(c)->accepted, kReplies);
    EXPECT_EQ(voltaris_getCollectionOutcome(c), VT_COLLECTION_COMPLETE);
    return 0;
  };
  EXPECT_EQ(RunAndTell(ships.fleet.get(), note), 0);
  EXPECT_EQ(told, 1U);
}

TEST(Fleet, GoesOnByItselfWhereAStepLeftBytesBehind) {
  ScriptedPeer peer(Answering());
  const RecvfromHook hook([](int fd, void* at, std::size_t, int flags, sockaddr*, socklen_t*) {
    const HookPause pause;
    return std::optional<ssize_t>(recvfrom(fd, at, 1, flags, nullptr, nullptr));
  });
  Ships ships;
  ships.Add(peer.port());
  EXPECT_EQ(voltaris_runFleet(ships.fleet.get(), nullptr, nullptr), 0);
  EXPECT_EQ(TakeAll(ships.fleet.get()), Outcomes{VT_COLLECTION_COMPLETE});
  EXPECT_GT(hook.calls(), UsageReply("lamp", 1, 11).size());
}

TEST(Fleet, TakesNewOnesFromItsCallback) {
  constexpr int kNodes = 5;
  ScriptedPeer peer(Answering(), kNodes);
  Ships ships;
  ships.Add(peer.port());
  int told = 0;
  const auto add = [&](ReplyCollection*, void*, const FleetCounters&) {
    if (++told < kNodes) EXPECT_NE(ships.Add(peer.port()), nullptr);
    return 0;
  };
  EXPECT_EQ(RunAndTell(ships.fleet.get(), add), 0);
  EXPECT_EQ(told, kNodes);
}

TEST(Fleet, CancelsTheRestWhenTheCallbackWantsNoMore) {
  ScriptedPeer silent(Silent(), 2);
  Ships ships(2);
  ships.Add(ClosedPort());
  ships.Add(silent.port());
  ships.Add(silent.port());
  ships.Add(silent.port());
  Outcomes outcomes;
  const auto cancel = [&](ReplyCollection* c, void*, const FleetCounters&) {
    outcomes.insert(voltaris_getCollectionOutcome(c));
    return outcomes.size() == 1 ? 1 : 0;  // said once is enough
  };
  EXPECT_EQ(RunAndTell(ships.fleet.get(), cancel), -1);
  EXPECT_EQ(outcomes, (Outcomes{VT_COLLECTION_REFUSED, VT_COLLECTION_CANCELLED,
                                VT_COLLECTION_CANCELLED, VT_COLLECTION_CANCELLED}));
}

TEST(Fleet, LetsSingleOnesBeCancelledWhereverTheyAre) {
  ScriptedPeer silent(Silent(), 1);
  Ships ships(1);
  ReplyCollection* running = ships.Add(silent.port());
  ReplyCollection* first_waiting = ships.Add(silent.port());
  ReplyCollection* second_waiting = ships.Add(silent.port());
  ReplyCollection* third_waiting = ships.Add(silent.port());
  EXPECT_EQ(voltaris_stepFleet(ships.fleet.get()), 1);
  voltaris_cancelCollection(second_waiting);
  EXPECT_EQ(ships.counters().waiting, 2U);
  voltaris_cancelCollection(third_waiting);
  voltaris_cancelCollection(first_waiting);
  EXPECT_EQ(ships.counters().waiting, 0U);
  EXPECT_EQ(ships.counters().running, 1U);
  voltaris_cancelCollection(running);
  EXPECT_EQ(voltaris_stepFleet(ships.fleet.get()), 0);
  EXPECT_EQ(TakeAll(ships.fleet.get()).count(VT_COLLECTION_CANCELLED), 4U);
}

TEST(Fleet, TakesACollectionOfItsOwnLikeAnyOther) {
  ScriptedPeer peer(Answering());
  Ships ships;
  const CollectionPtr taken = [&] {
    ships.Add(peer.port());
    StepToEnd(ships.fleet.get());
    return CollectionPtr(voltaris_takeEnded(ships.fleet.get(), nullptr));
  }();
  ships.fleet.reset();
  const ResultPtr result(voltaris_takeCollectionResult(taken.get()));
  EXPECT_EQ(RowNames(result.get()), std::vector<std::string>{"lamp/1"});
}

TEST(Fleet, ThatWaitsForADescriptorStartsTheNextWhenOneHasEnded) {
  constexpr int kNodes = 6;
  ScriptedPeer peer(Answering(), kNodes);
  int open = 0;
  int refused = 0;
  const SocketHook no_more_than_two([&](int, int, int) -> std::optional<int> {
    if (open < 2) return ++open, std::nullopt;
    errno = ++refused % 2 == 0 ? EMFILE : ENFILE;
    return -1;
  });
  const CloseHook counts([&](int) { return --open, std::optional<int>(); });
  Ships ships;
  for (int i = 0; i < kNodes; ++i) ships.Add(peer.port());
  (void)voltaris_stepFleet(ships.fleet.get());
  EXPECT_EQ(ships.counters().running, 2U);
  EXPECT_EQ(voltaris_runFleet(ships.fleet.get(), nullptr, nullptr), 0);
  EXPECT_EQ(TakeAll(ships.fleet.get()).count(VT_COLLECTION_COMPLETE), std::size_t{kNodes});
}

TEST(Fleet, WithoutAnyDescriptorEndsAsUnreachable) {
  const SocketHook none([](int, int, int) -> std::optional<int> { return errno = EMFILE, -1; });
  Ships ships;
  for (int i = 0; i < 3; ++i) ships.Add(ClosedPort());
  EXPECT_EQ(voltaris_runFleet(ships.fleet.get(), nullptr, nullptr), 0);
  EXPECT_EQ(TakeAll(ships.fleet.get()).count(VT_COLLECTION_UNREACHABLE), 3U);
}

TEST(Fleet, AnotherFailureOfASocketEndsThatOneAlone) {
  ScriptedPeer peer(Answering());
  int calls = 0;
  const SocketHook second_fails([&](int, int, int) -> std::optional<int> {
    if (++calls != 2) return std::nullopt;
    return errno = EACCES, -1;
  });
  Ships ships;
  ships.Add(peer.port());
  ships.Add(peer.port());
  EXPECT_EQ(voltaris_runFleet(ships.fleet.get(), nullptr, nullptr), 0);
  EXPECT_EQ(TakeAll(ships.fleet.get()),
            (Outcomes{VT_COLLECTION_COMPLETE, VT_COLLECTION_UNREACHABLE}));
}

TEST(Fleet, WhatCannotBeWatchedEnds) {
  ScriptedPeer peer(Silent());
  const EpollCtlHook hook([](int, int operation, int, epoll_event*) -> std::optional<int> {
    if (operation != EPOLL_CTL_ADD) return std::nullopt;
    return errno = ENOSPC, -1;
  });
  Ships ships;
  const ReplyCollection* c = ships.Add(peer.port());
  EXPECT_EQ(voltaris_stepFleet(ships.fleet.get()), 0);
  EXPECT_EQ(voltaris_getCollectionOutcome(c), VT_COLLECTION_UNREACHABLE);
  EXPECT_EQ(voltaris_getCollectionErrno(c), ENOSPC);
}

TEST(Fleet, WhatCannotBeWatchedAnewEnds) {
  ScriptedPeer peer(Answering());
  const RecvfromHook slow([](int fd, void* at, std::size_t, int flags, sockaddr*, socklen_t*) {
    const HookPause pause;
    return std::optional<ssize_t>(recvfrom(fd, at, 1, flags, nullptr, nullptr));
  });
  const EpollCtlHook hook([](int, int operation, int, epoll_event*) -> std::optional<int> {
    if (operation != EPOLL_CTL_MOD) return std::nullopt;
    return errno = ENOMEM, -1;
  });
  Ships ships;
  const ReplyCollection* c = ships.Add(peer.port());
  EXPECT_EQ(voltaris_runFleet(ships.fleet.get(), nullptr, nullptr), 0);
  EXPECT_EQ(voltaris_getCollectionOutcome(c), VT_COLLECTION_READ_ERROR);
  EXPECT_EQ(voltaris_getCollectionErrno(c), ENOMEM);
}

TEST(Fleet, AsksWhereAnEventDoesNotTellOfTheConnection) {
  ScriptedPeer peer(Answering());
  const EpollWaitHook hook([](int epoll, epoll_event* events, int count, int timeout) {
    const HookPause pause;
    const int ready = epoll_wait(epoll, events, count, timeout);
    for (int i = 0; i < ready; ++i) events[i].events &= ~std::uint32_t{EPOLLOUT};
    return std::optional<int>(ready);
  });
  std::size_t connects = 0;
  const ConnectHook count([&](int, const sockaddr*, socklen_t) {
    ++connects;
    return std::optional<int>();
  });
  Ships ships;
  ships.Add(peer.port());
  EXPECT_EQ(voltaris_runFleet(ships.fleet.get(), nullptr, nullptr), 0);
  EXPECT_EQ(TakeAll(ships.fleet.get()), Outcomes{VT_COLLECTION_COMPLETE});
  EXPECT_EQ(connects, 2U);
}

TEST(Fleet, GoesOnAfterAnInterruptedWait) {
  ScriptedPeer peer(Answering());
  int calls = 0;
  const EpollWaitHook hook([&](int, epoll_event*, int, int) -> std::optional<int> {
    if (++calls % 2 == 0) return std::nullopt;
    return errno = EINTR, -1;
  });
  Ships ships;
  ships.Add(peer.port());
  EXPECT_EQ(voltaris_runFleet(ships.fleet.get(), nullptr, nullptr), 0);
  EXPECT_EQ(TakeAll(ships.fleet.get()), Outcomes{VT_COLLECTION_COMPLETE});
}

TEST(Fleet, WithoutADescriptorIsNone) {
  const EpollCreateHook hook([](int) -> std::optional<int> { return errno = EMFILE, -1; });
  const LogCapture log(kInfo);
  EXPECT_EQ(voltaris_createFleet(7), nullptr);
  EXPECT_EQ(log.lines(), (Lines{{kFatal,
                                 "voltaris_createFleet: no descriptor, error = 24(Too many open "
                                 "files)"}}));
}

// A process that was forked while a collection ran keeps its socket open, as does a second
// descriptor, so that closing it here is not the end of it: what then still happens on it must not
// reach what was released.
TEST(Fleet, IsNotToldOfASocketThatIsOpenElsewhere) {
  ScriptedPeer peer([](PeerConnection& c) {
    c.Send(UsageReply("lamp", 1, 11));
    c.WaitForClose();
  });
  Ships ships;
  ReplyCollection* c = ships.Add(peer.port());
  (void)voltaris_stepFleet(ships.fleet.get());
  pollfd connection = {voltaris_getCollectionDescriptor(c), POLLIN, 0};
  ASSERT_EQ(poll(&connection, 1, -1), 1);
  const int held = dup(voltaris_getCollectionDescriptor(c));
  voltaris_cancelCollection(c);
  EXPECT_EQ(TakeAll(ships.fleet.get()), Outcomes{VT_COLLECTION_CANCELLED});
  pollfd watched = {voltaris_getFleetDescriptor(ships.fleet.get()), POLLIN, 0};
  EXPECT_EQ(poll(&watched, 1, 0), 0);
  EXPECT_EQ(voltaris_stepFleet(ships.fleet.get()), 0);
  close(held);
}

TEST(Fleet, ReleasedAtAnyPointLeavesNothingBehind) {
  const LogCapture quiet(kSilent);
  ScriptedPeer silent(Silent(), 4);
  ScriptedPeer another(Silent(), 4);
  { const Ships once; }
  const std::set<int> before = OpenDescriptors();
  const LiveBlocks live;
  for (int steps = 0; steps < 4; ++steps) {
    Ships ships(2);
    ships.Add(silent.port());
    ships.Add(another.port());
    ships.Add(ClosedPort());
    for (int i = 0; i < steps; ++i) (void)voltaris_stepFleet(ships.fleet.get());
  }
  voltaris_releaseFleet(nullptr);
  EXPECT_EQ(live.count(), 0);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(Fleet, WithoutMemoryKeepsWhatItHas) {
  const LogCapture quiet(kSilent);
  const SessionPtr session = LoopbackSession(ClosedPort());
  const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
    const LiveBlocks live;
    {
      std::vector<QueryPtr> queries;
      {
        const AllocationFault::Pause pause;
        for (int i = 0; i < 8; ++i) queries.emplace_back(voltaris_createCollectQuery("office", 7));
      }
      const FleetPtr fleet(voltaris_createFleet(0));
      if (fleet == nullptr) {
        EXPECT_TRUE(fault.hit());
      } else {
        std::uint32_t added = 0;
        for (const QueryPtr& query : queries) {
          const bool is_in = voltaris_addToFleet(fleet.get(), session.get(), query.get(), nullptr,
                                                 nullptr) != nullptr;
          EXPECT_TRUE(is_in || fault.hit());
          if (is_in) ++added;
        }
        fault.Disarm();
        EXPECT_EQ(voltaris_runFleet(fleet.get(), nullptr, nullptr), 0);
        EXPECT_EQ(TakeAll(fleet.get()).count(VT_COLLECTION_REFUSED), added);
      }
      fault.Disarm();
    }
    EXPECT_EQ(live.count(), 0);
  });
  EXPECT_GT(failures, 10U);
}

}  // namespace
