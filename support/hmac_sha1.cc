// HMAC-SHA1 on libcrypto's low-level SHA-1. Those calls are deprecated in favour of an interface
// that allocates and cannot keep its state in a plain record, which ours must be: a keyed context
// is copied for every message. The warning is switched off here and nowhere else.
#define OPENSSL_SUPPRESS_DEPRECATED

#include <openssl/sha.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "vtapi/hmac.h"

#include "support/bytes.h"

namespace {

static_assert(sizeof(SHA_CTX) == sizeof(hmac_context::hash_state), "the record is fixed");
static_assert(alignof(SHA_CTX) <= alignof(hmac_context), "the state lies at offset 0");
static_assert(SHA_DIGEST_LENGTH == VT_DIGEST_SIZE && SHA_CBLOCK == VT_HASH_BLOCK_SIZE);

constexpr std::uint8_t kInnerPad = 0x36;
constexpr std::uint8_t kOuterPad = 0x5C;

using vt::support::LoadHost;

using Block = std::array<std::uint8_t, VT_HASH_BLOCK_SIZE>;
using Digest = std::array<std::uint8_t, VT_DIGEST_SIZE>;

SHA_CTX* State(hmac_context* context) { return reinterpret_cast<SHA_CTX*>(context->hash_state); }

// Lengths are 16 bits wide at this boundary, whatever wider number a caller passes.
std::size_t Length16(std::uint32_t len) { return len & 0xFFFFU; }

// A keyed state has digested one block and buffers nothing: its buffer has room for the state of
// the outer hash, digested ahead, so that each message is spared a block. The tag tells such a
// state from one that was made otherwise.
struct PreparedOuter {
  std::uint32_t tag;
  SHA_LONG h[5];
};
static_assert(sizeof(PreparedOuter) <= sizeof(SHA_CTX::data));

constexpr std::uint32_t kPrepared = 0x4F555452;
constexpr SHA_LONG kOneBlockInBits = 8 * VT_HASH_BLOCK_SIZE;

// BitsOf is how many bits a state has digested or buffers.
std::uint64_t BitsOf(const SHA_CTX& state) {
  return (std::uint64_t{state.Nh} << 32) | std::uint64_t{state.Nl};
}

void Prepare(SHA_CTX* keyed, const std::uint8_t* outer_pad) {
  SHA_CTX outer;
  SHA1_Init(&outer);
  SHA1_Update(&outer, outer_pad, VT_HASH_BLOCK_SIZE);
  const PreparedOuter prepared = {kPrepared, {outer.h0, outer.h1, outer.h2, outer.h3, outer.h4}};
  std::memcpy(keyed->data, &prepared, sizeof prepared);
}

// BeginOuter makes the state that has digested the outer pad of a keyed context.
void BeginOuter(const hmac_context& keyed, SHA_CTX* state) {
  const auto inner = LoadHost<SHA_CTX>(keyed.hash_state);
  PreparedOuter prepared;
  std::memcpy(&prepared, inner.data, sizeof prepared);
  SHA1_Init(state);
  if (prepared.tag != kPrepared || BitsOf(inner) != kOneBlockInBits) {
    SHA1_Update(state, keyed.outer_pad, sizeof keyed.outer_pad);
    return;
  }
  state->h0 = prepared.h[0];
  state->h1 = prepared.h[1];
  state->h2 = prepared.h[2];
  state->h3 = prepared.h[3];
  state->h4 = prepared.h[4];
  state->Nl = kOneBlockInBits;
}

void Update(SHA_CTX* state, const void* data, std::uint32_t len) {
  if (data != nullptr && Length16(len) != 0) SHA1_Update(state, data, Length16(len));
}

}  // namespace

extern "C" {

void hmac_shainit(hmac_context* context, const void* key, std::uint32_t key_len) {
  std::size_t len = Length16(key_len);
  if (key == nullptr || len == 0) return;  // Deliberate: the context stays as it was.
  Digest hashed_key;
  if (len > VT_HASH_BLOCK_SIZE) {
    SHA_CTX state;
    SHA1_Init(&state);
    SHA1_Update(&state, key, len);
    SHA1_Final(hashed_key.data(), &state);
    key = hashed_key.data();
    len = hashed_key.size();
  }
  Block inner{};
  std::memset(context->outer_pad, 0, sizeof context->outer_pad);
  std::memcpy(inner.data(), key, len);
  std::memcpy(context->outer_pad, key, len);
  for (std::size_t i = 0; i < inner.size(); ++i) {
    inner[i] ^= kInnerPad;
    context->outer_pad[i] ^= kOuterPad;
  }
  SHA1_Init(State(context));
  SHA1_Update(State(context), inner.data(), inner.size());
  Prepare(State(context), context->outer_pad);
}

void hmac_shaupdate(hmac_context* context, const void* data, std::uint32_t len) {
  Update(State(context), data, len);
}

void hmac_shafinal(std::uint8_t* digest, hmac_context* context) {
  Digest inner;
  SHA1_Final(inner.data(), State(context));
  SHA1_Init(State(context));
  SHA1_Update(State(context), context->outer_pad, sizeof context->outer_pad);
  SHA1_Update(State(context), inner.data(), inner.size());
  SHA1_Final(digest, State(context));
}

void hmac_sha(const void* key, std::uint32_t key_len, const void* data, std::uint32_t len,
              std::uint8_t* digest) {
  hmac_context context{};
  hmac_shainit(&context, key, key_len);
  hmac_shaupdate(&context, data, len);
  hmac_shafinal(digest, &context);
}

void hmac_sha_msg(const hmac_context* context, const void* data, std::uint32_t len,
                  std::uint8_t* digest) {
  const hmac_context none{};
  const hmac_context& keyed = context != nullptr ? *context : none;
  auto state = LoadHost<SHA_CTX>(keyed.hash_state);
  Update(&state, data, len);
  Digest inner;
  SHA1_Final(inner.data(), &state);
  BeginOuter(keyed, &state);
  SHA1_Update(&state, inner.data(), inner.size());
  SHA1_Final(digest, &state);
}

void sha_hash(const void* first, std::uint32_t first_len, const void* second,
              std::uint32_t second_len, std::uint8_t* digest) {
  SHA_CTX state;
  SHA1_Init(&state);
  Update(&state, first, first_len);
  Update(&state, second, second_len);
  SHA1_Final(digest, &state);
}

}  // extern "C"
