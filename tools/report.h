// What came of a command: the answers of all nodes and how it ended; the outputs are made of it.
#ifndef VT_TOOLS_REPORT_H_
#define VT_TOOLS_REPORT_H_

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tools/answer.h"
#include "tools/options.h"
#include "tools/verdict.h"

namespace vt::tools {

// Report borrows the options, which its nodes point into.
struct Report {
  const Options* options = nullptr;
  std::vector<NodeAnswer> nodes;  // in the order of the targets
  int code = kExitOk;
  int signal = 0;  // that ended it, or 0
};

// RowOfNode is a row and whose it is.
struct RowOfNode {
  const NodeAnswer* node;
  const Row* row;
};

// OrderedRows are the rows of all nodes, sorted as the options say. What has no value comes last.
std::vector<RowOfNode> OrderedRows(const Report& report);

// FixedHeading is the heading of a column that is there whatever was asked for; FixedText is what
// it shows of a node, and of a row if there is one. Both are empty for the column of an attribute.
std::string_view FixedHeading(Column::Kind kind);
std::string FixedText(Column::Kind kind, const NodeAnswer& node, const Row* row);

// ReportSums is how many of everything there are.
struct ReportSums {
  std::map<Status, std::size_t> nodes;
  std::size_t rows = 0;
  std::size_t accepted = 0;
  std::size_t refused = 0;
};

ReportSums SumUp(const Report& report);

// SummaryText is one line about all of it, such as "13 rows of 1 node; 13 accepted, 0 refused".
std::string SummaryText(const Report& report);

}  // namespace vt::tools

#endif  // VT_TOOLS_REPORT_H_
