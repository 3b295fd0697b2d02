#include "node/changes.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "vtapi.h"

namespace vt::node {
namespace {

constexpr int kBlanksAllowed = 2;

bool TakeText(const std::string& text, std::optional<std::string>& out) {
  if (text.size() > kLongestText) return false;
  if (vtn_string_in_whitelist(text.c_str(), kBlanksAllowed) == 0) return false;
  out = text;
  return true;
}

// Keywords come as items that a zero byte ends each, or as one text with commas and its zero byte.
bool TakeKeywords(const Tlv& element, std::optional<std::string>& out) {
  const std::uint32_t size = element.length - VT_TLV_HEADER_SIZE;
  const std::unique_ptr<char, decltype(&std::free)> list(
      cv_get_comma_sep_list(static_cast<const char*>(element.value), static_cast<int>(size)),
      &std::free);
  return list != nullptr && TakeText(list.get(), out);
}

bool TakeByte(const Tlv& element, std::uint8_t limit, std::optional<std::uint8_t>& out) {
  const std::uint8_t value = *static_cast<const std::uint8_t*>(element.value);
  if (value > limit) return false;
  out = value;
  return true;
}

bool TakeElement(const Tlv& element, Changes& changes) {
  const auto text = [&element] { return std::string(static_cast<const char*>(element.value)); };
  switch (element.type) {
    case CV_CORVANE_TLV_TYPE_NAME:
      return TakeText(text(), changes.name);
    case CV_CORVANE_TLV_TYPE_ROLE:
      return TakeText(text(), changes.role);
    case CV_CORVANE_TLV_TYPE_KEYWORDS:
      return TakeKeywords(element, changes.keywords);
    case CV_CORVANE_TLV_TYPE_LEVEL_CURRENT:
      return TakeByte(element, kLevels - 1, changes.level);
    case CV_CORVANE_TLV_TYPE_IMPORTANCE_I:
      return TakeByte(element, 255, changes.importance);
    // A request to be told one of these comes with zeros as a value.
    case CV_CORVANE_TLV_TYPE_UNITS:
    case CV_CORVANE_TLV_TYPE_USAGE:
    case VT_TLV_DELTA_VECTOR:
    case VT_TLV_USAGE_CALIBER:
    case VT_TLV_USAGE_VECTOR:
    case VT_TLV_USAGE_CATEGORY:
      return true;
    default:
      return false;
  }
}

}  // namespace

void Changes::ApplyTo(Device& device) const {
  if (name) device.name = *name;
  if (role) device.role = *role;
  if (keywords) device.keywords = *keywords;
  if (importance) device.importance = *importance;
  if (level) device.SetLevel(*level);
}

std::optional<Changes> ReadChanges(const ReceivedQuery& query) {
  Changes changes;
  for (const Tlv* element : query.attributes()) {
    if (element->value == nullptr) continue;
    if (!TakeElement(*element, changes)) return std::nullopt;
  }
  return changes;
}

}  // namespace vt::node
