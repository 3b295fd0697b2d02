// Failing system calls: each with every error number that the system documents for it, cut short at
// every byte, interrupted at every place. What is reported is what happened, and no descriptor is
// left behind.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "vtapi.h"

#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

constexpr int kSocketErrors[] = {EACCES, EAFNOSUPPORT, EINTR,  EINVAL,          EMFILE,
                                 ENFILE, ENOBUFS,      ENOMEM, EPROTONOSUPPORT, EPERM};
constexpr int kConnectErrors[] = {EACCES,     EADDRINUSE,   EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN,
                                  EALREADY,   EBADF,        ECONNREFUSED,  ECONNRESET,   EFAULT,
                                  EHOSTDOWN,  EHOSTUNREACH, EINPROGRESS,   EINTR,        EINVAL,
                                  EIO,        EISCONN,      ENETDOWN,      ENETUNREACH,  ENOBUFS,
                                  EOPNOTSUPP, ENOTSOCK,     EPERM,         EPROTOTYPE,   ETIMEDOUT};
constexpr int kGetsocknameErrors[] = {EBADF, EFAULT, EINVAL, ENOBUFS, ENOTSOCK, EOPNOTSUPP};
constexpr int kSendErrors[] = {
    EACCES,   EAGAIN,   EALREADY, EBADF,   ECONNRESET, EDESTADDRREQ, EFAULT,   EHOSTUNREACH,
    EINTR,    EINVAL,   EIO,      EISCONN, EMSGSIZE,   ENETDOWN,     ENOMEM,   ENETUNREACH,
    ENOTCONN, ENOTSOCK, ENOBUFS,  EPIPE,   EPERM,      EOPNOTSUPP,   ETIMEDOUT};
constexpr int kReadErrors[] = {EAGAIN,       EBADF,   ECONNREFUSED, ECONNRESET, EFAULT,
                               EHOSTUNREACH, EINTR,   EINVAL,       EIO,        ENETDOWN,
                               ENETUNREACH,  ENOBUFS, ENOMEM,       ENOTCONN,   ENOTSOCK,
                               EOPNOTSUPP,   EPERM,   ETIMEDOUT};
// Waits that fail with these are repeated; those with the others never become better.
constexpr int kRepeatedWaitErrors[] = {EAGAIN, EFAULT, EINTR, ENOMEM, EPERM};
constexpr int kFinalWaitErrors[] = {EBADF, EINVAL};
constexpr int kAcceptErrors[] = {EAGAIN,  EBADF,  ECONNABORTED, EFAULT,   EHOSTUNREACH,
                                 EINTR,   EINVAL, EMFILE,       ENETDOWN, ENFILE,
                                 ENOBUFS, ENOMEM, ENOPROTOOPT,  ENOTSOCK, EOPNOTSUPP,
                                 EPERM,   EPROTO, ENETUNREACH,  ENONET,   EHOSTDOWN};
constexpr int kBindErrors[] = {EACCES, EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT, EBADF, EFAULT,
                               EINVAL, ENOBUFS,    ENOMEM,        ENOTSOCK,     EPERM, EINTR};
constexpr int kCloseErrors[] = {EBADF, EDQUOT, EINTR, EIO, ENOSPC};

std::string NumberAndText(int error) {
  return std::to_string(error) + "(" + std::strerror(error) + ")";
}

template <class Result>
std::optional<Result> FailWith(int error) {
  errno = error;
  return Result{-1};
}

// NoLeak expects at its end the descriptors that were open at its beginning.
class NoLeak {
 public:
  NoLeak() : before_(OpenDescriptors()) {}
  ~NoLeak() { EXPECT_EQ(OpenDescriptors(), before_) << "a descriptor leaked or was closed twice"; }
  NoLeak(const NoLeak&) = delete;
  NoLeak& operator=(const NoLeak&) = delete;

 private:
  std::set<int> before_;
};

// For sessions whose connections are replaced.
constexpr std::uint32_t kNoPort = 9;

