// Peers that mean ill, or are merely broken, against a running collection: it ends as stated, takes
// what is good, and neither dies of a signal nor waits busily.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <future>
#include <optional>
#include <random>
#include <semaphore>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "vtapi.h"

#include "tests/harness/note.h"
#include "tests/trust/exchange_support.h"
#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

// How often each hostile act is done.
constexpr std::size_t kTimes = kSanitized ? 3 : 10;

// Hostile runs one query after the other on one session, against one peer that reads each query and
// then does what the test says for its number. No descriptor may leak, and no signal arrive.
class Hostile {
 public:
  Hostile(std::size_t queries, const std::function<void(PeerConnection&, std::size_t)>& answer)
      : queries_(queries),
        peer_(
            [this, answer](PeerConnection& c) {
              c.ReadPdu();
              answer(c, answered_++);
            },
            queries),
        before_(OpenDescriptors()),
        asking_(peer_.port()) {}

  // Run calls check with each number and result.
  void Run(const std::function<void(std::size_t, const ResultSet&)>& check) {
    for (std::size_t i = 0; i < queries_; ++i) {
      SCOPED_TRACE("query " + std::to_string(i));
      ASSERT_EQ(asking_.Execute(), 0);
      const ResultSet* const result = asking_.Collect();
      ASSERT_NE(result, nullptr);
      check(i, *result);
      if (::testing::Test::HasFailure()) return;
      asking_.Renew();
      ASSERT_EQ(OpenDescriptors(), before_);
    }
    EXPECT_TRUE(peer_.Join());
  }

 private:
  std::size_t queries_;
  std::size_t answered_ = 0;
  NoSignal no_signal_;
  ScriptedPeer peer_;
  std::set<int> before_;
  Asking asking_;
};

// CollectFrom answers queries with the same bytes, after which the peer closes.
void CollectFrom(const Bytes& answer, const std::function<void(const ResultSet&)>& check,
                 std::size_t times = kTimes) {
  Hostile hostile(times, [&](PeerConnection& c, std::size_t) { c.Send(answer); });
  hostile.Run([&](std::size_t, const ResultSet& result) { check(result); });
}

// How many whole messages lie in the first size bytes of TwoReplies.
int WholeIn(std::size_t size) {
  if (size >= TwoReplies().size()) return 2;
  return size >= UsageReply("lamp", 1, 11).size() ? 1 : 0;
}

// Every offset of a stream of this size, its end included, each many times.
std::size_t Queries(std::size_t size) {
  Note() << size + 1 << " offsets, " << kTimes << " times\n";
  return (size + 1) * kTimes;
}
std::size_t Offset(std::size_t query, std::size_t size) { return query % (size + 1); }

TEST(HostilePeer, ThatSendsItsHeadersByteByByteLosesNothing) {
  const LogCapture quiet(kSilent);
  const Bytes one = UsageReply("lamp", 1, 11);
  constexpr int kMessages = 30;
  Note() << kMessages * kTimes << " messages\n";
  Hostile hostile(kTimes, [&](PeerConnection& c, std::size_t) {
    for (int i = 0; i < kMessages; ++i) {
      c.SendInPieces(Head(one, kTlvAreaOffset), 1);
      c.Send(Bytes(one.begin() + kTlvAreaOffset, one.end()));
    }
  });
  hostile.Run([&](std::size_t, const ResultSet& result) {
    EXPECT_EQ(result.error_code, 0);
    EXPECT_EQ(result.answers_received, kMessages);
    EXPECT_EQ(result.row_count, 1);
  });
}

TEST(HostilePeer, ThatClosesAtAnyOffsetEndsTheCollectionWithoutAnError) {
  const LogCapture quiet(kSilent);
  const Bytes stream = TwoReplies();
  Hostile hostile(Queries(stream.size()), [&](PeerConnection& c, std::size_t query) {
    c.Send(Head(stream, Offset(query, stream.size())));
  });
  hostile.Run([&](std::size_t query, const ResultSet& result) {
    const int whole = WholeIn(Offset(query, stream.size()));
    EXPECT_EQ(result.error_code, 0);
    EXPECT_EQ(result.answers_received, whole);
    EXPECT_EQ(result.row_count, whole);
  });
}

