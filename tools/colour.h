// Whether colours are wanted.
#ifndef VT_TOOLS_COLOUR_H_
#define VT_TOOLS_COLOUR_H_

#include <cstdlib>

#include "tools/options.h"

namespace vt::tools {

// WantsColour tells what the setting means where the output is, or is not, a terminal with colours.
// NO_COLOR in the environment switches off what nobody has asked for.
inline bool WantsColour(When color, bool is_terminal) {
  if (color != When::kAuto) return color == When::kAlways;
  const char* no_colour = std::getenv("NO_COLOR");
  return is_terminal && (no_colour == nullptr || *no_colour == '\0');
}

}  // namespace vt::tools

#endif  // VT_TOOLS_COLOUR_H_