// Connected makes connections succeed that nobody made.
class Connected : public ConnectHook {
 public:
  Connected() : ConnectHook([](int, const sockaddr*, socklen_t) { return 0; }) {}
};

// Sent takes messages for sent that go nowhere.
class Sent : public SendHook {
 public:
  Sent()
      : SendHook([](int, const void*, std::size_t len, int) { return static_cast<ssize_t>(len); }) {
  }
};

// Replies answers waits and reads from bytes, cut at the given offsets, and then with the end of
// the stream.
class Replies {
 public:
  explicit Replies(Bytes bytes, std::deque<std::size_t> cuts = {})
      : bytes_(std::move(bytes)),
        cuts_(std::move(cuts)),
        poll_([](pollfd* fds, nfds_t, int) {
          fds->revents = POLLIN;
          return 1;
        }),
        read_([this](int, void* data, std::size_t len, int, sockaddr*, socklen_t*) {
          while (!cuts_.empty() && cuts_.front() <= position_) cuts_.pop_front();
          const std::size_t end = cuts_.empty() ? bytes_.size() : cuts_.front();
          const std::size_t n = std::min(len, end - position_);
          if (n > 0) std::memcpy(data, bytes_.data() + position_, n);
          position_ += n;
          return static_cast<ssize_t>(n);
        }) {}

 private:
  Bytes bytes_;
  std::deque<std::size_t> cuts_;
  std::size_t position_ = 0;
  PollHook poll_;
  RecvfromHook read_;
};

Bytes TwoReplies() { return UsageReply("lamp", 1, 11) + UsageReply("fan", 2, 22); }

TEST(SystemCalls, EveryFailureOfSocketLeavesTheQueryUnsent) {
  for (const int error : kSocketErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    Asking asking(kNoPort);
    const LogCapture log(kWarn);
    {
      const SocketHook hook([&](int, int, int) { return FailWith<int>(error); });
      EXPECT_EQ(asking.Execute(), kAskingSize);
    }
    EXPECT_EQ(asking.Collect(), nullptr);
    EXPECT_EQ(asking.session->descriptor, -1);
    EXPECT_EQ(
        log.lines(),
        (Lines{{kError,
                "voltaris_execQuery: Socket creation failed (errno " + std::to_string(error) + ")"},
               {kError, "voltaris_execQuery: Error connecting to host, query failed."},
               {kError, "voltaris_queryResults: Query failed to execute, no results available."}}));
  }
}

TEST(SystemCalls, EveryFailureOfSocketIsReportedByTheSocketFunctions) {
  for (const int error : kSocketErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const SocketHook hook([&](int, int, int) { return FailWith<int>(error); });
    const LogCapture log(kDebug);
    SocketEndpoint endpoint = {};
    EXPECT_EQ(openConnectedSocket(&endpoint, "127.0.0.1", kNoPort), -1);
    EXPECT_EQ(endpoint.descriptor, -1);
    EXPECT_EQ(createUdpSocket(0), -1);
    EXPECT_EQ(log.lines(), (Lines{{kError, "openConnectedSocket: Socket creation failed -1"},
                                  {kError, "createUdpSocket: Socket creation failed"}}));
  }
}

TEST(SystemCalls, EveryFailureOfConnectLeavesTheQueryUnsentAndNoDescriptor) {
  for (const int error : kConnectErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    Asking asking(kNoPort);
    const LogCapture log(kWarn);
    const ConnectHook hook([&](int, const sockaddr*, socklen_t) { return FailWith<int>(error); });
    const SendHook send([](int, const void*, std::size_t, int) -> std::optional<ssize_t> {
      ADD_FAILURE() << "nothing may be sent without a connection";
      return std::nullopt;
    });
    const std::set<int> open = OpenDescriptors();
    EXPECT_EQ(asking.Execute(), kAskingSize);
    EXPECT_EQ(hook.calls(), 1u) << "a failed connection is not tried again";
    EXPECT_EQ(OpenDescriptors(), open);
    EXPECT_EQ(asking.session->descriptor, -1);
    EXPECT_EQ(asking.Collect(), nullptr);
    EXPECT_EQ(
        log.lines(),
        (Lines{{kError,
                "voltaris_execQuery: Socket connect failed -1, error = " + NumberAndText(error)},
               {kError, "voltaris_execQuery: Error connecting to host, query failed."},
               {kError, "voltaris_queryResults: Query failed to execute, no results available."}}));
  }
}

