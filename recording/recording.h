// A recording: what the devices of a domain told of themselves at one time, each value as it came.
// This is the content; recording_text.h has its form in a file.
#ifndef VT_RECORDING_RECORDING_H_
#define VT_RECORDING_RECORDING_H_

#include <netinet/in.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "vtapi.hpp"

namespace vt::recording {

// Scaled is a number of units of power, or one for each level, and the units: watts = raw x
// 10^units. They are missing where the device did not tell them.
template <class Raw>
struct Scaled {
  Raw raw{};
  std::optional<std::int8_t> units;

  friend bool operator==(const Scaled&, const Scaled&) = default;
};

using Usage = Scaled<std::uint16_t>;
using UsageVector = Scaled<std::array<std::uint16_t, voltaris::kLevelCount>>;
using DeltaVector = Scaled<std::array<std::int32_t, voltaris::kLevelCount>>;

// AddressBytes is a socket address as it travels.
using AddressBytes = std::array<char, sizeof(sockaddr_in)>;

struct Recurrence {
  std::string text;
  std::uint8_t byte1 = 0;
  std::uint8_t byte2 = 0;
  std::int32_t flag = 0;

  friend bool operator==(const Recurrence&, const Recurrence&) = default;
};

struct Neighbor {
  voltaris::DeviceId device;
  std::string label;
  std::string data;  // mostly a socket address, or nothing
  std::int32_t flag = 0;

  friend bool operator==(const Neighbor&, const Neighbor&) = default;
  friend bool operator<(const Neighbor& a, const Neighbor& b) {
    return std::tie(a.device, a.label, a.data, a.flag) <
           std::tie(b.device, b.label, b.data, b.flag);
  }
};

// Entity is one row of an answer. What it does not hold, it did not tell.
struct Entity {
  voltaris::EntityId id;
  std::optional<std::string> role;
  std::optional<std::string> name;
  std::optional<std::vector<std::string>> keywords;
  std::optional<std::string> error_text;
  std::optional<std::int8_t> units;
  std::optional<Usage> usage;
  std::optional<std::uint8_t> level;
  std::optional<std::uint8_t> importance;
  std::optional<std::int32_t> entity_type;  // enum cv_entity_type, or a number without a name
  std::optional<AddressBytes> address;
  std::vector<Neighbor> neighbors;  // sorted: they arrive in any order
  std::optional<std::uint16_t> neighbor_count;
  std::optional<std::uint32_t> nanny_vector;
  std::optional<DeltaVector> delta_vector;
  std::optional<std::int32_t> caliber;  // enum cv_corvane_usage_caliber, likewise
  std::optional<UsageVector> usage_vector;
  std::optional<Recurrence> recurrence;
  std::optional<std::string> text_21;
  std::optional<std::int32_t> category;  // enum cv_corvane_usage_category, likewise
  std::uint32_t line = 0;                // where it begins in the file that it was read from
};

struct Recording {
  voltaris::DeviceId node;  // who answered
  std::string domain;       // what was asked
  std::chrono::sys_seconds time{};
  std::vector<std::int32_t> attributes;  // that were asked for, enum vt_attribute, ascending
  std::vector<Entity> entities;
};

}  // namespace vt::recording

#endif  // VT_RECORDING_RECORDING_H_
