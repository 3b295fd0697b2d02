// The fleet from its TOML file.
#ifndef VT_NODE_FLEET_FILE_H_
#define VT_NODE_FLEET_FILE_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "node/fault.h"
#include "node/fleet.h"
#include "node/host/host_device.h"

namespace vt::node {

// FleetError says where and why a configuration is wrong: PATH:LINE:COLUMN: MESSAGE. Lines and
// columns begin at 1; without a place, as for a file that cannot be opened, they are 0.
class FleetError : public std::runtime_error {
 public:
  FleetError(const std::string& path, std::uint32_t line, std::uint32_t column,
             const std::string& message);

  std::uint32_t line() const { return line_; }
  std::uint32_t column() const { return column_; }

 private:
  std::uint32_t line_;
  std::uint32_t column_;
};

// FleetFile is what the file holds.
struct FleetFile {
  Fleet fleet;
  std::optional<std::string> state;  // the path of the state file
  std::optional<std::chrono::seconds> replay_window;
  std::optional<HostDescription> host;
  HostEntities host_entities;  // in the fleet
  std::vector<Fault> faults;   // those that are not enabled included
};

// HostProbe looks for the sensors of this host.
using HostProbe = std::function<std::vector<HostEntity>(const HostDescription&)>;

// LoadFleet reads a TOML file, and the profiles that it names. Paths in it start at its folder. It
// throws FleetError. probe is called when everything else is right, and without it nothing of the
// host is in the fleet.
FleetFile LoadFleet(const std::string& path, const HostProbe& probe = {});

}  // namespace vt::node

#endif  // VT_NODE_FLEET_FILE_H_
