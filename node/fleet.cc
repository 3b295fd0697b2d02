#include "node/fleet.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <string_view>
#include <tuple>
#include <utility>

#include "vtapi.h"

#include "node/power_units.h"

namespace vt::node {
namespace {

struct HashId {
  std::size_t operator()(const DeviceIdText& id) const {
    return std::hash<std::string_view>()({id.data(), id.size()});
  }
};

template <class T>
void Replace(std::optional<T>& value, const std::optional<T>& by) {
  if (by) value = by;
}

constexpr std::uint32_t BitOf(vt_attribute attribute) { return std::uint32_t{1} << attribute; }

template <class T>
T Clamped(std::int64_t number) {
  return static_cast<T>(std::clamp<std::int64_t>(number, std::numeric_limits<T>::min(),
                                                 std::numeric_limits<T>::max()));
}

// AtLevel is what a device has told, seen from a level that it was set to: the vector of usages
// tells what it then uses or, without one, the vector of changes.
Power AtLevel(const RecordedPower& recorded, std::uint8_t level) {
  Power power;
  power.usage = recorded.usage.value_or(0);
  const auto& usages = recorded.usage_vector;
  const auto& changes = recorded.delta_vector;
  if (usages) {
    power.usage = usages->at(level);
  } else if (changes) {
    power.usage = Clamped<std::uint16_t>(std::int64_t{power.usage} + changes->at(level));
  }
  for (std::size_t i = 0; i < kLevels; ++i) {
    if (usages) {
      power.usage_vector[i] = (*usages)[i];
      power.delta_vector[i] = (*usages)[i] - power.usage;
    } else if (changes) {
      const std::int64_t change = std::int64_t{(*changes)[i]} - changes->at(level);
      power.delta_vector[i] = Clamped<std::int32_t>(change);
    }
  }
  return power;
}

Power AsTold(const RecordedPower& recorded) {
  Power power;
  power.usage = recorded.usage.value_or(0);
  if (recorded.usage_vector) power.usage_vector = *recorded.usage_vector;
  if (recorded.delta_vector) power.delta_vector = *recorded.delta_vector;
  return power;
}

}  // namespace

std::uint32_t AttributeBit(std::uint32_t type) {
  const std::int32_t number = vt_get_external_tlv_enum_type(type);
  constexpr std::int32_t bits = 32;
  return number >= 0 && number < bits ? std::uint32_t{1} << number : 0;
}

bool HasPower(const Model& model) {
  constexpr std::uint32_t needed = BitOf(VT_ATTRIBUTE_USAGE) | BitOf(VT_ATTRIBUTE_UNITS);
  return (model.attributes & needed) == needed;
}

std::uint32_t Fleet::AddModel(Model model) {
  models_.push_back(std::move(model));
  return static_cast<std::uint32_t>(models_.size() - 1);
}

// Until Finish every entity has a device of its own.
void Fleet::AddEntity(const DeviceIdText& id, std::uint32_t number, const Entity& entity) {
  if (devices_.empty() || devices_.back().id != id) devices_.push_back({id, number, 0, 0});
  Entity added = entity;
  added.device = static_cast<std::uint32_t>(devices_.size() - 1);
  entities_.push_back(added);
}

std::optional<std::uint32_t> Fleet::Finish() {
  // The first device with an identity is the one that stays; its entities move to it.
  std::unordered_map<DeviceIdText, std::uint32_t, HashId> first;
  first.reserve(devices_.size());
  std::vector<std::uint32_t> stays(devices_.size());
  std::uint32_t kept = 0;
  for (std::uint32_t i = 0; i < devices_.size(); ++i) {
    const auto [place, is_new] = first.try_emplace(devices_[i].id, kept);
    stays[i] = place->second;
    if (is_new) devices_[kept++] = devices_[i];
  }
  const bool all_stay = kept == devices_.size();
  devices_.resize(kept);
  devices_.shrink_to_fit();

  std::vector<std::uint32_t> order(entities_.size());
  std::iota(order.begin(), order.end(), 0u);
  for (Entity& entity : entities_) entity.device = stays[entity.device];
  if (!all_stay) {
    std::ranges::stable_sort(order, {}, [this](std::uint32_t i) { return entities_[i].device; });
  }
  std::vector<Entity> sorted;
  sorted.reserve(entities_.size());
  for (const std::uint32_t i : order) sorted.push_back(entities_[i]);
  entities_ = std::move(sorted);

  std::optional<std::uint32_t> doubled;
  for (std::uint32_t i = 0; i < entities_.size(); ++i) {
    Device& device = devices_[entities_[i].device];
    if (device.count == 0) device.first = i;
    for (std::uint32_t other = device.first; other < i; ++other) {
      if (entities_[other].number == entities_[i].number) {
        doubled = std::min(doubled.value_or(order[i]), order[i]);
      }
    }
    ++device.count;
    configured_.push_back({entities_[i].level, entities_[i].importance});
  }
  IndexDevices();
  IndexDomains();
  return doubled;
}

void Fleet::IndexDevices() {
  by_id_.resize(devices_.size());
  std::iota(by_id_.begin(), by_id_.end(), 0u);
  std::ranges::sort(by_id_, {},
                    [this](std::uint32_t i) -> const DeviceIdText& { return devices_[i].id; });
}

void Fleet::IndexDomains() {
  for (std::uint32_t i = 0; i < entities_.size(); ++i) {
    std::vector<Range>& ranges = domains_[ModelOf(i).domain];
    if (ranges.empty() || ranges.back().end != i) ranges.push_back({i, i});
    ranges.back().end = i + 1;
  }
}

std::span<const Fleet::Range> Fleet::InDomain(const std::string& domain) const {
  const auto found = domains_.find(domain);
  return found != domains_.end() ? std::span<const Range>(found->second) : std::span<const Range>();
}

const sockaddr_in& Fleet::AddressOf(std::uint32_t index) const {
  const Model& model = ModelOf(index);
  return model.address ? *model.address : node.address;
}

const Fleet::Texts* Fleet::TextsOf(std::uint32_t index) const {
  if (texts_.empty()) return nullptr;
  const auto found = texts_.find(index);
  return found != texts_.end() ? &found->second : nullptr;
}

std::uint32_t Fleet::AttributesOf(std::uint32_t index) const {
  constexpr std::uint32_t all = ~std::uint32_t{0};
  std::uint32_t bits = ModelOf(index).attributes;
  if (bits == all) return bits;
  const Entity& entity = entities_[index];
  if (entity.level_was_set) bits |= BitOf(VT_ATTRIBUTE_LEVEL);
  if (entity.importance_was_set) bits |= BitOf(VT_ATTRIBUTE_IMPORTANCE);
  if (const Texts* texts = TextsOf(index)) {
    if (texts->name) bits |= BitOf(VT_ATTRIBUTE_NAME);
    if (texts->role) bits |= BitOf(VT_ATTRIBUTE_ROLE);
    if (texts->keywords) bits |= BitOf(VT_ATTRIBUTE_KEYWORDS);
    if (texts->recurrence) bits |= BitOf(VT_ATTRIBUTE_RECURRENCE);
  }
  return bits;
}

const std::string& Fleet::RoleOf(std::uint32_t index) const {
  const Texts* texts = TextsOf(index);
  return texts != nullptr && texts->role ? *texts->role : ModelOf(index).role;
}

const std::string& Fleet::KeywordsOf(std::uint32_t index) const {
  const Texts* texts = TextsOf(index);
  return texts != nullptr && texts->keywords ? *texts->keywords : ModelOf(index).keywords;
}

const Recurrence* Fleet::RecurrenceOf(std::uint32_t index) const {
  const Texts* texts = TextsOf(index);
  if (texts != nullptr && texts->recurrence) return &*texts->recurrence;
  const std::optional<Recurrence>& configured = ModelOf(index).recurrence;
  return configured ? &*configured : nullptr;
}

void Fleet::WriteNameOf(std::uint32_t index, std::string& out) const {
  const Texts* texts = TextsOf(index);
  if (texts != nullptr && texts->name) {
    out = *texts->name;
    return;
  }
  const Entity& entity = entities_[index];
  models_[entity.model].name.Write(devices_[entity.device].number, entity.number, out);
}

Power Fleet::PowerOf(std::uint32_t index, Instant now, std::int64_t profile_factor) const {
  const Entity& entity = entities_[index];
  const Model& model = models_[entity.model];
  if (model.recorded) {
    return entity.level_was_set ? AtLevel(*model.recorded, entity.level) : AsTold(*model.recorded);
  }
  const std::int64_t noise =
      model.noise.DeviationAt(now, devices_[entity.device].id, entity.number);
  const std::int64_t factor = Scaled(kOne + noise, profile_factor);
  Power power;
  for (std::size_t i = 0; i < kLevels; ++i) {
    power.usage_vector[i] = UsageInUnits(Scaled(model.milliwatts[i], factor), model.units);
  }
  // A measured usage may differ from what the level lets expect, until the level is set.
  power.usage = model.measured_milliwatts && (model.is_host || !entity.level_was_set)
                    ? UsageInUnits(*model.measured_milliwatts, model.units)
                    : power.usage_vector.at(entity.level);
  for (std::size_t i = 0; i < kLevels; ++i) {
    power.delta_vector[i] = power.usage_vector[i] - power.usage;
  }
  return power;
}

void Fleet::Measure(std::uint32_t model, std::int64_t milliwatts, std::int32_t category) {
  Model& measured = models_.at(model);
  measured.measured_milliwatts = milliwatts;
  measured.units = FitPower(milliwatts).units;
  measured.category = category;
  measured.attributes |= AttributeBit(CV_CORVANE_TLV_TYPE_USAGE);
}

void Fleet::LoseMeasure(std::uint32_t model) {
  models_.at(model).attributes &= ~AttributeBit(CV_CORVANE_TLV_TYPE_USAGE);
}

std::optional<std::uint32_t> Fleet::Find(const DeviceIdText& id, std::uint32_t number) const {
  const auto found = std::ranges::lower_bound(
      by_id_, id, {}, [this](std::uint32_t i) -> const DeviceIdText& { return devices_[i].id; });
  if (found == by_id_.end() || devices_[*found].id != id) return std::nullopt;
  const Device& device = devices_[*found];
  for (std::uint32_t i = device.first; i < device.first + device.count; ++i) {
    if (entities_[i].number == number) return i;
  }
  return std::nullopt;
}

Changes Fleet::ChangesOf(std::uint32_t index) const {
  Changes changes;
  const Entity& entity = entities_[index];
  if (entity.level_was_set) changes.level = entity.level;
  if (entity.importance_was_set) changes.importance = entity.importance;
  if (const Texts* texts = TextsOf(index)) {
    changes.name = texts->name;
    changes.role = texts->role;
    changes.keywords = texts->keywords;
    changes.recurrence = texts->recurrence;
  }
  return changes;
}

void Fleet::Apply(std::uint32_t index, const Changes& changes) {
  Entity& entity = entities_[index];
  if (changes.level) {
    entity.level = *changes.level;
    entity.level_was_set = true;
  }
  if (changes.importance) {
    entity.importance = *changes.importance;
    entity.importance_was_set = true;
  }
  if (!changes.name && !changes.role && !changes.keywords && !changes.recurrence) return;
  Texts& texts = texts_[index];
  Replace(texts.name, changes.name);
  Replace(texts.role, changes.role);
  Replace(texts.keywords, changes.keywords);
  Replace(texts.recurrence, changes.recurrence);
}

void Fleet::Restore(std::uint32_t index, const Changes& changes) {
  Entity& entity = entities_[index];
  entity.level = configured_[index].level;
  entity.importance = configured_[index].importance;
  entity.level_was_set = false;
  entity.importance_was_set = false;
  texts_.erase(index);
  Apply(index, changes);
}

FactorsAt::FactorsAt(const Fleet& fleet, Instant now) : fleet_(fleet), now_(now) {
  factors_.reserve(fleet.models().size());
  for (const Model& model : fleet.models()) factors_.push_back(model.profile.FactorAt(now));
}

}  // namespace vt::node
