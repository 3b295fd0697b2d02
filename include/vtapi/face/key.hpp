// The key with which messages are signed. It comes from a file, so that it never stands on a
// command line where every user of the machine could read it, and it is wiped as soon as nobody
// holds it.
#ifndef VTAPI_FACE_KEY_HPP
#define VTAPI_FACE_KEY_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "vtapi/face/error.hpp"

namespace voltaris {

namespace detail {

// Wipe overwrites bytes also where the compiler sees that nobody reads them again.
inline void Wipe(void* bytes, std::size_t size) {
  auto* at = static_cast<volatile unsigned char*>(bytes);
  while (size-- > 0) *at++ = 0;
}

// WipedBuffer is a buffer for secrets.
template <std::size_t size>
struct WipedBuffer {
  std::array<char, size> bytes{};

  WipedBuffer() = default;
  WipedBuffer(const WipedBuffer&) = delete;
  WipedBuffer& operator=(const WipedBuffer&) = delete;
  ~WipedBuffer() { Wipe(bytes.data(), bytes.size()); }
};

// OpenFile is a file that is read and closed.
class OpenFile {
 public:
  explicit OpenFile(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
  ~OpenFile() {
    if (fd_ >= 0) close(fd_);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  int fd() const { return fd_; }

  // Read reads until the end or until the buffer is full, for a pipe delivers in pieces; -1 with
  // errno set when it fails.
  std::ptrdiff_t Read(std::span<char> buffer) const {
    std::size_t used = 0;
    while (used < buffer.size()) {
      const ssize_t got = read(fd_, buffer.data() + used, buffer.size() - used);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) return -1;
      if (got == 0) break;
      used += static_cast<std::size_t>(got);
    }
    return static_cast<std::ptrdiff_t>(used);
  }

 private:
  int fd_;
};

}  // namespace detail

// KeyFilePolicy is what happens to a key file that is not its reader's alone.
enum class KeyFilePolicy { kRefuse, kWarn };

// Key is 20 bytes that are wiped when it ends and where it is moved from. It cannot be copied,
// printed or compared.
class Key {
 public:
  static constexpr std::size_t kSize = 20;

  // from_file reads a file of 20 raw bytes, or of 40 hexadecimal digits that blanks or a line end
  // may follow. A regular file that others than its owner may open, or whose owner is neither this
  // user nor root, is refused or, with kWarn, used, and a text that says so is stored at *warning
  // (which may be null). Pipes are not looked at.
  static Expected<Key> from_file(const std::string& path,
                                 KeyFilePolicy policy = KeyFilePolicy::kRefuse,
                                 std::string* warning = nullptr) {
    const detail::OpenFile file(path);
    if (file.fd() < 0) return Unreadable(path);
    if (std::string fault = FaultOf(file.fd(), path); !fault.empty()) {
      if (policy == KeyFilePolicy::kRefuse) {
        return detail::MakeError(Cause::kKeyPermissions, {fault});
      }
      if (warning != nullptr) *warning = std::move(fault);
    }
    detail::WipedBuffer<kReadLimit> buffer;
    const std::ptrdiff_t size = file.Read(buffer.bytes);
    if (size < 0) return Unreadable(path);
    Key key;
    if (!key.Parse({buffer.bytes.data(), static_cast<std::size_t>(size)})) {
      return detail::MakeError(
          Cause::kKeyContent,
          {"the key file ", path,
           " must hold 20 raw bytes or 40 hexadecimal digits, and nothing else"});
    }
    return Expected<Key>(std::move(key));
  }

  // from_bytes copies a key that the application has by other means; wiping those bytes is its own
  // affair.
  static Key from_bytes(std::span<const std::uint8_t, kSize> bytes) {
    Key key;
    std::copy(bytes.begin(), bytes.end(), key.bytes_.begin());
    key.present_ = true;
    return key;
  }

  Key(Key&& other) noexcept : bytes_(other.bytes_), present_(other.present_) { other.Clear(); }
  Key& operator=(Key&& other) noexcept {
    if (this == &other) return *this;
    bytes_ = other.bytes_;
    present_ = other.present_;
    other.Clear();
    return *this;
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() { Clear(); }

  // present tells whether there is a key: not in one that was moved from.
  bool present() const { return present_; }

  // secret_bytes is what to sign with. Do not keep it.
  std::span<const std::uint8_t, kSize> secret_bytes() const { return bytes_; }

  template <class Stream>
  friend Stream& operator<<(Stream&, const Key&) = delete;
  friend bool operator==(const Key&, const Key&) = delete;

 private:
  // No key file is longer than 40 digits and a line end; whatever is, is something else.
  static constexpr std::size_t kReadLimit = 256;

  Key() = default;

  static Error Unreadable(const std::string& path) {
    const int number = errno;
    return detail::MakeError(
        Cause::kKeyFile, {"cannot read the key file ", path, ": ", std::strerror(number)}, number);
  }

  // FaultOf says what is wrong with the owner or the mode, or nothing.
  static std::string FaultOf(int fd, const std::string& path) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return {};
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
      return detail::Join({"others may open the key file ", path, "; chmod 600 would prevent it"});
    }
    if (status.st_uid != geteuid() && status.st_uid != 0) {
      return detail::Join({"the key file ", path, " belongs to another user, who may change it"});
    }
    return {};
  }

  static int DigitOf(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
  }

  bool Parse(std::string_view content) {
    if (content.size() == kReadLimit) return false;
    present_ = content.size() == kSize ? TakeRaw(content) : TakeDigits(content);
    return present_;
  }

  bool TakeRaw(std::string_view content) {
    std::memcpy(bytes_.data(), content.data(), kSize);
    return true;
  }

  bool TakeDigits(std::string_view content) {
    const std::size_t last = content.find_last_not_of(" \t\r\n");
    if (last != 2 * kSize - 1) return false;
    for (std::size_t i = 0; i < kSize; ++i) {
      const int high = DigitOf(content[2 * i]);
      const int low = DigitOf(content[2 * i + 1]);
      if (high < 0 || low < 0) return false;
      bytes_[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    return true;
  }

  void Clear() {
    detail::Wipe(bytes_.data(), bytes_.size());
    present_ = false;
  }

  std::array<std::uint8_t, kSize> bytes_{};
  bool present_ = false;
};

}  // namespace voltaris

#endif  // VTAPI_FACE_KEY_HPP
