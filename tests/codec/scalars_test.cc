// The fixed-width kinds, each through the same table of situations.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "vtapi.h"

#include "tests/codec/codec_support.h"
#include "tests/harness/faults.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace {

using namespace vt::testing;

template <class T>
struct Family {
  const char* name;
  std::uint32_t size;
  std::uint32_t (*pack)(void*, const T*);
  void (*unpack)(const void*, T*, std::uint32_t*, std::int32_t*, std::uint32_t*);
  T* (*unpack_ptr)(const void*, std::uint32_t*, std::int32_t*, std::uint32_t*);
  T* (*clone_ptr)(const T*, std::uint32_t*);
  // Deliberate difference of int32: short input leaves *consumed as it was.
  bool keeps_consumed;
};

template <class T>
struct Sample {
  T value;
  const char* wire;
};

constexpr Family<std::int8_t> kInt8 = {
    "int8", 1, vt_pack_int8, vt_unpack_int8, vt_unpack_int8_ptr, vt_clone_int8_ptr, false};
constexpr Family<std::uint8_t> kUint8 = {
    "uint8", 1, vt_pack_uint8, vt_unpack_uint8, vt_unpack_uint8_ptr, vt_clone_uint8_ptr, false};
constexpr Family<std::uint16_t> kUint16 = {
    "uint16", 2, vt_pack_uint16, vt_unpack_uint16, vt_unpack_uint16_ptr, vt_clone_uint16_ptr,
    false};
constexpr Family<std::int32_t> kBoolean = {
    "boolean", 4, vt_pack_boolean, vt_unpack_boolean, nullptr, nullptr, false};
constexpr Family<std::int32_t> kInt32 = {
    "int32", 4, vt_pack_int32, vt_unpack_int32, vt_unpack_int32_ptr, vt_clone_int32_ptr, true};
constexpr Family<std::uint32_t> kUint32 = {
    "uint32", 4, vt_pack_uint32, vt_unpack_uint32, vt_unpack_uint32_ptr, vt_clone_uint32_ptr,
    false};
constexpr Family<std::int32_t> kLong = {
    "long", 4, vt_pack_long, vt_unpack_long, vt_unpack_long_ptr, vt_clone_long_ptr, false};

template <class T>
void ExpectPacks(const Family<T>& f, std::initializer_list<Sample<T>> samples) {
  SCOPED_TRACE(f.name);
  for (const Sample<T>& sample : samples) {
    SCOPED_TRACE(sample.wire);
    GuardedBytes even(Bytes(f.size, 0xEE));
    EXPECT_EQ(f.pack(even.data(), &sample.value), f.size);
    EXPECT_BYTES(even.data(), f.size, sample.wire);
    GuardedBytes odd = GuardedBytes::AtOddAddress(Bytes(f.size, 0xEE));
    EXPECT_EQ(f.pack(odd.data(), &sample.value), f.size);
    EXPECT_BYTES(odd.data(), f.size, sample.wire);

    for (const std::int32_t extra : {0, 1, 100}) {
      T value = 0;
      std::uint32_t consumed = 77;
      std::int32_t remaining = static_cast<std::int32_t>(f.size) + extra;
      std::uint32_t status = 77;
      f.unpack(odd.data(), &value, &consumed, &remaining, &status);
      EXPECT_EQ(value, sample.value);
      EXPECT_EQ(consumed, f.size);
      EXPECT_EQ(remaining, extra);
      EXPECT_EQ(status, 0U);

      if (f.unpack_ptr == nullptr) continue;
      consumed = 77;
      remaining = static_cast<std::int32_t>(f.size) + extra;
      status = 77;
      const BlockPtr<T> made(f.unpack_ptr(odd.data(), &consumed, &remaining, &status));
      ASSERT_NE(made, nullptr);
      EXPECT_EQ(*made, sample.value);
      EXPECT_EQ(consumed, f.size);
      EXPECT_EQ(remaining, extra);
      EXPECT_EQ(status, 0U);
    }
  }
}

