// Decoding of single elements: what is accepted, what is refused, and that neither reads past the
// bytes it was given. The table of all types stands in type_table_test.cc.
#include <gtest/gtest.h>
#include <malloc.h>

#include <limits>

#include "vtapi.h"

#include "tests/codec/codec_support.h"
#include "tests/codec/tlv_vectors.h"
#include "tests/harness/faults.h"
#include "tests/harness/hex.h"
#include "tests/harness/log_capture.h"
#include "tests/harness/pdu_image.h"

namespace {

using namespace vt::testing;

constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();

const std::string kPrefix = "cv_create_tlv_from_raw_buf: ";

std::string Mismatched(int number) {
  return kPrefix + "Received mismatched TLV for type " + std::to_string(number) +
         ", dropping packet";
}

std::string Skipping(int number) {
  return kPrefix + "Skipping unknown TLV, type = " + std::to_string(number);
}

// WithLength is wire with another word in the length field.
Bytes WithLength(Bytes wire, std::uint32_t length) {
  const Bytes word = U32(length);
  std::copy(word.begin(), word.end(), wire.begin() + 4);
  return wire;
}

Bytes Cut(const Bytes& wire, std::size_t size) {
  return Bytes(wire.begin(), wire.begin() + static_cast<std::ptrdiff_t>(size));
}

// ExpectRefused decodes bytes and expects null, an unmoved cursor, this count of remaining bytes
// and no line.
void ExpectRefused(const Bytes& bytes, std::int32_t claimed, std::int32_t remaining) {
  const LogCapture log(kTrace);
  const Decoded got = Decode(bytes, claimed);
  EXPECT_EQ(got.tlv, nullptr);
  EXPECT_EQ(got.moved, 0);
  EXPECT_EQ(got.remaining, remaining);
  for (const LogLine& line : log.lines()) ADD_FAILURE() << line;
}

// ExpectMismatch decodes bytes and expects them to be dropped with the one ERROR line.
void ExpectMismatch(const Bytes& bytes, int number) {
  const LogCapture log(kTrace);
  const Decoded got = DecodeAll(bytes);
  EXPECT_EQ(got.tlv, nullptr);
  EXPECT_EQ(got.moved, 0);
  EXPECT_EQ(got.remaining, 0);
  const std::vector<LogLine> expected = {{kError, Mismatched(number)}};
  EXPECT_EQ(log.lines(), expected);
}

// ---- The 12-byte header.

TEST(TlvDecode, ElementOfLengthTwelveHasANullValueForAnyType) {
  for (std::uint32_t number = 0; number < VT_TLV_TYPE_COUNT; ++number) {
    for (const std::uint32_t flags : {0U, 0x40000000U, 0x80000000U, 0xC0000000U}) {
      SCOPED_TRACE(number | flags);
      const Bytes wire = Element(number | flags, 1, {});
      const LogCapture log(kTrace);
      const Decoded got = DecodeAll(wire);
      ASSERT_NE(got.tlv, nullptr);
      EXPECT_EQ(got.tlv->type, number | flags);
      EXPECT_EQ(got.tlv->length, 12U);
      EXPECT_EQ(got.tlv->qualifier, 1U);
      EXPECT_EQ(got.tlv->value, nullptr);
      EXPECT_EQ(got.moved, 12);
      EXPECT_EQ(got.remaining, 0);
      EXPECT_TRUE(log.lines().empty());
      EXPECT_TRUE(SameBytes(wire, Encode(got.tlv.get())));
    }
  }
}

TEST(TlvDecode, HeaderWordsAreBigEndianAndKeptWithTheirFlags) {
  const Decoded got = DecodeAll(Hex("4000003c 00000010 fedcba98 01020304"));
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_EQ(got.tlv->type, 0x4000003CU);
  EXPECT_EQ(got.tlv->length, 16U);
  EXPECT_EQ(got.tlv->qualifier, 0xFEDCBA98U);
}

TEST(TlvDecode, FewerThanTwelveBytesLeftAreNotRead) {
  const Bytes header = Hex("00000003 00000010 00000000");
  ExpectRefused(Cut(header, 11), 11, 11);
  ExpectRefused(Cut(header, 4), 4, 4);
  ExpectRefused({}, 0, 0);
  ExpectRefused({}, -5, -5);
  ExpectRefused({}, kLowest, kLowest);
}

TEST(TlvDecode, OnlyTheFirstElementIsTaken) {
  const Bytes wire = Hex("0000000e 0000000d 00000000 0a | 0000000d 0000000e 00000000 0102");
  const Decoded got = DecodeAll(wire);
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_EQ(got.tlv->type, 14U);
  EXPECT_EQ(got.moved, 13);
  EXPECT_EQ(got.remaining, 14);
}

TEST(TlvDecode, ElementsAreWalkedOneAfterTheOther) {
  Bytes payload;
  for (const TlvVector& v : AllVectors()) payload = payload + Hex(v.wire);
  GuardedBytes input(payload);
  std::uint8_t* cursor = input.data();
  auto remaining = static_cast<std::int32_t>(payload.size());
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const TlvPtr tlv(cv_create_tlv_from_raw_buf(&remaining, &cursor));
    ASSERT_NE(tlv, nullptr);
    EXPECT_EQ(tlv->type, v.type);
    EXPECT_EQ(input.end() - cursor, remaining);
  }
  EXPECT_EQ(remaining, 0);
}

