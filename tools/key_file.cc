#include "tools/key_file.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <string_view>

namespace vt::tools {
namespace {

// No key file is longer than 40 digits and a line end; whatever is, is something else.
constexpr std::size_t kReadLimit = 256;
constexpr std::size_t kHexDigits = 2 * kKeySize;

using KeyBytes = std::array<std::uint8_t, kKeySize>;

class OpenFile {
 public:
  explicit OpenFile(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~OpenFile() {
    if (fd_ >= 0) close(fd_);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  int fd() const { return fd_; }

 private:
  int fd_;
};

KeyFileError SystemError(const std::string& path) {
  return KeyFileError("cannot read the key file " + path + ": " + strerror(errno));
}

void WarnWhenOthersMayRead(int fd, const std::string& path) {
  struct stat status {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return;
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) == 0) return;
  (void)std::fprintf(stderr,
                     "warning: others may open the key file %s; chmod 600 would prevent it\n",
                     path.c_str());
}

// A pipe delivers in pieces: read until its end.
std::size_t ReadAll(int fd, std::array<char, kReadLimit>& buffer, const std::string& path) {
  std::size_t used = 0;
  while (used < buffer.size()) {
    const ssize_t got = read(fd, buffer.data() + used, buffer.size() - used);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw SystemError(path);
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
  }
  return used;
}

std::optional<std::uint8_t> HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<std::uint8_t>(digit - '0');
  if (digit >= 'a' && digit <= 'f') return static_cast<std::uint8_t>(digit - 'a' + 10);
  if (digit >= 'A' && digit <= 'F') return static_cast<std::uint8_t>(digit - 'A' + 10);
  return std::nullopt;
}

std::optional<KeyBytes> ParseHex(std::string_view text) {
  if (text.size() != kHexDigits) return std::nullopt;
  KeyBytes bytes{};
  for (std::size_t i = 0; i < kKeySize; ++i) {
    const auto high = HexDigit(text[2 * i]);
    const auto low = HexDigit(text[2 * i + 1]);
    if (!high || !low) return std::nullopt;
    bytes[i] = static_cast<std::uint8_t>(*high << 4 | *low);
  }
  return bytes;
}

std::optional<KeyBytes> ParseKey(std::string_view content) {
  if (content.size() == kKeySize) {
    KeyBytes bytes{};
    std::copy(content.begin(), content.end(), bytes.begin());
    return bytes;
  }
  const std::size_t last = content.find_last_not_of(" \t\r\n");
  return ParseHex(last == std::string_view::npos ? "" : content.substr(0, last + 1));
}

}  // namespace

Key::~Key() { explicit_bzero(bytes_.data(), bytes_.size()); }

Key ReadKeyFile(const std::string& path) {
  const OpenFile file(path);
  if (file.fd() < 0) throw SystemError(path);
  WarnWhenOthersMayRead(file.fd(), path);

  std::array<char, kReadLimit> buffer{};
  const std::size_t size = ReadAll(file.fd(), buffer, path);
  auto bytes = ParseKey({buffer.data(), size});
  explicit_bzero(buffer.data(), buffer.size());
  if (!bytes) {
    throw KeyFileError("the key file " + path +
                       " must hold 20 raw bytes or 40 hexadecimal digits, and nothing else");
  }
  const Key key(*bytes);
  explicit_bzero(bytes->data(), bytes->size());
  return key;
}

}  // namespace vt::tools
