// Byte strings written as text and compared as text.
//
//   Bytes wire = Hex("0000 0005 | 32*00 | 61 62 63") + Text("name");
//   EXPECT_BYTES(wire.data(), wire.size(), "00000005 32*00 616263 6e 61 6d 65");
//
// Bytes is a std::vector, so its operator+ is found by name only: say `using namespace vt::testing`
// or, inside a namespace with operators of its own, `using vt::testing::operator+`.
#ifndef VT_TESTS_HARNESS_HEX_H_
#define VT_TESTS_HARNESS_HEX_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vt::testing {

using Bytes = std::vector<std::uint8_t>;

// Hex reads pairs of hexadecimal digits, in groups of any even length. Blanks, newlines and '|'
// separate groups. "N*xx.." repeats the group after the star N times, N decimal: "32*00", "3*0102".
// Anything else prints the text and the position and aborts the process.
Bytes Hex(std::string_view text);

// Text returns the characters of text, without a terminator.
Bytes Text(std::string_view text);

// Cat joins its parts.
Bytes Cat(std::initializer_list<Bytes> parts);
Bytes operator+(Bytes left, const Bytes& right);

// ToHex prints bytes in groups of four, sixteen to a line, each line led by its decimal offset.
std::string ToHex(std::span<const std::uint8_t> bytes);

// SameBytes succeeds when len bytes at actual equal expected; otherwise it names the first
// difference and shows both. A null actual equals an empty expectation of length 0 only.
::testing::AssertionResult SameBytes(const Bytes& expected, const void* actual, std::size_t len);
::testing::AssertionResult SameBytes(const Bytes& expected, const Bytes& actual);

}  // namespace vt::testing

// EXPECT_BYTES compares len bytes at actual with an expectation written for Hex.
#define EXPECT_BYTES(actual, len, hex) \
  EXPECT_TRUE(::vt::testing::SameBytes(::vt::testing::Hex(hex), (actual), (len)))
#define ASSERT_BYTES(actual, len, hex) \
  ASSERT_TRUE(::vt::testing::SameBytes(::vt::testing::Hex(hex), (actual), (len)))

#endif  // VT_TESTS_HARNESS_HEX_H_
