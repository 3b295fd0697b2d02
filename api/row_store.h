// The rows of a ResultSet: their memory, and the way to a row among very many.
#ifndef VT_API_ROW_STORE_H
#define VT_API_ROW_STORE_H

#include <cstdint>
#include <cstring>

#include "vtapi/result.h"

#include "api/device_table.h"
#include "api/node_pool.h"
#include "api/sorted_index.h"

namespace vt::api {

// LinkBehind puts a new node behind another one of its queue, or at the head without one.
template <class Node>
void LinkBehind(queue& nodes, void* predecessor, Node* added) {
  auto& link = predecessor != nullptr ? static_cast<queue_element*>(predecessor)->next : nodes.head;
  auto* element = static_cast<queue_element*>(static_cast<void*>(added));
  element->next = link;
  link = element;
  if (element->next == nullptr) nodes.tail = element;
  ++nodes.depth;
}

struct IdentityOrder {
  static bool Less(const corvane_id& a, const corvane_id& b);
};
struct NumberOrder {
  static bool Less(std::uint32_t a, std::uint32_t b) { return a < b; }
};

// RowDevice is a device with what leads to its rows.
struct RowDevice {
  device_node node;
  entity_node* recent;                                        // the row that was asked for last
  SortedIndex<std::uint32_t, entity_node, NumberOrder> rows;  // empty while the rows are few
};

// RowNode is a row with room behind it for its first values: a walk finds them side by side.
struct RowNode {
  entity_node node;
  std::uint32_t used;  // of that room, in values
  std::uint32_t room;

  // NextValue is room for a value, or null.
  [[nodiscard]] attribute_node* NextValue() {
    return used < room ? reinterpret_cast<attribute_node*>(this + 1) + used++ : nullptr;
  }
};

// RowStore makes all nodes below ResultSet::rows and links them in their order. A ResultSet gets
// one when it is first folded into, in its reserved tail.
class RowStore {
 public:
  // Of gives the store of a result, or null without memory. Release returns it with all nodes, and
  // with those that an application has put among the devices.
  [[nodiscard]] static RowStore* Of(ResultSet& result);
  static void Release(ResultSet& result);

  // OwnerOf gives the store of a result if it made the row, else null.
  [[nodiscard]] static RowStore* OwnerOf(const ResultSet& result, const entity_node& row);

  // Device and Row find or make a node; null without memory.
  [[nodiscard]] RowDevice* Device(ResultSet& result, aggregated_value* key) {
    // The elements of a message are often one device's.
    const corvane_id& id = key->device.id;
    if (recent_ == nullptr || std::memcmp(&recent_id_, &id, sizeof id) != 0) {
      recent_ = FindDevice(result, key);
      recent_id_ = id;
    }
    return recent_;
  }
  [[nodiscard]] entity_node* Row(ResultSet& result, RowDevice& device, std::uint32_t entity_index) {
    // Rows arrive in order again and again: the one asked for is the last, or the one behind it.
    entity_node* hint = device.recent;
    if (hint != nullptr && hint->entity_index != entity_index) hint = hint->next;
    if (hint == nullptr || hint->entity_index != entity_index) {
      return FindRow(result, device, entity_index);
    }
    return device.recent = hint;
  }

  // NewValue returns a node for a value of one of the rows, or null without memory.
  [[nodiscard]] attribute_node* NewValue(entity_node& row) {
    auto* beside = reinterpret_cast<RowNode&>(row).NextValue();
    return beside != nullptr ? beside : pool_.New<attribute_node>();
  }

 private:
  [[nodiscard]] entity_node* FindRow(ResultSet& result, RowDevice& device,
                                     std::uint32_t entity_index);
  [[nodiscard]] RowNode* NewRow(const ResultSet& result, std::uint32_t entity_index);
  [[nodiscard]] RowDevice* FindDevice(ResultSet& result, aggregated_value* key);
  // Once for a device with many rows: no part of who looks for a row.
  [[nodiscard, gnu::cold]] bool IndexRows(RowDevice& device);

  NodePool pool_;
  DeviceTable known_;
  SortedIndex<corvane_id, RowDevice, IdentityOrder> order_;
  RowDevice* recent_ = nullptr;  // the device that was asked for last, and
  corvane_id recent_id_ = {};
};

}  // namespace vt::api

#endif  // VT_API_ROW_STORE_H
