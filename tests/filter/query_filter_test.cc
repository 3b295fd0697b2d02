#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/pdu_image.h"
#include "tests/protocol/events.h"

namespace vt::filter {
namespace {

using vt::testing::AllocationFault;
using vt::testing::Bytes;
using vt::testing::Element;
using vt::testing::EventPtr;
using vt::testing::GuardedBytes;
using vt::testing::Hex;
using vt::testing::kDebug;
using vt::testing::kError;
using vt::testing::KeyedContext;
using vt::testing::kSilent;
using vt::testing::kTrace;
using vt::testing::kWarn;
using vt::testing::LogCapture;
using vt::testing::LogLine;
using vt::testing::PduImage;
using vt::testing::SweepAllocationFailures;
using vt::testing::Text;
using vt::testing::Wrap;

constexpr std::uint32_t kIdentity = 1;
constexpr std::uint32_t kRole = 7;
constexpr std::uint32_t kName = 9;
constexpr std::uint32_t kKeywords = 10;
constexpr std::uint32_t kCategory = 51;

// Received decodes a query that carries these elements, as an endpoint receives it.
EventPtr Received(std::vector<Bytes> elements, std::uint8_t priority = 0) {
  PduImage image;
  image.pri = priority;
  image.elements = std::move(elements);
  EventPtr ev = Wrap(image.Signed(Text("secret")));
  const hmac_context key = KeyedContext("secret");
  EXPECT_EQ(cv_unpack_event(ev.get(), &key), 0);
  return ev;
}

Bytes Named(std::string_view text) { return Element(kName, 1, Text(text)); }
Bytes InRole(std::string_view text) { return Element(kRole, 1, Text(text)); }
Bytes WithKeywords(const char* hex) { return Element(kKeywords, 1, Hex(hex)); }
Bytes InCategory(std::uint32_t category) {
  return Element(kCategory, 1, vt::testing::U32(category));
}
Bytes Addressed(char fill, const char* number = "00000000") {
  return Element(kIdentity, 1,
                 vt::testing::Cat({Bytes(32, static_cast<std::uint8_t>(fill)), Hex(number)}));
}
// Empty is a qualifier of only a header, whose value decodes to null.
Bytes Empty(std::uint32_t type) { return Element(type, 1, {}); }

struct CategoryCall {
  const Event* ev = nullptr;
  const corvane_endpoint* endpoint = nullptr;
  std::uint32_t answer = 1;
  int calls = 0;
};
CategoryCall category_call;

std::uint32_t AskCategory(const Event* ev, const corvane_endpoint* endpoint) {
  category_call.ev = ev;
  category_call.endpoint = endpoint;
  ++category_call.calls;
  return category_call.answer;
}

// Lamp is an endpoint that passes every filter of a query without qualifiers.
corvane_endpoint Lamp(std::uint32_t category = 1) {
  category_call = CategoryCall();
  category_call.answer = category;
  corvane_endpoint endpoint;
  std::memset(&endpoint, 0, sizeof endpoint);
  endpoint.keywords = "a,c";
  endpoint.name = "lamp-7";
  endpoint.role = "lamp";
  std::memset(endpoint.identity, 'L', sizeof endpoint.identity);
  endpoint.category = &AskCategory;
  return endpoint;
}

TEST(ExecFilter, SkipsAPriorityBelowTheImportance) {
  const corvane_endpoint endpoint = Lamp();
  const EventPtr ev = Received({}, 3);
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_exec_filter(ev.get(), &endpoint, 5), 0);
  // The line says ">" although lower priorities are skipped.
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{
                {kDebug, "cv_exec_filter: skipping query priority 3 > my importance 5"}}));
}

