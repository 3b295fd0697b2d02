// The most processor time that one input may take. The fuzzer's own limit is in seconds on the
// wall, which a busy machine uses up without the target's doing.
#ifndef VT_FUZZ_TIME_LIMIT_H_
#define VT_FUZZ_TIME_LIMIT_H_

#include <ctime>

#include "fuzz/check.h"

namespace vt::fuzz {

// TimeLimit checks at its end that less than a second of processor time has passed since it began.
class TimeLimit {
 public:
  TimeLimit() : begin_(Now()) {}
  ~TimeLimit() { FUZZ_CHECK(Now() - begin_ < kNanosecondsPerSecond); }
  TimeLimit(const TimeLimit&) = delete;
  TimeLimit& operator=(const TimeLimit&) = delete;

 private:
  static constexpr long long kNanosecondsPerSecond = 1'000'000'000;

  static long long Now() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
  }

  long long begin_;
};

}  // namespace vt::fuzz

#endif  // VT_FUZZ_TIME_LIMIT_H_
