// Collecting replies: what begins and ends a collection, and what becomes of each message. The
// exchanges with a peer stand in exchange_test.cc; here system calls and messages are made up.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/guard.h"
#include "tests/harness/peer.h"

namespace {

using namespace vt::testing;

LogLine Loop(std::uint32_t level, const std::string& message) {
  return {level, "vtn_queryLoop: " + message};
}
LogLine Reply(std::uint32_t level, const std::string& message) {
  return {level, "vtn_processReply: " + message};
}
LogLine Results(std::uint32_t level, const std::string& message) {
  return {level, "voltaris_queryResults: " + message};
}

// A reply with one usage value for entity 5 of device "lamp".
PduImage Usage() { return ReplyWith({Aggregate(13, "lamp", {Entry(5, {0x12, 0x34})})}); }

PduImage AckReply(std::int8_t shipment, const std::vector<Bytes>& entries) {
  return ReplyWith({Aggregate(42, "lamp", entries)}, shipment);
}

// An executed query as collection finds it, on a descriptor of the test's choice.
class Executed {
 public:
  explicit Executed(int fd) : session_(LoopbackSession(7440)) {
    query_.reset(voltaris_createCollectQuery("office", 7));
    EXPECT_EQ(voltaris_addGetAttribute(query_.get(), 8), 0);
    EXPECT_EQ(voltaris_addGetAttribute(query_.get(), 4), 0);
    BindAsExecuted(query_.get(), session_.get());
    session_->descriptor = fd;
  }
  ~Executed() { query_->session = nullptr; }
  Executed(const Executed&) = delete;
  Executed& operator=(const Executed&) = delete;

  Session* session() { return session_.get(); }
  Query* query() { return query_.get(); }
  ResultPtr Collect() { return ResultPtr(voltaris_queryResults(session(), query())); }

 private:
  SessionPtr session_;
  QueryPtr query_;
};

// Waits and reads that a test feeds. Every wait takes the next of the given results; a read error
// or the end of the stream ends the collection.
struct Wait {
  int result;
  int error = 0;
  short revents = POLLIN;
};

class Feed {
 public:
  Feed(std::initializer_list<Wait> waits)
      : waits_(waits), poll_([this](pollfd* fds, nfds_t count, int timeout) {
          return Next(fds, count, timeout);
        }) {}

  std::size_t waits() const { return poll_.calls(); }

 private:
  std::optional<int> Next(pollfd* fds, nfds_t count, int timeout) {
    EXPECT_EQ(count, 1u);
    EXPECT_NE(fds[0].events & POLLIN, 0);
    EXPECT_EQ(timeout, 180000);
    if (waits_.empty()) {
      ADD_FAILURE() << "one wait too many";
      errno = EINVAL;
      return -1;
    }
    const Wait wait = waits_.front();
    waits_.pop_front();
    fds[0].revents = wait.result > 0 ? wait.revents : short{0};
    errno = wait.error;
    return wait.result;
  }

