// A log level of 6 or more silences every line, those of failures as well, and changes nothing
// else.
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/peer.h"

namespace {

using namespace vt::testing;

// Silenced sets the level and, at its end, finds that nothing was reported.
class Silenced {
 public:
  Silenced() = default;
  ~Silenced() { EXPECT_EQ(log_.lines(), Lines{}); }
  Silenced(const Silenced&) = delete;
  Silenced& operator=(const Silenced&) = delete;

 private:
  LogCapture log_{kSilent};
};

// A query with room for nothing more.
QueryPtr Full(QueryCreator create) {
  QueryPtr query(create("office", 7));
  FillTo(query.get(), 1400 - 180);
  return query;
}

TEST(Silence, HoldsWhenQueriesCannotBeCreated) {
  const Silenced silenced;
  EXPECT_EQ(voltaris_createQuery(3, 1, "office", 7), nullptr);
  EXPECT_EQ(voltaris_createQuery(1, 4, "office", 7), nullptr);
  for (const std::size_t failed : {0U, 1U}) {
    const AllocationFault fault = AllocationFault::Nth(failed);
    EXPECT_EQ(voltaris_createQuery(1, 1, "office", 7), nullptr);
    EXPECT_TRUE(fault.hit());
  }
}

TEST(Silence, HoldsWhenASessionCannotBeCreated) {
  const Silenced silenced;
  EXPECT_EQ(voltaris_createSession("nowhere", 7440, kIdentity, nullptr, 0), nullptr);
  const AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(voltaris_createSession("127.0.0.1", 7440, kIdentity, nullptr, 0), nullptr);
}

TEST(Silence, HoldsWhenAttributesAreRefused) {
  const Silenced silenced;
  const QueryPtr collect = CollectQuery();
  const QueryPtr set(voltaris_createSetQuery("office", 7));
  const QueryPtr sum(voltaris_createSumQuery("office", 7));
  EXPECT_EQ(voltaris_addGetAttribute(collect.get(), 99), -1);
  EXPECT_EQ(voltaris_addGetAttribute(sum.get(), VT_ATTRIBUTE_NAME), -1);
  EXPECT_EQ(voltaris_addSetAttribute(set.get(), 99, "x"), -1);
  EXPECT_EQ(voltaris_addSetAttribute(sum.get(), VT_ATTRIBUTE_NAME, "x"), -1);
  EXPECT_EQ(voltaris_addSetAttribute(collect.get(), VT_ATTRIBUTE_NAME, "x"), -2);
  EXPECT_EQ(voltaris_addSetAttribute(set.get(), VT_ATTRIBUTE_LEVEL, nullptr), -1);

  const QueryPtr full = Full(voltaris_createCollectQuery);
  EXPECT_EQ(voltaris_addGetAttribute(full.get(), VT_ATTRIBUTE_USAGE), -1);
  const QueryPtr full_set = Full(voltaris_createSetQuery);
  EXPECT_EQ(voltaris_addSetAttribute(full_set.get(), VT_ATTRIBUTE_NAME, "x"), -1);
}

TEST(Silence, HoldsWhenAnAttributeFindsNoMemory) {
  const Silenced silenced;
  std::size_t failures = 0;
  for (bool hit = true; hit; failures += hit ? 1U : 0U) {
    const QueryPtr query = CollectQuery();
    const AllocationFault fault = AllocationFault::Nth(failures);
    const std::int32_t added = voltaris_addGetAttribute(query.get(), VT_ATTRIBUTE_NAME);
    hit = fault.hit();
    EXPECT_EQ(added, hit ? -1 : 0);
  }
  EXPECT_GE(failures, 2U);  // the element and its column
}

TEST(Silence, HoldsWhenQualifiersAreRefused) {
  const Silenced silenced;
  const QueryPtr query = CollectQuery();
  EXPECT_EQ(voltaris_addQualifier(query.get(), 99, "x"), -1);
  EXPECT_EQ(voltaris_addQualifier(query.get(), VT_ATTRIBUTE_USAGE, "x"), 0);
  const QueryPtr full = Full(voltaris_createCollectQuery);
  EXPECT_EQ(voltaris_addNameQualifier(full.get(), "lamp"), -1);
  query->action = 0;
  EXPECT_EQ(voltaris_addNameQualifier(query.get(), "lamp"), -2);
  query->class_ = 0;
  EXPECT_EQ(voltaris_addNameQualifier(query.get(), "lamp"), -1);
}

TEST(Silence, HoldsWhenAQueryCannotBeSent) {
  const Silenced silenced;
  const SessionPtr session = LoopbackSession(7440);
  {
    const QueryPtr query = CollectQuery();
    const SocketHook fails([](int, int, int) -> std::optional<int> {
      errno = EMFILE;
      return -1;
    });
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), 111);
    EXPECT_EQ(session->descriptor, -1);
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), -1);  // its event is gone
    EXPECT_EQ(voltaris_queryResults(session.get(), query.get()), nullptr);
  }
  {
    const QueryPtr query = CollectQuery();
    const ConnectHook refuses([](int, const sockaddr*, socklen_t) -> std::optional<int> {
      errno = ECONNREFUSED;
      return -1;
    });
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), 111);
    EXPECT_EQ(session->descriptor, -1);
  }
  {
    const QueryPtr query = CollectQuery();
    const ConnectHook connects([](int, const sockaddr*, socklen_t) { return std::optional(0); });
    const SendHook fails([](int, const void*, std::size_t, int) -> std::optional<ssize_t> {
      errno = EPIPE;
      return -1;
    });
    EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), 112);
  }
}

