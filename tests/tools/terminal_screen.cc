#include "tests/tools/terminal_screen.h"

#include <algorithm>

namespace vt::testing {

// Sequence is ESC [ with its parameters and the letter that ends it.
struct TerminalScreen::Sequence {
  bool is_private = false;  // begins with a question mark
  std::vector<std::size_t> numbers;
  char letter = 0;
  std::string text;

  std::size_t Number(std::size_t index, std::size_t preset) const {
    return index < numbers.size() && numbers[index] > 0 ? numbers[index] : preset;
  }
};

TerminalScreen::TerminalScreen(std::size_t width, std::size_t height)
    : width_(width),
      height_(height),
      cells_(height, std::vector<std::string>(width, " ")),
      bottom_(height) {}

void TerminalScreen::Write(std::string_view bytes) {
  pending_ += bytes;
  std::string_view rest = pending_;
  while (!rest.empty()) {
    const std::size_t taken = TakeOne(rest);
    if (taken == 0) break;
    rest.remove_prefix(taken);
  }
  pending_ = std::string(rest);
}

void TerminalScreen::Resize(std::size_t width, std::size_t height) {
  width_ = width;
  height_ = height;
  cells_.resize(height);
  for (auto& line : cells_) line.resize(width, " ");
  top_ = 0;
  bottom_ = height;
  row_ = std::min(row_, height - 1);
  column_ = std::min(column_, width - 1);
}

std::string TerminalScreen::Line(std::size_t row) const {
  std::string line;
  for (const std::string& cell : cells_.at(row)) line += cell;
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::string TerminalScreen::Text() const {
  std::string text;
  for (std::size_t row = 0; row < height_; ++row) text += Line(row) + '\n';
  return text;
}

std::string TerminalScreen::FindLine(std::string_view text) const {
  for (std::size_t row = 0; row < height_; ++row) {
    const std::string line = Line(row);
    if (line.find(text) != std::string::npos) return line;
  }
  return {};
}

// TakeOne does what a text begins with and returns its length, or 0 when that has not come whole.
std::size_t TerminalScreen::TakeOne(std::string_view rest) {
  const auto lead = static_cast<unsigned char>(rest[0]);
  if (lead == 0x1B) {
    if (rest.size() < 2) return 0;
    if (rest[1] == '[') {
      const std::size_t end = rest.find_first_not_of("0123456789;?>", 2);
      if (end == std::string_view::npos) return 0;
      Sequence sequence;
      sequence.text = rest.substr(0, end + 1);
      sequence.letter = rest[end];
      sequence.is_private = rest[2] == '?';
      sequence.numbers.push_back(0);
      for (const char byte : rest.substr(2, end - 2)) {
        if (byte == ';') sequence.numbers.push_back(0);
        if (byte < '0' || byte > '9') continue;
        sequence.numbers.back() =
            sequence.numbers.back() * 10 + static_cast<std::size_t>(byte - '0');
      }
      Run(sequence);
      return end + 1;
    }
    if (rest[1] == '(' || rest[1] == ')') return rest.size() < 3 ? 0 : 3;  // sets of characters
    if (rest[1] == 'M') {
      // A line up, which scrolls at the top.
      if (row_ == top_) {
        ScrollDown(top_, 1);
      } else {
        row_ -= std::min<std::size_t>(row_, 1);
      }
    }
    if (std::string_view("M=>78").find(rest[1]) == std::string_view::npos) {
      unknown_ += rest.substr(1, 1);
    }
    return 2;
  }
  if (lead < 0x20) {
    Control(rest[0]);
    return 1;
  }
  const std::size_t size = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (rest.size() < size) return 0;
  Put(rest.substr(0, size));
  return size;
}

void TerminalScreen::Put(std::string_view character) {
  if (column_ >= width_) {
    column_ = 0;
    Control('\n');
  }
  last_ = character;
  cells_[row_][column_++] = last_;
}

void TerminalScreen::Control(char byte) {
  constexpr std::size_t tab = 8;
  switch (byte) {
    case '\r':
      column_ = 0;
      break;
    case '\n':
      if (row_ + 1 == bottom_) {
        ScrollUp(top_, 1);
      } else {
        row_ = std::min(row_ + 1, height_ - 1);
      }
      break;
    case '\b':
      column_ -= std::min<std::size_t>(column_, 1);
      break;
    case '\t':
      column_ = std::min(width_ - 1, (column_ / tab + 1) * tab);
      break;
    case '\x0E':
    case '\x0F':
    case '\a':
      break;
    default:
      unknown_ += byte;
  }
}

void TerminalScreen::Run(const Sequence& sequence) {
  switch (sequence.letter) {
    case 'm':
      return;
    case 't':
      return;
    case 'h':
    case 'l':
      SetModes(sequence);
      return;
    case 'b':
      for (std::size_t i = 0; i < sequence.Number(0, 1); ++i) Put(std::string(last_));
      return;
    case 'r':
      top_ = sequence.Number(0, 1) - 1;
      bottom_ = std::min(height_, sequence.Number(1, height_));
      row_ = column_ = 0;
      return;
    case 'S':
      ScrollUp(top_, sequence.Number(0, 1));
      return;
    case 'T':
      ScrollDown(top_, sequence.Number(0, 1));
      return;
    case 'M':
      ScrollUp(row_, sequence.Number(0, 1));
      return;
    case 'L':
      ScrollDown(row_, sequence.Number(0, 1));
      return;
    default:
      MoveOrErase(sequence);
  }
}

void TerminalScreen::MoveOrErase(const Sequence& sequence) {
  const std::size_t count = sequence.Number(0, 1);
  auto& line = cells_[row_];
  const auto at = line.begin() + static_cast<std::ptrdiff_t>(std::min(column_, width_));
  const auto some =
      static_cast<std::ptrdiff_t>(std::min(count, width_ - std::min(column_, width_)));
  switch (sequence.letter) {
    case 'H':
      row_ = std::min(height_, count) - 1;
      column_ = std::min(width_, sequence.Number(1, 1)) - 1;
      break;
    case 'A':
      row_ -= std::min(row_, count);
      break;
    case 'B':
      row_ = std::min(height_ - 1, row_ + count);
      break;
    case 'C':
      column_ = std::min(width_ - 1, column_ + count);
      break;
    case 'D':
      column_ -= std::min(column_, count);
      break;
    case 'G':
      column_ = std::min(width_, count) - 1;
      break;
    case 'd':
      row_ = std::min(height_, count) - 1;
      break;
    case 'X':
      EraseCells(row_, column_, column_ + count);
      break;
    case 'P':
      line.erase(at, at + some);
      line.resize(width_, " ");
      break;
    case '@':
      line.insert(at, static_cast<std::size_t>(some), " ");
      line.resize(width_);
      break;
    case 'K':
      EraseCells(row_, sequence.numbers[0] == 0 ? column_ : 0,
                 sequence.numbers[0] == 1 ? column_ + 1 : width_);
      break;
    case 'J':
      if (sequence.numbers[0] == 0) {
        EraseCells(row_, column_, width_);
        EraseLines(row_ + 1, height_);
      } else {
        EraseLines(0, sequence.numbers[0] == 1 ? row_ : height_);
      }
      break;
    default:
      unknown_ += sequence.text.substr(1);
  }
}

void TerminalScreen::SetModes(const Sequence& sequence) {
  const bool is_on = sequence.letter == 'h';
  for (const std::size_t mode : sequence.numbers) {
    if (sequence.is_private && mode == 25) is_cursor_visible_ = is_on;
    if (sequence.is_private && mode == 1049) {
      is_alternate_ = is_on;
      EraseLines(0, height_);
    }
  }
}

void TerminalScreen::EraseCells(std::size_t row, std::size_t from, std::size_t to) {
  for (std::size_t i = from; i < std::min(to, width_); ++i) cells_[row][i] = " ";
}

void TerminalScreen::EraseLines(std::size_t from, std::size_t to) {
  for (std::size_t row = from; row < to; ++row) EraseCells(row, 0, width_);
}

void TerminalScreen::ScrollUp(std::size_t from, std::size_t lines) {
  for (std::size_t i = 0; i < lines; ++i) {
    const auto first = cells_.begin() + static_cast<std::ptrdiff_t>(from);
    std::rotate(first, first + 1, cells_.begin() + static_cast<std::ptrdiff_t>(bottom_));
    EraseCells(bottom_ - 1, 0, width_);
  }
}

void TerminalScreen::ScrollDown(std::size_t from, std::size_t lines) {
  for (std::size_t i = 0; i < lines; ++i) {
    const auto end = cells_.begin() + static_cast<std::ptrdiff_t>(bottom_);
    std::rotate(cells_.begin() + static_cast<std::ptrdiff_t>(from), end - 1, end);
    EraseCells(from, 0, width_);
  }
}

}  // namespace vt::testing
