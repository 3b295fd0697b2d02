// What devices tell of themselves: one row for each attribute, and the choice between elements of
// their own and one combined element, whichever is shorter.
#ifndef VT_NODE_TELLER_H_
#define VT_NODE_TELLER_H_

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "node/fleet.h"
#include "node/received_query.h"
#include "node/reply_packer.h"

namespace vt::node {

// Teller adds what one query asks for to its answer, device by device.
class Teller {
 public:
  Teller(const ReceivedQuery& query, const Fleet& fleet, Instant now);

  // KnowsNothing tells whether the query asks for attributes, all of which no device can have.
  bool KnowsNothing() const { return !asked_.empty() && types_.empty(); }

  // Tell accepts for entities of one device and tells what they have of what is asked for.
  void Tell(const DeviceHeader& device, std::span<const std::uint32_t> entities,
            ReplyPacker& replies);

  // TellCombined tells an entity in combined elements: usage, and each vector that is asked for.
  void TellCombined(const DeviceHeader& device, std::uint32_t entity, ReplyPacker& replies);

 private:
  // Asked is a type to tell.
  struct Asked {
    std::uint32_t type;
    std::uint32_t bit;  // AttributeBit
  };

  // Entry is one value, in values_. order is the place of its type among those to tell.
  struct Entry {
    std::uint32_t order;
    std::uint32_t type;
    std::uint32_t entity;  // its number
    std::uint32_t start;
    std::uint32_t size;
  };

  void AddType(std::uint32_t type) { types_.push_back({type, AttributeBit(type)}); }
  void Gather(std::uint32_t entity);
  void GatherCombined(std::uint32_t entity, std::uint32_t type);
  bool HasCombined(std::uint32_t entity, std::uint32_t bits) const;
  bool IsCombined(std::uint32_t type) const;
  void PreferShorter(std::span<const std::uint32_t> entities);
  void Flush(const DeviceHeader& device, ReplyPacker& replies);

  const Fleet& fleet_;
  FactorsAt factors_;
  std::size_t largest_value_;        // that fits into a message
  std::vector<Asked> types_;         // each once
  std::set<std::uint32_t> asked_;    // without the units that come along
  std::uint32_t combined_type_ = 0;  // the one combined type that would do, or 0
  std::uint32_t combined_bits_ = 0;  // the attributes that it tells
  // Of the device at hand; kept for their memory.
  std::string name_;
  Bytes values_;
  std::vector<std::size_t> ends_;
  std::vector<Entry> entries_;
};

}  // namespace vt::node

#endif  // VT_NODE_TELLER_H_
