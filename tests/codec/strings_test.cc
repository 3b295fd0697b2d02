// Texts and opaque blocks, as they fill an element and with a length of their own.
#include <gtest/gtest.h>
#include <malloc.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "vtapi.h"

#include "tests/codec/codec_support.h"
#include "tests/harness/faults.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace {

using namespace vt::testing;

void ExpectReport(const UnpackReport& got, std::uint32_t status, std::uint32_t consumed,
                  std::int32_t remaining) {
  EXPECT_EQ(got.status, status);
  EXPECT_EQ(got.consumed, consumed);
  EXPECT_EQ(got.remaining, remaining);
}

// ---- Text that fills an element.

TEST(ElementText, PacksItsCharactersWithoutTerminator) {
  GuardedBytes out(Bytes(3, 0xEE));
  EXPECT_EQ(vt_pack_string_tlv(out.data(), "abc"), 3U);
  EXPECT_BYTES(out.data(), 3, "616263");
  const GuardedBytes nothing({});
  EXPECT_EQ(vt_pack_string_tlv(const_cast<std::uint8_t*>(nothing.data()), ""), 0U);
}

TEST(ElementText, NullPacksNothing) {
  GuardedBytes out(Bytes(4, 0xEE));
  EXPECT_EQ(vt_pack_string_tlv(out.data(), nullptr), 0U);
  EXPECT_BYTES(out.data(), 4, "eeeeeeee");
}

TEST(ElementText, UnpacksTheGivenLengthAndTerminatesIt) {
  const FillAllocations fill(0xA5);
  const GuardedBytes input(Text("abcde"));
  for (const std::uint32_t len : {0U, 1U, 4U, 5U}) {
    SCOPED_TRACE(len);
    UnpackReport got{.remaining = 5};
    const AllocationCount allocations;
    const BlockPtr<char> text(
        vt_unpack_string_tlv_ptr(input.data(), len, &got.consumed, &got.remaining, &got.status));
    EXPECT_EQ(allocations.bytes(), len + 1);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text.get(), std::string("abcde").substr(0, len));
    ExpectReport(got, 0, len, static_cast<std::int32_t>(5 - len));
  }
}

TEST(ElementText, ShortInputIsStatusEightAndCountsNothing) {
  const struct {
    std::uint32_t len;
    std::int32_t left;
  } rows[] = {{7, 6},          {1, 0},          {1, -3},          {0x7FFFFFFF, 6},
              {0x80000000, 6}, {0xFFFFFFFF, 6}, {0xFFFFFFFF, -1}, {0xFFFFFFFF, INT32_MIN},
              {0x80000000, 0}, {0xFFFFFFFB, -5}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.len) + " of " + std::to_string(row.left));
    const GuardedBytes input(Bytes(row.left > 0 ? static_cast<std::size_t>(row.left) : 0, 'a'));
    const AllocationCount allocations;
    UnpackReport got{.remaining = row.left};
    EXPECT_EQ(
        vt_unpack_string_tlv_ptr(input.data(), row.len, &got.consumed, &got.remaining, &got.status),
        nullptr);
    ExpectReport(got, 8, 0, row.left);
    got = UnpackReport{.remaining = row.left};
    EXPECT_EQ(
        vt_unpack_void_tlv_ptr(input.data(), row.len, &got.consumed, &got.remaining, &got.status),
        nullptr);
    ExpectReport(got, 8, 0, row.left);
    EXPECT_EQ(allocations.allocations(), 0U);
  }
}

// ---- Counted text.

TEST(CountedText, PacksItsLengthAndCharacters) {
  GuardedBytes out(Bytes(7, 0xEE));
  EXPECT_EQ(vt_pack_string(out.data(), "abc"), 7U);
  EXPECT_BYTES(out.data(), 7, "00000003 616263");
  GuardedBytes odd = GuardedBytes::AtOddAddress(Bytes(8, 0xEE));
  EXPECT_EQ(vt_pack_string(odd.data(), "abcd"), 8U);
  EXPECT_BYTES(odd.data(), 8, "00000004 61626364");
}

TEST(CountedText, EmptyPacksItsLengthAndNullNothing) {
  GuardedBytes out(Bytes(4, 0xEE));
  EXPECT_EQ(vt_pack_string(out.data(), nullptr), 0U);
  EXPECT_BYTES(out.data(), 4, "eeeeeeee");
  EXPECT_EQ(vt_pack_string(out.data(), ""), 4U);
  EXPECT_BYTES(out.data(), 4, "00000000");
}

