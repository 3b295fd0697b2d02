// Collections in steps: every outcome with a real peer, the counters, and what is left behind.
#include "vtapi/collection.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/peer.h"

namespace {

using namespace vt::testing;

// Stepped is a collection with what it needs.
struct Stepped {
  SessionPtr session;
  QueryPtr query;
  CollectionPtr collection;

  ReplyCollection* get() const { return collection.get(); }
  const CollectionCounters& counters() const {
    return *voltaris_getCollectionCounters(collection.get());
  }
};

Stepped Start(std::uint16_t port, CollectionOptions options = {}) {
  Stepped stepped;
  stepped.session = LoopbackSession(port);
  stepped.query.reset(voltaris_createCollectQuery("office", 7));
  EXPECT_EQ(voltaris_addGetAttribute(stepped.query.get(), 8), 0);
  stepped.collection.reset(
      voltaris_startCollection(stepped.session.get(), stepped.query.get(), &options));
  return stepped;
}

// WaitFor waits for what the collection tells to wait for.
void WaitFor(const ReplyCollection* c) {
  pollfd watched = {voltaris_getCollectionDescriptor(c), voltaris_getCollectionEvents(c), 0};
  (void)poll(&watched, 1, voltaris_getCollectionTimeout(c));
}

// RunToEnd steps until the end and checks that nothing is left to wait for.
std::int32_t RunToEnd(const Stepped& stepped) {
  ReplyCollection* const c = stepped.get();
  if (c == nullptr) return -1;
  while (voltaris_stepCollection(c) == VT_COLLECTION_PENDING) WaitFor(c);
  EXPECT_EQ(voltaris_getCollectionDescriptor(c), -1);
  EXPECT_EQ(voltaris_getCollectionEvents(c), 0);
  EXPECT_EQ(voltaris_getCollectionTimeout(c), 0);
  const std::int32_t outcome = voltaris_getCollectionOutcome(c);
  EXPECT_EQ(voltaris_stepCollection(c), outcome);
  return outcome;
}

ResultPtr ResultOf(const Stepped& stepped) {
  return ResultPtr(voltaris_takeCollectionResult(stepped.get()));
}

Bytes WillAnswer(std::string_view device) {
  PduImage image = ReplyWith({Aggregate(42, device, {Entry(2), Entry(1)})}, -1);
  image.cls = 13;
  return image.Signed(SessionKey());
}

TEST(Collection, OfANodeThatAnswersAndClosesIsComplete) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) {
    c.Send(WillAnswer("lamp") + UsageReply("lamp", 1, 11) + UsageReply("fan", 2, 12));
  }));
  const Stepped stepped = Start(peer.port());
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_COMPLETE);
  EXPECT_EQ(voltaris_getCollectionErrno(stepped.get()), 0);
  EXPECT_EQ(stepped.counters().accepted, 3u);
  EXPECT_EQ(stepped.counters().acknowledgements, 2u);
  EXPECT_EQ(stepped.counters().forged, 0u);
  EXPECT_EQ(stepped.counters().malformed, 0u);
  const ResultPtr result = ResultOf(stepped);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result->error_code, 0);
  EXPECT_EQ(RowNames(result.get()), (std::vector<std::string>{"fan/2", "lamp/1"}));
  ASSERT_EQ(result->ack_count, 2);
  EXPECT_EQ(result->acks[0].entity_index, 1u);  // sorted
  EXPECT_EQ(ResultOf(stepped), nullptr);
}

TEST(Collection, SendsTheQueryThatABlockingExecutionSends) {
  Bytes stepped_query;
  Bytes blocking_query;
  {
    ScriptedPeer peer([&](PeerConnection& c) { stepped_query = c.ReadPdu(); });
    EXPECT_EQ(RunToEnd(Start(peer.port())), VT_COLLECTION_COMPLETE);
    EXPECT_TRUE(peer.Join());
  }
  {
    ScriptedPeer peer([&](PeerConnection& c) { blocking_query = c.ReadPdu(); });
    const SessionPtr session = LoopbackSession(peer.port());
    const QueryPtr query(voltaris_createCollectQuery("office", 7));
    EXPECT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
    EXPECT_TRUE(peer.Join());
  }
  EXPECT_EQ(stepped_query, blocking_query);
}

