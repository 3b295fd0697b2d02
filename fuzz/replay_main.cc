// Gives the files of a corpus to a target, one after the other, without a fuzzer: any compiler and
// any build can run them.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/target.h"

namespace {

namespace fs = std::filesystem;

bool Replay(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::vector<std::uint8_t> input{std::istreambuf_iterator<char>(stream), {}};
  if (stream.bad() || !stream.is_open()) {
    (void)std::fprintf(stderr, "cannot read %s\n", file.c_str());
    return false;
  }
  return LLVMFuzzerTestOneInput(input.data(), input.size()) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t replayed = 0;
  for (int i = 1; i < argc; ++i) {
    if (fs::is_regular_file(argv[i])) {
      if (!Replay(argv[i])) return 1;
      ++replayed;
      continue;
    }
    for (const auto& entry : fs::directory_iterator(argv[i])) {
      // Left where it can be found when the target ends the process.
      if (!Replay(entry.path())) return 1;
      ++replayed;
    }
  }
  std::printf("%zu inputs\n", replayed);
  return replayed != 0 ? 0 : 1;
}