TEST(CountedText, UnpacksAndTerminates) {
  const FillAllocations fill(0xA5);
  const GuardedBytes input = GuardedBytes::AtOddAddress(Hex("00000003 616263 21"));
  UnpackReport got{.remaining = 8};
  const AllocationCount allocations;
  const BlockPtr<char> text(
      vt_unpack_string_ptr(input.data(), &got.consumed, &got.remaining, &got.status));
  EXPECT_EQ(allocations.bytes(), 4U);
  EXPECT_STREQ(text.get(), "abc");
  ExpectReport(got, 0, 7, 1);
}

TEST(CountedText, EmptyTextIsATextOfNoCharacters) {
  const GuardedBytes input(Hex("00000000"));
  UnpackReport got{.remaining = 4};
  const BlockPtr<char> text(
      vt_unpack_string_ptr(input.data(), &got.consumed, &got.remaining, &got.status));
  EXPECT_STREQ(text.get(), "");
  ExpectReport(got, 0, 4, 0);
}

TEST(CountedText, ShortLengthWordCountsNothing) {
  for (const std::int32_t left : {0, 1, 3, -1, INT32_MIN}) {
    SCOPED_TRACE(left);
    const GuardedBytes input(Bytes(left > 0 ? static_cast<std::size_t>(left) : 0, 0));
    UnpackReport got{.remaining = left};
    EXPECT_EQ(vt_unpack_string_ptr(input.data(), &got.consumed, &got.remaining, &got.status),
              nullptr);
    ExpectReport(got, 8, 0, left);
  }
}

TEST(CountedText, LengthOfTenWithSixBytesIsShortAfterTheLengthWord) {
  const GuardedBytes input(Hex("0000000a 616263646566"));
  UnpackReport got{.remaining = 10};
  EXPECT_EQ(vt_unpack_string_ptr(input.data(), &got.consumed, &got.remaining, &got.status),
            nullptr);
  ExpectReport(got, 8, 4, 6);
}

TEST(CountedText, HostileLengthsAreShortAndAllocateNothing) {
  for (const char* length : {"00000007", "7fffffff", "80000000", "fffffffb", "ffffffff"}) {
    SCOPED_TRACE(length);
    const GuardedBytes input(Hex(length) + Hex("616263646566"));
    const AllocationCount allocations;
    UnpackReport got{.remaining = 10};
    EXPECT_EQ(vt_unpack_string_ptr(input.data(), &got.consumed, &got.remaining, &got.status),
              nullptr);
    ExpectReport(got, 8, 4, 6);
    EXPECT_EQ(allocations.allocations(), 0U);
  }
}

// ---- Copies of texts.

TEST(CloneString, CopiesTheText) {
  const char source[] = "abc";
  std::uint32_t status = 77;
  const BlockPtr<char> copy(vt_clone_string(source, &status));
  EXPECT_STREQ(copy.get(), "abc");
  EXPECT_NE(copy.get(), source);
  EXPECT_EQ(status, 0U);
  const BlockPtr<char> empty(vt_clone_string("", &status));
  EXPECT_STREQ(empty.get(), "");
}

TEST(CloneString, NullIsANullSource) {
  std::uint32_t status = 77;
  EXPECT_EQ(vt_clone_string(nullptr, &status), nullptr);
  EXPECT_EQ(status, 4U);
}

TEST(CloneString, ErrnoIsClearedBeforeDuplicating) {
  std::uint32_t status = 77;
  errno = 99;
  char* copy = vt_clone_string("abc", &status);
  const int after = errno;
  vt_free_ptr(copy);
  EXPECT_EQ(after, 0);
}

TEST(CloneString, ExhaustedMemoryIsStatusOne) {
  EXPECT_GT(SweepAllocationFailures([](AllocationFault& fault) {
              std::uint32_t status = 77;
              const BlockPtr<char> copy(vt_clone_string("abc", &status));
              EXPECT_EQ(copy == nullptr, fault.hit());
              EXPECT_EQ(status, fault.hit() ? 1U : 0U);
            }),
            0U);
}

// ---- Block that fills an element.

TEST(ElementBlock, PacksItsBytes) {
  GuardedBytes out(Bytes(4, 0xEE));
  EXPECT_EQ(vt_pack_void_tlv(out.data(), "ab\0c", 4), 4U);
  EXPECT_BYTES(out.data(), 4, "61620063");
  EXPECT_EQ(vt_pack_void_tlv(out.data(), "xyz", 0), 0U);
  EXPECT_BYTES(out.data(), 4, "61620063");
}

