// The fleet: the node itself and the devices that it answers for, as the configuration describes
// them and as sets have changed them since. It knows nothing of messages.
//
// What the devices of a group have in common is kept once, in a Model; what a device has of its own
// takes a few dozen bytes. Names are written when they are needed.
#ifndef VT_NODE_FLEET_H_
#define VT_NODE_FLEET_H_

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "node/pattern.h"
#include "node/profile.h"

namespace vt::node {

inline constexpr std::size_t kLevels = 11;  // 0 (off) to 10 (full)
inline constexpr std::size_t kIdLength = 32;
// With texts of this length the longest element still leaves room for the domain in its message.
inline constexpr std::size_t kLongestText = 255;

using DeviceIdText = std::array<char, kIdLength>;

// NodeDescription is what the node tells of itself in sums.
struct NodeDescription {
  std::string id;  // 32 characters
  std::string domain;
  std::string name;
  std::string role;
  std::string keywords;
  sockaddr_in address{};  // not in the file: known once the node listens
};

struct Recurrence {
  std::string text;
  std::uint8_t byte1 = 0;
  std::uint8_t byte2 = 0;
  std::int32_t flag = 0;

  friend bool operator==(const Recurrence&, const Recurrence&) = default;
};

struct NeighborDescription {
  std::string id;  // 32 characters
  std::string label;
  std::string data;  // its socket address as it travels, or nothing
  std::int32_t flag = 1;
};

// RecordedPower is what a device has told of its power, in the units of its model, as numbers that
// came from the network: they are told again as they are.
struct RecordedPower {
  std::optional<std::uint16_t> usage;
  std::optional<std::array<std::uint16_t, kLevels>> usage_vector;
  std::optional<std::array<std::int32_t, kLevels>> delta_vector;
};

// AttributeBit is the bit of an element type in a set of attributes; 0 for what is no attribute.
std::uint32_t AttributeBit(std::uint32_t type);

// Model is what the devices of a group have in common.
struct Model {
  // The attributes that the devices have, by AttributeBit. Those without a value, such as a
  // recurrence that is neither configured nor set, they do not tell, either.
  std::uint32_t attributes = ~std::uint32_t{0};
  std::string domain;
  Pattern name;
  std::string role;
  std::string keywords;                             // separated by commas
  std::array<std::int64_t, kLevels> milliwatts{};   // at each level, before profile and noise
  std::optional<std::int64_t> measured_milliwatts;  // usage until the level is set, or of the host
  std::optional<RecordedPower> recorded;            // instead of all that is computed
  bool is_host =
      false;  // its usage is what was measured, and levels are what its actions make of them
  std::int8_t units = 0;         // decimal exponent of the watt; all usages fit
  std::int32_t caliber = 0;      // enum cv_corvane_usage_caliber
  std::int32_t category = 0;     // enum cv_corvane_usage_category
  std::int32_t entity_type = 0;  // enum cv_entity_type
  Profile profile;
  Noise noise;
  std::optional<sockaddr_in> address;  // without one, that of the node
  std::optional<Recurrence> recurrence;
  std::optional<std::string> error_text;
  std::optional<std::string> text_21;
  std::optional<std::uint32_t> nanny_vector;
  std::vector<NeighborDescription> neighbors;
  std::optional<std::uint16_t> neighbor_count;  // unless it is that of neighbors
};

// HasPower tells whether the entities of a model tell a usage and its units. A usage without units
// is no power that could be added to others.
bool HasPower(const Model& model);

// Changes is what sets ask for, and what they have changed of an entity.
struct Changes {
  std::optional<std::uint8_t> level;
  std::optional<std::uint8_t> importance;
  std::optional<std::string> name;
  std::optional<std::string> role;
  std::optional<std::string> keywords;
  std::optional<Recurrence> recurrence;

  bool empty() const { return *this == Changes(); }

  friend bool operator==(const Changes&, const Changes&) = default;
};

// Power is what an entity uses at an instant, in the units of its model.
struct Power {
  std::uint16_t usage = 0;
  std::array<std::uint16_t, kLevels> usage_vector{};
  std::array<std::int32_t, kLevels> delta_vector{};  // the change that each level would bring
};

class Fleet {
 public:
  // Entity is a part of a device that answers by itself.
  struct Entity {
    std::uint32_t model = 0;
    std::uint32_t device = 0;
    std::uint32_t number = 1;  // within the device; 0 would stand for the device as a whole
    std::uint8_t level = kLevels - 1;
    std::uint8_t importance = 1;
    bool level_was_set = false;
    bool importance_was_set = false;
  };