TEST(HostilePeer, ThatResetsAtAnyOffsetEndsTheCollectionWithThatError) {
  const LogCapture quiet(kSilent);
  const Bytes stream = TwoReplies();
  Hostile hostile(Queries(stream.size()), [&](PeerConnection& c, std::size_t query) {
    c.Send(Head(stream, Offset(query, stream.size())));
    c.Reset();
  });
  hostile.Run([&](std::size_t query, const ResultSet& result) {
    const int whole = WholeIn(Offset(query, stream.size()));
    EXPECT_EQ(result.error_code, ECONNRESET);
    EXPECT_EQ(result.answers_received, whole);
    EXPECT_EQ(result.row_count, whole);
  });
}

TEST(HostilePeer, ThatHalfClosesAtAnyOffsetEndsTheCollectionThoughItStillListens) {
  const LogCapture quiet(kSilent);
  const Bytes stream = TwoReplies();
  Hostile hostile(Queries(stream.size()), [&](PeerConnection& c, std::size_t query) {
    c.Send(Head(stream, Offset(query, stream.size())));
    c.HalfClose();
    c.WaitForClose();
  });
  hostile.Run([&](std::size_t query, const ResultSet& result) {
    const int whole = WholeIn(Offset(query, stream.size()));
    EXPECT_EQ(result.error_code, 0);
    EXPECT_EQ(result.answers_received, whole);
  });
}

// AfterConnecting makes connecting wait until the peer has done what it does at once. A peer that
// resets waits for the call to succeed, which otherwise fails itself when the reset comes first.
class AfterConnecting : public ConnectHook {
 public:
  explicit AfterConnecting(short awaited)
      : ConnectHook(
            [this, awaited](int fd, const sockaddr* address, socklen_t len) -> std::optional<int> {
              const int result = connect(fd, address, len);
              connected_.release();
              pollfd arrived = {fd, awaited, 0};
              EXPECT_EQ(poll(&arrived, 1, 20000), 1);
              return result;
            }) {}

  // For the peer, once for each connection.
  void Await() { EXPECT_TRUE(connected_.try_acquire_for(std::chrono::seconds(20))); }

 private:
  std::counting_semaphore<> connected_{0};
};

TEST(HostilePeer, ThatClosesAndResetsBeforeTheQueryIsSentKillsNobody) {
  constexpr std::size_t kQueries = 20 * kTimes;
  Note() << kQueries << " times\n";
  const NoSignal no_signal;
  AfterConnecting after_reset(0);  // errors and hang-ups are always awaited
  ScriptedPeer peer(
      [&](PeerConnection& c) {
        after_reset.Await();
        c.HalfClose();
        c.Reset();
      },
      kQueries);
  const NoLeak no_leak;
  Asking asking(peer.port());
  for (std::size_t i = 0; i < kQueries; ++i) {
    const LogCapture log(kWarn);
    ASSERT_EQ(asking.Execute(), kAskingSize + 1);
    EXPECT_EQ(log.lines().size(), 2u);
    EXPECT_TRUE(log.HasMatch(kError, "^voltaris_execQuery: send failed -1, errno = (32|104)$"));
    EXPECT_TRUE(log.Has(kWarn, "voltaris_execQuery: sent -1 bytes of pdu size 137"));
    // The application may collect all the same, and finds the end of the connection.
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->error_code, 0);
    EXPECT_EQ(asking.result->answers_received, 0);
    asking.Renew();
  }
  EXPECT_TRUE(peer.Join());
}

TEST(HostilePeer, ThatOnlyResetsBeforeTheQueryIsSentKillsNobody) {
  constexpr std::size_t kQueries = 20 * kTimes;
  Note() << kQueries << " times\n";
  const NoSignal no_signal;
  AfterConnecting after_reset(0);
  ScriptedPeer peer(
      [&](PeerConnection& c) {
        after_reset.Await();
        c.Reset();
      },
      kQueries);
  const NoLeak no_leak;
  Asking asking(peer.port());
  for (std::size_t i = 0; i < kQueries; ++i) {
    const LogCapture log(kWarn);
    ASSERT_EQ(asking.Execute(), kAskingSize + 1);
    EXPECT_EQ(log.lines(), (Lines{{kError, "voltaris_execQuery: send failed -1, errno = 104"},
                                  {kWarn, "voltaris_execQuery: sent -1 bytes of pdu size 137"}}));
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->answers_received, 0);
    asking.Renew();
  }
  EXPECT_TRUE(peer.Join());
}

