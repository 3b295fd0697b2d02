// The kinds of values and the room that they are given.
#include "codec/value_kind.h"

#include <gtest/gtest.h>

#include "vtapi.h"

#include "codec/type_table.h"
#include "tests/codec/codec_support.h"
#include "tests/codec/tlv_vectors.h"
#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace {

using namespace vt::testing;
using vt::codec::Arena;
using vt::codec::KindOf;
using vt::codec::Reader;
using vt::codec::Status;

// LeastRoom tries ever larger arenas, each in front of an inaccessible page, until decode succeeds
// in one. All smaller ones have to be refused.
template <class Decode>
std::size_t LeastRoom(const Bytes& value, Decode decode) {
  constexpr std::size_t kTooMuch = 10000;
  for (std::size_t room = 0; room < kTooMuch; ++room) {
    GuardedBytes block(Bytes(room, 0xA5));
    Arena arena(block.data(), room);
    Reader in({value.data(), value.size()});
    const Status status = decode(in, arena);
    if (status == Status::kOk) return room;
    EXPECT_EQ(status, Status::kNoMemory) << room;
    if (status != Status::kNoMemory) return room;
  }
  ADD_FAILURE() << "no room is enough";
  return kTooMuch;
}

TEST(ValueKind, WithoutRoomForAPlainValueReportsThatAndWritesNothingBeyond) {
  std::size_t most = 0;
  for (const TlvVector& v : AllVectors()) {
    const Bytes wire = Hex(v.wire);
    if ((v.type & VT_TLV_AGGREGATED) != 0 || wire.size() == VT_TLV_HEADER_SIZE) continue;
    SCOPED_TRACE(v);
    most = std::max(most, LeastRoom(Bytes(wire.begin() + VT_TLV_HEADER_SIZE, wire.end()),
                                    [&](Reader& in, Arena& arena) {
                                      vt::codec::HostValue value;
                                      return KindOf(v.type)->Decode(in, arena, value);
                                    }));
  }
  EXPECT_GE(most, sizeof(neighbor));
}

TEST(ValueKind, RoomThatEndsBeforeItIsAlignedIsNone) {
  alignas(void*) std::uint8_t block[16] = {};
  Arena arena(block + 1, 2);
  EXPECT_EQ(arena.New<void*>(1), nullptr);
  EXPECT_EQ(arena.New<char>(2), block + 1);
  EXPECT_EQ(arena.New<char>(1), nullptr);
}

TEST(ValueKind, WithoutRoomForItsEntriesReportsThatAndWritesNothingBeyond) {
  constexpr std::size_t kDeviceDataLength = VT_TLV_HEADER_SIZE + sizeof(corvane_id);
  std::size_t most = 0;
  for (const TlvVector& v : AllVectors()) {
    if ((v.type & VT_TLV_AGGREGATED) == 0) continue;
    SCOPED_TRACE(v);
    const Bytes wire = Hex(v.wire);
    Reader in({wire.data(), wire.size()});
    std::uint32_t length = 0;
    std::uint32_t count = 0;
    ASSERT_TRUE(in.Skip(kDeviceDataLength) && in.Read(length) && in.Skip(length) && in.Read(count));
    if (count == 0) continue;
    const Bytes entries(wire.end() - static_cast<std::ptrdiff_t>(in.remaining()), wire.end());
    most = std::max(most, LeastRoom(entries, [&](Reader& from, Arena& arena) {
                      const vt::codec::ValueKind& kind = *KindOf(v.type);
                      aggregated_value aggregate{};
                      return kind.ReadEntries(from, arena, cv_is_combo_tlv(v.type) != 0, count,
                                              aggregate);
                    }));
  }
  EXPECT_GE(most, sizeof(combo_entry));
}

}  // namespace
