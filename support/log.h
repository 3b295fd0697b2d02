// Emission of log lines. Every line names the exported function that reports: VT_LOG in the body of
// that function, VT_LOG_AS in what works for it. The settings and the exported calls that change
// them live in log.cc.
#ifndef VT_SUPPORT_LOG_H
#define VT_SUPPORT_LOG_H

#include <atomic>
#include <cstdint>

namespace vt::support {

enum class Level : std::uint32_t { kTrace, kDebug, kInfo, kWarn, kError, kFatal };

// log_threshold is the configured level; a line is emitted when the threshold is at most its
// level.
extern constinit std::atomic<std::uint32_t> log_threshold;

inline bool LogEnabled(Level level) {
  return log_threshold.load(std::memory_order_relaxed) <= static_cast<std::uint32_t>(level);
}

// LogLine emits a line without looking at the threshold again. It leaves errno as it found it.
void LogLine(Level level, const char* function, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace vt::support

// Macros, because the arguments must not be evaluated for a line that is not emitted.
#define VT_LOG_AS(level, function, ...)                                           \
  do {                                                                            \
    if (::vt::support::LogEnabled(::vt::support::Level::level)) {                 \
      ::vt::support::LogLine(::vt::support::Level::level, function, __VA_ARGS__); \
    }                                                                             \
  } while (false)
#define VT_LOG(level, ...) VT_LOG_AS(level, __func__, __VA_ARGS__)

#endif  // VT_SUPPORT_LOG_H
