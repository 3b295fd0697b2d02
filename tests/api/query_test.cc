// Making and releasing queries, and their time-out.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "vtapi.h"

#include "tests/api/api_support.h"
#include "tests/harness/peer.h"

namespace {

using namespace vt::testing;

constexpr char kNoEvent[] =
    "voltaris_createQuery: Error creating new query packet, could not allocate sufficient memory.";

TEST(NewQuery, IsZeroFilledAndLogsItsSize) {
  const LogCapture log(kTrace);
  const FillAllocations fill;
  const QueryPtr query(new_query());
  ASSERT_NE(query, nullptr);
  EXPECT_EQ(sizeof(Query), sizeof(void*) == 4 ? 40u : 56u);
  EXPECT_TRUE(SameBytes(Bytes(sizeof(Query), 0), query.get(), sizeof(Query)));
  EXPECT_EQ(log.lines(), (Lines{{kTrace, "new_query: allocated " + std::to_string(sizeof(Query)) +
                                             " bytes for query"}}));
}

TEST(NewQuery, WithoutMemoryIsNullAndSilent) {
  const LogCapture log(kTrace);
  const AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(new_query(), nullptr);
  EXPECT_TRUE(fault.hit());
  EXPECT_EQ(log.lines(), Lines{});
}

TEST(CreateQuery, TranslatesClassAndAction) {
  const struct {
    std::int32_t cls, action, stored_class, stored_action;
  } kCases[] = {{1, 1, 10, 10},
                {1, 2, 10, 11},
                // Deliberate: 14 is outside the named query actions.
                {1, 3, 10, 14},
                {2, 1, 11, 10}};
  for (const auto& row : kCases) {
    const QueryPtr query(voltaris_createQuery(row.cls, row.action, "office", 7));
    ASSERT_NE(query, nullptr);
    EXPECT_EQ(query->class_, row.stored_class);
    EXPECT_EQ(query->action, row.stored_action);
  }
}

TEST(CreateQuery, TheFurtherActionIsStoredAs14) {
  const QueryPtr query(voltaris_createQuery(1, 3, "office", 0));
  ASSERT_NE(query, nullptr);
  EXPECT_EQ(query->action, 14);
}

TEST(CreateQuery, StartsWithoutSessionAndAttributes) {
  const FillAllocations fill;
  const QueryPtr query(voltaris_createQuery(1, 2, "office", 200));
  ASSERT_NE(query, nullptr);
  EXPECT_EQ(query->session, nullptr);
  EXPECT_EQ(query->priority, 200);
  EXPECT_EQ(query->attribute_count, 0u);
  EXPECT_EQ(query->attributes.head, nullptr);
  EXPECT_EQ(query->attributes.tail, nullptr);
  EXPECT_EQ(query->attributes.depth, 0);
  EXPECT_EQ(query->attributes.size, 0);
}

TEST(CreateQuery, HoldsExactlyOneElementTheDomain) {
  const std::string domain = "office";
  const QueryPtr query(voltaris_createQuery(1, 2, domain.c_str(), 7));
  ASSERT_NE(query, nullptr);
  ASSERT_EQ(query->event->pak->tlv_count, 1);
  const Tlv* const tlv = query->event->tlvs[0];
  EXPECT_EQ(tlv->type, 8u);
  EXPECT_EQ(tlv->length, 19u);
  EXPECT_EQ(tlv->qualifier, 0u);
  EXPECT_STREQ(static_cast<const char*>(tlv->value), "office");
  EXPECT_NE(tlv->value, domain.c_str());
  EXPECT_EQ(Wire(tlv), Hex("00000008 00000012 00000000 6f6666696365"));
}

TEST(CreateQuery, CutsThePriorityTo8Bits) {
  const QueryPtr query(voltaris_createQuery(1, 2, "office", 0x1FE));
  EXPECT_EQ(query->priority, 0xFE);
}

TEST(CreateQuery, RefusesAnUnknownClass) {
  for (const std::int32_t cls : {3, 0, -1, 10, 11, INT32_MAX, INT32_MIN}) {
    const LogCapture log(kDebug);
    EXPECT_EQ(voltaris_createQuery(cls, 1, "office", 7), nullptr);
    EXPECT_EQ(log.lines(),
              (Lines{{kError, "voltaris_createQuery: Invalid class, can't create query."}}))
        << cls;
  }
}

TEST(CreateQuery, RefusesAnActionThatTheClassHasNot) {
  const struct {
    std::int32_t cls, action;
  } kCases[] = {{2, 2}, {2, 3}, {2, 0}, {1, 0}, {1, 4}, {1, -1}, {1, 10}, {2, INT32_MIN}};
  for (const auto& row : kCases) {
    const LogCapture log(kDebug);
    EXPECT_EQ(voltaris_createQuery(row.cls, row.action, "office", 7), nullptr);
    EXPECT_EQ(log.lines(),
              (Lines{{kError, "voltaris_createQuery: Invalid action, can't create query."}}))
        << row.cls << ", " << row.action;
  }
}

TEST(CreateQuery, LogsTheApplicationsNumbersNotTheTranslatedOnes) {
  const LogCapture log(kDebug);
  const QueryPtr query(voltaris_createSetQuery("office", 7));
  EXPECT_EQ(log.lines(),
            (Lines{{kDebug, "voltaris_createQuery: new Query (class=1, action=1, pri=7)"}}));
}

TEST(CreateQuery, ShortFormsAreItsThreeKinds) {
  const struct {
    Query* (*create)(const char*, std::uint32_t);
    std::int32_t stored_class, stored_action;
    const char* line;
  } kCases[] = {{voltaris_createSetQuery, 10, 10,
                 "voltaris_createQuery: new Query (class=1, action=1, pri=255)"},
                {voltaris_createCollectQuery, 10, 11,
                 "voltaris_createQuery: new Query (class=1, action=2, pri=255)"},
                {voltaris_createSumQuery, 11, 10,
                 "voltaris_createQuery: new Query (class=2, action=1, pri=255)"}};
  for (const auto& row : kCases) {
    const LogCapture log(kDebug);
    const QueryPtr query(row.create("lab", 255));
    ASSERT_NE(query, nullptr);
    EXPECT_EQ(query->class_, row.stored_class);
    EXPECT_EQ(query->action, row.stored_action);
    EXPECT_EQ(Wire(query->event->tlvs[0]), Hex("00000008 0000000f 00000000 6c6162"));
    EXPECT_EQ(log.lines(), (Lines{{kDebug, row.line}}));
  }
}

TEST(CreateQuery, TakesTheDomainForNoFormat) {
  const LogCapture log(kTrace);
  const QueryPtr query(voltaris_createCollectQuery("%n%s", 7));
  EXPECT_STREQ(static_cast<const char*>(query->event->tlvs[0]->value), "%n%s");
}

TEST(CreateQuery, WithoutMemoryForTheRecordIsFatal) {
  const LogCapture log(kDebug);
  const AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(voltaris_createCollectQuery("office", 7), nullptr);
  EXPECT_EQ(log.lines(), (Lines{{kFatal, "voltaris_createQuery: out of memory"}}));
}

TEST(CreateQuery, WithoutMemoryForTheEventFails) {
  // The record comes first, then the Event and its header.
  for (const std::size_t allocation : {1u, 2u}) {
    const LogCapture log(kDebug);
    const AllocationFault fault = AllocationFault::Nth(allocation);
    EXPECT_EQ(voltaris_createCollectQuery("office", 7), nullptr);
    EXPECT_EQ(log.lines(), (Lines{{kError, kNoEvent}}));
  }
}

TEST(CreateQuery, WithoutMemoryForTheDomainIsReturnedAllTheSame) {
  const std::size_t failures = SweepAllocationFailures([](AllocationFault& fault) {
    const LogCapture log(kDebug);
    const QueryPtr query(voltaris_createCollectQuery("office", 7));
    fault.Disarm();
    if (query == nullptr) {
      EXPECT_TRUE(log.Has(kFatal, "voltaris_createQuery: out of memory") ||
                  log.Has(kError, kNoEvent));
      return;
    }
    // Deliberate: the status of adding the domain is ignored.
    EXPECT_EQ(query->event->pak->tlv_count, fault.hit() ? 0 : 1);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_TRUE(log.Has(kDebug, "voltaris_createQuery: new Query (class=1, action=2, pri=7)"));
  });
  EXPECT_GT(failures, 3u);
}

TEST(ReleaseQuery, OfAnExecutedQueryClosesTheConnectionOfItsSession) {
  ConnectedPair pair;
  const int fd = pair.near().Release();
  const SessionPtr session = LoopbackSession(7440);
  session->descriptor = fd;
  Query* const query = voltaris_createCollectQuery("office", 7);
  BindAsExecuted(query, session.get());
  voltaris_releaseQuery(query);
  EXPECT_EQ(session->descriptor, -1);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(pair.far().ReadAll(), Bytes{});
}

TEST(ReleaseQuery, OfAQueryWhoseSessionHasNoConnectionClosesNothing) {
  const SessionPtr session = LoopbackSession(7440);
  session->descriptor = -1;
  Query* const query = voltaris_createCollectQuery("office", 7);
  BindAsExecuted(query, session.get());
  const CloseHook closes([](int) -> std::optional<int> { return 0; });
  voltaris_releaseQuery(query);
  EXPECT_EQ(closes.calls(), 0u);
  EXPECT_EQ(session->descriptor, -1);
}

TEST(ReleaseQuery, OfAQueryThatWasNeverExecutedReleasesAllItHolds) {
  // The leak detector tells whether the event and the list entries are gone.
  Query* const query = voltaris_createCollectQuery("office", 7);
  ASSERT_EQ(voltaris_addGetAttribute(query, 8), 0);
  ASSERT_EQ(voltaris_addNameQualifier(query, "lamp*"), 0);
  const CloseHook closes([](int) -> std::optional<int> { return 0; });
  voltaris_releaseQuery(query);
  EXPECT_EQ(closes.calls(), 0u);
}

TEST(TimeoutOfAQuery, IsClampedToOneTo180Seconds) {
  const struct {
    std::uint8_t value;
    std::uint32_t seconds;
  } kCases[] = {{0, 1}, {1, 1}, {6, 6}, {179, 179}, {180, 180}, {181, 180}, {200, 180}, {255, 180}};
  for (const auto& row : kCases) {
    const EventPtr event(corvane_create_my_packet());
    ASSERT_EQ(cv_add_tlv(event.get(), 41, 13, &row.value), 0);
    EXPECT_EQ(cv_get_timeout_val_from_query(event.get()), row.seconds) << int{row.value};
  }
}

TEST(TimeoutOfAQuery, IsZeroWithoutATimeoutElement) {
  const QueryPtr query(voltaris_createCollectQuery("office", 7));
  EXPECT_EQ(cv_get_timeout_val_from_query(query->event), 0u);
  EXPECT_EQ(cv_get_timeout_val_from_query(nullptr), 0u);
}

TEST(TimeoutOfAQuery, IsNotReadFromAQualifier) {
  const EventPtr event(corvane_create_my_packet());
  const std::uint8_t nine = 9;
  ASSERT_EQ(cv_add_tlv_common(event.get(), 41, 13, &nine, 1), 0);
  EXPECT_EQ(cv_get_timeout_val_from_query(event.get()), 0u);
}

TEST(TimeoutOfAQuery, WithANullValueReadsAsAbsent) {
  const EventPtr event(corvane_create_my_packet());
  ASSERT_EQ(cv_add_tlv(event.get(), 41, 12, nullptr), 0);
  EXPECT_EQ(cv_get_timeout_val_from_query(event.get()), 0u);
}

TEST(TimeoutOfAQuery, IsTheFirstOfTwo) {
  const EventPtr event(corvane_create_my_packet());
  const std::uint8_t nine = 9;
  const std::uint8_t ten = 10;
  ASSERT_EQ(cv_add_tlv(event.get(), 41, 13, &nine), 0);
  ASSERT_EQ(cv_add_tlv(event.get(), 41, 13, &ten), 0);
  EXPECT_EQ(cv_get_timeout_val_from_query(event.get()), 9u);
}

}  // namespace
