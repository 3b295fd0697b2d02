// Failing system calls: each with every error number that the system documents for it, cut short at
// every byte, interrupted at every place. What is reported is what happened, and no descriptor is
// left behind.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <deque>
#include <functional>
#include <future>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "vtapi.h"

#include "tests/harness/note.h"
#include "tests/trust/error_numbers.h"
#include "tests/trust/exchange_support.h"
#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

std::string Numbered(const char* text, long number) { return text + std::to_string(number); }

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
  Report("socket", kSocketErrors, "voltaris_execQuery");
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
  Report("socket", kSocketErrors, "openConnectedSocket, createUdpSocket");
}

TEST(SystemCalls, EveryFailureOfConnectLeavesTheQueryUnsentAndNoDescriptor) {
  for (const int error : kConnectErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    Asking asking(kNoPort);
    const LogCapture log(kWarn);
    const ConnectHook hook([&](int, const sockaddr*, socklen_t) { return FailWith<int>(error); });
    const CloseHook closes([](int) { return std::nullopt; });
    const SendHook send([](int, const void*, std::size_t, int) -> std::optional<ssize_t> {
      ADD_FAILURE() << "nothing may be sent without a connection";
      return std::nullopt;
    });
    const std::set<int> open = OpenDescriptors();
    EXPECT_EQ(asking.Execute(), kAskingSize);
    EXPECT_EQ(hook.calls(), 1u) << "a failed connection is not tried again";
    EXPECT_EQ(closes.calls(), 1u);
    EXPECT_EQ(OpenDescriptors(), open);
    EXPECT_EQ(asking.session->descriptor, -1);
    EXPECT_EQ(asking.Collect(), nullptr);
    asking.query.reset();
    EXPECT_EQ(closes.calls(), 1u) << "there is nothing more to close";
    EXPECT_EQ(
        log.lines(),
        (Lines{{kError,
                "voltaris_execQuery: Socket connect failed -1, error = " + NumberAndText(error)},
               {kError, "voltaris_execQuery: Error connecting to host, query failed."},
               {kError, "voltaris_queryResults: Query failed to execute, no results available."}}));
  }
  Report("connect", kConnectErrors, "voltaris_execQuery");
}

TEST(SystemCalls, EveryFailureOfConnectIsOnlyLoggedByOpenConnectedSocket) {
  for (const int error : kConnectErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const ConnectHook hook([&](int, const sockaddr*, socklen_t) { return FailWith<int>(error); });
    const LogCapture log(kDebug);
    SocketEndpoint endpoint = {};
    const int fd = openConnectedSocket(&endpoint, "127.0.0.1", kNoPort);
    EXPECT_NE(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(endpoint.descriptor, fd);
    EXPECT_EQ(hook.calls(), 1u);
    EXPECT_EQ(log.lines(),
              (Lines{{kError, Numbered("openConnectedSocket: connect failed -1, errno = ", error)},
                     {kDebug, "openConnectedSocket: local socket address 0.0.0.0:0"}}));
    EXPECT_EQ(closeSocket(fd), 0);
  }
  Report("connect", kConnectErrors, "openConnectedSocket");
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

    EXPECT_EQ(log.lines(), Lines{});

    LogCapture details(kDebug);
    SocketEndpoint endpoint = {};
    const int fd = openConnectedSocket(&endpoint, "127.0.0.1", kNoPort);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(details.Take(),
              (Lines{{kDebug, "openConnectedSocket: local socket address 0.0.0.0:0"}}));
    closeSocket(fd);

    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(bindTcpListener(listener, 0), -1);
    EXPECT_NE(fcntl(listener, F_GETFD), -1) << "the descriptor stays the caller's";
    close(listener);
    EXPECT_EQ(details.lines(), Lines{});
  }
  Report("getsockname", kGetsocknameErrors,
         "voltaris_execQuery, openConnectedSocket, bindTcpListener");
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
    // The connection stays with the query, which closes it. What is there can be collected.
    EXPECT_GE(asking.session->descriptor, 0);
    const Replies replies(TwoReplies());
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->answers_received, 2);
  }
  Report("send", kSendErrors, "voltaris_execQuery");
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
  Note() << "send: " << kAskingSize << " short counts\n";
}

// FailingAfter lets reads fail once the given number of bytes has been read.
class FailingAfter {
 public:
  FailingAfter(std::size_t size, int error)
      : hook_([=, this](int fd, void* data, std::size_t len, int flags, sockaddr* from,
                        socklen_t* from_len) -> std::optional<ssize_t> {
          if (taken_ == size) {
            if (failures_++ == 0) return FailWith<ssize_t>(error);
            ADD_FAILURE() << "a failed read is not tried again";
            return 0;
          }
          const ssize_t got = recvfrom(fd, data, len, flags, from, from_len);
          taken_ += static_cast<std::size_t>(got);
          return got;
        }) {}

 private:
  std::size_t taken_ = 0;
  std::size_t failures_ = 0;
  RecvfromHook hook_;
};

