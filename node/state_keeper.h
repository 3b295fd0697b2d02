// Keeps what sets have changed across restarts: brings it from the state file into the fleet, and
// what is set from then on into the file.
#ifndef VT_NODE_STATE_KEEPER_H_
#define VT_NODE_STATE_KEEPER_H_

#include <optional>
#include <string>
#include <vector>

#include "node/fleet.h"
#include "node/state_file.h"

namespace vt::node {

class StateKeeper {
 public:
  // Without a path nothing is kept.
  explicit StateKeeper(const std::optional<std::string>& path);

  // Restore brings what the file holds into a fleet. It returns what an operator should know of
  // it: that the file was damaged, that it tells of devices that the fleet does not have. What was
  // set of those is kept for when they are back. It throws std::system_error as StateFile::Load.
  std::vector<std::string> Restore(Fleet& fleet);

  // Keep writes what is set in the fleet. It returns when that is on the disk, or throws
  // std::system_error.
  void Keep(const Fleet& fleet) const;

 private:
  std::optional<StateFile> file_;
  std::vector<StateRecord> absent_;  // of entities that the fleet does not have
};

}  // namespace vt::node

#endif  // VT_NODE_STATE_KEEPER_H_
