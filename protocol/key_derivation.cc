// Session keys and nonces, both HMAC-SHA1 under a shared secret.
#include "vtapi/pdu.h"

#include "support/log.h"

extern "C" {

int voltaris_utl_composeKey(const void* secret, std::uint32_t secret_len, const void* id, void* out,
                            std::int32_t out_size) {
  if (out_size < VT_DIGEST_SIZE) {
    VT_LOG(kWarn, "Insufficient buffer");
    return 0;
  }
  hmac_sha(secret, secret_len, id, VT_IDENTITY_SIZE, static_cast<std::uint8_t*>(out));
  return VT_DIGEST_SIZE;
}

int voltaris_utl_composeNonce(const void* secret, std::uint32_t secret_len, const void* data,
                              std::uint32_t data_len, void* out) {
  hmac_sha(secret, secret_len, data, data_len, static_cast<std::uint8_t*>(out));
  return VT_DIGEST_SIZE;
}

}  // extern "C"