TEST(Collection, OfAPortWithoutAListenerIsRefused) {
  const Stepped stepped = Start(static_cast<std::uint16_t>(UnusedPort()));
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_REFUSED);
  EXPECT_EQ(voltaris_getCollectionErrno(stepped.get()), ECONNREFUSED);
  EXPECT_EQ(ResultOf(stepped)->error_code, ECONNREFUSED);
}

TEST(Collection, OfANodeWithoutARouteIsUnreachable) {
  const ConnectHook hook([](int, const sockaddr*, socklen_t) -> std::optional<int> {
    errno = ENETUNREACH;
    return -1;
  });
  const Stepped stepped = Start(1);
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_UNREACHABLE);
  EXPECT_EQ(voltaris_getCollectionErrno(stepped.get()), ENETUNREACH);
}

TEST(Collection, WithoutADescriptorIsUnreachable) {
  const SocketHook hook([](int, int, int) -> std::optional<int> {
    errno = EMFILE;
    return -1;
  });
  const Stepped stepped = Start(1);
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_UNREACHABLE);
  EXPECT_EQ(voltaris_getCollectionErrno(stepped.get()), EMFILE);
}

TEST(Collection, WithoutAcknowledgementsHasNoArraysForThem) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) { c.Send(UsageReply("lamp", 1, 11)); }));
  const Stepped stepped = Start(peer.port());
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_COMPLETE);
  const ResultPtr result = ResultOf(stepped);
  EXPECT_EQ(result->acks, nullptr);
  EXPECT_EQ(result->naks, nullptr);
  EXPECT_EQ(result->row_count, 1);
}

TEST(Collection, OfANodeThatTakesNoConnectionTimesOut) {
  for (const int error : {EINPROGRESS, EALREADY, EINTR}) {
    const ConnectHook hook([error](int, const sockaddr*, socklen_t) -> std::optional<int> {
      errno = error;
      return -1;
    });
    const Stepped stepped = Start(1, {.connect_ms = 20, .idle_ms = 0, .total_ms = 0});
    EXPECT_EQ(voltaris_getCollectionEvents(stepped.get()), POLLOUT);
    // An unconnected socket polls ready at once; only the time may end this.
    while (voltaris_stepCollection(stepped.get()) == VT_COLLECTION_PENDING) {
      (void)poll(nullptr, 0, voltaris_getCollectionTimeout(stepped.get()));
    }
    EXPECT_EQ(voltaris_getCollectionOutcome(stepped.get()), VT_COLLECTION_CONNECT_TIMEOUT);
    EXPECT_EQ(ResultOf(stepped)->error_code, VT_ERROR_TIMEOUT);
  }
}

// A listener whose queue is full lets the requests of others wait.
TEST(Collection, OfANodeWhoseQueueIsFullTimesOut) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(bind(listener, generic, size), 0);
  ASSERT_EQ(listen(listener, 0), 0);
  ASSERT_EQ(getsockname(listener, generic, &size), 0);
  const int waiting = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_EQ(connect(waiting, generic, size), 0);
  const Stepped stepped =
      Start(ntohs(address.sin_port), {.connect_ms = 50, .idle_ms = 0, .total_ms = 0});
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_CONNECT_TIMEOUT);
  EXPECT_EQ(voltaris_getCollectionErrno(stepped.get()), ETIMEDOUT);
  close(waiting);
  close(listener);
}

TEST(Collection, WhoseQueryCannotBeSentEndsWithThatError) {
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); });
  const SendHook hook([](int, const void*, std::size_t, int) -> std::optional<ssize_t> {
    errno = EPIPE;
    return -1;
  });
  const Stepped stepped = Start(peer.port());
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_SEND_ERROR);
  EXPECT_EQ(voltaris_getCollectionErrno(stepped.get()), EPIPE);
}

