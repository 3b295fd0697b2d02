// One node to ask.
#ifndef VT_TOOLS_TARGET_H_
#define VT_TOOLS_TARGET_H_

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vt::tools {

// Target is a node with what is said of it alone; what is not said is as for all nodes.
struct Target {
  std::string name;  // as the user wrote it
  std::string host;
  std::uint16_t port = 7440;
  std::optional<std::string> domain;
  std::optional<std::uint8_t> priority;
  std::optional<std::string> key_file;
  std::optional<std::string> id_file;
  std::vector<std::pair<std::string, std::string>> labels;
};

// NodeName is how a node is called: HOST:PORT, with the host as the user wrote it.
inline std::string NodeName(const Target& target) {
  const std::string port = ":" + std::to_string(target.port);
  return target.name.ends_with(port) ? target.name : target.name + port;
}

}  // namespace vt::tools

#endif  // VT_TOOLS_TARGET_H_
