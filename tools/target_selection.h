// Which nodes a run asks: those that --node names, of those that --targets lists.
#ifndef VT_TOOLS_TARGET_SELECTION_H_
#define VT_TOOLS_TARGET_SELECTION_H_

#include <string>
#include <vector>

#include "tools/configuration.h"
#include "tools/target.h"

namespace vt::tools {

// SelectTargets gives the nodes in the order in which they are named, each once. They are all nodes
// of the targets file where --node is not given, or by less than --targets is: of flags, the
// environment, files and presets, what stands first counts more. An item of --node
// is
// - @GROUP, or @LABEL=VALUE: those nodes of the targets file;
// - the name of a node of that file, which is then asked as the file tells;
// - any other name, range or address, with a port behind a colon or without.
// What the targets file tells of a node gives way to flags and to nothing else; a port behind a
// colon of --node gives way to nothing. What is wrong throws Failure (usage). home is what paths
// with ~/ in the targets file begin in.
std::vector<Target> SelectTargets(const Configuration& configuration, const std::string& home);

}  // namespace vt::tools

#endif  // VT_TOOLS_TARGET_SELECTION_H_
