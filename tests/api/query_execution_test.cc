// Executing a query: one signed message on a connection of its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/peer.h"

namespace {

using namespace vt::testing;

LogLine Exec(std::uint32_t level, const std::string& message) {
  return {level, "voltaris_execQuery: " + message};
}

const LogLine kNotConnected = Exec(kError, "Error connecting to host, query failed.");

// A query for "office" leaves as 80 bytes of headers, 18 of domain and 13 of time-out.
constexpr std::int32_t kPduSize = 111;

// The message that CollectQuery() leaves as.
PduImage CollectImage(std::uint32_t seq) {
  PduImage image;
  image.seq = seq;
  image.identity = Text(std::string_view(kIdentity, 32));
  image.pri = 7;
  image.elements = {Element(8, 0, Text("office")), Element(41, 0, {6})};
  return image;
}

// Received executes the query against a peer and returns what the peer got.
Bytes Received(Query* query, const Bytes& key = SessionKey()) {
  Bytes received;
  ScriptedPeer peer([&](PeerConnection& c) { received = c.ReadAll(); });
  const SessionPtr session(
      voltaris_createSession("127.0.0.1", peer.port(), kIdentity, key.data(), 20));
  EXPECT_EQ(voltaris_execQuery(session.get(), query), 0);
  close(session->descriptor);
  session->descriptor = -1;
  query->session = nullptr;
  EXPECT_TRUE(peer.Join());
  return received;
}

TEST(ExecQuery, SendsOneSignedMessage) {
  const QueryPtr query = CollectQuery();
  const Bytes image = Received(query.get());
  const Bytes expected =
      Hex("00 02 0000 00000000 00 12 0014 | 20*00 | 00000000") +
      Text("0123456789abcdeffedcba9876543210") +
      Hex("01 00 07 0a 11 0a 000b 001f 0002 |"
          "00000008 00000012 00000000 6f6666696365 | 00000029 0000000d 00000000 06");
  EXPECT_EQ(image, Sign(expected, SessionKey()));
}

TEST(ExecQuery, CarriesClassActionAndPriorityOfEachKind) {
  const struct {
    std::int32_t cls, action;
    std::uint8_t wire_class;
    std::uint16_t wire_action;
  } kCases[] = {{1, 1, 10, 10}, {1, 2, 10, 11}, {1, 3, 10, 14}, {2, 1, 11, 10}};
  for (const auto& row : kCases) {
    const QueryPtr query(voltaris_createQuery(row.cls, row.action, "office", 255));
    PduImage expected = CollectImage(0);
    expected.cls = row.wire_class;
    expected.action = row.wire_action;
    expected.pri = 255;
    EXPECT_EQ(Received(query.get()), expected.Signed(SessionKey()));
  }
}

TEST(ExecQuery, SendsTheLow16BitsOfTheAction) {
  const QueryPtr query = CollectQuery();
  query->action = 0x1010B;
  PduImage expected = CollectImage(0);
  expected.action = 0x010B;
  EXPECT_EQ(Received(query.get()), expected.Signed(SessionKey()));
}

TEST(ExecQuery, SignsWithTheKeyOfTheSession) {
  const QueryPtr query = CollectQuery();
  const Bytes key(20, 0x42);
  EXPECT_EQ(Received(query.get(), key), CollectImage(0).Signed(key));
}

TEST(ExecQuery, SendsAllElementsInTheOrderOfTheCalls) {
  const QueryPtr query = CollectQuery();
  ASSERT_EQ(voltaris_addGetAttribute(query.get(), 8), 0);
  ASSERT_EQ(voltaris_addNameQualifier(query.get(), "lamp*"), 0);
  ASSERT_EQ(voltaris_addGetAttribute(query.get(), 4), 0);
  PduImage expected = CollectImage(0);
  expected.elements = {Element(8, 0, Text("office")), Element(13, 0, {0, 0}),
                       Element(9, 1, Text("lamp*")), Element(9, 0, {}), Element(41, 0, {6})};
  EXPECT_EQ(Received(query.get()), expected.Signed(SessionKey()));
}

TEST(ExecQuery, AddsATimeoutOfSixToAQueryThatHasNone) {
  const QueryPtr query = CollectQuery();
  const Bytes image = Received(query.get());
  EXPECT_TRUE(
      SameBytes(Hex("00000029 0000000d 00000000 06"), Bytes(image.end() - 13, image.end())));
  EXPECT_EQ(image.size(), 111u);
}

TEST(ExecQuery, KeepsTheTimeoutThatTheQueryHas) {
  for (const std::uint8_t seconds : {std::uint8_t{0}, std::uint8_t{9}, std::uint8_t{255}}) {
    const QueryPtr query = CollectQuery();
    ASSERT_EQ(voltaris_addQualifier(query.get(), 19, &seconds), 0);
    PduImage expected = CollectImage(0);
    expected.elements[1] = Element(41, 0, {seconds});
    EXPECT_EQ(Received(query.get()), expected.Signed(SessionKey()));
  }
}

TEST(ExecQuery, UsesConsecutiveSequenceNumbersAndAConnectionForEachQuery) {
  std::vector<Bytes> received;
  ScriptedPeer peer([&](PeerConnection& c) { received.push_back(c.ReadAll()); }, 2);
  const SessionPtr session = LoopbackSession(peer.port());
  for (int i = 0; i < 2; ++i) {
    const QueryPtr query = CollectQuery();
    ASSERT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
  }
  ASSERT_TRUE(peer.Join());
  EXPECT_EQ(received, (std::vector<Bytes>{CollectImage(0).Signed(SessionKey()),
                                          CollectImage(1).Signed(SessionKey())}));
}

TEST(ExecQuery, BindsTheQueryToTheSessionAndGivesUpItsEvent) {
  sockaddr_in seen = {};
  ScriptedPeer peer([&](PeerConnection& c) {
    socklen_t size = sizeof seen;
    getpeername(c.fd(), reinterpret_cast<sockaddr*>(&seen), &size);
    c.ReadAll();
  });
  const SessionPtr session = LoopbackSession(peer.port());
  QueryPtr query = CollectQuery();
  ASSERT_EQ(voltaris_addGetAttribute(query.get(), 4), 0);
  ASSERT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
  EXPECT_EQ(query->session, session.get());
  EXPECT_EQ(query->event, nullptr);
  EXPECT_EQ(Columns(query.get()), (std::vector<std::int32_t>{4}));
  EXPECT_GT(session->descriptor, 0);
  EXPECT_NE(fcntl(session->descriptor, F_GETFD), -1);
  EXPECT_EQ(session->sequence_number, 1u);
  const sockaddr_in local = session->local;
  // Released without having been collected: the connection ends, nothing is left behind.
  query.reset();
  EXPECT_EQ(session->descriptor, -1);
  ASSERT_TRUE(peer.Join());
  EXPECT_EQ(local.sin_family, AF_INET);
  EXPECT_EQ(local.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(local.sin_port, seen.sin_port);
}

TEST(ExecQuery, LogsTheSentBytesAtDebugWithoutADump) {
  ScriptedPeer peer([](PeerConnection& c) { c.ReadAll(); });
  const SessionPtr session = LoopbackSession(peer.port());
  const QueryPtr query = CollectQuery();
  const LogCapture log(kDebug);
  ASSERT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
  EXPECT_EQ(log.lines(), (Lines{Exec(kDebug, "sent 111 bytes")}));
}

TEST(ExecQuery, DumpsTheMessageAtTraceAfterTheSentLine) {
  ScriptedPeer peer([](PeerConnection& c) { c.ReadAll(); });
  const SessionPtr session = LoopbackSession(peer.port());
  const QueryPtr query = CollectQuery();
  const LogCapture log(kTrace);
  ASSERT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
  const Lines lines = log.lines();
  std::size_t at = 0;
  while (at < lines.size() && !(lines[at] == Exec(kDebug, "sent 111 bytes"))) ++at;
  ASSERT_LE(at + 15, lines.size());
  const Lines pdu(lines.begin() + static_cast<std::ptrdiff_t>(at) + 1,
                  lines.begin() + static_cast<std::ptrdiff_t>(at) + 7);
  EXPECT_EQ(pdu, (Lines{{kTrace, "voltaris_dump_pdu: Voltaris protocol message body >>"},
                        {kTrace, "voltaris_dump_pdu: voltarisid: 0123456789abcdeffedcba9876543210"},
                        {kTrace, "voltaris_dump_pdu: enc: 2 comm: 2 auth: 1 digest len: 20"},
                        {kTrace, "voltaris_dump_pdu: seq: 0 ver: 1 shipment: 0 pri: 7 type: 10"},
                        {kTrace, "voltaris_dump_pdu: app: 17 class: 10 action: 11 "},
                        {kTrace, "voltaris_dump_pdu: bytes: 111, TLV bytes: 31 TLV count: 2"}}));
  // 111 bytes take 7 lines behind an empty one.
  EXPECT_EQ(lines[at + 7], (LogLine{kTrace, "voltaris_dump_buf: "}));
  EXPECT_TRUE(lines[at + 8].text.starts_with(
      "voltaris_dump_buf: 0x0000: 0x00 0x02 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x12 0x00 0x14 "))
      << lines[at + 8].text;
  EXPECT_TRUE(lines[at + 14].text.starts_with("voltaris_dump_buf: 0x0060: "));
  EXPECT_EQ(From(log, "voltaris_dump_buf").size(), 8u);
  EXPECT_EQ(From(log, "voltaris_dump_pdu").size(), 6u);
}

TEST(ExecQuery, AgainstARefusingPeerReturnsTheSizeOfTheMessage) {
  const SessionPtr session = LoopbackSession(static_cast<std::uint32_t>(UnusedPort()));
  const QueryPtr query = CollectQuery();
  const std::set<int> open = OpenDescriptors();
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), kPduSize);
  EXPECT_EQ(log.lines(),
            (Lines{Exec(kError, "Socket connect failed -1, error = 111(Connection refused)"),
                   kNotConnected}));
  EXPECT_EQ(session->descriptor, -1);
  EXPECT_EQ(query->session, session.get());
  EXPECT_EQ(query->event, nullptr);
  EXPECT_EQ(OpenDescriptors(), open);
}

