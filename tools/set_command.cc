#include "tools/set_command.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/confirmation.h"
#include "tools/console.h"
#include "tools/counted.h"
#include "tools/exit_code.h"
#include "tools/inquiry.h"
#include "tools/presentation.h"
#include "tools/query.h"
#include "tools/report.h"
#include "tools/stop_signals.h"

namespace vt::tools {
namespace {

// So many devices are named in the question; the rest are counted.
constexpr std::size_t kNamedDevices = 10;

using Entities = std::set<EntityName>;

std::size_t DevicesIn(const Entities& entities) {
  std::set<std::string> devices;
  for (const EntityName& name : entities) devices.insert(name.device);
  return devices.size();
}

std::string CountText(const Entities& entities) {
  return Counted(DevicesIn(entities), "device", "devices") + " (" +
         Counted(entities.size(), "entity", "entities") + ")";
}

// Concerned are the entities that did what a collect says: those that accepted it or told
// something.
Entities ConcernedBy(const Answer& answer) {
  Entities entities(answer.accepted.begin(), answer.accepted.end());
  for (const Row& row : answer.rows) entities.insert({row.device, row.entity});
  return entities;
}

// NamedBy are those of some entities that an acknowledgement is about: one, or, where it names no
// entity, all of the device.
Entities NamedBy(const EntityName& name, const Entities& entities) {
  if (name.entity != 0) return entities.contains(name) ? Entities{name} : Entities{};
  const auto first = entities.lower_bound(name);
  const auto last = std::find_if(first, entities.end(), [&name](const EntityName& other) {
    return other.device != name.device;
  });
  return {first, last};
}

std::string AssignmentText(const Options& options) {
  std::string text;
  for (const Assignment& assignment : options.assignments) {
    if (!text.empty()) text += ", ";
    text.append(assignment.attribute->name).append("=").append(assignment.value);
  }
  return text;
}

// A node that told a part of its devices alone is not set: the others would be set unseen.
Verdict VerdictOnUnknown(const NodeAnswer& node) {
  Verdict verdict = node.verdict;
  if (verdict.status != Status::kPartial) return verdict;
  verdict.status = node.counters.malformed > 0 ? Status::kProtocolError
                   : node.counters.forged > 0  ? Status::kUnverified
                                               : Status::kNoAnswer;
  verdict.reason = "nothing was set, for not all of its devices are known: " + verdict.reason;
  return verdict;
}

// Compare holds the answer to a set against the entities that are concerned: what others refuse is
// no refusal, and who says nothing is missing.
Verdict Compare(const NodeAnswer& node, const Entities& concerned, const Entities& told) {
  std::vector<EntityName> silent;
  std::ranges::set_difference(concerned, told, std::back_inserter(silent));
  const std::size_t refused = node.answer.refused.size();
  const bool is_whole = node.verdict.status == Status::kOk ||
                        node.verdict.status == Status::kRefused ||
                        node.verdict.status == Status::kNothingMatched;
  if (!is_whole) return node.verdict;
  if (refused == 0 && silent.empty()) return {Status::kOk, ""};
  std::string reason = "of " + CountText(concerned) + " ";
  if (refused > 0) reason += std::to_string(refused) + " refused";
  if (!silent.empty()) {
    reason.append(refused > 0 ? ", " : "").append(std::to_string(silent.size()));
    reason += " did not answer";
  }
  if (!node.answer.accepted.empty()) return {Status::kPartial, reason};
  return {silent.empty() ? Status::kDenied : Status::kNoAnswer, reason};
}

class SetCommand {
 public:
  explicit SetCommand(const Options& options)
      : options_(options), inquiry_(options), presentation_(options) {
    report_.options = &options;
    report_.nodes.resize(options.targets.size());
    concerned_.resize(options.targets.size());
  }

  int Run() {
    CheckQueries();
    FindConcerned();
    if (StopSignal() != 0) ForgetConcerned();
    if (nodes_.empty()) return Finish();
    CheckNumber();
    if (options_.dry_run) {
      Notice("would set " + WhatAndHowMany() + "; nothing was set");
      return Finish();
    }
    if (!options_.yes) AskWhether();
    Set();
    return Finish();
  }

 private:
  // What cannot be set is told before anybody is asked anything.
  void CheckQueries() const {
    for (const Target& target : options_.targets) CheckQuery(DescribeQuery(options_, target));
  }

  void FindConcerned() {
    std::vector<std::int32_t> numbers;
    for (const Attribute* attribute : options_.attributes) numbers.push_back(attribute->number);
    inquiry_.Ask(
        inquiry_.AllNodes(),
        [this, &numbers](const Target& target) {
          return DescribeCollect(options_, target, numbers);
        },
        options_.retries,
        [this](std::size_t node, NodeAnswer answer, const voltaris::Results* /*results*/) {
          TakeConcerned(node, std::move(answer));
        });
    std::ranges::sort(nodes_);
  }

  void TakeConcerned(std::size_t node, NodeAnswer answer) {
    if (answer.verdict.status == Status::kOk) {
      concerned_[node] = ConcernedBy(answer.answer);
      nodes_.push_back(node);
      // Devices that the qualifiers do not mean refuse, too.
      answer.answer.refused.clear();
    } else {
      answer.verdict = VerdictOnUnknown(answer);
      answer.answer.rows.clear();
      answer.answer.accepted.clear();
    }
    report_.nodes[node] = std::move(answer);
  }

