// Power from a counter of energy: what it has grown between two readings, by the time between. The
// counter wraps around at the end of its range, and may be set back by a reset or after a sleep.
#ifndef VT_NODE_HOST_ENERGY_COUNTER_H_
#define VT_NODE_HOST_ENERGY_COUNTER_H_

#include <chrono>
#include <cstdint>
#include <optional>

namespace vt::node {

class EnergyCounter {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // EnergyCounter counts up to range microjoules and then from 0 again; a range of 0 is not known.
  explicit EnergyCounter(std::int64_t range = 0) : range_(range) {}

  // Advance takes the counter's value, not negative, and returns the milliwatts since the reading
  // before: nothing for the first one, or where the counter was set back, from where it begins
  // anew. Readings shortly after each other would tell more of the counter's steps than of the
  // power: the second then repeats the result of the first.
  //
  // A value below the one before is a wrap-around only when it stands for at most half the range;
  // so read at least twice in the time that the counter takes for its range, which is a minute or
  // more of the greatest power.
  std::optional<double> Advance(std::int64_t microjoules, Time now);

  // Forget begins anew.
  void Forget();

 private:
  struct Point {
    std::int64_t microjoules;
    Time time;
  };

  std::optional<std::int64_t> GrowthTo(std::int64_t microjoules) const;

  std::int64_t range_;
  std::optional<Point> base_;
  std::optional<double> milliwatts_;
};

}  // namespace vt::node

#endif  // VT_NODE_HOST_ENERGY_COUNTER_H_