TEST(ExecQuery, WithoutAConnectionDumpsNothing) {
  const SessionPtr session = LoopbackSession(static_cast<std::uint32_t>(UnusedPort()));
  const QueryPtr query = CollectQuery();
  const LogCapture log(kTrace);
  EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), kPduSize);
  EXPECT_EQ(From(log, "voltaris_dump_pdu"), Lines{});
  EXPECT_EQ(From(log, "voltaris_dump_buf"), Lines{});
}

TEST(ExecQuery, WithoutASocketReturnsTheSizeOfTheMessage) {
  const SessionPtr session = LoopbackSession(7440);
  const QueryPtr query = CollectQuery();
  const SocketHook no_socket([](int domain, int type, int protocol) -> std::optional<int> {
    EXPECT_EQ(domain, AF_INET);
    EXPECT_EQ(type, SOCK_STREAM);
    EXPECT_EQ(protocol, 0);
    errno = EMFILE;
    return -1;
  });
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), kPduSize);
  EXPECT_EQ(log.lines(), (Lines{Exec(kError, "Socket creation failed (errno 24)"), kNotConnected}));
  EXPECT_EQ(session->descriptor, -1);
  EXPECT_EQ(query->session, session.get());
  EXPECT_EQ(query->event, nullptr);
}

TEST(ExecQuery, SendsOnceAndAsksForNoSignal) {
  ScriptedPeer peer([](PeerConnection& c) { c.ReadAll(); });
  const SessionPtr session = LoopbackSession(peer.port());
  const QueryPtr query = CollectQuery();
  const SendHook sends([&](int fd, const void*, std::size_t len, int flags) {
    EXPECT_EQ(fd, session->descriptor);
    EXPECT_EQ(len, std::size_t{kPduSize});
    EXPECT_EQ(flags, MSG_NOSIGNAL);
    return std::optional<ssize_t>();
  });
  EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
  EXPECT_EQ(sends.calls(), 1u);
}

