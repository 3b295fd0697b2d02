// A report as JSON: one document, or an object a line while nodes answer. docs/schema/ describes
// both.
#ifndef VT_TOOLS_JSON_H_
#define VT_TOOLS_JSON_H_

#include <string>

#include "tools/report.h"

namespace vt::tools {

// JsonText is the document. Non-ASCII and control characters are escaped; bytes that are no UTF-8
// are replaced.
std::string JsonText(const Report& report);

// The lines of NDJSON: the first, those of one node, rows and then the node itself, and the last.
std::string NdjsonStart(const Options& options);
std::string NdjsonNode(const Options& options, const NodeAnswer& node);
std::string NdjsonEnd(const Report& report);

}  // namespace vt::tools

#endif  // VT_TOOLS_JSON_H_
