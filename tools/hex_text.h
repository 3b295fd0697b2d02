// Bytes written as hexadecimal digits, as programs print and people paste them.
#ifndef VT_TOOLS_HEX_TEXT_H_
#define VT_TOOLS_HEX_TEXT_H_

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace vt::tools {

// HexDigit is what a digit stands for, in small letters or capitals; -1 for what is none.
int HexDigit(char digit);

// ParseHex reads pairs of digits. Blanks, line ends and colons may stand between pairs, 0x before
// one, and # begins a remark that lasts until the end of its line. Nothing is the answer to what
// holds anything else, or no digit.
std::optional<std::vector<std::uint8_t>> ParseHex(std::string_view text);

}  // namespace vt::tools

#endif  // VT_TOOLS_HEX_TEXT_H_
