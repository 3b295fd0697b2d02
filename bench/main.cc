// The beginning of every benchmark program.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "bench/options.h"

namespace vt::bench {

namespace {

std::size_t big_scale = 100000;

// TakeScale removes --scale=N from the arguments; false if it is not a multiple of the small scale.
bool TakeScale(int& argc, char** argv) {
  constexpr std::string_view kOption = "--scale=";
  int kept = 0;
  for (int i = 0; i < argc; ++i) {
    if (!std::string_view(argv[i]).starts_with(kOption)) {
      argv[kept++] = argv[i];
      continue;
    }
    big_scale = std::strtoul(argv[i] + kOption.size(), nullptr, 10);
    if (big_scale < kSmallScale || big_scale % kSmallScale != 0) return false;
  }
  argc = kept;
  return true;
}

}  // namespace

std::size_t BigScale() { return big_scale; }

}  // namespace vt::bench

int main(int argc, char** argv) {
  if (!vt::bench::TakeScale(argc, argv)) {
    std::fprintf(stderr, "bench: --scale wants a multiple of %zu\n", vt::bench::kSmallScale);
    return 2;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
