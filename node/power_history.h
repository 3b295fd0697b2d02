// What the fleet used over the last minutes, as points for a plot.
#ifndef VT_NODE_POWER_HISTORY_H_
#define VT_NODE_POWER_HISTORY_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>

#include "node/profile.h"

namespace vt::node {

class PowerHistory {
 public:
  struct Point {
    Instant at{};
    std::int64_t milliwatts = 0;
  };

  static constexpr std::chrono::minutes kLength{10};
  static constexpr std::size_t kMostPoints = 600;

  // Add adds a point, and forgets those that are too old, or too many.
  void Add(const Point& point) {
    // A clock that was set back makes what it told before worthless.
    if (!points_.empty() && point.at < points_.back().at) points_.clear();
    points_.push_back(point);
    while (points_.size() > kMostPoints || point.at - points_.front().at > kLength) {
      points_.pop_front();
    }
  }

  const std::deque<Point>& points() const { return points_; }

 private:
  std::deque<Point> points_;
};

}  // namespace vt::node

#endif  // VT_NODE_POWER_HISTORY_H_
