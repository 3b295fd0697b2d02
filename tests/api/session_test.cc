// Sessions: where queries go, who asks, how messages are signed, and their numbers.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/guard.h"
#include "tests/harness/peer.h"
#include "tests/harness/sanitizers.h"

namespace {

using namespace vt::testing;

constexpr char kLocalLine[] = "voltaris_createSession: local socket address 0.0.0.0:0 id: ";

SessionPtr Create(const char* address, std::uint32_t port) {
  return SessionPtr(voltaris_createSession(address, port, kIdentity, nullptr, 0));
}

SessionPtr WithKey(const void* identity, const void* key, std::int32_t key_len) {
  return SessionPtr(voltaris_createSession("127.0.0.1", 7440, identity, key, key_len));
}

// What the session signs a message with.
Bytes Signature(const Session* session) {
  Bytes digest(20);
  hmac_sha_msg(&session->key, "message", 7, digest.data());
  return digest;
}

Bytes Bytes36(std::string_view text) {
  Bytes bytes = Text(text);
  bytes.resize(36);
  return bytes;
}

TEST(NewSession, IsZeroFilledAndLogsItsSize) {
  const LogCapture log(kTrace);
  const FillAllocations fill;
  const SessionPtr session(new_session());
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(sizeof(Session), 336u);
  EXPECT_BYTES(session.get(), sizeof(Session), "336*00");
  // The words "result node" are meant, although the block is a session.
  EXPECT_EQ(log.lines(), (Lines{{kTrace, "new_session: allocated 336 bytes for result node"}}));
}

TEST(NewSession, WithoutMemoryIsNullAndSilent) {
  const LogCapture log(kTrace);
  const AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(new_session(), nullptr);
  EXPECT_TRUE(fault.hit());
  EXPECT_EQ(log.lines(), Lines{});
}

TEST(CreateSession, StoresWhereQueriesGoAndWhoAsks) {
  const FillAllocations fill;
  const SessionPtr session = Create("192.168.1.7", 7440);
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->target.sin_family, AF_INET);
  EXPECT_BYTES(&session->target.sin_port, 14, "1d10 c0a80107 8*00");
  EXPECT_BYTES(&session->local, 16, "16*00");
  EXPECT_EQ(session->descriptor, 0);
  EXPECT_EQ(session->sequence_number, 0u);
  EXPECT_STREQ(session->identity, kIdentity);
  EXPECT_BYTES(session->reserved, sizeof session->reserved, "99*00");
}

TEST(CreateSession, LogsTheLocalAddressThatIsStillEmpty) {
  const LogCapture log(kTrace);
  const SessionPtr session = Create("192.168.1.7", 7440);
  EXPECT_EQ(log.lines(), (Lines{{kTrace, "new_session: allocated 336 bytes for result node"},
                                {kDebug, std::string(kLocalLine) + kIdentity},
                                {kDebug, "voltaris_createSession: creating key w/key_len zero"}}));
}

TEST(CreateSession, LogsTheLengthOfTheKeyItWasGiven) {
  const LogCapture log(kDebug);
  const Bytes key(64, 7);
  const SessionPtr session = WithKey(kIdentity, key.data(), 64);
  EXPECT_EQ(log.lines(),
            (Lines{{kDebug, std::string(kLocalLine) + kIdentity},
                   {kDebug, "voltaris_createSession: using digest key w/len 64 > 0"}}));
}

TEST(CreateSession, ReadsExactly36BytesOfIdentity) {
  GuardedBytes identity{Text(kIdentity)};
  const SessionPtr session = WithKey(identity.data(), nullptr, 0);
  ASSERT_NE(session, nullptr);
  EXPECT_STREQ(session->identity, kIdentity);
}

TEST(CreateSession, CopiesAnIdentityOverEmbeddedZeroBytes) {
  const Bytes identity = Hex("616200 33*41");
  const LogCapture log(kDebug);
  const SessionPtr session = WithKey(identity.data(), nullptr, 0);
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(SameBytes(identity, session->identity, 36));
  EXPECT_EQ(session->identity[36], '\0');
  const Bytes raw(identity.begin(), identity.begin() + 32);
  EXPECT_EQ(Signature(session.get()), HmacSha1(raw, Text("message")));
  EXPECT_TRUE(log.Has(kDebug, std::string(kLocalLine) + "ab"));
}