TEST(ExecQuery, AFailedSendReturnsTheSizeOfTheMessagePlusOne) {
  ScriptedPeer peer([](PeerConnection& c) { c.ReadAll(); });
  const SessionPtr session = LoopbackSession(peer.port());
  const QueryPtr query = CollectQuery();
  const SendHook fails([](int, const void*, std::size_t, int) -> std::optional<ssize_t> {
    errno = ECONNRESET;
    return -1;
  });
  const LogCapture log(kTrace);
  EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), kPduSize + 1);
  EXPECT_EQ(From(log, "voltaris_execQuery"), (Lines{Exec(kError, "send failed -1, errno = 104"),
                                                    Exec(kWarn, "sent -1 bytes of pdu size 111")}));
  // Connected, so the message is dumped all the same.
  EXPECT_EQ(From(log, "voltaris_dump_pdu").size(), 6u);
  EXPECT_EQ(From(log, "voltaris_dump_buf").size(), 8u);
  EXPECT_EQ(query->event, nullptr);
  EXPECT_EQ(query->session, session.get());
  EXPECT_GE(session->descriptor, 0);
}

TEST(ExecQuery, AShortSendReturnsTheBytesNotSent) {
  ScriptedPeer peer([](PeerConnection& c) { c.ReadAll(); });
  const SessionPtr session = LoopbackSession(peer.port());
  for (const ssize_t sent : {ssize_t{0}, ssize_t{10}, ssize_t{110}}) {
    const QueryPtr query = CollectQuery();
    const SocketHook own([](int domain, int type, int protocol) {
      return std::optional<int>(socket(domain, type, protocol));
    });
    const ConnectHook connected([](int, const sockaddr*, socklen_t) { return std::optional(0); });
    const SendHook sends(
        [&](int, const void*, std::size_t, int) { return std::optional<ssize_t>(sent); });
    const LogCapture log(kDebug);
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), kPduSize - sent);
    EXPECT_EQ(log.lines(),
              (Lines{Exec(kWarn, "sent " + std::to_string(sent) + " bytes of pdu size 111")}));
  }
}

