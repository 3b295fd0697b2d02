// Whole exchanges over 127.0.0.1: create, execute, collect, read, release, against a scripted peer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/peer.h"

namespace {

using namespace vt::testing;

// What one exchange leaves; released in the reverse order.
struct Exchange {
  SessionPtr session;
  QueryPtr query;
  ResultPtr result;

  ResultSet* operator->() const { return result.get(); }
};

// Ask builds a collect query for the attributes and executes it against the peer.
Exchange Ask(std::uint16_t port, std::initializer_list<std::int32_t> attributes = {8, 4}) {
  Exchange exchange;
  exchange.session = LoopbackSession(port);
  exchange.query.reset(voltaris_createCollectQuery("office", 7));
  for (const std::int32_t attribute : attributes) {
    EXPECT_EQ(voltaris_addGetAttribute(exchange.query.get(), attribute), 0);
  }
  EXPECT_EQ(voltaris_execQuery(exchange.session.get(), exchange.query.get()), 0);
  return exchange;
}

void Collect(Exchange& exchange) {
  exchange.result.reset(voltaris_queryResults(exchange.session.get(), exchange.query.get()));
  ASSERT_NE(exchange.result, nullptr);
}

// The usual case: what a peer says in one go.
Exchange Collected(const Bytes& answer) {
  ScriptedPeer peer(AfterQuery([&](PeerConnection& c) { c.Send(answer); }));
  Exchange exchange = Ask(peer.port());
  Collect(exchange);
  EXPECT_TRUE(peer.Join());
  return exchange;
}

Bytes Signed(const PduImage& image) { return image.Signed(SessionKey()); }

PduImage WillImage(std::string_view device, const std::vector<std::uint32_t>& entities) {
  std::vector<Bytes> entries;
  for (const std::uint32_t entity : entities) entries.push_back(Entry(entity));
  PduImage image = ReplyWith({Aggregate(42, device, entries)}, -1);
  image.cls = 13;  // an acknowledgement that is no answer
  return image;
}

void ExpectUsage(ResultSet* result, std::uint8_t usage) {
  ResultRow* const row = voltaris_getNextRow(result);
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Read(row, 8), HostBytes(std::uint16_t{usage}));
}

TEST(Exchange, OfTwoRepliesAndACloseIsComplete) {
  const Exchange exchange = Collected(UsageReply("lamp", 1, 11) + UsageReply("fan", 2, 22));
  EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 0);
  EXPECT_EQ(exchange->answers_received, 2);
  EXPECT_EQ(RowNames(exchange.result.get()), (std::vector<std::string>{"fan/2", "lamp/1"}));
  ExpectUsage(exchange.result.get(), 22);
  ExpectUsage(exchange.result.get(), 11);
}

TEST(Exchange, ReportsItsCourseAtDebug) {
  PduImage wont = WillImage("fan", {3});
  wont.shipment = 0xFE;
  const Bytes answer = Signed(WillImage("lamp", {1, 2})) + Signed(wont) + UsageReply("lamp", 1, 11);
  ScriptedPeer peer(AfterQuery([&](PeerConnection& c) { c.Send(answer); }));
  const LogCapture log(kDebug);
  Exchange exchange = Ask(peer.port());
  Collect(exchange);
  Lines lines = log.lines();
  const auto begin =
      std::find(lines.begin(), lines.end(), LogLine{kDebug, "voltaris_execQuery: sent 137 bytes"});
  ASSERT_NE(begin, lines.end());
  EXPECT_EQ(
      Lines(begin + 1, lines.end()),
      (Lines{{kDebug, "add_acks: got AGGREGATE ACK type from 192.168.1.7, device: lamp, count: 2"},
             {kWarn, "vtn_processReply: unexpected response class=13 action=11"},
             {kDebug, "add_acks: got AGGREGATE ACK type from 192.168.1.7, device: fan, count: 1"},
             {kDebug, "add_nack: adding ack for index 3"},
             {kWarn, "vtn_processReply: unexpected response class=13 action=11"},
             {kDebug, "vtn_queryLoop: bytes read 0"},
             {kDebug, "voltaris_queryResults: ACK 2/NAK 1 ans pending=0 ans received=1"},
             {kDebug, "voltaris_queryResults: sorting ACK/NAK results"}}));
}

