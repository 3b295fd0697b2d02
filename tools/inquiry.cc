#include "tools/inquiry.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <string>
#include <utility>

#include "tools/console.h"
#include "tools/query.h"
#include "tools/sessions.h"
#include "tools/stop_signals.h"

namespace vt::tools {
namespace {

// What is over sooner needs no progress.
constexpr std::chrono::milliseconds kLongWork{500};

std::string ReasonOfNotAsked() {
  return StopSignal() != 0 ? "ended by a signal before its turn"
                           : "the time was up before its turn";
}

std::vector<Resolution> AddressesOf(const Options& options, Clock::time_point start) {
  std::vector<std::string> hosts;
  hosts.reserve(options.targets.size());
  for (const Target& target : options.targets) hosts.push_back(target.host);
  return Resolve(hosts, start + std::min(options.connect_timeout, options.timeout), LookUpIpv4,
                 StopDescriptor());
}

}  // namespace

std::chrono::milliseconds LongestSilence(const Options& options) {
  constexpr std::chrono::seconds travel{2};
  return options.device_timeout + travel;
}

Inquiry::Inquiry(const Options& options)
    : options_(options),
      deadline_(start_ + options.timeout),
      addresses_(AddressesOf(options, start_)),
      sessions_(OpenSessions(options, addresses_)) {}

std::vector<std::size_t> Inquiry::AllNodes() const {
  std::vector<std::size_t> nodes(sessions_.size());
  std::iota(nodes.begin(), nodes.end(), std::size_t{0});
  return nodes;
}

void Inquiry::Ask(const std::vector<std::size_t>& nodes, const Describe& describe, unsigned retries,
                  const Ended& ended) {
  CheckQueries(nodes, describe);
  Tally tally;
  GatherCalls calls;
  calls.query = [&](std::size_t node) { return describe(options_.targets[node]); };
  calls.ended = [&](std::size_t node, unsigned attempts, const voltaris::Results* results) {
    NodeAnswer answer = AnswerOf(node, attempts, results);
    tally.failed += answer.verdict.status == Status::kOk ? 0 : 1;
    tally.rows += answer.answer.rows.size();
    ended(node, std::move(answer), results);
  };
  std::vector<std::size_t> known;
  for (const std::size_t node : nodes) {
    if (sessions_[node]) {
      known.push_back(node);
    } else {
      ++tally.failed;
      ended(node, UnknownNode(node), nullptr);
    }
  }
  if (show_) {
    calls.progress = show_;
  } else if (options_.console.progress) {
    calls.progress = [&](const GatherProgress& progress) { ShowTally(progress, tally); };
  }
  const GatherLimits limits{.connect = options_.connect_timeout,
                            .idle = LongestSilence(options_),
                            .deadline = deadline_,
                            .retries = retries,
                            .fanout = options_.fanout};
  Gather(sessions_, known, limits, calls);
  ShowProgress("");
}

void Inquiry::CheckQueries(const std::vector<std::size_t>& nodes, const Describe& describe) const {
  std::set<std::pair<std::string, std::uint8_t>> checked;
  for (const std::size_t node : nodes) {
    const Target& target = options_.targets[node];
    const auto [at, is_new] =
        checked.emplace(DomainOf(options_, target), PriorityOf(options_, target));
    if (is_new) CheckQuery(describe(target));
  }
}

NodeAnswer Inquiry::UnknownNode(std::size_t node) const {
  NodeAnswer answer;
  answer.target = &options_.targets[node];
  answer.verdict = {Status::kUnreachable, addresses_[node].reason};
  if (StopSignal() != 0) answer.verdict = {Status::kNotAsked, ReasonOfNotAsked()};
  return answer;
}

NodeAnswer Inquiry::AnswerOf(std::size_t node, unsigned attempts,
                             const voltaris::Results* results) const {
  const Target& target = options_.targets[node];
  if (results != nullptr) {
    return ReadNodeAnswer(target, attempts, *results, options_.attributes);
  }
  NodeAnswer answer;
  answer.target = &target;
  answer.attempts = attempts;
  answer.verdict = {Status::kNotAsked, ReasonOfNotAsked()};
  return answer;
}

void Inquiry::ShowTally(const GatherProgress& progress, const Tally& tally) const {
  if (Clock::now() - start_ < kLongWork) return;
  const std::size_t all = progress.waiting + progress.running + progress.done;
  ShowProgress(std::to_string(progress.done) + " of " + std::to_string(all) + " nodes done, " +
               std::to_string(tally.failed) + " failed, " + std::to_string(progress.running) +
               " running; " + std::to_string(tally.rows) + " rows");
}

}  // namespace vt::tools
