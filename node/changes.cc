#include "node/changes.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <span>
#include <string_view>

#include "vtapi.h"

namespace vt::node {
namespace {

constexpr int kBlanksAllowed = 2;

bool TakeText(const std::string& text, std::optional<std::string>& out) {
  out = text;
  return IsSettableText(text);
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
  out = value;
  return value <= limit;
}

bool TakeRecurrence(const Tlv& element, std::optional<Recurrence>& out) {
  const auto& record = *static_cast<const recurrence*>(element.value);
  out = Recurrence{record.text != nullptr ? record.text : "", record.byte1, record.byte2,
                   record.flag};
  return IsSettableRecurrence(*out);
}

// OnlyAsks tells whether the value of an attribute that can only be read stands for a question.
bool OnlyAsks(const Tlv& element) {
  if (vt_get_external_tlv_enum_type(element.type) < 0) return false;
  std::array<std::uint8_t, VT_MAX_PDU_SIZE> wire{};
  if (vt_get_tlv_size(&element) > wire.size()) return false;
  const std::uint32_t size = cv_update_raw_buf_from_tlv(&element, wire.data());
  return std::ranges::all_of(std::span(wire).first(size).subspan(VT_TLV_HEADER_SIZE),
                             [](std::uint8_t byte) { return byte == 0; });
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
    case VT_TLV_RECURRENCE:
      return TakeRecurrence(element, changes.recurrence);
    default:
      return OnlyAsks(element);
  }
}

}  // namespace

bool IsSettableText(const std::string& text) {
  return text.size() <= kLongestText && vtn_string_in_whitelist(text.c_str(), kBlanksAllowed) != 0;
}

// Calendar expressions have stars, which names may not have.
bool IsSettableRecurrence(const Recurrence& recurrence) {
  return recurrence.text.size() <= kLongestText &&
         std::ranges::none_of(recurrence.text, [](char letter) {
           return static_cast<unsigned char>(letter) < ' ' || letter == '\x7F';
         });
}

std::optional<Changes> ReadChanges(const ReceivedQuery& query) {
  Changes changes;
  for (const Tlv* element : query.attributes()) {
    if (element->value == nullptr) {
      if (vt_get_external_tlv_enum_type(element->type) < 0) return std::nullopt;
      continue;
    }
    if (!TakeElement(*element, changes)) return std::nullopt;
  }
  return changes;
}

std::string Describe(const std::optional<Changes>& changes) {
  if (!changes) return "what cannot be set";
  std::string text;
  const auto add = [&text](const char* name, const std::string& value) {
    text += (text.empty() ? "" : ", ") + std::string(name) + " " + value;
  };
  if (changes->level) add("level", std::to_string(*changes->level));
  if (changes->importance) add("importance", std::to_string(*changes->importance));
  if (changes->name) add("name", *changes->name);
  if (changes->role) add("role", *changes->role);
  if (changes->keywords) add("keywords", *changes->keywords);
  if (changes->recurrence) add("recurrence", changes->recurrence->text);
  return text;
}

}  // namespace vt::node