TEST(Exchange, LeavesTheConnectionToTheReleaseOfTheQuery) {
  Exchange exchange = Collected(UsageReply("lamp", 1, 11));
  EXPECT_NE(fcntl(exchange.session->descriptor, F_GETFD), -1);
  exchange.result.reset();
  EXPECT_NE(fcntl(exchange.session->descriptor, F_GETFD), -1);
  const int fd = exchange.session->descriptor;
  exchange.query.reset();
  EXPECT_EQ(exchange.session->descriptor, -1);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(Exchange, LeavesNoDescriptorOpen) {
  const std::set<int> open = OpenDescriptors();
  Collected(UsageReply("lamp", 1, 11));
  EXPECT_EQ(OpenDescriptors(), open);
}

TEST(Exchange, TakesRepliesThatArriveByteByByte) {
  const Bytes answer =
      Signed(WillImage("lamp", {1})) + UsageReply("lamp", 1, 11) + UsageReply("fan", 2, 22);
  ScriptedPeer peer(AfterQuery([&](PeerConnection& c) { c.SendInPieces(answer, 1); }));
  Exchange exchange = Ask(peer.port());
  Collect(exchange);
  EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 0);
  EXPECT_EQ(voltaris_getAckCount(exchange.result.get()), 1);
  EXPECT_EQ(exchange->answers_received, 2);
  EXPECT_EQ(voltaris_getRowCount(exchange.result.get()), 2);
}

TEST(Exchange, TakesRepliesCutAtAnyPoint) {
  const Bytes answer = UsageReply("lamp", 1, 11) + UsageReply("fan", 2, 22);
  for (const std::size_t piece : {7u, 12u, 13u, 80u, 81u, 100u}) {
    ScriptedPeer peer(AfterQuery([&](PeerConnection& c) { c.SendInPieces(answer, piece); }));
    Exchange exchange = Ask(peer.port());
    Collect(exchange);
    EXPECT_EQ(exchange->answers_received, 2) << piece;
    EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 0);
  }
}

TEST(Exchange, WithAPeerThatClosesAtOnceIsEmpty) {
  const LogCapture log(kDebug);
  const Exchange exchange = Collected({});
  EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 0);
  EXPECT_EQ(exchange->answers_received, 0);
  EXPECT_EQ(voltaris_getNextRow(exchange.result.get()), nullptr);
  EXPECT_TRUE(log.Has(kDebug, "vtn_queryLoop: bytes read 0"));
}

TEST(Exchange, EndsWithoutAnErrorWhenThePeerClosesInsideAMessage) {
  const Bytes good = UsageReply("lamp", 1, 11);
  for (const std::size_t size : {1u, 5u, 11u, 12u, 40u, 79u, 80u, 81u}) {
    const LogCapture log(kDebug);
    const Exchange exchange =
        Collected(good + Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)));
    EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 0) << size;
    // What came before is kept.
    EXPECT_EQ(exchange->answers_received, 1) << size;
    EXPECT_TRUE(log.Has(kDebug, "vtn_queryLoop: bytes read 0"));
  }
}

TEST(Exchange, EndsWithTheErrorNumberWhenThePeerResets) {
  const Bytes good = UsageReply("lamp", 1, 11);
  for (const std::size_t size : {0u, 5u, 40u, 81u}) {
    ScriptedPeer peer(AfterQuery([&](PeerConnection& c) {
      c.Send(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)));
      c.Reset();
    }));
    const LogCapture log(kTrace);
    const SpoilErrno spoil;
    Exchange exchange = Ask(peer.port());
    Collect(exchange);
    EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 104) << size;
    EXPECT_TRUE(log.Has(kWarn, "vtn_queryLoop: no response read:  104(Connection reset by peer)"));
    EXPECT_EQ(exchange->answers_received, 0);
  }
}

