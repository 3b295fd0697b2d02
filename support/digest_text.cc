// Digests and hardware addresses as text.
#include <array>
#include <cstdio>

#include "vtapi/hmac.h"

#include "support/hexadecimal.h"
#include "support/log.h"

extern "C" {

void sha1DigestToString(char* text, const std::uint8_t* digest) {
  vt::support::WriteHexDigits(text, {digest, VT_DIGEST_SIZE});
  text[std::size_t{2} * VT_DIGEST_SIZE] = '\0';
}

int macAddressToString(char* text, const std::uint8_t* mac) {
  constexpr std::size_t kTextSize = 18;
  (void)std::snprintf(text, kTextSize, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2],
                      mac[3], mac[4], mac[5]);
  return 0;
}

void voltaris_dump_digest(const std::uint8_t* digest) {
  std::array<char, 2 * VT_DIGEST_SIZE + 1> text;
  sha1DigestToString(text.data(), digest);
  VT_LOG(kTrace, "digest: %s", text.data());
}

}  // extern "C"
