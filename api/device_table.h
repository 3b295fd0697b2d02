// The devices of a result by their identity.
#ifndef VT_API_DEVICE_TABLE_H
#define VT_API_DEVICE_TABLE_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "vtapi/structures.h"

namespace vt::api {

struct RowDevice;

// DeviceTable is a hash table with open addressing. Identities stand in its slots, so that a device
// among very many is found with one look into memory. A zero-filled one is empty once it has its
// key: the hash is keyed with numbers that differ from process to process, so that a peer cannot
// choose identities that collide.
class DeviceTable {
 public:
  // DrawKey comes first.
  void DrawKey();

  using Hash = std::uint64_t;
  [[nodiscard]] Hash HashOf(const corvane_id& id) const;
  // Find looks into a table that is not empty; null if the device is not there.
  [[nodiscard]] RowDevice* Find(const corvane_id& id, Hash hash) const;

  // Reserve makes room for one more, or returns false without memory. Add takes a device that is
  // not there yet, for which room is reserved.
  [[nodiscard]] bool Reserve();
  void Add(const corvane_id& id, Hash hash, RowDevice* device);

  [[nodiscard]] std::size_t count() const { return count_; }

  // Release returns the memory of the table.
  void Release();

 private:
  struct Slot {
    corvane_id id;
    RowDevice* device;  // null: free
  };

  [[nodiscard]] std::size_t Home(Hash hash) const {
    return static_cast<std::size_t>(hash) & (capacity_ - 1);
  }
  [[nodiscard]] std::size_t Next(std::size_t slot) const { return (slot + 1) & (capacity_ - 1); }

  std::array<std::uint64_t, 2> key_ = {};
  Slot* slots_ = nullptr;
  std::size_t capacity_ = 0;  // a power of 2, at most three quarters in use
  std::size_t count_ = 0;
};

}  // namespace vt::api

#endif  // VT_API_DEVICE_TABLE_H
