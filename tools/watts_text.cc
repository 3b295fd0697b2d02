#include "tools/watts_text.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace vt::tools {
namespace {

struct WattsUnit {
  double watts;
  std::string_view name;
};

constexpr std::array kWattsUnits = {WattsUnit{1e-3, "mW"}, WattsUnit{1, "W"}, WattsUnit{1e3, "kW"},
                                    WattsUnit{1e6, "MW"}, WattsUnit{1e9, "GW"}};

// What is less than one of the last digit is nothing.
constexpr double kLeast = 0.5e-6;

std::string Decimal(double number, int digits) {
  // The greatest number there is, with a sign, a point and its fraction.
  std::array<char, std::numeric_limits<double>::max_exponent10 + 20> text{};
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), number,
                                          std::chars_format::fixed, digits);
  if (error != std::errc()) return "0";
  std::string decimal(text.data(), end);
  if (decimal.find('.') != std::string::npos) {
    decimal.erase(decimal.find_last_not_of('0') + 1);
    if (decimal.back() == '.') decimal.pop_back();
  }
  return decimal == "-0" ? "0" : decimal;
}

}  // namespace

std::string PlainWatts(double watts) { return Decimal(watts, 6); }

std::string RoundWatts(double watts) {
  if (std::abs(watts) < kLeast) return "0 W";
  const WattsUnit* chosen = &kWattsUnits.front();
  for (const WattsUnit& unit : kWattsUnits) {
    // What would be rounded to 1000 of a unit is 1 of the next.
    if (std::abs(watts) >= unit.watts * 0.9999995) chosen = &unit;
  }
  std::string text = Decimal(watts / chosen->watts, 3);
  text.append(" ").append(chosen->name);
  return text;
}

std::string RoundChange(double watts) {
  const bool is_increase = watts >= kLeast;
  return (is_increase ? "+" : "") + RoundWatts(watts);
}

}  // namespace vt::tools
