#include "node/host/host_device.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <string_view>

#include "vtapi.h"

namespace vt::node {
namespace {

struct Kind {
  std::string_view prefix;  // of the keys
  std::uint32_t first;      // number
};

constexpr std::array<Kind, 4> kKinds = {
    {{"rapl/", 101}, {"hwmon/", 201}, {"supply/", 301}, {"nut/", 401}}};

std::size_t KindOf(const HostEntity& sensor) {
  const auto* found = std::ranges::find_if(
      kKinds, [&sensor](const Kind& kind) { return sensor.key.starts_with(kind.prefix); });
  return static_cast<std::size_t>(found - kKinds.begin());
}

// Numbers are those of the entities, in the order of the sensors.
std::vector<std::uint32_t> Numbers(const std::vector<HostEntity>& sensors) {
  std::vector<std::size_t> order(sensors.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::ranges::sort(order, {},
                    [&sensors](std::size_t i) -> const std::string& { return sensors[i].key; });
  constexpr std::uint32_t other_kinds = 501;
  std::array<std::uint32_t, kKinds.size() + 1> next{};
  std::ranges::transform(kKinds, next.begin(), &Kind::first);
  next.back() = other_kinds;
  std::vector<std::uint32_t> numbers(sensors.size());
  for (const std::size_t i : order) numbers[i] = next.at(KindOf(sensors[i]))++;
  return numbers;
}

// NameOf is a name that sets could give, too: drivers choose their letters freely.
std::string NameOf(const HostDescription& host, const HostEntity& sensor) {
  std::string name = (host.name + " " + sensor.name).substr(0, kLongestText);
  for (char& letter : name) {
    const std::array<char, 2> text = {letter, '\0'};
    if (letter != ' ' && vtn_string_in_whitelist(text.data(), 1) == 0) letter = '_';
  }
  return name;
}

constexpr std::uint32_t kUsageType = CV_CORVANE_TLV_TYPE_USAGE;

// What a level would bring is not known: there are no vectors.
std::uint32_t AttributesWithoutUsage() {
  return ~(AttributeBit(kUsageType) | AttributeBit(VT_TLV_USAGE_VECTOR) |
           AttributeBit(VT_TLV_DELTA_VECTOR));
}

}  // namespace

HostEntities AddHost(Fleet& fleet, const HostDescription& host,
                     const std::vector<HostEntity>& sensors) {
  const std::vector<std::uint32_t> numbers = Numbers(sensors);
  HostEntities entities;
  for (std::size_t i = 0; i < sensors.size(); ++i) {
    Model model;
    model.attributes = AttributesWithoutUsage();
    model.is_host = true;
    model.domain = host.domain;
    model.name = Pattern::Plain(NameOf(host, sensors[i]));
    model.role = host.role;
    model.keywords = host.keywords;
    model.caliber = LibraryCaliber(sensors[i].caliber);
    model.category = LibraryCategory(sensors[i].category);
    model.entity_type = CV_ENTITY_TYPE_LOCAL;
    Fleet::Entity entity;
    entity.model = fleet.AddModel(std::move(model));
    entity.number = numbers[i];
    entity.importance = host.importance;
    if (entities.count++ == 0) entities.first_model = entity.model;
    fleet.AddEntity(host.id, 1, entity);
  }
  return entities;
}

void TakeReadings(Fleet& fleet, const HostEntities& entities, std::span<const Reading> readings) {
  const std::size_t count = std::min<std::size_t>(entities.count, readings.size());
  for (std::uint32_t i = 0; i < count; ++i) {
    const Reading& reading = readings[i];
    if (reading.ok()) {
      fleet.Measure(entities.first_model + i, reading.milliwatts,
                    LibraryCategory(reading.category));
    } else if (reading.trouble != Trouble::kWaiting) {
      fleet.LoseMeasure(entities.first_model + i);
    }
  }
}

}  // namespace vt::node
