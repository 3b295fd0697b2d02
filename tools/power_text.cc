#include "tools/power_text.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

namespace vt::tools {
namespace {

// A unit far beyond what any device means would make a number of hundreds of digits.
constexpr int kPlainUnits = 15;

struct Unit {
  int exponent;
  std::string_view name;
};

constexpr std::array kUnits = {Unit{-3, "mW"}, Unit{0, "W"}, Unit{3, "kW"}, Unit{6, "MW"},
                               Unit{9, "GW"}};

// UnitFor is the greatest in which a power of so many digits before its end is at least 1.
const Unit& UnitFor(int last_exponent, std::size_t digits) {
  const int first_exponent = last_exponent + static_cast<int>(digits) - 1;
  const Unit* chosen = &kUnits.front();
  for (const Unit& unit : kUnits) {
    if (unit.exponent <= first_exponent) chosen = &unit;
  }
  return *chosen;
}

const Unit& UnitFor(std::int64_t raw, int units) {
  static_assert(kUnits[1].exponent == 0);
  if (raw == 0) return kUnits[1];
  return UnitFor(units, std::to_string(std::abs(raw)).size());
}

}  // namespace

std::string WattsText(std::int64_t raw, int units) {
  if (std::abs(units) > kPlainUnits) return std::to_string(raw) + "e" + std::to_string(units);
  std::string digits = std::to_string(std::abs(raw));
  if (units > 0 && raw != 0) digits.append(static_cast<std::size_t>(units), '0');
  if (units < 0) {
    const auto fraction = static_cast<std::size_t>(-units);
    if (digits.size() <= fraction) digits.insert(0, fraction + 1 - digits.size(), '0');
    digits.insert(digits.size() - fraction, 1, '.');
    digits.erase(digits.find_last_not_of('0') + 1);
    if (digits.back() == '.') digits.pop_back();
  }
  return (raw < 0 ? "-" : "") + digits;
}

std::string HandyText(std::int64_t raw, const std::optional<int>& units) {
  return HandyText(std::span(&raw, 1), units);
}

std::string HandyText(std::span<const std::int64_t> raw, const std::optional<int>& units) {
  std::int64_t greatest = 0;
  for (const std::int64_t number : raw) greatest = std::max(greatest, std::abs(number));
  const Unit& unit = UnitFor(greatest, units.value_or(0));
  std::string text;
  for (const std::int64_t number : raw) {
    if (!text.empty()) text += ' ';
    text += units ? WattsText(number, *units - unit.exponent) : std::to_string(number);
  }
  text.append(units ? " " : "").append(units ? unit.name : "?");
  return text;
}

}  // namespace vt::tools