TEST(ExecQuery, APeerThatResetsBeforeTheSendDoesNotKillTheProcess) {
  // A send on a connection that was ended and then reset raises SIGPIPE unless asked not to.
  std::signal(SIGPIPE, SIG_DFL);
  ConnectedPair pair;
  pair.far().HalfClose();
  pair.far().Reset();
  const int fd = pair.near().Release();
  const SocketHook sockets([&](int, int, int) { return std::optional(fd); });
  const ConnectHook connects([](int, const sockaddr*, socklen_t) { return std::optional(0); });
  const SessionPtr session = LoopbackSession(7440);
  const QueryPtr query = CollectQuery();
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), kPduSize + 1);
  EXPECT_EQ(log.lines(), (Lines{Exec(kError, "send failed -1, errno = 32"),
                                Exec(kWarn, "sent -1 bytes of pdu size 111")}));
}

TEST(ExecQuery, ReportsErrorNumbersThatTheLogCallbackCannotChange) {
  const SessionPtr session = LoopbackSession(static_cast<std::uint32_t>(UnusedPort()));
  const LogCapture log(kTrace);
  const SpoilErrno spoil;
  {
    const QueryPtr query = CollectQuery();
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), kPduSize);
    EXPECT_TRUE(log.Has(kError,
                        "voltaris_execQuery: Socket connect failed -1, error = "
                        "111(Connection refused)"));
  }
  {
    const QueryPtr query = CollectQuery();
    const SocketHook no_socket([](int, int, int) -> std::optional<int> {
      errno = EMFILE;
      return -1;
    });
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), kPduSize);
    EXPECT_TRUE(log.Has(kError, "voltaris_execQuery: Socket creation failed (errno 24)"));
  }
  {
    ConnectedPair pair;
    const QueryPtr query = CollectQuery();
    const SocketHook sockets([&](int, int, int) { return std::optional(pair.near().Release()); });
    const ConnectHook connects([](int, const sockaddr*, socklen_t) { return std::optional(0); });
    const SendHook fails([](int, const void*, std::size_t, int) -> std::optional<ssize_t> {
      errno = ECONNRESET;
      return -1;
    });
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), kPduSize + 1);
    EXPECT_TRUE(log.Has(kError, "voltaris_execQuery: send failed -1, errno = 104"));
  }
}

