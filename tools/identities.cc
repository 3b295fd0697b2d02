#include "tools/identities.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "vtapi/identifiers.h"

#include "recording/quoted_text.h"
#include "tools/exit_code.h"
#include "tools/hex_text.h"
#include "tools/unwrap.h"

namespace vt::tools {
namespace {

constexpr std::size_t kMacSize = 6;
using Mac = std::array<std::uint8_t, kMacSize>;

// ReadMac reads pairs of digits; width is that of a pair with what follows it.
bool ReadMac(std::string_view text, std::size_t width, Mac& mac) {
  if (text.size() != kMacSize * width - (width - 2)) return false;
  for (std::size_t i = 0; i < kMacSize; ++i) {
    const int high = HexDigit(text[i * width]);
    const int low = HexDigit(text[i * width + 1]);
    if (high < 0 || low < 0) return false;
    mac[i] = static_cast<std::uint8_t>(high << 4 | low);
    const bool has_mark = width > 2 && i + 1 < kMacSize;
    if (has_mark && text[i * width + 2] != ':' && text[i * width + 2] != '-') return false;
  }
  return true;
}

bool IsPrintable(char letter) { return letter > 0x20 && letter < 0x7F; }

}  // namespace

std::string RandomIdentity() {
  std::string identity(VT_IDENTITY_SIZE, '0');
  voltaris_utl_createUuid(identity.data());
  return identity;
}

std::string IdentityOfMac(std::string_view mac) {
  Mac bytes{};
  if (!ReadMac(mac, 2, bytes) && !ReadMac(mac, 3, bytes)) {
    throw Failure(kExitUsage,
                  recording::Quote(mac) + " is no hardware address such as 00:11:22:33:44:55");
  }
  std::string identity(VT_IDENTITY_SIZE, '0');
  voltaris_utl_createUuidFromMac(identity.data(), bytes.data());
  return identity;
}

std::string IdentityOfParts(const std::array<std::string, 4>& parts) {
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (parts[i].size() == kIdentityPartSizes[i] && std::ranges::all_of(parts[i], IsPrintable)) {
      continue;
    }
    throw Failure(kExitUsage, "part " + std::to_string(i + 1) + " must have " +
                                  std::to_string(kIdentityPartSizes[i]) +
                                  " characters without blanks, not " + recording::Quote(parts[i]));
  }
  std::string identity(VT_IDENTITY_SIZE, '0');
  voltaris_utl_createUuidFromDetails(identity.data(), parts[0].data(), parts[1].data(),
                                     parts[2].data(), parts[3].data());
  return identity;
}

voltaris::DeviceId ParseIdentity(std::string_view text) {
  return Unwrap(voltaris::DeviceId::from_text(text));
}

voltaris::Identity ReadIdentityFile(const std::string& path,
                                    std::chrono::steady_clock::time_point deadline) {
  // What is a little too long is told as such by the identity.
  const Secret secret = ReadSecretFile(path, 2 * voltaris::Identity::kSize, deadline);
  voltaris::Expected<voltaris::Identity> identity = voltaris::Identity::from_text(secret.text());
  if (!identity) throw Failure(kExitUsage, "cannot use " + path + ": " + identity.error().text);
  return *identity;
}

voltaris::DeviceId DeviceOf(const voltaris::Identity& identity) {
  voltaris::DeviceId device;
  std::ranges::copy(identity.text().substr(0, device.bytes.size()), device.bytes.begin());
  return device;
}

}  // namespace vt::tools
