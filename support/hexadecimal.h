// Bytes as lowercase hexadecimal digits.
#ifndef VT_SUPPORT_HEXADECIMAL_H
#define VT_SUPPORT_HEXADECIMAL_H

#include "support/bytes.h"

namespace vt::support {

// WriteHexDigits writes two digits a byte to out and no terminator.
inline void WriteHexDigits(char* out, Bytes bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  for (const std::uint8_t byte : bytes) {
    *out++ = kDigits[byte >> 4];
    *out++ = kDigits[byte & 0x0F];
  }
}

}  // namespace vt::support

#endif  // VT_SUPPORT_HEXADECIMAL_H
