#include "node/host/energy_counter.h"

namespace vt::node {
namespace {

// Counters step about once in a millisecond.
constexpr std::chrono::milliseconds kShortestInterval{50};
constexpr double kMilliwattsPerMicrojouleInANanosecond = 1e6;

}  // namespace

std::optional<std::int64_t> EnergyCounter::GrowthTo(std::int64_t microjoules) const {
  if (microjoules >= base_->microjoules) return microjoules - base_->microjoules;
  if (base_->microjoules > range_) return std::nullopt;
  // Both terms are within the range, so that their sum does not overflow.
  const std::int64_t growth = range_ - base_->microjoules + microjoules;
  if (growth > range_ / 2) return std::nullopt;
  return growth;
}

std::optional<double> EnergyCounter::Advance(std::int64_t microjoules, Time now) {
  if (base_ && now - base_->time < kShortestInterval) return milliwatts_;
  std::optional<double> milliwatts;
  if (base_) {
    const auto interval =
        std::chrono::duration_cast<std::chrono::nanoseconds>(now - base_->time).count();
    if (const std::optional<std::int64_t> growth = GrowthTo(microjoules)) {
      milliwatts = static_cast<double>(*growth) * kMilliwattsPerMicrojouleInANanosecond /
                   static_cast<double>(interval);
    }
  }
  base_ = {microjoules, now};
  milliwatts_ = milliwatts;
  return milliwatts;
}

void EnergyCounter::Forget() {
  base_.reset();
  milliwatts_.reset();
}

}  // namespace vt::node
