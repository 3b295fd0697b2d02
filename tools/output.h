// An answer as text: a table for people, JSON or CSV for programs.
#ifndef VT_TOOLS_OUTPUT_H_
#define VT_TOOLS_OUTPUT_H_

#include <iosfwd>
#include <string>

#include "tools/answer.h"
#include "tools/options.h"

namespace vt::tools {

// PrintAnswer writes the answer in the format of the options. colour is used by the table only.
void PrintAnswer(std::ostream& out, const Answer& answer, const Options& options, bool colour);

// WattsText is the exact decimal number raw x 10^units, without zeros at the end of its fraction.
std::string WattsText(std::int64_t raw, int units);

}  // namespace vt::tools

#endif  // VT_TOOLS_OUTPUT_H_
