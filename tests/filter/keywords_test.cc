#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/harness/faults.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"

namespace vt::filter {
namespace {

using vt::testing::AllocationCount;
using vt::testing::AllocationFault;
using vt::testing::Bytes;
using vt::testing::FillAllocations;
using vt::testing::GuardedBytes;
using vt::testing::HeapBytes;
using vt::testing::Hex;
using vt::testing::kDebug;
using vt::testing::kError;
using vt::testing::kFatal;
using vt::testing::kSilent;
using vt::testing::kTrace;
using vt::testing::LogCapture;
using vt::testing::LogLine;
using vt::testing::Text;

struct Free {
  void operator()(void* block) const { std::free(block); }
};
using TextPtr = std::unique_ptr<char, Free>;

struct FreeList {
  void operator()(char** list) const { freeKeywordList(list); }
};
using ListPtr = std::unique_ptr<char*, FreeList>;

const char* Chars(const GuardedBytes& bytes) { return reinterpret_cast<const char*>(bytes.data()); }

// Terminated puts the text and its zero at the very end of a readable page.
Bytes Terminated(const std::string& text) {
  Bytes bytes = Text(text);
  bytes.push_back(0);
  return bytes;
}

TEST(WildcardMatch, TakesAStarAtTheEndForAnyRest) {
  const struct {
    const char* subject;
    const char* pattern;
    int match;
  } rows[] = {
      {"lamp-7", "lamp*", 1},
      {"lamp-7", "lamp", 0},
      {"lamp-7", "lamp-7", 1},
      {"lamp-7", "Lamp*", 0},
      {"lamp-7", "*", 1},
      {"", "*", 1},
      {"lamp", "lamp*", 1},
      {"lam", "lamp*", 0},
      {"", "lamp*", 0},
      {"lamp-7", "amp*", 0},
      {"lamp", "lamp-7", 0},
      {"Lamp-7", "lamp-7", 0},
      {"", "", 1},
      {"lamp", "", 0},
      {"lamp-7", "lamp-*", 1},
  };
  for (const auto& row : rows) {
    const GuardedBytes subject(Terminated(row.subject));
    const GuardedBytes pattern(Terminated(row.pattern));
    EXPECT_EQ(cv_wildcard_match(Chars(subject), Chars(pattern)), row.match)
        << row.subject << " against " << row.pattern;
  }
}

TEST(WildcardMatch, TakesAStarElsewhereAsACharacter) {
  EXPECT_EQ(cv_wildcard_match("lamp-7", "l*7"), 0);
  EXPECT_EQ(cv_wildcard_match("l*7", "l*7"), 1);
  EXPECT_EQ(cv_wildcard_match("*lamp", "*lamp"), 1);
  EXPECT_EQ(cv_wildcard_match("a lamp", "*lamp"), 0);
  EXPECT_EQ(cv_wildcard_match("*x", "**"), 1);
  EXPECT_EQ(cv_wildcard_match("x", "**"), 0);
}

TEST(WildcardMatch, OfNullIsNoMatch) {
  EXPECT_EQ(cv_wildcard_match(nullptr, "*"), 0);
  EXPECT_EQ(cv_wildcard_match("lamp", nullptr), 0);
  EXPECT_EQ(cv_wildcard_match(nullptr, nullptr), 0);
}

TEST(WildcardMatch, ReadsNothingBeforeAnEmptyPattern) {
  const HeapBytes empty(Bytes{0});
  const char* pattern = reinterpret_cast<const char*>(empty.data());
  EXPECT_EQ(cv_wildcard_match("", pattern), 1);
  EXPECT_EQ(cv_wildcard_match("lamp", pattern), 0);
}

TEST(WildcardMatch, ReadsNothingBehindAShortSubject) {
  const GuardedBytes subject(Terminated("la"));
  EXPECT_EQ(cv_wildcard_match(Chars(subject), "lamp-in-the-kitchen*"), 0);
  EXPECT_EQ(cv_wildcard_match(Chars(subject), "lamp-in-the-kitchen"), 0);
}

TEST(CommaList, BecomesAKeywordListInPlace) {
  const struct {
    const char* list;
    int size;
    const char* bytes;
  } rows[] = {
      {"a,,b", 5, "6100 00 6200"}, {"ab,c", 5, "616200 6300"}, {"", 1, "00"}, {",", 2, "0000"},
      {"abc", 4, "61626300"},      {"a,", 3, "6100 00"},
  };
  for (const auto& row : rows) {
    GuardedBytes list(Terminated(row.list));
    EXPECT_EQ(cv_comma_list2kwl(reinterpret_cast<char*>(list.data())), row.size) << row.list;
    EXPECT_BYTES(list.data(), list.size(), row.bytes) << row.list;
  }
}

TEST(CommaList, OfNullHasNoSize) { EXPECT_EQ(cv_comma_list2kwl(nullptr), 0); }

TEST(ConvertedKeywordList, IsANewBlock) {
  const GuardedBytes list(Terminated("a,,b"));
  const FillAllocations garbage(0xA5);
  const TextPtr converted(corvane_conv_kw_list(Chars(list)));
  ASSERT_NE(converted, nullptr);
  EXPECT_BYTES(converted.get(), 5, "6100 00 6200");
  EXPECT_BYTES(list.data(), 5, "61 2c 2c 62 00");
}

TEST(ConvertedKeywordList, OfNullOrWithoutMemoryIsNull) {
  EXPECT_EQ(corvane_conv_kw_list(nullptr), nullptr);
  const AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(corvane_conv_kw_list("a,b"), nullptr);
}

TEST(CommaSeparatedList, JoinsTheItems) {
  const struct {
    const char* list;
    const char* text;
  } rows[] = {
      {"616200 6300", "ab,c"},
      {"616200 63", "ab,c"},
      {"0000", ","},
      {"000000", ",,"},
      {"00", ""},
      {"616200", "ab"},
      {"6162", "ab"},
      {"61", "a"},
      {"6100 00 6200", "a,,b"},
      {"6100 00", "a,"},
      {"00 6100", ",a"},
  };
  for (const auto& row : rows) {
    const Bytes bytes = Hex(row.list);
    const GuardedBytes list(bytes);
    const FillAllocations garbage(0xA5);
    const TextPtr text(cv_get_comma_sep_list(Chars(list), static_cast<int>(bytes.size())));
    ASSERT_NE(text, nullptr) << row.list;
    EXPECT_STREQ(text.get(), row.text) << row.list;
    EXPECT_TRUE(vt::testing::SameBytes(bytes, list.data(), bytes.size()));
  }
}

TEST(CommaSeparatedList, ReadsNoMoreThanItsSize) {
  const GuardedBytes list(Hex("6162 00 63"));
  const TextPtr text(cv_get_comma_sep_list(Chars(list), 2));
  EXPECT_STREQ(text.get(), "ab");
}

TEST(CommaSeparatedList, OfNothingOrWithoutMemoryIsNull) {
  EXPECT_EQ(cv_get_comma_sep_list(nullptr, 4), nullptr);
  EXPECT_EQ(cv_get_comma_sep_list("ab", 0), nullptr);
  EXPECT_EQ(cv_get_comma_sep_list("ab", -1), nullptr);
  EXPECT_EQ(cv_get_comma_sep_list("ab", INT32_MIN), nullptr);
  const AllocationFault fault = AllocationFault::Nth(0);
  EXPECT_EQ(cv_get_comma_sep_list("ab", 3), nullptr);
}

TEST(Whitelist, TakesABlankInModeTwoOnly) {
  EXPECT_EQ(vtn_string_in_whitelist("my room", 1), 0);
  EXPECT_EQ(vtn_string_in_whitelist("my room", 2), 1);
  EXPECT_EQ(vtn_string_in_whitelist("my room", 0), 0);
  EXPECT_EQ(vtn_string_in_whitelist("my room", 3), 0);
  EXPECT_EQ(vtn_string_in_whitelist(" ", 2), 1);
  EXPECT_EQ(vtn_string_in_whitelist("myroom", 1), 1);
}

TEST(Whitelist, RefusesAStarInEveryMode) {
  for (int mode = -1; mode < 5; ++mode) EXPECT_EQ(vtn_string_in_whitelist("a*b", mode), 0) << mode;
}

TEST(Whitelist, RefusesNullAndTheEmptyText) {
  for (int mode = 0; mode < 4; ++mode) {
    EXPECT_EQ(vtn_string_in_whitelist("", mode), 0) << mode;
    EXPECT_EQ(vtn_string_in_whitelist(nullptr, mode), 0) << mode;
  }
}

TEST(Whitelist, HoldsExactlyTheseCharacters) {
  const std::string allowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789~!@#$%^&()_-+={}[]\\:.,></";
  for (int c = 1; c < 256; ++c) {
    const std::string text = {'a', static_cast<char>(c), 'b'};
    const bool listed = allowed.find(static_cast<char>(c)) != std::string::npos;
    EXPECT_EQ(vtn_string_in_whitelist(text.c_str(), 1), listed ? 1 : 0) << c;
    EXPECT_EQ(vtn_string_in_whitelist(text.c_str(), 2), listed || c == ' ' ? 1 : 0) << c;
  }
  EXPECT_EQ(vtn_string_in_whitelist(allowed.c_str(), 1), 1);
}

TEST(Whitelist, LooksAtEveryCharacter) {
  EXPECT_EQ(vtn_string_in_whitelist("*ab", 1), 0);
  EXPECT_EQ(vtn_string_in_whitelist("ab*", 1), 0);
  EXPECT_EQ(vtn_string_in_whitelist("ab\n", 2), 0);
}

std::vector<std::string> Items(char** list) {
  std::vector<std::string> items;
  for (; *list != nullptr; ++list) items.emplace_back(*list);
  return items;
}

TEST(KeywordArray, HasTheItemsBetweenSeparators) {
  const struct {
    const char* text;
    std::vector<std::string> items;
    int logged;
  } rows[] = {
      {" a, b\tc ", {"a", "b", "c"}, 4},
      {"", {}, 1},
      {",,", {}, 1},
      {" a", {"a"}, 1},
      {"a", {"a"}, 1},
      {"a,", {"a"}, 2},
      {"a,b", {"a", "b"}, 2},
      {"kitchen lamp\thall", {"kitchen", "lamp", "hall"}, 3},
      {"\t, ,\t", {}, 1},
      {"a,,  ,b", {"a", "b"}, 2},
  };
  for (const auto& row : rows) {
    const GuardedBytes text(Terminated(row.text));
    const FillAllocations garbage(0xA5);
    const LogCapture log(kTrace);
    const ListPtr list(createKeywordList(Chars(text)));
    ASSERT_NE(list, nullptr) << row.text;
    EXPECT_EQ(Items(list.get()), row.items) << row.text;
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{kDebug, "createKeywordList: configuring keywords (" +
                                                 std::to_string(row.logged) + ")"}}))
        << row.text;
  }
}

