#include "node/pattern.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace vt::node {
namespace {

constexpr std::uint32_t kWidest = 32;

// AppendNumber writes a number with zeros in front up to a width.
void AppendNumber(std::uint32_t number, std::uint32_t width, std::string& out) {
  std::array<char, 10> digits{};
  const char* end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  const auto size = static_cast<std::size_t>(end - digits.data());
  if (size < width) out.append(width - size, '0');
  out.append(digits.data(), size);
}

// ParseWidth reads what stands between the letter and the brace: nothing, or :WIDTH.
std::optional<std::uint32_t> ParseWidth(std::string_view text) {
  if (text.empty()) return 0;
  std::uint32_t width = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + 1, end, width);
  if (text[0] != ':' || error != std::errc() || stop != end || width > kWidest) return std::nullopt;
  return width;
}

}  // namespace

Pattern Pattern::Plain(std::string text) {
  Pattern pattern;
  pattern.text_ = text;
  pattern.parts_.push_back({Kind::kText, 0, std::move(text)});
  return pattern;
}

std::optional<Pattern> Pattern::Parse(std::string_view text) {
  Pattern pattern;
  pattern.text_ = text;
  while (!text.empty()) {
    const std::size_t open = text.find_first_of("{}");
    if (open != 0) {
      pattern.parts_.push_back({Kind::kText, 0, std::string(text.substr(0, open))});
      if (open == std::string_view::npos) break;
      text.remove_prefix(open);
    }
    const std::size_t close = text.find('}');
    if (text[0] != '{' || close == std::string_view::npos || close < 2) return std::nullopt;
    const std::optional<std::uint32_t> width = ParseWidth(text.substr(2, close - 2));
    if (!width || (text[1] != 'n' && text[1] != 'e')) return std::nullopt;
    pattern.parts_.push_back({text[1] == 'n' ? Kind::kDevice : Kind::kEntity, *width, {}});
    text.remove_prefix(close + 1);
  }
  return pattern;
}

bool Pattern::FillTo(std::size_t size, std::uint32_t number) {
  std::size_t others = 0;
  Part* place = nullptr;
  for (Part& part : parts_) {
    if (part.kind == Kind::kDevice && place == nullptr) {
      place = &part;
      continue;
    }
    std::string written;
    if (part.kind != Kind::kText) AppendNumber(number, part.width, written);
    others += part.text.size() + written.size();
  }
  if (place == nullptr || others >= size) return false;
  place->width = static_cast<std::uint32_t>(size - others);
  std::string all;
  Write(number, 1, all);
  return all.size() == size;
}

void Pattern::Write(std::uint32_t device, std::uint32_t entity, std::string& out) const {
  out.clear();
  for (const Part& part : parts_) {
    switch (part.kind) {
      case Kind::kText:
        out += part.text;
        break;
      case Kind::kDevice:
        AppendNumber(device, part.width, out);
        break;
      case Kind::kEntity:
        AppendNumber(entity, part.width, out);
        break;
    }
  }
}

bool Pattern::Has(Kind kind) const {
  return std::ranges::any_of(parts_, [kind](const Part& part) { return part.kind == kind; });
}

}  // namespace vt::node
