// Encoding of elements and the size that is computed for them: the two always agree, and nothing
// beyond that size is written.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "vtapi.h"

#include "tests/codec/codec_support.h"
#include "tests/codec/tlv_vectors.h"
#include "tests/harness/hex.h"
#include "tests/harness/pdu_image.h"

namespace {

using namespace vt::testing;

// OneEntry is an aggregate with a device of 32 'd' and this one entry, which it takes over.
TlvPtr OneEntry(std::uint32_t type, void* entry) {
  auto* value = HeapRecord<aggregated_value>();
  std::memset(value->device.id.bytes, 'd', 32);
  value->entries = static_cast<void**>(std::calloc(16, sizeof(void*)));
  value->entries[0] = entry;
  value->entry_count = 1;
  return MakeTlv(type, 60, 0, value);
}

plain_entry* Entry(std::uint32_t tag, std::uint32_t data_len, void* data) {
  auto* entry = HeapRecord<plain_entry>();
  *entry = plain_entry{tag, data_len, data};
  return entry;
}

#define VT_ONE_ENTRY "32*64 00000000 00000001 "

// ExpectWire encodes the element, compares, and decodes and encodes what came out.
void ExpectWire(const TlvPtr& tlv, const char* hex) {
  const Bytes wire = Encode(tlv.get());
  EXPECT_TRUE(SameBytes(Hex(hex), wire));
  const Decoded again = DecodeAll(wire);
  ASSERT_NE(again.tlv, nullptr);
  EXPECT_TRUE(SameBytes(wire, Encode(again.tlv.get())));
}

// ---- Size.

TEST(TlvSize, NullElementHasNone) { EXPECT_EQ(vt_get_tlv_size(nullptr), 0U); }

TEST(TlvSize, ElementWithoutValueIsItsHeader) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const Tlv tlv = {v.type, 12, 0, nullptr};
    EXPECT_EQ(vt_get_tlv_size(&tlv), 12U);
  }
}

// A decoded element that has lost its value keeps its length: only opaque blocks go by it.
TEST(TlvSize, LengthOfAMissingValueCountsForPlainOpaqueTypesOnly) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const Tlv tlv = {v.type, 20, 0, nullptr};
    const bool opaque = v.type == 0 || v.type == 4 || v.type == 10 || v.type == 23 || v.type == 24;
    EXPECT_EQ(vt_get_tlv_size(&tlv), opaque ? 20U : 12U);
  }
}

TEST(TlvSize, LengthBelowTheHeaderCountsAsTheHeader) {
  char block[4] = {};
  for (const std::uint32_t length : {0U, 1U, 11U}) {
    const Tlv empty = {10, length, 0, nullptr};
    EXPECT_EQ(vt_get_tlv_size(&empty), 12U);
    const Tlv filled = {10, length, 0, block};
    EXPECT_EQ(vt_get_tlv_size(&filled), 12U);
  }
}

TEST(TlvSize, UnknownNumberIsItsHeader) {
  char block[8] = {};
  const Tlv plain = {60, 20, 0, block};
  EXPECT_EQ(vt_get_tlv_size(&plain), 12U);
  const Tlv aggregate = {0x8000003C, 40, 0, nullptr};
  EXPECT_EQ(vt_get_tlv_size(&aggregate), 12U);
}

TEST(TlvSize, AggregateWithoutEntriesIsItsDeviceHeaderAndSixteen) {
  char block[5] = {};
  aggregated_value value = {};
  const Tlv tlv = {0x8000000D, 60, 0, &value};
  EXPECT_EQ(vt_get_tlv_size(&tlv), 36U + 16U);
  value.device.data = block;
  value.device.data_len = 5;
  EXPECT_EQ(vt_get_tlv_size(&tlv), 41U + 16U);
}

TEST(TlvSize, TextIsMeasuredAndOpaqueBlocksAreNot) {
  char text[] = "abc\0def";
  const Tlv string = {9, 100, 0, text};
  EXPECT_EQ(vt_get_tlv_size(&string), 15U);
  const Tlv opaque = {10, 19, 0, text};
  EXPECT_EQ(vt_get_tlv_size(&opaque), 19U);
}

TEST(TlvSize, RecordsAreMeasuredWhateverTheLengthSays) {
  std::uint32_t number = 5;
  Tlv tlv = {3, 100, 0, &number};
  EXPECT_EQ(vt_get_tlv_size(&tlv), 16U);
  char label[] = "label";
  neighbor near = {};
  near.label = label;
  tlv = {28, 13, 0, &near};
  EXPECT_EQ(vt_get_tlv_size(&tlv), 12U + 44 + 5);
  alarm_value alarm = {};
  tlv = {50, 28, 0, &alarm};
  EXPECT_EQ(vt_get_tlv_size(&tlv), 26U);
}

// ---- Encoding.

TEST(TlvEncode, LengthIsComputedAndNeverCopied) {
  for (const std::uint32_t length : {0U, 12U, 13U, 57U, 0xFFFFFFFFU}) {
    SCOPED_TRACE(length);
    ExpectWire(MakeTlv(13, length, 1, HeapCopy("\x34\x34", 2)), "0000000d 0000000e 00000001 3434");
    ExpectWire(MakeTlv(9, length, 0, HeapText("abc")), "00000009 0000000f 00000000 616263");
  }
}