  std::deque<Wait> waits_;
  PollHook poll_;
};

TEST(QueryResults, OfAQueryThatCouldNotBeSentIsNull) {
  Executed executed(-1);
  const LogCapture log(kTrace);
  EXPECT_EQ(voltaris_queryResults(executed.session(), executed.query()), nullptr);
  EXPECT_EQ(log.lines(),
            (Lines{Results(kError, "Query failed to execute, no results available.")}));
}

TEST(QueryResults, OfAFreshSessionIsNullAndDoesNotReadStandardInput) {
  // The descriptor of a fresh session is 0, which is somebody else's.
  const SessionPtr session = LoopbackSession(7440);
  const QueryPtr query(voltaris_createCollectQuery("office", 7));
  ASSERT_EQ(session->descriptor, 0);
  const PollHook polls([](pollfd*, nfds_t, int) { return std::optional(0); });
  const RecvfromHook reads([](int, void*, std::size_t, int, sockaddr*, socklen_t*) {
    return std::optional<ssize_t>(0);
  });
  const LogCapture log(kTrace);
  EXPECT_EQ(voltaris_queryResults(session.get(), query.get()), nullptr);
  EXPECT_EQ(log.lines(),
            (Lines{Results(kError, "Query failed to execute, no results available.")}));
  EXPECT_EQ(polls.calls() + reads.calls(), 0u);
}

TEST(QueryResults, RefusesNoOtherDescriptor) {
  {
    // A process without standard input connects on descriptor 0.
    Executed executed(0);
    Feed feed{{0}};
    const ResultPtr result = executed.Collect();
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(voltaris_getErrorCode(result.get()), 10);
  }
  {
    Executed executed(-5);
    const ResultPtr result = executed.Collect();
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(voltaris_getErrorCode(result.get()), EBADF);
  }
}

TEST(QueryResults, WithoutMemoryForTheResultIsNull) {
  Executed executed(1000);
  const LogCapture log(kDebug);
  const AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(voltaris_queryResults(executed.session(), executed.query()), nullptr);
  EXPECT_EQ(log.lines(), (Lines{Results(kFatal, "out of memory")}));
}

TEST(QueryResults, WithoutMemoryForAnArrayReadsNothing) {
  for (const std::size_t allocation : {1u, 2u}) {
    Executed executed(1000);
    const PollHook polls([](pollfd*, nfds_t, int) { return std::optional(0); });
    const LogCapture log(kDebug);
    const FillAllocations fill;
    AllocationFault fault = AllocationFault::Nth(allocation);
    const ResultPtr result = executed.Collect();
    fault.Disarm();
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(voltaris_getErrorCode(result.get()), 12);
    EXPECT_EQ(voltaris_getAckCount(result.get()), 0);
    EXPECT_EQ(voltaris_getNakCount(result.get()), 0);
    EXPECT_EQ(voltaris_getNextRow(result.get()), nullptr);
    EXPECT_EQ(polls.calls(), 0u);
    EXPECT_EQ(log.lines(), (Lines{Results(kFatal, "out of memory")}));
  }
}

TEST(QueryResults, BeginsWithAnEmptyResult) {
  Executed executed(1000);
  const FillAllocations fill;
  Feed feed{{0}};
  const LogCapture log(kDebug);
  const ResultPtr result = executed.Collect();
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result->rows.head, nullptr);
  EXPECT_EQ(result->rows.depth, 0);
  EXPECT_EQ(result->events.head, nullptr);
  EXPECT_EQ(result->events.depth, 0);
  EXPECT_EQ(result->domain, nullptr);
  EXPECT_EQ(result->query, executed.query());
  // Usage has a units column behind it.
  EXPECT_EQ(result->expected, 3);
  EXPECT_EQ(result->row_count, 0);
  EXPECT_EQ(result->answers_pending, 0);
  EXPECT_EQ(result->answers_received, 0);
  EXPECT_EQ(result->device_cursor, nullptr);
  EXPECT_EQ(result->entity_cursor, nullptr);
  EXPECT_EQ(result->flag, 0);
  EXPECT_NE(result->acks, nullptr);
  EXPECT_NE(result->naks, nullptr);
  if (sizeof(void*) == 4) {
    std::int32_t expected = 0;
    std::memcpy(&expected, reinterpret_cast<const char*>(result.get()) + 60, sizeof expected);
    EXPECT_EQ(expected, 3);
  }
}

TEST(QueryResults, AllocatesRoomFor1028AcknowledgementsOfEachKind) {
  Executed executed(1000);
  Feed feed{{0}};
  const AllocationCount count;
  const ResultPtr result = executed.Collect();
  EXPECT_EQ(count.allocations(), 3u);
  EXPECT_EQ(count.bytes(), 216u + 2 * 37008);
}

TEST(QueryResults, LogsTheCountsAndThatItSorts) {
  Executed executed(1000);
  Feed feed{{0}};
  const LogCapture log(kDebug);
  const ResultPtr result = executed.Collect();
  EXPECT_EQ(log.lines(), (Lines{Loop(kDebug, "select() timout expired"),
                                Results(kDebug, "ACK 0/NAK 0 ans pending=0 ans received=0"),
                                Results(kDebug, "sorting ACK/NAK results")}));
}

TEST(QueryLoop, Waits180SecondsAndStopsWithErrorCode10) {
  // Whatever time-out the query itself carried.
  Executed executed(1000);
  Feed feed{{0}};
  const LogCapture log(kDebug);
  const ResultPtr result = executed.Collect();
  EXPECT_EQ(voltaris_getErrorCode(result.get()), 10);
  EXPECT_EQ(feed.waits(), 1u);
  EXPECT_EQ(From(log, "vtn_queryLoop"), (Lines{Loop(kDebug, "select() timout expired")}));
}

TEST(QueryLoop, WaitsAgainAfterAnInterruption) {
  Executed executed(1000);
  Feed feed{{-1, EINTR}, {-1, ENOMEM}, {-1, EAGAIN}, {0}};
  const LogCapture log(kWarn);
  const ResultPtr result = executed.Collect();
  EXPECT_EQ(log.lines(),
            (Lines{Loop(kWarn,
                        "unexpected read status value -1, error: 4(Interrupted system "
                        "call)"),
                   Loop(kWarn,
                        "unexpected read status value -1, error: 12(Cannot allocate "
                        "memory)"),
                   Loop(kWarn,
                        "unexpected read status value -1, error: 11(Resource temporarily "
                        "unavailable)")}));
  EXPECT_EQ(feed.waits(), 4u);
  EXPECT_EQ(voltaris_getErrorCode(result.get()), 10);
}