TEST(ExecQuery, DoesNotMindAnUnknownLocalAddress) {
  ScriptedPeer peer([](PeerConnection& c) { c.ReadAll(); });
  const SessionPtr session = LoopbackSession(peer.port());
  const QueryPtr query = CollectQuery();
  const GetsocknameHook fails([](int, sockaddr*, socklen_t* len) -> std::optional<int> {
    EXPECT_EQ(*len, 16u);
    errno = ENOBUFS;
    return -1;
  });
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
  EXPECT_EQ(log.lines(), (Lines{Exec(kDebug, "sent 111 bytes")}));
  EXPECT_EQ(fails.calls(), 1u);
}

TEST(ExecQuery, ConnectsToTheNodeOfTheSession) {
  const SessionPtr session(voltaris_createSession("192.0.2.1", 7440, kIdentity, nullptr, 0));
  const QueryPtr query = CollectQuery();
  const ConnectHook refuses([](int, const sockaddr* address, socklen_t len) -> std::optional<int> {
    EXPECT_EQ(len, 16u);
    EXPECT_EQ(address->sa_family, AF_INET);
    EXPECT_BYTES(address->sa_data, 14, "1d10 c0000201 8*00");
    errno = ENETUNREACH;
    return -1;
  });
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), kPduSize);
  EXPECT_EQ(log.lines(),
            (Lines{Exec(kError, "Socket connect failed -1, error = 101(Network is unreachable)"),
                   kNotConnected}));
}

TEST(ExecQuery, LeavesTheConnectionOfAnEarlierQueryOpen) {
  ScriptedPeer peer([](PeerConnection& c) { c.ReadPdu(); }, 2);
  const SessionPtr session = LoopbackSession(peer.port());
  const QueryPtr first = CollectQuery();
  const QueryPtr second = CollectQuery();
  ASSERT_EQ(voltaris_execQuery(session.get(), first.get()), 0);
  const int replaced = session->descriptor;
  ASSERT_EQ(voltaris_execQuery(session.get(), second.get()), 0);
  EXPECT_NE(session->descriptor, replaced);
  EXPECT_EQ(close(replaced), 0);
  EXPECT_TRUE(peer.Join());
}

TEST(ExecQuery, ASecondTimeFailsWithoutTakingANumber) {
  ScriptedPeer peer([](PeerConnection& c) { c.ReadAll(); });
  const SessionPtr session = LoopbackSession(peer.port());
  const SessionPtr other = LoopbackSession(peer.port());
  const QueryPtr query = CollectQuery();
  ASSERT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
  const LogCapture log(kDebug);
  EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), -1);
  EXPECT_EQ(session->sequence_number, 1u);
  EXPECT_EQ(voltaris_execQuery(other.get(), query.get()), -1);
  EXPECT_EQ(other->sequence_number, 0u);
  EXPECT_EQ(query->session, session.get());
  EXPECT_EQ(log.lines(), (Lines{Exec(kError, "create pdu failed, err=1"),
                                Exec(kError, "create pdu failed, err=1")}));
}

