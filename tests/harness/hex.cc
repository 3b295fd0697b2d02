#include "tests/harness/hex.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace vt::testing {
namespace {

[[noreturn]] void Refuse(std::string_view text, std::size_t position, const char* reason) {
  std::fprintf(stderr, "Hex: %s at character %zu of \"%.*s\"\n", reason, position,
               static_cast<int>(text.size()), text.data());
  std::abort();
}

bool IsBlank(char c) { return c == ' ' || c == '\n' || c == '\t' || c == '\r' || c == '|'; }

bool IsDecimal(char c) { return c >= '0' && c <= '9'; }

int DigitValue(char c) {
  if (IsDecimal(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// CountBefore reads text[begin, end) as a decimal number.
std::size_t CountBefore(std::string_view text, std::size_t begin, std::size_t end) {
  if (begin == end) Refuse(text, begin, "no count before '*'");
  std::size_t count = 0;
  for (std::size_t i = begin; i < end; ++i) {
    if (!IsDecimal(text[i])) Refuse(text, i, "the count before '*' is not decimal");
    count = count * 10 + static_cast<std::size_t>(text[i] - '0');
    if (count > 16 * 1024 * 1024) Refuse(text, i, "the count before '*' is too large");
  }
  return count;
}

// AppendGroup reads the group text[begin, end), which has no blanks.
void AppendGroup(std::string_view text, std::size_t begin, std::size_t end, Bytes& out) {
  std::size_t count = 1;
  const std::size_t star = text.substr(begin, end - begin).find('*');
  if (star != std::string_view::npos) {
    count = CountBefore(text, begin, begin + star);
    begin += star + 1;
  }
  if (begin == end) Refuse(text, begin, "no digits after '*'");
  if ((end - begin) % 2 != 0) Refuse(text, begin, "odd number of digits");
  Bytes group;
  for (std::size_t i = begin; i < end; i += 2) {
    const int high = DigitValue(text[i]);
    const int low = DigitValue(text[i + 1]);
    if (high < 0 || low < 0) Refuse(text, high < 0 ? i : i + 1, "not a hexadecimal digit");
    group.push_back(static_cast<std::uint8_t>(high * 16 + low));
  }
  for (; count > 0; --count) out.insert(out.end(), group.begin(), group.end());
}

}  // namespace

Bytes Hex(std::string_view text) {
  Bytes result;
  for (std::size_t i = 0; i < text.size();) {
    if (IsBlank(text[i])) {
      ++i;
      continue;
    }
    std::size_t end = i;
    while (end < text.size() && !IsBlank(text[end])) ++end;
    AppendGroup(text, i, end, result);
    i = end;
  }
  return result;
}

Bytes Text(std::string_view text) { return Bytes(text.begin(), text.end()); }

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes result;
  for (const Bytes& part : parts) result.insert(result.end(), part.begin(), part.end());
  return result;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

std::string ToHex(std::span<const std::uint8_t> bytes) {
  std::string result;
  char piece[32];
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i % 16 == 0) {
      std::snprintf(piece, sizeof piece, "%s%5zu:", i == 0 ? "" : "\n", i);
      result += piece;
    }
    std::snprintf(piece, sizeof piece, "%s%02x", i % 4 == 0 ? " " : "", bytes[i]);
    result += piece;
  }
  return result;
}

::testing::AssertionResult SameBytes(const Bytes& expected, const void* actual, std::size_t len) {
  if (actual == nullptr) {
    if (expected.empty() && len == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "null instead of " << expected.size() << " bytes\n"
                                         << ToHex(expected);
  }
  const std::span<const std::uint8_t> got(static_cast<const std::uint8_t*>(actual), len);
  if (std::equal(expected.begin(), expected.end(), got.begin(), got.end())) {
    return ::testing::AssertionSuccess();
  }
  const auto differ = std::mismatch(expected.begin(), expected.end(), got.begin(), got.end());
  return ::testing::AssertionFailure()
         << "first difference at offset " << differ.first - expected.begin() << "\nexpected "
         << expected.size() << " bytes\n"
         << ToHex(expected) << "\nactual " << len << " bytes\n"
         << ToHex(got);
}

::testing::AssertionResult SameBytes(const Bytes& expected, const Bytes& actual) {
  static constexpr std::uint8_t kNothing = 0;
  return SameBytes(expected, actual.empty() ? &kNothing : actual.data(), actual.size());
}

}  // namespace vt::testing
