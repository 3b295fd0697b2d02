// The sum of what devices use, as the node tells it.
#ifndef VT_NODE_TOTAL_H_
#define VT_NODE_TOTAL_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "node/fleet.h"
#include "node/reply_packer.h"

namespace vt::node {

// Total sums up in milliwatts.
class Total {
 public:
  void Add(const Model& model, const Fleet::Entity& entity, const Power& power);

  std::size_t count() const { return count_; }

  // Header tells of the node, with the highest level and importance among the devices, and with the
  // caliber that all of them share. It refers to the texts of node.
  UsageHeader Header(const NodeDescription& node) const;

  // Usage and Delta are in the units of the header.
  std::uint16_t Usage() const;
  std::array<std::int32_t, kLevels> Delta() const;

 private:
  std::int8_t Units() const;

  std::size_t count_ = 0;
  std::int64_t usage_ = 0;
  std::array<std::int64_t, kLevels> delta_{};
  std::int32_t caliber_ = 0;
  std::uint8_t level_ = 0;
  std::uint8_t importance_ = 0;
};

}  // namespace vt::node

#endif  // VT_NODE_TOTAL_H_
