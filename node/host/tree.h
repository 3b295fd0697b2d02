// The small text files of a system, below a root directory of one's choice. Reading never hangs and
// is bounded, whatever stands in the place of a file: a directory, a pipe, a link in a circle.
#ifndef VT_NODE_HOST_TREE_H_
#define VT_NODE_HOST_TREE_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "node/host/power_source.h"

namespace vt::node {

// FileText is what a file holds, without blanks and line ends behind it, or the trouble with it.
struct FileText {
  std::string text;
  Trouble trouble = Trouble::kNone;
  std::string detail;
};

// FileNumber is the one whole number that a file holds, or the trouble with it.
struct FileNumber {
  std::int64_t value = 0;
  Trouble trouble = Trouble::kNone;
  std::string detail;

  bool ok() const { return trouble == Trouble::kNone; }
};

class Tree {
 public:
  // Open opens a file as open(2) does and sets errno when it returns -1. Tests deny files with it.
  using Open = std::function<int(const char* path, int flags)>;

  explicit Tree(std::string root, Open open = {});

  // Path is where a file of the tree is; all calls take paths below the root ("sys/class/hwmon").
  std::string Path(const std::string& path) const;

  FileText Read(const std::string& path) const;
  FileNumber ReadNumber(const std::string& path) const;
  // ReadWord is the text of a file, empty when it cannot be read.
  std::string ReadWord(const std::string& path) const;

  // Exists tells whether something is there, readable or not.
  bool Exists(const std::string& path) const;
  // List is what a directory holds, in an order in which numbers behind a common beginning count
  // up, and 1024 names at most. It is empty when there is no such directory.
  std::vector<std::string> List(const std::string& path) const;
  // LinkName is the last part of what a symbolic link points to; empty when it is none.
  std::string LinkName(const std::string& path) const;

 private:
  std::string root_;
  Open open_;
};

// ParseWhole reads a whole number that fills the text; nothing when it does not or is too great.
std::optional<std::int64_t> ParseWhole(const std::string& text);

}  // namespace vt::node

#endif  // VT_NODE_HOST_TREE_H_
