// Failing system calls under a collection that goes in steps, alone and in a fleet: each with every
// error number that it can have. The outcome is the stated one, and no descriptor is left behind.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "vtapi.h"

#include "tests/harness/note.h"
#include "tests/trust/error_numbers.h"
#include "tests/trust/exchange_support.h"
#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

constexpr CollectionOptions kSoon = {.connect_ms = 1, .idle_ms = 1, .total_ms = 0};

// Ending is how a collection came to its end.
struct Ending {
  std::int32_t outcome;
  std::int32_t error;
  std::uint32_t accepted;

  bool operator==(const Ending&) const = default;
};

void PrintTo(const Ending& ending, std::ostream* out) {
  *out << voltaris_nameOutcome(ending.outcome) << ", errno " << ending.error << ", "
       << ending.accepted << " accepted";
}

Ending EndingOf(const ReplyCollection* c) {
  return {voltaris_getCollectionOutcome(c), voltaris_getCollectionErrno(c),
          voltaris_getCollectionCounters(c)->accepted};
}

QueryPtr NewQuery() {
  QueryPtr query(voltaris_createCollectQuery("office", 7));
  EXPECT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
  return query;
}

Ending RunAlone(std::uint16_t port, const CollectionOptions& options) {
  const SessionPtr session = LoopbackSession(port);
  const QueryPtr query = NewQuery();
  const CollectionPtr c(voltaris_startCollection(session.get(), query.get(), &options));
  while (voltaris_stepCollection(c.get()) == VT_COLLECTION_PENDING) {
    pollfd watched = {voltaris_getCollectionDescriptor(c.get()),
                      voltaris_getCollectionEvents(c.get()), 0};
    (void)poll(&watched, 1, voltaris_getCollectionTimeout(c.get()));
  }
  return EndingOf(c.get());
}

Ending RunInAFleet(std::uint16_t port, const CollectionOptions& options) {
  const SessionPtr session = LoopbackSession(port);
  const QueryPtr query = NewQuery();
  const FleetPtr fleet(voltaris_createFleet(1));
  if (fleet == nullptr) return {-1, errno, 0};
  EXPECT_NE(voltaris_addToFleet(fleet.get(), session.get(), query.get(), &options, nullptr),
            nullptr);
  EXPECT_EQ(voltaris_runFleet(fleet.get(), nullptr, nullptr), 0);
  const CollectionPtr c(voltaris_takeEnded(fleet.get(), nullptr));
  return EndingOf(c.get());
}

// ExpectBoth runs one alone and one in a fleet, each against a node that answers twice.
void ExpectBoth(int error, const Ending& expected, const CollectionOptions& options = {}) {
  SCOPED_TRACE(error);
  const NoLeak no_leak;
  const NoSignal no_signal;
  const LogCapture quiet(kSilent);
  ScriptedPeer peer(
      [](PeerConnection& c) {
        try {
          c.ReadPdu();
          c.Send(TwoReplies());
        } catch (const PeerError&) {
          // The other side has given up, as it has to in most of these tests.
        }
      },
      2);
  EXPECT_EQ(RunAlone(peer.port(), options), expected);
  EXPECT_EQ(RunInAFleet(peer.port(), options), expected);
}

// ExpectBothUnconnected does it where no connection comes about.
void ExpectBothUnconnected(int error, const Ending& expected) {
  SCOPED_TRACE(error);
  const NoLeak no_leak;
  EXPECT_EQ(RunAlone(kNoPort, kSoon), expected);
  EXPECT_EQ(RunInAFleet(kNoPort, kSoon), expected);
}

TEST(CollectionFaults, EveryFailureOfSocketIsUnreachable) {
  for (const int error : kSocketErrors) {
    const SocketHook hook([&](int, int, int) { return FailWith<int>(error); });
    ExpectBothUnconnected(error, {VT_COLLECTION_UNREACHABLE, error, 0});
  }
  Report("socket", kSocketErrors, "collections in steps and in fleets");
}

TEST(CollectionFaults, EveryFailureOfConnectIsRefusedOrUnreachableOrTakesTooLong) {
  for (const int error : kConnectErrors) {
    const ConnectHook hook([&](int, const sockaddr*, socklen_t) { return FailWith<int>(error); });
    Ending expected = {VT_COLLECTION_UNREACHABLE, error, 0};
    if (error == ECONNREFUSED) expected.outcome = VT_COLLECTION_REFUSED;
    if (error == EINPROGRESS || error == EALREADY || error == EINTR) {
      expected = {VT_COLLECTION_CONNECT_TIMEOUT, ETIMEDOUT, 0};
    }
    // Said of a socket that is not connected: the query finds it out.
    if (error == EISCONN) expected = {VT_COLLECTION_SEND_ERROR, EPIPE, 0};
    ExpectBothUnconnected(error, expected);
  }
  Report("connect", kConnectErrors, "collections in steps and in fleets");
}

TEST(CollectionFaults, EveryFailureOfSendEndsThemButThoseThatPass) {
  for (const int error : kSendErrors) {
    int calls = 0;
    const SendHook hook([&](int, const void*, std::size_t, int) -> std::optional<ssize_t> {
      // An interruption happens once; what would block blocks for good.
      if (error == EINTR && ++calls % 2 == 0) return std::nullopt;
      return FailWith<ssize_t>(error);
    });
    if (error == EAGAIN) {
      ExpectBoth(error, {VT_COLLECTION_IDLE, ETIMEDOUT, 0},
                 {.connect_ms = 0, .idle_ms = 20, .total_ms = 0});
    } else if (error == EINTR) {
      ExpectBoth(error, {VT_COLLECTION_COMPLETE, 0, 2});
    } else {
      ExpectBoth(error, {VT_COLLECTION_SEND_ERROR, error, 0});
    }
  }
  Report("send", kSendErrors, "collections in steps and in fleets");
}

