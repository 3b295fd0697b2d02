#include "tools/cell_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cwchar>

#include "tools/printable.h"

namespace vt::tools {
namespace {

constexpr std::array<std::string_view, 9> kEighths = {" ", "▏", "▎", "▍", "▌", "▋", "▊", "▉", "█"};
constexpr std::array<std::string_view, 8> kUnicodeSparks = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<std::string_view, 8> kAsciiSparks = {"_", ".", ":", "-", "=", "+", "*", "#"};

struct Character {
  std::size_t size;
  std::size_t width;
};

// FirstOf is the character that a text begins with. Texts that come here are valid UTF-8 without
// control characters; whatever else there is counts as a column for each byte.
Character FirstOf(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t size = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (size == 1 || size > text.size()) return {1, 1};
  auto code = static_cast<wchar_t>(lead & (0x7Fu >> size));
  for (const char byte : text.substr(1, size - 1)) {
    code = static_cast<wchar_t>(code << 6 | (static_cast<unsigned char>(byte) & 0x3F));
  }
  const int width = wcwidth(code);
  return {size, width < 0 ? 1 : static_cast<std::size_t>(width)};
}

// PrefixOf is how many bytes of a text fit into a width.
std::size_t PrefixOf(std::string_view text, std::size_t width) {
  std::size_t size = 0;
  while (size < text.size()) {
    const Character next = FirstOf(text.substr(size));
    if (next.width > width) break;
    width -= next.width;
    size += next.size;
  }
  return size;
}

}  // namespace

std::string Shown(std::string_view text, Charset charset) {
  std::string printable = Printable(text);
  if (charset == Charset::kUnicode) return printable;
  constexpr std::string_view digits = "0123456789abcdef";
  std::string shown;
  for (const char character : printable) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x80) {
      shown += character;
    } else {
      shown += {'\\', 'x', digits[byte >> 4], digits[byte & 0x0F]};
    }
  }
  return shown;
}

std::size_t WidthOf(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Character next = FirstOf(text);
    width += next.width;
    text.remove_prefix(next.size);
  }
  return width;
}

std::string Fitted(std::string_view text, std::size_t width, Side side) {
  std::string fitted(text);
  if (WidthOf(text) > width) {
    fitted = text.substr(0, PrefixOf(text, width == 0 ? 0 : width - 1));
    if (width > 0) fitted += '~';
  }
  const std::string blanks(width - WidthOf(fitted), ' ');
  return side == Side::kLeft ? fitted + blanks : blanks + fitted;
}

std::string Bar(double part, std::size_t width, Charset charset) {
  constexpr std::size_t eighths = 8;
  const double inside = std::isfinite(part) ? std::clamp(part, 0.0, 1.0) : 0.0;
  const auto filled =
      static_cast<std::size_t>(std::lround(inside * static_cast<double>(width * eighths)));
  std::string bar;
  for (std::size_t i = 0; i < width; ++i) {
    const std::size_t here = std::min(eighths, filled - std::min(filled, i * eighths));
    if (charset == Charset::kUnicode) {
      bar += kEighths[here];
    } else {
      bar += here >= eighths / 2 ? '#' : ' ';
    }
  }
  return bar;
}

std::string Sparks(const std::deque<std::optional<double>>& values, std::size_t width,
                   Charset charset) {
  double greatest = 0;
  for (const std::optional<double>& value : values)
    greatest = std::max(greatest, value.value_or(0));
  const auto& sparks = charset == Charset::kUnicode ? kUnicodeSparks : kAsciiSparks;
  const std::size_t shown = std::min(width, values.size());
  std::string line(width - shown, ' ');
  for (std::size_t i = values.size() - shown; i < values.size(); ++i) {
    if (!values[i]) {
      line += ' ';
      continue;
    }
    const double part = greatest > 0 ? std::clamp(*values[i] / greatest, 0.0, 1.0) : 0;
    line += sparks[static_cast<std::size_t>(
        std::lround(part * static_cast<double>(sparks.size() - 1)))];
  }
  return line;
}

}  // namespace vt::tools
