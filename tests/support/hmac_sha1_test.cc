#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace {

using namespace vt::testing;

using Digest = std::array<std::uint8_t, VT_DIGEST_SIZE>;

// What every hash of a context of all zeros over "abc" comes to. It is no HMAC of anything; it
// pins that nothing but zeros and the message went in.
const char kZeroContextAbc[] = "7829118c1ded48abac3a4d78c99ebc0652c37ba8";
const char kKeyAbc[] = "4fd0b215276ef12f2b3e4c8ecac2811498b656fc";  // HMAC("key", "abc")
const char kSha1Abc[] = "a9993e364706816aba3e25717850c26c9cd0d89d";
const char kSha1Empty[] = "da39a3ee5e6b4b0d3255bfef95601890afd80709";

std::uint32_t Size(const Bytes& bytes) { return static_cast<std::uint32_t>(bytes.size()); }

Digest Hmac(const Bytes& key, const Bytes& data) {
  Digest digest{};
  hmac_sha(key.data(), Size(key), data.data(), Size(data), digest.data());
  return digest;
}

Digest HmacMsg(const hmac_context* context, const Bytes& data) {
  Digest digest{};
  hmac_sha_msg(context, data.data(), Size(data), digest.data());
  return digest;
}

Digest ShaHash(const void* first, std::uint32_t first_len, const void* second,
               std::uint32_t second_len) {
  Digest digest{};
  sha_hash(first, first_len, second, second_len, digest.data());
  return digest;
}

hmac_context KeyedContext(const Bytes& key) {
  hmac_context context = {};
  hmac_shainit(&context, key.data(), Size(key));
  return context;
}

// DirtyStack leaves non-zero bytes where the next call's local variables come to lie.
[[gnu::noinline]] void DirtyStack(std::uint8_t byte) {
  volatile std::uint8_t block[4096];
  for (auto& b : block) b = byte;
}

#define EXPECT_DIGEST(hex, digest) \
  EXPECT_TRUE(SameBytes(Hex(hex), (digest).data(), (digest).size()))