// ---- Lengths that a hostile peer may write.

struct HostileLength {
  std::uint32_t length;
  std::int32_t remaining;  // afterwards, of 40 bytes
};

TEST(TlvDecode, HostileLengthsAreRefusedBeforeAnythingIsAllocated) {
  constexpr HostileLength kRows[] = {
      {0, 40},
      {1, 39},
      {4, 36},
      {11, 29},
      {41, -1},
      {0x7FFFFFFF, 40 - 0x7FFFFFFF},
      {0x80000000, static_cast<std::int32_t>(40 - 0x80000000LL)},
      {0x80000028, kLowest},
      {0x80000029, kLowest},  // would be one below the lowest number
      {0x80000070, kLowest},
      {0xFFFFFFF4, kLowest},
      {0xFFFFFFFF, kLowest},
  };
  for (const std::uint32_t type : {9U, 13U, 60U, 0x8000000DU, 0x8000003CU, 10U}) {
    for (const HostileLength& row : kRows) {
      SCOPED_TRACE(std::to_string(type) + " with length " + std::to_string(row.length));
      const Bytes wire = U32(type) + U32(row.length) + Hex("00000000 28*01");
      const AllocationCount allocations;
      ExpectRefused(wire, 40, row.remaining);
      EXPECT_EQ(allocations.allocations(), 0U);
    }
  }
}

TEST(TlvDecode, TruncatedPayloadsAreRefused) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    for (std::size_t size = 0; size < wire.size(); ++size) {
      SCOPED_TRACE(size);
      const auto left = static_cast<std::int32_t>(size);
      const auto length = static_cast<std::int32_t>(wire.size());
      ExpectRefused(Cut(wire, size), left, size < 12 ? left : left - length);
    }
  }
}

TEST(TlvDecode, TruncatedElementsAreRefusedSilently) {
  for (const TlvVector& v : AllVectors()) {
    if (v.extent == Extent::kFills) continue;
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    for (std::size_t size = 13; size < wire.size(); ++size) {
      SCOPED_TRACE(size);
      const Bytes shorter = WithLength(Cut(wire, size), static_cast<std::uint32_t>(size));
      ExpectRefused(shorter, static_cast<std::int32_t>(size), 0);
    }
  }
}

// The same with more payload behind, which the value must not borrow.
TEST(TlvDecode, TruncatedElementsDoNotReadWhatFollows) {
  for (const TlvVector& v : AllVectors()) {
    if (v.extent == Extent::kFills) continue;
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    for (std::size_t size = 13; size < wire.size(); ++size) {
      SCOPED_TRACE(size);
      const Bytes longer = WithLength(wire, static_cast<std::uint32_t>(size));
      ExpectRefused(longer, static_cast<std::int32_t>(wire.size()),
                    static_cast<std::int32_t>(wire.size() - size));
    }
  }
}