TEST(Collection, SendsAByteAtATimeWhereThatIsAllThatGoes) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) { c.Send(UsageReply("lamp", 1, 11)); }));
  int calls = 0;
  const SendHook hook([&](int fd, const void* bytes, std::size_t, int flags) {
    ++calls;
    if (calls % 3 == 1) return errno = EAGAIN, std::optional<ssize_t>(-1);
    if (calls % 3 == 2) return errno = EINTR, std::optional<ssize_t>(-1);
    const HookPause pause;
    return std::optional<ssize_t>(send(fd, bytes, 1, flags));
  });
  const Stepped stepped = Start(peer.port());
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_COMPLETE);
  EXPECT_EQ(stepped.counters().accepted, 1u);
  EXPECT_GT(calls, 200);
}

TEST(Collection, OfASilentNodeEndsByItsIdleLimitWithWhatThereIs) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) {
    c.Send(UsageReply("lamp", 1, 11));
    c.WaitForClose();
  }));
  const Stepped stepped = Start(peer.port(), {.connect_ms = 0, .idle_ms = 30, .total_ms = 0});
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_IDLE);
  EXPECT_EQ(stepped.counters().accepted, 1u);
  const ResultPtr result = ResultOf(stepped);
  EXPECT_EQ(result->error_code, VT_ERROR_TIMEOUT);
  EXPECT_EQ(RowNames(result.get()), std::vector<std::string>{"lamp/1"});
}

TEST(Collection, OfANodeThatNeverFinishesAMessageEndsByItsIdleLimit) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) {
    const Bytes reply = UsageReply("lamp", 1, 11);
    c.Send(Bytes(reply.begin(), reply.end() - 1));
    c.WaitForClose();
  }));
  EXPECT_EQ(RunToEnd(Start(peer.port(), {.connect_ms = 0, .idle_ms = 30, .total_ms = 0})),
            VT_COLLECTION_IDLE);
}

TEST(Collection, OfANodeThatSendsWithoutEndEndsAtItsDeadline) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) {
    const Bytes reply = UsageReply("lamp", 1, 11);
    try {
      for (;;) c.Send(reply);
    } catch (const PeerError&) {
      // The other side is gone, which is what this waits for.
    }
  }));
  const Stepped stepped = Start(peer.port(), {.connect_ms = 0, .idle_ms = -1, .total_ms = 40});
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_DEADLINE);
  EXPECT_GT(stepped.counters().accepted, 0u);
  EXPECT_EQ(ResultOf(stepped)->row_count, 1);
}

TEST(Collection, OfANodeThatResetsEndsWithThatError) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) { c.Reset(); }));
  const Stepped stepped = Start(peer.port());
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_READ_ERROR);
  EXPECT_EQ(voltaris_getCollectionErrno(stepped.get()), ECONNRESET);
  EXPECT_EQ(ResultOf(stepped)->error_code, ECONNRESET);
}

TEST(Collection, OfANodeThatAnnouncesTooMuchIsOverSize) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) {
    Bytes reply = UsageReply("lamp", 1, 11);
    reply[76] = 0xFF;
    c.Send(reply);
    c.WaitForClose();
  }));
  const Stepped stepped = Start(peer.port());
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_OVER_SIZE);
  EXPECT_EQ(ResultOf(stepped)->error_code, EMSGSIZE);
}

TEST(Collection, ThatIsCancelledKeepsWhatThereIs) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) {
    c.Send(UsageReply("lamp", 1, 11));
    c.WaitForClose();
  }));
  const Stepped stepped = Start(peer.port());
  while (stepped.counters().accepted == 0) {
    ASSERT_EQ(voltaris_stepCollection(stepped.get()), VT_COLLECTION_PENDING);
    if (stepped.counters().accepted == 0) WaitFor(stepped.get());
  }
  EXPECT_EQ(voltaris_getCollectionEvents(stepped.get()), POLLIN);
  voltaris_cancelCollection(stepped.get());
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_CANCELLED);
  voltaris_cancelCollection(stepped.get());
  EXPECT_EQ(voltaris_getCollectionOutcome(stepped.get()), VT_COLLECTION_CANCELLED);
  const ResultPtr result = ResultOf(stepped);
  EXPECT_EQ(result->error_code, ECANCELED);
  EXPECT_EQ(result->row_count, 1);
  EXPECT_TRUE(peer.Join());
}

