// The energy counters of processors (powercap, sys/class/powercap/intel-rapl:*). Each package and
// each dram zone is a consumer. psys, the whole platform, contains the packages and is a meter.
// core and uncore zones are parts of their package and are no entities. Other control types, such
// as intel-rapl-mmio, count the same packages once more and are left alone.
//
// The counters are the processor's own model of itself: estimated.
#ifndef VT_NODE_HOST_RAPL_H_
#define VT_NODE_HOST_RAPL_H_

#include <optional>
#include <string>
#include <vector>

#include "node/host/energy_counter.h"
#include "node/host/power_source.h"
#include "node/host/tree.h"

namespace vt::node {

class RaplSource : public PowerSource {
 public:
  RaplSource(Tree tree, MonotonicClock clock);

  std::string_view kind() const override { return "rapl"; }
  Findings Find() override;
  std::vector<Reading> Read() override;
  std::string Advice(Trouble trouble) const override;

 private:
  struct Zone {
    std::string energy_path;
    Category category;
    EnergyCounter counter;
  };

  std::optional<HostEntity> Describe(const std::string& folder) const;
  Reading ReadZone(Zone& zone) const;

  Tree tree_;
  MonotonicClock clock_;
  std::vector<Zone> zones_;
};

}  // namespace vt::node

#endif  // VT_NODE_HOST_RAPL_H_