TEST(SystemCalls, EveryFailureOfAReadAtEveryByteEndsTheCollectionWithItsNumber) {
  const Bytes first = UsageReply("lamp", 1, 11);
  const Connected connected;
  const Sent sent;
  std::size_t cases = 0;
  for (const int error : kReadErrors) {
    const NoLeak no_leak;
    for (std::size_t into = 0; into < first.size(); ++into) {
      SCOPED_TRACE(std::to_string(error) + " after " + std::to_string(into));
      const Replies replies(first + Head(first, into));
      const FailingAfter hook(first.size() + into, error);
      Asking asking(kNoPort);
      EXPECT_EQ(asking.Execute(), 0);
      const LogCapture log(kWarn);
      ASSERT_NE(asking.Collect(), nullptr);
      EXPECT_EQ(voltaris_getErrorCode(asking.result.get()), error);
      EXPECT_EQ(asking.result->answers_received, 1);
      EXPECT_EQ(asking.result->row_count, 1);
      EXPECT_EQ(log.lines(),
                (Lines{{kWarn, "vtn_queryLoop: no response read:  " + NumberAndText(error)}}));
      ++cases;
    }
  }
  Report("recvfrom", kReadErrors, "voltaris_queryResults");
  Note() << "recvfrom: " << cases << " collections that failed\n";
}

// The lines about reads of a message of 80 bytes of headers and a payload, of which the stream
// gives up to each cut at a time, and then the result below 1 if it ends early.
Lines LinesOfReads(std::size_t size, const std::vector<std::size_t>& cuts, std::size_t there,
                   int last) {
  Lines lines;
  const auto add = [&](const std::string& text) {
    lines.push_back({kTrace, "vtn_read_tcp_message: Read " + text});
  };
  std::size_t used = 0;
  const std::pair<std::size_t, const char*> phases[] = {
      {12, "hdr"}, {80, "header"}, {size, "payload"}};
  for (const auto& [end, name] : phases) {
    while (used < end) {
      std::size_t until = std::min(end, there);
      for (const std::size_t cut : cuts) {
        if (cut > used) until = std::min(until, cut);
      }
      const int result = until > used ? static_cast<int>(until - used) : last;
      add(std::to_string(result) + " bytes for " + name + " of mgmt port");
      if (end != 12) add(std::to_string(static_cast<int>(used) + result) + " bytes total mgmt");
      if (result < 1) return lines;
      used = until;
    }
  }
  return lines;
}