TEST(Filters, DecideTheSameOnASilencedLog) {
  corvane_endpoint endpoint = Lamp(2);
  const LogCapture log(kSilent);
  EXPECT_EQ(cv_exec_filter(Received({}, 3).get(), &endpoint, 5), 0);
  EXPECT_EQ(cv_category_filter(Received({}).get(), &endpoint), 0);
  const EventPtr keywords = Received({WithKeywords("6100")});
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(cv_keyword_filter(keywords.get(), &endpoint), 1);
  }
  endpoint.keywords = nullptr;
  EXPECT_EQ(cv_keyword_filter(keywords.get(), &endpoint), 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(ExecFilter, PassesAPriorityOfAtLeastTheImportance) {
  const corvane_endpoint endpoint = Lamp();
  const EventPtr ev = Received({}, 3);
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_exec_filter(ev.get(), &endpoint, 3), 1);
  EXPECT_EQ(cv_exec_filter(ev.get(), &endpoint, 2), 1);
  EXPECT_TRUE(log.lines().empty());
}

TEST(ExecFilter, ComparesAsSignedNumbers) {
  const corvane_endpoint endpoint = Lamp();
  const EventPtr lowest = Received({}, 0);
  EXPECT_EQ(cv_exec_filter(lowest.get(), &endpoint, -1), 1);
  EXPECT_EQ(cv_exec_filter(lowest.get(), &endpoint, INT32_MIN), 1);
  const EventPtr highest = Received({}, 255);
  EXPECT_EQ(cv_exec_filter(highest.get(), &endpoint, 255), 1);
  EXPECT_EQ(cv_exec_filter(highest.get(), &endpoint, 128), 1);
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_exec_filter(highest.get(), &endpoint, 256), 0);
  EXPECT_TRUE(log.Has(kDebug, "cv_exec_filter: skipping query priority 255 > my importance 256"));
}

TEST(ExecFilter, GoesOnToTheIdentityFilter) {
  const corvane_endpoint endpoint = Lamp();
  EXPECT_EQ(cv_exec_filter(Received({Addressed('L')}).get(), &endpoint, 0), 1);
  EXPECT_EQ(cv_exec_filter(Received({Addressed('x')}).get(), &endpoint, 0), 0);
  EXPECT_EQ(cv_exec_filter(Received({Named("tv")}).get(), &endpoint, 0), 0);
}

TEST(Filters, OfNullOrAnUndecodedEventAreZero) {
  const corvane_endpoint endpoint = Lamp();
  const EventPtr undecoded = Wrap(PduImage().Signed(Text("secret")));
  for (Event* ev : {static_cast<Event*>(nullptr), undecoded.get()}) {
    const LogCapture log(kTrace);
    EXPECT_EQ(cv_exec_filter(ev, &endpoint, 0), 0);
    EXPECT_EQ(cv_sender_id_or_wildcard_filter(ev, &endpoint), 0);
    EXPECT_EQ(cv_role_filter(ev, &endpoint), 0);
    EXPECT_EQ(cv_name_filter(ev, &endpoint), 0);
    EXPECT_EQ(cv_keyword_filter(ev, &endpoint), 0);
    EXPECT_EQ(cv_category_filter(ev, &endpoint), 0);
    EXPECT_TRUE(log.lines().empty());
  }
}

TEST(Filters, SkipAMissingListAndEmptySlots) {
  const corvane_endpoint endpoint = Lamp();
  const EventPtr no_list = Received({Addressed('x'), Named("tv")});
  cv_free_tlvs(no_list.get());
  EXPECT_EQ(no_list->pak->tlv_count, 2);
  EXPECT_EQ(cv_exec_filter(no_list.get(), &endpoint, 0), 1);

  const EventPtr hole = Received({Addressed('x'), Named("lamp*"), InRole("lamp")});
  vt_free_tlv_ptr(hole->tlvs[0]);
  hole->tlvs[0] = nullptr;
  EXPECT_EQ(cv_exec_filter(hole.get(), &endpoint, 0), 1);
}

TEST(Filters, StopAtTheCapacityOfTheList) {
  const corvane_endpoint endpoint = Lamp();
  const EventPtr ev = Received({Named("lamp*")});
  ev->pak->tlv_count = 1000;
  EXPECT_EQ(cv_exec_filter(ev.get(), &endpoint, 0), 1);
}

TEST(Filters, IgnoreAttributes) {
  const corvane_endpoint endpoint = Lamp();
  const Bytes number = vt::testing::U32(9);
  const EventPtr ev =
      Received({Element(kIdentity, 0, Bytes(36, 'x')), Element(kName, 0, Text("tv")),
                Element(kRole, 0, Text("tv")), Element(kKeywords, 0, Hex("7a00")),
                Element(kCategory, 0, number), Element(kIdentity, 2, Bytes(36, 'x'))});
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(ev.get(), &endpoint), 1);
}

