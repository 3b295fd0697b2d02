// Power sensors of the hardware monitoring drivers (sys/class/hwmon/hwmon*/power*_input, or
// power*_average where there is no other), such as those of graphics cards and power supply units.
#ifndef VT_NODE_HOST_HWMON_H_
#define VT_NODE_HOST_HWMON_H_

#include <string>
#include <vector>

#include "node/host/power_source.h"
#include "node/host/tree.h"

namespace vt::node {

class HwmonSource : public PowerSource {
 public:
  explicit HwmonSource(Tree tree);

  std::string_view kind() const override { return "hwmon"; }
  Findings Find() override;
  std::vector<Reading> Read() override;
  std::string Advice(Trouble trouble) const override;

 private:
  struct Sensor {
    std::string path;
    Category category;
  };

  void FindOnChip(const std::string& folder, Findings& findings);
  Reading ReadSensor(const Sensor& sensor) const;

  Tree tree_;
  std::vector<Sensor> sensors_;
};

}  // namespace vt::node

#endif  // VT_NODE_HOST_HWMON_H_