TEST(Exchange, DropsAForgedReplyAndTakesTheNextGoodOne) {
  Bytes flipped = UsageReply("lamp", 1, 11);
  flipped.back() ^= 1;
  const PduImage image = ReplyWith({Aggregate(13, "lamp", {Entry(1, {0, 11})})});
  for (const Bytes& forged :
       {flipped, image.Unsigned(), image.Signed(Bytes(20, 9)), ReplyWith({}).Unsigned()}) {
    const LogCapture log(kDebug);
    const Exchange exchange = Collected(forged + UsageReply("fan", 2, 22));
    EXPECT_TRUE(log.Has(kDebug, "vtn_processReply: Error while unpacking, error_code=5"));
    EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 0);
    EXPECT_EQ(exchange->answers_received, 1);
    EXPECT_EQ(exchange->events.depth, 1);
    EXPECT_EQ(RowNames(exchange.result.get()), (std::vector<std::string>{"fan/2"}));
  }
}

TEST(Exchange, OfForgedRepliesOnlyLeavesEveryCountUnchanged) {
  const PduImage ack = WillImage("lamp", {1, 2});
  PduImage answer = ack;
  answer.cls = 10;
  const Exchange exchange =
      Collected(ack.Unsigned() + answer.Unsigned() + answer.Signed(Bytes(20, 1)));
  EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 0);
  EXPECT_EQ(voltaris_getAckCount(exchange.result.get()), 0);
  EXPECT_EQ(voltaris_getNakCount(exchange.result.get()), 0);
  EXPECT_EQ(voltaris_getRowCount(exchange.result.get()), 0);
  EXPECT_EQ(exchange->answers_pending, 0);
  EXPECT_EQ(exchange->answers_received, 0);
  EXPECT_EQ(exchange->events.depth, 0);
}

TEST(Exchange, CountsASignedReplyWithoutElements) {
  const Exchange exchange = Collected(Signed(ReplyWith({})));
  EXPECT_EQ(exchange->answers_received, 1);
  EXPECT_EQ(voltaris_getRowCount(exchange.result.get()), 0);
}

TEST(Exchange, KeepsAnAcknowledgementOfIllnessWithoutCountingIt) {
  PduImage ill = WillImage("lamp", {1});
  ill.shipment = 0xFD;
  const Exchange exchange = Collected(Signed(ill));
  EXPECT_EQ(exchange->events.depth, 1);
  EXPECT_EQ(voltaris_getAckCount(exchange.result.get()), 0);
  EXPECT_EQ(exchange->answers_pending, 0);
  EXPECT_EQ(exchange->answers_received, 0);
}

TEST(Exchange, TakesAMessageOf1400BytesAndStopsAtOneOf1401) {
  const PduImage fits = ReplyWith({Element(0, 0, Bytes(1308, 1))});
  const PduImage over_size = ReplyWith({Element(0, 0, Bytes(1309, 1))});
  ASSERT_EQ(Signed(fits).size(), 1400u);
  const LogCapture log(kDebug);
  const Exchange exchange = Collected(Signed(fits) + Signed(over_size) + UsageReply("lamp", 1, 11));
  EXPECT_EQ(exchange->answers_received, 1);
  EXPECT_TRUE(log.Has(kDebug,
                      "vtn_read_tcp_message: Incoming packet exceeds Voltaris max packet "
                      "size, dropping packet"));
  EXPECT_TRUE(log.HasMatch(kWarn, "^vtn_queryLoop: no response read:  [0-9]+\\(.*\\)$"));
  EXPECT_FALSE(log.Has(kDebug, "vtn_queryLoop: bytes read 0"));
}

