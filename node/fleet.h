// The fleet: the node itself and the devices it answers for, as the configuration describes them
// and as sets have changed them since. It knows nothing of messages.
#ifndef VT_NODE_FLEET_H_
#define VT_NODE_FLEET_H_

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vt::node {

inline constexpr std::size_t kLevels = 11;  // 0 (off) to 10 (full)
inline constexpr std::size_t kIdLength = 32;
// With texts of this length the longest element still leaves room for the domain in its message.
inline constexpr std::size_t kLongestText = 255;

// FleetError says where and why a configuration is wrong.
class FleetError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Device {
  std::string id;  // 32 characters
  std::uint32_t entity = 1;
  std::string domain;
  std::string name;
  std::string role;
  std::string keywords;  // separated by commas
  std::uint8_t importance = 1;
  std::uint8_t level = kLevels - 1;
  std::int8_t units = 0;  // of usage and usage_vector: the decimal exponent of the watt
  std::uint16_t usage = 0;
  std::array<std::uint16_t, kLevels> usage_vector{};
  std::int32_t caliber = 0;            // enum cv_corvane_usage_caliber
  std::int32_t category = 0;           // enum cv_corvane_usage_category
  std::optional<sockaddr_in> address;  // without one, that of the node

  // SetLevel changes the level and with it the usage.
  void SetLevel(std::uint8_t new_level);

  // DeltaVector is the change of usage that each level would bring.
  std::array<std::int32_t, kLevels> DeltaVector() const;
};

// NodeDescription is what the node tells of itself in sums.
struct NodeDescription {
  std::string id;  // 32 characters
  std::string domain;
  std::string name;
  std::string role;
  std::string keywords;
  sockaddr_in address{};  // not in the file: known once the node listens
};

struct Fleet {
  NodeDescription node;
  std::vector<Device> devices;
};

// LoadFleet reads a TOML file. It throws FleetError.
Fleet LoadFleet(const std::string& path);

}  // namespace vt::node

#endif  // VT_NODE_FLEET_H_