TEST(HostilePeer, ThatClosesBeforeTheQueryIsSentGivesAnEmptyResult) {
  constexpr std::size_t kQueries = 20 * kTimes;
  Note() << kQueries << " times\n";
  const LogCapture quiet(kSilent);
  const NoSignal no_signal;
  ScriptedPeer peer([](PeerConnection&) {}, kQueries);
  const AfterConnecting after_close(POLLIN);
  const NoLeak no_leak;
  Asking asking(peer.port());
  for (std::size_t i = 0; i < kQueries; ++i) {
    ASSERT_EQ(asking.Execute(), 0);
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->error_code, 0);
    EXPECT_EQ(asking.result->answers_received, 0);
    asking.Renew();
  }
  EXPECT_TRUE(peer.Join());
}

// An urgent byte is no part of the stream, but reads stop short before it.
TEST(HostilePeer, ThatSendsUrgentBytesAtAnyOffsetLosesNothing) {
  const LogCapture quiet(kSilent);
  const Bytes stream = TwoReplies();
  Hostile hostile(stream.size() + 1, [&](PeerConnection& c, std::size_t size) {
    c.Send(Head(stream, size));
    if (send(c.fd(), "!", 1, MSG_OOB | MSG_NOSIGNAL) != 1) throw PeerError("no urgent byte");
    c.Send(Bytes(stream.begin() + static_cast<std::ptrdiff_t>(size), stream.end()));
  });
  hostile.Run([&](std::size_t, const ResultSet& result) {
    EXPECT_EQ(result.error_code, 0);
    EXPECT_EQ(result.answers_received, 2);
  });
  Note() << stream.size() + 1 << " offsets\n";
}

TEST(HostilePeer, ThatSendsGarbageIsNeverBelieved) {
  const LogCapture quiet(kSilent);
  constexpr std::size_t kStreams = 100 * kTimes;
  Note() << kStreams << " streams\n";
  std::mt19937 random(20240229);
  std::vector<Bytes> streams;
  for (std::size_t i = 0; i < kStreams; ++i) {
    Bytes garbage(1 + random() % 4000);
    for (std::uint8_t& byte : garbage) byte = static_cast<std::uint8_t>(random());
    // Every other one keeps as much in order as takes it further: the first header, and a size.
    if (i % 2 == 1 && garbage.size() >= kTlvAreaOffset) {
      const Bytes good = UsageReply("lamp", 1, 11);
      std::copy_n(good.begin(), kDigestOffset, garbage.begin());
      garbage[kTlvBytesOffset] = static_cast<std::uint8_t>(i % 6);
      garbage[kTlvCountOffset] = 0;
    }
    streams.push_back(garbage);
  }
  Hostile hostile(kStreams, [&](PeerConnection& c, std::size_t i) {
    try {
      c.Send(streams[i]);
    } catch (const PeerError&) {
      // The collection need not hear it out.
    }
  });
  hostile.Run([&](std::size_t, const ResultSet& result) {
    EXPECT_EQ(result.answers_received, 0);
    EXPECT_EQ(result.answers_pending, 0);
    EXPECT_EQ(result.row_count, 0);
    EXPECT_EQ(result.ack_count, 0);
    EXPECT_EQ(result.nak_count, 0);
    EXPECT_EQ(result.events.depth, 0);
    EXPECT_EQ(result.domain, nullptr);
  });
}

