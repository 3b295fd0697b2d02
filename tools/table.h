// A report as tables for people: the rows, and the nodes that something is to be said of.
#ifndef VT_TOOLS_TABLE_H_
#define VT_TOOLS_TABLE_H_

#include <string>

#include "tools/report.h"

namespace vt::tools {

// TableText has the columns of the options. Behind the rows stand, where several nodes were asked,
// those that did not answer well, with their status and the reason. colour makes headings bold. It
// throws Failure without memory.
std::string TableText(const Report& report, bool colour);

}  // namespace vt::tools

#endif  // VT_TOOLS_TABLE_H_
