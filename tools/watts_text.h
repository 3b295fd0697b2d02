// Sums and differences of power as text. What a single device told is exact; see power_text.h.
#ifndef VT_TOOLS_WATTS_TEXT_H_
#define VT_TOOLS_WATTS_TEXT_H_

#include <string>

namespace vt::tools {

// PlainWatts is a decimal number of watts, to the microwatt and without zeros at its end.
std::string PlainWatts(double watts);

// RoundWatts is power for people, with a unit from mW to GW and at most three digits behind the
// point, such as "7.014 kW".
std::string RoundWatts(double watts);

// RoundChange is the same with a sign, also that of an increase; no change is "0 W".
std::string RoundChange(double watts);

}  // namespace vt::tools

#endif  // VT_TOOLS_WATTS_TEXT_H_