TEST(HostilePeer, ThatLiesAboutLengthsIsReadAsItSaysOrNotAtAll) {
  const std::uint16_t lengths[] = {0,     1,     2,     17,    18,    19,   20,   21,
                                   1300,  1319,  1320,  1321,  1322,  1337, 1340, 1341,
                                   32767, 32768, 65532, 65533, 65534, 65535};
  std::size_t pairs = 0;
  const Bytes good = UsageReply("fan", 2, 22);
  for (const std::uint16_t header : lengths) {
    for (const std::uint16_t payload : lengths) {
      SCOPED_TRACE(std::to_string(header) + " and " + std::to_string(payload));
      const std::size_t field = (header + 3u) / 4 * 4;
      const std::size_t size = field + 60 + payload;
      const bool refused = size > 1400;
      PduImage image = ReplyWith({Bytes(payload, 0)});
      image.digest_len = header;
      image.tlv_count = 0;
      const Bytes wire = SignedReply(image);
      Bytes digest(wire.begin() + kDigestOffset, wire.begin() + kMessageHeaderOffset);
      digest.resize(field);
      const Bytes rest(wire.begin() + kMessageHeaderOffset, wire.end());
      const LogCapture log(kDebug);
      // A refused message need not be there: the reader must not wait for it.
      const Bytes lie = Head(wire, kDigestOffset) + digest +
                        Head(rest, refused ? kTlvAreaOffset - kMessageHeaderOffset : rest.size());
      CollectFrom(
          lie + good,
          [&](const ResultSet& result) {
            if (refused) {
              EXPECT_EQ(result.answers_received, 0);
              EXPECT_TRUE(
                  log.Has(kDebug,
                          "vtn_read_tcp_message: Incoming packet exceeds Voltaris max packet "
                          "size, dropping packet"));
              EXPECT_TRUE(log.Has(
                  kWarn, "vtn_queryLoop: no response read:  " + NumberAndText(result.error_code)));
              EXPECT_EQ(result.row_count, 0);
              EXPECT_EQ(From(log, "vtn_processReply"), Lines{}) << "it was not read at all";
              return;
            }
            // With the right length of the digest it is a good message, if an empty one.
            EXPECT_EQ(result.answers_received, header == 20 ? 2 : 1);
            EXPECT_EQ(result.error_code, 0);
            EXPECT_EQ(result.row_count, 1);
            EXPECT_EQ(log.Count(kDebug, "vtn_processReply: Error while unpacking, error_code=5"),
                      header == 20 ? 0u : 1u);
          },
          1);
      if (HasFailure()) return;
      ++pairs;
    }
  }
  Note() << pairs << " pairs of lengths\n";
}

// No count limits what is taken.
TEST(HostilePeer, ThatSendsAHundredThousandValidRepliesIsHeardOut) {
  const LogCapture quiet(kSilent);
  constexpr int kReplies = 100000;
  Note() << kReplies << " replies\n";
  Bytes many;
  for (int i = 0; i < 100; ++i) many = std::move(many) + UsageReply("lamp", 1, 11);
  Hostile hostile(1, [&](PeerConnection& c, std::size_t) {
    for (int i = 0; i < kReplies / 100; ++i) c.Send(many);
  });
  hostile.Run([&](std::size_t, const ResultSet& result) {
    EXPECT_EQ(result.error_code, 0);
    EXPECT_EQ(result.answers_received, kReplies);
    EXPECT_EQ(result.answers_pending, -kReplies);
    EXPECT_EQ(result.events.depth, kReplies);
    EXPECT_EQ(result.row_count, 1);
  });
}

TEST(HostilePeer, ThatRepliesToAnotherQueryIsBelievedOnlyWithTheKey) {
  const LogCapture quiet(kSilent);
  PduImage other = ReplyWith({Aggregate(13, "lamp", {Entry(1, {0, 11})})});
  other.seq = 0xFFFFFFFF;
  other.identity = Bytes(32, 'z');
  PduImage sum = other;
  sum.cls = 11;
  sum.action = 10;
  PduImage unknown = other;
  unknown.cls = 14;
  // Deliberate: neither number nor sender nor kind of query is compared, only the signature.
  const Bytes answer = SignedReply(other) + SignedReply(sum) + SignedReply(unknown) +
                       other.Signed(Bytes(20, 7)) + sum.Unsigned();
  CollectFrom(answer, [](const ResultSet& result) {
    EXPECT_EQ(result.error_code, 0);
    EXPECT_EQ(result.answers_received, 2);
    EXPECT_EQ(result.events.depth, 3);
    EXPECT_EQ(result.row_count, 1);
  });
  Note() << "5 messages, " << kTimes << " times\n";
}

