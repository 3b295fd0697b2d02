#include "tools/ping_statistics.h"

#include <algorithm>
#include <cmath>

namespace vt::tools {

void PingStatistics::AddAnswered(double milliseconds) {
  ++sent_;
  ++answered_;
  min_ = std::min(min_, milliseconds);
  max_ = std::max(max_, milliseconds);
  const double difference = milliseconds - mean_;
  mean_ += difference / static_cast<double>(answered_);
  squares_ += difference * (milliseconds - mean_);
}

double PingStatistics::loss() const {
  if (sent_ == 0) return 0;
  return 100.0 * static_cast<double>(sent_ - answered_) / static_cast<double>(sent_);
}

double PingStatistics::mdev() const {
  return answered_ == 0 ? 0 : std::sqrt(squares_ / static_cast<double>(answered_));
}

}  // namespace vt::tools