TEST(SystemCalls, EveryFailureOfAReadAtEveryByteIsTheResultOfTheReaders) {
  const Bytes message = UsageReply("lamp", 1, 11);
  LogCapture log(kTrace);
  char buffer[1400];
  for (const int error : kReadErrors) {
    for (std::size_t into = 0; into < message.size(); ++into) {
      SCOPED_TRACE(std::to_string(error) + " after " + std::to_string(into));
      const Lines reads = LinesOfReads(message.size(), {}, into, -1);
      {
        const Replies replies(Head(message, into));
        const FailingAfter hook(into, error);
        EXPECT_EQ(vtn_read_tcp_message(0, buffer, sizeof buffer, nullptr), -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(log.Take(), reads);
      }
      const Replies replies(Head(message, into));
      const FailingAfter hook(into, error);
      timeval limit = {1, 0};
      EXPECT_EQ(waitfor_tcp_message(0, buffer, sizeof buffer, &limit), -1);
      EXPECT_EQ(errno, error);
      Lines lines = {{kDebug, "waitfor_tcp_message: select (read) status 1 on fd 0"},
                     {kDebug, "waitfor_tcp_message: checking sock mask"},
                     {kDebug, "waitfor_tcp_message: attempting read w/max len 1400"}};
      lines.insert(lines.end(), reads.begin(), reads.end());
      lines.push_back({kDebug, "waitfor_tcp_message: read -1 bytes from 0.0.0.0"});
      EXPECT_EQ(log.Take(), lines);
      if (HasFailure()) return;
    }
  }
  Report("recvfrom", kReadErrors, "vtn_read_tcp_message, waitfor_tcp_message");
  Note() << "recvfrom: " << 2 * std::size(kReadErrors) * message.size() << " readings failed\n";
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
  Report("recvfrom", kReadErrors, "vtn_read_udp_message");
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
  Note() << "recvfrom: " << stream.size() + 1 << " short reads in a collection\n";
}

TEST(SystemCalls, ShortReadsAtEveryPairOfBytesLoseNothing) {
  const Bytes message = UsageReply("lamp", 1, 11);
  LogCapture log(kTrace);
  const std::size_t step = Thinned(5);
  std::size_t pairs = 0;
  std::size_t tried = 0;
  for (std::size_t first = 1; first < message.size(); ++first) {
    for (std::size_t second = first + 1; second <= message.size(); ++second) {
      if (pairs++ % step != 0) continue;
      ++tried;
      SCOPED_TRACE(std::to_string(first) + " and " + std::to_string(second));
      const Replies replies(message, {first, second});
      Bytes buffer(1400);
      EXPECT_EQ(vtn_read_tcp_message(0, buffer.data(), 1400, nullptr),
                static_cast<int>(message.size()));
      EXPECT_TRUE(SameBytes(message, Head(buffer, message.size())));
      EXPECT_EQ(log.Take(), LinesOfReads(message.size(), {first, second}, message.size(), 0));
      if (HasFailure()) return;
    }
  }
  Note() << "recvfrom: " << tried << " pairs of short reads\n";
}

TEST(SystemCalls, TheEndOfTheStreamAtEveryByteIsZero) {
  const Bytes message = UsageReply("lamp", 1, 11);
  LogCapture log(kTrace);
  char buffer[1400];
  for (std::size_t there = 0; there < message.size(); ++there) {
    SCOPED_TRACE(there);
    const Replies replies(Head(message, there));
    EXPECT_EQ(vtn_read_tcp_message(0, buffer, sizeof buffer, nullptr), 0);
    EXPECT_EQ(log.Take(), LinesOfReads(message.size(), {}, there, 0));
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
  Report("poll", kRepeatedWaitErrors, "voltaris_queryResults, repeated");
  Report("poll", kFinalWaitErrors, "voltaris_queryResults, final");
}

TEST(SystemCalls, AWaitThatIsInterruptedTenThousandTimesIsRepeatedAsOften) {
  constexpr std::size_t kInterruptions = 10000;
  const NoLeak no_leak;
  const Connected connected;
  const Sent sent;
  const Replies replies(TwoReplies());
  std::size_t waits = 0;
  const PollHook hook([&](pollfd*, nfds_t, int timeout) -> std::optional<int> {
    EXPECT_EQ(timeout, 180000) << "each wait is a whole one";
    return ++waits <= kInterruptions ? FailWith<int>(EINTR) : std::nullopt;
  });
  Asking asking(kNoPort);
  EXPECT_EQ(asking.Execute(), 0);
  const LogCapture log(kWarn);
  ASSERT_NE(asking.Collect(), nullptr);
  EXPECT_EQ(asking.result->error_code, 0);
  EXPECT_EQ(asking.result->answers_received, 2);
  EXPECT_EQ(log.Count(kWarn,
                      "vtn_queryLoop: unexpected read status value -1, error: "
                      "4(Interrupted system call)"),
            kInterruptions);
  EXPECT_EQ(log.lines().size(), kInterruptions);
}

TEST(SystemCalls, ADescriptorThatIsNotOpenEndsEveryWaitAtOnce) {
  const NoLeak no_leak;
  const Connected connected;
  const Sent sent;
  // The system marks a descriptor that is not open, instead of failing.
  std::size_t waits = 0;
  const PollHook hook([&](pollfd* fds, nfds_t, int) {
    fds->revents = POLLNVAL;
    return ++waits <= 3 ? 1 : 0;
  });
  Asking asking(kNoPort);
  EXPECT_EQ(asking.Execute(), 0);
  const LogCapture log(kDebug);
  ASSERT_NE(asking.Collect(), nullptr);
  EXPECT_EQ(asking.result->error_code, EBADF);
  EXPECT_EQ(From(log, "vtn_queryLoop"),
            (Lines{{kWarn,
                    "vtn_queryLoop: unexpected read status value -1, error: "
                    "9(Bad file descriptor)"}}));
  timeval limit = {1, 0};
  std::uint32_t peer = 0;
  char buffer[100];
  EXPECT_EQ(waitfor_tcp_connect(0, &peer, &limit), -1);
  EXPECT_TRUE(
      log.Has(kDebug, "waitfor_tcp_connect: select returned -1, error = 9 (Bad file descriptor)"));
  EXPECT_EQ(waitfor_tcp_message(0, buffer, sizeof buffer, &limit), 0);
  EXPECT_EQ(hook.calls(), 3u);
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
  Note() << "poll: " << errors.size()
         << " error numbers in waitfor_tcp_connect, waitfor_tcp_message\n";
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
    const LogCapture log(kDebug);
    std::uint32_t peer = 0x0100007F;
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(waitfor_tcp_connect(0, &peer, nullptr), -1);
    EXPECT_EQ(errno, error);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              std::string("accept(): ") + std::strerror(error) + "\n");
    EXPECT_EQ(hook.calls(), 1u);
    EXPECT_EQ(peer, 0x0100007Fu) << "nobody knocked";
    EXPECT_EQ(log.lines(), (Lines{{kDebug, "waitfor_tcp_connect: select (accept) 1"},
                                  {kError, Numbered("waitfor_tcp_connect: errno = ", error)}}));
  }
  Report("accept", kAcceptErrors, "waitfor_tcp_connect");
}

TEST(SystemCalls, EveryFailureOfBindIsReported) {
  const int mine = socket(AF_INET, SOCK_DGRAM, 0);
  for (const int error : kBindErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const BindHook hook([&](int, const sockaddr*, socklen_t) { return FailWith<int>(error); });
    const CloseHook closes([](int) { return std::nullopt; });
    const LogCapture log(kDebug);
    EXPECT_EQ(createUdpSocket(4711), -1);
    EXPECT_EQ(bindUdpSocket(mine, 4711), -1);
    EXPECT_EQ(bindTcpListener(mine, 4711), -1);
    EXPECT_EQ(hook.calls(), 3u) << "a failed bind is not tried again";
    EXPECT_EQ(closes.calls(), 1u) << "of the library's own socket";
    EXPECT_NE(fcntl(mine, F_GETFD), -1);
    const std::string text = std::string("Bind failed server:0.0.0.0, port:4711(") +
                             std::strerror(error) + ":" + std::to_string(error) + ")";
    EXPECT_EQ(log.lines(), (Lines{{kWarn, "createUdpSocket: " + text},
                                  {kWarn, "bindUdpSocket: " + text},
                                  {kWarn, "bindTcpListener: " + text}}));
  }
  close(mine);
  Report("bind", kBindErrors, "createUdpSocket, bindUdpSocket, bindTcpListener");
}

// FailingClose closes, and then reports a failure: the system gives the descriptor up all the same,
// so that to close it again could hit another one.
class FailingClose : public CloseHook {
 public:
  explicit FailingClose(int error)
      : CloseHook([error](int fd) -> std::optional<int> {
          if (close(fd) != 0) return std::nullopt;
          return FailWith<int>(error);
        }) {}
};

