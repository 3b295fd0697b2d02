// How the power of devices changes with time: a profile, which is a factor for each instant, and
// noise on top of it. Both are exact integers, so that an instant gives the same power everywhere.
#ifndef VT_NODE_PROFILE_H_
#define VT_NODE_PROFILE_H_

#include <chrono>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vt::node {

using Instant = std::chrono::sys_time<std::chrono::milliseconds>;

// Factors are counted in millionths; none is above 100.
inline constexpr std::int64_t kOne = 1'000'000;
inline constexpr std::int64_t kGreatestFactor = 100 * kOne;
inline constexpr std::chrono::seconds kLongestPeriod{366 * 86400};

// ProfilePoint is a factor at a time after the beginning of a period.
struct ProfilePoint {
  std::chrono::milliseconds time{};
  std::int64_t factor = kOne;
};

class Profile {
 public:
  // A constant profile of factor 1.
  Profile() = default;

  // Sine goes from low to high and back within each period; it is low at phase after 1970 began in
  // UTC, and every period from then.
  static Profile Sine(std::chrono::milliseconds period, std::chrono::milliseconds phase,
                      std::int64_t low, std::int64_t high);

  // OfficeDay is low at night and on weekends. From Monday to Friday it rises from 6 to 9 o'clock,
  // is high until 17 o'clock, but for a dip by a quarter at half past 12, and falls until 20
  // o'clock. Clocks are utc_offset ahead of UTC.
  static Profile OfficeDay(std::chrono::milliseconds utc_offset, std::int64_t low,
                           std::int64_t high);

  // Table goes straight from point to point, which are in ascending order and within the period,
  // and from the last to the first of the next period. Periods are counted from 1970 in UTC.
  static Profile Table(std::vector<ProfilePoint> points, std::chrono::milliseconds period);

  // FactorAt is the factor at an instant, in millionths.
  std::int64_t FactorAt(Instant now) const;

  // greatest is a bound that no factor exceeds.
  std::int64_t greatest() const { return greatest_; }

 private:
  enum class Kind { kConstant, kSine, kTable };

  std::int64_t SineAt(std::chrono::milliseconds time) const;
  std::int64_t TableAt(std::chrono::milliseconds time) const;

  Kind kind_ = Kind::kConstant;
  std::chrono::milliseconds period_{1};
  std::chrono::milliseconds phase_{0};  // what a period begins after 1970
  std::int64_t low_ = kOne;
  std::int64_t greatest_ = kOne;
  std::vector<ProfilePoint> points_;
};

// ProfileError says what is wrong with a line of a profile's file. Lines and columns begin at 1.
class ProfileError : public std::runtime_error {
 public:
  ProfileError(std::uint32_t at_line, std::uint32_t at_column, const std::string& message)
      : std::runtime_error(message), line(at_line), column(at_column) {}

  std::uint32_t line;
  std::uint32_t column;
};

// ParseProfileRows reads the rows of a CSV text: a time, in seconds or as HH:MM or HH:MM:SS, a
// comma, and a factor from 0 to 100. Empty lines, lines that begin with # and a first line
// "time,factor" are skipped. Times ascend and are less than the period. It throws ProfileError.
std::vector<ProfilePoint> ParseProfileRows(std::string_view text, std::chrono::seconds period);

// Noise is a factor around 1 that a seed determines: of one entity it holds for an interval.
struct Noise {
  std::int64_t amplitude = 0;  // in millionths, to either side
  std::uint64_t seed = 0;
  std::chrono::milliseconds interval{60'000};

  // DeviationAt is from -amplitude to amplitude, evenly spread. id and entity say which entity.
  std::int64_t DeviationAt(Instant now, std::span<const char> id, std::uint32_t entity) const;
};

// Scaled is value times a factor in millionths, to the nearest.
std::int64_t Scaled(std::int64_t value, std::int64_t factor);

}  // namespace vt::node

#endif  // VT_NODE_PROFILE_H_
