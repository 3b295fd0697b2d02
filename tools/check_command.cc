#include "tools/check_command.h"

#include <exception>
#include <utility>
#include <vector>

#include "tools/check_judgement.h"
#include "tools/console.h"
#include "tools/inquiry.h"
#include "tools/query.h"
#include "tools/standard_output.h"
#include "tools/stop_signals.h"

namespace vt::tools {
namespace {

std::vector<NodeAnswer> AskAll(const Options& options) {
  std::vector<NodeAnswer> nodes(options.targets.size());
  Inquiry inquiry(options);
  const auto describe = [&options](const Target& target) { return DescribeQuery(options, target); };
  inquiry.Ask(inquiry.AllNodes(), describe, options.retries,
              [&nodes](std::size_t node, NodeAnswer answer, const voltaris::Results* /*results*/) {
                nodes[node] = std::move(answer);
              });
  return nodes;
}

Judgement Check(const Options& options) {
  const Clock::time_point start = Clock::now();
  try {
    const std::vector<NodeAnswer> nodes = AskAll(options);
    if (StopSignal() != 0) {
      return {CheckState::kUnknown, UnknownText("ended by signal " + std::to_string(StopSignal()))};
    }
    const auto duration =
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
    return JudgeFacts(FactsOf(nodes), options.check, duration);
  } catch (const std::exception& error) {
    return {CheckState::kUnknown, UnknownText(error.what())};
  }
}

// What could not be told is not known either: a monitoring system knows no other codes.
int Tell(const Judgement& judgement) {
  try {
    WriteOut(judgement.text);
    return static_cast<int>(judgement.state);
  } catch (const std::exception& error) {
    Complain(error.what());
    return static_cast<int>(CheckState::kUnknown);
  }
}

}  // namespace

int RunCheck(const Options& options) { return Tell(Check(options)); }

int TellCheckFailure(const CheckFailure& failure) {
  return Tell({CheckState::kUnknown, UnknownText(failure.what())});
}

}  // namespace vt::tools
