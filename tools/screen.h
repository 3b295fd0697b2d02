// A terminal that shows lines and reads keys one by one. However the process ends, but for SIGKILL,
// the terminal is as it was before.
#ifndef VT_TOOLS_SCREEN_H_
#define VT_TOOLS_SCREEN_H_

#include <cstddef>
#include <optional>
#include <vector>

#include "tools/watch_view.h"

namespace vt::tools {

// Screen is there once at a time.
class Screen {
 public:
  // IsPossible tells whether standard input and output are a terminal that is known well enough to
  // draw on.
  static bool IsPossible();

  // It takes the terminal. It throws Failure when that cannot be had.
  explicit Screen(bool with_colour);
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // charset is what the locale of the user can show.
  static Charset LocaleCharset();

  std::size_t width() const;
  std::size_t height() const;

  // Show shows lines, each as wide as the screen.
  void Show(const std::vector<ScreenLine>& lines);

  // Read is the next key that was pressed, if there is one. A change of the size is a key, too.
  std::optional<KeyPress> Read();

  // descriptor becomes readable when there is a key. It is closed at the other end when the
  // terminal has gone.
  static int descriptor();

 private:
  bool TakeNewSize();
};

}  // namespace vt::tools

#endif  // VT_TOOLS_SCREEN_H_