TEST(QueryLoop, WaitsAgainWhenTheDescriptorIsNotReady) {
  Executed executed(1000);
  // Whatever error number stands about from earlier.
  Feed feed{{1, EAGAIN, 0}, {1, EBADF, 0}, {0}};
  const LogCapture log(kWarn);
  const ResultPtr result = executed.Collect();
  EXPECT_EQ(log.lines(),
            (Lines{Loop(kWarn,
                        "unexpected read status value 1, error: 11(Resource temporarily "
                        "unavailable)"),
                   Loop(kWarn, "unexpected read status value 1, error: 9(Bad file descriptor)")}));
  EXPECT_EQ(voltaris_getErrorCode(result.get()), 10);
}

TEST(QueryLoop, StopsWhenItCanWaitNoMore) {
  const struct {
    int error;
    const char* line;
  } kCases[] = {{EBADF, "unexpected read status value -1, error: 9(Bad file descriptor)"},
                {EINVAL, "unexpected read status value -1, error: 22(Invalid argument)"}};
  for (const auto& row : kCases) {
    Executed executed(1000);
    Feed feed{{-1, row.error}};
    const LogCapture log(kInfo);
    const ResultPtr result = executed.Collect();
    EXPECT_EQ(log.lines(), (Lines{Loop(kWarn, row.line)}));
    EXPECT_EQ(voltaris_getErrorCode(result.get()), row.error);
  }
}

TEST(QueryLoop, OfADescriptorThatIsNotOpenReturnsAtOnce) {
  const int closed = dup(0);
  close(closed);
  // poll itself would sleep on a negative one.
  for (const int fd : {closed, -2, INT32_MIN}) {
    Executed executed(fd);
    const LogCapture log(kInfo);
    const ResultPtr result = executed.Collect();
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(log.lines(), (Lines{Loop(kWarn,
                                       "unexpected read status value -1, error: 9(Bad file "
                                       "descriptor)")}));
    EXPECT_EQ(voltaris_getErrorCode(result.get()), 9);
  }
}

TEST(QueryLoop, TakesAHangUpOrAnErrorForReady) {
  for (const short revents : {short{POLLHUP}, short{POLLERR}, short{POLLIN | POLLHUP}}) {
    Executed executed(1000);
    Feed feed{{1, 0, revents}};
    const RecvfromHook reads([](int fd, void*, std::size_t, int flags, sockaddr*, socklen_t*) {
      EXPECT_EQ(fd, 1000);
      EXPECT_EQ(flags, MSG_WAITALL);
      return std::optional<ssize_t>(0);
    });
    const LogCapture log(kDebug);
    const ResultPtr result = executed.Collect();
    EXPECT_EQ(From(log, "vtn_queryLoop"), (Lines{Loop(kDebug, "bytes read 0")}));
    EXPECT_EQ(voltaris_getErrorCode(result.get()), 0);
  }
}

TEST(QueryLoop, StoresTheErrorNumberOfAFailedRead) {
  Executed executed(1000);
  Feed feed{{1}};
  const RecvfromHook fails([](int, void*, std::size_t, int, sockaddr*, socklen_t*) {
    errno = ECONNRESET;
    return std::optional<ssize_t>(-1);
  });
  const LogCapture log(kTrace);
  // TRACE lines stand between the read and the code that stores the number.
  const SpoilErrno spoil;
  const ResultPtr result = executed.Collect();
  EXPECT_EQ(voltaris_getErrorCode(result.get()), 104);
  // Two blanks, as written.
  EXPECT_EQ(From(log, "vtn_queryLoop"),
            (Lines{Loop(kWarn, "no response read:  104(Connection reset by peer)")}));
}

TEST(QueryLoop, OfAnOverSizeMessageStoresWhateverErrorNumberThereWas) {
  PduImage image;
  image.tlv_bytes = 1321;  // with 80 bytes of headers, one too many
  const Bytes wire = image.Unsigned();
  Executed executed(1000);
  Feed feed{{1, 42}};
  std::size_t at = 0;
  const RecvfromHook reads([&](int, void* data, std::size_t len, int, sockaddr*, socklen_t*) {
    std::memcpy(data, wire.data() + at, len);
    at += len;
    errno = 42;
    return std::optional<ssize_t>(static_cast<ssize_t>(len));
  });
  const LogCapture log(kDebug);
  const ResultPtr result = executed.Collect();
  EXPECT_EQ(at, 80u);
  EXPECT_EQ(voltaris_getErrorCode(result.get()), 42);
  EXPECT_TRUE(log.Has(kDebug,
                      "vtn_read_tcp_message: Incoming packet exceeds Voltaris max packet "
                      "size, dropping packet"));
  EXPECT_EQ(From(log, "vtn_queryLoop"),
            (Lines{Loop(kWarn, "no response read:  42(" + std::string(std::strerror(42)) + ")")}));
}