TEST(SystemCalls, AFailedCloseOfAQueryIsNotRepeated) {
  const Connected connected;
  const Sent sent;
  const LogCapture log(kWarn);
  for (const int error : kCloseErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const FailingClose hook(error);
    Asking asking(kNoPort);
    {
      const Replies replies(TwoReplies());
      EXPECT_EQ(asking.Execute(), 0);
      ASSERT_NE(asking.Collect(), nullptr);
      EXPECT_EQ(asking.result->answers_received, 2);
      EXPECT_EQ(hook.calls(), 0u);
    }
    asking.result.reset();
    asking.query.reset();
    EXPECT_EQ(hook.calls(), 1u);
    EXPECT_EQ(asking.session->descriptor, -1);
    asking.session.reset();
    EXPECT_EQ(hook.calls(), 1u);
  }
  EXPECT_EQ(log.lines(), Lines{});
  Report("close", kCloseErrors, "voltaris_releaseQuery");
}

TEST(SystemCalls, AFailedCloseChangesNoOtherReport) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  const int port = bindTcpListener(listener, 0);
  ASSERT_EQ(listen(listener, 8), 0);
  for (const int error : kCloseErrors) {
    SCOPED_TRACE(error);
    const NoLeak no_leak;
    const LogCapture log(kWarn);
    {
      // After a failed connect.
      Asking asking(kNoPort);
      const ConnectHook refused(
          [](int, const sockaddr*, socklen_t) { return FailWith<int>(ECONNREFUSED); });
      const FailingClose hook(error);
      EXPECT_EQ(asking.Execute(), kAskingSize);
      EXPECT_EQ(hook.calls(), 1u);
      EXPECT_EQ(asking.session->descriptor, -1);
    }
    {
      // After a failed bind, and of a socket that could not be created.
      const BindHook in_use(
          [](int, const sockaddr*, socklen_t) { return FailWith<int>(EADDRINUSE); });
      const FailingClose hook(error);
      EXPECT_EQ(createUdpSocket(4711), -1);
      EXPECT_EQ(hook.calls(), 1u);
      const SocketHook none([](int, int, int) { return FailWith<int>(EMFILE); });
      EXPECT_EQ(createUdpSocket(4711), -1);
      EXPECT_EQ(hook.calls(), 2u);
    }
    EXPECT_EQ(
        log.lines(),
        (Lines{{kError,
                "voltaris_execQuery: Socket connect failed -1, error = 111(Connection refused)"},
               {kError, "voltaris_execQuery: Error connecting to host, query failed."},
               {kWarn,
                "createUdpSocket: Bind failed server:0.0.0.0, port:4711"
                "(Address already in use:98)"},
               {kError, "createUdpSocket: Socket creation failed"}}));
    // Of a stranger who knocked, and by name.
    SocketEndpoint endpoint = {};
    const int client =
        openConnectedSocket(&endpoint, "127.0.0.1", static_cast<std::uint32_t>(port));
    const FailingClose hook(error);
    timeval limit = {20, 0};
    std::uint32_t peer = 0x04030201;
    EXPECT_EQ(waitfor_tcp_connect(listener, &peer, &limit), -1);
    EXPECT_EQ(peer, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(hook.calls(), 1u);
    EXPECT_EQ(closeSocket(client), 0);
    EXPECT_EQ(hook.calls(), 2u);
  }
  close(listener);
  Report("close", kCloseErrors,
         "voltaris_execQuery, createUdpSocket, waitfor_tcp_connect, closeSocket");
}

// Interruption lets a signal arrive while the system runs one chosen call of the thread that made
// it; at all other times that thread keeps the signal blocked.
class Interruption {
 public:
  Interruption() : target_(pthread_self()) {
    handled_ = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { ++handled_; };  // without SA_RESTART
    EXPECT_EQ(sigaction(SIGUSR1, &action, &saved_action_), 0);
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    EXPECT_EQ(pthread_sigmask(SIG_BLOCK, &mask, &saved_mask_), 0);
  }
  ~Interruption() {
    std::signal(SIGUSR1, SIG_IGN);  // which drops one that is pending
    sigaction(SIGUSR1, &saved_action_, nullptr);
    pthread_sigmask(SIG_SETMASK, &saved_mask_, nullptr);
  }
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  // Expose runs the chosen call, from its hook.
  template <class Call>
  auto Expose(Call call) {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    entered_ = true;
    pthread_sigmask(SIG_UNBLOCK, &mask, nullptr);
    const auto result = call();
    const int error = errno;
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
    returned_ = true;
    errno = error;
    return result;
  }

  // Strike, in another thread, sends signals to the sleeping call until it has returned.
  void Strike() {
    YieldUntil("the call was not made", [&] { return entered_.load(); });
    for (;;) {
      watched_.AwaitSleep();
      if (returned_) return;
      const int before = handled_;
      pthread_kill(target_, SIGUSR1);
      YieldUntil("no signal arrived", [&] { return returned_ || handled_ != before; });
    }
  }

 private:
  static inline std::atomic<int> handled_ = 0;

  pthread_t target_;
  WatchedThread watched_;
  struct sigaction saved_action_;
  sigset_t saved_mask_;
  std::atomic<bool> entered_ = false;
  std::atomic<bool> returned_ = false;
};