TEST(TlvEncode, OpaqueValueIsAsLongAsTheElementSays) {
  ExpectWire(MakeTlv(10, 16, 0, HeapCopy("ab\0cdef", 7)), "0000000a 00000010 00000000 61620063");
}

TEST(TlvEncode, FlagsAndQualifierAreWrittenAsTheyAre) {
  ExpectWire(MakeTlv(0x4000000E, 13, 0xFEDCBA98, HeapCopy("\x07", 1)),
             "4000000e 0000000d fedcba98 07");
}

TEST(TlvEncode, ElementWithoutValueIsItsHeader) {
  for (const TlvVector& v : AllVectors()) {
    SCOPED_TRACE(v);
    const TlvPtr tlv = MakeTlv(v.type, 12, 1, nullptr);
    const Bytes wire = Encode(tlv.get());
    ASSERT_EQ(wire.size(), 12U);
    EXPECT_TRUE(SameBytes(Element(v.type, 1, {}), wire));
  }
}

TEST(TlvEncode, UnknownElementShrinksToItsHeader) {
  Decoded got = DecodeAll(Hex("0000003c 00000014 00000001 0102030405060708"));
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_BYTES(Encode(got.tlv.get()).data(), 12, "0000003c 0000000c 00000001");
  EXPECT_EQ(vt_get_tlv_size(got.tlv.get()), 12U);
  got = DecodeAll(Hex("8000003c 00000014 00000000 0102030405060708"));
  ASSERT_NE(got.tlv, nullptr);
  EXPECT_BYTES(Encode(got.tlv.get()).data(), 12, "8000003c 0000000c 00000000");
  EXPECT_EQ(vt_get_tlv_size(got.tlv.get()), 12U);
}

TEST(TlvEncode, BytesThatAnOpaqueValueLacksAreZeros) {
  ExpectWire(MakeTlv(10, 20, 1, nullptr), "0000000a 00000014 00000001 8*00");
  ExpectWire(MakeTlv(23, 28, 0, nullptr), "00000017 0000001c 00000000 16*00");
}

TEST(TlvEncode, TypesWithoutValueWriteNoneEvenIfThereIsOne) {
  ExpectWire(MakeTlv(37, 16, 0, HeapCopy("abcd", 4)), "00000025 0000000c 00000000");
  ExpectWire(MakeTlv(42, 16, 0, HeapCopy("abcd", 4)), "0000002a 0000000c 00000000");
  ExpectWire(OneEntry(0x8000002A, Entry(9, 4, HeapCopy("abcd", 4))),
             "8000002a 00000038 00000000 " VT_ONE_ENTRY "00000009");
}

TEST(TlvEncode, LongTextGoesOutWhole) {
  // As the client makes it: the length in memory has wrapped in eight bits, the text has not.
  const TlvPtr tlv = MakeTlv(9, 57, 0, HeapText(std::string(300, 'n').c_str()));
  const Bytes wire = Encode(tlv.get());
  EXPECT_EQ(wire.size(), 312U);
  EXPECT_TRUE(SameBytes(Hex("00000009 00000138 00000000 300*6e"), wire));
}

// The exported packers leave a null text out, which would shift all that follows; an element is
// always encoded with its length word.
TEST(TlvEncode, NullTextOfARecurrenceTravelsAsEmpty) {
  auto* repeat = HeapRecord<recurrence>();
  repeat->byte1 = 5;
  repeat->byte2 = 6;
  repeat->flag = 7;
  ExpectWire(MakeTlv(46, 24, 0, repeat), "0000002e 00000016 00000000 00000000 05 06 00000007");
}

TEST(TlvEncode, NullTextAndBlockOfANeighborTravelAsEmpty) {
  auto* near = HeapRecord<neighbor>();
  std::memset(near->id.bytes, 'n', 32);
  near->flag = 1;
  ExpectWire(MakeTlv(28, 96, 0, near),
             "0000001c 00000038 00000000 32*6e 00000000 00000000 00000001");
}

TEST(TlvEncode, NullTextsOfRecordsInAggregatesTravelAsEmpty) {
  auto* repeat = HeapRecord<recurrence>();
  repeat->flag = 7;
  ExpectWire(OneEntry(0x8000002E, Entry(1, 10, repeat)),
             "8000002e 00000042 00000000 " VT_ONE_ENTRY "00000001 00000000 0000 00000007");
  ExpectWire(OneEntry(0x8000001C, Entry(1, 44, HeapRecord<neighbor>())),
             "8000001c 00000064 00000000 " VT_ONE_ENTRY "00000001 44*00");
}

TEST(TlvEncode, NullTextOfAnAggregatedEntryTravelsAsEmpty) {
  ExpectWire(OneEntry(0x80000009, Entry(3, 0, nullptr)),
             "80000009 0000003c 00000000 " VT_ONE_ENTRY "00000003 00000000");
}

