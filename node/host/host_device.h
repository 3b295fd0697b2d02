// This host as a device of the fleet: an entity for each of its sensors, with the power that was
// read last.
#ifndef VT_NODE_HOST_HOST_DEVICE_H_
#define VT_NODE_HOST_HOST_DEVICE_H_

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "node/fleet.h"
#include "node/host/action.h"
#include "node/host/host_sensors.h"

namespace vt::node {

// HostDescription is what the configuration says of this host.
struct HostDescription {
  HostSettings sensors;
  std::chrono::seconds interval{10};  // between readings
  DeviceIdText id{};
  std::string name;
  std::string role;
  std::string keywords;
  std::string domain;
  std::uint8_t importance = 1;
  std::vector<Action> actions;  // one for each level that the host can be set to
};

// HostEntities are the entities of the host in a fleet: that of the sensor i has model first + i.
struct HostEntities {
  std::uint32_t first_model = 0;
  std::uint32_t count = 0;
};

// AddHost adds entities to a fleet that is not finished. The sensors of each kind are numbered in
// the order of their keys: energy counters of processors from 101, sensors of hwmon from 201,
// supplies from 301, those of a NUT server from 401, so that one kind does not move another.
HostEntities AddHost(Fleet& fleet, const HostDescription& host,
                     const std::vector<HostEntity>& sensors);

// TakeReadings puts readings into the fleet, in the order of the sensors. A sensor that cannot be
// read has no usage until it can; one that waits for its second reading keeps the usage it had.
void TakeReadings(Fleet& fleet, const HostEntities& entities, std::span<const Reading> readings);

}  // namespace vt::node

#endif  // VT_NODE_HOST_HOST_DEVICE_H_
