#include "tests/harness/log_capture.h"

#include <regex.h>
#include <unistd.h>

#include <mutex>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "vtapi.h"

#include "tests/harness/faults.h"

namespace vt::testing {
namespace {

// The log callback has no context argument, so the receiving capture is process-wide.
constinit std::mutex capture_mutex;
constinit LogCapture* current_capture = nullptr;

const char* LevelWord(std::uint32_t level) {
  static constexpr const char* kWords[] = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};
  return level < std::size(kWords) ? kWords[level] : nullptr;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  const char* word = LevelWord(line.level);
  if (word != nullptr) {
    out << word;
  } else {
    out << "level " << line.level;
  }
  return out << " \"" << line.text << '"';
}

void PrintTo(const LogLine& line, std::ostream* out) { *out << line; }

LogCapture::LogCapture(std::uint32_t level)
    : saved_level_(getLogLevel()),
      saved_enable_(getLogCallbackEnable()),
      saved_callback_(getLogCallback()) {
  // Switching is itself logged, so it is done in silence.
  setLogLevel(kSilent);
  setLogCallback(&LogCapture::Receive);
  enableLogCallback(1);
  {
    const std::lock_guard lock(capture_mutex);
    outer_ = std::exchange(current_capture, this);
  }
  setLogLevel(level);
}

LogCapture::~LogCapture() {
  setLogLevel(kSilent);
  enableLogCallback(saved_enable_);
  if (saved_callback_ != nullptr) setLogCallback(saved_callback_);
  {
    const std::lock_guard lock(capture_mutex);
    current_capture = outer_;
  }
  setLogLevel(saved_level_);
}

void LogCapture::Receive(std::uint32_t level, const char* text) {
  const std::lock_guard lock(capture_mutex);
  if (current_capture != nullptr) current_capture->lines_.push_back({level, text});
}

std::vector<LogLine> LogCapture::lines() const {
  const std::lock_guard lock(capture_mutex);
  return lines_;
}

std::vector<LogLine> LogCapture::Take() {
  const std::lock_guard lock(capture_mutex);
  return std::exchange(lines_, {});
}

std::size_t LogCapture::Count(std::uint32_t level, std::string_view text) const {
  std::size_t count = 0;
  for (const LogLine& line : lines()) {
    if (line.level == level && line.text == text) ++count;
  }
  return count;
}

bool LogCapture::Has(std::uint32_t level, std::string_view text) const {
  return Count(level, text) > 0;
}

bool LogCapture::HasMatch(std::uint32_t level, const std::string& regex) const {
  const AllocationFault::Pause pause;
  regex_t pattern;
  if (regcomp(&pattern, regex.c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
    throw std::invalid_argument("not a regular expression: " + regex);
  }
  bool found = false;
  for (const LogLine& line : lines()) {
    if (line.level == level && regexec(&pattern, line.text.c_str(), 0, nullptr, 0) == 0) {
      found = true;
    }
  }
  regfree(&pattern);
  return found;
}

std::vector<LogLine> LogCapture::AtOrAbove(std::uint32_t level) const {
  std::vector<LogLine> result;
  for (LogLine& line : lines()) {
    if (line.level >= level) result.push_back(std::move(line));
  }
  return result;
}

void LogCapture::Clear() {
  const std::lock_guard lock(capture_mutex);
  lines_.clear();
}

FileLog::FileLog(std::uint32_t level)
    : stream_(std::tmpfile()),
      buffer_(BUFSIZ),
      saved_level_(getLogLevel()),
      saved_enable_(getLogCallbackEnable()),
      saved_file_(getLogFile()) {
  if (stream_ == nullptr) throw std::runtime_error("no temporary file for the log");
  std::setvbuf(stream_, buffer_.data(), _IOFBF, buffer_.size());
  setLogLevel(kSilent);
  enableLogCallback(0);
  setLogFile(stream_);
  setLogLevel(level);
}

FileLog::~FileLog() {
  setLogLevel(kSilent);
  enableLogCallback(saved_enable_);
  // Standard output is what the facility reports when no file is stored; null stores none.
  setLogFile(saved_file_ == stdout ? nullptr : saved_file_);
  setLogLevel(saved_level_);
  std::fclose(stream_);
}

std::string FileLog::text() const {
  std::fflush(stream_);
  std::string result;
  char block[4096];
  for (;;) {
    const ssize_t n =
        pread(fileno(stream_), block, sizeof block, static_cast<off_t>(result.size()));
    if (n <= 0) return result;
    result.append(block, static_cast<std::size_t>(n));
  }
}

std::vector<std::string> FileLog::Lines() const {
  std::vector<std::string> result;
  const std::string all = text();
  for (std::size_t start = 0; start < all.size();) {
    const std::size_t newline = all.find('\n', start);
    const std::size_t end = newline == std::string::npos ? all.size() : newline;
    result.push_back(all.substr(start, end - start));
    start = end + 1;
  }
  return result;
}

}  // namespace vt::testing
