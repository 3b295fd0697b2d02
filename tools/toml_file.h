// A TOML file that people write: read, and every fault told with its line and column.
#ifndef VT_TOOLS_TOML_FILE_H_
#define VT_TOOLS_TOML_FILE_H_

#include <toml++/toml.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vt::tools {

// Faults are lines such as "config.toml:3:7: there is no setting 'prot'".
using Faults = std::vector<std::string>;

// ThrowFaults throws them as Failures (usage), unless there are none.
void ThrowFaults(const Faults& faults);

// TomlFile is the content of one file and the faults that were found in it. Its member functions
// report what is wrong and go on, so that all faults are told at once.
class TomlFile {
 public:
  // The file is read at once; one that cannot be read is a fault, and its content empty.
  TomlFile(std::string path, Faults& faults);

  // Exists tells whether there is something of that name, readable or not.
  static bool Exists(const std::string& path);

  const toml::table& top() const { return top_; }
  const std::string& path() const { return path_; }

  void Report(const toml::source_position& place, const std::string& message) const;
  void Report(const toml::node& node, const std::string& message) const {
    Report(node.source().begin, message);
  }

  // AllowOnly reports each member that is none of these.
  void AllowOnly(const toml::table& table, const std::vector<std::string_view>& keys) const;

  // Each of the following returns a member that is there and right. One that is missing or, once
  // reported, wrong is nothing.
  std::optional<std::string> Text(const toml::table& table, std::string_view key) const;
  std::optional<std::vector<std::string>> Texts(const toml::table& table,
                                                std::string_view key) const;
  std::optional<std::int64_t> Number(const toml::table& table, std::string_view key,
                                     std::int64_t least, std::int64_t most) const;
  // Path is a Text; PathFrom turns it into a path from the folder of this file. A path that begins
  // with ~/ begins in home, unless that is empty.
  std::string PathFrom(const std::string& path, const std::string& home) const;

 private:
  std::string path_;
  Faults& faults_;
  toml::table top_;
};

}  // namespace vt::tools

#endif  // VT_TOOLS_TOML_FILE_H_
