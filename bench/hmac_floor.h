// The floor below which no reply can be checked and no query be signed: the HMAC-SHA1 of its bytes
// with both states of the key prepared, straight from libcrypto.
#ifndef VT_BENCH_HMAC_FLOOR_H_
#define VT_BENCH_HMAC_FLOOR_H_

#define OPENSSL_SUPPRESS_DEPRECATED

#include <openssl/sha.h>

#include <array>
#include <cstdint>
#include <span>

namespace vt::bench {

class HmacFloor {
 public:
  using Digest = std::array<std::uint8_t, SHA_DIGEST_LENGTH>;

  explicit HmacFloor(std::span<const std::uint8_t> key) {
    Prepare(inner_, key, 0x36);
    Prepare(outer_, key, 0x5C);
  }

  void Compute(std::span<const std::uint8_t> message, Digest& digest) const {
    SHA_CTX state = inner_;
    SHA1_Update(&state, message.data(), message.size());
    SHA1_Final(digest.data(), &state);
    state = outer_;
    SHA1_Update(&state, digest.data(), digest.size());
    SHA1_Final(digest.data(), &state);
  }

 private:
  // Keys are at most a block long.
  static void Prepare(SHA_CTX& state, std::span<const std::uint8_t> key, std::uint8_t pad) {
    std::array<std::uint8_t, SHA_CBLOCK> block{};
    for (std::size_t i = 0; i < block.size(); ++i) {
      block[i] = static_cast<std::uint8_t>((i < key.size() ? key[i] : 0) ^ pad);
    }
    SHA1_Init(&state);
    SHA1_Update(&state, block.data(), block.size());
  }

  SHA_CTX inner_;
  SHA_CTX outer_;
};

}  // namespace vt::bench

#endif  // VT_BENCH_HMAC_FLOOR_H_
