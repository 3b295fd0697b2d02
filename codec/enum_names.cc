// The look-ups between the values and the names of all enumerations, made from the lists in the
// public header.
#include <cstdint>
#include <cstring>
#include <span>

#include "vtapi/enumerations.h"

namespace {

enum class Match { kWhole, kPrefix };

struct NamedValue {
  const char* name;
  std::int32_t value;
  Match match;
};

const char* NameOf(std::span<const NamedValue> list, std::int32_t value) {
  for (const NamedValue& entry : list) {
    if (entry.value == value) return entry.name;
  }
  return nullptr;
}

bool Matches(const NamedValue& entry, const char* name) {
  const std::size_t len = std::strlen(entry.name);
  // Deliberate: five names match everything that begins with them; the others count their
  // terminator.
  return std::strncmp(entry.name, name, entry.match == Match::kPrefix ? len : len + 1) == 0;
}

std::int32_t ValueOf(std::span<const NamedValue> list, const char* name) {
  if (name == nullptr) return VT_UNKNOWN_NAME;
  for (const NamedValue& entry : list) {
    if (Matches(entry, name)) return entry.value;
  }
  return VT_UNKNOWN_NAME;
}

}  // namespace

#define VT_MATCH_WHOLE Match::kWhole
#define VT_MATCH_PREFIX Match::kPrefix
#define VT_NAMED_VALUE(name, value, match) {#name, value, match},
#define VT_DEFINE_LOOKUPS(word, LIST)                             \
  namespace {                                                     \
  constexpr NamedValue kList_##word[] = {LIST(VT_NAMED_VALUE)};   \
  }                                                               \
  extern "C" const char* cv_util_e2s_##word(std::int32_t value) { \
    return NameOf(kList_##word, value);                           \
  }                                                               \
  extern "C" std::int32_t cv_util_s2e_##word(const char* name) {  \
    return ValueOf(kList_##word, name);                           \
  }

CV_ENUMERATION_LIST(VT_DEFINE_LOOKUPS)
