#include "tools/hex_text.h"

#include <algorithm>

namespace vt::tools {
namespace {

constexpr std::string_view kMarks = " \t\r\n:";

// SkipMarks passes what may stand between two pairs.
void SkipMarks(std::string_view& rest) {
  while (!rest.empty()) {
    if (kMarks.find(rest.front()) != std::string_view::npos) {
      rest.remove_prefix(1);
    } else if (rest.starts_with("0x") || rest.starts_with("0X")) {
      rest.remove_prefix(2);
    } else if (rest.front() == '#') {
      rest.remove_prefix(std::min(rest.find('\n'), rest.size()));
    } else {
      return;
    }
  }
}

}  // namespace

int HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

std::optional<std::vector<std::uint8_t>> ParseHex(std::string_view text) {
  std::vector<std::uint8_t> bytes;
  for (SkipMarks(text); !text.empty(); SkipMarks(text)) {
    if (text.size() < 2) return std::nullopt;
    const int high = HexDigit(text[0]);
    const int low = HexDigit(text[1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    text.remove_prefix(2);
  }
  if (bytes.empty()) return std::nullopt;
  return bytes;
}

}  // namespace vt::tools
