// The file that lists nodes for --targets: groups of them, what is told of each, and labels.
//
//   [defaults]                                  # of all nodes of this file
//   domain = "lab"
//
//   [groups.racks]                              # names and ranges
//   nodes = ["pdu[01-40].lab", "192.0.2.[1-8]:7441"]
//   key-file = "racks.key"                      # from the folder of this file
//   labels = { room = "b12" }
//
//   [[target]]                                  # one node
//   name = "ups-1"
//   host = "192.0.2.77"
//   groups = ["power"]
#ifndef VT_TOOLS_TARGET_FILE_H_
#define VT_TOOLS_TARGET_FILE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/target.h"

namespace vt::tools {

// ListedTarget is a node of the file, with the groups that it belongs to.
struct ListedTarget {
  Target target;
  std::optional<std::uint16_t> port;  // which the file tells, target.port without
  std::vector<std::string> groups;
};

// ReadTargetFile reads the file. home is what paths with ~/ begin in. All that is wrong is thrown
// together, as one Failure (usage) with a line for each fault. A node that several groups list
// under one name belongs to all of them and has the labels of all; otherwise it is as its own table
// says, then the groups in the order of their names, then the defaults. That two [[target]] tables
// bear one name is a fault.
std::vector<ListedTarget> ReadTargetFile(const std::string& path, const std::string& home);

}  // namespace vt::tools

#endif  // VT_TOOLS_TARGET_FILE_H_
