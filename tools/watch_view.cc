#include "tools/watch_view.h"

#include <algorithm>

namespace vt::tools {
namespace {

using Kind = KeyPress::Kind;

constexpr std::size_t kLongestFilter = 64;

constexpr const char* kKeysHelp =
    "q quit  / filter  sort: d device n name l level u usage c change  b bars  arrows scroll";

// DropLast takes away the last character of UTF-8.
void DropLast(std::string& text) {
  while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) text.pop_back();
  if (!text.empty()) text.pop_back();
}

}  // namespace

bool WatchView::Press(const KeyPress& key) {
  if (key.kind == Kind::kRedraw || key.kind == Kind::kResize) return true;
  if (is_typing_) {
    PressWhileTyping(key);
    return true;
  }
  if (key.kind == Kind::kText) return PressCommand(key.text);
  if (key.kind == Kind::kEscape) {
    filter_.clear();
  } else {
    Scroll(key.kind);
  }
  return true;
}

void WatchView::PressWhileTyping(const KeyPress& key) {
  switch (key.kind) {
    case Kind::kText:
      if (filter_.size() + key.text.size() <= kLongestFilter) filter_ += key.text;
      break;
    case Kind::kBackspace:
      DropLast(filter_);
      break;
    case Kind::kEscape:
      filter_.clear();
      is_typing_ = false;
      break;
    case Kind::kEnter:
      is_typing_ = false;
      break;
    default:
      Scroll(key.kind);
      return;
  }
  first_ = 0;
}

bool WatchView::PressCommand(const std::string& text) {
  if (text == "q" || text == "Q") return false;
  if (text == "/") is_typing_ = true;
  if (text == "d") SortBy(WatchColumn::kDevice, false);
  if (text == "n") SortBy(WatchColumn::kName, false);
  if (text == "l") SortBy(WatchColumn::kLevel, true);
  if (text == "u") SortBy(WatchColumn::kUsage, true);
  if (text == "c") SortBy(WatchColumn::kChange, true);
  if (text == "b") graph_ = graph_ == Graph::kBars ? Graph::kSparks : Graph::kBars;
  return true;
}

void WatchView::Scroll(Kind kind) {
  const std::size_t last = rows_ - std::min(rows_, page_);
  switch (kind) {
    case Kind::kUp:
      first_ -= std::min<std::size_t>(first_, 1);
      break;
    case Kind::kDown:
      ++first_;
      break;
    case Kind::kPageUp:
      first_ -= std::min(first_, page_);
      break;
    case Kind::kPageDown:
      first_ += page_;
      break;
    case Kind::kHome:
      first_ = 0;
      break;
    case Kind::kEnd:
      first_ = last;
      break;
    default:
      break;
  }
  first_ = std::min(first_, last);
}

// The same key again turns the order around.
void WatchView::SortBy(WatchColumn column, bool descending_at_first) {
  const bool is_again = order_.column == column;
  order_ = {column, is_again ? !order_.descending : descending_at_first};
  first_ = 0;
}

std::string WatchView::LastLine() const {
  const std::string shown = Shown(filter_, charset_);
  if (is_typing_) return "filter: " + shown + "_   Enter keeps it, Esc removes it";
  if (!filter_.empty()) return "filter: " + shown + "   Esc removes it   " + kKeysHelp;
  return kKeysHelp;
}

std::vector<ScreenLine> WatchView::Lines(const WatchModel& model, const std::string& note,
                                         std::size_t width, std::size_t height) {
  std::vector<ScreenLine> lines;
  const auto add = [&lines, width](const std::string& text, LineStyle style) {
    lines.push_back({Fitted(text, width), style});
  };
  const bool has_failures = !model.failures().empty();
  const std::string what = model.rounds() == 0 ? "no round yet" : SumsText(model);
  add("voltaris watch  round " + std::to_string(model.rounds()) + "  " + note, LineStyle::kTitle);
  add(what, LineStyle::kPlain);
  std::string nodes = NodesText(model);
  if (has_failures) nodes += "; " + Shown(model.failures().front(), charset_);
  if (model.rounds() > 0) add(nodes, has_failures ? LineStyle::kAlarm : LineStyle::kPlain);

  const std::vector<const WatchRow*> rows = model.Rows(order_, filter_);
  const std::size_t above = lines.size() + 1;  // with the heading
  page_ = height > above + 1 ? height - above - 1 : 1;
  rows_ = rows.size();
  first_ = std::min(first_, rows_ - std::min(rows_, page_));
  const WatchTableStyle style{
      .charset = charset_, .graph = graph_, .shorten = true, .width = width, .order = order_};
  LineStyle line_style = LineStyle::kHeading;
  std::size_t at = first_;
  for (const std::string& line : WatchTable(rows, model.node_count() > 1, style, first_, page_)) {
    const bool is_row = line_style != LineStyle::kHeading;
    add(line, is_row && rows[at]->absent > 0 ? LineStyle::kFaint : line_style);
    if (is_row) ++at;
    line_style = LineStyle::kPlain;
  }
  // The last line of the screen is the help line, however few there are.
  if (height > 0) {
    lines.resize(height - 1, {std::string(width, ' '), LineStyle::kPlain});
    add(LastLine(), LineStyle::kFaint);
  }
  return lines;
}

}  // namespace vt::tools
