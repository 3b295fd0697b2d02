// The one option that the programs have besides those of Google Benchmark.
#ifndef VT_BENCH_OPTIONS_H_
#define VT_BENCH_OPTIONS_H_

#include <cstddef>

namespace vt::bench {

// The number of devices, rows or entries of a big result, and of a small one to hold it against.
// --scale=N sets the big one.
std::size_t BigScale();
inline constexpr std::size_t kSmallScale = 1000;

}  // namespace vt::bench

#endif  // VT_BENCH_OPTIONS_H_
