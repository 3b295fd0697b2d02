// The node that the exchanges over loopback are held with, in a process of its own: it reads a
// query, sends as many replies as the query's priority says and closes.
#ifndef VT_BENCH_PEER_H_
#define VT_BENCH_PEER_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "bench/messages.h"

namespace vt::bench {

// The priority of a query is the number of replies, at most 127; with kFullReplies these are full
// replies, else they have one row each.
inline constexpr std::uint32_t kFullReplies = 0x80;

// PeerShape is what a query has to ask for.
Shape PeerShape();
// PeerRows is how many rows come in one reply to a query of this priority.
std::size_t PeerRows(std::uint32_t priority);

// Listen returns a listener on a port of 127.0.0.1 that the system chose, and the port.
int Listen(std::uint16_t& port);
// Serve answers connections for ever, with those replies or with what answers returns for the
// priority of a query.
[[noreturn]] void Serve(int listener);
using Answering = std::function<std::span<const std::uint8_t>(std::uint32_t priority)>;
[[noreturn]] void Serve(int listener, const Answering& answers);

// Peer is the process, which ends with its maker.
class Peer {
 public:
  Peer();
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }

 private:
  std::uint16_t port_ = 0;
  pid_t pid_ = -1;
};

// QueryImage is what the library sends for such a query, time-out included.
Bytes QueryImage(std::uint32_t priority);

// Exchange asks once and takes in and releases what comes.
void Exchange(Session* session, std::uint32_t priority);

}  // namespace vt::bench

#endif  // VT_BENCH_PEER_H_