TEST(QueryLoop, RefusesACountAboveItsBuffer) {
  // The reader never gives one; the loop does not take its word for it.
  PduImage image = ReplyWith({Element(8, 0, Text("lab"))});
  const Bytes wire = image.Signed(SessionKey());
  Executed executed(1000);
  Feed feed{{1}, {0}};
  std::size_t at = 0;
  const RecvfromHook reads([&](int, void* data, std::size_t len, int, sockaddr*, socklen_t*) {
    std::memcpy(data, wire.data() + at, len);
    at += len;
    return std::optional<ssize_t>(at < wire.size() ? static_cast<ssize_t>(len) : 5000);
  });
  const LogCapture log(kInfo);
  const ResultPtr result = executed.Collect();
  EXPECT_EQ(log.lines(),
            (Lines{Loop(kError,
                        "Dropping packet from 0.0.0.0, size exceeds maximum threshold.  "
                        "Expected max:  1400 bytes, Actual size:  5080 bytes")}));
  EXPECT_EQ(result->answers_received, 0);
  EXPECT_EQ(voltaris_getErrorCode(result.get()), 10);
}

TEST(ProcessReply, CountsKeepsAndFoldsAnAnswer) {
  Collection c({8});
  const LogCapture log(kTrace);
  c.Reply(Usage());
  EXPECT_EQ(From(log, "vtn_processReply"),
            (Lines{Reply(kTrace, "process reply class=10 action=11")}));
  EXPECT_EQ(c.result()->answers_received, 1);
  EXPECT_EQ(c.result()->answers_pending, -1);
  EXPECT_EQ(c.result()->events.depth, 1);
  EXPECT_EQ(voltaris_getRowCount(c.result()), 1);
}

TEST(ProcessReply, KeepsMessagesInTheOrderOfTheirArrival) {
  Collection c({8});
  for (const std::uint32_t seq : {7u, 3u, 5u}) {
    PduImage image = Usage();
    image.seq = seq;
    c.Reply(image);
  }
  std::vector<std::uint32_t> order;
  for (const queue_element* e = c.result()->events.head; e != nullptr; e = e->next) {
    order.push_back(reinterpret_cast<const Event*>(e)->pak->seq);
  }
  EXPECT_EQ(order, (std::vector<std::uint32_t>{7, 3, 5}));
}

TEST(ProcessReply, AcceptsTheseClassesAndActionsAndNoOthers) {
  const struct {
    std::uint8_t cls;
    std::uint16_t action;
    bool accepted;
  } kCases[] = {{10, 9, false},
                {10, 10, true},
                {10, 11, true},
                {10, 12, false},
                {10, 13, false},
                // Deliberate: 14 is accepted although the named actions stop at 13.
                {10, 14, true},
                {10, 15, false},
                {10, 266, false},
                {11, 9, false},
                {11, 10, true},
                {11, 11, true},
                {11, 12, true},
                {11, 13, true},
                {11, 14, false},
                {12, 10, false},
                {13, 10, false},
                {14, 11, false},
                {0, 0, false},
                {255, 65535, false}};
  for (const auto& row : kCases) {
    SCOPED_TRACE(std::to_string(row.cls) + ", " + std::to_string(row.action));
    Collection c({8});
    PduImage image = Usage();
    image.cls = row.cls;
    image.action = row.action;
    const std::string numbers =
        "class=" + std::to_string(row.cls) + " action=" + std::to_string(row.action);
    const LogCapture log(kTrace);
    c.Reply(image);
    Lines expected = {Reply(kTrace, "process reply " + numbers)};
    if (!row.accepted) expected.push_back(Reply(kWarn, "unexpected response " + numbers));
    EXPECT_EQ(From(log, "vtn_processReply"), expected);
    EXPECT_EQ(c.result()->answers_received, row.accepted ? 1 : 0);
    EXPECT_EQ(c.result()->answers_pending, row.accepted ? -1 : 0);
    EXPECT_EQ(voltaris_getRowCount(c.result()), row.accepted ? 1 : 0);
    EXPECT_EQ(c.result()->events.depth, 1);
  }
}

TEST(ProcessReply, FoldsMessagesOfEveryShipmentThatIsNotNegative) {
  for (const std::int8_t shipment :
       {std::int8_t{0}, std::int8_t{1}, std::int8_t{2}, std::int8_t{127}}) {
    Collection c({8});
    PduImage image = Usage();
    image.shipment = static_cast<std::uint8_t>(shipment);
    c.Reply(image);
    EXPECT_EQ(c.result()->answers_received, 1);
    EXPECT_EQ(voltaris_getRowCount(c.result()), 1);
  }
}

TEST(ProcessReply, KeepsOtherNegativeShipmentsWithoutCountingThem) {
  for (const std::int8_t shipment :
       {std::int8_t{-3}, std::int8_t{-4}, std::int8_t{-5}, std::int8_t{-128}}) {
    Collection c({8});
    PduImage image = AckReply(shipment, {Entry(1), Entry(2)});
    image.elements.push_back(Usage().elements[0]);
    const LogCapture log(kTrace);
    c.Reply(image);
    EXPECT_EQ(From(log, "vtn_processReply"), Lines{});
    EXPECT_EQ(c.result()->events.depth, 1);
    EXPECT_EQ(voltaris_getAckCount(c.result()), 0);
    EXPECT_EQ(voltaris_getNakCount(c.result()), 0);
    EXPECT_EQ(c.result()->answers_pending, 0);
    EXPECT_EQ(c.result()->answers_received, 0);
    EXPECT_EQ(voltaris_getRowCount(c.result()), 0);
  }
}