TEST(SystemCalls, EveryFailureOfConnectIsOnlyLoggedByOpenConnectedSocket) {
  for (const int error : kConnectErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const ConnectHook hook([&](int, const sockaddr*, socklen_t) { return FailWith<int>(error); });
    const LogCapture log(kWarn);
    SocketEndpoint endpoint = {};
    const int fd = openConnectedSocket(&endpoint, "127.0.0.1", kNoPort);
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(endpoint.descriptor, fd);
    EXPECT_EQ(log.lines(), (Lines{{kError, "openConnectedSocket: connect failed -1, errno = " +
                                               std::to_string(error)}}));
    EXPECT_EQ(closeSocket(fd), 0);
  }
}

TEST(SystemCalls, EveryFailureOfGetsocknameLeavesOnlyTheLocalAddressUnknown) {
  for (const int error : kGetsocknameErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const GetsocknameHook hook([&](int, sockaddr*, socklen_t*) { return FailWith<int>(error); });
    const Connected connected;
    const Sent sent;
    const Replies replies(TwoReplies());
    const LogCapture log(kWarn);
    Asking asking(kNoPort);
    EXPECT_EQ(asking.Execute(), 0);
    EXPECT_EQ(asking.session->local.sin_port, 0);
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->answers_received, 2);
    EXPECT_EQ(asking.result->error_code, 0);

    SocketEndpoint endpoint = {};
    const int fd = openConnectedSocket(&endpoint, "127.0.0.1", kNoPort);
    EXPECT_GE(fd, 0);
    closeSocket(fd);

    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(bindTcpListener(listener, 0), -1);
    EXPECT_NE(fcntl(listener, F_GETFD), -1) << "the descriptor stays the caller's";
    close(listener);
    EXPECT_EQ(log.lines(), Lines{});
  }
}

TEST(SystemCalls, EveryFailureOfSendGivesTheSizeOfTheMessagePlusOne) {
  for (const int error : kSendErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const Connected connected;
    const SendHook hook(
        [&](int, const void*, std::size_t, int) { return FailWith<ssize_t>(error); });
    const LogCapture log(kWarn);
    Asking asking(kNoPort);
    EXPECT_EQ(asking.Execute(), kAskingSize + 1);
    EXPECT_EQ(hook.calls(), 1u) << "a message is sent once";
    EXPECT_EQ(
        log.lines(),
        (Lines{{kError, "voltaris_execQuery: send failed -1, errno = " + std::to_string(error)},
               {kWarn,
                "voltaris_execQuery: sent -1 bytes of pdu size " + std::to_string(kAskingSize)}}));
    // The connection stays with the query, which closes it.
    EXPECT_GE(asking.session->descriptor, 0);
  }
}

TEST(SystemCalls, AShortSendAtEveryByteGivesTheBytesNotSent) {
  for (std::int32_t sent = 0; sent < kAskingSize; ++sent) {
    SCOPED_TRACE(sent);
    const NoLeak no_leak;
    const Connected connected;
    const SendHook hook([&](int, const void*, std::size_t, int) { return ssize_t{sent}; });
    const LogCapture log(kWarn);
    Asking asking(kNoPort);
    EXPECT_EQ(asking.Execute(), kAskingSize - sent);
    EXPECT_EQ(hook.calls(), 1u);
    EXPECT_EQ(log.lines(), (Lines{{kWarn, "voltaris_execQuery: sent " + std::to_string(sent) +
                                              " bytes of pdu size 137"}}));
  }
}

