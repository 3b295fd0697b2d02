#include "node/profile.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <optional>
#include <utility>

namespace vt::node {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;

constexpr std::size_t kNone = std::string_view::npos;

// Rest is what is left of value after whole periods, never negative.
milliseconds Rest(milliseconds value, milliseconds period) {
  const milliseconds rest = value % period;
  return rest < milliseconds::zero() ? rest + period : rest;
}

std::int64_t Divided(std::int64_t value, std::int64_t by) {
  return (value < 0 ? value - by / 2 : value + by / 2) / by;
}

// Mixed spreads every bit of its input over all of its output (splitmix64).
std::uint64_t Mixed(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15u;
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
  return value ^ (value >> 31);
}

// The course of a working day, as parts of the way from low to high.
constexpr struct {
  minutes time;
  std::int64_t part;
} kWorkingDay[] = {
    {hours(6), 0},     {hours(9), kOne},
    {hours(12), kOne}, {hours(12) + minutes(30), kOne * 3 / 4},
    {hours(13), kOne}, {hours(17), kOne},
    {hours(20), 0},
};

// ProfileReader reads the rows of a profile's file.
class ProfileReader {
 public:
  explicit ProfileReader(std::chrono::seconds period) : period_(period) {}

  void Read(std::string_view line) {
    ++line_;
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty() || line.front() == '#') return;
    if (points_.empty() && line == "time,factor") return;
    const std::size_t comma = line.find(',');
    if (comma == kNone) Fail(0, "a row has a time, a comma and a factor");
    const std::optional<milliseconds> time = Time(line.substr(0, comma));
    if (!time) Fail(0, "a time is a number of seconds, HH:MM or HH:MM:SS");
    if (*time >= period_) Fail(0, "this time is not within the period");
    if (!points_.empty() && points_.back().time >= *time) Fail(0, "times must ascend");
    const std::optional<std::int64_t> factor = Factor(line.substr(comma + 1));
    if (!factor) Fail(comma + 1, "a factor is a number from 0 to 100");
    points_.push_back({*time, *factor});
  }

  std::vector<ProfilePoint> Take() {
    if (points_.empty()) Fail(0, "there is no row");
    return std::move(points_);
  }

 private:
  [[noreturn]] void Fail(std::size_t offset, const std::string& message) const {
    throw ProfileError(std::max(line_, 1u), static_cast<std::uint32_t>(offset) + 1, message);
  }

  static std::optional<std::int64_t> Number(std::string_view text) {
    std::int64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    constexpr std::int64_t most = kLongestPeriod.count();
    if (error != std::errc() || stop != end || number < 0 || number > most) return std::nullopt;
    return number;
  }

  static std::optional<milliseconds> Time(std::string_view text) {
    constexpr std::int64_t minute = 60;
    std::int64_t seconds = 0;
    int parts = 0;
    for (;;) {
      const std::size_t colon = text.find(':');
      const std::optional<std::int64_t> part = Number(text.substr(0, colon));
      if (!part || ++parts > 3 || (parts > 1 && *part >= minute)) return std::nullopt;
      seconds = seconds * minute + *part;
      if (colon == kNone) break;
      text.remove_prefix(colon + 1);
    }
    // Hours and minutes alone: the seconds are missing, and not the hours.
    if (parts == 2) seconds *= minute;
    return std::chrono::seconds(seconds);
  }

  static std::optional<std::int64_t> Factor(std::string_view text) {
    double factor = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, factor);
    constexpr double most = static_cast<double>(kGreatestFactor) / kOne;
    if (error != std::errc() || stop != end || !(factor >= 0 && factor <= most)) {
      return std::nullopt;
    }
    return std::llround(factor * kOne);
  }

  milliseconds period_;
  std::uint32_t line_ = 0;
  std::vector<ProfilePoint> points_;
};

}  // namespace

