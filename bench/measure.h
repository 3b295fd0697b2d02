// What every benchmark does: time two sides in turn, over and over, and report the medians and the
// median of their ratios as the counters "ours", "floor" and "ratio". Both sides of a pair run
// within a fraction of a second, so that what else happens on the machine strikes both alike.
#ifndef VT_BENCH_MEASURE_H_
#define VT_BENCH_MEASURE_H_

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

namespace vt::bench {

// Require ends the program unless condition holds: a figure of something else than what it says is
// worse than none.
inline void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "bench: %s\n", what);
  std::exit(1);
}

// The clocks: processor time of this thread, which leaves out what others do with the processor,
// and the time on the wall, for what has to wait.
enum class Clock { kProcessor, kWall };

inline double NowNs(Clock clock) {
  timespec now;
  clock_gettime(clock == Clock::kProcessor ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &now);
  constexpr double kNsPerSecond = 1e9;
  return static_cast<double>(now.tv_sec) * kNsPerSecond + static_cast<double>(now.tv_nsec);
}

// Stopwatch adds up the time between its starts and stops.
class Stopwatch {
 public:
  explicit Stopwatch(Clock clock = Clock::kProcessor) : clock_(clock) {}
  void Start() { started_ = NowNs(clock_); }
  void Stop() { elapsed_ += NowNs(clock_) - started_; }
  [[nodiscard]] double elapsed_ns() const { return elapsed_; }

 private:
  Clock clock_;
  double started_ = 0;
  double elapsed_ = 0;
};

// TimeNs is the time that work takes.
template <class Work>
double TimeNs(Work&& work, Clock clock = Clock::kProcessor) {
  Stopwatch watch(clock);
  watch.Start();
  work();
  watch.Stop();
  return watch.elapsed_ns();
}

inline double Median(std::vector<double> values) {
  Require(!values.empty(), "nothing was measured");
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Comparison collects pairs of figures and reports their medians.
class Comparison {
 public:
  explicit Comparison(benchmark::State& state) : state_(state) {}

  // Add takes the times of one pair; each is divided by the operations of its side.
  void Add(double ours_ns, double floor_ns, std::size_t operations) {
    const auto count = static_cast<double>(operations);
    ours_.push_back(ours_ns / count);
    floor_.push_back(floor_ns / count);
    ratio_.push_back(ours_ns / floor_ns);
    constexpr double kSecondsPerNs = 1e-9;
    state_.SetIterationTime(ours_ns * kSecondsPerNs);
  }

  ~Comparison() {
    state_.counters["ours"] = Median(std::move(ours_));
    state_.counters["floor"] = Median(std::move(floor_));
    state_.counters["ratio"] = Median(std::move(ratio_));
  }
  Comparison(const Comparison&) = delete;
  Comparison& operator=(const Comparison&) = delete;

 private:
  benchmark::State& state_;
  std::vector<double> ours_;
  std::vector<double> floor_;
  std::vector<double> ratio_;
};

// CompareInTurn runs both sides once an iteration, now the one first, now the other. Each does the
// given number of operations a run and returns how many nanoseconds they took.
template <class Ours, class Floor>
void CompareInTurn(benchmark::State& state, std::size_t operations, Ours&& ours, Floor&& floor) {
  Comparison comparison(state);
  bool ours_first = true;
  for (auto _ : state) {
    double ours_ns = 0;
    if (ours_first) ours_ns = ours();
    const double floor_ns = floor();
    if (!ours_first) ours_ns = ours();
    ours_first = !ours_first;
    comparison.Add(ours_ns, floor_ns, operations);
  }
}

}  // namespace vt::bench

#endif  // VT_BENCH_MEASURE_H_