TEST(Exchange, StopsAtAHeaderLengthThatLeadsBeyondAnyMessage) {
  for (const std::uint16_t length :
       {std::uint16_t{1341}, std::uint16_t{0x7FFF}, std::uint16_t{0xFFFD}, std::uint16_t{0xFFFF}}) {
    PduImage image;
    image.digest_len = length;
    const LogCapture log(kDebug);
    const Exchange exchange = Collected(Signed(image) + UsageReply("lamp", 1, 11));
    EXPECT_EQ(exchange->answers_received, 0);
    EXPECT_TRUE(log.Has(kDebug,
                        "vtn_read_tcp_message: Incoming packet exceeds Voltaris max "
                        "packet size, dropping packet"))
        << length;
  }
}

TEST(Exchange, CopesWithElementsWithoutValues) {
  const std::vector<Bytes> hostile = {Element(0x80000007, 0, {}), Element(0x8000002A, 0, {}),
                                      Element(8, 0, {}), Element(41, 0, {}),
                                      Element(0x8000003C, 0, Bytes(8, 1))};
  for (const std::int8_t shipment : {std::int8_t{1}, std::int8_t{-1}, std::int8_t{-2}}) {
    const Exchange exchange = Collected(Signed(ReplyWith(hostile, shipment)));
    EXPECT_EQ(exchange->answers_received, 1);
    EXPECT_EQ(voltaris_getAckCount(exchange.result.get()), 0);
    EXPECT_EQ(voltaris_getNakCount(exchange.result.get()), 0);
    EXPECT_EQ(voltaris_getRowCount(exchange.result.get()), 0);
  }
}

TEST(Exchange, TakesAMessageThatEchoesOurOwn) {
  // Deliberate: neither sequence number nor sender is compared.
  ScriptedPeer peer([](PeerConnection& c) { c.Send(c.ReadPdu()); });
  Exchange exchange = Ask(peer.port());
  Collect(exchange);
  EXPECT_EQ(exchange->answers_received, 1);
  EXPECT_STREQ(exchange->domain, "office");
  EXPECT_EQ(voltaris_getRowCount(exchange.result.get()), 0);
}

TEST(Exchange, WorksOnDescriptorsAbove1023) {
  rlimit limit = {};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_cur < 2001) {
    limit.rlim_cur = 2001;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0) << "descriptor 2000 cannot be had";
  }
  const Bytes answer = UsageReply("lamp", 1, 11);
  ScriptedPeer peer(AfterQuery([&](PeerConnection& c) { c.Send(answer); }));
  Exchange exchange = Ask(peer.port());
  ASSERT_EQ(dup2(exchange.session->descriptor, 2000), 2000);
  close(exchange.session->descriptor);
  exchange.session->descriptor = 2000;
  Collect(exchange);
  EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 0);
  EXPECT_EQ(exchange->answers_received, 1);
  ExpectUsage(exchange.result.get(), 11);
}

TEST(Exchange, SurvivesAnInterruptedWait) {
  const Bytes answer = UsageReply("lamp", 1, 11);
  ScriptedPeer peer(AfterQuery([&](PeerConnection& c) { c.Send(answer); }));
  Exchange exchange = Ask(peer.port());
  bool interrupted = false;
  const PollHook poll([&](pollfd*, nfds_t, int) -> std::optional<int> {
    if (std::exchange(interrupted, true)) return std::nullopt;
    errno = EINTR;
    return -1;
  });
  const LogCapture log(kWarn);
  Collect(exchange);
  EXPECT_EQ(log.lines(), (Lines{{kWarn,
                                 "vtn_queryLoop: unexpected read status value -1, error: "
                                 "4(Interrupted system call)"}}));
  EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 0);
  ExpectUsage(exchange.result.get(), 11);
}