TEST(TlvDecode, TextsAndOpaqueBlocksFillAnyLength) {
  for (const TlvVector& v : AllVectors()) {
    if (v.extent != Extent::kFills) continue;
    SCOPED_TRACE(v);
    const Bytes whole = Hex(v.wire) + Hex("21");
    const std::uint32_t terminator =
        v.memory_length - static_cast<std::uint32_t>(Hex(v.wire).size());
    for (std::size_t size = 13; size <= whole.size(); ++size) {
      SCOPED_TRACE(size);
      const Bytes wire = WithLength(Cut(whole, size), static_cast<std::uint32_t>(size));
      const Decoded got = DecodeAll(wire);
      ASSERT_NE(got.tlv, nullptr);
      EXPECT_EQ(got.tlv->length, size + terminator);
      EXPECT_EQ(got.remaining, 0);
      EXPECT_TRUE(SameBytes(Cut(wire, size), Encode(got.tlv.get())));
    }
  }
}

// ---- Bytes left over.

TEST(TlvDecode, LeftoverBytesDropTheElement) {
  for (const TlvVector& v : AllVectors()) {
    if (v.extent == Extent::kFills) continue;
    SCOPED_TRACE(v);
    for (std::uint32_t extra = 1; extra <= 5; ++extra) {
      Bytes wire = Hex(v.wire);
      wire.insert(wire.end(), extra, 0x21);
      ExpectMismatch(WithLength(wire, static_cast<std::uint32_t>(wire.size())),
                     static_cast<int>(v.type & VT_TLV_NUMBER_MASK));
    }
  }
}

TEST(TlvDecode, Uint16WithFourValueBytesIsDroppedWithTheMismatchError) {
  ExpectMismatch(Hex("0000000d 00000010 00000000 01020304"), 13);
}

TEST(TlvDecode, Uint16WithOneValueByteIsDroppedSilently) {
  ExpectRefused(Hex("0000000d 0000000d 00000000 01"), 13, 0);
  // The byte that would complete the number belongs to the next element.
  ExpectRefused(Hex("0000000d 0000000d 00000000 01 02030405"), 17, 4);
}

TEST(TlvDecode, TypesWithoutValueRefuseOne) {
  ExpectMismatch(Hex("00000025 00000010 00000000 01020304"), 37);
  ExpectMismatch(Hex("0000002a 00000010 00000000 01020304"), 42);
  ExpectMismatch(Hex("4000002a 0000000d 00000000 01"), 42);
}

TEST(TlvDecode, MismatchErrorPrintsTheNumberWithoutFlags) {
  ExpectMismatch(Hex("4000000d 00000010 00000000 01020304"), 13);
  ExpectMismatch(Hex("8000000d 00000035 00000000 32*61 00000000 00000000 21"), 13);
  ExpectMismatch(Hex("c000002b 00000035 00000000 32*61 00000000 00000000 21"), 43);
}

TEST(TlvDecode, MismatchSpeaksAtErrorLevel) {
  const LogCapture log(kError);
  const Decoded got = DecodeAll(Hex("0000000d 00000010 00000000 01020304"));
  EXPECT_EQ(got.tlv, nullptr);
  EXPECT_EQ(log.Count(kError, Mismatched(13)), 1U);
}

// ---- Unknown numbers.

TEST(TlvDecode, UnknownElementIsKeptWithoutItsValue) {
  const LogCapture log(kTrace);
  const Decoded got = DecodeAll(Hex("0000003c 00000014 00000001 0102030405060708"));
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_EQ(got.tlv->type, 60U);
  EXPECT_EQ(got.tlv->length, 20U);
  EXPECT_EQ(got.tlv->qualifier, 1U);
  EXPECT_EQ(got.tlv->value, nullptr);
  EXPECT_EQ(got.moved, 20);
  EXPECT_EQ(got.remaining, 0);
  const std::vector<LogLine> expected = {{kTrace, Skipping(60)}};
  EXPECT_EQ(log.lines(), expected);
}