TEST(ExecQuery, WithoutMemoryForTheMessageLeavesTheQueryUnsent) {
  const std::size_t failures = SweepAllocationFailures([](AllocationFault& fault) {
    ConnectedPair* pair = nullptr;
    QueryPtr query;
    SessionPtr session;
    {
      const AllocationFault::Pause pause;
      pair = new ConnectedPair;
      session = LoopbackSession(7440);
      query = CollectQuery();
    }
    const SocketHook sockets([&](int, int, int) { return std::optional(pair->near().Release()); });
    const ConnectHook connects([](int, const sockaddr*, socklen_t) { return std::optional(0); });
    const LogCapture log(kInfo);
    const std::int32_t status = voltaris_execQuery(session.get(), query.get());
    const bool failed = fault.hit();
    fault.Disarm();
    if (status == -1) {
      EXPECT_TRUE(failed);
      EXPECT_EQ(log.lines(), (Lines{Exec(kError, "create pdu failed, err=1")}));
      EXPECT_EQ(query->session, nullptr);
      EXPECT_NE(query->event, nullptr);
      EXPECT_EQ(session->sequence_number, 1u);
      EXPECT_EQ(session->descriptor, 0);
      // With memory again, the same query goes out.
      EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
      EXPECT_EQ(session->sequence_number, 2u);
    } else {
      // Without memory for the default time-out alone, the query goes without.
      EXPECT_EQ(status, 0);
      EXPECT_EQ(log.lines(), Lines{});
    }
    const std::size_t size = failed && status == 0 ? 98 : 111;
    EXPECT_EQ(pair->far().ReadExactly(size).size(), size);
    query.reset();
    EXPECT_EQ(pair->far().ReadAll(), Bytes{});
    delete pair;
  });
  // Time-out element, security header, wire image.
  EXPECT_EQ(failures, 3u);
}

TEST(ExecQuery, LeavesAHeldEventToItsHolder) {
  ScriptedPeer peer([](PeerConnection& c) { c.ReadAll(); });
  const SessionPtr session = LoopbackSession(peer.port());
  const QueryPtr query = CollectQuery();
  Event* const event = query->event;
  event->state = CV_EVENT_STATE_HELD;
  ASSERT_EQ(voltaris_execQuery(session.get(), query.get()), 0);
  EXPECT_EQ(query->event, nullptr);
  EXPECT_EQ(event->raw_len, 111u);
  event->state = CV_EVENT_STATE_OK;
  cv_cleanup_event(event);
}

TEST(ExecQuery, SendsUpTo65535BytesOfElementsSignedOverThe16BitLength) {
  // 65535 - 13 of time-out - 12 of header. Deliberate: the length that is signed has 16 bits, so
  // of these 65583 bytes the first 47 are.
  const std::string domain(65510, 'd');
  const QueryPtr query(voltaris_createCollectQuery(domain.c_str(), 7));
  const Bytes image = Received(query.get());
  PduImage expected = CollectImage(0);
  expected.elements[0] = Element(8, 0, Text(domain));
  Bytes wire = expected.Unsigned();
  ASSERT_EQ(wire.size(), 65615u);
  const Bytes digest = HmacSha1(SessionKey(), Bytes(wire.begin() + 32, wire.begin() + 32 + 47));
  std::copy(digest.begin(), digest.end(), wire.begin() + 12);
  EXPECT_TRUE(image == wire);
}

TEST(ExecQueryDeathTest, MoreThan65535BytesOfElementsEndTheProcess) {
  const SessionPtr session = LoopbackSession(static_cast<std::uint32_t>(UnusedPort()));
  const std::string domain(65511, 'd');
  const QueryPtr query(voltaris_createCollectQuery(domain.c_str(), 7));
  EXPECT_EXIT(voltaris_execQuery(session.get(), query.get()), ::testing::KilledBySignal(SIGABRT),
              "corvane_util:[0-9]+: cv_pack_tlvs: Assertion `!dlen' failed");
}

TEST(ExecQueryDeathTest, AnExhaustedSequenceCounterEndsTheProcess) {
  const SessionPtr session = LoopbackSession(7440);
  session->sequence_number = 0xFFFFFFFF;
  const QueryPtr query = CollectQuery();
  EXPECT_EXIT(voltaris_execQuery(session.get(), query.get()), ::testing::KilledBySignal(SIGABRT),
              "getNextSequenceNumber");
}

}  // namespace
