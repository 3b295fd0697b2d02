#include "recording/line_reader.h"

#include "recording/quoted_text.h"

namespace vt::recording {

void LineReader::RejectAt(std::size_t at, const std::string& message) const {
  throw RecordingError(number_, static_cast<std::uint32_t>(at + 1), message);
}

void LineReader::SkipBlanks() {
  while (at_ < line_.size() && (line_[at_] == ' ' || line_[at_] == '\t')) ++at_;
}

bool LineReader::AtEnd() {
  SkipBlanks();
  return at_ == line_.size();
}

void LineReader::ExpectEnd() {
  if (!AtEnd()) Reject("the line should end here");
}

char LineReader::Peek() { return AtEnd() ? '\0' : line_[at_]; }

bool LineReader::Take(char character) {
  if (AtEnd() || line_[at_] != character) return false;
  ++at_;
  return true;
}

void LineReader::Expect(char character) {
  if (!Take(character)) Reject(std::string("there should be a ") + character + " here");
}

std::string_view LineReader::Word(std::string_view what) {
  SkipBlanks();
  last_ = at_;
  const std::string_view word = rest().substr(0, rest().find_first_of(" \t,="));
  if (word.empty()) Reject(std::string(what) + " is missing");
  at_ += word.size();
  return word;
}

std::optional<char> LineReader::ParseDigits(std::string_view digits) {
  unsigned value = 0;
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value, 16);
  if (digits.size() != 2 || error != std::errc() || stop != end) return std::nullopt;
  return static_cast<char>(value);
}

// TakeEscape reads what follows a backslash.
char LineReader::TakeEscape() {
  constexpr std::string_view letters = "\"\\tnr";
  constexpr std::string_view meanings = "\"\\\t\n\r";
  const std::size_t letter = at_ < line_.size() ? letters.find(line_[at_]) : letters.npos;
  if (letter != letters.npos) {
    ++at_;
    return meanings[letter];
  }
  const std::optional<char> byte =
      rest().starts_with('x') ? ParseDigits(rest().substr(1, 2)) : std::nullopt;
  if (!byte) Reject("a backslash goes before \", \\, t, n, r or x with two hexadecimal digits");
  at_ += 3;
  return *byte;
}

std::string LineReader::Quoted(std::string_view what, std::size_t most) {
  SkipBlanks();
  last_ = at_;
  if (!Take('"')) Reject(std::string(what) + " must be a text in double quotes");
  std::string text;
  for (;;) {
    if (rest().empty()) Reject("the text has no closing quote");
    if (rest().starts_with('"')) break;
    if (rest().starts_with('\\')) {
      ++at_;
      text += TakeEscape();
      continue;
    }
    const std::size_t plain = PlainLength(rest());
    if (plain == 0) Reject("a byte that is no printable UTF-8 must be written as \\xHH");
    text += rest().substr(0, plain);
    at_ += plain;
  }
  ++at_;
  if (text.size() > most) {
    RejectBack(std::string(what) + " is longer than " + std::to_string(most) + " bytes");
  }
  return text;
}

}  // namespace vt::recording