TEST(Collection, CountsForgedAndMalformedMessagesWhichChangeNothing) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) {
    Bytes forged = UsageReply("lamp", 1, 11);
    forged.back() ^= 1;
    Bytes malformed = UsageReply("lamp", 2, 12);
    malformed[9] = 0x22;  // an authentication that is none
    const Bytes cut = UsageReply("lamp", 3, 13);
    c.Send(forged + malformed + UsageReply("lamp", 4, 14) + Bytes(cut.begin(), cut.begin() + 70));
  }));
  const LogCapture quiet(kSilent);
  const Stepped stepped = Start(peer.port());
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_COMPLETE);
  EXPECT_EQ(stepped.counters().accepted, 1u);
  EXPECT_EQ(stepped.counters().forged, 1u);
  EXPECT_EQ(stepped.counters().malformed, 2u);
  EXPECT_EQ(stepped.counters().bytes, 3 * UsageReply("lamp", 1, 11).size() + 70);
  EXPECT_EQ(RowNames(ResultOf(stepped).get()), std::vector<std::string>{"lamp/4"});
}

TEST(Collection, ReadsOnAfterAnInterruption) {
  ScriptedPeer peer(AfterQuery([](PeerConnection& c) { c.Send(UsageReply("lamp", 1, 11)); }));
  int calls = 0;
  const RecvfromHook hook([&](int, void*, std::size_t, int, sockaddr*, socklen_t*) {
    if (++calls % 2 == 0) return std::optional<ssize_t>();
    errno = EINTR;
    return std::optional<ssize_t>(-1);
  });
  const Stepped stepped = Start(peer.port());
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_COMPLETE);
  EXPECT_EQ(stepped.counters().accepted, 1u);
}

TEST(Collection, OutcomesHaveWords) {
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_PENDING), "pending");
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_COMPLETE), "complete");
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_REFUSED), "connection refused");
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_UNREACHABLE), "unreachable");
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_CONNECT_TIMEOUT), "no connection in time");
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_SEND_ERROR), "query not sent");
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_IDLE), "no message in time");
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_DEADLINE), "not complete in time");
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_READ_ERROR), "read error");
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_OVER_SIZE), "message too long");
  EXPECT_STREQ(voltaris_nameOutcome(VT_COLLECTION_CANCELLED), "cancelled");
  EXPECT_EQ(voltaris_nameOutcome(VT_COLLECTION_CANCELLED + 1), nullptr);
  EXPECT_EQ(voltaris_nameOutcome(-1), nullptr);
}

TEST(Collection, ManyOnOneSessionEndEachWithItsOwnResult) {
  constexpr std::size_t kMany = 40;
  std::uint8_t number = 0;
  ScriptedPeer peer(AfterQuery([&](PeerConnection& c) { c.Send(UsageReply("lamp", 1, ++number)); }),
                    kMany);
  const SessionPtr session = LoopbackSession(peer.port());
  std::vector<QueryPtr> queries;
  std::vector<CollectionPtr> collections;
  for (std::size_t i = 0; i < kMany; ++i) {
    queries.emplace_back(voltaris_createCollectQuery("office", 7));
    EXPECT_EQ(voltaris_addGetAttribute(queries.back().get(), 8), 0);
    collections.emplace_back(
        voltaris_startCollection(session.get(), queries.back().get(), nullptr));
    ASSERT_NE(collections.back(), nullptr);
  }
  for (const CollectionPtr& c : collections) {
    while (voltaris_stepCollection(c.get()) == VT_COLLECTION_PENDING) WaitFor(c.get());
    EXPECT_EQ(voltaris_getCollectionOutcome(c.get()), VT_COLLECTION_COMPLETE);
    EXPECT_EQ(voltaris_getCollectionCounters(c.get())->accepted, 1u);
  }
  EXPECT_EQ(session->sequence_number, kMany);
  EXPECT_TRUE(peer.Join());
}

