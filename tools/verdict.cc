#include "tools/verdict.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "tools/counted.h"

namespace vt::tools {
namespace {

using voltaris::Outcome;

struct StatusRow {
  Status status;  // cppcheck-suppress unusedStructMember
  std::string_view word;
  ExitCode code;
  int weight;  // of several failures the one with most is told
  std::string_view hint;
};

constexpr std::array kStatuses = {
    StatusRow{Status::kOk, "ok", kExitOk, 0, ""},
    StatusRow{Status::kPartial, "partial", kExitPartial, 0, ""},
    StatusRow{Status::kUnreachable, "unreachable", kExitNoConnection, 2,
              "is the node running, and are host and port right?"},
    StatusRow{Status::kNoAnswer, "no-answer", kExitNoAnswer, 3,
              "devices may take --device-timeout seconds, all of it --timeout"},
    StatusRow{Status::kUnverified, "unverified", kExitUnverified, 7,
              "the key differs (--key-file), or somebody forges answers"},
    StatusRow{Status::kProtocolError, "protocol-error", kExitProtocol, 6, ""},
    StatusRow{Status::kRefused, "refused", kExitRefused, 5,
              "no device matches, or the --priority is below their importance; devices without a "
              "name or a role match no --name or --role, and only consumers answer a set or a sum "
              "without --category"},
    StatusRow{Status::kDenied, "denied", kExitRefused, 5, ""},
    StatusRow{Status::kNothingMatched, "nothing-matched", kExitNothingMatched, 4,
              "no device is in the --domain, the --priority is below their importance, they have "
              "no name or role to match, they are of another --category, or the node has another "
              "key and therefore ignores the query"},
    StatusRow{Status::kNotAsked, "not-asked", kExitNoAnswer, 1, ""},
    StatusRow{Status::kNoMemory, "no-memory", kExitInternal, 8, ""},
};

constexpr bool IsComplete() {
  for (std::size_t i = 0; i < kStatuses.size(); ++i) {
    if (kStatuses[i].status != static_cast<Status>(i)) return false;
  }
  return true;
}
static_assert(IsComplete(), "the rows are in the order of the enumeration");

const StatusRow& RowOf(Status status) { return kStatuses[static_cast<std::size_t>(status)]; }

bool IsWithoutConnection(Outcome outcome) {
  return outcome == Outcome::kRefused || outcome == Outcome::kUnreachable ||
         outcome == Outcome::kConnectTimeout || outcome == Outcome::kSendError;
}

std::string WordsOf(const Evidence& evidence) {
  std::string words(voltaris::text_of(evidence.outcome));
  const bool needs_number = evidence.outcome == Outcome::kUnreachable ||
                            evidence.outcome == Outcome::kSendError ||
                            evidence.outcome == Outcome::kReadError;
  if (needs_number && evidence.error_number != 0) {
    words.append(": ").append(std::strerror(evidence.error_number));
  }
  return words;
}

// DamageOf tells what came and could not be used.
std::string DamageOf(const CollectionCounters& counters) {
  std::string damage;
  if (counters.forged > 0) damage = Counted(counters.forged, "message") + " of another key";
  if (counters.malformed > 0) {
    if (!damage.empty()) damage += ", ";
    damage += Counted(counters.malformed, "message") + " that cannot be decoded";
  }
  return damage;
}

Verdict JudgeSome(const Evidence& evidence) {
  if (evidence.lacked_memory) return {Status::kPartial, "out of memory for a part of the answer"};
  if (evidence.outcome != Outcome::kComplete) return {Status::kPartial, WordsOf(evidence)};
  const std::string damage = DamageOf(evidence.counters);
  if (!damage.empty()) return {Status::kPartial, damage};
  return {Status::kOk, ""};
}

Verdict JudgeNothing(const Evidence& evidence) {
  const CollectionCounters& counters = evidence.counters;
  if (evidence.lacked_memory) return {Status::kNoMemory, "out of memory"};
  if (IsWithoutConnection(evidence.outcome)) return {Status::kUnreachable, WordsOf(evidence)};
  if (evidence.outcome == Outcome::kOverSize) return {Status::kProtocolError, WordsOf(evidence)};
  if (counters.malformed > 0) return {Status::kProtocolError, DamageOf(counters)};
  if (counters.forged > 0) return {Status::kUnverified, DamageOf(counters)};
  switch (evidence.outcome) {
    case Outcome::kReadError:
      return {Status::kProtocolError, WordsOf(evidence)};
    case Outcome::kIdle:
    case Outcome::kDeadline:
      return {Status::kNoAnswer, WordsOf(evidence)};
    case Outcome::kComplete:
      break;
    default:
      return {Status::kNotAsked, WordsOf(evidence)};
  }
  if (evidence.refused > 0) {
    return {Status::kRefused, evidence.refused == 1
                                  ? "the one device refused"
                                  : "all " + std::to_string(evidence.refused) + " devices refused"};
  }
  return {Status::kNothingMatched, "no device was concerned"};
}

}  // namespace

Verdict Judge(const Evidence& evidence) {
  const bool is_something = evidence.rows > 0 || evidence.accepted > 0;
  return is_something ? JudgeSome(evidence) : JudgeNothing(evidence);
}

std::string_view StatusWord(Status status) { return RowOf(status).word; }

ExitCode CodeOf(Status status) { return RowOf(status).code; }

ExitCode Overall(std::span<const Status> statuses) {
  const auto has = [statuses](auto... wanted) {
    return std::ranges::any_of(statuses, [=](Status one) { return ((one == wanted) || ...); });
  };
  if (!has(Status::kOk, Status::kPartial)) {
    Status told = Status::kNotAsked;
    for (const Status one : statuses) {
      if (RowOf(one).weight > RowOf(told).weight) told = one;
    }
    return CodeOf(told);
  }
  const bool all_well = std::ranges::all_of(
      statuses, [](Status one) { return one == Status::kOk || one == Status::kRefused; });
  return all_well ? kExitOk : kExitPartial;
}

std::string_view HintOf(Status status) { return RowOf(status).hint; }

}  // namespace vt::tools
