// A table for people: columns below each other, two blanks between them.
#ifndef VT_TOOLS_TEXT_TABLE_H_
#define VT_TOOLS_TEXT_TABLE_H_

#include <memory>
#include <string>
#include <vector>

struct libscols_table;

namespace vt::tools {

// TextTable escapes what its cells hold (tools/printable.h), and shows an empty one as a hyphen.
// All columns come before the first line. Its functions throw Failure when there is no memory.
class TextTable {
 public:
  enum class Side { kLeft, kRight };

  // header tells whether there is a line of headings, colour whether that stands out.
  explicit TextTable(bool header = true, bool colour = false);

  void AddColumn(const std::string& heading, Side side = Side::kLeft);
  // AddLine takes a cell for each column.
  void AddLine(const std::vector<std::string>& cells);

  // Text is all of it, with a line end behind each line.
  std::string Text() const;

 private:
  struct Release {
    void operator()(libscols_table* table) const;
  };

  std::unique_ptr<libscols_table, Release> table_;
  bool colour_;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_TEXT_TABLE_H_
