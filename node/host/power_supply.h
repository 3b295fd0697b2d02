// Batteries and supplies (sys/class/power_supply).
//
// A battery that discharges is a producer: its value is all that the host draws at that time. One
// that charges, or is full, is a consumer: what it takes is drawn besides what the host uses. While
// its driver cannot tell the direction it is a meter. A mains or USB supply that tells its power is
// a meter, for everything else is contained in it; most only tell whether they are plugged in.
// Batteries of attached devices (a mouse) are not this host's and are left alone.
#ifndef VT_NODE_HOST_POWER_SUPPLY_H_
#define VT_NODE_HOST_POWER_SUPPLY_H_

#include <optional>
#include <string>
#include <vector>

#include "node/host/power_source.h"
#include "node/host/tree.h"

namespace vt::node {

class PowerSupplySource : public PowerSource {
 public:
  explicit PowerSupplySource(Tree tree);

  std::string_view kind() const override { return "supply"; }
  Findings Find() override;
  std::vector<Reading> Read() override;
  std::string Advice(Trouble trouble) const override;

  // OnMains tells whether a mains or USB supply is plugged in now; nothing when there is none that
  // tells.
  std::optional<bool> OnMains() const;

 private:
  enum class Type { kBattery, kMains, kUsb };

  struct Supply {
    std::string folder;
    Type type;
  };

  std::optional<Type> TypeOf(const std::string& folder) const;
  bool TellsPower(const Supply& supply) const;
  HostEntity Describe(const Supply& supply) const;
  Category CategoryOf(const Supply& supply) const;
  Reading ReadSupply(const Supply& supply) const;
  Reading ReadPower(const std::string& folder, Category category) const;

  Tree tree_;
  std::vector<Supply> supplies_;
};

}  // namespace vt::node

#endif  // VT_NODE_HOST_POWER_SUPPLY_H_
