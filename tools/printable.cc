#include "tools/printable.h"

#include "recording/quoted_text.h"

namespace vt::tools {

std::string Printable(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string printable;
  printable.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = recording::PlainLength(text);
    if (length == 0) {
      const auto byte = static_cast<unsigned char>(text[0]);
      printable += {'\\', 'x', digits[byte >> 4], digits[byte & 0x0F]};
    } else {
      printable.append(text.substr(0, length));
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return printable;
}

}  // namespace vt::tools
