// A program that the operator has named, run when a query sets this host to a level.
#ifndef VT_NODE_HOST_ACTION_H_
#define VT_NODE_HOST_ACTION_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vt::node {

struct Action {
  std::uint8_t level = 0;
  std::vector<std::string> command;  // the program by its absolute path, and its arguments
  std::chrono::seconds timeout{3};
};

// RunAction runs the program and waits for its end. It has an empty standard input, writes to the
// standard error of this process, inherits no other descriptors, and finds in its environment PATH
// of the system's folders and VOLTARIS_LEVEL, the level, and nothing else. Beyond the time-out it
// is killed with all processes of its group. RunAction returns why the action failed, or nothing: a
// program fails that cannot be started, is killed, or ends with another code than 0.
std::optional<std::string> RunAction(const Action& action);

}  // namespace vt::node

#endif  // VT_NODE_HOST_ACTION_H_
