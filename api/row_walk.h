// What both ways to read rows have in common: the order of rows, and the values of a row.
#ifndef VT_API_ROW_WALK_H
#define VT_API_ROW_WALK_H

#include <netinet/in.h>

#include <cstdint>
#include <cstring>

#include "vtapi/result.h"

namespace vt::api {

[[nodiscard]] inline device_node* FirstDevice(const ResultSet& result) {
  return static_cast<device_node*>(static_cast<void*>(result.rows.head));
}

[[nodiscard]] inline entity_node* FirstEntity(const device_node& device) {
  return static_cast<entity_node*>(static_cast<void*>(device.entities.head));
}

// GoToNextRow moves from a row to the next, and to the first from none. Both are null or neither
// is.
template <class Device, class Entity>
void GoToNextRow(const ResultSet& result, Device*& device, Entity*& row) {
  if (row == nullptr) {
    device = FirstDevice(result);
    if (device != nullptr) row = FirstEntity(*device);
  } else {
    row = row->next;
  }
  while (row == nullptr && device != nullptr) {
    device = device->next;
    if (device != nullptr) row = FirstEntity(*device);
  }
}

// SenderOf gives the address that a reply names for its device, if there is a whole one.
[[nodiscard]] inline sockaddr_in* SenderOf(const device_header& device) {
  return device.data_len >= sizeof(sockaddr_in) ? static_cast<sockaddr_in*>(device.data) : nullptr;
}

// TextLength counts the terminator.
[[nodiscard]] inline std::uint32_t TextLength(const char* text) {
  return static_cast<std::uint32_t>(std::strlen(text)) + 1;
}

[[nodiscard]] inline attribute_node* FirstValue(const queue& attributes) {
  return static_cast<attribute_node*>(static_cast<void*>(attributes.head));
}

// FindValue gives the first value of an attribute that is accepted, or null.
template <class Accept>
[[nodiscard]] attribute_node* FindValue(const queue& attributes, std::int32_t attribute,
                                        Accept accept) {
  auto* node = FirstValue(attributes);
  while (node != nullptr && (node->type != attribute || !accept(*node))) node = node->next;
  return node;
}

}  // namespace vt::api

#endif  // VT_API_ROW_WALK_H