TEST(ProcessReply, AnAcknowledgementWithAnAcceptedActionIsAlsoAnAnswer) {
  // Deliberate: counted as pending by the one path and as received by the other; each entity
  // that is not 0 becomes an empty row.
  Collection c({8});
  c.Reply(AckReply(-1, {Entry(5), Entry(0)}));
  EXPECT_EQ(voltaris_getAckCount(c.result()), 2);
  EXPECT_EQ(voltaris_getRowCount(c.result()), 1);
  EXPECT_EQ(c.result()->answers_received, 1);
  EXPECT_EQ(c.result()->answers_pending, 0);
  ResultRow* const row = voltaris_getNextRow(c.result());
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->entity_index, 5u);
  EXPECT_EQ(row->attributes->depth, 0);
}

TEST(ProcessReply, ARefusalWithAnAcceptedActionIsAlsoAnAnswer) {
  Collection c({8});
  c.Reply(AckReply(-2, {Entry(5), Entry(0)}));
  EXPECT_EQ(voltaris_getNakCount(c.result()), 2);
  EXPECT_EQ(voltaris_getAckCount(c.result()), 0);
  EXPECT_EQ(voltaris_getRowCount(c.result()), 1);
  EXPECT_EQ(c.result()->answers_received, 1);
  EXPECT_EQ(c.result()->answers_pending, -1);
}

TEST(ProcessReply, AcknowledgementsOfSetAndSumQueriesMakeNoRows) {
  for (const auto create : {&voltaris_createSetQuery, &voltaris_createSumQuery}) {
    Collection c({8}, create);
    c.Reply(AckReply(-1, {Entry(5)}));
    EXPECT_EQ(voltaris_getAckCount(c.result()), 1);
    EXPECT_EQ(voltaris_getRowCount(c.result()), 0);
    EXPECT_EQ(c.result()->answers_received, 1);
  }
}

TEST(ProcessReply, AnAcknowledgementOfAnotherClassIsCountedAsThatOnly) {
  Collection c({8});
  PduImage image = AckReply(-1, {Entry(5)});
  image.cls = 13;
  const LogCapture log(kWarn);
  c.Reply(image);
  EXPECT_EQ(log.lines(), (Lines{Reply(kWarn, "unexpected response class=13 action=11")}));
  EXPECT_EQ(voltaris_getAckCount(c.result()), 1);
  EXPECT_EQ(c.result()->answers_pending, 1);
  EXPECT_EQ(c.result()->answers_received, 0);
  EXPECT_EQ(voltaris_getRowCount(c.result()), 0);
}

void ExpectNothing(Collection& c) {
  EXPECT_EQ(c.result()->events.depth, 0);
  EXPECT_EQ(c.result()->answers_received, 0);
  EXPECT_EQ(c.result()->answers_pending, 0);
  EXPECT_EQ(voltaris_getAckCount(c.result()), 0);
  EXPECT_EQ(voltaris_getNakCount(c.result()), 0);
  EXPECT_EQ(voltaris_getRowCount(c.result()), 0);
  EXPECT_EQ(voltaris_getErrorCode(c.result()), 0);
}

TEST(ProcessReply, DropsWhatIsShorterThanAnyMessage) {
  for (const std::size_t size : {0u, 1u, 59u}) {
    Collection c({8});
    const LogCapture log(kDebug);
    c.Process(Bytes(size, 0));
    EXPECT_EQ(log.lines(), (Lines{{kDebug, "cv_mkevent_from_rawbuffer: Dropping truncated packet"},
                                  Reply(kError, "Error creating new raw event, dropping event.")}));
    ExpectNothing(c);
  }
}

TEST(ProcessReply, DropsWhatCannotBeDecoded) {
  PduImage wrong_header = Usage();
  wrong_header.enc = 1;
  PduImage wrong_size = Usage();
  wrong_size.tlv_bytes = 7;
  PduImage wrong_element = Usage();
  wrong_element.elements.push_back(Element(13, 0, {1}));
  const struct {
    PduImage image;
    int status;
  } kCases[] = {{wrong_header, 5}, {wrong_size, 3}, {wrong_element, 1}};
  for (const auto& row : kCases) {
    Collection c({8});
    const LogCapture log(kDebug);
    c.Reply(row.image);
    EXPECT_EQ(
        log.lines(),
        (Lines{Reply(kDebug, "Error while unpacking, error_code=" + std::to_string(row.status))}));
    ExpectNothing(c);
  }
}