TEST(TlvDecode, UnknownAggregateIsSkippedWholeWithOneLine) {
  // What would be a device header is not looked at.
  for (const char* value : {"28*ff", "28*00"}) {
    const LogCapture log(kTrace);
    const Bytes wire = Hex("8000003c 00000028 00000000") + Hex(value) + Hex("21212121");
    const Decoded got = DecodeAll(wire);
    ASSERT_NE(got.tlv, nullptr);
    EXPECT_EQ(got.tlv->type, 0x8000003CU);
    EXPECT_EQ(got.tlv->length, 40U);
    EXPECT_EQ(got.tlv->value, nullptr);
    EXPECT_EQ(got.moved, 40);
    EXPECT_EQ(got.remaining, 4);
    const std::vector<LogLine> expected = {{kTrace, Skipping(60)}};
    EXPECT_EQ(log.lines(), expected);
  }
}

TEST(TlvDecode, FirstUnknownNumberIsFiftyTwo) {
  const struct {
    const char* type;
    int number;
  } rows[] = {{"00000034", 52},         {"80000034", 52},         {"40000034", 52},
              {"c0000034", 52},         {"3fffffff", 0x3FFFFFFF}, {"ffffffff", 0x3FFFFFFF},
              {"7fffffff", 0x3FFFFFFF}, {"00010009", 65545}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.type);
    const LogCapture log(kTrace);
    const Decoded got = DecodeAll(Hex(row.type) + Hex("0000000f 00000000 010203"));
    ASSERT_NE(got.tlv, nullptr);
    EXPECT_EQ(got.tlv->value, nullptr);
    EXPECT_EQ(got.moved, 15);
    const std::vector<LogLine> expected = {{kTrace, Skipping(row.number)}};
    EXPECT_EQ(log.lines(), expected);
  }
}

TEST(TlvDecode, UnknownElementsAreSilentAboveTrace) {
  const LogCapture log(kDebug);
  const Decoded got = DecodeAll(Hex("0000003c 00000014 00000001 0102030405060708"));
  EXPECT_NE(got.tlv, nullptr);
  EXPECT_TRUE(log.lines().empty());
}

// ---- Texts and blocks.

TEST(TlvDecode, TextCountsItsTerminatorInMemoryButNotOnTheWire) {
  const Bytes wire = Hex("00000009 0000000f 00000000 616263");
  const Decoded got = DecodeAll(wire);
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_EQ(got.tlv->length, 16U);
  EXPECT_STREQ(static_cast<const char*>(got.tlv->value), "abc");
  EXPECT_EQ(vt_get_tlv_size(got.tlv.get()), 15U);
  EXPECT_TRUE(SameBytes(wire, Encode(got.tlv.get())));
}

TEST(TlvDecode, TextWithZeroBytesInsideKeepsItsLengthAndShrinksWhenEncoded) {
  const Decoded got = DecodeAll(Hex("00000009 00000011 00000000 6162 00 6364"));
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_EQ(got.tlv->length, 18U);
  EXPECT_BYTES(got.tlv->value, 6, "6162 00 6364 00");
  EXPECT_BYTES(Encode(got.tlv.get()).data(), 14, "00000009 0000000e 00000000 6162");
  EXPECT_EQ(vt_get_tlv_size(got.tlv.get()), 14U);
}

TEST(TlvDecode, OpaqueBlocksGetNoTerminator) {
  const Decoded got = DecodeAll(Hex("0000000a 0000000f 00000000 616263"));
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_EQ(got.tlv->length, 15U);
  EXPECT_BYTES(got.tlv->value, 3, "616263");
  EXPECT_TRUE(SameBytes(Hex("0000000a 0000000f 00000000 616263"), Encode(got.tlv.get())));
}

