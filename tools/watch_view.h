// What somebody at a terminal sees of a watch and does with it: order, filter, scrolling. It makes
// lines and takes keys, and knows no terminal.
#ifndef VT_TOOLS_WATCH_VIEW_H_
#define VT_TOOLS_WATCH_VIEW_H_

#include <cstddef>
#include <string>
#include <vector>

#include "tools/watch_model.h"
#include "tools/watch_order.h"
#include "tools/watch_text.h"

namespace vt::tools {

enum class LineStyle { kPlain, kTitle, kHeading, kAlarm, kFaint };

// ScreenLine is exactly as wide as the screen.
struct ScreenLine {
  std::string text;
  LineStyle style = LineStyle::kPlain;

  friend bool operator==(const ScreenLine&, const ScreenLine&) = default;
};

// KeyPress is a key, or a character.
struct KeyPress {
  enum class Kind {
    kText,
    kEnter,
    kEscape,
    kBackspace,
    kUp,
    kDown,
    kPageUp,
    kPageDown,
    kHome,
    kEnd,
    kRedraw,
    kResize,
  };

  Kind kind = Kind::kText;
  std::string text;  // of kText: one character of UTF-8
};

class WatchView {
 public:
  WatchView(const WatchOrder& order, Charset charset) : order_(order), charset_(charset) {}

  // Press does what a key means and returns whether the watch goes on.
  bool Press(const KeyPress& key);

  // Lines fills a screen; note says what is going on, such as "every 2 s".
  std::vector<ScreenLine> Lines(const WatchModel& model, const std::string& note, std::size_t width,
                                std::size_t height);

  const WatchOrder& order() const { return order_; }
  const std::string& filter() const { return filter_; }
  std::size_t first() const { return first_; }

 private:
  void PressWhileTyping(const KeyPress& key);
  bool PressCommand(const std::string& text);
  void Scroll(KeyPress::Kind kind);
  void SortBy(WatchColumn column, bool descending_at_first);
  std::string LastLine() const;

  WatchOrder order_;
  Charset charset_;
  Graph graph_ = Graph::kSparks;
  std::string filter_;
  bool is_typing_ = false;  // the filter
  std::size_t first_ = 0;   // of the rows on the screen
  std::size_t page_ = 1;    // rows that fitted last
  std::size_t rows_ = 0;    // and how many there were
};

}  // namespace vt::tools

#endif  // VT_TOOLS_WATCH_VIEW_H_
