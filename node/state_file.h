// What sets have changed, kept in a file across restarts.
//
// The file is text. Its first line is "voltaris-node state 1", the number being the version of the
// format. Each entity of which something was set has a line: its identity, the number of the
// entity, and one NAME=VALUE for each thing that was set (level, importance, name, role, keywords,
// recurrence), with tabs in between. The last line is "end", the number of those lines and the
// checksum of everything before it, with blanks in between. It detects damage, not forgery.
//
// The file is replaced as a whole: a new one is written beside it, brought to the disk and put in
// its place, so that at any time it is the old one or the new one. A file that is anything else is
// never read in part: it is renamed, and what was set is lost but for what its lines still tell a
// human reader.
#ifndef VT_NODE_STATE_FILE_H_
#define VT_NODE_STATE_FILE_H_

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "node/fleet.h"

namespace vt::node {

// StateRecord is what was set of one entity.
struct StateRecord {
  DeviceIdText id{};
  std::uint32_t entity = 0;
  Changes changes;

  friend bool operator==(const StateRecord&, const StateRecord&) = default;
};

// StateError says why the text of a state file cannot be believed.
class StateError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// WriteState is the text of a state file, ReadState reads it or throws StateError.
std::string WriteState(const std::vector<StateRecord>& records);
std::vector<StateRecord> ReadState(std::string_view text);

// StateFile is one file by its path. Only one program may have it at a time.
class StateFile {
 public:
  explicit StateFile(std::string path) : path_(std::move(path)) {}

  // Loaded is what the file holds, or nothing and why it was set aside.
  struct Loaded {
    std::vector<StateRecord> records;
    std::optional<std::string> set_aside;
  };

  // Load reads the file; a file that is not there holds nothing. A damaged one is renamed to
  // PATH.damaged-N, N being the first number that is free. It throws std::system_error when the
  // file can be neither read nor set aside, or when its folder is none that can be written.
  Loaded Load() const;

  // Save replaces the file. When it returns, the records are on the disk. When it throws, which is
  // std::system_error, the file is what it was, or, if only the folder could not be brought to the
  // disk, the new one.
  void Save(const std::vector<StateRecord>& records) const;

  const std::string& path() const { return path_; }

 private:
  std::string Folder() const;
  std::string SetAside() const;

  std::string path_;
};

}  // namespace vt::node

#endif  // VT_NODE_STATE_FILE_H_