TEST(TlvDecode, StructuresAreDecodedIntoTheirRecords) {
  Decoded got = DecodeAll(Hex("00000001 00000030 00000001 16*a1 16*a2 01020304"));
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_BYTES(static_cast<sender_id*>(got.tlv->value)->id.bytes, 32, "16*a1 16*a2");
  EXPECT_EQ(static_cast<sender_id*>(got.tlv->value)->number, 0x01020304U);

  got = DecodeAll(Hex("00000032 0000001a 00000000 01020304 05 f6 fffffffe 7ffffffd"));
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_EQ(static_cast<alarm_value*>(got.tlv->value)->byte2, 0xF6);
  EXPECT_EQ(static_cast<alarm_value*>(got.tlv->value)->value1, -2);
  EXPECT_EQ(static_cast<alarm_value*>(got.tlv->value)->value2, 0x7FFFFFFD);

  got = DecodeAll(Hex("0000002e 0000001b 00000000 00000005 30203132 2a 07 f9 80000001"));
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_STREQ(static_cast<recurrence*>(got.tlv->value)->text, "0 12*");
  EXPECT_EQ(static_cast<recurrence*>(got.tlv->value)->byte2, 0xF9);
  EXPECT_EQ(static_cast<recurrence*>(got.tlv->value)->flag, -0x7FFFFFFF);
}

TEST(TlvDecode, ScalarsHaveTheWidthAndSignOfTheirKind) {
  const auto value = [](const char* wire) { return DecodeAll(Hex(wire)); };
  Decoded got = value("0000000c 0000000d 00000000 fd");
  EXPECT_EQ(*static_cast<std::int8_t*>(got.tlv->value), -3);
  got = value("0000000f 0000000d 00000000 ff");
  EXPECT_EQ(*static_cast<std::uint8_t*>(got.tlv->value), 255);
  got = value("0000000d 0000000e 00000000 f10b");
  EXPECT_EQ(*static_cast<std::uint16_t*>(got.tlv->value), 0xF10B);
  got = value("00000016 00000010 00000000 fffffffe");
  EXPECT_EQ(*static_cast<std::int32_t*>(got.tlv->value), -2);
  got = value("00000003 00000010 00000000 81020304");
  EXPECT_EQ(*static_cast<std::uint32_t*>(got.tlv->value), 0x81020304U);
  got = value("00000020 00000010 00000000 80000001");
  EXPECT_EQ(*static_cast<std::int32_t*>(got.tlv->value), -0x7FFFFFFF);
}

// ---- Aggregates.

TEST(TlvDecode, AggregateWithoutEntriesHasANullArray) {
  for (const std::uint32_t type :
       {0x8000000DU, 0x80000009U, 0x8000002AU, 0x8000002BU, 0xC000002BU}) {
    SCOPED_TRACE(type);
    const Bytes wire = U32(type) + Hex("00000034 00000000 32*61 00000000 00000000");
    const Decoded got = DecodeAll(wire);
    ASSERT_NE(got.tlv, nullptr);
    ASSERT_NE(got.tlv->value, nullptr);
    EXPECT_EQ(Aggregated(got.tlv.get()).entry_count, 0U);
    EXPECT_EQ(Aggregated(got.tlv.get()).entries, nullptr);
    EXPECT_EQ(got.tlv->length, 52U);
    EXPECT_EQ(got.moved, 52);
    EXPECT_TRUE(SameBytes(wire, Encode(got.tlv.get())));
  }
}

TEST(TlvDecode, EmptyBlocksInDeviceHeaderAndEntriesAreNullAndTravelAgain) {
  const Bytes wire = Hex(
      "8000000a 00000044 00000000 32*61 00000000 00000002 | 00000001 00000000 | 00000002 00000000");
  const Decoded got = DecodeAll(wire);
  ASSERT_NE(got.tlv, nullptr);
  const aggregated_value& value = Aggregated(got.tlv.get());
  EXPECT_EQ(value.device.data, nullptr);
  EXPECT_EQ(value.device.data_len, 0U);
  ASSERT_EQ(value.entry_count, 2U);
  EXPECT_EQ(PlainEntry(got.tlv.get(), 0).data, nullptr);
  EXPECT_EQ(PlainEntry(got.tlv.get(), 0).data_len, 0U);
  EXPECT_EQ(PlainEntry(got.tlv.get(), 1).tag, 2U);
  EXPECT_TRUE(SameBytes(wire, Encode(got.tlv.get())));
}