TEST(IdentityFilter, PassesOnAnyMatchWithoutAskingTheOthers) {
  corvane_endpoint endpoint = Lamp(2);
  endpoint.name = nullptr;
  endpoint.role = nullptr;
  endpoint.keywords = nullptr;
  const EventPtr ev = Received({Named("tv"), Addressed('x'), Addressed('L'), InCategory(7)});
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(ev.get(), &endpoint), 1);
  EXPECT_EQ(category_call.calls, 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(IdentityFilter, FailsOnOtherIdentitiesEvenIfNameAndRoleMatch) {
  const corvane_endpoint endpoint = Lamp();
  const EventPtr ev =
      Received({Addressed('x'), Named("lamp-7"), InRole("lamp"), Addressed('y'), InCategory(1)});
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(ev.get(), &endpoint), 0);
  EXPECT_EQ(category_call.calls, 0);
}

TEST(IdentityFilter, ComparesTheFirst32BytesOnly) {
  const corvane_endpoint endpoint = Lamp();
  EXPECT_EQ(
      cv_sender_id_or_wildcard_filter(Received({Addressed('L', "ffffffff")}).get(), &endpoint), 1);
  Bytes other = Bytes(36, 'L');
  other[31] = 'M';
  EXPECT_EQ(
      cv_sender_id_or_wildcard_filter(Received({Element(kIdentity, 1, other)}).get(), &endpoint),
      0);
}

TEST(IdentityFilter, ComparesPastZeroBytes) {
  corvane_endpoint endpoint = Lamp();
  std::memset(endpoint.identity, 0, sizeof endpoint.identity);
  endpoint.identity[31] = 1;
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({Addressed(0)}).get(), &endpoint), 0);
  const Bytes own = Hex("31*00 01 00000000");
  EXPECT_EQ(
      cv_sender_id_or_wildcard_filter(Received({Element(kIdentity, 1, own)}).get(), &endpoint), 1);
}

TEST(IdentityFilter, CountsAnIdentityWithoutAValueAsAnother) {
  const corvane_endpoint endpoint = Lamp();
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({Empty(kIdentity)}).get(), &endpoint), 0);
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({Empty(kIdentity), Addressed('L')}).get(),
                                            &endpoint),
            1);
}

TEST(IdentityFilter, WithoutIdentitiesAsksAllFour) {
  const corvane_endpoint endpoint = Lamp();
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({}).get(), &endpoint), 1);
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({InRole("tv")}).get(), &endpoint), 0);
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({Named("tv")}).get(), &endpoint), 0);
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({WithKeywords("7a00")}).get(), &endpoint), 0);
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({InCategory(7)}).get(), &endpoint), 0);
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(
                Received({InCategory(1), WithKeywords("6300"), Named("lamp*"), InRole("l*")}).get(),
                &endpoint),
            1);
}

// The order shows in what is reported and in who is asked.
TEST(IdentityFilter, StopsAtTheFirstFilterThatFails) {
  corvane_endpoint endpoint = Lamp();
  endpoint.keywords = "";
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({InRole("tv"), WithKeywords("6100")}).get(),
                                            &endpoint),
            0);
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({Named("tv"), WithKeywords("6100")}).get(),
                                            &endpoint),
            0);
  EXPECT_EQ(log.Count(kWarn, "cv_keyword_filter: No keywords defined!"), 0u);
  EXPECT_EQ(cv_sender_id_or_wildcard_filter(Received({WithKeywords("6100")}).get(), &endpoint), 0);
  EXPECT_EQ(log.Count(kWarn, "cv_keyword_filter: No keywords defined!"), 1u);
  EXPECT_EQ(category_call.calls, 0);
}

struct TextFilter {
  const char* what;
  std::uint32_t type;
  int (*filter)(Event*, const corvane_endpoint*);
  const char* corvane_endpoint::*own;
};
const TextFilter kTextFilters[] = {
    {"name", kName, &cv_name_filter, &corvane_endpoint::name},
    {"role", kRole, &cv_role_filter, &corvane_endpoint::role},
};

