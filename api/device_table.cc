#include "api/device_table.h"

#include <sys/auxv.h>

#include <bit>
#include <cstdlib>
#include <cstring>

#include "support/bytes.h"
#include "support/heap.h"

namespace vt::api {

namespace {

using Words = std::array<std::uint64_t, sizeof(corvane_id) / sizeof(std::uint64_t)>;

Words WordsOf(const corvane_id& id) { return support::LoadHost<Words>(id.bytes); }

// Mix multiplies to 128 bits and folds them: each bit of the result depends on all of both.
std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
#ifdef __SIZEOF_INT128__
  __extension__ using Product = unsigned __int128;
  const Product product = static_cast<Product>(a) * b;
  return static_cast<std::uint64_t>(product >> 64) ^ static_cast<std::uint64_t>(product);
#else
  constexpr std::uint64_t kLow = 0xFFFFFFFF;
  const std::uint64_t low_low = (a & kLow) * (b & kLow);
  const std::uint64_t low_high = (a & kLow) * (b >> 32);
  const std::uint64_t high_low = (a >> 32) * (b & kLow);
  const std::uint64_t high_high = (a >> 32) * (b >> 32);
  const std::uint64_t middle = (low_low >> 32) + (low_high & kLow) + high_low;
  const std::uint64_t high = high_high + (low_high >> 32) + (middle >> 32);
  const std::uint64_t low = (middle << 32) | (low_low & kLow);
  return high ^ low;
#endif
}

}  // namespace

void DeviceTable::DrawKey() {
  // The kernel gives each process 16 random bytes, and their address as a number.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  std::memcpy(key_.data(), reinterpret_cast<const void*>(getauxval(AT_RANDOM)), sizeof key_);
}

DeviceTable::Hash DeviceTable::HashOf(const corvane_id& id) const {
  const Words words = WordsOf(id);
  // All factors hold what a peer does not know, or it could make one of them zero.
  const std::uint64_t first = Mix(words[0] ^ key_[0], words[1] ^ key_[1]);
  return Mix(words[2] ^ key_[1] ^ first, words[3] ^ key_[0] ^ std::rotl(first, 32));
}

RowDevice* DeviceTable::Find(const corvane_id& id, Hash hash) const {
  const Words words = WordsOf(id);
  for (std::size_t at = Home(hash); slots_[at].device != nullptr; at = Next(at)) {
    if (WordsOf(slots_[at].id) == words) return slots_[at].device;
  }
  return nullptr;
}

bool DeviceTable::Reserve() {
  constexpr std::size_t kFirstCapacity = 16;
  if (count_ < capacity_ / 4 * 3) return true;
  DeviceTable grown = *this;
  grown.capacity_ = capacity_ != 0 ? 2 * capacity_ : kFirstCapacity;
  grown.count_ = 0;
  const std::size_t size = grown.capacity_ * sizeof(Slot);
  grown.slots_ = static_cast<Slot*>(support::LargeBlock(size));
  if (grown.slots_ == nullptr) return false;
  std::memset(grown.slots_, 0, size);
  for (std::size_t i = 0; i < capacity_; ++i) {
    const Slot& slot = slots_[i];
    if (slot.device != nullptr) grown.Add(slot.id, HashOf(slot.id), slot.device);
  }
  Release();
  *this = grown;
  return true;
}

void DeviceTable::Add(const corvane_id& id, Hash hash, RowDevice* device) {
  std::size_t at = Home(hash);
  while (slots_[at].device != nullptr) at = Next(at);
  slots_[at] = {id, device};
  ++count_;
}

void DeviceTable::Release() { std::free(slots_); }

}  // namespace vt::api
