// The key with which messages are signed, read from a file so that it never stands on a command
// line, where every user of the machine could read it. voltaris and voltaris-node share this.
#ifndef VT_TOOLS_KEY_FILE_H_
#define VT_TOOLS_KEY_FILE_H_

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace vt::tools {

inline constexpr std::size_t kKeySize = 20;

// KeyFileError says why a file gave no key; its text names the file.
class KeyFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Key is 20 bytes that are wiped when it ends.
class Key {
 public:
  explicit Key(const std::array<std::uint8_t, kKeySize>& bytes) : bytes_(bytes) {}
  Key(const Key&) = default;
  Key& operator=(const Key&) = default;
  ~Key();

  const std::uint8_t* data() const { return bytes_.data(); }

 private:
  std::array<std::uint8_t, kKeySize> bytes_;
};

// ReadKeyFile reads a file of 20 raw bytes, or of 40 hexadecimal digits that blanks or a newline
// may follow. A file that others than its owner may open is used, with a warning on standard error.
Key ReadKeyFile(const std::string& path);

}  // namespace vt::tools

#endif  // VT_TOOLS_KEY_FILE_H_
