#include "node/total.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "vtapi.h"

#include "node/power_units.h"

namespace vt::node {

void Total::Add(const Model& model, const Fleet::Entity& entity, const Power& power) {
  usage_ = AddMilliwatts(usage_, ToMilliwatts(power.usage, model.units));
  for (std::size_t i = 0; i < kLevels; ++i) {
    delta_[i] = AddMilliwatts(delta_[i], ToMilliwatts(power.delta_vector[i], model.units));
  }
  level_ = std::max(level_, entity.level);
  importance_ = std::max(importance_, entity.importance);
  if (count_ == 0) caliber_ = model.caliber;
  if (caliber_ != model.caliber) caliber_ = CV_CORVANE_USAGE_CALIBER_UNKNOWN;
  ++count_;
}

UsageHeader Total::Header(const NodeDescription& node) const {
  return {caliber_, node.name.c_str(), node.role.c_str(), node.keywords.c_str(), Units(),
          level_,   importance_};
}

std::uint16_t Total::Usage() const { return UsageInUnits(usage_, Units()); }

std::array<std::int32_t, kLevels> Total::Delta() const {
  std::array<std::int32_t, kLevels> delta{};
  for (std::size_t i = 0; i < kLevels; ++i) {
    delta[i] = static_cast<std::int32_t>(ChangeInUnits(delta_[i], Units()));
  }
  return delta;
}

// Units are the same for usage and changes, because a client takes them for both from one column.
std::int8_t Total::Units() const {
  constexpr std::int64_t limit = std::numeric_limits<std::int32_t>::max();
  std::int8_t units = CommonUnits({&usage_, 1});
  for (const std::int64_t change : delta_) {
    while (std::abs(ChangeInUnits(change, units)) > limit) ++units;
  }
  return units;
}

}  // namespace vt::node