// Elements of 12 bytes have no value: of every type there is and some there are not.
std::vector<Bytes> ElementsOf12Bytes() {
  std::vector<Bytes> elements;
  for (const std::uint32_t flags : {0x00000000u, 0x40000000u, 0x80000000u, 0xC0000000u}) {
    for (std::uint32_t type = 0; type < 64; ++type) {
      elements.push_back(Element(flags | type, 0, {}));
    }
    elements.push_back(Element(flags | 0x3FFFFFFFu, 1, {}));
  }
  return elements;
}

TEST(HostilePeer, ThatSendsElementsOf12BytesOfEveryTypeMakesNoRows) {
  const LogCapture quiet(kSilent);
  const std::vector<Bytes> elements = ElementsOf12Bytes();
  Bytes stream;
  int messages = 0;
  for (const std::int8_t shipment : {std::int8_t{1}, std::int8_t{-1}, std::int8_t{-2}}) {
    for (const Bytes& element : elements) {
      stream = std::move(stream) + SignedReply(ReplyWith({element}, shipment));
      ++messages;
    }
    // And many at once: 100 elements are 1280 bytes.
    for (std::size_t at = 0; at < elements.size(); at += 100) {
      const auto begin = elements.begin() + static_cast<std::ptrdiff_t>(at);
      const auto end =
          elements.begin() + static_cast<std::ptrdiff_t>(std::min(at + 100, elements.size()));
      stream = std::move(stream) + SignedReply(ReplyWith({begin, end}, shipment));
      ++messages;
    }
  }
  CollectFrom(stream, [&](const ResultSet& result) {
    EXPECT_EQ(result.error_code, 0);
    EXPECT_EQ(result.answers_received, messages);
    EXPECT_EQ(result.events.depth, static_cast<std::int32_t>(messages));
    EXPECT_EQ(result.row_count, 0);
    EXPECT_EQ(result.ack_count, 0);
    EXPECT_EQ(result.nak_count, 0);
    EXPECT_EQ(result.domain, nullptr);
  });
  Note() << messages << " messages, " << kTimes << " times\n";
}

TEST(HostilePeer, ThatSendsElementsOf12BytesAmongGoodOnesLosesOnlyThose) {
  const LogCapture quiet(kSilent);
  const Bytes lamp = Aggregate(13, "lamp", {Entry(1, {0, 11})});
  const Bytes fan = Aggregate(13, "fan", {Entry(2, {0, 22})});
  Bytes stream;
  int messages = 0;
  for (const Bytes& element : ElementsOf12Bytes()) {
    stream = std::move(stream) + SignedReply(ReplyWith({lamp, element, fan}));
    ++messages;
  }
  CollectFrom(stream, [&](const ResultSet& result) {
    EXPECT_EQ(result.error_code, 0);
    EXPECT_EQ(result.answers_received, messages);
    EXPECT_EQ(result.row_count, 2);
  });
  Note() << messages << " messages, " << kTimes << " times\n";
}

// The other kinds of queries fold what they get in other ways.
TEST(HostilePeer, ThatSendsElementsOf12BytesMakesNoRowsOfAnyKindOfQuery) {
  const LogCapture quiet(kSilent);
  for (auto* const create :
       {&voltaris_createCollectQuery, &voltaris_createSetQuery, &voltaris_createSumQuery}) {
    Collection collection({}, create);
    for (const Bytes& element : ElementsOf12Bytes()) {
      for (const std::int8_t shipment : {std::int8_t{1}, std::int8_t{-1}, std::int8_t{-2}}) {
        collection.Reply(ReplyWith({element}, shipment));
      }
    }
    EXPECT_EQ(collection.result()->answers_received,
              static_cast<std::int32_t>(3 * ElementsOf12Bytes().size()));
    EXPECT_EQ(voltaris_getRowCount(collection.result()), 0);
    EXPECT_EQ(voltaris_getNextRow(collection.result()), nullptr);
    EXPECT_EQ(voltaris_getAckCount(collection.result()), 0);
    EXPECT_EQ(voltaris_getNakCount(collection.result()), 0);
  }
}

// More entries than the few bytes behind can be, and numbers whose products with the size of an
// entry, of a pointer or of a record fit 32 bits again.
constexpr std::uint32_t kHostileCounts[] = {
    2,          3,          0x08000001, 0x0AAAAAAB, 0x0CCCCCCD, 0x10000000, 0x10000001,
    0x15555556, 0x20000001, 0x3FFFFFFF, 0x40000000, 0x40000001, 0x40000002, 0x55555556,
    0x7FFFFFFF, 0x80000000, 0x80000001, 0xC0000001, 0xFFFFFFFE, 0xFFFFFFFF};

