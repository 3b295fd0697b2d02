// P9: a query with one reply over loopback, from its creation to the release of its result, against
// a bare loop of system calls that sends the same bytes to the same process and receives the same.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>

#include "bench/measure.h"
#include "bench/messages.h"
#include "bench/peer.h"

namespace {

using namespace vt::bench;  // NOLINT(google-build-using-namespace): this program's own

constexpr std::size_t kExchanges = 16;  // of each side in turn

const Peer& ThePeer() {
  static const Peer peer;
  return peer;
}

void BareExchange(std::uint16_t port, const Bytes& query) {
  constexpr int kTimeoutMs = 180000;
  constexpr std::size_t kTlvBytesAt = 76;
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  Require(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "bare: connect");
  Require(send(fd, query.data(), query.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(query.size()),
          "bare: send");
  pollfd watched{fd, POLLIN, 0};
  Require(poll(&watched, 1, kTimeoutMs) == 1, "bare: poll");
  std::array<std::uint8_t, VT_MAX_PDU_SIZE> reply;
  Require(recv(fd, reply.data(), VT_PDU_HEADER_SIZE, MSG_WAITALL) == VT_PDU_HEADER_SIZE,
          "bare: no header");
  const auto area = static_cast<std::size_t>(reply[kTlvBytesAt] << 8 | reply[kTlvBytesAt + 1]);
  Require(
      recv(fd, reply.data() + VT_PDU_HEADER_SIZE, area, MSG_WAITALL) == static_cast<ssize_t>(area),
      "bare: no body");
  Require(recv(fd, reply.data(), reply.size(), 0) == 0, "bare: no end");
  close(fd);
}

void OneReply(benchmark::State& state, std::uint32_t kind) {
  const std::uint32_t priority = kind | 1;
  const std::uint16_t port = ThePeer().port();
  const SessionPtr session(voltaris_createSession("127.0.0.1", port, kIdentity, Key().data(),
                                                  static_cast<std::int32_t>(Key().size())));
  Require(session != nullptr, "no session");
  const Bytes query = QueryImage(priority);
  const auto times = [](auto&& exchange) {
    return TimeNs(
        [&] {
          for (std::size_t i = 0; i < kExchanges; ++i) exchange();
        },
        Clock::kWall);
  };
  CompareInTurn(
      state, kExchanges, [&] { return times([&] { Exchange(session.get(), priority); }); },
      [&] { return times([&] { BareExchange(port, query); }); });
}

BENCHMARK_CAPTURE(OneReply, , 0)->Name("P9/one_row")->UseManualTime();
BENCHMARK_CAPTURE(OneReply, , kFullReplies)->Name("P9/full_reply")->UseManualTime();

}  // namespace
