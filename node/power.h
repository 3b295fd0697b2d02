// Power as exact integers. A device tells its usage in 16 bits and units, the decimal exponent of
// the watt; sums are kept in milliwatts and put into units that fit at the end.
#ifndef VT_NODE_POWER_H_
#define VT_NODE_POWER_H_

#include <cstdint>

namespace vt::node {

inline constexpr int kLeastUnits = -3;    // milliwatt
inline constexpr int kGreatestUnits = 6;  // megawatt

// ToMilliwatts converts a value in units from kLeastUnits to kGreatestUnits.
std::int64_t ToMilliwatts(std::int64_t value, int units);

// FromMilliwatts is the nearest whole number of units; units are at least kLeastUnits.
std::int64_t FromMilliwatts(std::int64_t milliwatts, int units);

// FittingUnits are the smallest units in which milliwatts, not negative, fit into 16 bits.
int FittingUnits(std::int64_t milliwatts);

}  // namespace vt::node

#endif  // VT_NODE_POWER_H_
