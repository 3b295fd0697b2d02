// What many round trips come to.
#ifndef VT_TOOLS_PING_STATISTICS_H_
#define VT_TOOLS_PING_STATISTICS_H_

#include <cstddef>
#include <limits>

namespace vt::tools {

// PingStatistics counts round trips. Times are in milliseconds.
class PingStatistics {
 public:
  void AddAnswered(double milliseconds);
  void AddLost() { ++sent_; }

  std::size_t sent() const { return sent_; }
  std::size_t answered() const { return answered_; }
  // loss is the part that was lost, in percent; 0 of nothing.
  double loss() const;

  // Of those that were answered; 0 without any. mdev is the standard deviation.
  double min() const { return answered_ == 0 ? 0 : min_; }
  double avg() const { return mean_; }
  double max() const { return max_; }
  double mdev() const;

 private:
  std::size_t sent_ = 0;
  std::size_t answered_ = 0;
  double min_ = std::numeric_limits<double>::infinity();
  double max_ = 0;
  // Kept up step by step, which loses no digits as sums of squares would.
  double mean_ = 0;
  double squares_ = 0;  // of the differences from the mean
};

}  // namespace vt::tools

#endif  // VT_TOOLS_PING_STATISTICS_H_