TEST(CreateSession, TakesTextForNoFormat) {
  const LogCapture log(kDebug);
  const Bytes identity = Bytes36("%n%s");
  const SessionPtr session = WithKey(identity.data(), nullptr, 0);
  EXPECT_NE(session, nullptr);
  EXPECT_TRUE(log.Has(kDebug, std::string(kLocalLine) + "%n%s"));
  EXPECT_EQ(Create("%n%s", 1), nullptr);
  EXPECT_TRUE(log.Has(kFatal, "voltaris_createSession: Badly formatted target address: %n%s"));
}

TEST(CreateSession, WithoutMemoryIsFatal) {
  const LogCapture log(kTrace);
  const AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(Create("127.0.0.1", 7440), nullptr);
  EXPECT_EQ(log.lines(), (Lines{{kFatal, "voltaris_createSession: out of memory"}}));
}

TEST(CreateSession, RefusesBadAddressesAndFreesTheRecordSilently) {
  // Deliberate: inet_addr cannot tell the broadcast address from its failure.
  for (const char* address :
       {"nowhere", "1.2.3.4.5", "256.1.1.1", "", "1.2.3.4x", "255.255.255.255"}) {
    const LogCapture log(kTrace);
    EXPECT_EQ(Create(address, 7440), nullptr);
    EXPECT_EQ(log.lines(),
              (Lines{{kTrace, "new_session: allocated 336 bytes for result node"},
                     {kFatal, std::string("voltaris_createSession: Badly formatted target "
                                          "address: ") +
                                  address}}));
  }
}