// An element that holds the bytes of a single entry without a value, and claims more.
Bytes Claiming(std::uint32_t type, std::uint32_t count) {
  return Element(type, 0, DeviceHeader("lamp", DeviceAddress()) + U32(count) + U32(1));
}

TEST(HostilePeer, ThatClaimsMoreEntriesThanItSendsIsDroppedBeforeAnythingIsAllocatedForThem) {
  const LogCapture quiet(kSilent);
  Receiver receiver;
  std::size_t messages = 0;
  for (const std::uint32_t flags : {0x80000000u, 0xC0000000u}) {
    for (std::uint32_t type = 0; type < 52; ++type) {
      for (const std::uint32_t count : kHostileCounts) {
        for (const std::int8_t shipment : {std::int8_t{1}, std::int8_t{-1}, std::int8_t{-2}}) {
          SCOPED_TRACE(std::to_string(type) + " with " + std::to_string(count));
          const Bytes wire = SignedReply(ReplyWith({Claiming(flags | type, count)}, shipment));
          const Bytes empty = receiver.Record();
          const AllocationCount count_allocations;
          receiver.Process(wire);
          EXPECT_LT(count_allocations.bytes(), 2000u);
          EXPECT_EQ(receiver.Record(), empty);
          if (HasFailure()) return;
          ++messages;
        }
      }
    }
  }
  Note() << messages << " messages dropped\n";
}

TEST(HostilePeer, WithHostileEntryCountsDoesNotSpoilTheGoodReplyBehind) {
  const LogCapture quiet(kSilent);
  Bytes stream;
  int messages = 0;
  for (const std::uint32_t flags : {0x80000000u, 0xC0000000u}) {
    for (std::uint32_t type = 0; type < 52; ++type) {
      for (const std::uint32_t count : kHostileCounts) {
        // Behind one that is good, too: a message is taken whole or not at all.
        stream = std::move(stream) + SignedReply(ReplyWith({Claiming(flags | type, count)}, -1)) +
                 SignedReply(ReplyWith(
                     {Aggregate(13, "lamp", {Entry(1, {0, 11})}), Claiming(flags | type, count)}));
        messages += 2;
      }
    }
  }
  Hostile hostile(kTimes, [&](PeerConnection& c, std::size_t) {
    c.Send(stream);
    c.Send(UsageReply("fan", 2, 22));
  });
  hostile.Run([](std::size_t, const ResultSet& result) {
    EXPECT_EQ(result.error_code, 0);
    EXPECT_EQ(result.answers_received, 1);
    EXPECT_EQ(result.answers_pending, -1);
    EXPECT_EQ(result.events.depth, 1);
    EXPECT_EQ(result.ack_count, 0);
    EXPECT_EQ(result.nak_count, 0);
    EXPECT_EQ(result.row_count, 1);
  });
  Note() << messages << " messages, " << kTimes << " times\n";
}

TEST(HostilePeer, ThatStaysSilentBetweenMessagesIsWaitedForOnce) {
  const LogCapture quiet(kSilent);
  constexpr std::size_t kMessages = 20;
  const Bytes one = UsageReply("lamp", 1, 11);
  // The peer speaks only after the collection has begun to wait.
  std::vector<std::promise<void>> waits(kMessages + 1);
  ScriptedPeer peer([&](PeerConnection& c) {
    c.ReadPdu();
    for (std::size_t i = 0; i <= kMessages; ++i) {
      waits[i].get_future().wait();
      if (i < kMessages) c.Send(one);
    }
  });
  Asking asking(peer.port());
  ASSERT_EQ(asking.Execute(), 0);
  std::size_t polls = 0;
  const PollHook hook([&](pollfd* fds, nfds_t count, int timeout) -> std::optional<int> {
    EXPECT_EQ(timeout, 180000);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(poll(fds, count, 0), 0) << "the peer is silent";
    if (polls < waits.size()) waits[polls].set_value();
    ++polls;
    return poll(fds, count, timeout);
  });
  ASSERT_NE(asking.Collect(), nullptr);
  EXPECT_EQ(asking.result->answers_received, static_cast<std::int32_t>(kMessages));
  EXPECT_EQ(asking.result->error_code, 0);
  EXPECT_EQ(polls, kMessages + 1);
}

