// The log settings of the process, put back at the end of a scope, and a log callback that behaves
// badly towards errno.
#ifndef VT_TESTS_SUPPORT_LOG_SETTINGS_H_
#define VT_TESTS_SUPPORT_LOG_SETTINGS_H_

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/harness/log_capture.h"

namespace vt::testing {

// LogSettings puts the level, the file, the enable flag and the callback back to what they were. A
// callback that was null cannot be put back: the flag then keeps the last one from being called.
class LogSettings {
 public:
  LogSettings()
      : level_(getLogLevel()),
        file_(getLogFile()),
        callback_(getLogCallback()),
        enable_(getLogCallbackEnable()) {}
  ~LogSettings() {
    setLogLevel(kSilent);
    setLogFile(file_ == stdout ? nullptr : file_);
    if (callback_ != nullptr) setLogCallback(callback_);
    enableLogCallback(enable_);
    setLogLevel(level_);
  }
  LogSettings(const LogSettings&) = delete;
  LogSettings& operator=(const LogSettings&) = delete;

 private:
  std::uint32_t level_;
  std::FILE* file_;
  log_callback callback_;
  std::uint32_t enable_;
};

// ErrnoSpoiler collects lines as LogCapture does, and its callback leaves errno at 99.
class ErrnoSpoiler {
 public:
  static constexpr int kSpoiled = 99;

  explicit ErrnoSpoiler(std::uint32_t level = kTrace) {
    setLogLevel(kSilent);
    lines_.clear();
    setLogCallback(&Receive);
    enableLogCallback(1);
    setLogLevel(level);
  }
  ErrnoSpoiler(const ErrnoSpoiler&) = delete;
  ErrnoSpoiler& operator=(const ErrnoSpoiler&) = delete;

  std::vector<LogLine> lines() const { return lines_; }

 private:
  static void Receive(std::uint32_t level, const char* text) {
    lines_.push_back({level, text});
    errno = kSpoiled;
  }

  static inline std::vector<LogLine> lines_;
  LogSettings settings_;
};

}  // namespace vt::testing

#endif  // VT_TESTS_SUPPORT_LOG_SETTINGS_H_
