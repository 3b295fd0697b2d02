#include "node/log.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <utility>

#include "vtapi.h"

namespace vt::node {
namespace {

constexpr std::array<const char*, 6> kWords = {"TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};

void WriteLine(std::uint32_t level, const char* text) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 32> stamp{};
  (void)std::strftime(stamp.data(), stamp.size(), "%Y-%m-%d %H:%M:%S", &local);
  const char* word = kWords[std::min<std::size_t>(level, kWords.size() - 1)];
  // One call, which the C library does not mix with those of other threads.
  (void)std::fprintf(stderr, "%s [%s] %s\n", stamp.data(), word, text);
}

}  // namespace

void StartLog(std::uint32_t level) {
  // The two calls report themselves at DEBUG, to standard output, which belongs to scripts.
  setLogLevel(VT_LOG_FATAL + 1);
  setLogCallback(WriteLine);
  enableLogCallback(1);
  setLogLevel(level);
}

void Log(std::uint32_t level, const std::string& message) {
  if (level >= getLogLevel()) WriteLine(level, message.c_str());
}

void RateLimit::Log(std::uint32_t level, const std::string& message) {
  if (level < getLogLevel()) return;
  const std::lock_guard lock(mutex_);
  const auto now = std::chrono::steady_clock::now();
  if (now - second_ >= std::chrono::seconds(1)) {
    second_ = now;
    lines_ = 0;
    if (const std::uint64_t count = std::exchange(left_out_, 0); count != 0) {
      node::Log(VT_LOG_WARN, std::to_string(count) + " lines like the last ones were left out");
    }
  }
  if (lines_ == kLinesASecond) {
    ++left_out_;
  } else {
    ++lines_;
    node::Log(level, message);
  }
}

}  // namespace vt::node
