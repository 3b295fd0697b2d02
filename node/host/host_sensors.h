// All that tells the power of this host: every source, probed, of which the entities that work are
// kept and read.
#ifndef VT_NODE_HOST_HOST_SENSORS_H_
#define VT_NODE_HOST_HOST_SENSORS_H_

#include <netinet/in.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "node/host/power_source.h"
#include "node/host/power_supply.h"
#include "node/host/tree.h"

namespace vt::node {

// LocalNutServer is 127.0.0.1:3493.
sockaddr_in LocalNutServer();

struct HostSettings {
  std::string root = "/";
  std::optional<sockaddr_in> nut = LocalNutServer();  // none: no server is asked
  std::chrono::milliseconds nut_patience{2000};       // for one Probe, and for one Read
  // For tests: the time, and how files are opened. Empty ones are those of the system.
  MonotonicClock clock;
  Tree::Open open;
};

// ProbedSource is a source and why it has found nothing, in which case advice may say what to do.
struct ProbedSource {
  std::string kind;
  std::size_t num_entities = 0;
  std::string note;
  std::string advice;
};

struct ProbedEntity {
  std::string kind;
  HostEntity entity;
  Reading reading;
  std::string advice;  // where the reading failed
};

struct ProbeReport {
  std::vector<ProbedSource> sources;
  std::vector<ProbedEntity> entities;
  std::optional<bool> on_mains;
};

// HostSensors belongs to one thread at a time. Its calls wait for files and for the NUT server, for
// that no longer than the patience of the settings; an event loop calls them on another thread.
class HostSensors {
 public:
  explicit HostSensors(HostSettings settings);

  // Probe looks at all sources anew, reads each entity once, and keeps those that can be read, or
  // could if this were not the first reading (kWaiting). Nothing that files or servers do makes it
  // throw. The keys of the entities are all different.
  ProbeReport Probe();

  // entities are those that the last Probe kept. They stay until the next, whatever becomes of
  // them.
  const std::vector<HostEntity>& entities() const { return entities_; }

  // Read reads the entities, in their order. Energy counters tell the mean power since the reading
  // before, so that this is to be called at regular times: once in 30 seconds at least.
  std::vector<Reading> Read();

  // OnMains tells whether a mains or USB supply is plugged in now; nothing when none tells.
  std::optional<bool> OnMains() const { return supplies_->OnMains(); }

 private:
  struct Kept {
    std::unique_ptr<PowerSource> source;
    std::vector<bool> keeps;  // for each entity that it has found
  };

  void ProbeSource(Kept& kept, ProbeReport& report);

  std::vector<Kept> sources_;
  const PowerSupplySource* supplies_ = nullptr;  // one of the sources
  std::vector<HostEntity> entities_;
};

}  // namespace vt::node

#endif  // VT_NODE_HOST_HOST_SENSORS_H_
