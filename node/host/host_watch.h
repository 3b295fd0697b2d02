// The sensors of this host, read at regular times on a thread of their own: files and servers may
// keep a reader waiting.
#ifndef VT_NODE_HOST_HOST_WATCH_H_
#define VT_NODE_HOST_HOST_WATCH_H_

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "node/host/host_sensors.h"

namespace vt::node {

class HostWatch {
 public:
  // Report takes the readings of all entities, in their order. It is called on the watch's thread.
  using Report = std::function<void(std::vector<Reading>)>;

  // HostWatch looks for sensors, which may take as long as the patience of the settings.
  HostWatch(HostSettings settings, std::chrono::milliseconds interval);
  // The destructor waits for a reading under way.
  ~HostWatch();
  HostWatch(const HostWatch&) = delete;
  HostWatch& operator=(const HostWatch&) = delete;

  const std::vector<HostEntity>& entities() const { return sensors_.entities(); }

  // Read reads all entities once, until Start.
  std::vector<Reading> Read() { return ReadAndLog(); }

  // Start reads after a quarter of a second, for power that is the difference of two readings, and
  // from then in each interval. It is called once.
  void Start(Report report);

 private:
  std::vector<Reading> ReadAndLog();
  void Run(const std::stop_token& stop);

  HostSensors sensors_;
  const std::chrono::milliseconds interval_;
  std::vector<Trouble> troubles_;  // of the readings before
  Report report_;
  std::mutex mutex_;
  std::condition_variable_any stopped_;
  std::jthread thread_;
};

}  // namespace vt::node

#endif  // VT_NODE_HOST_HOST_WATCH_H_