TEST(CreateSession, RefusesANullIdentityWithoutAMessage) {
  const LogCapture log(kTrace);
  EXPECT_EQ(WithKey(nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(log.lines(), (Lines{{kTrace, "new_session: allocated 336 bytes for result node"}}));
}

TEST(CreateSession, TestsTheAddressBeforeTheIdentity) {
  const LogCapture log(kInfo);
  EXPECT_EQ(voltaris_createSession("nowhere", 1, nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(CreateSession, WithoutAKeySignsWithTheFirst32CharactersOfTheIdentity) {
  const Bytes ignored(20, 0x55);
  for (const std::int32_t key_len : {0, -5, INT32_MIN}) {
    const SessionPtr session = WithKey(kIdentity, ignored.data(), key_len);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(Signature(session.get()),
              HmacSha1(Text(std::string_view(kIdentity, 32)), Text("message")))
        << key_len;
  }
}

TEST(CreateSession, IdentitiesEqualInTheirFirst32CharactersSignAlike) {
  const SessionPtr first = WithKey("0123456789abcdef0123456789abcdef#001", nullptr, 0);
  const SessionPtr second = WithKey("0123456789abcdef0123456789abcdef#002", nullptr, -5);
  const SessionPtr other = WithKey("0123456789abcdef0123456789abcdeX#001", nullptr, 0);
  EXPECT_EQ(Signature(first.get()), Signature(second.get()));
  EXPECT_NE(Signature(first.get()), Signature(other.get()));
}

TEST(CreateSession, UsesExactly20BytesOfTheKeyWhateverItsLength) {
  // Deliberate: the key is meant to be a digest of 20 bytes; the guard shows that no more is read.
  GuardedBytes key(SessionKey());
  const Bytes expected = HmacSha1(SessionKey(), Text("message"));
  for (const std::int32_t key_len : {1, 19, 20, 64, INT32_MAX}) {
    const SessionPtr session = WithKey(kIdentity, key.data(), key_len);
    EXPECT_EQ(Signature(session.get()), expected) << key_len;
  }
}

TEST(CreateSession, AKeyOf64BytesSignsAsItsFirst20) {
  const Bytes key = SessionKey() + Bytes(44, 0x77);
  const SessionPtr whole = WithKey(kIdentity, key.data(), 64);
  const SessionPtr cut = WithKey(kIdentity, key.data(), 20);
  EXPECT_EQ(Signature(whole.get()), Signature(cut.get()));
}

TEST(CreateSession, ANullKeyLeavesTheContextAllZero) {
  const LogCapture log(kDebug);
  const SessionPtr session = WithKey(kIdentity, nullptr, 20);
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(log.Has(kDebug, "voltaris_createSession: using digest key w/len 20 > 0"));
  EXPECT_BYTES(&session->key, 160, "160*00");
}

TEST(CreateSession, TheKeyContextOf160BytesIsAllThatSigningTouches) {
  // On a block of its own, so that AddressSanitizer would name a byte too many.
  HeapBytes block{Bytes(160, 0)};
  auto* const context = reinterpret_cast<hmac_context*>(block.data());
  hmac_shainit(context, SessionKey().data(), 20);
  Bytes digest(20);
  hmac_sha_msg(context, "abc", 3, digest.data());
  EXPECT_EQ(digest, HmacSha1(SessionKey(), Text("abc")));
  hmac_shaupdate(context, "abc", 3);
  hmac_shafinal(digest.data(), context);
  EXPECT_EQ(digest, HmacSha1(SessionKey(), Text("abc")));
}

TEST(CreateSession, CutsThePortToItsLow16Bits) {
  const struct {
    std::uint32_t port;
    const char* wire;
  } kCases[] = {
      {0, "0000"},         {1, "0001"}, {65535, "ffff"}, {65536, "0000"}, {65536 + 7440, "1d10"},
      {0xFFFFFFFF, "ffff"}};
  for (const auto& row : kCases) {
    const SessionPtr session = Create("127.0.0.1", row.port);
    ASSERT_NE(session, nullptr);
    EXPECT_BYTES(&session->target.sin_port, 2, row.wire) << row.port;
  }
}

TEST(CreateSession, AcceptsShortenedDottedFormsAsInetAddrDoes) {
  const struct {
    const char* text;
    const char* wire;
  } kCases[] = {{"127.1", "7f000001"},
                {"1.2.3", "01020003"},
                {"16909060", "01020304"},
                {"0x7f.1", "7f000001"},
                {"0", "00000000"}};
  for (const auto& row : kCases) {
    const SessionPtr session = Create(row.text, 7440);
    ASSERT_NE(session, nullptr) << row.text;
    EXPECT_BYTES(&session->target.sin_addr, 4, row.wire) << row.text;
    EXPECT_EQ(session->target.sin_addr.s_addr, inet_addr(row.text));
  }
}

TEST(CloseSession, LogsTheAddressOfTheRecord) {
  Session* const session = new_session();
  const std::string address = Printed(session);
  const LogCapture log(kTrace);
  voltaris_closeSession(session);
  EXPECT_EQ(log.lines(), (Lines{{kTrace, "voltaris_closeSession: free session " + address}}));
}

TEST(CloseSession, ClosesNoSocket) {
  ConnectedPair pair;
  Session* const session = new_session();
  session->descriptor = pair.near().fd();
  voltaris_closeSession(session);
  EXPECT_NE(fcntl(pair.near().fd(), F_GETFD), -1);
}

// Right after free, malloc hands the same block out again, with what is left in it.
TEST(CloseSession, LeavesNoKeyBehind) {
#ifdef VT_SANITIZER
  GTEST_SKIP() << "a sanitizer keeps released blocks";
#endif
  SessionPtr session = LoopbackSession(7440);
  const void* const address = session.get();
  session.reset();
  Session* const again = static_cast<Session*>(std::malloc(sizeof(Session)));
  const bool is_same = again == address;
  const Bytes left = is_same ? HostBytes(again->key) : Bytes();
  std::free(again);
  if (!is_same) GTEST_SKIP() << "malloc gave another block";
  EXPECT_EQ(left, Bytes(sizeof(hmac_context)));
}

TEST(CloseSession, IgnoresNull) { voltaris_closeSession(nullptr); }

TEST(GetNextSequenceNumber, CountsFromZero) {
  const SessionPtr session = Create("127.0.0.1", 7440);
  EXPECT_EQ(getNextSequenceNumber(session.get()), 0u);
  EXPECT_EQ(getNextSequenceNumber(session.get()), 1u);
  EXPECT_EQ(getNextSequenceNumber(session.get()), 2u);
  EXPECT_EQ(session->sequence_number, 3u);
}

TEST(GetNextSequenceNumberDeathTest, EndsTheProcessInsteadOfWrapping) {
  const SessionPtr session = Create("127.0.0.1", 7440);
  session->sequence_number = 0xFFFFFFFE;
  EXPECT_EQ(getNextSequenceNumber(session.get()), 0xFFFFFFFEu);
  EXPECT_EXIT(getNextSequenceNumber(session.get()), ::testing::KilledBySignal(SIGABRT),
              "MgmtApi:[0-9]+: getNextSequenceNumber: Assertion "
              "`session->sequenceNumber < 0xFFFFFFFF' failed");
}

}  // namespace