TEST(SystemCalls, EveryFailureOfAReadEndsTheCollectionWithItsNumber) {
  const Bytes first = UsageReply("lamp", 1, 11);
  for (const int error : kReadErrors) {
    // Before a message, in its first header, in its header and in its payload.
    for (const std::size_t into : {0u, 5u, 40u, 100u}) {
      SCOPED_TRACE(std::to_string(error) + " after " + std::to_string(into));
      const NoLeak no_leak;
      const Connected connected;
      const Sent sent;
      const std::size_t end = first.size() + into;
      std::size_t taken = 0;
      const Replies replies(first + Head(first, into));
      const RecvfromHook hook([&](int fd, void* data, std::size_t len, int flags, sockaddr* from,
                                  socklen_t* from_len) -> std::optional<ssize_t> {
        if (taken == end) return FailWith<ssize_t>(error);
        const ssize_t got = recvfrom(fd, data, len, flags, from, from_len);
        taken += static_cast<std::size_t>(got);
        return got;
      });
      Asking asking(kNoPort);
      EXPECT_EQ(asking.Execute(), 0);
      const LogCapture log(kWarn);
      ASSERT_NE(asking.Collect(), nullptr);
      EXPECT_EQ(voltaris_getErrorCode(asking.result.get()), error);
      EXPECT_EQ(asking.result->answers_received, 1);
      EXPECT_EQ(asking.result->row_count, 1);
      EXPECT_EQ(log.lines(),
                (Lines{{kWarn, "vtn_queryLoop: no response read:  " + NumberAndText(error)}}));
    }
  }
}

TEST(SystemCalls, EveryFailureOfADatagramReadIsItsResult) {
  for (const int error : kReadErrors) {
    const RecvfromHook hook([&](int, void*, std::size_t, int, sockaddr*, socklen_t*) {
      return FailWith<ssize_t>(error);
    });
    const LogCapture log(kTrace);
    char buffer[8];
    EXPECT_EQ(vtn_read_udp_message(0, buffer, sizeof buffer), -1);
    EXPECT_EQ(errno, error);
    EXPECT_EQ(log.lines(),
              (Lines{{kTrace, "vtn_read_udp_message: read failed with -1 bytes, errno " +
                                  std::to_string(error)}}));
  }
}

TEST(SystemCalls, AShortReadAtEveryByteLosesNothing) {
  const Bytes stream = TwoReplies();
  const Connected connected;
  const Sent sent;
  const LogCapture quiet(kSilent);
  for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
    SCOPED_TRACE(cut);
    const NoLeak no_leak;
    const Replies replies(stream, {cut});
    Asking asking(kNoPort);
    EXPECT_EQ(asking.Execute(), 0);
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->error_code, 0);
    EXPECT_EQ(asking.result->answers_received, 2);
    EXPECT_EQ(RowNames(asking.result.get()), (std::vector<std::string>{"fan/2", "lamp/1"}));
  }
}

TEST(SystemCalls, ReadsOfOneByteEachLoseNothing) {
  const Bytes stream = TwoReplies();
  std::deque<std::size_t> cuts;
  for (std::size_t at = 1; at < stream.size(); ++at) cuts.push_back(at);
  const NoLeak no_leak;
  const Connected connected;
  const Sent sent;
  const Replies replies(stream, cuts);
  Asking asking(kNoPort);
  EXPECT_EQ(asking.Execute(), 0);
  ASSERT_NE(asking.Collect(), nullptr);
  EXPECT_EQ(asking.result->error_code, 0);
  EXPECT_EQ(asking.result->answers_received, 2);
}

