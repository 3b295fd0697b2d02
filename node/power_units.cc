#include "node/power_units.h"

#include <algorithm>
#include <limits>

namespace vt::node {
namespace {

// What a device may claim has no limit; this leaves room to add it to another.
constexpr std::int64_t kMostMilliwatts = std::numeric_limits<std::int64_t>::max() / 4;
constexpr int kGreatestShift = 18;  // 10^18 is the last power of ten that 64 bits hold

// Divided divides a number that is not negative by a power of ten, halves upwards; it adds nothing
// to the number, which may be the greatest of all.
std::int64_t Divided(std::int64_t number, int shift) {
  if (shift > kGreatestShift) return 0;
  std::int64_t divisor = 1;
  for (; shift > 0; --shift) divisor *= 10;
  const std::int64_t rest = number % divisor;
  return number / divisor + (rest >= divisor - rest ? 1 : 0);
}

std::int64_t Rounded(std::int64_t milliwatts, std::int8_t units) {
  return Divided(milliwatts, units - kFinestUnits);
}

}  // namespace

std::uint16_t UsageInUnits(std::int64_t milliwatts, std::int8_t units) {
  const std::int64_t usage = Rounded(std::max<std::int64_t>(milliwatts, 0), units);
  return static_cast<std::uint16_t>(std::min(usage, kGreatestUsage));
}

std::int64_t ToMilliwatts(std::int64_t value, std::int8_t units) {
  const int shift = units - kFinestUnits;
  if (shift < 0) return value < 0 ? -Divided(-value, -shift) : Divided(value, -shift);
  for (int i = 0; i < shift; ++i) {
    value = std::clamp(value, -kMostMilliwatts / 10, kMostMilliwatts / 10) * 10;
  }
  return value;
}

std::int64_t AddMilliwatts(std::int64_t a, std::int64_t b) {
  return std::clamp(a + b, -kMostMilliwatts, kMostMilliwatts);
}

std::int64_t ChangeInUnits(std::int64_t milliwatts, std::int8_t units) {
  if (milliwatts >= 0) return Rounded(milliwatts, units);
  // The least number of all has no positive counterpart.
  return -Rounded(-std::max(milliwatts, -std::numeric_limits<std::int64_t>::max()), units);
}

std::int8_t CommonUnits(std::span<const std::int64_t> milliwatts) {
  std::int64_t greatest = 0;
  for (const std::int64_t value : milliwatts) greatest = std::max(greatest, value);
  std::int8_t units = kFinestUnits;
  while (Rounded(greatest, units) > kGreatestUsage) ++units;
  return units;
}

PowerInUnits FitPower(std::int64_t milliwatts) {
  const std::int8_t units = CommonUnits({&milliwatts, 1});
  return {UsageInUnits(milliwatts, units), units};
}

}  // namespace vt::node