TEST(Scalars, TravelInNetworkOrderAtAnyAddress) {
  ExpectPacks(kInt8, {{0, "00"}, {-3, "fd"}, {-128, "80"}, {127, "7f"}});
  ExpectPacks(kUint8, {{0, "00"}, {10, "0a"}, {255, "ff"}});
  ExpectPacks(kUint16, {{0, "0000"}, {0x0102, "0102"}, {0xF10B, "f10b"}, {0xFFFF, "ffff"}});
  ExpectPacks(kBoolean, {{0, "00000000"}, {1, "00000001"}, {-1, "ffffffff"}});
  ExpectPacks(kInt32,
              {{0x01020304, "01020304"}, {-2, "fffffffe"}, {INT32_MIN, "80000000"}, {0, "4*00"}});
  ExpectPacks(kUint32, {{0x81020304, "81020304"}, {0xFFFFFFFF, "ffffffff"}, {1, "00000001"}});
  ExpectPacks(kLong, {{0x11223344, "11223344"}, {-0x7FFFFFFF, "80000001"}, {7, "00000007"}});
}

TEST(Scalars, BooleanOneIsAWholeWord) {
  const std::int32_t one = 1;
  GuardedBytes out(Bytes(4, 0xEE));
  EXPECT_EQ(vt_pack_boolean(out.data(), &one), 4U);
  EXPECT_BYTES(out.data(), 4, "00 00 00 01");
}

TEST(Scalars, BooleanIsNotNormalised) {
  const std::int32_t odd = 0x01020304;
  GuardedBytes out(Bytes(4, 0xEE));
  EXPECT_EQ(vt_pack_boolean(out.data(), &odd), 4U);
  EXPECT_BYTES(out.data(), 4, "01 02 03 04");
  std::int32_t back = 0;
  std::uint32_t consumed = 0;
  std::int32_t remaining = 4;
  std::uint32_t status = 77;
  vt_unpack_boolean(out.data(), &back, &consumed, &remaining, &status);
  EXPECT_EQ(back, 0x01020304);
}

template <class T>
void ExpectShort(const Family<T>& f) {
  SCOPED_TRACE(f.name);
  for (const std::int32_t left : {0, 1, 2, 3, -1, -5, INT32_MIN}) {
    if (left >= static_cast<std::int32_t>(f.size)) continue;
    SCOPED_TRACE(left);
    // What is left ends at an inaccessible page.
    const GuardedBytes input(Bytes(left > 0 ? static_cast<std::size_t>(left) : 0, 0x21));
    T value = 0x5A;
    std::uint32_t consumed = 77;
    std::int32_t remaining = left;
    std::uint32_t status = 77;
    f.unpack(input.data(), &value, &consumed, &remaining, &status);
    EXPECT_EQ(status, 8U);
    EXPECT_EQ(consumed, f.keeps_consumed ? 77U : 0U);
    EXPECT_EQ(remaining, left);
    EXPECT_EQ(value, 0x5A);

    if (f.unpack_ptr == nullptr) continue;
    consumed = 77;
    status = 77;
    EXPECT_EQ(f.unpack_ptr(input.data(), &consumed, &remaining, &status), nullptr);
    EXPECT_EQ(status, 8U);
    EXPECT_EQ(consumed, f.keeps_consumed ? 77U : 0U);
    EXPECT_EQ(remaining, left);
  }
}

TEST(Scalars, ShortInputChangesNothing) {
  ExpectShort(kInt8);
  ExpectShort(kUint8);
  ExpectShort(kUint16);
  ExpectShort(kBoolean);
  ExpectShort(kInt32);
  ExpectShort(kUint32);
  ExpectShort(kLong);
}

TEST(Scalars, Uint16WithOneByteLeftIsShort) {
  const GuardedBytes input(Hex("01"));
  std::uint16_t value = 5;
  std::uint32_t consumed = 77;
  std::int32_t remaining = 1;
  std::uint32_t status = 77;
  vt_unpack_uint16(input.data(), &value, &consumed, &remaining, &status);
  EXPECT_EQ(status, 8U);
  EXPECT_EQ(consumed, 0U);
  EXPECT_EQ(remaining, 1);
  EXPECT_EQ(value, 5);
}

TEST(Scalars, ShortInt32LeavesConsumedAsItWas) {
  const GuardedBytes input(Hex("010203"));
  std::int32_t value = 5;
  std::uint32_t consumed = 77;
  std::int32_t remaining = 3;
  std::uint32_t status = 0;
  vt_unpack_int32(input.data(), &value, &consumed, &remaining, &status);
  EXPECT_EQ(consumed, 77U);
  EXPECT_EQ(status, 8U);
  EXPECT_EQ(vt_unpack_int32_ptr(input.data(), &consumed, &remaining, &status), nullptr);
  EXPECT_EQ(consumed, 77U);
  EXPECT_EQ(remaining, 3);
}