TEST(KeywordArray, LeavesItsArgumentAlone) {
  const GuardedBytes text(Terminated("a,b"));
  const ListPtr list(createKeywordList(Chars(text)));
  EXPECT_BYTES(text.data(), 4, "61 2c 62 00");
}

// Two blocks; the slot behind the terminator remembers the block with the texts.
TEST(KeywordArray, IsTwoBlocksAndKeepsTheAddressOfTheTexts) {
  for (const char* text : {"a,b", " a", "", ",,", "a b c d e f"}) {
    std::size_t allocations = 0;
    char** list = nullptr;
    {
      const AllocationCount count;
      list = createKeywordList(text);
      allocations = count.allocations();
    }
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(allocations, 2u) << text;
    std::size_t end = 0;
    while (list[end] != nullptr) ++end;
    char* const texts = list[end + 1];
    ASSERT_NE(texts, nullptr) << text;
    for (std::size_t i = 0; i < end; ++i) {
      EXPECT_GE(list[i], texts);
      EXPECT_LT(list[i], texts + std::strlen(text) + 1);
    }
    std::free(texts);
    std::free(list);
  }
}

// A slot for each item, one for the null that ends them, one for the texts, and the texts.
TEST(KeywordArray, AllocatesNoMoreSlotsThanItFills) {
  const AllocationCount count;
  const ListPtr list(createKeywordList("a,b,c"));
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(count.bytes(), 5 * sizeof(char*) + sizeof "a,b,c");
}