TEST(Collection, OfAQueryThatWasExecutedIsNone) {
  ScriptedPeer peer([](PeerConnection& c) { c.ReadPdu(); });
  const Stepped stepped = Start(peer.port());
  EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_COMPLETE);
  const LogCapture log(kInfo);
  EXPECT_EQ(voltaris_startCollection(stepped.session.get(), stepped.query.get(), nullptr), nullptr);
  EXPECT_EQ(log.lines(), (Lines{{kError, "voltaris_startCollection: create pdu failed, err=1"}}));
}

TEST(Collection, HasNoLimitWhereNoneIsWanted) {
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); });
  const Stepped endless = Start(peer.port(), {.connect_ms = -1, .idle_ms = -1, .total_ms = -1});
  EXPECT_EQ(voltaris_getCollectionTimeout(endless.get()), -1);
  const Stepped usual = Start(peer.port());
  EXPECT_GT(voltaris_getCollectionTimeout(usual.get()), 0);
  EXPECT_LE(voltaris_getCollectionTimeout(usual.get()), 180000);
}

TEST(Collection, ReleasedAtAnyPointLeavesNothingBehind) {
  constexpr int kMostSteps = 3;
  const LogCapture quiet(kSilent);
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); }, kMostSteps + 1);
  (void)Start(static_cast<std::uint16_t>(UnusedPort()));  // what is allocated once
  const std::set<int> before = OpenDescriptors();
  const LiveBlocks live;
  for (int steps = 0; steps <= kMostSteps; ++steps) {
    const Stepped stepped = Start(peer.port());
    for (int i = 0; i < steps; ++i) {
      if (voltaris_getCollectionEvents(stepped.get()) == POLLOUT) WaitFor(stepped.get());
      EXPECT_EQ(voltaris_stepCollection(stepped.get()), VT_COLLECTION_PENDING);
    }
  }
  voltaris_releaseCollection(nullptr);
  EXPECT_EQ(live.count(), 0);
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(Collection, WithoutMemoryIsNoneOrEndsWithItsErrorCode) {
  const LogCapture quiet(kSilent);
  const Bytes answer = WillAnswer("lamp") + UsageReply("lamp", 1, 11) + UsageReply("fan", 2, 12);
  const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
    std::unique_ptr<ScriptedPeer> peer;
    {
      const AllocationFault::Pause pause;
      peer = std::make_unique<ScriptedPeer>(AfterQuery([&](PeerConnection& c) { c.Send(answer); }));
    }
    const LiveBlocks live;
    {
      Stepped stepped;
      {
        const AllocationFault::Pause pause;
        stepped.session = LoopbackSession(peer->port());
        stepped.query.reset(voltaris_createCollectQuery("office", 7));
        EXPECT_EQ(voltaris_addGetAttribute(stepped.query.get(), 8), 0);
      }
      stepped.collection.reset(
          voltaris_startCollection(stepped.session.get(), stepped.query.get(), nullptr));
      if (stepped.collection == nullptr) {
        EXPECT_TRUE(fault.hit());
      } else {
        EXPECT_EQ(RunToEnd(stepped), VT_COLLECTION_COMPLETE);
        const bool had_default_timeout = stepped.counters().accepted == 3;
        const ResultPtr result = ResultOf(stepped);
        if (!fault.hit()) {
          EXPECT_EQ(result->error_code, 0);
          EXPECT_EQ(result->row_count, 2);
        }
        EXPECT_TRUE(result->error_code == 0 || result->error_code == VT_ERROR_NO_MEMORY);
        EXPECT_TRUE(had_default_timeout || fault.hit());
      }
      fault.Disarm();
    }
    EXPECT_EQ(live.count(), 0);
  });
  EXPECT_GT(failures, 10u);
}

}  // namespace