// Deliberate: the output moves over bytes that were never written.
TEST(ElementBlock, NullBlockCountsItsLengthAndWritesNothing) {
  GuardedBytes out(Bytes(5, 0xEE));
  EXPECT_EQ(vt_pack_void_tlv(out.data(), nullptr, 5), 5U);
  EXPECT_BYTES(out.data(), 5, "5*ee");
  EXPECT_EQ(vt_pack_void_tlv(out.data(), nullptr, 0), 0U);
}

TEST(ElementBlock, UnpacksExactlyItsLength) {
  const GuardedBytes input(Hex("6162006364"));
  for (const std::uint32_t len : {1U, 4U, 5U}) {
    SCOPED_TRACE(len);
    UnpackReport got{.remaining = 5};
    const AllocationCount allocations;
    const BlockPtr<void> block(
        vt_unpack_void_tlv_ptr(input.data(), len, &got.consumed, &got.remaining, &got.status));
    EXPECT_EQ(allocations.bytes(), len);
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(SameBytes(Bytes(input.data(), input.data() + len), block.get(), len));
    ExpectReport(got, 0, len, static_cast<std::int32_t>(5 - len));
  }
}

TEST(ElementBlock, BlockOfNoBytesIsNotNull) {
  const GuardedBytes input({});
  UnpackReport got{.remaining = 0};
  const BlockPtr<void> block(
      vt_unpack_void_tlv_ptr(input.data(), 0, &got.consumed, &got.remaining, &got.status));
  EXPECT_NE(block, nullptr);
  ExpectReport(got, 0, 0, 0);
}

// ---- Counted block.

TEST(CountedBlock, PacksItsLengthAndBytes) {
  GuardedBytes out(Bytes(8, 0xEE));
  EXPECT_EQ(vt_pack_void(out.data(), "ab\0c", 4), 8U);
  EXPECT_BYTES(out.data(), 8, "00000004 61620063");
  GuardedBytes odd = GuardedBytes::AtOddAddress(Bytes(6, 0xEE));
  EXPECT_EQ(vt_pack_void(odd.data(), "ab", 2), 6U);
  EXPECT_BYTES(odd.data(), 6, "00000002 6162");
}

TEST(CountedBlock, BlockOfNoBytesIsItsLengthWord) {
  GuardedBytes out(Bytes(4, 0xEE));
  EXPECT_EQ(vt_pack_void(out.data(), "ab", 0), 4U);
  EXPECT_BYTES(out.data(), 4, "00000000");
  GuardedBytes null(Bytes(4, 0xEE));
  EXPECT_EQ(vt_pack_void(null.data(), nullptr, 0), 4U);
  EXPECT_BYTES(null.data(), 4, "00000000");
}

TEST(CountedBlock, NullBlockWritesItsLengthAndMovesOverTheRest) {
  GuardedBytes out(Bytes(9, 0xEE));
  EXPECT_EQ(vt_pack_void(out.data(), nullptr, 5), 9U);
  EXPECT_BYTES(out.data(), 9, "00000005 5*ee");
}

TEST(CountedBlock, UnpacksIntoABlockOfItsLength) {
  const GuardedBytes input = GuardedBytes::AtOddAddress(Hex("00000004 61620063 21"));
  UnpackReport got{.remaining = 9};
  std::int32_t len = 77;
  const AllocationCount allocations;
  const BlockPtr<void> block(
      vt_unpack_void_ptr(input.data(), &len, &got.consumed, &got.remaining, &got.status));
  EXPECT_EQ(allocations.bytes(), 4U);
  EXPECT_BYTES(block.get(), 4, "61620063");
  EXPECT_EQ(len, 4);
  ExpectReport(got, 0, 8, 1);
}

TEST(CountedBlock, LengthOfZeroIsNullWithSuccess) {
  const GuardedBytes input(Hex("00000000"));
  UnpackReport got{.remaining = 4};
  std::int32_t len = 77;
  EXPECT_EQ(vt_unpack_void_ptr(input.data(), &len, &got.consumed, &got.remaining, &got.status),
            nullptr);
  EXPECT_EQ(len, 0);
  ExpectReport(got, 0, 4, 0);
}

