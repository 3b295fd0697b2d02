// Answers of nodes as tests want them.
#ifndef VT_TESTS_TOOL_NODE_ANSWERS_H_
#define VT_TESTS_TOOL_NODE_ANSWERS_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/answer.h"

namespace vt::tools {

// TargetAt is a node on a port of 127.0.0.1.
inline Target TargetAt(std::uint16_t port) {
  Target target;
  target.name = target.host = "127.0.0.1";
  target.port = port;
  return target;
}

inline const Target kFirstNode = TargetAt(1);
inline const Target kSecondNode = TargetAt(2);

// AnswerOf is a node that answered, with rows and a status.
inline NodeAnswer AnswerOf(const Target& target, std::vector<Row> rows, Status status = Status::kOk,
                           std::string reason = "") {
  NodeAnswer answer;
  answer.target = &target;
  answer.verdict = {status, std::move(reason)};
  answer.answer.rows = std::move(rows);
  return answer;
}

}  // namespace vt::tools

#endif  // VT_TESTS_TOOL_NODE_ANSWERS_H_