TEST(ProcessReply, DropsForgedMessages) {
  const Bytes good = Usage().Signed(SessionKey());
  Bytes flipped = good;
  flipped.back() ^= 1;
  const Bytes cases[] = {flipped, Usage().Signed(Bytes(20, 0x55)), Usage().Unsigned()};
  for (const Bytes& wire : cases) {
    Collection c({8});
    const LogCapture log(kDebug);
    c.Process(wire);
    ExpectNothing(c);
    // The digest is computed once and the mismatch reported once.
    const Lines validation = From(log, "vtn_validateMessageHeader");
    ASSERT_EQ(validation.size(), 1u);
    EXPECT_EQ(validation[0].level, kWarn);
    EXPECT_TRUE(
        validation[0].text.starts_with("vtn_validateMessageHeader: HMAC_SHA1 header mismatch "));
    EXPECT_EQ(From(log, "vtn_processReply"),
              (Lines{Reply(kDebug, "Error while unpacking, error_code=5")}));
    // The next good reply counts.
    c.Process(good);
    EXPECT_EQ(c.result()->answers_received, 1);
    EXPECT_EQ(voltaris_getRowCount(c.result()), 1);
  }
}

const Event* FirstEvent(const Collection& c) {
  return reinterpret_cast<const Event*>(const_cast<Collection&>(c).result()->events.head);
}

TEST(ProcessReply, KeepsNothingOfTheCallersBufferWhereverThatLies) {
  const Bytes wire = Usage().Signed(SessionKey());
  for (const std::size_t offset : {0u, 1u, 2u, 3u}) {
    SCOPED_TRACE(offset);
    Collection c({8});
    Bytes buffer = Bytes(offset, 0xEE) + wire;
    const hmac_context key = Keyed(SessionKey());
    vtn_processReply(buffer.data() + offset, static_cast<std::int32_t>(wire.size()), c.result(),
                     &key);
    EXPECT_EQ(buffer, Bytes(offset, 0xEE) + wire);
    std::fill(buffer.begin(), buffer.end(), std::uint8_t{0xEE});
    ASSERT_NE(FirstEvent(c), nullptr);
    EXPECT_EQ(FirstEvent(c)->raw, nullptr);
    EXPECT_EQ(FirstEvent(c)->raw_hdr, nullptr);
    EXPECT_EQ(FirstEvent(c)->raw_len, 0u);
    EXPECT_EQ(FirstEvent(c)->raw_valid, 0u);
    Collection whole({8});
    whole.Process(wire);
    ResultRow* const row = voltaris_getNextRow(c.result());
    ASSERT_NE(row, nullptr);
    const std::optional<Bytes> value = Read(row, 8);
    EXPECT_EQ(value, Read(voltaris_getNextRow(whole.result()), 8));
    EXPECT_TRUE(value.has_value());
  }
}

TEST(ProcessReply, AMessageWithoutElementsKeepsAnImageOfItsOwn) {
  const Bytes wire = ReplyWith({}).Signed(SessionKey());
  Collection c({8});
  Bytes buffer = wire;
  c.Process(buffer);
  std::fill(buffer.begin(), buffer.end(), std::uint8_t{0xEE});
  const Event* const event = FirstEvent(c);
  ASSERT_NE(event, nullptr);
  EXPECT_EQ(event->raw_valid, 1u);
  ASSERT_EQ(event->raw_len, wire.size());
  EXPECT_TRUE(SameBytes(wire, event->raw, wire.size()));
  EXPECT_EQ(event->raw_hdr, event->raw + 32);
}

TEST(ProcessReply, WithoutMemoryForSuchAnImageTheMessageIsDroppedAndLeaksNothing) {
  const Bytes wire = ReplyWith({}).Signed(SessionKey());
  constexpr std::size_t kImage = 2;  // after the record and its headers
  Collection c({8});
  const LogCapture log(kDebug);
  const LiveBlocks live;
  {
    const AllocationFault fault = AllocationFault::Nth(kImage);
    c.Process(wire);
    EXPECT_TRUE(fault.hit());
  }
  EXPECT_EQ(live.count(), 0);
  EXPECT_EQ(log.lines(),
            (Lines{{kInfo, "cv_mkevent_from_rawbuffer: Can't allocate memory for pkt creation"},
                   Reply(kError, "Error creating new raw event, dropping event.")}));
  ExpectNothing(c);
}

TEST(ProcessReply, TheReleaseOfARefusedMessageReportsAnImageOfItsOwn) {
  PduImage image = Usage();
  image.elements.push_back(Element(13, 0, {1}));
  const Bytes wire = image.Signed(SessionKey());
  Collection c({8});
  const LogCapture log(kTrace);
  const LiveBlocks live;
  c.Process(wire);
  EXPECT_EQ(live.count(), 0);
  const std::string begin = "cv_free_data: free raw (T " + std::to_string(wire.size()) + ") ";
  const Lines released = From(log, "cv_free_data");
  ASSERT_EQ(released.size(), 1u);
  EXPECT_TRUE(released[0].text.starts_with(begin)) << released[0].text;
  EXPECT_NE(released[0].text, begin + Printed(wire.data()));
  ExpectNothing(c);
}

