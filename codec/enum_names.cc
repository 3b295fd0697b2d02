// The look-ups between the values and the names of all enumerations, made from the lists in the
// public header. The tables hold no pointers: what a pointer leads to is known only once the
// library is loaded, and each of them would have to be set right there, in pages that no other
// process shares.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "vtapi/enumerations.h"

namespace {

// AllNames has every name, one behind the other.
struct AllNames {
#define VT_NAME_ROOM(name, value, match) char name[sizeof #name];
#define VT_NAME_ROOMS(word, LIST) LIST(VT_NAME_ROOM)
  CV_ENUMERATION_LIST(VT_NAME_ROOMS)
};

constexpr AllNames kNames = {
#define VT_NAME_TEXT(name, value, match) #name,
#define VT_NAME_TEXTS(word, LIST) LIST(VT_NAME_TEXT)
    CV_ENUMERATION_LIST(VT_NAME_TEXTS)};

enum class Match : std::uint16_t { kWhole, kPrefix };

struct NamedValue {
  std::int32_t value;
  std::uint16_t name;  // its place in kNames
  Match match;
};
static_assert(sizeof(AllNames) <= UINT16_MAX);

const char* TextOf(const NamedValue& entry) {
  return static_cast<const char*>(static_cast<const void*>(&kNames)) + entry.name;
}

const char* NameOf(std::span<const NamedValue> list, std::int32_t value) {
  for (const NamedValue& entry : list) {
    if (entry.value == value) return TextOf(entry);
  }
  return nullptr;
}

bool Matches(const NamedValue& entry, const char* name) {
  const char* text = TextOf(entry);
  const std::size_t len = std::strlen(text);
  // Deliberate: five names match everything that begins with them; the others count their
  // terminator.
  return std::strncmp(text, name, entry.match == Match::kPrefix ? len : len + 1) == 0;
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
#define VT_NAMED_VALUE(name, value, match) {value, offsetof(AllNames, name), match},
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
