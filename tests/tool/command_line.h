// A command that asks no node, run inside of the test: from its words to what it writes.
#ifndef VT_TESTS_TOOL_COMMAND_LINE_H_
#define VT_TESTS_TOOL_COMMAND_LINE_H_

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "tools/command_action.h"

namespace vt::testing {

// Ran is how a command ended and what it wrote. What it threw is part of err.
struct Ran {
  int exit_code = -1;
  std::string out;
  std::string err;

  // json parses out, and fails the test when that is no document of a schema that docs/schema/
  // publishes; what has no schema member is a line of decode, a message.
  nlohmann::json json() const;
};

// ReadCommand is a command whose words have been read, to be run any number of times: to make the
// parser takes longer than most runs.
class ReadCommand {
 public:
  explicit ReadCommand(const std::vector<std::string>& words);
  Ran Run(const std::string& input) const;

 private:
  tools::Action action_;
  Ran fault_;  // where the words are wrong
};

Ran RunCommand(const std::vector<std::string>& words, const std::string& input = "");

}  // namespace vt::testing

#endif  // VT_TESTS_TOOL_COMMAND_LINE_H_