TEST(TlvEncode, NullBlockOfAnAggregatedEntryTravelsAsEmpty) {
  ExpectWire(OneEntry(0x8000000A, Entry(3, 0, nullptr)),
             "8000000a 0000003c 00000000 " VT_ONE_ENTRY "00000003 00000000");
}

// A missing block counts as empty whatever length stands beside it: neither the length nor what the
// buffer held may go out.
TEST(TlvEncode, LengthBesideAMissingBlockDoesNotTravel) {
  ExpectWire(OneEntry(0x8000000A, Entry(3, 5, nullptr)),
             "8000000a 0000003c 00000000 " VT_ONE_ENTRY "00000003 00000000");

  const TlvPtr device = OneEntry(0x8000000D, Entry(3, 2, HeapCopy("\x34\x34", 2)));
  static_cast<aggregated_value*>(device->value)->device.data_len = 5;
  ExpectWire(device, "8000000d 0000003a 00000000 " VT_ONE_ENTRY "00000003 3434");

  auto* near = HeapRecord<neighbor>();
  near->data_len = 5;
  ExpectWire(MakeTlv(28, 96, 0, near), "0000001c 00000038 00000000 44*00");
}

// What a sum query carries: one combined entry with nothing in it.
TEST(TlvEncode, ElementsOfASumQueryAreZeroButWhole) {
  const struct {
    std::uint32_t type;
    std::size_t value_size;
    const char* wire;
  } rows[] = {
      {0x8000002B, 2, "8000002b 00000051 00000000 32*00 00000000 00000001 00000000 23*00 2*00"},
      {0x8000002C, 22, "8000002c 00000065 00000000 32*00 00000000 00000001 00000000 23*00 22*00"},
      {0x8000002D, 44, "8000002d 0000007b 00000000 32*00 00000000 00000001 00000000 23*00 44*00"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.wire);
    auto* entry = HeapRecord<combo_entry>();
    entry->data = std::calloc(1, row.value_size);
    const TlvPtr tlv = OneEntry(row.type, entry);
    std::memset(static_cast<aggregated_value*>(tlv->value)->device.id.bytes, 0, 32);
    ExpectWire(tlv, row.wire);
  }
}

TEST(TlvEncode, NullValuesOfOtherAggregatedEntriesTravelAsZeros) {
  ExpectWire(OneEntry(0x8000000D, Entry(3, 0, nullptr)),
             "8000000d 0000003a 00000000 " VT_ONE_ENTRY "00000003 0000");
  ExpectWire(OneEntry(0x80000023, Entry(3, 0, nullptr)),
             "80000023 0000005c 00000000 " VT_ONE_ENTRY "00000003 36*00");
  ExpectWire(OneEntry(0x8000002C, HeapRecord<combo_entry>()),
             "8000002c 00000065 00000000 " VT_ONE_ENTRY "00000000 23*00 22*00");
}

TEST(TlvEncode, EntriesOfTypesWithoutValueAreTheirTag) {
  ExpectWire(OneEntry(0x8000002A, Entry(3, 2, HeapCopy("ab", 2))),
             "8000002a 00000038 00000000 " VT_ONE_ENTRY "00000003");
  // Of an unknown type, the wire form is read back as an element without a value.
  EXPECT_TRUE(SameBytes(Hex("8000003c 00000038 00000000 " VT_ONE_ENTRY "00000003"),
                        Encode(OneEntry(0x8000003C, Entry(3, 2, HeapCopy("ab", 2))).get())));
}

TEST(TlvEncode, EmptySlotsOfAnAggregateDoNotTravel) {
  const TlvPtr tlv = OneEntry(0x8000000D, nullptr);
  auto* value = static_cast<aggregated_value*>(tlv->value);
  value->entries[1] = Entry(3, 2, HeapCopy("\x34\x34", 2));
  value->entry_count = 3;
  ExpectWire(tlv, "8000000d 0000003a 00000000 " VT_ONE_ENTRY "00000003 3434");
}

TEST(TlvEncode, EntryTextsAreCountedByTheirTerminator) {
  // What is built locally records strlen or strlen + 1 for a text; neither matters.
  for (const std::uint32_t data_len : {0U, 3U, 4U, 99U}) {
    ExpectWire(OneEntry(0x80000007, Entry(1, data_len, HeapText("abc"))),
               "80000007 0000003f 00000000 " VT_ONE_ENTRY "00000001 00000003 616263");
  }
}

TEST(TlvEncode, EntryBlocksAreCountedByTheirLength) {
  ExpectWire(OneEntry(0x8000000A, Entry(1, 4, HeapCopy("ab\0c\0d", 6))),
             "8000000a 00000040 00000000 " VT_ONE_ENTRY "00000001 00000004 61620063");
}

TEST(TlvEncode, ReservedBitKeepsEntriesOfCombinedTypesPlain) {
  ExpectWire(OneEntry(0xC000002B, Entry(1, 2, HeapCopy("\x34\x34", 2))),
             "c000002b 0000003a 00000000 " VT_ONE_ENTRY "00000001 3434");
}

}  // namespace