TEST(KeywordArray, OfNullIsNullInSilence) {
  const LogCapture log(kTrace);
  EXPECT_EQ(createKeywordList(nullptr), nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST(KeywordArray, ReportsThatTheTextCannotBeDuplicated) {
  const LogCapture log(kTrace);
  {
    const AllocationFault fault = AllocationFault::Nth(0);
    EXPECT_EQ(createKeywordList("a,b"), nullptr);
  }
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{kError, "createKeywordList: strdup failed"}}));
}

TEST(KeywordArray, WithoutMemoryIsNullOnASilencedLogToo) {
  const LogCapture log(kSilent);
  for (const std::size_t failed : {0U, 1U}) {
    const AllocationFault fault = AllocationFault::Nth(failed);
    EXPECT_EQ(createKeywordList("a,b"), nullptr);
    EXPECT_TRUE(fault.hit());
  }
  EXPECT_TRUE(log.lines().empty());
}

TEST(KeywordArray, ReportsThatTheSlotsCannotBeAllocated) {
  const LogCapture log(kTrace);
  {
    const AllocationFault fault = AllocationFault::Nth(1);
    EXPECT_EQ(createKeywordList("a,b"), nullptr);
  }
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{{kDebug, "createKeywordList: configuring keywords (2)"},
                                  {kFatal, "createKeywordList: out of memory"}}));
}

TEST(KeywordArray, FreeIgnoresNull) { freeKeywordList(nullptr); }

}  // namespace
}  // namespace vt::filter