TEST(SystemCalls, AFailedWaitIsRepeatedUnlessTheDescriptorIsBad) {
  const Connected connected;
  const Sent sent;
  const auto collect = [&](int error) {
    const Replies replies(TwoReplies());
    // Between the two replies; more than once, for a wait may fail again.
    std::size_t waits = 0;
    const PollHook hook([&](pollfd*, nfds_t, int) -> std::optional<int> {
      if (++waits < 2 || waits > 4) return std::nullopt;
      return FailWith<int>(error);
    });
    Asking asking(kNoPort);
    EXPECT_EQ(asking.Execute(), 0);
    const LogCapture log(kWarn);
    if (asking.Collect() == nullptr) {
      ADD_FAILURE() << "no result";
      return std::tuple<std::int32_t, std::int32_t, std::size_t>(-1, -1, 0);
    }
    EXPECT_EQ(log.lines().size(),
              log.Count(kWarn, "vtn_queryLoop: unexpected read status value -1, error: " +
                                   NumberAndText(error)));
    return std::tuple(voltaris_getErrorCode(asking.result.get()), asking.result->answers_received,
                      log.lines().size());
  };
  for (const int error : kRepeatedWaitErrors) {
    const NoLeak no_leak;
    EXPECT_EQ(collect(error), std::tuple(0, 2, std::size_t{3})) << error;
  }
  for (const int error : kFinalWaitErrors) {
    const NoLeak no_leak;
    EXPECT_EQ(collect(error), std::tuple(error, 1, std::size_t{1})) << error;
  }
}

TEST(SystemCalls, EveryFailureOfAWaitIsReportedByTheWaits) {
  std::vector<int> errors(std::begin(kRepeatedWaitErrors), std::end(kRepeatedWaitErrors));
  errors.insert(errors.end(), std::begin(kFinalWaitErrors), std::end(kFinalWaitErrors));
  for (const int error : errors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const PollHook hook([&](pollfd*, nfds_t, int) { return FailWith<int>(error); });
    const LogCapture log(kDebug);
    timeval limit = {1, 0};
    std::uint32_t peer = 0;
    char buffer[100];
    EXPECT_EQ(waitfor_tcp_connect(0, &peer, &limit), -1);
    EXPECT_EQ(waitfor_tcp_message(0, buffer, sizeof buffer, &limit), 0);
    EXPECT_EQ(hook.calls(), 2u);
    EXPECT_EQ(log.lines(),
              (Lines{{kDebug, "waitfor_tcp_connect: wait for 1 seconds"},
                     {kDebug, "waitfor_tcp_connect: select (accept) -1"},
                     {kDebug, "waitfor_tcp_connect: select returned -1, error = " +
                                  std::to_string(error) + " (" + std::strerror(error) + ")"},
                     {kDebug, "waitfor_tcp_message: select (read) status -1 on fd 0"}}));
  }
}

TEST(SystemCalls, EveryFailureOfAcceptIsReported) {
  for (const int error : kAcceptErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const PollHook ready([](pollfd* fds, nfds_t, int) {
      fds->revents = POLLIN;
      return 1;
    });
    const AcceptHook hook([&](int, sockaddr*, socklen_t*) { return FailWith<int>(error); });
    const LogCapture log(kWarn);
    std::uint32_t peer = 0x0100007F;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(waitfor_tcp_connect(0, &peer, nullptr), -1);
    EXPECT_EQ(errno, error);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              std::string("accept(): ") + std::strerror(error) + "\n");
    EXPECT_EQ(hook.calls(), 1u);
    EXPECT_EQ(peer, 0x0100007Fu) << "nobody knocked";
    EXPECT_EQ(log.lines(),
              (Lines{{kError, "waitfor_tcp_connect: errno = " + std::to_string(error)}}));
  }
}

