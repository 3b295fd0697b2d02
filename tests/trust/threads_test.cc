// Sessions in several threads: whole exchanges and the calls around them at the same time. Only
// what the library documents as one for the process is left alone: the classic reader of rows.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "vtapi.h"

#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

constexpr int kExchanges = 200;

// RepliesOf are two replies, of devices of this thread alone.
std::array<Bytes, 2> RepliesOf(const std::string& name) {
  const auto rows = [](const std::string& device) {
    return SignedReply(ReplyWith({Element(8, 0, Text("office")),
                                  Aggregate(13, device, {Entry(1, {0, 11}), Entry(2, {0, 12})}),
                                  Aggregate(9, device, {Entry(1, Counted(Text("lamp")))})}));
  };
  return {rows(name + "-a"), rows(name + "-b")};
}

// Answers are an acknowledgement of three rows and the replies.
Bytes Answers(const std::string& name) {
  PduImage will = ReplyWith({Aggregate(42, name, {Entry(1), Entry(2), Entry(3)})}, -1);
  will.cls = 13;
  const auto [first, second] = RepliesOf(name);
  return Cat({SignedReply(will), first, second});
}

QueryPtr NewQuery(int number, const std::string& name) {
  using Create = Query* (*)(const char*, std::uint32_t);
  constexpr std::array<Create, 3> kinds = {voltaris_createCollectQuery, voltaris_createSetQuery,
                                           voltaris_createSumQuery};
  const std::size_t kind = static_cast<std::size_t>(number) % kinds.size();
  QueryPtr query(kinds[kind]("office", 7));
  const std::uint8_t level = 5;
  EXPECT_EQ(kind == 1 ? voltaris_addSetAttribute(query.get(), 9, &level)
                      : voltaris_addGetAttribute(query.get(), 8),
            0);
  EXPECT_EQ(voltaris_addNameQualifier(query.get(), name.c_str()), 0);
  EXPECT_EQ(voltaris_addKeyQualifier(query.get(), "a,b"), 0);
  return query;
}

// RowsOf lists the rows as they are linked, without the reader that the process has once.
std::vector<std::string> RowsOf(const ResultSet& result) {
  std::vector<std::string> rows;
  const auto* device = reinterpret_cast<const device_node*>(result.rows.head);
  for (; device != nullptr; device = device->next) {
    const auto* const id = reinterpret_cast<const char*>(device->key->device.id.bytes);
    const auto* entity = reinterpret_cast<const entity_node*>(device->entities.head);
    for (; entity != nullptr; entity = entity->next) {
      rows.push_back(std::string(id, strnlen(id, 32)) + "/" + std::to_string(entity->entity_index));
    }
  }
  return rows;
}

// Exchange sends one query and collects what comes back.
void Exchange(Session* session, int number, const std::string& name) {
  const QueryPtr query = NewQuery(number, name);
  ASSERT_EQ(voltaris_execQuery(session, query.get()), 0);
  const ResultPtr result(voltaris_queryResults(session, query.get()));
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result->error_code, 0);
  EXPECT_EQ(result->answers_received, 2);
  EXPECT_EQ(result->ack_count, 3);
  // The rows of plain aggregates come with collecting; the others want combined ones.
  std::vector<std::string> rows;
  if (number % 3 == 0) rows = {name + "-a/1", name + "-a/2", name + "-b/1", name + "-b/2"};
  EXPECT_EQ(RowsOf(*result), rows);
}

// TakeApart is what an endpoint does with a query that it receives.
void TakeApart(const std::string& name) {
  PduImage image;
  image.pri = 7;
  image.elements = {Element(9, 1, Text(name)), Element(7, 1, Text("light")),
                    Element(10, 1, Bytes{'a', 0, 'b', 0})};
  const EventPtr event = Decoded(image);
  corvane_endpoint endpoint = {};
  endpoint.keywords = "b,c";
  endpoint.name = name.c_str();
  endpoint.role = "light";
  EXPECT_EQ(cv_exec_filter(event.get(), &endpoint, 5), 1);
  endpoint.role = "door";
  EXPECT_EQ(cv_exec_filter(event.get(), &endpoint, 5), 0);
  voltaris_dump_pdu(event.get());
  voltaris_dump_buf(image.Unsigned().data(), 100);
}

struct Free {
  void operator()(void* block) const { std::free(block); }
};
struct FreeList {
  void operator()(char** list) const { freeKeywordList(list); }
};

void TextCalls(const std::string& name) {
  const std::string items = name + ",light, door";
  const std::unique_ptr<char*, FreeList> list(createKeywordList(items.c_str()));
  ASSERT_NE(list, nullptr);
  EXPECT_STREQ(list.get()[0], name.c_str());
  EXPECT_EQ(list.get()[3], nullptr);
  const std::unique_ptr<char, Free> packed(corvane_conv_kw_list(items.c_str()));
  const std::unique_ptr<char, Free> unpacked(
      cv_get_comma_sep_list(packed.get(), static_cast<int>(items.size()) + 1));
  EXPECT_EQ(unpacked.get(), items);
  EXPECT_EQ(cv_wildcard_match(name.c_str(), "*"), 1);
  EXPECT_EQ(vtn_string_in_whitelist(name.c_str(), 1), 1);
  std::array<char, 32> uuid;
  EXPECT_EQ(voltaris_utl_createUuid(uuid.data()), 0);
  Bytes key(20);
  EXPECT_EQ(voltaris_utl_composeKey(name.data(), static_cast<std::uint32_t>(name.size()), kIdentity,
                                    key.data(), 20),
            20);
  EXPECT_EQ(key, HmacSha1(Text(name), Identity32(kIdentity)));
}