TEST(HmacSha1, StandardTestVectorsAreMet) {
  const struct {
    Bytes key;
    Bytes data;
    const char* digest;
  } vectors[] = {
      {Hex("20*0b"), Text("Hi There"), "b617318655057264e28bc0b6fb378c8ef146be00"},
      {Text("Jefe"), Text("what do ya want for nothing?"),
       "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
      {Hex("20*aa"), Hex("50*dd"), "125d7342b9ac11cd91a39af48aa17b4f63f175d3"},
      {Hex("01020304 05060708 090a0b0c 0d0e0f10 11121314 15161718 19"), Hex("50*cd"),
       "4c9007f4026250c6bc8414f9bf50c86c2d7235da"},
      {Hex("20*0c"), Text("Test With Truncation"), "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04"},
      {Hex("80*aa"), Text("Test Using Larger Than Block-Size Key - Hash Key First"),
       "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
      {Hex("80*aa"),
       Text("Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data"),
       "e8e99d0f45237d786d6bbaa7965c7808bbff1a91"},
  };
  for (const auto& vector : vectors) {
    EXPECT_DIGEST(vector.digest, Hmac(vector.key, vector.data));
    const hmac_context context = KeyedContext(vector.key);
    EXPECT_DIGEST(vector.digest, HmacMsg(&context, vector.data));
  }
}

TEST(HmacSha1, KeyAboveABlockGivesTheHmacOfItsHash) {
  const Bytes key = Hex("65*6b");
  const Bytes hash = Hex("e5f412114bfbd9c0a54966b9cbe0b4bd73568281");
  EXPECT_DIGEST("5a862526949f6b70acd6243269508b526c52d2a0", Hmac(key, Text("abc")));
  EXPECT_EQ(Hmac(hash, Text("abc")), Hmac(key, Text("abc")));
}

TEST(HmacSha1, KeyOfExactlyABlockIsNotHashed) {
  EXPECT_DIGEST("7c44f6972fe89fcc6df413921b6e3616adffa964", Hmac(Hex("64*6b"), Text("abc")));
}

TEST(HmacSha1, OuterPadIsTheZeroPaddedKeyXored) {
  const hmac_context context = KeyedContext(Hex("00 5c ff"));
  EXPECT_BYTES(context.outer_pad, sizeof context.outer_pad, "5c 00 a3 61*5c");
}

TEST(HmacSha1, NullKeyOrZeroLengthLeavesTheContextUntouched) {
  const Bytes before(sizeof(hmac_context), 0xA5);
  hmac_context context;
  std::memcpy(&context, before.data(), sizeof context);
  hmac_shainit(&context, nullptr, 20);
  EXPECT_TRUE(SameBytes(before, &context, sizeof context));
  hmac_shainit(&context, "key", 0);
  EXPECT_TRUE(SameBytes(before, &context, sizeof context));
  hmac_shainit(&context, "key", 0x10000);
  EXPECT_TRUE(SameBytes(before, &context, sizeof context));
}

TEST(HmacSha1, ContextOfAllZerosStillYieldsADigest) {
  hmac_context context = {};
  hmac_shainit(&context, nullptr, 20);
  EXPECT_BYTES(&context, sizeof context, "160*00");
  EXPECT_DIGEST(kZeroContextAbc, HmacMsg(&context, Text("abc")));
  EXPECT_BYTES(&context, sizeof context, "160*00");
}

TEST(HmacSha1, NullContextCountsAsAllZeros) {
  DirtyStack(0xA5);
  EXPECT_DIGEST(kZeroContextAbc, HmacMsg(nullptr, Text("abc")));
}

TEST(HmacSha1, OneShotWithoutKeyStartsFromAZeroedContext) {
  for (const std::uint8_t dirt : std::initializer_list<std::uint8_t>{0xA5, 0x5A}) {
    Digest digest{};
    DirtyStack(dirt);
    hmac_sha("key", 0, "abc", 3, digest.data());
    EXPECT_DIGEST(kZeroContextAbc, digest);
    DirtyStack(dirt);
    hmac_sha("key", 65536, "abc", 3, digest.data());
    EXPECT_DIGEST(kZeroContextAbc, digest);
    DirtyStack(dirt);
    hmac_sha(nullptr, 3, "abc", 3, digest.data());
    EXPECT_DIGEST(kZeroContextAbc, digest);
  }
}

TEST(HmacSha1, PreparedContextSignsAnyNumberOfMessages) {
  const hmac_context context = KeyedContext(Text("key"));
  const hmac_context before = context;
  for (int i = 0; i < 3; ++i) EXPECT_DIGEST(kKeyAbc, HmacMsg(&context, Text("abc")));
  EXPECT_EQ(0, std::memcmp(&before, &context, sizeof context));
}

TEST(HmacSha1, ContextMayBeCopiedByteForByte) {
  const hmac_context context = KeyedContext(Text("key"));
  hmac_context copy;
  std::memcpy(&copy, &context, sizeof copy);
  Digest digest{};
  hmac_shaupdate(&copy, "abc", 3);
  hmac_shafinal(digest.data(), &copy);
  EXPECT_DIGEST(kKeyAbc, digest);
}

TEST(HmacSha1, MessageMayBeFedInPieces) {
  hmac_context context = KeyedContext(Text("key"));
  Digest digest{};
  hmac_shaupdate(&context, "a", 1);
  hmac_shaupdate(&context, "bc", 2);
  hmac_shafinal(digest.data(), &context);
  EXPECT_DIGEST(kKeyAbc, digest);
}

TEST(HmacSha1, ConsumedContextCanBeKeyedAgain) {
  hmac_context context = KeyedContext(Text("other"));
  Digest digest{};
  hmac_shafinal(digest.data(), &context);
  hmac_shainit(&context, "key", 3);
  hmac_shaupdate(&context, "abc", 3);
  hmac_shafinal(digest.data(), &context);
  EXPECT_DIGEST(kKeyAbc, digest);
}

TEST(HmacSha1, NullOrEmptyDataChangesNothing) {
  hmac_context context = KeyedContext(Text("key"));
  const hmac_context before = context;
  hmac_shaupdate(&context, nullptr, 3);
  hmac_shaupdate(&context, "abc", 0);
  hmac_shaupdate(&context, "abc", 0x10000);
  EXPECT_EQ(0, std::memcmp(&before, &context, sizeof context));
}

TEST(HmacSha1, EmptyMessageGivesTheStandardHmacOfTheEmptyString) {
  EXPECT_DIGEST("f42bb0eeb018ebbd4597ae7213711ec60760843f", Hmac(Text("key"), {}));
  Digest digest{};
  hmac_sha("key", 3, nullptr, 3, digest.data());
  EXPECT_DIGEST("f42bb0eeb018ebbd4597ae7213711ec60760843f", digest);
}

TEST(HmacSha1, LengthsAreCutTo16Bits) {
  // Blocks of 65539 bytes, so that an uncut length would be noticed by its digest, not by a crash.
  const Bytes data = Text("abc") + Bytes(65536, 'x');
  const Bytes key = Text("key") + Bytes(65536, 'x');
  Digest digest{};
  hmac_sha("key", 3, data.data(), 65539, digest.data());
  EXPECT_DIGEST(kKeyAbc, digest);
  hmac_sha(key.data(), 65539, "abc", 3, digest.data());
  EXPECT_DIGEST(kKeyAbc, digest);

  hmac_context context = {};
  hmac_shainit(&context, key.data(), 65539);
  EXPECT_DIGEST(kKeyAbc, HmacMsg(&context, Text("abc")));
  EXPECT_DIGEST(kKeyAbc, HmacMsg(&context, data));
  hmac_shaupdate(&context, data.data(), 65539);
  hmac_shafinal(digest.data(), &context);
  EXPECT_DIGEST(kKeyAbc, digest);

  EXPECT_DIGEST(kSha1Abc, ShaHash(data.data(), 65539, nullptr, 0));
  EXPECT_DIGEST(kSha1Abc, ShaHash(nullptr, 0, data.data(), 65539));
}

TEST(HmacSha1, NothingBehindTheContextsBytesIsTouched) {
  const HeapBytes block(Bytes(160, 0xA5));
  auto* const context = reinterpret_cast<hmac_context*>(const_cast<std::uint8_t*>(block.data()));
  Digest digest{};
  hmac_shainit(context, "key", 3);
  EXPECT_DIGEST(kKeyAbc, HmacMsg(context, Text("abc")));
  hmac_shaupdate(context, "abc", 3);
  hmac_shafinal(digest.data(), context);
  EXPECT_DIGEST(kKeyAbc, digest);
}

TEST(HmacSha1, NothingBehindTheContextsPageIsTouched) {
  GuardedBytes block(Bytes(160, 0xA5));
  auto* const context = reinterpret_cast<hmac_context*>(block.data());
  GuardedBytes digest(Bytes(20, 0xEE));
  hmac_shainit(context, "key", 3);
  hmac_sha_msg(context, "abc", 3, digest.data());
  EXPECT_BYTES(digest.data(), 20, kKeyAbc);
  hmac_shaupdate(context, "abc", 3);
  hmac_shafinal(digest.data(), context);
  EXPECT_BYTES(digest.data(), 20, kKeyAbc);
}

TEST(HmacSha1, ContextThatHasDigestedWholeBlocksGoesOnFromThere) {
  hmac_context context = KeyedContext(Text("key"));
  const std::string block(64, 'a');
  hmac_shaupdate(&context, block.data(), 64);
  EXPECT_DIGEST("ce7ac38ef9472e0673914168b8c55a8c95f2ff27", HmacMsg(&context, Text("bc")));
}

TEST(HmacSha1, DigestMayStandAtAnOddAddress) {
  std::uint8_t block[22] = {};
  hmac_sha("key", 3, "abc", 3, block + 1);
  EXPECT_BYTES(block, sizeof block, "00 4fd0b215276ef12f2b3e4c8ecac2811498b656fc 00");
}

TEST(Sha1, HashesTwoBuffersOneAfterTheOther) {
  EXPECT_DIGEST(kSha1Abc, ShaHash("a", 1, "bc", 2));
  EXPECT_DIGEST(kSha1Abc, ShaHash("abc", 3, "", 0));
}

TEST(Sha1, NullAndEmptyBuffersAreSkipped) {
  EXPECT_DIGEST(kSha1Abc, ShaHash(nullptr, 5, "abc", 3));
  EXPECT_DIGEST(kSha1Abc, ShaHash("abc", 3, nullptr, 5));
  EXPECT_DIGEST(kSha1Abc, ShaHash("x", 0, "abc", 3));
  EXPECT_DIGEST(kSha1Empty, ShaHash(nullptr, 0, nullptr, 0));
}

}  // namespace
