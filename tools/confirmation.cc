#include "tools/confirmation.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <string>

#include "tools/printable.h"
#include "tools/stop_signals.h"

namespace vt::tools {
namespace {

// ReadLine is a line without its end, as far as it is no longer than any answer; empty at the end
// of the input and on a signal.
std::string ReadLine() {
  std::array<pollfd, 2> watched = {pollfd{STDIN_FILENO, POLLIN, 0},
                                   pollfd{StopDescriptor(), POLLIN, 0}};
  while (poll(watched.data(), watched.size(), -1) < 0) {
  }
  if (StopSignal() != 0) return {};
  // A terminal hands out a whole line at a time.
  std::array<char, 256> buffer{};
  const ssize_t got = read(STDIN_FILENO, buffer.data(), buffer.size());
  const std::string line(buffer.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  return line.substr(0, line.find_first_of("\r\n"));
}

}  // namespace

bool CanAsk() { return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1; }

bool Confirm(std::string_view question) {
  // What was typed before is no answer.
  (void)tcflush(STDIN_FILENO, TCIFLUSH);
  const std::string text = Printable(question) + " [y/N] ";
  if (write(STDERR_FILENO, text.data(), text.size()) < 0) return false;
  const std::string answer = ReadLine();
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace vt::tools
