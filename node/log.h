// The log of the node on standard error: its own lines and those of the library, each written whole
// however many connections are served at once. Control characters in them, which may come from the
// network, are escaped, so that nobody forges a line or steers a terminal.
#ifndef VT_NODE_LOG_H_
#define VT_NODE_LOG_H_

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>

namespace vt::node {

enum class LogFormat {
  kText,  // the time, the level in brackets and the message
  kJson   // an object a line: time, level, message, and the fields of the line
};

// LogField is something that the message tells, too, under a name of its own for programs.
struct LogField {
  std::string_view name;
  std::string_view value;
};

using LogFields = std::initializer_list<LogField>;

// StartLog admits lines from that level on (enum vt_log_level) and takes over the library's log. It
// is called once, before other threads run. Without it lines are text.
void StartLog(std::uint32_t level, LogFormat format = LogFormat::kText);

// Log writes one line of that level. Text leaves the fields out.
void Log(std::uint32_t level, const std::string& message, LogFields fields = {});

// EscapeControls is a text with its control characters written as \n, \t, \r or \xNN.
std::string EscapeControls(std::string_view text);

// RateLimit lets some lines a second through and tells how many it left out, so that nobody fills
// the disk from the network. It may be used by several threads.
class RateLimit {
 public:
  void Log(std::uint32_t level, const std::string& message, LogFields fields = {});

  // left_out is how many lines it has left out since it exists.
  std::uint64_t left_out() const;

 private:
  static constexpr int kLinesASecond = 10;

  mutable std::mutex mutex_;
  std::chrono::steady_clock::time_point second_{};  // its beginning
  int lines_ = 0;
  std::uint64_t untold_ = 0;  // left out since the last line that told so
  std::uint64_t left_out_ = 0;
};

}  // namespace vt::node

#endif  // VT_NODE_LOG_H_