TEST(TlvDecode, OpaqueEntryOfFourBytesRecordsFourAndRoundTrips) {
  const Bytes wire =
      Hex("8000000a 00000040 00000000 32*61 00000000 00000001 00000007 00000004 61006200");
  const Decoded got = DecodeAll(wire);
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_EQ(PlainEntry(got.tlv.get(), 0).tag, 7U);
  EXPECT_EQ(PlainEntry(got.tlv.get(), 0).data_len, 4U);
  EXPECT_BYTES(PlainEntry(got.tlv.get(), 0).data, 4, "61006200");
  EXPECT_TRUE(SameBytes(wire, Encode(got.tlv.get())));
}

TEST(TlvDecode, CombinedEntriesCarryTheirUsageHeader) {
  const Bytes wire = Hex("8000002b 0000007a 00000000" VT_DEVICE "00000001" VT_USAGE_FULL
                         "1234 00000002" VT_USAGE_EMPTY "ffff");
  const Decoded got = DecodeAll(wire);
  ASSERT_NE(got.tlv, nullptr);
  const combo_entry& first = ComboEntry(got.tlv.get(), 0);
  EXPECT_EQ(first.tag, 1U);
  EXPECT_EQ(first.usage.word, 0x102U);
  EXPECT_EQ(first.usage.value, -2);
  EXPECT_STREQ(first.usage.text1, "lamp");
  EXPECT_STREQ(first.usage.text2, "rol");
  EXPECT_EQ(first.usage.small, -3);
  EXPECT_EQ(first.usage.byte1, 10);
  EXPECT_EQ(first.usage.byte2, 100);
  EXPECT_STREQ(first.usage.text3, "kw");
  EXPECT_EQ(*static_cast<std::uint16_t*>(first.data), 0x1234);
  const combo_entry& second = ComboEntry(got.tlv.get(), 1);
  EXPECT_EQ(second.tag, 2U);
  EXPECT_STREQ(second.usage.text1, "");
  EXPECT_EQ(second.usage.byte2, 255);
  EXPECT_EQ(*static_cast<std::uint16_t*>(second.data), 0xFFFF);
}