TEST(SystemCalls, EveryFailureOfBindIsReported) {
  const int mine = socket(AF_INET, SOCK_DGRAM, 0);
  for (const int error : kBindErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const BindHook hook([&](int, const sockaddr*, socklen_t) { return FailWith<int>(error); });
    const LogCapture log(kWarn);
    EXPECT_EQ(createUdpSocket(4711), -1);
    EXPECT_EQ(bindUdpSocket(mine, 4711), -1);
    EXPECT_EQ(bindTcpListener(mine, 4711), -1);
    const std::string text = std::string("Bind failed server:0.0.0.0, port:4711(") +
                             std::strerror(error) + ":" + std::to_string(error) + ")";
    EXPECT_EQ(log.lines(), (Lines{{kWarn, "createUdpSocket: " + text},
                                  {kWarn, "bindUdpSocket: " + text},
                                  {kWarn, "bindTcpListener: " + text}}));
  }
  close(mine);
}

TEST(SystemCalls, AFailedCloseIsNotRepeated) {
  const Connected connected;
  const Sent sent;
  for (const int error : kCloseErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    // The system gives the descriptor up even when it reports a failure, so that to close it again
    // could hit another one.
    const CloseHook hook([&](int fd) {
      close(fd);
      return FailWith<int>(error);
    });
    {
      const Replies replies(TwoReplies());
      Asking asking(kNoPort);
      EXPECT_EQ(asking.Execute(), 0);
      ASSERT_NE(asking.Collect(), nullptr);
      EXPECT_EQ(asking.result->answers_received, 2);
      EXPECT_EQ(hook.calls(), 0u);
    }
    EXPECT_EQ(hook.calls(), 1u);
    EXPECT_EQ(closeSocket(socket(AF_INET, SOCK_STREAM, 0)), 0);
    EXPECT_EQ(hook.calls(), 2u);
  }
}

// FailOne lets the n-th system call of this thread fail, whichever it is.
class FailOne {
 public:
  FailOne(std::size_t n, int error)
      : n_(n),
        error_(error),
        socket_([this](int, int, int) { return Strike<int>("socket"); }),
        connect_([this](int, const sockaddr*, socklen_t) { return Strike<int>("connect"); }),
        getsockname_([this](int, sockaddr*, socklen_t*) { return Strike<int>("getsockname"); }),
        send_([this](int, const void*, std::size_t, int) { return Strike<ssize_t>("send"); }),
        poll_([this](pollfd*, nfds_t, int) { return Strike<int>("poll"); }),
        recvfrom_([this](int, void*, std::size_t, int, sockaddr*, socklen_t*) {
          return Strike<ssize_t>("recvfrom");
        }),
        close_([this](int fd) -> std::optional<int> {
          const std::optional<int> result = Strike<int>("close");
          if (!result) return std::nullopt;
          close(fd);
          errno = error_;
          return result;
        }) {}

  // failed names the call that failed; empty if there were fewer calls.
  const std::string& failed() const { return failed_; }

 private:
  template <class Result>
  std::optional<Result> Strike(const char* name) {
    if (seen_++ != n_) return std::nullopt;
    failed_ = name;
    return FailWith<Result>(error_);
  }

  std::size_t n_;
  int error_;
  std::size_t seen_ = 0;
  std::string failed_;
  SocketHook socket_;
  ConnectHook connect_;
  GetsocknameHook getsockname_;
  SendHook send_;
  PollHook poll_;
  RecvfromHook recvfrom_;
  CloseHook close_;
};

class ExchangeWithAFailure : public ::testing::TestWithParam<int> {};

