// A report written to standard output in the format of the options, and what is to be said about it
// on standard error.
#ifndef VT_TOOLS_PRESENTATION_H_
#define VT_TOOLS_PRESENTATION_H_

#include "tools/report.h"

namespace vt::tools {

// Presentation writes NDJSON as nodes end, and everything else at the end. It throws NoReader and
// Failure like WriteOut.
class Presentation {
 public:
  // It borrows the options.
  explicit Presentation(const Options& options);

  // Begin is called when it is sure that there will be a report, and Add for each node of it as
  // that ends.
  void Begin() const;
  void Add(const NodeAnswer& node) const;
  // End settles the exit code of a report, writes what was not written yet, and tells of what
  // failed. It returns the exit code.
  int End(Report& report) const;

 private:
  bool IsByLines() const { return options_.output.format == Format::kNdjson; }

  const Options& options_;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_PRESENTATION_H_