TEST(Signals, AnyWaitOrReadOfACollectionMayBeInterrupted) {
  const Bytes message = UsageReply("lamp", 1, 11);
  std::size_t short_reads = 0;
  std::size_t empty_reads = 0;
  for (std::size_t at = 0; at < message.size(); ++at) {
    SCOPED_TRACE(at);
    const NoLeak no_leak;
    Interruption interruption;
    ScriptedPeer peer([&](PeerConnection& c) {
      c.ReadPdu();
      c.Send(Head(message, at));
      interruption.Strike();
      try {
        c.Send(Bytes(message.begin() + static_cast<std::ptrdiff_t>(at), message.end()));
      } catch (const PeerError&) {
        // The collection may be over.
      }
    });
    // Which read waits for the rest, and whether it has got some bytes before.
    const std::size_t waiting = at < 12 ? 0 : at < 80 ? 1 : 2;
    const bool empty = at == 12 || at == 80;
    std::size_t waits = 0;
    const PollHook polls([&](pollfd* fds, nfds_t count, int timeout) -> std::optional<int> {
      if (at != 0 || waits++ != 0) return std::nullopt;
      return interruption.Expose([&] { return poll(fds, count, timeout); });
    });
    std::size_t reads = 0;
    const RecvfromHook hook([&](int fd, void* data, std::size_t len, int flags, sockaddr* from,
                                socklen_t* from_len) -> std::optional<ssize_t> {
      if (at == 0 || reads++ != waiting) return std::nullopt;
      return interruption.Expose([&] { return recvfrom(fd, data, len, flags, from, from_len); });
    });
    Asking asking(peer.port());
    ASSERT_EQ(asking.Execute(), 0);
    const LogCapture log(kWarn);
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->error_code, empty ? EINTR : 0);
    EXPECT_EQ(asking.result->answers_received, empty ? 0 : 1);
    Lines lines;
    if (at == 0) {
      lines = {{kWarn,
                "vtn_queryLoop: unexpected read status value -1, error: "
                "4(Interrupted system call)"}};
    } else if (empty) {
      lines = {{kWarn, "vtn_queryLoop: no response read:  4(Interrupted system call)"}};
    }
    EXPECT_EQ(log.lines(), lines);
    ++(empty ? empty_reads : short_reads);
    asking.Renew();
    EXPECT_TRUE(peer.Join());
    if (HasFailure()) return;
  }
  Note() << "signals: 1 wait, " << short_reads - 1 << " reads cut short, " << empty_reads
         << " reads without a byte\n";
}

TEST(Signals, AConnectThatIsInterruptedIsAFailedOne) {
  const NoLeak no_leak;
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  const auto port = static_cast<std::uint32_t>(bindTcpListener(listener, 0));
  // One connection fills the queue; the next one is not answered.
  ASSERT_EQ(listen(listener, 0), 0);
  SocketEndpoint endpoint = {};
  const int first = openConnectedSocket(&endpoint, "127.0.0.1", port);
  const auto expose = [](Interruption& interruption) {
    return [&](int fd, const sockaddr* address, socklen_t len) -> std::optional<int> {
      return interruption.Expose([&] { return connect(fd, address, len); });
    };
  };
  {
    Interruption interruption;
    const ConnectHook hook(expose(interruption));
    Asking asking(port);
    const LogCapture log(kWarn);
    std::future<void> strike = std::async(std::launch::async, [&] { interruption.Strike(); });
    EXPECT_EQ(asking.Execute(), kAskingSize);
    strike.get();
    EXPECT_EQ(asking.session->descriptor, -1);
    EXPECT_EQ(log.lines(),
              (Lines{{kError,
                      "voltaris_execQuery: Socket connect failed -1, error = "
                      "4(Interrupted system call)"},
                     {kError, "voltaris_execQuery: Error connecting to host, query failed."}}));
  }
  {
    Interruption interruption;
    const ConnectHook hook(expose(interruption));
    const LogCapture log(kWarn);
    std::future<void> strike = std::async(std::launch::async, [&] { interruption.Strike(); });
    const int fd = openConnectedSocket(&endpoint, "127.0.0.1", port);
    strike.get();
    EXPECT_GE(fd, 0);
    EXPECT_EQ(log.lines(), (Lines{{kError, "openConnectedSocket: connect failed -1, errno = 4"}}));
    closeSocket(fd);
  }
  closeSocket(first);
  closeSocket(listener);
}

TEST(Signals, ASendThatIsInterruptedIsAShortOne) {
  const NoLeak no_leak;
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  const int smallest = 1;
  ASSERT_EQ(setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest), 0);
  const auto port = static_cast<std::uint32_t>(bindTcpListener(listener, 0));
  ASSERT_EQ(listen(listener, 1), 0);
  const ConnectHook small_buffer([&](int fd, const sockaddr*, socklen_t) -> std::optional<int> {
    EXPECT_EQ(setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &smallest, sizeof smallest), 0);
    return std::nullopt;
  });
  Interruption interruption;
  const SendHook hook(
      [&](int fd, const void* data, std::size_t len, int flags) -> std::optional<ssize_t> {
        return interruption.Expose([&] { return send(fd, data, len, flags); });
      });
  Asking asking(port);
  constexpr std::int32_t kElements = 65000;
  constexpr std::int32_t kSize = 80 + kElements + 13;  // with the time-out that is added
  FillTo(asking.query.get(), kElements);
  const LogCapture log(kWarn);
  std::future<void> strike = std::async(std::launch::async, [&] { interruption.Strike(); });
  const std::int32_t unsent = asking.Execute();
  strike.get();
  EXPECT_GT(unsent, 0);
  EXPECT_LT(unsent, kSize);
  EXPECT_EQ(log.lines(),
            (Lines{{kWarn, "voltaris_execQuery: sent " + std::to_string(kSize - unsent) +
                               " bytes of pdu size " + std::to_string(kSize)}}));
  asking.query.reset();
  closeSocket(listener);
}

