// Texts as columns of a terminal show them: cut and filled up to a width, bars and lines of sparks.
#ifndef VT_TOOLS_CELL_TEXT_H_
#define VT_TOOLS_CELL_TEXT_H_

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

namespace vt::tools {

// Charset is what a terminal can show.
enum class Charset { kAscii, kUnicode };

// Shown is a text from the network made harmless (printable.h) for a terminal with these
// characters: without Unicode, what is beyond ASCII stands byte by byte as well.
std::string Shown(std::string_view text, Charset charset);

// WidthOf is how many columns a text of UTF-8 takes, by the locale's knowledge of characters.
std::size_t WidthOf(std::string_view text);

enum class Side { kLeft, kRight };

// Fitted is a text with exactly that width: cut at the end, with a mark, or filled with blanks on
// the other side.
std::string Fitted(std::string_view text, std::size_t width, Side side = Side::kLeft);

// Bar fills a part, 0 to 1, of a width. Unicode has eighths of a column.
std::string Bar(double part, std::size_t width, Charset charset);

// Sparks shows the last values, as many as the width has columns, from 0 to the greatest of all; a
// value that is missing is a blank.
std::string Sparks(const std::deque<std::optional<double>>& values, std::size_t width,
                   Charset charset);

}  // namespace vt::tools

#endif  // VT_TOOLS_CELL_TEXT_H_
