// Texts that differ by a number: "lamp-{n}", "rack-{n:03}/{e}".
#ifndef VT_NODE_PATTERN_H_
#define VT_NODE_PATTERN_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vt::node {

// Pattern is a text with places for the number of the device, {n}, and of the entity, {e}. A width
// behind a colon, {n:04}, fills up with zeros. A text without braces stands for itself.
class Pattern {
 public:
  Pattern() = default;

  // Plain is a text whose braces mean nothing.
  static Pattern Plain(std::string text);

  // Parse returns nothing for braces that are no place.
  static std::optional<Pattern> Parse(std::string_view text);

  // FillTo makes the first {n} as wide as it takes for the text to have that many characters;
  // false when it would be too long for number, or there is no {n}.
  bool FillTo(std::size_t size, std::uint32_t number);

  bool HasDevice() const { return Has(Kind::kDevice); }
  bool HasEntity() const { return Has(Kind::kEntity); }

  // Write replaces the content of out.
  void Write(std::uint32_t device, std::uint32_t entity, std::string& out) const;

  // text is the pattern as it was written.
  const std::string& text() const { return text_; }

 private:
  enum class Kind : std::uint8_t { kText, kDevice, kEntity };
  struct Part {
    Kind kind = Kind::kText;
    std::uint32_t width = 0;
    std::string text;
  };

  bool Has(Kind kind) const;

  std::string text_;
  std::vector<Part> parts_;
};

}  // namespace vt::node

#endif  // VT_NODE_PATTERN_H_