TEST(NameAndRoleFilter, TakeTheQuerysValueAsThePattern) {
  const struct {
    const char* own;
    const char* asked;
    int pass;
  } rows[] = {
      {"lamp-7", "lamp*", 1}, {"lamp-7", "lamp", 0},  {"lamp-7", "lamp-7", 1},
      {"lamp-7", "*", 1},     {"lamp-7", "Lamp*", 0}, {"lamp*", "lamp-7", 0},
      {"", "*", 1},
  };
  for (const TextFilter& of : kTextFilters) {
    for (const auto& row : rows) {
      corvane_endpoint endpoint = Lamp();
      endpoint.*of.own = row.own;
      const EventPtr ev = Received({Element(of.type, 1, Text(row.asked))});
      EXPECT_EQ(of.filter(ev.get(), &endpoint), row.pass)
          << of.what << " " << row.own << " asked for " << row.asked;
    }
  }
}

TEST(NameAndRoleFilter, PassOnAnyOfSeveral) {
  for (const TextFilter& of : kTextFilters) {
    corvane_endpoint endpoint = Lamp();
    endpoint.*of.own = "lamp-7";
    EXPECT_EQ(of.filter(Received({Element(of.type, 1, Text("tv")), Element(14, 0, Hex("05")),
                                  Element(of.type, 1, Text("lamp*"))})
                            .get(),
                        &endpoint),
              1)
        << of.what;
    EXPECT_EQ(
        of.filter(
            Received({Element(of.type, 1, Text("tv")), Element(of.type, 1, Text("radio"))}).get(),
            &endpoint),
        0)
        << of.what;
  }
}

TEST(NameAndRoleFilter, PassAQueryThatNamesNobody) {
  for (const TextFilter& of : kTextFilters) {
    const corvane_endpoint endpoint = Lamp();
    EXPECT_EQ(of.filter(Received({}).get(), &endpoint), 1) << of.what;
    EXPECT_EQ(of.filter(Received({Element(8, 0, Text("home"))}).get(), &endpoint), 1) << of.what;
  }
}

TEST(NameAndRoleFilter, FailEveryQueryOfAnEndpointWithoutOne) {
  for (const TextFilter& of : kTextFilters) {
    corvane_endpoint endpoint = Lamp();
    endpoint.*of.own = nullptr;
    EXPECT_EQ(of.filter(Received({}).get(), &endpoint), 0) << of.what;
    EXPECT_EQ(of.filter(Received({Element(of.type, 1, Text("*"))}).get(), &endpoint), 0) << of.what;
    EXPECT_EQ(cv_exec_filter(Received({}).get(), &endpoint, 0), 0) << of.what;
  }
}

TEST(NameAndRoleFilter, TakeAnEmptyQualifierAsTheEmptyPattern) {
  for (const TextFilter& of : kTextFilters) {
    corvane_endpoint endpoint = Lamp();
    endpoint.*of.own = "lamp";
    EXPECT_EQ(of.filter(Received({Empty(of.type)}).get(), &endpoint), 0) << of.what;
    // The walk goes on behind it.
    EXPECT_EQ(
        of.filter(Received({Empty(of.type), Element(of.type, 1, Text("lamp"))}).get(), &endpoint),
        1)
        << of.what;
    endpoint.*of.own = "";
    EXPECT_EQ(of.filter(Received({Empty(of.type)}).get(), &endpoint), 1) << of.what;
  }
}

TEST(KeywordFilter, PassesWhenAnItemIsShared) {
  const struct {
    const char* own;
    const char* asked;
    int pass;
  } rows[] = {
      {"a,c", "6200 6300", 1},   // b, c
      {"a,cc", "6200 6300", 0},  // only whole items count
      {"a,c", "6363 00", 0},     // cc
      {"a,C", "6300", 0},        // case counts
      {"a", "6100", 1},
      {"b,a", "6100 6200", 1},
      {"a,,b", "00", 1},  // empty items match empty items
      {"a,b", "00", 0},
      {"a,", "7a00 00", 1},        // the last own item is empty
      {"a,b", "7a00 00 6200", 1},  // past an empty item
      {"kitchen", "6b69746368656e00", 1},
  };
  for (const auto& row : rows) {
    corvane_endpoint endpoint = Lamp();
    endpoint.keywords = row.own;
    const EventPtr ev = Received({WithKeywords(row.asked)});
    const LogCapture log(kTrace);
    EXPECT_EQ(cv_keyword_filter(ev.get(), &endpoint), row.pass) << row.own << " " << row.asked;
    EXPECT_TRUE(log.lines().empty());
  }
}

