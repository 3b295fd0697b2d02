// A made-up system in a folder of its own, and a time of the test's own.
#ifndef VT_TESTS_NODE_HOST_HOST_TREE_H_
#define VT_TESTS_NODE_HOST_HOST_TREE_H_

#include <chrono>
#include <set>
#include <string>

#include "node/host/power_source.h"
#include "node/host/tree.h"
#include "tests/tools/programs.h"

namespace vt::testing {

// kChip is the folder of a chip with sensors.
inline const std::string kChip = "sys/class/hwmon/hwmon0/";

// HostTree is the root of a made-up system. Paths are those below it.
class HostTree {
 public:
  HostTree();

  std::string root() const { return folder_.path("root"); }

  // Put writes a file, with a line end as the kernel does, and makes the folders above it.
  void Put(const std::string& path, const std::string& text) const;
  // MakeFolder makes a folder and those above it.
  void MakeFolder(const std::string& path) const;
  void Link(const std::string& path, const std::string& target) const;
  void MakePipe(const std::string& path) const;
  void Remove(const std::string& path) const;

  // Deny makes opening a file fail for trees that come from tree(), as for a user without the
  // right; root, whom tests may run as, may read everything. Allow takes it back.
  void Deny(const std::string& path) { denied_.insert(root() + "/" + path); }
  void Allow(const std::string& path) { denied_.erase(root() + "/" + path); }

  // open is how denied files are opened. It must not be called when the HostTree is gone.
  node::Tree::Open open() const;
  node::Tree tree() const { return node::Tree(root(), open()); }

  // PutZone makes a zone of energy counters.
  void PutZone(const std::string& folder, const std::string& name, const std::string& energy,
               const std::string& range = "262143328850") const;
  // PutEnergy changes one.
  void PutEnergy(const std::string& folder, const std::string& energy) const;

 private:
  TempFolder folder_;
  std::set<std::string> denied_;
};

// HandClock stands still until it is moved.
class HandClock {
 public:
  void Advance(std::chrono::milliseconds time) { now_ += time; }
  // clock must not be called when the HandClock is gone.
  node::MonotonicClock clock() const {
    return [this] { return now_; };
  }

 private:
  std::chrono::steady_clock::time_point now_{std::chrono::hours(1)};
};

}  // namespace vt::testing

#endif  // VT_TESTS_NODE_HOST_HOST_TREE_H_
