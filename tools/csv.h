// A report as comma-separated values after RFC 4180.
#ifndef VT_TOOLS_CSV_H_
#define VT_TOOLS_CSV_H_

#include <string>

#include "tools/report.h"

namespace vt::tools {

// CsvText has the columns of the options; power takes three: watts, the raw number, and its units.
// A node without rows has a line with its name and status alone, where these are columns.
std::string CsvText(const Report& report);

}  // namespace vt::tools

#endif  // VT_TOOLS_CSV_H_
