// Very many nodes in a process of their own, each of which behaves in one of a few ways. One thread
// with epoll serves them all.
#ifndef VT_TESTS_TRUST_CROWD_H_
#define VT_TESTS_TRUST_CROWD_H_

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vt::testing {

enum class Manner : std::uint8_t {
  kAnswers,      // reads the query, sends a reply of one row and closes
  kRefuses,      // does not listen
  kSaysNothing,  // reads the query and nothing else
  kDrips,        // reads the query and sends a byte of a reply each second
  kResets,       // reads the query and resets the connection
};
inline constexpr std::size_t kManners = 5;

// Crowd is the process, which ends with its maker. Nodes of one manner share some ports.
class Crowd {
 public:
  Crowd();
  ~Crowd();
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

  // PortOf gives the port of the n-th node of a manner.
  [[nodiscard]] std::uint16_t PortOf(Manner manner, std::size_t n) const;

  // queries counts those that have arrived whole.
  [[nodiscard]] std::size_t queries() const { return queries_->load(); }

 private:
  std::array<std::vector<std::uint16_t>, kManners> ports_;
  std::atomic<std::size_t>* queries_;  // shared with the process
  pid_t pid_ = -1;
};

}  // namespace vt::testing

#endif  // VT_TESTS_TRUST_CROWD_H_