  // After a signal nothing is set any more, and what was collected is no answer to a set.
  void ForgetConcerned() {
    for (const std::size_t node : nodes_) {
      report_.nodes[node].answer = {};
      report_.nodes[node].verdict = {Status::kNotAsked, "ended by a signal; nothing was set"};
    }
    nodes_.clear();
  }

  Entities AllConcerned() const {
    Entities all;
    for (const Entities& entities : concerned_) all.insert(entities.begin(), entities.end());
    return all;
  }

  std::string WhatAndHowMany() const {
    return AssignmentText(options_) + " on " + CountText(AllConcerned()) + " of " +
           Counted(nodes_.size(), "node", "nodes");
  }

  void CheckNumber() const {
    const std::size_t devices = DevicesIn(AllConcerned());
    if (!options_.max_devices || devices <= *options_.max_devices) return;
    throw Failure(kExitUsage, Counted(devices, "device is", "devices are") +
                                  " concerned, and --max-devices is " +
                                  std::to_string(*options_.max_devices) + "; nothing was set");
  }

  void AskWhether() {
    const Clock::time_point before = Clock::now();
    NameDevices();
    const bool confirmed = Confirm("Set " + WhatAndHowMany() + "?");
    inquiry_.Extend(Clock::now() - before);
    if (confirmed) return;
    if (StopSignal() != 0)
      throw Failure(static_cast<ExitCode>(kExitSignal + StopSignal()), "nothing was set");
    throw Failure(kExitUsage, "nothing was set");
  }

  void NameDevices() const {
    std::size_t named = 0;
    const Entities all = AllConcerned();
    for (const std::size_t node : nodes_) {
      for (const Row& row : report_.nodes[node].answer.rows) {
        if (++named > kNamedDevices) continue;
        Notice(NodeName(options_.targets[node]) + ": " + row.device + " entity " +
               std::to_string(row.entity) + NameIn(row));
      }
    }
    if (all.size() > std::min(named, kNamedDevices)) {
      Notice("and " + std::to_string(all.size() - std::min(named, kNamedDevices)) + " more");
    }
  }

  std::string NameIn(const Row& row) const {
    for (std::size_t i = 0; i < options_.attributes.size(); ++i) {
      if (options_.attributes[i]->number != voltaris::name.number) continue;
      if (const auto* name = std::get_if<std::string>(&row.values[i])) return " (" + *name + ")";
    }
    return {};
  }

  void Set() {
    TellChange("setting " + WhatAndHowMany());
    inquiry_.Ask(
        nodes_, [this](const Target& target) { return DescribeQuery(options_, target); }, 0,
        [this](std::size_t node, NodeAnswer answer, const voltaris::Results* /*results*/) {
          TakeSet(node, std::move(answer));
        });
  }

  void TakeSet(std::size_t node, NodeAnswer answer) {
    const Entities& concerned = concerned_[node];
    std::erase_if(answer.answer.refused, [&concerned](const EntityName& name) {
      return NamedBy(name, concerned).empty();
    });
    Entities told;
    for (const EntityName& name : ConcernedBy(answer.answer)) told.merge(NamedBy(name, concerned));
    for (const EntityName& name : answer.answer.refused) told.merge(NamedBy(name, concerned));
    answer.verdict = Compare(answer, concerned, told);
    TellOutcome(answer);
    report_.nodes[node] = std::move(answer);
  }

  void TellOutcome(const NodeAnswer& answer) const {
    const Target& target = *answer.target;
    for (const EntityName& name : answer.answer.refused) {
      const bool is_whole = name.entity == 0;
      TellChange(NodeName(target) + ": " + name.device +
                 (is_whole ? "" : " entity " + std::to_string(name.entity)) + " refused");
    }
    const Status status = answer.verdict.status;
    if (status == Status::kUnreachable || status == Status::kNotAsked) {
      TellChange(NodeName(target) + ": nothing was set: " + answer.verdict.reason);
      return;
    }
    TellChange(NodeName(target) + ": set " + AssignmentText(options_) + " in domain " +
               DomainOf(options_, target) + " with priority " +
               std::to_string(PriorityOf(options_, target)) + ": " +
               Counted(answer.answer.accepted.size(), "entity", "entities") + " accepted, " +
               std::to_string(answer.answer.refused.size()) + " refused");
  }

  int Finish() {
    presentation_.Begin();
    for (const NodeAnswer& node : report_.nodes) presentation_.Add(node);
    return presentation_.End(report_);
  }

  const Options& options_;
  Inquiry inquiry_;
  Presentation presentation_;
  Report report_;
  std::vector<std::size_t> nodes_;   // all of whose devices are known
  std::vector<Entities> concerned_;  // of each node
};

}  // namespace

int RunSet(const Options& options) {
  if (!options.yes && !options.dry_run && !CanAsk()) {
    throw Failure(kExitUsage,
                  "a set needs --yes where nobody can be asked, that is where standard input or "
                  "standard error is no terminal; --dry-run shows what would be set");
  }
  return SetCommand(options).Run();
}

}  // namespace vt::tools
