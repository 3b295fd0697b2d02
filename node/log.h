// The log of the node on standard error: its own lines and those of the library, each written whole
// however many connections are served at once.
#ifndef VT_NODE_LOG_H_
#define VT_NODE_LOG_H_

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace vt::node {

// StartLog admits lines from that level on (enum vt_log_level) and takes over the library's log. It
// is called once, before other threads run.
void StartLog(std::uint32_t level);

// Log writes one line of that level.
void Log(std::uint32_t level, const std::string& message);

// RateLimit lets some lines a second through and tells how many it left out, so that nobody fills
// the disk from the network. It may be used by several threads.
class RateLimit {
 public:
  void Log(std::uint32_t level, const std::string& message);

 private:
  static constexpr int kLinesASecond = 10;

  std::mutex mutex_;
  std::chrono::steady_clock::time_point second_{};  // its beginning
  int lines_ = 0;
  std::uint64_t left_out_ = 0;
};

}  // namespace vt::node

#endif  // VT_NODE_LOG_H_