TEST(Silence, HoldsWhenThereIsNoMemoryForTheMessage) {
  const Silenced silenced;
  const SessionPtr session = LoopbackSession(7440);
  const QueryPtr query = CollectQuery();
  const AllocationFault fault = AllocationFault::FromNth(0);
  EXPECT_EQ(voltaris_execQuery(session.get(), query.get()), -1);
  EXPECT_TRUE(fault.hit());
}

// A query that counts as sent on descriptor 1000, which the hooks of the test stand for.
class Sent {
 public:
  Sent() : session_(LoopbackSession(7440)), query_(CollectQuery()) {
    session_->descriptor = 1000;
    BindAsExecuted(query_.get(), session_.get());
  }
  ~Sent() { query_->session = nullptr; }
  Sent(const Sent&) = delete;
  Sent& operator=(const Sent&) = delete;

  ResultPtr Results() { return ResultPtr(voltaris_queryResults(session_.get(), query_.get())); }

 private:
  SessionPtr session_;
  QueryPtr query_;
};

TEST(Silence, HoldsWhenTheWaitFails) {
  const Silenced silenced;
  Sent sent;
  const PollHook fails([](pollfd*, nfds_t, int) -> std::optional<int> {
    errno = EINVAL;
    return -1;
  });
  EXPECT_EQ(voltaris_getErrorCode(sent.Results().get()), EINVAL);
}

TEST(Silence, HoldsWhenTheReadFails) {
  const Silenced silenced;
  Sent sent;
  const PollHook ready([](pollfd* fds, nfds_t, int) -> std::optional<int> {
    fds->revents = POLLIN;
    return 1;
  });
  const RecvfromHook fails([](int, void*, std::size_t, int, sockaddr*, socklen_t*) {
    errno = ECONNRESET;
    return std::optional<ssize_t>(-1);
  });
  EXPECT_EQ(voltaris_getErrorCode(sent.Results().get()), ECONNRESET);
}

TEST(Silence, HoldsWhenAReadGivesMoreThanWasAskedFor) {
  const Silenced silenced;
  Sent sent;
  int waits = 0;
  const PollHook ready([&](pollfd* fds, nfds_t, int) -> std::optional<int> {
    fds->revents = POLLIN;
    return waits++ == 0 ? 1 : 0;
  });
  const Bytes wire = ReplyWith({Element(8, 0, Text("lab"))}).Signed(SessionKey());
  std::size_t at = 0;
  const RecvfromHook reads([&](int, void* data, std::size_t len, int, sockaddr*, socklen_t*) {
    std::memcpy(data, wire.data() + at, len);
    at += len;
    return std::optional<ssize_t>(at < wire.size() ? static_cast<ssize_t>(len) : 5000);
  });
  const ResultPtr result = sent.Results();
  EXPECT_EQ(voltaris_getErrorCode(result.get()), VT_ERROR_TIMEOUT);
  EXPECT_EQ(result->answers_received, 0);
}

TEST(Silence, HoldsWhenThereIsNoMemoryForAResult) {
  const Silenced silenced;
  Sent sent;
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(sent.Results(), nullptr);
  }
  const AllocationFault fault = AllocationFault::Nth(1);
  EXPECT_EQ(voltaris_getErrorCode(sent.Results().get()), VT_ERROR_NO_MEMORY);
}

TEST(Silence, HoldsWhenAReplyIsRefused) {
  const Silenced silenced;
  Collection c({8});
  c.Process(Bytes(59, 0));
  c.Process(ReplyWith({}).Signed(Bytes(20, 1)));
  PduImage other = ReplyWith({Element(8, 0, Text("lab"))});
  other.cls = 13;
  c.Reply(other);
  EXPECT_EQ(c.result()->answers_received, 0);
}

TEST(Silence, HoldsWhenTheArraysOfAcknowledgementsGrow) {
  const Silenced silenced;
  const AckEntry entry{};
  for (const auto add : {&add_ack, &add_nack}) {
    Collection c({8});
    for (int i = 0; i < 1028; ++i) add(c.result(), &entry);
    {
      const AllocationFault fault = AllocationFault::Nth(0);
      add(c.result(), &entry);
    }
    EXPECT_EQ(c.result()->ack_count + c.result()->nak_count, 1028);
    add(c.result(), &entry);
    EXPECT_EQ(c.result()->ack_count + c.result()->nak_count, 1029);
  }
}

}  // namespace
