// The decision whether a received query is meant for an endpoint.
#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

#include "vtapi/enumerations.h"
#include "vtapi/filter.h"
#include "vtapi/keywords.h"

#include "protocol/tlv_list.h"
#include "support/bytes.h"
#include "support/heap.h"
#include "support/log.h"

namespace {

constexpr std::uint32_t kQualifier = 1;
constexpr std::uint32_t kDefaultCategory = 1;

// QualifierWalk visits the qualifiers of one type. Whether there is one is told by its slot, never
// by its value, which is null in an element of 12 bytes.
class QualifierWalk {
 public:
  QualifierWalk(const Event* ev, std::uint32_t type) : ev_(ev), type_(type) {}

  [[nodiscard]] bool Next() {
    ++index_;
    value_ = cv_get_next_tlv_value_common(ev_, &index_, type_, &length_, kQualifier);
    if (index_ == -1) return false;
    found_any_ = true;
    return true;
  }

  [[nodiscard]] const void* value() const { return value_; }
  [[nodiscard]] std::uint32_t length() const { return value_ != nullptr ? length_ : 0; }
  [[nodiscard]] bool found_any() const { return found_any_; }

 private:
  const Event* ev_;
  std::uint32_t type_;
  std::int32_t index_ = -1;
  std::uint32_t length_ = 0;
  const void* value_ = nullptr;
  bool found_any_ = false;
};

bool IsDecoded(const Event* ev) { return ev != nullptr && ev->pak != nullptr; }

// PassesTextFilter decides names and roles alike. An endpoint without one fails every query, also
// those that ask for nobody.
int PassesTextFilter(const Event* ev, std::uint32_t type, const char* own) {
  if (!IsDecoded(ev) || own == nullptr) return 0;
  QualifierWalk walk(ev, type);
  while (walk.Next()) {
    const char* pattern = walk.value() != nullptr ? static_cast<const char*>(walk.value()) : "";
    if (cv_wildcard_match(own, pattern) != 0) return 1;
  }
  return walk.found_any() ? 0 : 1;
}

// TakeItem cuts the next item off a keyword list; the last one may lack its zero byte.
std::string_view TakeItem(std::string_view& list) {
  const std::size_t end = list.find('\0');
  const std::string_view item(list.data(), std::min(end, list.size()));
  list.remove_prefix(end != std::string_view::npos ? end + 1 : list.size());
  return item;
}

bool SharesItem(std::string_view own, std::string_view asked) {
  while (!own.empty()) {
    const std::string_view own_item = TakeItem(own);
    for (std::string_view rest = asked; !rest.empty();) {
      if (TakeItem(rest) == own_item) return true;
    }
  }
  return false;
}

std::uint32_t CategoryOf(const Event* ev, const corvane_endpoint* endpoint) {
  return endpoint->category != nullptr ? endpoint->category(ev, endpoint) : kDefaultCategory;
}

}  // namespace

extern "C" {

int cv_exec_filter(Event* ev, const corvane_endpoint* endpoint, int importance) {
  if (!IsDecoded(ev)) return 0;
  const int priority = ev->pak->pri;
  if (priority < importance) {
    // Deliberate: the line says ">" although it is lower priorities that are skipped.
    VT_LOG(kDebug, "skipping query priority %d > my importance %d", priority, importance);
    return 0;
  }
  return cv_sender_id_or_wildcard_filter(ev, endpoint);
}

int cv_sender_id_or_wildcard_filter(Event* ev, const corvane_endpoint* endpoint) {
  if (!IsDecoded(ev)) return 0;
  QualifierWalk walk(ev, CV_CORVANE_TLV_TYPE_VLTRS_ID);
  while (walk.Next()) {
    if (walk.value() != nullptr && corvane_id_cmp(walk.value(), endpoint->identity) == 0) return 1;
  }
  // A query that addresses others never falls through to the other filters.
  if (walk.found_any()) return 0;
  const bool passes = cv_role_filter(ev, endpoint) != 0 && cv_name_filter(ev, endpoint) != 0 &&
                      cv_keyword_filter(ev, endpoint) != 0 && cv_category_filter(ev, endpoint) != 0;
  return passes ? 1 : 0;
}

int cv_role_filter(Event* ev, const corvane_endpoint* endpoint) {
  return PassesTextFilter(ev, CV_CORVANE_TLV_TYPE_ROLE, endpoint->role);
}

int cv_name_filter(Event* ev, const corvane_endpoint* endpoint) {
  return PassesTextFilter(ev, CV_CORVANE_TLV_TYPE_NAME, endpoint->name);
}

int cv_keyword_filter(Event* ev, const corvane_endpoint* endpoint) {
  if (!IsDecoded(ev)) return 0;
  QualifierWalk walk(ev, CV_CORVANE_TLV_TYPE_KEYWORDS);
  if (!walk.Next()) return 1;
  if (endpoint->keywords == nullptr || *endpoint->keywords == '\0') {
    VT_LOG(kWarn, "No keywords defined!");
    return 0;
  }
  const vt::support::Owned<char> own = vt::support::DuplicateText(endpoint->keywords);
  if (own == nullptr) {
    VT_LOG(kError, "memory allocation failed");
    return 1;  // who cannot decide answers
  }
  const auto own_size = static_cast<std::size_t>(cv_comma_list2kwl(own.get()));
  const std::string_view asked(static_cast<const char*>(walk.value()), walk.length());
  return SharesItem({own.get(), own_size}, asked) ? 1 : 0;
}

int cv_category_filter(Event* ev, const corvane_endpoint* endpoint) {
  if (!IsDecoded(ev)) return 0;
  const std::uint32_t category = CategoryOf(ev, endpoint);
  QualifierWalk walk(ev, VT_TLV_USAGE_CATEGORY);
  while (walk.Next()) {
    if (walk.value() != nullptr && vt::support::LoadHost<std::uint32_t>(walk.value()) == category) {
      return 1;
    }
  }
  if (walk.found_any()) return 0;
  if (category == kDefaultCategory) return 1;
  VT_LOG(kTrace, "false");
  return 0;
}

}  // extern "C"
