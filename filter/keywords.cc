// Keyword lists, wildcards and the characters of names.
#include "vtapi/keywords.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "support/heap.h"
#include "support/log.h"

namespace {

constexpr char kSeparator = ',';

constexpr std::string_view kWhitelist =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
    "~!@#$%^&()_-+={}[]\\:.,></";
constexpr int kBlankAllowed = 2;

bool IsItemSeparator(char c) { return c == ',' || c == ' ' || c == '\t'; }

// CountEndedItems counts the items that a separator ends; the last one may end with the text.
std::size_t CountEndedItems(std::string_view text) {
  std::size_t count = 0;
  bool in_item = false;
  for (const char c : text) {
    if (IsItemSeparator(c) && in_item) ++count;
    in_item = !IsItemSeparator(c);
  }
  return count;
}

// SplitItems ends each item of text with a zero byte and stores its address; returns how many.
std::size_t SplitItems(char* text, char** slots) {
  std::size_t count = 0;
  char* item = nullptr;
  // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult): a copied text
  for (char* at = text; *at != '\0'; ++at) {
    if (!IsItemSeparator(*at)) {
      if (item == nullptr) item = at;
      continue;
    }
    if (item != nullptr) {
      slots[count++] = item;
      *at = '\0';
    }
    item = nullptr;
  }
  if (item != nullptr) slots[count++] = item;
  return count;
}

}  // namespace

extern "C" {

int cv_wildcard_match(const char* subject, const char* pattern) {
  if (subject == nullptr || pattern == nullptr) return 0;
  const std::size_t n = std::strlen(pattern);
  const bool is_prefix = n > 0 && pattern[n - 1] == '*';
  // A whole match counts the terminators.
  return std::strncmp(subject, pattern, is_prefix ? n - 1 : n + 1) == 0 ? 1 : 0;
}

int cv_comma_list2kwl(char* str) {
  if (str == nullptr) return 0;
  const std::size_t length = std::strlen(str);
  std::replace(str, str + length, kSeparator, '\0');
  return static_cast<int>(length + 1);
}

char* corvane_conv_kw_list(const char* str) {
  if (str == nullptr) return nullptr;
  vt::support::Owned<char> copy = vt::support::DuplicateText(str);
  (void)cv_comma_list2kwl(copy.get());
  return copy.release();
}

char* cv_get_comma_sep_list(const char* list, int size) {
  if (list == nullptr || size <= 0) return nullptr;
  const auto length = static_cast<std::size_t>(size);
  // One byte more than the list, for the last item may lack its terminator.
  auto* text = static_cast<char*>(std::calloc(1, length + 1));
  if (text == nullptr) return nullptr;
  std::memcpy(text, list, length);
  std::replace(text, text + length - 1, '\0', kSeparator);
  return text;
}

int vtn_string_in_whitelist(const char* str, int mode) {
  if (str == nullptr || *str == '\0') return 0;
  const std::string_view text(str);
  const auto allowed = [mode](char c) {
    return kWhitelist.find(c) != std::string_view::npos || (mode == kBlankAllowed && c == ' ');
  };
  return std::all_of(text.begin(), text.end(), allowed) ? 1 : 0;
}

char** createKeywordList(const char* str) {
  if (str == nullptr) return nullptr;
  vt::support::Owned<char> text = vt::support::DuplicateText(str);
  if (text == nullptr) {
    VT_LOG(kError, "strdup failed");
    return nullptr;
  }
  const std::size_t most_items = CountEndedItems(text.get()) + 1;
  VT_LOG(kDebug, "configuring keywords (%d)", static_cast<int>(most_items));
  // The items, the null that ends them, and behind it the text that they lie in, for the release.
  auto** list = static_cast<char**>(std::calloc(most_items + 2, sizeof(char*)));
  if (list == nullptr) {
    VT_LOG(kFatal, "out of memory");
    return nullptr;
  }
  const std::size_t count = SplitItems(text.get(), list);
  list[count + 1] = text.release();
  return list;
}

void freeKeywordList(char** list) {
  if (list == nullptr) return;
  char** end = list;
  while (*end != nullptr) ++end;
  std::free(end[1]);
  std::free(list);
}

}  // extern "C"
