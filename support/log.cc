#include "support/log.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "vtapi/log.h"

namespace {

using vt::support::Level;

// Each setting is read and written whole; what they point at is for the caller to keep in order.
constinit std::atomic<FILE*> log_file = nullptr;
constinit std::atomic<std::uint8_t> callback_enabled = 0;
constinit std::atomic<log_callback> callback = nullptr;
constexpr auto kRelaxed = std::memory_order_relaxed;

constexpr std::size_t kCallbackTextSize = 512;
// No pointers, which would have to be set right whenever the library is loaded.
constexpr char kLevelWords[][sizeof "TRACE"] = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};

// Callers report failed system calls around their log lines, so a line must not disturb errno.
class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int saved_ = errno;
};

__attribute__((format(printf, 4, 0))) void EmitToCallback(log_callback receiver, Level level,
                                                          const char* function, const char* format,
                                                          va_list arguments) {
  std::array<char, kCallbackTextSize> text{};
  (void)std::snprintf(text.data(), text.size(), "%s: ", function);
  const std::size_t used = std::strlen(text.data());
  (void)std::vsnprintf(text.data() + used, text.size() - used, format, arguments);
  receiver(static_cast<std::uint32_t>(level), text.data());
}

__attribute__((format(printf, 3, 0))) void EmitToFile(Level level, const char* function,
                                                      const char* format, va_list arguments) {
  constexpr std::size_t kCtimeSize = 26;
  std::array<char, kCtimeSize> stamp{};
  const std::time_t now = std::time(nullptr);
  (void)ctime_r(&now, stamp.data());
  stamp[kCtimeSize - 2] = '\0';  // in place of its newline
  FILE* stream = getLogFile();
  flockfile(stream);  // lines of several threads do not mix
  (void)std::fprintf(stream, "%s [%s] %s: ", stamp.data(),
                     kLevelWords[static_cast<std::size_t>(level)], function);
  (void)std::vfprintf(stream, format, arguments);
  (void)std::fprintf(stream, "\n");
  (void)std::fflush(stream);
  funlockfile(stream);
}

}  // namespace

namespace vt::support {

constinit std::atomic<std::uint32_t> log_threshold = VT_LOG_INFO;

// NOLINTNEXTLINE(cert-dcl50-cpp): the compiler checks the arguments against the format
void LogLine(Level level, const char* function, const char* format, ...) {
  const ErrnoKeeper keeper;
  va_list arguments;
  va_start(arguments, format);
  log_callback receiver = callback_enabled.load(kRelaxed) != 0 ? callback.load(kRelaxed) : nullptr;
  if (receiver != nullptr) {
    EmitToCallback(receiver, level, function, format, arguments);
  } else {
    EmitToFile(level, function, format, arguments);
  }
  va_end(arguments);
}

}  // namespace vt::support

extern "C" {

std::uint32_t getLogLevel() { return vt::support::log_threshold.load(kRelaxed); }

void setLogLevel(std::uint32_t level) { vt::support::log_threshold.store(level, kRelaxed); }

FILE* getLogFile() {
  FILE* stream = log_file.load(kRelaxed);
  return stream != nullptr ? stream : stdout;
}

void setLogFile(FILE* stream) { log_file.store(stream, kRelaxed); }

log_callback getLogCallback() { return callback.load(kRelaxed); }

int setLogCallback(log_callback new_callback) {
  if (new_callback == nullptr) return 0;
  // Deliberate: the line precedes the change, here and below.
  VT_LOG(kDebug, "Setting log callback address to %p", reinterpret_cast<void*>(new_callback));
  callback.store(new_callback, kRelaxed);
  return 1;
}

std::uint32_t getLogCallbackEnable() { return callback_enabled.load(kRelaxed); }

void enableLogCallback(std::uint32_t flag) {
  const auto enabled = static_cast<std::uint8_t>(flag);
  VT_LOG(kDebug, "Log callback feature is being %s", enabled != 0 ? "ENABLED" : "DISABLED");
  callback_enabled.store(enabled, kRelaxed);
}

}  // extern "C"
