// The fleet as somebody looks at it: what it uses as a whole, by category and by domain, and pages
// of its entities, searched and sorted. It is cheap enough to be looked at each second: what all
// entities use is added up by Measure alone, and only the entities of a page are looked at closely.
#ifndef VT_NODE_FLEET_SURVEY_H_
#define VT_NODE_FLEET_SURVEY_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "node/fleet.h"

namespace vt::node {

// Categories are told apart because only consumers can be added up with each other.
enum class PowerCategory { kConsumer, kProducer, kMeter };

inline constexpr std::array<std::string_view, 3> kPowerCategoryNames = {"consumer", "producer",
                                                                        "meter"};

constexpr std::string_view NameOf(PowerCategory category) {
  return kPowerCategoryNames[static_cast<std::size_t>(category)];
}

struct FleetTotals {
  struct Domain {
    std::string name;
    std::size_t entities = 0;
    std::int64_t milliwatts = 0;  // of consumers
  };

  Instant at{};
  std::string node_name;
  std::string node_id;
  std::size_t devices = 0;
  std::size_t entities = 0;
  std::array<std::int64_t, kPowerCategoryNames.size()> milliwatts{};  // by category
  std::vector<Domain> domains;  // the largest of them, by entities
  std::size_t domain_count = 0;
};

enum class EntityOrder { kFleet, kMostPower, kLeastPower, kHighestLevel, kLowestLevel };

struct PageRequest {
  static constexpr std::uint32_t kMostRows = 200;

  std::uint32_t from = 0;  // rows to leave out
  std::uint32_t count = 50;
  std::string find =
      {};  // part of a name, role, keyword, domain or identity, in any case of letters
  EntityOrder order = EntityOrder::kFleet;
};

// EntityRow is an entity for people to look at.
struct EntityRow {
  std::string id;
  std::uint32_t number = 0;
  std::string name;
  std::string role;
  std::string keywords;
  std::string domain;
  std::uint8_t level = 0;
  std::uint8_t importance = 0;
  PowerCategory category = PowerCategory::kConsumer;
  std::optional<std::int64_t> milliwatts;  // nothing while it is not known
};

struct EntityPage {
  std::size_t matching = 0;  // entities that match, of which these are some
  std::vector<EntityRow> rows;
};

// FleetSurvey keeps what it measured last. It takes eight bytes for each entity, and four more when
// it has sorted them by power.
class FleetSurvey {
 public:
  // Measure adds up what the entities use.
  FleetTotals Measure(const Fleet& fleet, Instant now);

  // Select finds entities of the fleet as it is now; by power they are sorted as measured last.
  EntityPage Select(const Fleet& fleet, Instant now, const PageRequest& request);

 private:
  const std::vector<std::uint32_t>& ByPower(const Fleet& fleet);

  std::vector<std::int64_t> milliwatts_;  // of each entity; -1 where it is not known
  std::vector<std::uint32_t> by_power_;   // the most first; empty until it is asked for
};

}  // namespace vt::node

#endif  // VT_NODE_FLEET_SURVEY_H_