TEST(Signals, WaitsAndDatagramReadsThatAreInterruptedFail) {
  const NoLeak no_leak;
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GT(bindTcpListener(listener, 0), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  const auto interrupt = [](const std::function<void()>& call) {
    Interruption interruption;
    const PollHook polls([&](pollfd* fds, nfds_t count, int timeout) -> std::optional<int> {
      return interruption.Expose([&] { return poll(fds, count, timeout); });
    });
    const RecvfromHook reads([&](int fd, void* data, std::size_t len, int flags, sockaddr* from,
                                 socklen_t* from_len) -> std::optional<ssize_t> {
      return interruption.Expose([&] { return recvfrom(fd, data, len, flags, from, from_len); });
    });
    std::future<void> strike = std::async(std::launch::async, [&] { interruption.Strike(); });
    call();
    strike.get();
  };
  const LogCapture log(kTrace);
  timeval limit = {60, 0};
  char buffer[100];
  interrupt([&] {
    std::uint32_t peer = 0;
    EXPECT_EQ(waitfor_tcp_connect(listener, &peer, &limit), -1);
  });
  EXPECT_TRUE(log.Has(
      kDebug, "waitfor_tcp_connect: select returned -1, error = 4 (Interrupted system call)"));
  ConnectedPair pair;
  interrupt([&] { EXPECT_EQ(waitfor_tcp_message(pair.near().fd(), buffer, 100, &limit), 0); });
  EXPECT_TRUE(log.Has(
      kDebug, Numbered("waitfor_tcp_message: select (read) status -1 on fd ", pair.near().fd())));
  const int datagrams = createUdpSocket(0);
  interrupt([&] { EXPECT_EQ(vtn_read_udp_message(datagrams, buffer, 100), -1); });
  EXPECT_TRUE(log.Has(kTrace, "vtn_read_udp_message: read failed with -1 bytes, errno 4"));
  closeSocket(datagrams);
  closeSocket(listener);
}

// Most applications install handlers that let the system restart what they interrupt. Waits are
// never restarted, so those are left to the library.
TEST(Signals, WhoseHandlersRestartCallsAreNotNoticed) {
#ifdef VT_SANITIZER_THREAD
  GTEST_SKIP() << "the thread sanitizer runs handlers after the call that they interrupt";
#endif
  static std::atomic<int> handled = 0;
  handled = 0;
  struct sigaction action = {};
  struct sigaction saved;
  action.sa_handler = [](int) { ++handled; };
  action.sa_flags = SA_RESTART;
  ASSERT_EQ(sigaction(SIGUSR1, &action, &saved), 0);
  const pthread_t collecting = pthread_self();
  const WatchedThread watched;
  const LogCapture quiet(kSilent);
  const NoLeak no_leak;
  const Bytes message = UsageReply("lamp", 1, 11);
  constexpr int kSignals = 3;
  std::size_t next = 0;
  ScriptedPeer peer(
      [&](PeerConnection& c) {
        c.ReadPdu();
        const std::size_t at = next++;
        c.Send(Head(message, at));
        for (int i = 0; i < kSignals; ++i) {
          watched.AwaitSleep();
          const int before = handled;
          pthread_kill(collecting, SIGUSR1);
          YieldUntil("no signal arrived", [&] { return handled != before; });
        }
        c.Send(Bytes(message.begin() + static_cast<std::ptrdiff_t>(at), message.end()));
      },
      message.size());
  Asking asking(peer.port());
  for (std::size_t at = 0; at < message.size(); ++at) {
    SCOPED_TRACE(at);
    ASSERT_EQ(asking.Execute(), 0);
    ASSERT_NE(asking.Collect(), nullptr);
    ASSERT_EQ(asking.result->error_code, 0);
    ASSERT_EQ(asking.result->answers_received, 1);
    asking.Renew();
  }
  EXPECT_TRUE(peer.Join());
  Note() << "signals: " << int{handled} << " with restart\n";
  sigaction(SIGUSR1, &saved, nullptr);
}

// FailedCalls lets the n-th system call of this thread fail, whichever it is, or all from there on.
class FailedCalls {
 public:
  enum class Which { kOne, kAllFrom };
  FailedCalls(std::size_t n, Which which, int error)
      : n_(n),
        which_(which),
        error_(error),
        socket_([this](int, int, int) { return Strike<int>("socket"); }),
        connect_([this](int, const sockaddr*, socklen_t) { return Strike<int>("connect"); }),
        bind_([this](int, const sockaddr*, socklen_t) { return Strike<int>("bind"); }),
        accept_([this](int, sockaddr*, socklen_t*) { return Strike<int>("accept"); }),
        getsockname_([this](int, sockaddr*, socklen_t*) { return Strike<int>("getsockname"); }),
        send_([this](int, const void*, std::size_t, int) { return Strike<ssize_t>("send"); }),
        poll_([this](pollfd*, nfds_t, int) -> std::optional<int> {
          // A wait that fails for ever with other numbers is repeated for ever.
          if (which_ == Which::kAllFrom && !EndsWaits(error_)) return std::nullopt;
          return Strike<int>("poll");
        }),
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

  // first names the first call that failed; empty if there were fewer calls.
  const std::string& first() const { return first_; }

  static bool EndsWaits(int error) { return error == EBADF || error == EINVAL; }

 private:
  template <class Result>
  std::optional<Result> Strike(const char* name) {
    const std::size_t index = seen_++;
    if (which_ == Which::kOne ? index != n_ : index < n_) return std::nullopt;
    if (first_.empty()) first_ = name;
    return FailWith<Result>(error_);
  }

  std::size_t n_;
  Which which_;
  int error_;
  std::size_t seen_ = 0;
  std::string first_;
  SocketHook socket_;
  ConnectHook connect_;
  BindHook bind_;
  AcceptHook accept_;
  GetsocknameHook getsockname_;
  SendHook send_;
  PollHook poll_;
  RecvfromHook recvfrom_;
  CloseHook close_;
};

using Which = FailedCalls::Which;

class ExchangeWithFailures : public ::testing::TestWithParam<int> {};

// In a whole exchange one call after the other fails: what is reported fits the call, the objects
// survive, and the next query on the same session succeeds.
TEST_P(ExchangeWithFailures, AtAnyCallEndsAsStatedAndTheSessionStaysUsable) {
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
      const FailedCalls fail(n, Which::kOne, error);
      const std::int32_t unsent = asking.Execute();
      const ResultSet* const result = asking.Collect();
      failed = fail.first();
      if (failed == "socket" || failed == "connect") {
        EXPECT_EQ(unsent, kAskingSize);
        EXPECT_EQ(result, nullptr);
      } else {
        EXPECT_EQ(unsent, failed == "send" ? kAskingSize + 1 : 0);
        ASSERT_NE(result, nullptr);
        const bool ends =
            failed == "recvfrom" || (failed == "poll" && FailedCalls::EndsWaits(error));
        EXPECT_EQ(result->error_code, ends ? error : 0);
        if (!ends) EXPECT_EQ(result->answers_received, 2);
      }
      asking.result.reset();
      asking.query.reset();
      failed = fail.first();
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
  Note() << failures.size() << " calls failed in turn\n";
}

TEST_P(ExchangeWithFailures, FromAnyCallOnEndsAsStatedAndTheSessionStaysUsable) {
  const int error = GetParam();
  const LogCapture quiet(kSilent);
  std::size_t exchanges = 0;
  for (std::size_t n = 0;; ++n) {
    SCOPED_TRACE("from call " + std::to_string(n));
    const NoLeak no_leak;
    const Connected connected;
    const Sent sent;
    Asking asking(kNoPort);
    std::string failed;
    {
      const Replies replies(TwoReplies());
      const FailedCalls fail(n, Which::kAllFrom, error);
      const std::int32_t unsent = asking.Execute();
      const ResultSet* const result = asking.Collect();
      failed = fail.first();
      if (failed == "socket" || failed == "connect") {
        EXPECT_EQ(unsent, kAskingSize);
        EXPECT_EQ(result, nullptr);
      } else {
        const bool sending = failed == "getsockname" || failed == "send";
        EXPECT_EQ(unsent, sending ? kAskingSize + 1 : 0);
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->error_code, failed.empty() ? 0 : error);
      }
      asking.result.reset();
      asking.query.reset();
      failed = fail.first();
    }
    EXPECT_EQ(asking.session->descriptor, -1);
    const Replies replies(TwoReplies());
    asking.Renew();
    EXPECT_EQ(asking.Execute(), 0);
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->answers_received, 2);
    if (failed.empty() || HasFailure()) break;
    ++exchanges;
  }
  EXPECT_GE(exchanges, 12u);
}