TEST(CountedBlock, ShortLengthWordLeavesTheLengthAlone) {
  for (const std::int32_t left : {0, 1, 3, -1, INT32_MIN}) {
    SCOPED_TRACE(left);
    const GuardedBytes input(Bytes(left > 0 ? static_cast<std::size_t>(left) : 0, 0));
    UnpackReport got{.remaining = left};
    std::int32_t len = 77;
    EXPECT_EQ(vt_unpack_void_ptr(input.data(), &len, &got.consumed, &got.remaining, &got.status),
              nullptr);
    EXPECT_EQ(len, 77);
    // The length is read as an int32, which keeps a stale count, but the block's own was cleared.
    ExpectReport(got, 8, 0, left);
  }
}

TEST(CountedBlock, HostileLengthsAreShortAndAllocateNothing) {
  const struct {
    const char* wire;
    std::int32_t len;
  } rows[] = {{"00000007", 7},         {"0000000a", 10}, {"7fffffff", 0x7FFFFFFF},
              {"80000000", INT32_MIN}, {"fffffffb", -5}, {"ffffffff", -1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.wire);
    const GuardedBytes input(Hex(row.wire) + Hex("616263646566"));
    const AllocationCount allocations;
    UnpackReport got{.remaining = 10};
    std::int32_t len = 77;
    EXPECT_EQ(vt_unpack_void_ptr(input.data(), &len, &got.consumed, &got.remaining, &got.status),
              nullptr);
    ExpectReport(got, 8, 4, 6);
    EXPECT_EQ(len, row.len);
    EXPECT_EQ(allocations.allocations(), 0U);
  }
}

// ---- Copies of blocks.

TEST(CloneVoid, CopiesExactlyTheLength) {
  const HeapBytes source(Hex("61620063"));
  std::uint32_t status = 77;
  const AllocationCount allocations;
  const BlockPtr<void> copy(vt_clone_void_ptr(source.data(), 4, &status));
  EXPECT_EQ(allocations.bytes(), 4U);
  EXPECT_BYTES(copy.get(), 4, "61620063");
  EXPECT_EQ(status, 0U);
}

TEST(CloneVoid, BlockOfNoBytesIsNotNull) {
  std::uint32_t status = 77;
  const BlockPtr<void> copy(vt_clone_void_ptr("", 0, &status));
  EXPECT_NE(copy, nullptr);
  EXPECT_EQ(status, 0U);
}

TEST(CloneVoid, NullIsANullSourceWhateverTheLength) {
  for (const std::uint32_t len : {0U, 5U, 0xFFFFFFFFU}) {
    std::uint32_t status = 77;
    EXPECT_EQ(vt_clone_void_ptr(nullptr, len, &status), nullptr);
    EXPECT_EQ(status, 4U);
  }
}

// ---- Memory.

TEST(TextsAndBlocks, ExhaustedMemoryIsStatusOne) {
  const GuardedBytes input(Hex("00000003 616263"));
  const auto sweep = [&](auto call) {
    EXPECT_GT(SweepAllocationFailures([&](AllocationFault& fault) {
                UnpackReport got{.remaining = 7};
                const BlockPtr<void> made(call(&got));
                EXPECT_EQ(made == nullptr, fault.hit());
                EXPECT_EQ(got.status, fault.hit() ? 1U : 0U);
              }),
              0U);
  };
  sweep([&](UnpackReport* got) -> void* {
    return vt_unpack_string_tlv_ptr(input.data(), 7, &got->consumed, &got->remaining, &got->status);
  });
  sweep([&](UnpackReport* got) -> void* {
    return vt_unpack_string_ptr(input.data(), &got->consumed, &got->remaining, &got->status);
  });
  sweep([&](UnpackReport* got) {
    return vt_unpack_void_tlv_ptr(input.data(), 7, &got->consumed, &got->remaining, &got->status);
  });
  sweep([&](UnpackReport* got) {
    std::int32_t len = 0;
    return vt_unpack_void_ptr(input.data(), &len, &got->consumed, &got->remaining, &got->status);
  });
  sweep([&](UnpackReport* got) { return vt_clone_void_ptr(input.data(), 7, &got->status); });
}

// A tool that looks for mismatched pairs of allocation and release has to accept both.
TEST(TextsAndBlocks, BlocksComeFromMalloc) {
  const GuardedBytes input(Hex("00000003 616263"));
  UnpackReport got{.remaining = 7};
  std::free(vt_unpack_string_ptr(input.data(), &got.consumed, &got.remaining, &got.status));
  std::uint32_t status = 77;
  std::free(vt_clone_string("abc", &status));
  vt_free_ptr(std::malloc(3));
}

}  // namespace
