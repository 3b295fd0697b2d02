// Reads one line of a recording from left to right, and says where in it something is wrong.
#ifndef VT_RECORDING_LINE_READER_H_
#define VT_RECORDING_LINE_READER_H_

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace vt::recording {

// RecordingError says why a text is no recording, and where: line and column begin at 1, columns
// count bytes.
class RecordingError : public std::runtime_error {
 public:
  RecordingError(std::uint32_t line, std::uint32_t column, const std::string& message)
      : std::runtime_error(message), line_(line), column_(column) {}

  std::uint32_t line() const { return line_; }
  std::uint32_t column() const { return column_; }

 private:
  std::uint32_t line_;
  std::uint32_t column_;
};

class LineReader {
 public:
  // line is without its end, and has to exist for as long as the reader; number counts from 1.
  LineReader(std::string_view line, std::uint32_t number) : line_(line), number_(number) {}

  // Reject throws a RecordingError for the place where the reader stands, RejectBack for that of
  // what it has read last.
  [[noreturn]] void Reject(const std::string& message) const { RejectAt(at_, message); }
  [[noreturn]] void RejectBack(const std::string& message) const { RejectAt(last_, message); }

  // SkipBlanks passes blanks and tabs.
  void SkipBlanks();

  // AtEnd passes blanks and tells whether nothing is left.
  bool AtEnd();
  void ExpectEnd();

  // Take passes blanks and a character if it is the next one.
  bool Take(char character);
  void Expect(char character);

  // Peek passes blanks and returns the next character, or a zero byte at the end.
  char Peek();

  // Word reads up to the next blank, comma or equals sign, at least one character.
  std::string_view Word(std::string_view what);

  // Number reads a whole number from least to most.
  template <class T>
  T Number(std::string_view what, T least = std::numeric_limits<T>::min(),
           T most = std::numeric_limits<T>::max()) {
    const std::optional<T> number = ParseNumber<T>(Word(what));
    if (!number || *number < least || *number > most) {
      RejectBack(std::string(what) + " must be a whole number from " + std::to_string(least) +
                 " to " + std::to_string(most));
    }
    return *number;
  }

  // Quoted reads what Quote writes, of at most so many bytes.
  std::string Quoted(std::string_view what, std::size_t most);

  template <class T>
  static std::optional<T> ParseNumber(std::string_view word) {
    T number{};
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, number);
    if (error != std::errc() || stop != end) return std::nullopt;
    return number;
  }

  // ParseDigits reads one byte from two hexadecimal digits of either case.
  static std::optional<char> ParseDigits(std::string_view digits);

 private:
  [[noreturn]] void RejectAt(std::size_t at, const std::string& message) const;
  std::string_view rest() const { return line_.substr(at_); }
  char TakeEscape();

  std::string_view line_;
  std::uint32_t number_;
  std::size_t at_ = 0;
  std::size_t last_ = 0;  // where the last word, number or text began
};

}  // namespace vt::recording

#endif  // VT_RECORDING_LINE_READER_H_