TEST(TlvDecode, ImpossibleEntryCountsAreRefusedBeforeAllocating) {
  // Room for 0, 1 and 3 entries of type 42, whose entries are 4 bytes.
  for (const std::uint32_t real : {0U, 1U, 3U}) {
    for (const std::uint32_t count :
         {real + 1, 0x40000001U, 0x40000000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
      SCOPED_TRACE(std::to_string(real) + " entries counted as " + std::to_string(count));
      Bytes value = Hex("32*61 00000000") + U32(count);
      value.insert(value.end(), real * 4, 0x05);
      const Bytes wire = Element(0x8000002A, 0, value);
      const AllocationCount allocations;
      ExpectRefused(wire, static_cast<std::int32_t>(wire.size()), 0);
      EXPECT_LE(allocations.bytes(), 1024U);
    }
  }
}

TEST(TlvDecode, EveryAggregateRefusesAWrongEntryCount) {
  for (const TlvVector& v : kAggregatedVectors) {
    SCOPED_TRACE(v);
    for (const std::uint32_t count : {3U, 4U, 16U, 0x40000001U, 0x40000002U, 0xFFFFFFFFU}) {
      SCOPED_TRACE(count);
      Bytes wire = Hex(v.wire);
      const Bytes word = U32(count);
      std::copy(word.begin(), word.end(), wire.begin() + 51);
      const AllocationCount allocations;
      ExpectRefused(wire, static_cast<std::int32_t>(wire.size()), 0);
      EXPECT_LE(allocations.bytes(), 4096U);
    }
    for (const std::uint32_t count : {0U, 1U}) {
      SCOPED_TRACE(count);
      Bytes wire = Hex(v.wire);
      wire[54] = static_cast<std::uint8_t>(count);
      ExpectMismatch(wire, static_cast<int>(v.type & VT_TLV_NUMBER_MASK));
    }
  }
}

// The highest possible count is one that the value bytes hold exactly.
TEST(TlvDecode, EntryCountMayUseEveryByteOfTheValue) {
  Bytes value = Hex("32*61 00000000 00000011");
  value.insert(value.end(), 17 * 4, 0x05);
  const Decoded got = DecodeAll(Element(0x8000002A, 0, value));
  ASSERT_NE(got.tlv, nullptr);
  ASSERT_EQ(Aggregated(got.tlv.get()).entry_count, 17U);
  EXPECT_EQ(PlainEntry(got.tlv.get(), 16).tag, 0x05050505U);
}

TEST(TlvDecode, LengthWordsInsideAnAggregateCannotLeaveIt) {
  // The device block, a text entry, an opaque entry and a combined entry's text; the bytes that
  // they claim lie behind the element.
  const Bytes behind = Hex("64*20");
  for (const char* length : {"00000004", "00000040", "7fffffff", "80000000", "ffffffff"}) {
    SCOPED_TRACE(length);
    const Bytes n = Hex(length);
    const Bytes device = Hex("32*61 00000000 00000001 00000001");
    const Bytes elements[] = {
        Element(0x8000000D, 0, Hex("32*61") + n + Hex("000000")),
        Element(0x80000009, 0, device + n + Hex("616263")),
        Element(0x8000000A, 0, device + n + Hex("616263")),
        Element(0x8000002B, 0, device + Hex("00000000 00000000") + n + Hex("616263")),
        Element(0x8000001C, 0, device + Hex("32*62") + n + Hex("616263")),
        Element(0x8000001C, 0, device + Hex("32*62 00000000") + n + Hex("616263")),
        Element(0x8000002E, 0, device + n + Hex("616263")),
        Element(28, 0, Hex("32*62") + n + Hex("616263")),
        Element(46, 0, n + Hex("616263")),
    };
    for (const Bytes& element : elements) {
      const Bytes wire = element + behind;
      const AllocationCount allocations;
      ExpectRefused(wire, static_cast<std::int32_t>(wire.size()),
                    static_cast<std::int32_t>(behind.size()));
      EXPECT_LE(allocations.bytes(), 1024U);
    }
  }
}

// Appending to an aggregate grows its array only when the count is a multiple of 16.
// DecodedWithEntries is a decoded message whose one element has so many numbered entries.
Event* DecodedWithEntries(std::uint32_t count) {
  Bytes value = DeviceHeader("device") + U32(count);
  for (std::uint32_t i = 0; i < count; ++i) value = value + U32(i) + Hex("0102");
  PduImage image;
  image.elements = {Element(0x8000000D, 0, value)};
  const Bytes wire = image.Unsigned();
  Event* ev = cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(wire.size()), wire.data());
  const LogCapture quiet(kSilent);
  const hmac_context key = {};
  EXPECT_EQ(cv_unpack_event(ev, &key), 0);
  return ev;
}

TEST(TlvDecode, DecodedAggregateTakesFurtherEntries) {
  const FillAllocations fill(0xA5);
  device_header device = {};
  std::memcpy(device.id.bytes, Identity32("device").data(), 32);
  for (const std::uint32_t count : {0U, 1U, 3U, 15U, 16U, 17U, 32U, 33U}) {
    SCOPED_TRACE(count);
    Event* ev = DecodedWithEntries(count);
    for (std::uint32_t i = count; i < count + 37; ++i) {
      const auto number = static_cast<std::uint16_t>(i);
      ASSERT_EQ(cv_add_aggr_type_tlv(ev, 13, &number, i, &device, nullptr), 0);
    }
    const Tlv* tlv = cv_get_next_tlv(ev, 0x8000000D);
    ASSERT_NE(tlv, nullptr);
    ASSERT_EQ(Aggregated(tlv).entry_count, count + 37);
    for (std::uint32_t i = 0; i < count + 37; ++i) {
      const plain_entry& entry = PlainEntry(tlv, i);
      EXPECT_EQ(entry.tag, i);
      EXPECT_EQ(*static_cast<std::uint16_t*>(entry.data), i < count ? 0x0102 : i);
    }
    cv_cleanup_event(ev);
  }
}

