#include "tools/read_command.h"

#include <utility>

#include "tools/inquiry.h"
#include "tools/presentation.h"
#include "tools/query.h"
#include "tools/report.h"

namespace vt::tools {

int RunRead(const Options& options) {
  Inquiry inquiry(options);
  const Presentation presentation(options);
  Report report;
  report.options = &options;
  report.nodes.resize(options.targets.size());
  bool has_begun = false;
  const auto describe = [&options](const Target& target) { return DescribeQuery(options, target); };
  inquiry.Ask(inquiry.AllNodes(), describe, options.retries,
              [&](std::size_t node, NodeAnswer answer, const voltaris::Results* /*results*/) {
                // Not before: queries that cannot be built leave standard output empty.
                if (!has_begun) presentation.Begin();
                has_begun = true;
                presentation.Add(answer);
                report.nodes[node] = std::move(answer);
              });
  return presentation.End(report);
}

}  // namespace vt::tools