// The value decodes to a block of its exact size: nothing behind it may be read.
TEST(KeywordFilter, EndsAnUnterminatedLastItemWithTheValue) {
  const struct {
    const char* own;
    const char* asked;
    int pass;
  } rows[] = {
      {"abc", "616263", 1},
      {"abcd", "616263", 0},
      {"ab", "616263", 0},
      {"abc", "7a00 616263", 1},
      {"abcd", "7a00 616263", 0},
      {"a", "61", 1},
      {"", "61", 0},
      {"a,", "6162", 0},
  };
  for (const auto& row : rows) {
    const LogCapture quiet(kSilent);
    corvane_endpoint endpoint = Lamp();
    endpoint.keywords = row.own;
    EXPECT_EQ(cv_keyword_filter(Received({WithKeywords(row.asked)}).get(), &endpoint), row.pass)
        << row.own << " " << row.asked;
  }
}

TEST(KeywordFilter, PassesAQueryWithoutKeywords) {
  corvane_endpoint endpoint = Lamp();
  for (const char* own : {static_cast<const char*>(nullptr), "", "a"}) {
    endpoint.keywords = own;
    const LogCapture log(kTrace);
    EXPECT_EQ(cv_keyword_filter(Received({}).get(), &endpoint), 1);
    EXPECT_EQ(log.AtOrAbove(kWarn).size(), 0u);
  }
}

TEST(KeywordFilter, FailsWithALineWhenTheEndpointHasNone) {
  corvane_endpoint endpoint = Lamp();
  for (const char* own : {static_cast<const char*>(nullptr), ""}) {
    endpoint.keywords = own;
    const EventPtr ev = Received({WithKeywords("6100")});
    const LogCapture log(kTrace);
    EXPECT_EQ(cv_keyword_filter(ev.get(), &endpoint), 0);
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{kWarn, "cv_keyword_filter: No keywords defined!"}}));
  }
}

TEST(KeywordFilter, FailsOnAQualifierWithoutItems) {
  corvane_endpoint endpoint = Lamp();
  for (const char* own : {"a", ",", "a,,b"}) {
    endpoint.keywords = own;
    EXPECT_EQ(cv_keyword_filter(Received({Empty(kKeywords)}).get(), &endpoint), 0) << own;
  }
}

TEST(KeywordFilter, LooksAtTheFirstQualifierOnly) {
  const corvane_endpoint endpoint = Lamp();
  EXPECT_EQ(
      cv_keyword_filter(Received({WithKeywords("7a00"), WithKeywords("6100")}).get(), &endpoint),
      0);
  EXPECT_EQ(
      cv_keyword_filter(Received({WithKeywords("6100"), WithKeywords("7a00")}).get(), &endpoint),
      1);
  EXPECT_EQ(cv_keyword_filter(Received({Empty(kKeywords), WithKeywords("6100")}).get(), &endpoint),
            0);
}

TEST(KeywordFilter, LeavesTheEndpointsKeywordsAlone) {
  corvane_endpoint endpoint = Lamp();
  const GuardedBytes own(Hex("612c6300"));
  endpoint.keywords = reinterpret_cast<const char*>(own.data());
  EXPECT_EQ(cv_keyword_filter(Received({WithKeywords("6300")}).get(), &endpoint), 1);
  EXPECT_BYTES(own.data(), 4, "612c6300");
}

// The filter passes what it cannot decide.
TEST(KeywordFilter, WithoutMemoryPassesWithALine) {
  const corvane_endpoint endpoint = Lamp();
  const EventPtr ev = Received({WithKeywords("7a00")});
  const LogCapture log(kTrace);
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(cv_keyword_filter(ev.get(), &endpoint), 1);
  }
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{{kError, "cv_keyword_filter: memory allocation failed"}}));
}

