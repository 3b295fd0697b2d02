#include "tools/key_material.h"

#include <string.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string>

#include "vtapi/pdu.h"

#include "files/core_files.h"
#include "tools/exit_code.h"
#include "tools/hex_text.h"
#include "tools/unwrap.h"

namespace vt::tools {
namespace {

using KeyBytes = std::array<std::uint8_t, voltaris::Key::kSize>;

// Digits wipes what it has read.
Secret Digits(KeyBytes& key) {
  constexpr std::string_view digits = "0123456789abcdef";
  Secret text(2 * key.size() + 1);
  for (std::size_t i = 0; i < key.size(); ++i) {
    text.bytes()[2 * i] = digits[key[i] >> 4];
    text.bytes()[2 * i + 1] = digits[key[i] & 0x0F];
  }
  text.bytes().back() = '\n';
  explicit_bzero(key.data(), key.size());
  return text;
}

// WipedKey is overwritten when it ends.
struct WipedKey {
  KeyBytes bytes{};

  WipedKey() = default;
  WipedKey(const WipedKey&) = delete;
  WipedKey& operator=(const WipedKey&) = delete;
  ~WipedKey() { explicit_bzero(bytes.data(), bytes.size()); }
};

bool TakeRaw(std::string_view content, KeyBytes& key) {
  std::ranges::copy(content, key.begin());
  return true;
}

bool TakeDigits(std::string_view content, KeyBytes& key) {
  if (content.find_last_not_of(" \t\r\n") != 2 * key.size() - 1) return false;
  for (std::size_t i = 0; i < key.size(); ++i) {
    const int high = HexDigit(content[2 * i]);
    const int low = HexDigit(content[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    key[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return true;
}

// IsWaitedFor tells whether reading may have to wait for somebody: for the writer of a pipe. The
// library's own reader would do so for ever, and where signals are blocked none would end it.
bool IsWaitedFor(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

}  // namespace

voltaris::Key ReadKeyFile(const std::string& path, std::chrono::steady_clock::time_point deadline) {
  if (!IsWaitedFor(path)) {
    files::ForbidCoreFiles();
    return Unwrap(voltaris::Key::from_file(path, voltaris::KeyFilePolicy::kRefuse));
  }
  // More than any key with its line end has.
  constexpr std::size_t limit = 256;
  const Secret content = ReadSecretBytes(path, limit, deadline);
  WipedKey key;
  const bool is_key = content.text().size() == key.bytes.size()
                          ? TakeRaw(content.text(), key.bytes)
                          : content.text().size() < limit && TakeDigits(content.text(), key.bytes);
  if (is_key) return voltaris::Key::from_bytes(key.bytes);
  throw Failure(kExitUsage, "the key file " + path +
                                " must hold 20 raw bytes or 40 hexadecimal digits, and nothing "
                                "else");
}

Secret RandomKey() {
  files::ForbidCoreFiles();
  KeyBytes key{};
  // So few bytes come at once, or not at all.
  const ssize_t got = getrandom(key.data(), key.size(), 0);
  if (got != static_cast<ssize_t>(key.size())) {
    throw Failure(kExitUsage, std::string("the system has no random numbers: ") + strerror(errno));
  }
  return Digits(key);
}

Secret DerivedKey(std::string_view passphrase, const voltaris::DeviceId& identity) {
  KeyBytes key{};
  voltaris_utl_composeKey(passphrase.data(), static_cast<std::uint32_t>(passphrase.size()),
                          identity.bytes.data(), key.data(), static_cast<std::int32_t>(key.size()));
  return Digits(key);
}

}  // namespace vt::tools
