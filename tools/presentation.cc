#include "tools/presentation.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/colour.h"
#include "tools/console.h"
#include "tools/csv.h"
#include "tools/json.h"
#include "tools/prometheus.h"
#include "tools/standard_output.h"
#include "tools/stop_signals.h"
#include "tools/table.h"

namespace vt::tools {
namespace {

// So many nodes are told of one by one on standard error; the outputs tell of all.
constexpr std::size_t kToldNodes = 10;

bool WantsColour(When color) {
  const char* terminal = std::getenv("TERM");
  const bool has_colours = terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
  return WantsColour(color, has_colours && isatty(STDOUT_FILENO) == 1);
}

std::string TextOf(const Report& report) {
  switch (report.options->output.format) {
    case Format::kTable:
      return TableText(report, WantsColour(report.options->output.color));
    case Format::kJson:
      return JsonText(report);
    case Format::kNdjson:
      return NdjsonEnd(report);
    case Format::kCsv:
      return CsvText(report);
    case Format::kProm:
      return PrometheusText(report);
  }
  return {};
}

void Settle(Report& report) {
  std::vector<Status> statuses;
  for (const NodeAnswer& node : report.nodes) statuses.push_back(node.verdict.status);
  report.signal = StopSignal();
  report.code = report.signal != 0 ? kExitSignal + report.signal : int{Overall(statuses)};
}

std::string LineOn(const NodeAnswer& node) {
  std::string line = NodeName(*node.target);
  line.append(": ").append(node.verdict.reason);
  if (node.attempts > 1) line += " (" + std::to_string(node.attempts) + " attempts)";
  return line;
}

void TellFailures(const Report& report) {
  // A refusal beside answers is what a query for some devices of some nodes is expected to bring.
  const bool refusals_count = report.code != kExitOk;
  std::size_t failed = 0;
  const NodeAnswer* decisive = nullptr;
  for (const NodeAnswer& node : report.nodes) {
    const Status status = node.verdict.status;
    if (status == Status::kOk || (status == Status::kRefused && !refusals_count)) continue;
    // Of several states with one code, the hint is that of one which has any.
    if (int{CodeOf(status)} == report.code && !HintOf(status).empty()) decisive = &node;
    if (++failed <= kToldNodes) Complain(LineOn(node));
  }
  if (failed > kToldNodes) Complain("and " + std::to_string(failed - kToldNodes) + " more nodes");
  if (decisive == nullptr) return;
  Complain("hint: " + std::string(HintOf(decisive->verdict.status)));
}

}  // namespace

Presentation::Presentation(const Options& options) : options_(options) {}

void Presentation::Begin() const {
  if (IsByLines()) WriteOut(NdjsonStart(options_));
}

void Presentation::Add(const NodeAnswer& node) const {
  if (IsByLines()) WriteOut(NdjsonNode(options_, node));
}

int Presentation::End(Report& report) const {
  Settle(report);
  WriteOut(TextOf(report));
  TellFailures(report);
  if (options_.output.format == Format::kTable) Notice(SummaryText(report));
  if (report.signal != 0) {
    Complain("ended by signal " + std::to_string(report.signal) +
             "; what had come until then was told");
  }
  return report.code;
}

}  // namespace vt::tools