TEST(Exchange, WithAPeerThatStaysSilentEndsAfter180SecondsAndKeepsWhatCame) {
  // The peer keeps the connection open; the expiry of the second wait is made up.
  const Bytes answer = UsageReply("lamp", 1, 11);
  ScriptedPeer peer(AfterQuery([&](PeerConnection& c) {
    c.Send(answer);
    c.WaitForClose();
  }));
  Exchange exchange;
  exchange.session = LoopbackSession(peer.port());
  exchange.query.reset(voltaris_createCollectQuery("office", 7));
  ASSERT_EQ(voltaris_addGetAttribute(exchange.query.get(), 8), 0);
  const std::uint8_t timeout = 2;  // the query's own time-out has no part in it
  ASSERT_EQ(voltaris_addQualifier(exchange.query.get(), 19, &timeout), 0);
  ASSERT_EQ(voltaris_execQuery(exchange.session.get(), exchange.query.get()), 0);
  std::size_t waits = 0;
  const PollHook poll([&](pollfd* fds, nfds_t count, int timeout_ms) -> std::optional<int> {
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(fds[0].fd, exchange.session->descriptor);
    EXPECT_EQ(timeout_ms, 180000);
    if (waits++ == 0) return std::nullopt;
    fds[0].revents = 0;
    return 0;
  });
  const LogCapture log(kDebug);
  Collect(exchange);
  EXPECT_EQ(waits, 2u);
  EXPECT_TRUE(log.Has(kDebug, "vtn_queryLoop: select() timout expired"));
  EXPECT_EQ(voltaris_getErrorCode(exchange.result.get()), 10);
  EXPECT_EQ(exchange->answers_received, 1);
  ExpectUsage(exchange.result.get(), 11);
}

TEST(Exchange, WithoutMemoryForAnArrayLeavesTheReplyUnread) {
  const Bytes answer = UsageReply("lamp", 1, 11);
  for (const std::size_t allocation : {1u, 2u}) {
    ConnectedPair pair;
    pair.far().Send(answer);
    const SessionPtr session = LoopbackSession(7440);
    const QueryPtr query(voltaris_createCollectQuery("office", 7));
    BindAsExecuted(query.get(), session.get());
    session->descriptor = pair.near().Release();
    AllocationFault fault = AllocationFault::Nth(allocation);
    const ResultPtr result(voltaris_queryResults(session.get(), query.get()));
    fault.Disarm();
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(voltaris_getErrorCode(result.get()), 12);
    char first = 1;
    EXPECT_EQ(recv(session->descriptor, &first, 1, MSG_DONTWAIT), 1);
    EXPECT_EQ(first, 0);
  }
}

TEST(Exchange, AfterAFailedExecutionThereAreNoResults) {
  const SessionPtr session = LoopbackSession(static_cast<std::uint32_t>(UnusedPort()));
  const QueryPtr query(voltaris_createCollectQuery("office", 7));
  EXPECT_GT(voltaris_execQuery(session.get(), query.get()), 0);
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_queryResults(session.get(), query.get()), nullptr);
  EXPECT_EQ(log.lines(), (Lines{{kError,
                                 "voltaris_queryResults: Query failed to execute, no "
                                 "results available."}}));
}

TEST(Exchange, SortsAcknowledgementsByTheirStoredBytes) {
  PduImage wont = WillImage("z", {2, 1});
  wont.shipment = 0xFE;
  PduImage more = WillImage("A", {7});
  more.shipment = 0xFE;
  const Exchange exchange = Collected(Signed(WillImage("lamp", {1, 0x01000000, 256, 2, 0})) +
                                      Signed(WillImage("fan", {9})) + Signed(wont) + Signed(more));
  ResultSet* const result = exchange.result.get();
  const auto names = [](const AckEntry* entries, std::int32_t count) {
    std::vector<std::string> list;
    for (std::int32_t i = 0; i < count; ++i) {
      list.push_back(std::string(reinterpret_cast<const char*>(entries[i].device_id)) + "/" +
                     std::to_string(entries[i].entity_index));
    }
    return list;
  };
  // Deliberate: the index counts as stored, so on a little-endian machine 256 precedes 1.
  EXPECT_EQ(names(voltaris_getAcks(result), voltaris_getAckCount(result)),
            (std::vector<std::string>{"fan/9", "lamp/0", "lamp/16777216", "lamp/256", "lamp/1",
                                      "lamp/2"}));
  EXPECT_EQ(names(voltaris_getNaks(result), voltaris_getNakCount(result)),
            (std::vector<std::string>{"A/7", "z/1", "z/2"}));
}

