// What the service manager is told: that the node serves, reads its configuration again, ends, and
// is alive. It is one datagram each to the socket that NOTIFY_SOCKET names, of systemd's protocol;
// without such a socket nothing is told.
#ifndef VT_NODE_NOTIFY_H_
#define VT_NODE_NOTIFY_H_

#include <chrono>
#include <optional>
#include <string>

namespace vt::node {

class Notifier {
 public:
  // FromEnvironment takes the socket and the watchdog from NOTIFY_SOCKET, WATCHDOG_USEC and
  // WATCHDOG_PID, and removes them, so that no program that the node starts speaks for it. It is
  // called before other threads run.
  static Notifier FromEnvironment();

  // Notifier tells the socket of that path, or with @ in front of that abstract name; empty for
  // none.
  explicit Notifier(std::string socket,
                    std::optional<std::chrono::microseconds> watchdog = std::nullopt)
      : socket_(std::move(socket)), watchdog_(watchdog) {}

  // watchdog is how long the manager waits for the next Alive, if it does.
  std::optional<std::chrono::microseconds> watchdog() const { return watchdog_; }

  // Each of these may be called by any thread. What cannot be told is logged.
  void Ready(const std::string& status) const;
  void Reloading() const;
  void Stopping() const;
  void Alive() const;

 private:
  void Send(const std::string& message, int flags) const;

  std::string socket_;
  std::optional<std::chrono::microseconds> watchdog_;
};

}  // namespace vt::node

#endif  // VT_NODE_NOTIFY_H_
