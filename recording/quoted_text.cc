#include "recording/quoted_text.h"

#include <algorithm>
#include <cstdint>

namespace vt::recording {
namespace {

struct Range {
  std::uint32_t first;
  std::uint32_t last;
};

// What is well-formed and had better be seen as its bytes: the second set of control characters,
// what is not seen at all, what separates lines, what changes the direction of writing.
constexpr Range kDeceptive[] = {
    {0x80, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},   {0x200B, 0x200F},   {0x2028, 0x202E},
    {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F},
};

bool IsDeceptive(std::uint32_t character) {
  return std::ranges::any_of(kDeceptive, [character](const Range& range) {
    return range.first <= character && character <= range.last;
  });
}

// The least character of each length of UTF-8; a lesser one in that length is ill-formed.
constexpr std::uint32_t kLeastOfLength[] = {0, 0, 0x80, 0x800, 0x10000};
constexpr std::uint32_t kFirstSurrogate = 0xD800;
constexpr std::uint32_t kLastSurrogate = 0xDFFF;
constexpr std::uint32_t kLastCharacter = 0x10FFFF;

std::uint8_t ByteAt(std::string_view bytes, std::size_t at) {
  return static_cast<std::uint8_t>(bytes[at]);
}

std::size_t LengthByFirst(std::uint8_t first) {
  if (first >= 0xC0 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  if (first >= 0xF0 && first < 0xF8) return 4;
  return 0;
}

std::string Escape(std::uint8_t byte) {
  switch (byte) {
    case '"':
      return "\\\"";
    case '\\':
      return "\\\\";
    case '\t':
      return "\\t";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    default:
      break;
  }
  constexpr std::string_view digits = "0123456789abcdef";
  return {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
}

}  // namespace

std::size_t PlainLength(std::string_view bytes) {
  if (bytes.empty()) return 0;
  const std::uint8_t first = ByteAt(bytes, 0);
  if (first < 0x80) return first >= ' ' && first != 0x7F ? 1 : 0;
  const std::size_t length = LengthByFirst(first);
  if (length == 0 || length > bytes.size()) return 0;
  std::uint32_t character = first & (0xFFu >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const std::uint8_t next = ByteAt(bytes, i);
    if ((next & 0xC0) != 0x80) return 0;
    character = character << 6 | (next & 0x3F);
  }
  const bool is_surrogate = character >= kFirstSurrogate && character <= kLastSurrogate;
  if (character < kLeastOfLength[length] || character > kLastCharacter || is_surrogate) return 0;
  return IsDeceptive(character) ? 0 : length;
}

std::string Quote(std::string_view bytes) {
  std::string text = "\"";
  while (!bytes.empty()) {
    const std::size_t plain = PlainLength(bytes);
    const bool stands_for_itself = plain != 0 && bytes[0] != '"' && bytes[0] != '\\';
    const std::size_t taken = std::max<std::size_t>(plain, 1);
    if (stands_for_itself) {
      text += bytes.substr(0, taken);
    } else {
      text += Escape(ByteAt(bytes, 0));
    }
    bytes.remove_prefix(taken);
  }
  return text + '"';
}

}  // namespace vt::recording
