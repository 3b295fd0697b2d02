// Every kind of value through all that the codec does with it: decode, size, encode, clone, free.
#include <gtest/gtest.h>

#include <set>

#include "vtapi.h"

#include "tests/codec/codec_support.h"
#include "tests/codec/tlv_vectors.h"
#include "tests/harness/faults.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"

namespace {

using namespace vt::testing;

// DeepCopy is a second element with a deep copy of the value.
TlvPtr DeepCopy(const Tlv* tlv) {
  std::uint32_t status = 77;
  void* value = vt_clone_tlv_ptr(tlv->type, tlv->length - VT_TLV_HEADER_SIZE, tlv->value, &status);
  EXPECT_EQ(status, 0U);
  return MakeTlv(tlv->type, tlv->length, tlv->qualifier, value);
}

TEST(TypeTable, VectorsCoverEveryTypePlainAndAggregated) {
  std::set<std::uint32_t> types;
  for (const TlvVector& v : AllVectors()) types.insert(v.type);
  for (std::uint32_t type = 0; type < VT_TLV_TYPE_COUNT; ++type) {
    EXPECT_EQ(types.count(type), 1U) << type;
    EXPECT_EQ(types.count(type | VT_TLV_AGGREGATED), 1U) << type;
  }
}

TEST(TypeTable, DecodedElementsKeepTheirHeader) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    const LogCapture log(kTrace);
    const Decoded got = DecodeAll(wire);
    EXPECT_TRUE(log.lines().empty());
    ASSERT_NE(got.tlv, nullptr);
    EXPECT_EQ(got.tlv->type, v.type);
    EXPECT_EQ(got.tlv->length, v.memory_length);
    const std::uint32_t qualifier = Bytes(wire.begin() + 8, wire.begin() + 12) == Hex("00000000")
                                        ? 0U
                                        : (wire[8] == 1 ? 0x01020304U : 1U);
    EXPECT_EQ(got.tlv->qualifier, qualifier);
    EXPECT_EQ(got.remaining, 0);
    EXPECT_EQ(got.moved, static_cast<std::ptrdiff_t>(wire.size()));
    EXPECT_EQ(got.tlv->value == nullptr, wire.size() == VT_TLV_HEADER_SIZE);
  }
}

TEST(TypeTable, SizeOfADecodedElementIsItsWireSize) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    const Decoded got = DecodeAll(wire);
    ASSERT_NE(got.tlv, nullptr);
    EXPECT_EQ(vt_get_tlv_size(got.tlv.get()), wire.size());
  }
}

TEST(TypeTable, DecodedElementsEncodeToTheSameBytes) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    const Decoded got = DecodeAll(wire);
    ASSERT_NE(got.tlv, nullptr);
    EXPECT_TRUE(SameBytes(wire, Encode(got.tlv.get())));
  }
}

TEST(TypeTable, ClonesEncodeToTheSameBytesAfterTheOriginalIsGone) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    Decoded got = DecodeAll(wire);
    ASSERT_NE(got.tlv, nullptr);
    const TlvPtr copy = DeepCopy(got.tlv.get());
    EXPECT_EQ(copy->value == nullptr, got.tlv->value == nullptr);
    got.tlv.reset();
    EXPECT_TRUE(SameBytes(wire, Encode(copy.get())));
  }
}

TEST(TypeTable, OddAddressesServeAsWellAsEvenOnes) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    GuardedBytes input = GuardedBytes::AtOddAddress(wire);
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(input.data()) % 2, 1U);
    std::uint8_t* cursor = input.data();
    auto remaining = static_cast<std::int32_t>(wire.size());
    const TlvPtr tlv(cv_create_tlv_from_raw_buf(&remaining, &cursor));
    ASSERT_NE(tlv, nullptr);
    EXPECT_EQ(cursor, input.end());
    GuardedBytes output = GuardedBytes::AtOddAddress(Bytes(wire.size(), 0xEE));
    EXPECT_EQ(cv_update_raw_buf_from_tlv(tlv.get(), output.data()), wire.size());
    EXPECT_TRUE(SameBytes(wire, output.data(), wire.size()));
  }
}

TEST(TypeTable, EveryFailingAllocationLeavesNothingBehind) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    const std::size_t failed = SweepAllocationFailures([&](AllocationFault& fault) {
      const LogCapture log(kTrace);
      GuardedBytes input(wire);
      std::uint8_t* cursor = input.data();
      auto remaining = static_cast<std::int32_t>(wire.size());
      const TlvPtr tlv(cv_create_tlv_from_raw_buf(&remaining, &cursor));
      if (fault.hit()) {
        EXPECT_EQ(tlv, nullptr);
        EXPECT_EQ(cursor, input.data());
      } else {
        ASSERT_NE(tlv, nullptr);
        std::uint32_t status = 77;
        void* value =
            vt_clone_tlv_ptr(v.type, v.memory_length - VT_TLV_HEADER_SIZE, tlv->value, &status);
        const AllocationFault::Pause pause;
        if (fault.hit()) {
          EXPECT_EQ(value, nullptr);
          EXPECT_EQ(status, 1U);
        } else {
          const TlvPtr copy = MakeTlv(v.type, v.memory_length, tlv->qualifier, value);
          EXPECT_EQ(status, 0U);
          EXPECT_TRUE(SameBytes(wire, Encode(tlv.get())));
          EXPECT_TRUE(SameBytes(wire, Encode(copy.get())));
        }
      }
      EXPECT_TRUE(log.lines().empty());
    });
    EXPECT_GT(failed, 0U);
  }
}

