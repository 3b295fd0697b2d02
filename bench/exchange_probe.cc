// Both ends of an exchange over loopback as programs of their own, so that the system calls of the
// client can be counted from outside:
//   exchange_probe serve                          prints its port and serves for ever
//   exchange_probe ask PORT QUERIES REPLIES       asks that often for so many replies
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "bench/measure.h"
#include "bench/peer.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

void Ask(std::uint32_t port, unsigned long queries, std::uint32_t replies) {
  const SessionPtr session(voltaris_createSession("127.0.0.1", port, kIdentity, Key().data(),
                                                  static_cast<std::int32_t>(Key().size())));
  Require(session != nullptr, "no session");
  for (unsigned long i = 0; i < queries; ++i) Exchange(session.get(), replies);
}

std::uint32_t Number(const char* text) {
  return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view mode = argc > 1 ? argv[1] : "";
  if (mode == "serve" && argc == 2) {
    std::uint16_t port = 0;
    const int listener = Listen(port);
    std::printf("%u\n", static_cast<unsigned>(port));
    std::fflush(stdout);
    Serve(listener);
  }
  if (mode == "ask" && argc == 5) {
    Ask(Number(argv[2]), Number(argv[3]), Number(argv[4]));
    return 0;
  }
  std::fprintf(stderr, "usage: exchange_probe serve | ask PORT QUERIES REPLIES\n");
  return 2;
}