// In a whole exchange one call after the other fails: what is reported fits the call, the objects
// survive, and the next query on the same session succeeds.
TEST_P(ExchangeWithAFailure, AtAnyCallEndsAsStatedAndTheSessionStaysUsable) {
  const int error = GetParam();
  const LogCapture quiet(kSilent);
  std::multiset<std::string> failures;
  for (std::size_t n = 0;; ++n) {
    SCOPED_TRACE("call " + std::to_string(n));
    const NoLeak no_leak;
    const Connected connected;
    const Sent sent;
    Asking asking(kNoPort);
    std::string failed;
    {
      const Replies replies(TwoReplies());
      const FailOne fail(n, error);
      const std::int32_t unsent = asking.Execute();
      const ResultSet* const result = asking.Collect();
      failed = fail.failed();
      if (failed == "socket" || failed == "connect") {
        EXPECT_EQ(unsent, kAskingSize);
        EXPECT_EQ(result, nullptr);
      } else {
        EXPECT_EQ(unsent, failed == "send" ? kAskingSize + 1 : 0);
        ASSERT_NE(result, nullptr);
        const bool ends = failed == "recvfrom" || (failed == "poll" && error == EBADF);
        EXPECT_EQ(result->error_code, ends ? error : 0);
        if (!ends) EXPECT_EQ(result->answers_received, 2);
      }
      asking.result.reset();
      asking.query.reset();
      failed = fail.failed();
    }
    EXPECT_EQ(asking.session->descriptor, -1);
    const Replies replies(TwoReplies());
    asking.Renew();
    EXPECT_EQ(asking.Execute(), 0);
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->error_code, 0);
    EXPECT_EQ(asking.result->answers_received, 2);
    if (failed.empty() || HasFailure()) break;
    failures.insert(failed);
  }
  for (const char* call : {"socket", "connect", "getsockname", "send", "close"}) {
    EXPECT_EQ(failures.count(call), 1u) << call;
  }
  EXPECT_EQ(failures.count("poll"), 3u);      // two messages and the end
  EXPECT_EQ(failures.count("recvfrom"), 7u);  // three for each message, and the end
}

INSTANTIATE_TEST_SUITE_P(Errno, ExchangeWithAFailure,
                         ::testing::Values(EINTR, ENOMEM, EBADF, ECONNRESET),
                         [](const auto& parameter) {
                           return std::string("Is") + strerrorname_np(parameter.param);
                         });

// DescriptorLimit sets the soft limit while it lives.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t limit) {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &saved_), 0);
    rlimit wanted = saved_;
    wanted.rlim_cur = limit;
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &wanted), 0) << "a limit of " << limit << " cannot be had";
  }
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &saved_); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  rlimit saved_ = {};
};

