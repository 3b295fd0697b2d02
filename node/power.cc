#include "node/power.h"

#include <limits>

namespace vt::node {
namespace {

std::int64_t PowerOfTen(int exponent) {
  std::int64_t power = 1;
  for (; exponent > 0; --exponent) power *= 10;
  return power;
}

}  // namespace

std::int64_t ToMilliwatts(std::int64_t value, int units) {
  return value * PowerOfTen(units - kLeastUnits);
}

std::int64_t FromMilliwatts(std::int64_t milliwatts, int units) {
  const std::int64_t divisor = PowerOfTen(units - kLeastUnits);
  const std::int64_t half = milliwatts < 0 ? -(divisor / 2) : divisor / 2;
  return (milliwatts + half) / divisor;
}

int FittingUnits(std::int64_t milliwatts) {
  int units = kLeastUnits;
  while (FromMilliwatts(milliwatts, units) > std::numeric_limits<std::uint16_t>::max()) ++units;
  return units;
}

}  // namespace vt::node