TEST(CategoryFilter, ComparesWithWhatTheEndpointsFunctionAnswers) {
  const corvane_endpoint endpoint = Lamp(2);
  const EventPtr ev = Received({InCategory(2)});
  EXPECT_EQ(cv_category_filter(ev.get(), &endpoint), 1);
  EXPECT_EQ(category_call.ev, ev.get());
  EXPECT_EQ(category_call.endpoint, &endpoint);
  EXPECT_GE(category_call.calls, 1);
  EXPECT_EQ(cv_category_filter(Received({InCategory(1)}).get(), &endpoint), 0);
}

TEST(CategoryFilter, PassesOnAnyOfSeveral) {
  const corvane_endpoint endpoint = Lamp(0xFFFFFFFF);
  EXPECT_EQ(cv_category_filter(Received({InCategory(1), InCategory(0xFFFFFFFF)}).get(), &endpoint),
            1);
  EXPECT_EQ(cv_category_filter(Received({InCategory(1), InCategory(2)}).get(), &endpoint), 0);
}

TEST(CategoryFilter, WithoutQualifiersPassesCategoryOne) {
  const EventPtr ev = Received({});
  const LogCapture log(kTrace);
  corvane_endpoint endpoint = Lamp(1);
  EXPECT_EQ(cv_category_filter(ev.get(), &endpoint), 1);
  endpoint = Lamp(1);
  EXPECT_EQ(cv_exec_filter(ev.get(), &endpoint, 0), 1);
  EXPECT_TRUE(log.lines().empty());
}

TEST(CategoryFilter, WithoutQualifiersFailsEveryOtherCategoryWithALine) {
  const EventPtr ev = Received({});
  for (const std::uint32_t category : {2u, 0u, 0xFFFFFFFFu}) {
    const corvane_endpoint endpoint = Lamp(category);
    const LogCapture log(kTrace);
    EXPECT_EQ(cv_category_filter(ev.get(), &endpoint), 0) << category;
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{kTrace, "cv_category_filter: false"}}));
  }
}

TEST(CategoryFilter, WithQualifiersThatDoNotMatchFailsInSilence) {
  const corvane_endpoint endpoint = Lamp(1);
  const EventPtr ev = Received({InCategory(2)});
  const LogCapture log(kTrace);
  EXPECT_EQ(cv_category_filter(ev.get(), &endpoint), 0);
  EXPECT_TRUE(log.lines().empty());
}

TEST(CategoryFilter, WithoutAFunctionTheCategoryIsOne) {
  corvane_endpoint endpoint = Lamp();
  endpoint.category = nullptr;
  EXPECT_EQ(cv_category_filter(Received({}).get(), &endpoint), 1);
  EXPECT_EQ(cv_category_filter(Received({InCategory(1)}).get(), &endpoint), 1);
  EXPECT_EQ(cv_category_filter(Received({InCategory(2)}).get(), &endpoint), 0);
}

TEST(CategoryFilter, CountsAQualifierWithoutAValueAsAnother) {
  const corvane_endpoint endpoint = Lamp(1);
  EXPECT_EQ(cv_category_filter(Received({Empty(kCategory)}).get(), &endpoint), 0);
  EXPECT_EQ(cv_category_filter(Received({Empty(kCategory), InCategory(1)}).get(), &endpoint), 1);
  const corvane_endpoint zero = Lamp(0);
  EXPECT_EQ(cv_category_filter(Received({Empty(kCategory)}).get(), &zero), 0);
}

TEST(Filters, SurviveEveryFailedAllocation) {
  const corvane_endpoint endpoint = Lamp();
  const EventPtr ev =
      Received({InRole("lamp"), Named("lamp*"), WithKeywords("6300"), InCategory(1)});
  const LogCapture quiet(kSilent);
  const std::size_t count =
      SweepAllocationFailures([&] { EXPECT_EQ(cv_exec_filter(ev.get(), &endpoint, 0), 1); });
  EXPECT_GT(count, 0u);
}

}  // namespace
}  // namespace vt::filter
