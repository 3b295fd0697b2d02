// The log of the process and the version of the library.
#ifndef VTAPI_FACE_LOG_HPP
#define VTAPI_FACE_LOG_HPP

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "vtapi/log.h"
#include "vtapi/version.h"

namespace voltaris {

// LogLevel is the least level of the lines that are wanted.
enum class LogLevel : std::uint32_t {
  kTrace = VT_LOG_TRACE,
  kDebug = VT_LOG_DEBUG,
  kInfo = VT_LOG_INFO,
  kWarn = VT_LOG_WARN,
  kError = VT_LOG_ERROR,
  kFatal = VT_LOG_FATAL,
  kOff = VT_LOG_FATAL + 1
};

inline void set_log_level(LogLevel least) { setLogLevel(static_cast<std::uint32_t>(least)); }
inline LogLevel log_level() { return static_cast<LogLevel>(getLogLevel()); }

// set_log sends the lines of the library to a callback, a plain function or a lambda without
// captures, or to a stream, which stays the caller's. The settings are those of the process. That
// they change leaves no line.
inline void set_log(LogLevel least, log_callback callback) {
  set_log_level(LogLevel::kOff);
  if (setLogCallback(callback) != 0) enableLogCallback(1);
  set_log_level(least);
}
inline void set_log(LogLevel least, std::FILE* stream) {
  set_log_level(LogLevel::kOff);
  enableLogCallback(0);
  setLogFile(stream);
  set_log_level(least);
}

// version is that of the library, such as "-2.0.136".
inline std::string_view version() { return voltaris_utl_getVersion(); }

}  // namespace voltaris

#endif  // VTAPI_FACE_LOG_HPP
