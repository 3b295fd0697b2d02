// What a set query asks to change, checked as a whole before any device is touched.
#ifndef VT_NODE_CHANGES_H_
#define VT_NODE_CHANGES_H_

#include <cstdint>
#include <optional>
#include <string>

#include "node/fleet.h"
#include "node/received_query.h"

namespace vt::node {

struct Changes {
  std::optional<std::string> name;
  std::optional<std::string> role;
  std::optional<std::string> keywords;
  std::optional<std::uint8_t> level;
  std::optional<std::uint8_t> importance;

  void ApplyTo(Device& device) const;
};

// ReadChanges returns nothing when the query asks for something that no device can do. Elements
// that only ask to be told a value, as a query may mix in, change nothing: those without a value,
// and those of attributes that are measured.
std::optional<Changes> ReadChanges(const ReceivedQuery& query);

}  // namespace vt::node

#endif  // VT_NODE_CHANGES_H_