TEST(Exchange, TakesMoreAcknowledgementsThanTheArrayBeginsWith) {
  Bytes answer;
  std::vector<std::uint32_t> entities(300);
  for (std::uint32_t message = 0; message < 4; ++message) {
    for (std::uint32_t i = 0; i < 300; ++i) entities[i] = message * 300 + i;
    answer = std::move(answer) + Signed(WillImage("lamp", entities));
  }
  const LogCapture log(kDebug);
  const Exchange exchange = Collected(answer);
  EXPECT_EQ(voltaris_getAckCount(exchange.result.get()), 1200);
  EXPECT_TRUE(log.HasMatch(kDebug, "^add_ack: realloc acks\\[\\] 0x"));
  std::vector<bool> seen(1200, false);
  for (std::int32_t i = 0; i < 1200; ++i) {
    seen.at(voltaris_getAcks(exchange.result.get())[i].entity_index) = true;
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), true), 1200);
}

TEST(Exchange, TakesTextOfThePeerForNoFormat) {
  const LogCapture log(kTrace);
  PduImage image = ReplyWith({Element(8, 0, Text("%n%s")), Aggregate(42, "%n%s%n%s", {Entry(1)}),
                              Aggregate(9, "%n%s", {Entry(1, Counted(Text("%n%s")))})},
                             -1);
  const Exchange exchange = Collected(Signed(image));
  ResultRow* const row = voltaris_getNextRow(exchange.result.get());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Read(row, 3), Terminated("%n%s"));
  EXPECT_EQ(Read(row, 4), Terminated("%n%s"));
}

TEST(Exchange, OfASumQueryReadsCombinedEntries) {
  const Bytes answer = [] {
    PduImage image = ReplyWith({Aggregate(
        43, "total",
        {Combined{.name = "all", .role = "lamps", .units = 3, .data = {0x01, 0x02}}.At(1)})});
    image.cls = 11;
    image.action = 10;
    return image.Signed(SessionKey());
  }();
  ScriptedPeer peer(AfterQuery([&](PeerConnection& c) { c.Send(answer); }));
  Exchange exchange;
  exchange.session = LoopbackSession(peer.port());
  exchange.query.reset(voltaris_createSumQuery("office", 7));
  ASSERT_EQ(voltaris_addGetAttribute(exchange.query.get(), 8), 0);
  ASSERT_EQ(voltaris_execQuery(exchange.session.get(), exchange.query.get()), 0);
  Collect(exchange);
  ResultRow* const row = voltaris_getNextRow(exchange.result.get());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(Read(row, 8), HostBytes(std::uint16_t{0x0102}));
  EXPECT_EQ(Read(row, 7), (Bytes{3}));
}

TEST(Exchange, OfASecondQueryOnTheSameSessionHasItsOwnResult) {
  std::vector<std::uint8_t> numbers;
  ScriptedPeer peer(
      [&](PeerConnection& c) {
        const Bytes query = c.ReadPdu();
        numbers.push_back(query[35]);
        c.Send(UsageReply("lamp", 1, static_cast<std::uint8_t>(query[35] + 10)));
      },
      2);
  const SessionPtr session = LoopbackSession(peer.port());
  for (std::uint8_t i = 0; i < 2; ++i) {
    const QueryPtr query(voltaris_createCollectQuery("office", 7));
    ASSERT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
    ASSERT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
    const ResultPtr result(voltaris_queryResults(session.get(), query.get()));
    ASSERT_NE(result, nullptr);
    ExpectUsage(result.get(), static_cast<std::uint8_t>(i + 10));
  }
  ASSERT_TRUE(peer.Join());
  EXPECT_EQ(numbers, (std::vector<std::uint8_t>{0, 1}));
}