// The table of what a plain entry of an aggregate records as its length.
TEST(TypeTable, EntriesRecordTheLengthOfTheirValue) {
  for (const TlvVector& v : kAggregatedVectors) {
    SCOPED_TRACE(v);
    const Decoded got = DecodeAll(Hex(v.wire));
    ASSERT_NE(got.tlv, nullptr);
    const aggregated_value& value = Aggregated(got.tlv.get());
    EXPECT_BYTES(value.device.id.bytes, 32, "16*d7 16*d8");
    EXPECT_EQ(value.device.data_len, 3U);
    EXPECT_BYTES(value.device.data, 3, "0a0b0c");
    ASSERT_EQ(value.entry_count, 2U);
    if (cv_is_combo_tlv(v.type) == 1) {
      EXPECT_EQ(ComboEntry(got.tlv.get(), 0).tag, 1U);
      EXPECT_EQ(ComboEntry(got.tlv.get(), 1).tag, 2U);
      continue;
    }
    for (std::size_t i = 0; i < 2; ++i) {
      const plain_entry& entry = PlainEntry(got.tlv.get(), i);
      EXPECT_EQ(entry.data_len, v.data_len[i]) << i;
      EXPECT_EQ(entry.data == nullptr, v.data_len[i] == 0) << i;
    }
  }
}

// Six operations on the types that only bit 30 keeps from being combined: decode, size, encode,
// clone, free and the reading of entries agree that the entries are plain.
TEST(TypeTable, ReservedBitMakesEntriesOfCombinedTypesPlain) {
  const std::uint32_t sizes[] = {2, 22, 44};
  std::size_t row = 0;
  for (const TlvVector& v : kAggregatedVectors) {
    if (v.type < 0xC000002B || v.type > 0xC000002D) continue;
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    EXPECT_EQ(cv_is_combo_tlv(v.type), 0);
    Decoded got = DecodeAll(wire);
    ASSERT_NE(got.tlv, nullptr);
    EXPECT_EQ(PlainEntry(got.tlv.get(), 1).tag, 2U);
    EXPECT_EQ(PlainEntry(got.tlv.get(), 1).data_len, sizes[row]);
    EXPECT_EQ(vt_get_tlv_size(got.tlv.get()), 55 + 2 * (4 + sizes[row]));
    EXPECT_TRUE(SameBytes(wire, Encode(got.tlv.get())));
    const TlvPtr copy = DeepCopy(got.tlv.get());
    EXPECT_EQ(PlainEntry(copy.get(), 1).data_len, sizes[row]);
    EXPECT_TRUE(SameBytes(wire, Encode(copy.get())));
    ++row;
  }
  EXPECT_EQ(row, 3U);
}

// A generator whose sequence is the same everywhere.
class Dice {
 public:
  explicit Dice(std::uint64_t seed) : state_(seed) {}
  std::uint32_t Roll(std::uint32_t sides) {
    state_ = state_ * 6364136223846793005U + 1442695040888963407U;
    return static_cast<std::uint32_t>(state_ >> 33) % sides;
  }

 private:
  std::uint64_t state_;
};

// Whatever is decoded from damaged bytes encodes, clones and frees, and what it encodes to is
// stable from then on.
TEST(TypeTable, DamagedElementsAreRefusedOrStable) {
  const LogCapture quiet(kSilent);
  Dice dice(20);
  std::size_t kept = 0;
  std::size_t dropped = 0;
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    for (int round = 0; round < 200; ++round) {
      Bytes wire = Hex(v.wire);
      const std::uint32_t hits = 1 + dice.Roll(3);
      for (std::uint32_t i = 0; i < hits; ++i) {
        const std::uint32_t at = dice.Roll(static_cast<std::uint32_t>(wire.size()));
        const std::uint8_t choices[] = {0x00, 0x01, 0x7F,
                                        0x80, 0xFF, static_cast<std::uint8_t>(dice.Roll(256))};
        wire[at] = choices[dice.Roll(6)];
      }
      const Decoded first = DecodeAll(wire);
      if (first.tlv == nullptr) {
        EXPECT_EQ(first.moved, 0);
        ++dropped;
        continue;
      }
      ++kept;
      const Bytes once = Encode(first.tlv.get());
      const Decoded second = DecodeAll(once);
      ASSERT_NE(second.tlv, nullptr) << ToHex(wire) << "\nbecame\n" << ToHex(once);
      EXPECT_TRUE(SameBytes(once, Encode(second.tlv.get())));
      std::uint32_t status = 77;
      void* value = vt_clone_tlv_ptr(second.tlv->type, second.tlv->length - VT_TLV_HEADER_SIZE,
                                     second.tlv->value, &status);
      const TlvPtr copy =
          MakeTlv(second.tlv->type, second.tlv->length, second.tlv->qualifier, value);
      if (status == 0) EXPECT_TRUE(SameBytes(once, Encode(copy.get())));
      if (status != 0) {
        EXPECT_EQ(status, 4U);  // only for an element that has no value
        EXPECT_EQ(second.tlv->value, nullptr);
      }
    }
  }
  EXPECT_GT(kept, 100U);
  EXPECT_GT(dropped, 100U);
}

}  // namespace
