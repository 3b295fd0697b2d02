// What a terminal of the kind xterm shows after all that was written to it, as far as programs of
// this tree use it. What it does not know it keeps for the test to see.
#ifndef VT_TESTS_TOOLS_TERMINAL_SCREEN_H_
#define VT_TESTS_TOOLS_TERMINAL_SCREEN_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vt::testing {

class TerminalScreen {
 public:
  TerminalScreen(std::size_t width, std::size_t height);

  // Write takes bytes as they come, also parts of sequences.
  void Write(std::string_view bytes);
  // Resize keeps what fits.
  void Resize(std::size_t width, std::size_t height);

  // Line is a line without the blanks at its end; lines are counted from 0.
  std::string Line(std::size_t row) const;
  // Text is all lines.
  std::string Text() const;
  // FindLine is the first line that holds a text, or empty.
  std::string FindLine(std::string_view text) const;

  bool is_alternate() const { return is_alternate_; }  // the screen that programs fill
  bool is_cursor_visible() const { return is_cursor_visible_; }
  const std::string& unknown() const { return unknown_; }  // sequences that were not understood

 private:
  struct Sequence;

  std::size_t TakeOne(std::string_view rest);
  void Put(std::string_view character);
  void Control(char byte);
  void Run(const Sequence& sequence);
  void MoveOrErase(const Sequence& sequence);
  void SetModes(const Sequence& sequence);
  void EraseCells(std::size_t row, std::size_t from, std::size_t to);
  void EraseLines(std::size_t from, std::size_t to);
  void ScrollUp(std::size_t from, std::size_t lines);
  void ScrollDown(std::size_t from, std::size_t lines);

  std::size_t width_;
  std::size_t height_;
  std::vector<std::vector<std::string>> cells_;
  std::size_t row_ = 0;
  std::size_t column_ = 0;
  std::size_t top_ = 0;  // of what scrolls
  std::size_t bottom_;   // behind its last line
  std::string last_ = " ";
  std::string pending_;  // of a sequence that has not ended
  bool is_alternate_ = false;
  bool is_cursor_visible_ = true;
  std::string unknown_;
};

}  // namespace vt::testing

#endif  // VT_TESTS_TOOLS_TERMINAL_SCREEN_H_
