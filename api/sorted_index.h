// The place of a key among very many, behind a sorted list whose nodes it points at.
#ifndef VT_API_SORTED_INDEX_H
#define VT_API_SORTED_INDEX_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include "api/node_pool.h"

namespace vt::api {

// SortedIndex keeps keys in ascending order in blocks of bounded size, and the first key of each
// block in a directory, so that a search reads few lines of memory and an insertion moves few. All
// memory is a pool's. A zero-filled one is empty. Order has
//   static bool Less(const Key&, const Key&).
template <class Key, class Node, class Order>
class SortedIndex {
 public:
  // Place is where a key is, or where it belongs.
  struct Place {
    Node* found;        // null: not there
    Node* predecessor;  // the node before, or null
    std::uint32_t block;
    std::uint32_t slot;
  };

  [[nodiscard]] bool empty() const { return block_count_ == 0; }

  // IsBeyondAll tells of a key that it is less or greater than all, as keys are that arrive in
  // order.
  [[nodiscard]] bool IsBeyondAll(const Key& key) const {
    return empty() || IsGreatest(key) || Order::Less(key, directory_[0].first);
  }

  [[nodiscard]] Place Find(const Key& key) const {
    if (block_count_ == 0) return {};
    if (IsGreatest(key)) return AtEnd();
    const auto directory = Directory();
    const auto behind = std::upper_bound(
        directory.begin(), directory.end(), key,
        [](const Key& wanted, const Head& head) { return Order::Less(wanted, head.first); });
    const auto number = behind == directory.begin() ? 0 : behind - directory.begin() - 1;
    const auto slots = SlotsOf(*directory[static_cast<std::size_t>(number)].block);
    const auto slot = std::lower_bound(
        slots.begin(), slots.end(), key,
        [](const Slot& entry, const Key& wanted) { return Order::Less(entry.key, wanted); });
    Place place = {nullptr, nullptr, static_cast<std::uint32_t>(number),
                   static_cast<std::uint32_t>(slot - slots.begin())};
    if (slot != slots.end() && !Order::Less(key, slot->key)) place.found = slot->node;
    place.predecessor = Before(place);
    return place;
  }

  // AtEnd is the place of a key that is greater than all.
  [[nodiscard]] Place AtEnd() const {
    if (block_count_ == 0) return {};
    const Block& last = *directory_[block_count_ - 1].block;
    return {nullptr, last.slots[last.count - 1].node, block_count_ - 1, last.count};
  }

  // Insert puts a node at the place that Find or AtEnd gave for its key; false without memory.
  [[nodiscard]] bool Insert(NodePool& pool, Place place, const Key& key, Node* node) {
    if (block_count_ == 0) {
      if (!AddBlock(pool, 0)) return false;
    } else if (directory_[place.block].block->count == kBlockSize && !MakeRoom(pool, place)) {
      return false;
    }
    Block& block = *directory_[place.block].block;
    Slot* const at = block.slots + place.slot;
    std::memmove(at + 1, at, (block.count - place.slot) * sizeof(Slot));
    *at = {key, node};
    ++block.count;
    if (place.slot == 0) directory_[place.block].first = key;
    return true;
  }

 private:
  static constexpr std::uint32_t kBlockSize = 64;

  struct Slot {
    Key key;
    Node* node;
  };
  struct Block {
    std::uint32_t count;
    Slot slots[kBlockSize];
  };
  struct Head {
    Key first;
    Block* block;
  };

  [[nodiscard]] bool IsGreatest(const Key& key) const {
    const Block& last = *directory_[block_count_ - 1].block;
    return Order::Less(last.slots[last.count - 1].key, key);
  }

  [[nodiscard]] std::span<const Head> Directory() const { return {directory_, block_count_}; }
  [[nodiscard]] static std::span<const Slot> SlotsOf(const Block& block) {
    return {block.slots, block.count};
  }

  [[nodiscard]] Node* Before(const Place& place) const {
    if (place.slot != 0) return directory_[place.block].block->slots[place.slot - 1].node;
    if (place.block == 0) return nullptr;
    const Block& before = *directory_[place.block - 1].block;
    return before.slots[before.count - 1].node;
  }

  // AddBlock puts an empty block into the directory.
  [[nodiscard]] bool AddBlock(NodePool& pool, std::uint32_t number) {
    auto* block = pool.New<Block>();
    if (block == nullptr || !ReserveHead(pool)) return false;
    block->count = 0;
    Head* const at = directory_ + number;
    std::memmove(at + 1, at, (block_count_ - number) * sizeof(Head));
    *at = {Key{}, block};
    ++block_count_;
    return true;
  }

  [[nodiscard]] bool ReserveHead(NodePool& pool) {
    constexpr std::uint32_t kFirstCapacity = 8;
    if (block_count_ < capacity_) return true;
    const std::uint32_t capacity = capacity_ != 0 ? 2 * capacity_ : kFirstCapacity;
    auto* grown = pool.New<Head>(capacity);
    if (grown == nullptr) return false;
    if (block_count_ != 0) std::memcpy(grown, directory_, block_count_ * sizeof(Head));
    directory_ = grown;
    capacity_ = capacity;
    return true;
  }

  // MakeRoom splits the full block of a place. At either end of all keys the new block begins
  // empty: keys that arrive in order fill their blocks.
  [[nodiscard]] bool MakeRoom(NodePool& pool, Place& place) {
    if (place.block == block_count_ - 1 && place.slot == kBlockSize) {
      place = {nullptr, nullptr, place.block + 1, 0};
      return AddBlock(pool, place.block);
    }
    if (place.block == 0 && place.slot == 0) return AddBlock(pool, 0);
    if (!AddBlock(pool, place.block + 1)) return false;
    Block& lower = *directory_[place.block].block;
    Block& upper = *directory_[place.block + 1].block;
    constexpr std::uint32_t kHalf = kBlockSize / 2;
    std::memcpy(upper.slots, lower.slots + kHalf, kHalf * sizeof(Slot));
    lower.count = upper.count = kHalf;
    directory_[place.block + 1].first = upper.slots[0].key;
    if (place.slot > kHalf) {
      ++place.block;
      place.slot -= kHalf;
    }
    return true;
  }

  Head* directory_ = nullptr;
  std::uint32_t block_count_ = 0;
  std::uint32_t capacity_ = 0;
};

}  // namespace vt::api

#endif  // VT_API_SORTED_INDEX_H
