#include "node/host/host_watch.h"

#include <utility>

#include "vtapi.h"

#include "node/log.h"

namespace vt::node {
namespace {

constexpr std::chrono::milliseconds kToSecondReading{250};

}  // namespace

HostWatch::HostWatch(HostSettings settings, std::chrono::milliseconds interval)
    : sensors_(std::move(settings)), interval_(interval) {
  for (const ProbedEntity& probed : sensors_.Probe().entities) {
    if (probed.advice.empty()) continue;
    Log(VT_LOG_WARN, probed.entity.key + " is left out: " + probed.reading.detail +
                         "; voltaris-node probe tells what to do");
  }
  troubles_.resize(sensors_.entities().size(), Trouble::kNone);
}

HostWatch::~HostWatch() = default;

void HostWatch::Start(Report report) {
  report_ = std::move(report);
  thread_ = std::jthread([this](const std::stop_token& stop) { Run(stop); });
}

// ReadAndLog tells in the log when a sensor fails and when it is back, and not each time.
std::vector<Reading> HostWatch::ReadAndLog() {
  std::vector<Reading> readings = sensors_.Read();
  for (std::size_t i = 0; i < readings.size(); ++i) {
    const Reading& reading = readings[i];
    if (reading.trouble == Trouble::kWaiting) continue;
    const Trouble before = std::exchange(troubles_.at(i), reading.trouble);
    if (before == reading.trouble) continue;
    const std::string& key = sensors_.entities()[i].key;
    if (reading.ok()) {
      Log(VT_LOG_INFO, key + " can be read again");
    } else {
      Log(VT_LOG_WARN, key + " cannot be read: " + reading.detail);
    }
  }
  return readings;
}

void HostWatch::Run(const std::stop_token& stop) {
  std::chrono::milliseconds pause = kToSecondReading;
  for (;;) {
    {
      std::unique_lock lock(mutex_);
      stopped_.wait_for(lock, stop, pause, [] { return false; });
    }
    if (stop.stop_requested()) return;
    report_(ReadAndLog());
    pause = interval_;
  }
}

}  // namespace vt::node
