#include "api/row_store.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "api/result_tail.h"
#include "support/heap.h"

namespace vt::api {

namespace {

// Up to so many rows of a device are searched one by one.
constexpr std::int32_t kFewRows = 32;

template <class Node>
Node* NodeAt(queue_element* element) {
  return reinterpret_cast<Node*>(element);
}

using RowIndex = decltype(RowDevice::rows);

// PlaceOf finds where a row is or belongs; few rows are walked.
RowIndex::Place PlaceOf(const RowDevice& device, std::uint32_t entity_index) {
  auto* last = NodeAt<entity_node>(device.node.entities.tail);
  const bool at_end = last != nullptr && last->entity_index < entity_index;
  if (!device.rows.empty()) return at_end ? device.rows.AtEnd() : device.rows.Find(entity_index);
  if (at_end) return {nullptr, last, 0, 0};
  entity_node* before = nullptr;
  auto* at = NodeAt<entity_node>(device.node.entities.head);
  for (; at != nullptr && at->entity_index < entity_index; at = at->next) before = at;
  const bool is_there = at != nullptr && at->entity_index == entity_index;
  return {is_there ? at : nullptr, before, 0, 0};
}

template <class Node>
Node* TakeNode(queue& nodes) {
  return static_cast<Node*>(dequeue(&nodes));
}

// ReleaseBlocks takes all nodes out of the queues and releases those that are not pooled.
template <class IsPooled>
void ReleaseBlocks(queue& rows, IsPooled is_pooled) {
  const auto release = [is_pooled](void* node) {
    if (!is_pooled(node)) std::free(node);
  };
  while (auto* device = TakeNode<device_node>(rows)) {
    while (auto* entity = TakeNode<entity_node>(device->entities)) {
      while (auto* attribute = TakeNode<attribute_node>(entity->attributes)) release(attribute);
      release(entity);
    }
    release(device);
  }
}

}  // namespace

bool IdentityOrder::Less(const corvane_id& a, const corvane_id& b) {
  return std::memcmp(&a, &b, sizeof a) < 0;
}

RowStore* RowStore::Of(ResultSet& result) {
  RowStore*& store = TailOf(result).rows;
  if (store != nullptr) return store;
  store = support::AllocateZeroed<RowStore>().release();
  if (store != nullptr) store->known_.DrawKey();
  return store;
}

void RowStore::Release(ResultSet& result) {
  RowStore* store = TailOf(result).rows;
  const std::size_t made = store != nullptr ? store->known_.count() : 0;
  if (static_cast<std::size_t>(result.rows.depth) != made) {
    ReleaseBlocks(result.rows, [store](const void* node) {
      return store != nullptr && store->pool_.Holds(node);
    });
  }
  if (store == nullptr) return;
  store->known_.Release();
  store->pool_.ReleaseAll();
  std::free(store);
}

RowStore* RowStore::OwnerOf(const ResultSet& result, const entity_node& row) {
  RowStore* store = TailOf(result).rows;
  return store != nullptr && store->pool_.Holds(&row) ? store : nullptr;
}

RowDevice* RowStore::FindDevice(ResultSet& result, aggregated_value* key) {
  const corvane_id& id = key->device.id;
  const DeviceTable::Hash hash = known_.HashOf(id);
  // What lies beyond the first or the last, or is the first itself, cannot be known.
  if (!order_.IsBeyondAll(id)) {
    if (RowDevice* known = known_.Find(id, hash)) return known;
  }
  const auto place = order_.Find(id);
  auto* made = pool_.New<RowDevice>();
  if (made == nullptr || !known_.Reserve() || !order_.Insert(pool_, place, id, made)) {
    return nullptr;
  }
  known_.Add(id, hash, made);
  *made = {};
  made->node.key = key;
  LinkBehind(result.rows, place.predecessor != nullptr ? &place.predecessor->node : nullptr,
             &made->node);
  return made;
}

bool RowStore::IndexRows(RowDevice& device) {
  RowIndex rows{};
  for (auto* row = NodeAt<entity_node>(device.node.entities.head); row != nullptr;
       row = row->next) {
    if (!rows.Insert(pool_, rows.AtEnd(), row->entity_index, row)) return false;
  }
  device.rows = rows;
  return true;
}

RowNode* RowStore::NewRow(const ResultSet& result, std::uint32_t entity_index) {
  constexpr std::uint32_t kMostBeside = 8;
  const std::uint32_t wanted = result.query != nullptr ? result.query->attribute_count : 0;
  const std::uint32_t room = std::min(wanted, kMostBeside);
  auto* made = static_cast<RowNode*>(pool_.New(sizeof(RowNode) + room * sizeof(attribute_node)));
  if (made == nullptr) return nullptr;
  std::memset(made, 0, sizeof *made);  // what lies between the fields too
  made->room = room;
  made->node.entity_index = entity_index;
  return made;
}

entity_node* RowStore::FindRow(ResultSet& result, RowDevice& device, std::uint32_t entity_index) {
  queue& rows = device.node.entities;
  if (rows.depth >= kFewRows && device.rows.empty() && !IndexRows(device)) return nullptr;
  const auto place = PlaceOf(device, entity_index);
  if (place.found != nullptr) return device.recent = place.found;
  RowNode* made = NewRow(result, entity_index);
  if (made == nullptr) return nullptr;
  entity_node* row = &made->node;
  if (!device.rows.empty() && !device.rows.Insert(pool_, place, entity_index, row)) return nullptr;
  LinkBehind(rows, place.predecessor, row);
  ++result.row_count;
  return device.recent = row;
}

}  // namespace vt::api
