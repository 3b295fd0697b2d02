// The calls that decide what is on the disk after a crash: fsync and rename, in the order in which
// the program makes them, and failing where a test says so. disk_calls.cc defines both in the test
// executable, where the node's own objects are linked too.
#ifndef VT_TESTS_NODE_DISK_CALLS_H_
#define VT_TESTS_NODE_DISK_CALLS_H_

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vt::testing {

// DiskCalls watches the calls of all threads while it lives; there is one at a time.
class DiskCalls {
 public:
  DiskCalls();
  ~DiskCalls();
  DiskCalls(const DiskCalls&) = delete;
  DiskCalls& operator=(const DiskCalls&) = delete;

  // calls are "fsync NAME" and "rename NAME NAME", the names without their folder.
  const std::vector<std::string>& calls() const { return calls_; }

  // fail_at is the call, counted from 0, that fails with EIO instead of being made.
  std::optional<std::size_t> fail_at;
  // before sees each call before it is made.
  std::function<void(const std::string&)> before;

  // Strike notes a call and tells whether it has to fail. For the replaced functions.
  bool Strike(std::string call);

 private:
  std::vector<std::string> calls_;
};

}  // namespace vt::testing

#endif  // VT_TESTS_NODE_DISK_CALLS_H_
