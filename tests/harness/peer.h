// The other end of a connection, for tests over 127.0.0.1. ScriptedPeer listens on a port that the
// system chose and runs a script on each accepted connection in a thread of its own; ConnectedPair
// is two connected sockets in this thread. Every blocking call of a peer ends: by data, by the
// other side closing, by destruction of the peer, or after kPeerPatience. No call sleeps.
//
//   ScriptedPeer peer([&](PeerConnection& c) { c.ReadPdu(); c.Send(reply); c.Close(); });
//   ... connect to 127.0.0.1, peer.port() ...
#ifndef VT_TESTS_HARNESS_PEER_H_
#define VT_TESTS_HARNESS_PEER_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "tests/harness/hex.h"

namespace vt::testing {

// kPeerPatience is how long a peer waits for anything: reached only when something is broken.
inline constexpr std::chrono::seconds kPeerPatience{20};

// PeerError is thrown by the calls of PeerConnection. A script need not catch it: ScriptedPeer
// records it.
class PeerError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// PeerConnection is one connected stream socket that it owns.
class PeerConnection {
 public:
  // PeerConnection takes over the descriptor.
  explicit PeerConnection(int fd);
  ~PeerConnection();
  PeerConnection(PeerConnection&& other) noexcept;
  PeerConnection(const PeerConnection&) = delete;
  PeerConnection& operator=(const PeerConnection&) = delete;
  PeerConnection& operator=(PeerConnection&&) = delete;

  // fd is the descriptor, or -1 after Close, Reset or Release.
  int fd() const { return fd_; }
  // Release hands the descriptor to the caller, who closes it.
  [[nodiscard]] int Release();

  // ReadPdu reads one whole message: 80 bytes, then as many as the 16 bits at offset 76 say.
  // Throws when the other side closes in between.
  Bytes ReadPdu();
  // ReadExactly reads size bytes, or throws.
  Bytes ReadExactly(std::size_t size);
  // ReadAll reads until the other side closes and returns what came, possibly nothing.
  Bytes ReadAll();

  void Send(const Bytes& bytes);
  // SendInPieces sends at most piece bytes at a time, each as a segment of its own.
  void SendInPieces(const Bytes& bytes, std::size_t piece);

  // Reset closes so that the other side sees a connection reset instead of an end of data.
  void Reset();
  // HalfClose ends the sending direction; reading goes on.
  void HalfClose();
  void Close();
  // WaitForClose reads and drops until the other side closes or resets, or throws.
  void WaitForClose();

 private:
  friend class ScriptedPeer;
  PeerConnection(int fd, int stop_fd) : fd_(fd), stop_fd_(stop_fd) {}

  enum class Wanted { kReading, kWriting };
  // Await returns when fd is ready, or throws: on a stop, or after kPeerPatience.
  void Await(Wanted wanted) const;
  // ReadSome appends up to limit bytes to out and returns how many came, 0 at the end of data.
  std::size_t ReadSome(std::size_t limit, Bytes& out);

  int fd_;
  int stop_fd_ = -1;  // readable once the owning ScriptedPeer ends
};

// ScriptedPeer accepts a number of connections, one after the other, and runs the script on each;
// the listener is closed to further ones after the last, and its port refuses them for as long as
// the peer lives. When the script returns, its connection is closed; closing with unread data
// resets the connection, as TCP does, so read first. What a script throws, waiting in vain for
// kPeerPatience included, is recorded and reported by the destructor with ADD_FAILURE. The
// destructor stops the thread: what has arrived is still handled, but the first call that would
// have to wait ends the script, and that is no failure. A test whose script holds expectations
// therefore calls Join first, which waits for the script's own end.
class ScriptedPeer {
 public:
  using Script = std::function<void(PeerConnection&)>;

  explicit ScriptedPeer(Script script, std::size_t connections = 1);
  ~ScriptedPeer();
  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  // port is the listening port, in host order.
  std::uint16_t port() const;
  // accepted is how many connections have been accepted so far.
  std::size_t accepted() const;
  // Join waits until the script has run on all connections (bounded by the patience of its calls).
  // Returns false when an error was recorded; the destructor reports it all the same.
  bool Join();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// UnusedPort returns a port of 127.0.0.1 that refuses connections. It is the same one for as long
// as the process lives, which holds it, so that no test beside this one gets it for a listener.
int UnusedPort();

// ConnectedPair is two ends of one TCP connection over 127.0.0.1, Nagle's delay off.
class ConnectedPair {
 public:
  ConnectedPair();

  // near is the end for the code under test, far the end that the test plays.
  PeerConnection& near() { return *near_; }
  PeerConnection& far() { return *far_; }

 private:
  std::unique_ptr<PeerConnection> near_;
  std::unique_ptr<PeerConnection> far_;
};

// OpenDescriptors returns the descriptors that this process has open now, without those of
// ScriptedPeers, whose threads open and close them in their own time. Compare two for a leak check.
std::set<int> OpenDescriptors();

}  // namespace vt::testing

#endif  // VT_TESTS_HARNESS_PEER_H_