  // Range is entities that stand one behind the other: first and what comes behind the last.
  struct Range {
    std::uint32_t first = 0;
    std::uint32_t end = 0;
  };

  NodeDescription node;

  // A fleet is made of models, then entities of devices, then Finish. number is what patterns of
  // the model write. AddEntity returns its index until Finish.
  std::uint32_t AddModel(Model model);
  void AddEntity(const DeviceIdText& id, std::uint32_t number, const Entity& entity);
  // Finish puts the entities of a device together. It returns the number of an entity that has the
  // device and the number of an earlier one, counted in the order of adding, or nothing.
  std::optional<std::uint32_t> Finish();

  std::size_t device_count() const { return devices_.size(); }
  std::size_t entity_count() const { return entities_.size(); }
  const std::vector<Model>& models() const { return models_; }

  // InDomain is the entities of a domain, in ranges. Entities of one device stand together.
  std::span<const Range> InDomain(const std::string& domain) const;

  const Entity& EntityAt(std::uint32_t index) const { return entities_[index]; }
  const DeviceIdText& IdOf(std::uint32_t index) const {
    return devices_[entities_[index].device].id;
  }
  const Model& ModelOf(std::uint32_t index) const { return models_[entities_[index].model]; }
  // AttributesOf is what an entity has: what its model has, and what was set.
  std::uint32_t AttributesOf(std::uint32_t index) const;
  const sockaddr_in& AddressOf(std::uint32_t index) const;
  const std::string& RoleOf(std::uint32_t index) const;
  const std::string& KeywordsOf(std::uint32_t index) const;
  const Recurrence* RecurrenceOf(std::uint32_t index) const;  // or null
  void WriteNameOf(std::uint32_t index, std::string& out) const;

  // PowerOf takes the factor of the profile, for many entities share it.
  Power PowerOf(std::uint32_t index, Instant now, std::int64_t profile_factor) const;

  // Measure gives the entities of a model a usage that was measured, in the units that fit it best;
  // LoseMeasure takes it away, so that they tell none.
  void Measure(std::uint32_t model, std::int64_t milliwatts, std::int32_t category);
  void LoseMeasure(std::uint32_t model);

  // Find returns the index of an entity.
  std::optional<std::uint32_t> Find(const DeviceIdText& id, std::uint32_t number) const;

  // ChangesOf is what was set of an entity, against what is configured. Apply sets more; Restore
  // makes what was set be exactly that again.
  Changes ChangesOf(std::uint32_t index) const;
  void Apply(std::uint32_t index, const Changes& changes);
  void Restore(std::uint32_t index, const Changes& changes);

 private:
  struct Device {
    DeviceIdText id{};
    std::uint32_t number = 0;
    std::uint32_t first = 0;  // entity
    std::uint32_t count = 0;
  };

  // What few entities have: something that was set besides level and importance.
  struct Texts {
    std::optional<std::string> name;
    std::optional<std::string> role;
    std::optional<std::string> keywords;
    std::optional<Recurrence> recurrence;
  };

  // What the configuration says of an entity, to return to when what was set goes.
  struct Configured {
    std::uint8_t level = 0;
    std::uint8_t importance = 0;
  };

  const Texts* TextsOf(std::uint32_t index) const;
  void IndexDevices();
  void IndexDomains();

  std::vector<Model> models_;
  std::vector<Device> devices_;
  std::vector<Entity> entities_;
  std::vector<Configured> configured_;
  std::vector<std::uint32_t> by_id_;  // devices in the order of their identities
  std::map<std::string, std::vector<Range>, std::less<>> domains_;
  std::unordered_map<std::uint32_t, Texts> texts_;
};

// FactorsAt are the factors of the profiles of all models at an instant.
class FactorsAt {
 public:
  FactorsAt(const Fleet& fleet, Instant now);

  Power PowerOf(std::uint32_t entity) const {
    return fleet_.PowerOf(entity, now_, factors_[fleet_.EntityAt(entity).model]);
  }

 private:
  const Fleet& fleet_;
  Instant now_;
  std::vector<std::int64_t> factors_;
};

}  // namespace vt::node

#endif  // VT_NODE_FLEET_H_