TEST(TlvDecode, FurtherEntriesOfADecodedAggregateSurviveEveryFailedAllocation) {
  device_header device = {};
  std::memcpy(device.id.bytes, Identity32("device").data(), 32);
  const std::uint16_t number = 7;
  SweepAllocationFailures([&](AllocationFault& fault) {
    Event* ev = nullptr;
    {
      const AllocationFault::Pause pause;
      ev = DecodedWithEntries(3);
    }
    const int status = cv_add_aggr_type_tlv(ev, 13, &number, 3, &device, nullptr);
    fault.Disarm();
    EXPECT_EQ(status, fault.hit() ? 1 : 0);
    cv_cleanup_event(ev);
  });
}

TEST(TlvDecode, EntriesWithoutValuesAreReleasedWithAnElementThatGrew) {
  const LiveBlocks live;
  PduImage image;
  image.elements = {Element(0x8000002A, 0, DeviceHeader("device") + Hex("00000001 00000005"))};
  const Bytes wire = image.Unsigned();
  Event* ev = cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(wire.size()), wire.data());
  const LogCapture quiet(kSilent);
  const hmac_context key = {};
  ASSERT_EQ(cv_unpack_event(ev, &key), 0);
  device_header device = {};
  std::memcpy(device.id.bytes, Identity32("device").data(), 32);
  ASSERT_EQ(cv_aggr_ack(ev, 6, &device), 0);
  cv_cleanup_event(ev);
  EXPECT_EQ(live.count(), 0);
}

TEST(TlvDecode, AValueInThePlaceOfTheDecodedOneIsReleasedWithItsElement) {
  const LiveBlocks live;
  for (const Bytes& wire : {Element(9, 0, Hex("6c616d70")), Element(13, 0, Hex("0102")),
                            Element(0x8000000D, 0, DeviceHeader("device") + Hex("00000000"))}) {
    const Decoded got = DecodeAll(wire);
    ASSERT_NE(got.tlv, nullptr);
    std::uint32_t status = 1;
    got.tlv->value = vt_clone_tlv_ptr(got.tlv->type, 64, got.tlv->value, &status);
    EXPECT_EQ(status, 0u);
  }
  EXPECT_EQ(live.count(), 0);
}

TEST(TlvDecode, APartInThePlaceOfADecodedOneIsReleasedWithAnElementThatGrew) {
  const LiveBlocks live;
  Event* ev = DecodedWithEntries(2);
  device_header device = {};
  std::memcpy(device.id.bytes, Identity32("device").data(), 32);
  const std::uint16_t number = 7;
  ASSERT_EQ(cv_add_aggr_type_tlv(ev, 13, &number, 9, &device, nullptr), 0);
  const Tlv* tlv = cv_get_next_tlv(ev, 0x8000000D);
  ASSERT_NE(tlv, nullptr);
  std::uint32_t status = 1;
  static_cast<plain_entry*>(Aggregated(tlv).entries[0])->data =
      vt_clone_tlv_ptr(13, 2, &number, &status);
  cv_cleanup_event(ev);
  EXPECT_EQ(live.count(), 0);
}

// ---- Memory.

TEST(TlvDecode, ExhaustedMemoryGivesNullWithoutALine) {
  const Bytes wire = Hex("00000009 0000000f 00000000 616263");
  const std::size_t failed = SweepAllocationFailures([&](AllocationFault& fault) {
    const LogCapture log(kTrace);
    const Decoded got = DecodeAll(wire);
    if (fault.hit()) {
      EXPECT_EQ(got.tlv, nullptr);
      EXPECT_EQ(got.moved, 0);
      EXPECT_EQ(got.remaining, 0);
    }
    EXPECT_TRUE(log.lines().empty());
  });
  EXPECT_EQ(failed, 1U);  // one block holds all
}

TEST(TlvDecode, TruncationAndExhaustionTogetherLeaveNothingBehind) {
  const Bytes wire = Hex("8000002b 0000007a 00000000" VT_DEVICE "00000001" VT_USAGE_FULL
                         "1234 00000002" VT_USAGE_EMPTY "ffff");
  for (std::size_t size = 13; size < wire.size(); ++size) {
    SCOPED_TRACE(size);
    const Bytes shorter = WithLength(Cut(wire, size), static_cast<std::uint32_t>(size));
    SweepAllocationFailures([&] { EXPECT_EQ(DecodeAll(shorter).tlv, nullptr); });
  }
}

}  // namespace
