#include "recording/quoted_text.h"

#include <gtest/gtest.h>

#include <string>

#include "recording/line_reader.h"

namespace vt::recording {
namespace {

std::string Unquote(std::string_view text) {
  LineReader line(text, 1);
  std::string bytes = line.Quoted("the text", 1000);
  line.ExpectEnd();
  return bytes;
}

std::string WhyNotUnquoted(std::string_view text) {
  try {
    return "read as " + Unquote(text);
  } catch (const RecordingError& error) {
    return std::to_string(error.column()) + ": " + error.what();
  }
}

TEST(QuotedText, WhatCanBePrintedStandsForItself) {
  const struct {
    std::string bytes;
    std::string quoted;
  } cases[] = {
      {"", "\"\""},
      {" lamp 1 ", "\" lamp 1 \""},
      {"say \"hi\" \\ bye", "\"say \\\"hi\\\" \\\\ bye\""},
      {"K\xC3\xBC"
       "che \xE2\x82\xAC \xF0\x9F\x92\xA1",
       "\"K\xC3\xBC"
       "che \xE2\x82\xAC \xF0\x9F\x92\xA1\""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Quote(c.bytes), c.quoted);
    EXPECT_EQ(Unquote(c.quoted), c.bytes);
  }
}

TEST(QuotedText, WhatCouldSteerATerminalOrLeaveTheLineIsEscaped) {
  const struct {
    std::string bytes;
    std::string quoted;
  } cases[] = {
      {"\x1b[31mred\a", "\"\\x1b[31mred\\x07\""},
      {"a\tb\nc\rd\x7F", "\"a\\tb\\nc\\rd\\x7f\""},
      {std::string("a\0b", 3), "\"a\\x00b\""},
      {"\xC2\x9B"
       "31m",
       "\"\\xc2\\x9b31m\""},  // a control character of one byte more
      {"\xE2\x80\xAE"
       "evil",
       "\"\\xe2\\x80\\xaeevil\""},  // writes from right to left
      {"a\xE2\x80\xA8"
       "b",
       "\"a\\xe2\\x80\\xa8b\""},                // separates lines
      {"\xE2\x80\x8B", "\"\\xe2\\x80\\x8b\""},  // is not seen at all
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Quote(c.bytes), c.quoted);
    EXPECT_EQ(Unquote(c.quoted), c.bytes);
  }
}

TEST(QuotedText, BytesThatAreNoUtf8AreEscapedOneByOne) {
  const struct {
    std::string bytes;
    std::string quoted;
  } cases[] = {
      {"l\xFFm", "\"l\\xffm\""},
      {"\xC3", "\"\\xc3\""},                             // ends too early
      {"\xC3(", "\"\\xc3(\""},                           // goes on wrongly
      {"\xC0\xAF", "\"\\xc0\\xaf\""},                    // longer than it has to be
      {"\xE0\x80\xAF", "\"\\xe0\\x80\\xaf\""},           // likewise
      {"\xED\xA0\x80", "\"\\xed\\xa0\\x80\""},           // half of a pair
      {"\xF4\x90\x80\x80", "\"\\xf4\\x90\\x80\\x80\""},  // beyond the last character
      {"\xF8\x88\x80\x80\x80", "\"\\xf8\\x88\\x80\\x80\\x80\""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Quote(c.bytes), c.quoted);
    EXPECT_EQ(Unquote(c.quoted), c.bytes);
  }
}

TEST(QuotedText, EveryPairOfBytesComesBack) {
  for (unsigned first = 0; first < 256; ++first) {
    for (unsigned second = 0; second < 256; ++second) {
      const std::string bytes = {static_cast<char>(first), static_cast<char>(second)};
      const std::string quoted = Quote(bytes);
      ASSERT_EQ(Unquote(quoted), bytes) << first << ' ' << second;
      for (const char letter : quoted) {
        ASSERT_TRUE(static_cast<unsigned char>(letter) >= ' ' && letter != '\x7F');
      }
    }
  }
}

TEST(QuotedText, WhatIsNoQuotedTextIsRefusedWithItsColumn) {
  const struct {
    std::string text;
    std::string reason;
  } cases[] = {
      {"lamp", "1: the text must be a text in double quotes"},
      {"\"lamp", "6: the text has no closing quote"},
      {"\"lamp\\\"", "8: the text has no closing quote"},
      {"\"la\\mp\"", "5: a backslash goes before \", \\, t, n, r or x with two hexadecimal digits"},
      {"\"la\\x1\"", "5: a backslash goes before \", \\, t, n, r or x with two hexadecimal digits"},
      {"\"la\\x1g\"",
       "5: a backslash goes before \", \\, t, n, r or x with two hexadecimal digits"},
      {"\"la\\", "5: a backslash goes before \", \\, t, n, r or x with two hexadecimal digits"},
      {"\"la\tmp\"", "4: a byte that is no printable UTF-8 must be written as \\xHH"},
      {"\"la\xFFmp\"", "4: a byte that is no printable UTF-8 must be written as \\xHH"},
      {"\"la\xE2\x80\xAE\"", "4: a byte that is no printable UTF-8 must be written as \\xHH"},
      {"\"lamp\" x", "8: the line should end here"},
      {'"' + std::string(1001, 'x') + '"', "1: the text is longer than 1000 bytes"},
  };
  for (const auto& c : cases) EXPECT_EQ(WhyNotUnquoted(c.text), c.reason) << c.text;
}

}  // namespace
}  // namespace vt::recording