TEST(Exchange, FailsInTheStatedWaysAndLeaksNothingWithoutMemory) {
  // Each allocation of building, executing and collecting fails once, and once with all later
  // ones; every call then gives the status that its header states, and all is released.
  const Bytes answer =
      Signed(WillImage("lamp", {1})) +
      Signed(ReplyWith({Element(8, 0, Text("lab")), Aggregate(13, "lamp", {Entry(1, {0, 11})}),
                        Aggregate(10, "fan", {Entry(2, Counted(Hex("6100")))}),
                        Aggregate(43, "fan", {Combined{.name = "n", .data = {0, 3}}.At(7)})}));
  const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
    std::unique_ptr<ConnectedPair> pair;
    {
      const AllocationFault::Pause pause;
      pair = std::make_unique<ConnectedPair>();
      pair->far().Send(answer);
      pair->far().HalfClose();
    }
    const SocketHook sockets([&](int, int, int) { return std::optional(pair->near().Release()); });
    const ConnectHook connects([](int, const sockaddr*, socklen_t) { return std::optional(0); });
    const LogCapture log(kInfo);
    Exchange exchange;
    const Bytes key = SessionKey();
    exchange.session.reset(voltaris_createSession("127.0.0.1", 7440, kIdentity, key.data(), 20));
    if (exchange.session == nullptr) {
      EXPECT_EQ(log.lines(), (Lines{{kFatal, "voltaris_createSession: out of memory"}}));
      return;
    }
    exchange.query.reset(voltaris_createCollectQuery("office", 7));
    if (exchange.query == nullptr) {
      EXPECT_EQ(log.AtOrAbove(kError).size(), 1u);
      return;
    }
    bool complete = fault.hit() ? exchange.query->event->pak->tlv_count == 1 : true;
    for (const std::int32_t attribute : {8, 5}) {
      const bool before = fault.hit();
      const std::int32_t status = voltaris_addGetAttribute(exchange.query.get(), attribute);
      EXPECT_TRUE(status == 0 || (status == -1 && fault.hit()));
      if (!before && fault.hit()) {
        EXPECT_EQ(status, -1);
      }
      complete = complete && status == 0;
    }
    if (voltaris_addKeyQualifier(exchange.query.get(), "a,b") != 0) {
      EXPECT_TRUE(fault.hit());
      EXPECT_TRUE(log.Has(kError, "voltaris_addQualifier: add qualifier failed, err=1"));
      complete = false;
    }
    const std::int32_t sent = voltaris_execQuery(exchange.session.get(), exchange.query.get());
    if (sent != 0) {
      EXPECT_EQ(sent, -1);
      EXPECT_TRUE(fault.hit());
      EXPECT_TRUE(log.Has(kError, "voltaris_execQuery: create pdu failed, err=1"));
      // Nothing was sent, so there is nothing to collect.
      EXPECT_EQ(voltaris_queryResults(exchange.session.get(), exchange.query.get()), nullptr);
      return;
    }
    const bool hit_before = fault.hit();
    exchange.result.reset(voltaris_queryResults(exchange.session.get(), exchange.query.get()));
    fault.Disarm();
    if (exchange.result == nullptr) {
      EXPECT_TRUE(log.Has(kFatal, "voltaris_queryResults: out of memory"));
      return;
    }
    const std::int32_t error = voltaris_getErrorCode(exchange.result.get());
    EXPECT_TRUE(error == 0 || error == 12) << error;
    if (error == 12) {
      EXPECT_TRUE(fault.hit());
    }
    // Whatever arrived can be walked and read.
    std::int32_t rows = 0;
    while (ResultRow* const row = voltaris_getNextRow(exchange.result.get())) {
      ++rows;
      for (std::int32_t attribute = 1; attribute <= 22; ++attribute) Read(row, attribute);
    }
    EXPECT_EQ(rows, voltaris_getRowCount(exchange.result.get()));
    if (!fault.hit() || (hit_before && complete)) {
      EXPECT_EQ(error, 0);
      EXPECT_EQ(rows, 3);
      EXPECT_EQ(exchange->answers_received, 1);
      EXPECT_EQ(voltaris_getAckCount(exchange.result.get()), 1);
    }
  });
  EXPECT_GT(failures, 30u);
}

}  // namespace
