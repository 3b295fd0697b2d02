// Files with secrets: written for their owner alone, and read only when nobody else could have.
#ifndef VT_TOOLS_SECRET_FILE_H_
#define VT_TOOLS_SECRET_FILE_H_

#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vt::tools {

// Secret is bytes that are overwritten when nobody needs them any more. It cannot be copied.
class Secret {
 public:
  explicit Secret(std::size_t size) : bytes_(size) {}
  Secret(Secret&& other) noexcept : bytes_(std::move(other.bytes_)) {}
  Secret& operator=(Secret&&) = delete;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret();

  std::span<char> bytes() { return bytes_; }
  std::string_view text() const { return {bytes_.data(), bytes_.size()}; }
  // Shorten keeps the first bytes and overwrites the others.
  void Shorten(std::size_t size);

 private:
  std::vector<char> bytes_;  // never grows, so that no copy is left behind
};

// WriteSecretFile makes a file of mode 600 with that content. It throws Failure (usage), also when
// there is something of that name: no secret is ever overwritten.
void WriteSecretFile(const std::string& path, std::string_view content);

// kPipePatience is how long somebody may take to write a secret into a pipe.
inline constexpr std::chrono::seconds kPipePatience{5};

// ReadSecretBytes returns what a file holds, or as much of it as limit. A regular file that others
// than its owner may open, or whose owner is neither this user nor root, throws Failure (usage),
// and so does a pipe that is not written before the deadline; a signal that was caught ends the
// waiting (tools/stop_signals.h). From then on this process leaves no core file.
Secret ReadSecretBytes(const std::string& path, std::size_t limit,
                       std::chrono::steady_clock::time_point deadline);

// ReadSecretFile returns them without the one line end behind them. A file that is empty or larger
// than most bytes throws Failure (usage), too, whose text tells nothing of the content.
Secret ReadSecretFile(const std::string& path, std::size_t most,
                      std::chrono::steady_clock::time_point deadline =
                          std::chrono::steady_clock::now() + kPipePatience);

}  // namespace vt::tools

#endif  // VT_TOOLS_SECRET_FILE_H_