TEST(CollectionFaults, EveryFailureOfReadingEndsThemWithWhatThereIs) {
  for (const int error : kReadErrors) {
    if (error == EAGAIN || error == EINTR) continue;  // they pass
    int calls = 0;
    const std::size_t first = UsageReply("lamp", 1, 11).size();
    const RecvfromHook hook([&](int fd, void* at, std::size_t, int flags, sockaddr*, socklen_t*) {
      // The first reply arrives whole, and alone.
      const HookPause pause;
      if (calls++ % 2 == 1) return FailWith<ssize_t>(error);
      const ssize_t got = recvfrom(fd, at, first, flags, nullptr, nullptr);
      if (got < 0) --calls;
      return std::optional<ssize_t>(got);
    });
    ExpectBoth(error, {VT_COLLECTION_READ_ERROR, error, 1});
  }
  Report("recvfrom", kReadErrors, "collections in steps and in fleets, but EAGAIN and EINTR");
}

TEST(CollectionFaults, AnInterruptedReadIsRepeated) {
  int calls = 0;
  const RecvfromHook hook([&](int, void*, std::size_t, int, sockaddr*, socklen_t*) {
    return ++calls % 2 == 1 ? FailWith<ssize_t>(EINTR) : std::nullopt;
  });
  ExpectBoth(EINTR, {VT_COLLECTION_COMPLETE, 0, 2});
}

TEST(CollectionFaults, AFailureOfCloseChangesNothing) {
  for (const int error : kCloseErrors) {
    const CloseHook hook([&](int fd) {
      const HookPause pause;
      close(fd);  // the descriptor is gone, whatever close reports
      return FailWith<int>(error);
    });
    ExpectBoth(error, {VT_COLLECTION_COMPLETE, 0, 2});
  }
  Report("close", kCloseErrors, "collections in steps and in fleets");
}

TEST(CollectionFaults, EveryFailureToWatchIsUnreachable) {
  for (const int error : kWatchErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const EpollCtlHook hook([&](int, int operation, int, epoll_event*) -> std::optional<int> {
      if (operation != EPOLL_CTL_ADD) return std::nullopt;
      return FailWith<int>(error);
    });
    const ConnectHook pending(
        [](int, const sockaddr*, socklen_t) { return FailWith<int>(EINPROGRESS); });
    EXPECT_EQ(RunInAFleet(kNoPort, kSoon), (Ending{VT_COLLECTION_UNREACHABLE, error, 0}));
  }
  Report("epoll_ctl", kWatchErrors, "fleets");
}

TEST(CollectionFaults, AFleetThatCannotWaitIsCancelled) {
  for (const int error : {EBADF, EFAULT, EINVAL}) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const EpollWaitHook hook([&](int, epoll_event*, int, int) { return FailWith<int>(error); });
    const ConnectHook pending(
        [](int, const sockaddr*, socklen_t) { return FailWith<int>(EINPROGRESS); });
    const SessionPtr session = LoopbackSession(kNoPort);
    const QueryPtr query = NewQuery();
    const FleetPtr fleet(voltaris_createFleet(1));
    const ReplyCollection* c =
        voltaris_addToFleet(fleet.get(), session.get(), query.get(), nullptr, nullptr);
    EXPECT_EQ(voltaris_runFleet(fleet.get(), nullptr, nullptr), -1);
    EXPECT_EQ(EndingOf(c), (Ending{VT_COLLECTION_CANCELLED, ECANCELED, 0}));
  }
}

TEST(CollectionFaults, WithoutADescriptorThereIsNoFleet) {
  const LogCapture quiet(kSilent);
  for (const int error : kEpollErrors) {
    const NoLeak no_leak;
    const EpollCreateHook hook([&](int) { return FailWith<int>(error); });
    EXPECT_EQ(voltaris_createFleet(1), nullptr);
  }
  Report("epoll_create1", kEpollErrors, "voltaris_createFleet");
}

// Every way to cut the query and the replies, one byte at a time from either side.
TEST(CollectionFaults, ShortSendsAndReadsAtEveryByteLoseNothing) {
  const Bytes replies = TwoReplies();
  std::size_t cuts = 0;
  for (std::size_t cut = 1; cut < replies.size(); ++cut, ++cuts) {
    SCOPED_TRACE(cut);
    const NoLeak no_leak;
    std::size_t position = 0;
    const ConnectHook connected([](int, const sockaddr*, socklen_t) { return 0; });
    const SendHook sends([&](int, const void*, std::size_t size, int) {
      return static_cast<ssize_t>(std::min(size, cut));
    });
    const RecvfromHook reads([&](int, void* at, std::size_t size, int, sockaddr*, socklen_t*) {
      const std::size_t end = position < cut ? cut : replies.size();
      const std::size_t n = std::min(size, end - position);
      std::copy_n(replies.begin() + static_cast<std::ptrdiff_t>(position), n,
                  static_cast<std::uint8_t*>(at));
      position += n;
      return static_cast<ssize_t>(n);
    });
    EXPECT_EQ(RunAlone(kNoPort, {}), (Ending{VT_COLLECTION_COMPLETE, 0, 2}));
  }
  Note() << cuts << " cuts\n";
}

}  // namespace
