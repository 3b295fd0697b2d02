// Power as a device tells it: 16 bits without a sign, and units, the decimal exponent of the watt.
// Here is how milliwatts get there: in the smallest units in which nothing overflows, which are
// those that lose least.
#ifndef VT_NODE_POWER_UNITS_H_
#define VT_NODE_POWER_UNITS_H_

#include <cstdint>
#include <limits>
#include <span>

namespace vt::node {

inline constexpr std::int64_t kGreatestUsage = std::numeric_limits<std::uint16_t>::max();
inline constexpr std::int8_t kFinestUnits = -3;   // milliwatt
inline constexpr std::int8_t kCoarsestUnits = 6;  // megawatt, of what a configuration says

// ToMilliwatts converts a value of at most 32 bits in any units: finer ones are rounded to the
// nearest milliwatt, and what is beyond 2 x 10^18 mW to either side stays there.
std::int64_t ToMilliwatts(std::int64_t value, std::int8_t units);

// AddMilliwatts adds two powers, each of which is at most what ToMilliwatts gives or such a sum;
// what is beyond stays there, too.
std::int64_t AddMilliwatts(std::int64_t a, std::int64_t b);

// PowerInUnits is usage x 10^units watts.
struct PowerInUnits {
  std::uint16_t usage = 0;
  std::int8_t units = kFinestUnits;
};

// UsageInUnits rounds to the nearest multiple of the units, which are at least kFinestUnits. Usage
// has no sign: less than nothing is 0. What does not fit into 16 bits is their greatest value.
std::uint16_t UsageInUnits(std::int64_t milliwatts, std::int8_t units);

// ChangeInUnits rounds a change of power, which has a sign, to the nearest multiple of the units.
std::int64_t ChangeInUnits(std::int64_t milliwatts, std::int8_t units);

// CommonUnits are the smallest units in which each of the values fits into 16 bits, for values that
// share one field of units, such as a usage and the vector of usages of all levels. No values fit
// into kFinestUnits.
std::int8_t CommonUnits(std::span<const std::int64_t> milliwatts);

// FitPower puts one value into the smallest units that hold it.
PowerInUnits FitPower(std::int64_t milliwatts);

}  // namespace vt::node

#endif  // VT_NODE_POWER_UNITS_H_