// At every place of the stream where it may fall silent, the collecting thread sleeps in one call.
TEST(HostilePeer, ThatFallsSilentAtAnyOffsetFindsTheCollectionAsleep) {
  const LogCapture quiet(kSilent);
  const Bytes stream = TwoReplies();
  const WatchedThread watched;
  Hostile hostile(stream.size() + 1, [&](PeerConnection& c, std::size_t size) {
    c.Send(Head(stream, size));
    watched.AwaitSleep();
    c.Send(Bytes(stream.begin() + static_cast<std::ptrdiff_t>(size), stream.end()));
  });
  const PollHook polls([](pollfd*, nfds_t, int) { return std::nullopt; });
  const RecvfromHook reads(
      [](int, void*, std::size_t, int, sockaddr*, socklen_t*) { return std::nullopt; });
  std::size_t collections = 0;
  hostile.Run([&](std::size_t, const ResultSet& result) {
    EXPECT_EQ(result.error_code, 0);
    EXPECT_EQ(result.answers_received, 2);
    // Two messages and the end.
    ++collections;
    EXPECT_EQ(polls.calls(), 3 * collections);
    EXPECT_EQ(reads.calls(), 7 * collections);
  });
  Note() << collections << " offsets\n";
}

TEST(HostilePeer, ThatNeverSpeaksEndsTheCollectionWhenTheWaitIsOver) {
  ScriptedPeer peer([](PeerConnection& c) { c.WaitForClose(); }, kTimes);
  const NoLeak no_leak;
  Asking asking(peer.port());
  for (std::size_t i = 0; i < kTimes; ++i) {
    ASSERT_EQ(asking.Execute(), 0);
    // A millisecond instead of 180 seconds.
    const PollHook hook([](pollfd* fds, nfds_t count, int timeout) -> std::optional<int> {
      EXPECT_EQ(timeout, 180000);
      return poll(fds, count, 1);
    });
    const LogCapture log(kDebug);
    ASSERT_NE(asking.Collect(), nullptr);
    EXPECT_EQ(asking.result->error_code, VT_ERROR_TIMEOUT);
    EXPECT_EQ(hook.calls(), 1u);
    EXPECT_EQ(From(log, "vtn_queryLoop"),
              (Lines{{kDebug, "vtn_queryLoop: select() timout expired"}}));
    asking.Renew();
  }
  EXPECT_TRUE(peer.Join());
}

TEST(HostilePeer, ThatStaysSilentInsideAMessageIsReadInThreeBlockingCalls) {
  const LogCapture quiet(kSilent);
  const Bytes one = UsageReply("lamp", 1, 11);
  // Each further part comes only once the collection asks for it.
  std::vector<std::promise<void>> reads(4);
  const std::size_t ends[] = {5, 40, 100, one.size()};
  ScriptedPeer peer([&](PeerConnection& c) {
    c.ReadPdu();
    std::size_t sent = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      if (i > 0) reads[i - 1].get_future().wait();
      c.Send(Bytes(one.begin() + static_cast<std::ptrdiff_t>(sent),
                   one.begin() + static_cast<std::ptrdiff_t>(ends[i])));
      sent = ends[i];
    }
  });
  Asking asking(peer.port());
  ASSERT_EQ(asking.Execute(), 0);
  std::size_t calls = 0;
  const PollHook polls([](pollfd*, nfds_t, int) { return std::nullopt; });
  const RecvfromHook hook(
      [&](int, void*, std::size_t, int flags, sockaddr*, socklen_t*) -> std::optional<ssize_t> {
        EXPECT_EQ(flags, MSG_WAITALL);
        if (calls < reads.size()) reads[calls].set_value();
        ++calls;
        return std::nullopt;
      });
  ASSERT_NE(asking.Collect(), nullptr);
  EXPECT_EQ(asking.result->answers_received, 1);
  EXPECT_EQ(asking.result->error_code, 0);
  EXPECT_EQ(calls, 4u);  // three for the message, one for the end
  EXPECT_EQ(polls.calls(), 2u);
}

}  // namespace
