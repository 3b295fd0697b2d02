// A bound on the time that collecting an answer takes. The library waits for each further message
// as long as three minutes, and for ever inside one; the watchdog ends the connection when the time
// is up, which the library takes for the end of the answer.
#ifndef VT_TOOLS_WATCHDOG_H_
#define VT_TOOLS_WATCHDOG_H_

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace vt::tools {

class Watchdog {
 public:
  // Watchdog shuts the socket fd down once the time is up, unless it is stopped before. fd must
  // stay open until then.
  Watchdog(int fd, std::chrono::seconds time);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // Stop ends the watch and tells whether the time had been up.
  bool Stop();

 private:
  void Watch(int fd, std::chrono::seconds time);

  std::mutex mutex_;
  std::condition_variable stop_;
  bool stopped_ = false;
  bool barked_ = false;
  std::thread thread_;  // last, so that it finds the others made
};

}  // namespace vt::tools

#endif  // VT_TOOLS_WATCHDOG_H_
