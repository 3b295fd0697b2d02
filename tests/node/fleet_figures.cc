// Measures what a large fleet takes: how long it loads, its memory, and how long it answers. Not a
// test: it prints, and judges nothing.
#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "node/fleet_file.h"
#include "node/responder.h"
#include "tests/node/node_support.h"

namespace vt::testing {
namespace {

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// InUse counts large blocks too, which have a place of their own.
std::size_t InUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

void Measure(int count) {
  const TempFolder folder;
  const std::string config = NodeTable() + "[[group]]\ncount = " + std::to_string(count) +
                             "\nname = \"lamp-{n}\"\nrole = \"lamp\"\nkeywords = [\"light\"]\n"
                             "watts = [0.3, 36]\nprofile = \"office-day\"\nnoise = 0.1\n";
  const std::string path = folder.Write("fleet.toml", config);
  const std::size_t before = InUse();
  auto start = std::chrono::steady_clock::now();
  node::FleetFile file = node::LoadFleet(path);
  std::printf("%d devices: loaded in %.3f s, %.0f bytes each\n", count, SecondsSince(start),
              static_cast<double>(InUse() - before) / count);

  node::Responder responder(std::move(file.fleet), std::nullopt,
                            node::StateKeeper(folder.path("state")));
  const auto ask = [&responder](const char* what, const PduImage& image) {
    const Bytes message = image.Signed(Bytes(32, 'a'));
    constexpr int rounds = 3;
    double best = 1e9;
    std::size_t messages = 0;
    std::size_t bytes = 0;
    for (int i = 0; i < rounds; ++i) {
      const auto begin = std::chrono::steady_clock::now();
      const std::vector<Bytes> answer = responder.Answer(message).messages;
      best = std::min(best, SecondsSince(begin));
      messages = answer.size();
      bytes = 0;
      for (const Bytes& part : answer) bytes += part.size();
    }
    std::printf("  %-34s %.3f s, %zu messages, %zu bytes\n", what, best, messages, bytes);
  };
  ask("collect name usage level importance", Asking({9, 13, 14, 17}));
  ask("collect category entity-type text", Asking({51, 22, 29}));
  PduImage none = Asking({9});
  none.elements.push_back(Element(7, 1, Text("phone")));
  ask("collect that all refuse", none);
  ask("set level", Setting({Element(14, 0, Hex("03"))}));
}

}  // namespace
}  // namespace vt::testing

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) vt::testing::Measure(std::atoi(argv[i]));
  if (argc > 1) return 0;
  vt::testing::Measure(10'000);
  vt::testing::Measure(100'000);
  return 0;
}