// OccupiedDescriptors takes the free descriptors up to and with the last one that is wanted.
class OccupiedDescriptors {
 public:
  explicit OccupiedDescriptors(int last) {
    int fd = -1;
    while (fd < last && (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0) fds_.push_back(fd);
    error_ = fd < 0 ? errno : 0;
  }
  ~OccupiedDescriptors() {
    for (const int fd : fds_) close(fd);
  }
  OccupiedDescriptors(const OccupiedDescriptors&) = delete;
  OccupiedDescriptors& operator=(const OccupiedDescriptors&) = delete;

  int error() const { return error_; }

 private:
  std::vector<int> fds_;
  int error_ = 0;
};

// Answers every query with two replies.
void AnswerTwice(PeerConnection& connection) {
  connection.ReadPdu();
  connection.Send(TwoReplies());
}

TEST(Descriptors, HundredQueriesFitALimitOf32) {
  const LogCapture quiet(kSilent);
  const NoLeak no_leak;
  const DescriptorLimit limit(32);
  ScriptedPeer peer(AnswerTwice, 100);
  Asking asking(peer.port());
  for (int i = 0; i < 100; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(asking.Execute(), 0);
    ASSERT_NE(asking.Collect(), nullptr);
    ASSERT_EQ(asking.result->error_code, 0);
    ASSERT_EQ(asking.result->answers_received, 2);
    asking.Renew();
  }
  EXPECT_TRUE(peer.Join());
}

TEST(Descriptors, HundredFailuresOfEachKindFitALimitOf32) {
  const LogCapture quiet(kSilent);
  const NoLeak no_leak;
  const DescriptorLimit limit(32);
  for (int i = 0; i < 100; ++i) {
    SCOPED_TRACE(i);
    Asking refused(static_cast<std::uint32_t>(UnusedPort()));
    ASSERT_EQ(refused.Execute(), kAskingSize);
    {
      const Connected connected;
      Asking unsent(kNoPort);  // its socket is connected to nobody
      ASSERT_EQ(unsent.Execute(), kAskingSize + 1);
    }
    const BindHook bind([](int, const sockaddr*, socklen_t) { return FailWith<int>(EADDRINUSE); });
    ASSERT_EQ(createUdpSocket(0), -1);
  }
}

TEST(Descriptors, WithoutAFreeOneTheQueryFailsAndTheNextSucceeds) {
  const NoLeak no_leak;
  ScriptedPeer peer(AnswerTwice);
  Asking asking(peer.port());
  {
    const LogCapture log(kWarn);
    const DescriptorLimit limit(32);
    const OccupiedDescriptors occupied(1000);
    ASSERT_EQ(occupied.error(), EMFILE);
    EXPECT_EQ(asking.Execute(), kAskingSize);
    EXPECT_TRUE(log.Has(kError, "voltaris_execQuery: Socket creation failed (errno 24)"));
    EXPECT_EQ(asking.Collect(), nullptr);
  }
  asking.Renew();
  EXPECT_EQ(asking.Execute(), 0);
  ASSERT_NE(asking.Collect(), nullptr);
  EXPECT_EQ(asking.result->answers_received, 2);
}

TEST(Descriptors, AcceptWithoutAFreeOneLeavesTheNewcomerToTheNextCall) {
  const NoLeak no_leak;
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  const int port = bindTcpListener(listener, 0);
  ASSERT_EQ(listen(listener, 1), 0);
  SocketEndpoint endpoint = {};
  const int client = openConnectedSocket(&endpoint, "127.0.0.1", static_cast<std::uint32_t>(port));
  timeval limit = {10, 0};
  std::uint32_t newcomer = 0;
  {
    const DescriptorLimit descriptors(32);
    const OccupiedDescriptors occupied(1000);
    EXPECT_EQ(waitfor_tcp_connect(listener, &newcomer, &limit), -1);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(newcomer, 0u);
  }
  const int accepted = waitfor_tcp_connect(listener, &newcomer, &limit);
  EXPECT_GE(accepted, 0);
  EXPECT_EQ(newcomer, htonl(INADDR_LOOPBACK));
  for (const int fd : {listener, client, accepted}) closeSocket(fd);
}

TEST(Descriptors, NumbersAbove1024ServeWholeExchanges) {
  const NoLeak no_leak;
  const DescriptorLimit limit(1200);
  const OccupiedDescriptors occupied(1100);
  ASSERT_EQ(occupied.error(), 0);
  const LogCapture quiet(kSilent);
  {
    ScriptedPeer peer(AnswerTwice);
    Asking asking(peer.port());
    ASSERT_EQ(asking.Execute(), 0);
    EXPECT_GT(asking.session->descriptor, 1100);
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->error_code, 0);
    EXPECT_EQ(asking.result->answers_received, 2);
  }

  // The other side, with the library's own listener.
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_GT(listener, 1100);
  const int port = bindTcpListener(listener, 0);
  ASSERT_EQ(listen(listener, 1), 0);
  SocketEndpoint endpoint = {};
  const int client = openConnectedSocket(&endpoint, "127.0.0.1", static_cast<std::uint32_t>(port));
  EXPECT_GT(client, 1100);
  timeval patience = {10, 0};
  std::uint32_t newcomer = 0;
  const int accepted = waitfor_tcp_connect(listener, &newcomer, &patience);
  EXPECT_GT(accepted, 1100);
  const Bytes message = UsageReply("lamp", 1, 11);
  EXPECT_EQ(send(client, message.data(), message.size(), 0), static_cast<ssize_t>(message.size()));
  char buffer[1400];
  EXPECT_EQ(waitfor_tcp_message(accepted, buffer, sizeof buffer, &patience),
            static_cast<int>(message.size()));
  const int datagrams = createUdpSocket(0);
  EXPECT_GT(datagrams, 1100);
  for (const int fd : {listener, client, accepted, datagrams}) closeSocket(fd);
}

}  // namespace
