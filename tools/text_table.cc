#include "tools/text_table.h"

#include <libsmartcols/libsmartcols.h>

#include <clocale>
#include <cstdlib>

#include "tools/exit_code.h"
#include "tools/printable.h"

namespace vt::tools {
namespace {

struct TextRelease {
  void operator()(char* text) const { std::free(text); }
};

template <typename T>
T* OrNoMemory(T* made) {
  if (made == nullptr) throw Failure(kExitInternal, "out of memory for a table");
  return made;
}

}  // namespace

void TextTable::Release::operator()(libscols_table* table) const { scols_unref_table(table); }

TextTable::TextTable(bool header, bool colour) : colour_(colour) {
  // Characters are counted by the locale; the output must not depend on that of the user.
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) (void)std::setlocale(LC_CTYPE, "");
  table_.reset(OrNoMemory(scols_new_table()));
  scols_table_enable_noheadings(table_.get(), header ? 0 : 1);
  scols_table_enable_colors(table_.get(), colour ? 1 : 0);
  scols_table_enable_minout(table_.get(), 1);
  // What is not printable is escaped here already.
  scols_table_enable_noencoding(table_.get(), 1);
  scols_table_set_termforce(table_.get(), SCOLS_TERMFORCE_NEVER);
  scols_table_set_column_separator(table_.get(), "  ");
}

void TextTable::AddColumn(const std::string& heading, Side side) {
  libscols_column* column = OrNoMemory(scols_table_new_column(
      table_.get(), heading.c_str(), 0, side == Side::kRight ? int{SCOLS_FL_RIGHT} : 0));
  if (colour_) scols_cell_set_color(scols_column_get_header(column), "\033[1m");
}

void TextTable::AddLine(const std::vector<std::string>& cells) {
  libscols_line* line = OrNoMemory(scols_table_new_line(table_.get(), nullptr));
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::string cell = cells[i].empty() ? "-" : Printable(cells[i]);
    if (scols_line_set_data(line, i, cell.c_str()) != 0) OrNoMemory<char>(nullptr);
  }
}

std::string TextTable::Text() const {
  char* text = nullptr;
  if (scols_print_table_to_string(table_.get(), &text) != 0) OrNoMemory<char>(nullptr);
  const std::unique_ptr<char, TextRelease> owned(text);
  // It ends without a line end.
  return std::string(text != nullptr ? text : "") + '\n';
}

}  // namespace vt::tools