Profile Profile::Sine(milliseconds period, milliseconds phase, std::int64_t low,
                      std::int64_t high) {
  Profile profile;
  profile.kind_ = Kind::kSine;
  profile.period_ = period;
  profile.phase_ = phase;
  profile.low_ = low;
  profile.greatest_ = high;
  return profile;
}

Profile Profile::OfficeDay(milliseconds utc_offset, std::int64_t low, std::int64_t high) {
  // 1970 began on a Thursday: a week from then has its weekend on the third and fourth day.
  constexpr int days = 7;
  std::vector<ProfilePoint> points;
  for (int day = 0; day < days; ++day) {
    if (day == 2 || day == 3) continue;
    for (const auto& [time, part] : kWorkingDay) {
      points.push_back({hours(24 * day) + time, low + Scaled(high - low, part)});
    }
  }
  Profile profile = Table(std::move(points), hours(24 * days));
  profile.phase_ = -utc_offset;
  return profile;
}

Profile Profile::Table(std::vector<ProfilePoint> points, milliseconds period) {
  Profile profile;
  profile.kind_ = Kind::kTable;
  profile.period_ = period;
  profile.greatest_ = 0;
  for (const ProfilePoint& point : points) {
    profile.greatest_ = std::max(profile.greatest_, point.factor);
  }
  profile.points_ = std::move(points);
  return profile;
}

std::int64_t Profile::FactorAt(Instant now) const {
  const milliseconds time = Rest(now.time_since_epoch() - phase_, period_);
  switch (kind_) {
    case Kind::kConstant:
      break;
    case Kind::kSine:
      return SineAt(time);
    case Kind::kTable:
      return TableAt(time);
  }
  return kOne;
}

std::int64_t Profile::SineAt(milliseconds time) const {
  const double turn = static_cast<double>(time.count()) / static_cast<double>(period_.count());
  const double part = (1 - std::cos(2 * std::numbers::pi * turn)) / 2;
  return low_ + std::llround(static_cast<double>(greatest_ - low_) * part);
}

std::int64_t Profile::TableAt(milliseconds time) const {
  const auto next = std::ranges::upper_bound(points_, time, {}, &ProfilePoint::time);
  // In front of the first point and behind the last one the course runs across the period's end.
  ProfilePoint before = next == points_.begin() ? points_.back() : *std::prev(next);
  ProfilePoint after = next == points_.end() ? points_.front() : *next;
  if (next == points_.begin()) before.time -= period_;
  if (next == points_.end()) after.time += period_;
  const std::int64_t length = (after.time - before.time).count();
  return before.factor +
         Divided((after.factor - before.factor) * (time - before.time).count(), length);
}

std::vector<ProfilePoint> ParseProfileRows(std::string_view text, std::chrono::seconds period) {
  ProfileReader reader(period);
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    reader.Read(text.substr(0, end));
    text.remove_prefix(end == kNone ? text.size() : end + 1);
  }
  return reader.Take();
}

std::int64_t Noise::DeviationAt(Instant now, std::span<const char> id, std::uint32_t entity) const {
  if (amplitude == 0) return 0;
  const milliseconds time = now.time_since_epoch();
  const std::int64_t turn = (time - Rest(time, interval)) / interval;
  // FNV-1a, whose result is mixed afterwards.
  std::uint64_t hash = 0xCBF29CE484222325u;
  for (const char letter : id) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * 0x100000001B3u;
  }
  const std::uint64_t random =
      Mixed(Mixed(Mixed(seed ^ hash) + entity) + static_cast<std::uint64_t>(turn));
  const auto values = static_cast<std::uint64_t>(2 * amplitude + 1);
  return static_cast<std::int64_t>(random % values) - amplitude;
}

std::int64_t Scaled(std::int64_t value, std::int64_t factor) {
  // In two parts, for the product as a whole might not fit.
  return value / kOne * factor + Divided(value % kOne * factor, kOne);
}

}  // namespace vt::node
