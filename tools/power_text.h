// Power as text: exact in watts for programs, in a unit of a handy size for people.
#ifndef VT_TOOLS_POWER_TEXT_H_
#define VT_TOOLS_POWER_TEXT_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace vt::tools {

// WattsText is the exact decimal number raw x 10^units, without zeros at the end of its fraction.
std::string WattsText(std::int64_t raw, int units);

// HandyText is power with a unit from mW to GW that keeps its number short, such as "7.014 kW", or
// the number and "?" where the units are not known. Nothing is rounded.
std::string HandyText(std::int64_t raw, const std::optional<int>& units);

// HandyText of several numbers is with one unit for all, which the greatest of them gives.
std::string HandyText(std::span<const std::int64_t> raw, const std::optional<int>& units);

}  // namespace vt::tools

#endif  // VT_TOOLS_POWER_TEXT_H_