// Where a host's long has 8 bytes, the other 4 are none of the codec's business.
TEST(Scalars, LongHasFourBytesInMemory) {
  const Bytes wire = Hex("01020304");
  std::int32_t value = 0;
  std::uint32_t consumed = 0;
  std::int32_t remaining = 4;
  std::uint32_t status = 77;
  alignas(8) std::uint8_t wide[8];
  std::memset(wide, 0x5A, sizeof wide);
  vt_unpack_long(wire.data(), reinterpret_cast<std::int32_t*>(wide), &consumed, &remaining,
                 &status);
  EXPECT_EQ(status, 0U);
  std::memcpy(&value, wide, 4);
  EXPECT_EQ(value, 0x01020304);
  EXPECT_BYTES(wide + 4, 4, "5a5a5a5a");

  const AllocationCount allocations;
  remaining = 4;
  const BlockPtr<std::int32_t> made(
      vt_unpack_long_ptr(wire.data(), &consumed, &remaining, &status));
  EXPECT_EQ(allocations.bytes(), 4U);
}

template <class T>
void ExpectClones(const Family<T>& f) {
  SCOPED_TRACE(f.name);
  const T source = 0x41;
  std::uint32_t status = 77;
  const AllocationCount allocations;
  const BlockPtr<T> copy(f.clone_ptr(&source, &status));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy.get(), &source);
  EXPECT_EQ(*copy, source);
  EXPECT_EQ(status, 0U);
  EXPECT_EQ(allocations.allocations(), 1U);
  EXPECT_EQ(allocations.bytes(), f.size);

  status = 77;
  EXPECT_EQ(f.clone_ptr(nullptr, &status), nullptr);
  EXPECT_EQ(status, 4U);
}

TEST(Scalars, ClonesAreFreshAndNullIsANullSource) {
  ExpectClones(kInt8);
  ExpectClones(kUint8);
  ExpectClones(kUint16);
  ExpectClones(kInt32);
  ExpectClones(kUint32);
  ExpectClones(kLong);
}

template <class T>
void ExpectNullPacksNothing(const Family<T>& f) {
  SCOPED_TRACE(f.name);
  GuardedBytes out(Bytes(4, 0xEE));
  EXPECT_EQ(f.pack(out.data(), nullptr), 0U);
  EXPECT_BYTES(out.data(), 4, "eeeeeeee");
}

TEST(Scalars, NullSourcePacksNothing) {
  ExpectNullPacksNothing(kInt8);
  ExpectNullPacksNothing(kUint8);
  ExpectNullPacksNothing(kUint16);
  ExpectNullPacksNothing(kBoolean);
  ExpectNullPacksNothing(kInt32);
  ExpectNullPacksNothing(kUint32);
  ExpectNullPacksNothing(kLong);
}

template <class T>
void ExpectExhaustionIsStatusOne(const Family<T>& f) {
  SCOPED_TRACE(f.name);
  const Bytes wire = Hex("01020304");
  const T source = 0x41;
  EXPECT_GT(SweepAllocationFailures([&](AllocationFault& fault) {
              std::uint32_t consumed = 0;
              std::int32_t remaining = 4;
              std::uint32_t status = 77;
              const BlockPtr<T> made(f.unpack_ptr(wire.data(), &consumed, &remaining, &status));
              EXPECT_EQ(made == nullptr, fault.hit());
              EXPECT_EQ(status, fault.hit() ? 1U : 0U);
            }),
            0U);
  EXPECT_GT(SweepAllocationFailures([&](AllocationFault& fault) {
              std::uint32_t status = 77;
              const BlockPtr<T> made(f.clone_ptr(&source, &status));
              EXPECT_EQ(made == nullptr, fault.hit());
              EXPECT_EQ(status, fault.hit() ? 1U : 0U);
            }),
            0U);
}

TEST(Scalars, ExhaustedMemoryIsStatusOne) {
  ExpectExhaustionIsStatusOne(kInt8);
  ExpectExhaustionIsStatusOne(kUint8);
  ExpectExhaustionIsStatusOne(kUint16);
  ExpectExhaustionIsStatusOne(kInt32);
  ExpectExhaustionIsStatusOne(kUint32);
  ExpectExhaustionIsStatusOne(kLong);
}

TEST(Scalars, FreeIgnoresNull) { vt_free_ptr(nullptr); }

}  // namespace