// The listening side: whatever fails once succeeds when it is asked for again, save a message of
// which a part was lost.
TEST_P(ExchangeWithFailures, OfAListenerSucceedsTheNextTime) {
  const int error = GetParam();
  const LogCapture quiet(kSilent);
  const Bytes message = UsageReply("lamp", 1, 11);
  std::multiset<std::string> failures;
  for (std::size_t n = 0;; ++n) {
    SCOPED_TRACE("call " + std::to_string(n));
    const NoLeak no_leak;
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    ::testing::internal::CaptureStderr();
    std::string failed;
    {
      const FailedCalls fail(n, Which::kOne, error);
      const auto failed_now = [&] { return !fail.first().empty() && failed.empty(); };
      int port = bindTcpListener(listener, 0);
      if (failed_now()) {
        failed = fail.first();
        EXPECT_EQ(port, -1);
        // One that is bound cannot be bound again.
        if (failed == "bind") port = bindTcpListener(listener, 0);
      }
      if (failed == "getsockname") {
        failures.insert(failed);
        EXPECT_EQ(closeSocket(listener), 0);
        ::testing::internal::GetCapturedStderr();
        continue;
      }
      EXPECT_GT(port, 0);
      EXPECT_EQ(listen(listener, 1), 0);
      SocketEndpoint endpoint = {};
      int client = -1;
      {
        const HookPause pause;
        client = openConnectedSocket(&endpoint, "127.0.0.1", static_cast<std::uint32_t>(port));
        EXPECT_EQ(send(client, message.data(), message.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(message.size()));
      }
      timeval limit = {20, 0};
      std::uint32_t peer = 0;
      int accepted = waitfor_tcp_connect(listener, &peer, &limit);
      if (failed_now()) {
        failed = fail.first();
        EXPECT_EQ(accepted, -1);
        EXPECT_EQ(peer, 0u);
        accepted = waitfor_tcp_connect(listener, &peer, &limit);
      }
      EXPECT_GE(accepted, 0);
      EXPECT_EQ(peer, htonl(INADDR_LOOPBACK));
      char buffer[1400];
      std::size_t reads = 0;
      const RecvfromHook count(
          [&](int, void*, std::size_t, int, sockaddr*, socklen_t*) -> std::optional<ssize_t> {
            ++reads;
            return std::nullopt;
          });
      int got = waitfor_tcp_message(accepted, buffer, sizeof buffer, &limit);
      if (failed_now()) {
        failed = fail.first();
        EXPECT_EQ(got, failed == "poll" ? 0 : -1);
        if (reads < 2) got = waitfor_tcp_message(accepted, buffer, sizeof buffer, &limit);
      }
      if (failed != "recvfrom" || got != -1) {
        EXPECT_EQ(got, static_cast<int>(message.size()));
      }
      for (const int fd : {listener, client, accepted}) EXPECT_EQ(closeSocket(fd), 0);
      if (failed_now()) failed = fail.first();
    }
    ::testing::internal::GetCapturedStderr();
    if (failed.empty() || HasFailure()) break;
    failures.insert(failed);
  }
  EXPECT_EQ(failures,
            (std::multiset<std::string>{"bind", "getsockname", "poll", "accept", "poll", "recvfrom",
                                        "recvfrom", "recvfrom", "close", "close", "close"}));
}

INSTANTIATE_TEST_SUITE_P(Errno, ExchangeWithFailures,
                         ::testing::Values(EAGAIN, EBADF, ECONNRESET, EHOSTUNREACH, EINTR, EINVAL,
                                           EMFILE, ENETDOWN, ENOBUFS, ENOMEM, EPIPE, ETIMEDOUT),
                         [](const auto& parameter) {
                           return std::string("Is") + strerrorname_np(parameter.param);
                         });

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

// FailInEveryWay lets a query and a listener fail once in each way there is.
void FailInEveryWay() {
  PduImage too_large = ReplyWith({});
  too_large.tlv_bytes = 65535;
  const Bytes over_size = SignedReply(too_large);
  std::size_t number = 0;
  // The peer resets, says too much, or closes inside a message.
  ScriptedPeer peer(
      [&](PeerConnection& c) {
        c.ReadPdu();
        switch (number++) {
          case 0:
            c.Reset();
            break;
          case 1:
            c.Send(over_size);
            break;
          default:
            c.Send(Head(over_size, 40));
        }
      },
      3);
  Asking asking(peer.port());
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(asking.Execute(), 0);
    ASSERT_NE(asking.Collect(), nullptr);
    ASSERT_EQ(asking.result->answers_received, 0);
    asking.Renew();
  }
  ASSERT_TRUE(peer.Join());

  Asking refused(static_cast<std::uint32_t>(UnusedPort()));
  ASSERT_EQ(refused.Execute(), kAskingSize);
  const Connected connected;
  {
    Asking unsent(kNoPort);  // its socket is connected to nobody
    ASSERT_EQ(unsent.Execute(), kAskingSize + 1);
  }
  {
    const Sent sent;
    const PollHook expired([](pollfd*, nfds_t, int) { return 0; });
    Asking unanswered(kNoPort);
    ASSERT_EQ(unanswered.Execute(), 0);
    ASSERT_NE(unanswered.Collect(), nullptr);
    ASSERT_EQ(unanswered.result->error_code, VT_ERROR_TIMEOUT);
  }
  {
    const BindHook bind([](int, const sockaddr*, socklen_t) { return FailWith<int>(EADDRINUSE); });
    ASSERT_EQ(createUdpSocket(0), -1);
  }
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  const auto port = static_cast<std::uint32_t>(bindTcpListener(listener, 0));
  ASSERT_EQ(listen(listener, 1), 0);
  SocketEndpoint endpoint = {};
  timeval limit = {20, 0};
  std::uint32_t expected = 0x04030201;
  int client = -1;
  {
    const HookPause pause;
    client = openConnectedSocket(&endpoint, "127.0.0.1", port);
  }
  ASSERT_EQ(waitfor_tcp_connect(listener, &expected, &limit), -1) << "a stranger";
  closeSocket(client);
  closeSocket(listener);
}