TEST(ProcessReply, DropsAMessageWithAnyByteChangedFromItsDigestOn) {
  const Bytes good = Usage().Signed(SessionKey());
  const LogCapture log(kSilent);
  for (std::size_t at = 12; at < good.size(); ++at) {
    SCOPED_TRACE(at);
    Collection c({8});
    Bytes wire = good;
    wire[at] ^= 0x01;
    c.Process(wire);
    ExpectNothing(c);
  }
}

TEST(ProcessReply, AcceptsAnyValueOfTheHeaderBytesThatHaveNoName) {
  const Bytes good = Usage().Signed(SessionKey());
  for (const std::size_t at : {0u, 2u, 3u, 8u}) {
    Collection c({8});
    Bytes wire = good;
    wire[at] ^= 0xFF;
    c.Process(wire);
    EXPECT_EQ(c.result()->answers_received, 1) << at;
  }
}

TEST(ProcessReply, OnlyWarnsOfATag) {
  Collection c({8});
  PduImage image = Usage();
  image.tag = 5;
  const LogCapture log(kInfo);
  c.Reply(image);
  EXPECT_EQ(log.lines(),
            (Lines{{kWarn, "vtn_validateMessageHeader: Unexpected HMAC tag value 5"}}));
  EXPECT_EQ(c.result()->answers_received, 1);
}

TEST(ProcessReply, ChecksMessagesWithoutElementsToo) {
  PduImage image;
  image.shipment = 1;
  {
    Collection c({8});
    const LogCapture log(kDebug);
    c.Process(image.Unsigned());
    // Without a list, decoding does not look at the digest: one line only.
    EXPECT_EQ(log.lines(), (Lines{Reply(kDebug, "Error while unpacking, error_code=5")}));
    ExpectNothing(c);
  }
  {
    Collection c({8});
    c.Reply(image);
    EXPECT_EQ(c.result()->answers_received, 1);
    EXPECT_EQ(c.result()->answers_pending, -1);
    EXPECT_EQ(c.result()->events.depth, 1);
  }
}

TEST(ProcessReply, DropsAMessageOfExactly60BytesThatDecodes) {
  // Two headers without a digest between them and no elements: decodable, but not signed.
  const Bytes wire = Hex("00 02 0000 00000000 00 12 0014") + Bytes(36, 0) +
                     Hex("01 01 00 0a 11 0a 000b 0000 0000");
  ASSERT_EQ(wire.size(), 60u);
  Collection c({8});
  const LogCapture log(kDebug);
  c.Process(wire);
  EXPECT_EQ(log.lines(), (Lines{Reply(kDebug, "Error while unpacking, error_code=5")}));
  ExpectNothing(c);
}

TEST(ProcessReply, ReadsNoByteBehindTheMessage) {
  Collection c({8});
  const hmac_context key = Keyed(SessionKey());
  const Bytes good = Usage().Signed(SessionKey());
  const LogCapture log(kSilent);
  for (std::size_t size = 0; size <= good.size(); ++size) {
    GuardedBytes wire(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)));
    vtn_processReply(wire.data(), static_cast<std::int32_t>(size), c.result(), &key);
  }
  EXPECT_EQ(c.result()->answers_received, 1);
}

TEST(ProcessReply, ComparesNeitherSequenceNumberNorSender) {
  Collection c({8});
  PduImage image = Usage();
  image.seq = 0xDEADBEEF;
  image.identity = Bytes(32, 'z');
  c.Reply(image);
  EXPECT_EQ(c.result()->answers_received, 1);
}

TEST(ProcessReply, CopesWithElementsWithoutValues) {
  const Bytes hostile[] = {
      Element(0x80000007, 0, {}), Element(0x8000002A, 0, {}),          Element(8, 0, {}),
      Element(41, 0, {}),         Element(0x8000003C, 0, Bytes(8, 1)), Element(0x8000002B, 0, {}),
      Element(0xC000002B, 0, {})};
  for (const std::int8_t shipment : {std::int8_t{1}, std::int8_t{-1}, std::int8_t{-2}}) {
    Collection c({2, 8, 3});
    c.Reply(ReplyWith({std::begin(hostile), std::end(hostile)}, shipment));
    EXPECT_EQ(c.result()->answers_received, 1);
    EXPECT_EQ(voltaris_getAckCount(c.result()), 0);
    EXPECT_EQ(voltaris_getNakCount(c.result()), 0);
    EXPECT_EQ(voltaris_getRowCount(c.result()), 0);
    EXPECT_EQ(voltaris_getNextRow(c.result()), nullptr);
    EXPECT_EQ(c.result()->domain, nullptr);
  }
}

