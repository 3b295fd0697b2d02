// How the question to one node ended, in one word and as an exit code, and how all of them did.
#ifndef VT_TOOLS_VERDICT_H_
#define VT_TOOLS_VERDICT_H_

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "vtapi.hpp"

#include "tools/exit_code.h"

namespace vt::tools {

enum class Status {
  kOk,              // answered, whole and verified
  kPartial,         // a part of the answer came and was verified
  kUnreachable,     // no connection
  kNoAnswer,        // connected, but nothing came in time
  kUnverified,      // nothing but messages of another key came
  kProtocolError,   // what came cannot be decoded, or the connection broke
  kRefused,         // all devices refused
  kDenied,          // all devices that a set concerns refused it
  kNothingMatched,  // answered and closed, and no device was concerned
  kNotAsked,        // the time was up, or a signal came, before its turn
  kNoMemory,        // there was no memory for the answer
};

struct Verdict {
  Status status = Status::kNotAsked;
  std::string reason;  // for people; empty for kOk
};

// Evidence is what a verdict is made of.
struct Evidence {
  voltaris::Outcome outcome = voltaris::Outcome::kPending;
  int error_number = 0;
  bool lacked_memory = false;
  CollectionCounters counters{};
  std::size_t rows = 0;  // that hold something, or that were accepted
  std::size_t accepted = 0;
  std::size_t refused = 0;
};

// Judge is the verdict on one node.
Verdict Judge(const Evidence& evidence);

// StatusWord is the word of the outputs for programs, such as "no-answer".
std::string_view StatusWord(Status status);

// CodeOf is the exit code of a command that asked this one node.
ExitCode CodeOf(Status status);

// Overall is the exit code of a command from the status of each of its nodes:
// - kExitOk when each answered whole or, verifiably, refused, and one at least answered;
// - kExitPartial when one at least answered, and another did not;
// - else the code of the node that tells most: in this order an answer of another key, one that
//   cannot be decoded, a refusal, an answer without a device, silence, no connection.
ExitCode Overall(std::span<const Status> statuses);

// HintOf says what usually causes a status, or nothing.
std::string_view HintOf(Status status);

}  // namespace vt::tools

#endif  // VT_TOOLS_VERDICT_H_