TEST(Descriptors, HundredFailuresOfEachKindFitALimitOf32) {
  const LogCapture quiet(kSilent);
  const NoLeak no_leak;
  const DescriptorLimit limit(32);
  for (int i = 0; i < 100; ++i) {
    SCOPED_TRACE(i);
    {
      const NoLeak each;
      ASSERT_NO_FATAL_FAILURE(FailInEveryWay());
    }
    if (HasFailure()) return;
  }
}

TEST(Descriptors, FailuresOfEachKindWithNumbersAbove1024LeakNone) {
  const LogCapture quiet(kSilent);
  const NoLeak no_leak;
  const DescriptorLimit limit(1200);
  const OccupiedDescriptors occupied(1100);
  ASSERT_EQ(occupied.error(), 0);
  for (int i = 0; i < 10; ++i) {
    SCOPED_TRACE(i);
    {
      const NoLeak each;
      ASSERT_NO_FATAL_FAILURE(FailInEveryWay());
    }
    if (HasFailure()) return;
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
    const LogCapture log(kWarn);
    const DescriptorLimit descriptors(32);
    const OccupiedDescriptors occupied(1000);
    EXPECT_EQ(waitfor_tcp_connect(listener, &newcomer, &limit), -1);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(newcomer, 0u);
    EXPECT_EQ(log.lines(), (Lines{{kError, "waitfor_tcp_connect: errno = 24"}}));
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
