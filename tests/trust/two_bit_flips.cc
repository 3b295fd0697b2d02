// All changes of two bits in one signed message: not one of them may pass for authentic. Run by
// scripts/flip-bits; the ordinary tests do the same with a smaller message.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "vtapi.h"

#include "tests/trust/trust_support.h"

namespace {

using namespace vt::testing;

constexpr std::size_t kLargest = 1400;

struct Tally {
  std::uint64_t pairs = 0;
  std::uint64_t undetected = 0;
};

// FlippedMessage is a signed image whose bits can be flipped, and the library's check of its
// digest.
class FlippedMessage {
 public:
  explicit FlippedMessage(std::size_t size) : wire_(ReplyOfSize(size)), key_(Keyed(SessionKey())) {
    event_.raw_valid = 1;
    event_.raw = wire_.data();
    event_.raw_len = static_cast<std::uint32_t>(wire_.size());
    event_.raw_hdr = wire_.data() + kMessageHeaderOffset;
  }

  std::size_t bits() const { return wire_.size() * 8; }
  void Flip(std::size_t bit) { wire_[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8); }
  [[nodiscard]] bool Accepted() { return vtn_validateMessageHeader(&event_, &key_) == 1; }

 private:
  Bytes wire_;
  Event event_ = {};
  hmac_context key_;
};

// Try takes the pairs whose first bit is number part of every parts.
Tally Try(std::size_t size, std::size_t part, std::size_t parts, bool show) {
  FlippedMessage message(size);
  Tally tally;
  const std::size_t begin = kDigestOffset * 8;
  const std::size_t end = message.bits();
  for (std::size_t first = begin + part; first < end; first += parts) {
    message.Flip(first);
    for (std::size_t second = first + 1; second < end; ++second) {
      message.Flip(second);
      ++tally.pairs;
      if (message.Accepted()) {
        ++tally.undetected;
        std::fprintf(stderr, "undetected: bits %zu and %zu\n", first, second);
      }
      message.Flip(second);
    }
    message.Flip(first);
    // Of the pairs that are left, the share of one triangle in the other.
    const double left = static_cast<double>(end - first) / static_cast<double>(end - begin);
    if (show) std::fprintf(stderr, "\r%5.1f %%", 100 * (1 - left * left));
  }
  if (show) std::fprintf(stderr, "\r       \r");
  return tally;
}

// TryAll shares the pairs among processes. False when one of them did not finish.
bool TryAll(std::size_t size, std::size_t jobs, Tally& sum) {
  const bool terminal = isatty(STDERR_FILENO) != 0;
  std::vector<int> results;
  std::vector<pid_t> children;
  for (std::size_t part = 0; part < jobs; ++part) {
    int ends[2];
    if (pipe(ends) != 0) return false;
    const pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) {
      const Tally tally = Try(size, part, jobs, terminal && part == 0);
      const bool told = write(ends[1], &tally, sizeof tally) == sizeof tally;
      _exit(told ? 0 : 1);
    }
    close(ends[1]);
    results.push_back(ends[0]);
    children.push_back(child);
  }
  bool complete = true;
  for (std::size_t part = 0; part < jobs; ++part) {
    Tally tally;
    if (read(results[part], &tally, sizeof tally) != sizeof tally) complete = false;
    close(results[part]);
    int status = 0;
    if (waitpid(children[part], &status, 0) < 0 || status != 0) complete = false;
    sum.pairs += tally.pairs;
    sum.undetected += tally.undetected;
  }
  return complete;
}

bool Number(const char* text, std::size_t least, std::size_t most, std::size_t& number) {
  char* end = nullptr;
  number = std::strtoul(text, &end, 10);
  return *text != '\0' && *end == '\0' && number >= least && number <= most;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t bytes = kLargest;
  std::size_t jobs = 1;
  bool understood = argc % 2 == 1;
  for (int i = 1; understood && i + 1 < argc; i += 2) {
    const std::string option = argv[i];
    if (option == "--bytes") {
      understood = Number(argv[i + 1], kSmallestReplyOfSize, kLargest, bytes);
    } else {
      understood = option == "--jobs" && Number(argv[i + 1], 1, 64, jobs);
    }
  }
  if (!understood) {
    std::fprintf(stderr, "usage: two_bit_flips [--bytes %zu..%zu] [--jobs 1..64]\n",
                 kSmallestReplyOfSize, kLargest);
    return 2;
  }
  setLogLevel(kSilent);
  if (!FlippedMessage(bytes).Accepted()) {
    std::fprintf(stderr, "two_bit_flips: the message is not accepted before any flip\n");
    return 1;
  }
  Tally sum;
  if (!TryAll(bytes, jobs, sum)) {
    std::fprintf(stderr, "two_bit_flips: a part did not finish\n");
    return 1;
  }
  const std::size_t bits = (bytes - kDigestOffset) * 8;
  std::printf("%llu pairs of flipped bits in a message of %zu bytes, %llu undetected\n",
              static_cast<unsigned long long>(sum.pairs), bytes,
              static_cast<unsigned long long>(sum.undetected));
  if (sum.pairs != std::uint64_t{bits} * (bits - 1) / 2) {
    std::fprintf(stderr, "two_bit_flips: those are not all pairs\n");
    return 1;
  }
  return sum.undetected == 0 ? 0 : 1;
}