void Client(const std::string& name) {
  const Bytes answers = Answers(name);
  ScriptedPeer peer(
      [&](PeerConnection& c) {
        c.ReadPdu();
        c.Send(answers);
      },
      kExchanges);
  const SessionPtr session = LoopbackSession(peer.port());
  ASSERT_NE(session, nullptr);
  for (int i = 0; i < kExchanges; ++i) {
    Exchange(session.get(), i, name);
    TakeApart(name);
    TextCalls(name);
    if (::testing::Test::HasFailure()) return;
  }
  EXPECT_TRUE(peer.Join());
}

void RunTwoClients() {
  std::thread other(Client, "desk");
  Client("lamp");
  other.join();
}

TEST(TwoThreads, WithASessionEachGetTheirOwnAnswers) {
  const FileLog quiet(kSilent);
  RunTwoClients();
}

TEST(TwoThreads, WithASessionEachMayTraceEverything) {
  const FileLog log(kTrace);
  RunTwoClients();
  EXPECT_FALSE(log.text().empty());
}

TEST(TwoThreads, WithASessionEachMayReportToOneCallback) {
  // The callback is handed lines by both at a time; what it does about that is its own concern.
  static thread_local std::size_t lines;
  const LogCapture settings(kSilent);
  ASSERT_EQ(setLogCallback([](std::uint32_t, const char*) { ++lines; }), 1);
  setLogLevel(kTrace);
  RunTwoClients();
  setLogLevel(kSilent);
  EXPECT_GT(lines, 0u);
}

// CursorRows lists the rows through a cursor of this thread.
std::vector<std::string> CursorRows(const ResultSet& result) {
  std::vector<std::string> rows;
  ResultCursor cursor;
  voltaris_startCursor(&cursor, &result);
  while (voltaris_advanceCursor(&cursor) != 0) {
    const auto* const id = reinterpret_cast<const char*>(cursor.identity.device_id);
    rows.push_back(std::string(id, strnlen(id, 32)) + "/" +
                   std::to_string(cursor.identity.entity_index));
  }
  return rows;
}

// FleetClient collects in a fleet of this thread, over and over.
void FleetClient(const std::string& name) {
  constexpr std::size_t kRounds = 5;
  constexpr std::size_t kNodes = 4;
  const Bytes answers = Answers(name);
  ScriptedPeer peer(
      [&](PeerConnection& c) {
        c.ReadPdu();
        c.Send(answers);
      },
      kRounds * kNodes);
  const SessionPtr session = LoopbackSession(peer.port());
  for (std::size_t round = 0; round < kRounds; ++round) {
    std::vector<QueryPtr> queries;
    const std::unique_ptr<CollectionFleet, ReleaseWith<&voltaris_releaseFleet>> fleet(
        voltaris_createFleet(2));
    for (std::size_t i = 0; i < kNodes; ++i) {
      queries.push_back(NewQuery(0, name));
      EXPECT_NE(
          voltaris_addToFleet(fleet.get(), session.get(), queries.back().get(), nullptr, nullptr),
          nullptr);
    }
    EXPECT_EQ(voltaris_runFleet(fleet.get(), nullptr, nullptr), 0);
    while (ReplyCollection* c = voltaris_takeEnded(fleet.get(), nullptr)) {
      EXPECT_EQ(voltaris_getCollectionOutcome(c), VT_COLLECTION_COMPLETE);
      const ResultPtr result(voltaris_takeCollectionResult(c));
      EXPECT_EQ(CursorRows(*result), (std::vector<std::string>{name + "-a/1", name + "-a/2",
                                                               name + "-b/1", name + "-b/2"}));
      voltaris_releaseCollection(c);
    }
  }
  EXPECT_TRUE(peer.Join());
}

TEST(SixtyFourThreads, WithASessionEachGetTheirOwnAnswersWhileTheLogSettingsChange) {
  const FileLog quiet(kSilent);
  std::vector<std::thread> threads;
  for (int i = 0; i < 64; ++i) threads.emplace_back(FleetClient, "lamp" + std::to_string(i));
  constexpr int kChanges = 100;
  for (int i = 0; i < kChanges; ++i) {
    setLogLevel(i % 2 == 0 ? kDebug : kSilent);
    std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
  setLogLevel(kSilent);
}

TEST(ManyCursors, InManyThreadsWalkOneResult) {
  const FileLog quiet(kSilent);
  const SessionPtr session = LoopbackSession(1);
  const QueryPtr query = NewQuery(0, "lamp");
  const ResultPtr result(new_resultset());
  ASSERT_NE(result, nullptr);
  result->query = query.get();
  queue_init(&result->rows, 0);
  queue_init(&result->events, 0);
  for (const Bytes& reply : RepliesOf("lamp")) {
    vtn_processReply(reply.data(), static_cast<std::int32_t>(reply.size()), result.get(),
                     &session->key);
  }
  const std::vector<std::string> expected = RowsOf(*result);
  ASSERT_EQ(expected.size(), 4U);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] { EXPECT_EQ(CursorRows(*result), expected); });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(ASession, MadeInOneThreadServesAnother) {
  const FileLog quiet(kSilent);
  const Bytes answers = Answers("lamp");
  ScriptedPeer peer([&](PeerConnection& c) {
    c.ReadPdu();
    c.Send(answers);
  });
  const SessionPtr session = LoopbackSession(peer.port());
  std::thread(Exchange, session.get(), 0, "lamp").join();
  EXPECT_TRUE(peer.Join());
}

}  // namespace