TEST(ProcessReply, KeepsItsWitsWithoutMemory) {
  PduImage image = ReplyWith({Aggregate(13, "lamp", {Entry(5, {0, 9}), Entry(6, {0, 8})}),
                              Aggregate(43, "fan", {Combined{.name = "fan", .data = {0, 7}}.At(1)}),
                              Aggregate(42, "lamp", {Entry(5)}), Element(8, 0, Text("lab"))},
                             -1);
  const Bytes wire = image.Signed(SessionKey());
  const hmac_context key = Keyed(SessionKey());
  const std::size_t failures = SweepAllocationFailures([&](AllocationFault& fault) {
    std::unique_ptr<Collection> c;
    {
      const AllocationFault::Pause pause;
      c = std::make_unique<Collection>(std::initializer_list<std::int32_t>{8, 4});
    }
    const LogCapture log(kInfo);
    vtn_processReply(wire.data(), static_cast<std::int32_t>(wire.size()), c->result(), &key);
    fault.Disarm();
    ResultSet* const result = c->result();
    if (!fault.hit()) {
      EXPECT_EQ(result->error_code, 0);
      EXPECT_EQ(result->row_count, 3);
      return;
    }
    // Either the message was lost as a whole, or the fold of it stopped.
    if (result->events.depth == 0) {
      EXPECT_EQ(result->answers_received, 0);
      EXPECT_EQ(result->row_count, 0);
    } else {
      EXPECT_EQ(result->error_code, 12);
      EXPECT_EQ(result->answers_received, 1);
      EXPECT_EQ(result->ack_count, 1);
    }
  });
  EXPECT_GE(failures, 9u);
}

std::uint32_t DomainIn(const Bytes& payload) {
  const HeapBytes exact(payload);
  return vtn_getDomainFromPayload(exact.data(), static_cast<std::uint32_t>(payload.size()));
}

// The bytes of the answer as they are stored.
Bytes StoredDomainIn(const Bytes& payload) { return HostBytes(DomainIn(payload)); }

TEST(GetDomainFromPayload, YieldsTheWordBehindTheHeaderAsStored) {
  EXPECT_EQ(StoredDomainIn(Element(8, 0, Text("office"))), Text("offi"));
  EXPECT_EQ(StoredDomainIn(Element(13, 0, {1, 2}) + Element(9, 1, Text("lamp")) +
                           Element(8, 0, Text("room")) + Element(8, 0, Text("hall"))),
            Text("room"));
}

TEST(GetDomainFromPayload, FillsAShortDomainWithZeros) {
  EXPECT_EQ(StoredDomainIn(Element(8, 0, Text("abc"))), Hex("61626300"));
  EXPECT_EQ(StoredDomainIn(Element(8, 0, Text("a"))), Hex("61000000"));
  EXPECT_EQ(StoredDomainIn(Element(8, 0, {})), Hex("00000000"));
}

TEST(GetDomainFromPayload, LooksAtTheWholeTypeWord) {
  EXPECT_EQ(DomainIn(Element(0x80000008, 0, Text("office"))), 0u);
  EXPECT_EQ(DomainIn(Element(0x40000008, 0, Text("office"))), 0u);
  EXPECT_EQ(DomainIn(Element(0x00000108, 0, Text("office"))), 0u);
  // A qualifier is as good as an attribute.
  EXPECT_EQ(StoredDomainIn(Element(8, 1, Text("room"))), Text("room"));
}

TEST(GetDomainFromPayload, TakesTheBytesBehindTheHeaderWhateverItsLengthSays) {
  EXPECT_EQ(StoredDomainIn(Element(8, 0, {}) + Element(7, 0, {})), Hex("00000007"));
  EXPECT_EQ(StoredDomainIn(ElementWithLength(8, 0xFFFFFFFF, 0, Text("room"))), Text("room"));
}

TEST(GetDomainFromPayload, WithoutAPayloadIsZero) {
  EXPECT_EQ(vtn_getDomainFromPayload(nullptr, 100), 0u);
  EXPECT_EQ(vtn_getDomainFromPayload(nullptr, 0), 0u);
  const Bytes element = Element(8, 0, Text("room"));
  for (std::size_t size = 0; size < 12; ++size) {
    EXPECT_EQ(DomainIn(Bytes(element.begin(), element.begin() + static_cast<std::ptrdiff_t>(size))),
              0u);
  }
}

TEST(GetDomainFromPayload, StopsAtLengthsThatLeadNowhere) {
  EXPECT_EQ(DomainIn(Bytes(12, 0)), 0u);
  for (const std::uint32_t length :
       {0u, 1u, 11u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
    EXPECT_EQ(DomainIn(ElementWithLength(7, length, 0, {}) + Element(8, 0, Text("room"))), 0u)
        << length;
  }
  // Nothing behind the last element, and too little behind the last but one.
  EXPECT_EQ(DomainIn(Element(7, 0, Text("desk"))), 0u);
  EXPECT_EQ(DomainIn(Element(7, 0, Text("desk")) + U32(8)), 0u);
}

}  // namespace
