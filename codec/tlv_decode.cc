// An element from its wire bytes. Nothing a peer says about a length or a count is believed before
// it is held against the bytes that are there.
#include "codec/tlv_decode.h"

#include <algorithm>
#include <limits>
#include <span>
#include <utility>

#include "vtapi/tlv.h"

#include "codec/tlv_memory.h"
#include "codec/type_table.h"
#include "support/log.h"

namespace vt::codec {

namespace {

struct ElementHeader {
  std::uint32_t type;
  std::uint32_t length;
  std::uint32_t qualifier;
};

struct ElementDeleter {
  void operator()(CompactTlv* element) const { ReleaseElement(&element->tlv); }
};

// Null: it cannot be decoded, or there is no memory.
using Element = std::unique_ptr<CompactTlv, ElementDeleter>;

// Room is a number of bytes in memory. It is wider than an address, so that what a length on the
// wire is multiplied to cannot wrap.
using Room = std::uint64_t;

// NewElement returns an element with room bytes behind it for its parts.
Element NewElement(const ElementHeader& header, Room room, MessagePool* pool) {
  // There never is as much memory as an address can tell of.
  constexpr Room kTooMuch = std::numeric_limits<std::ptrdiff_t>::max() - sizeof(CompactTlv);
  room = std::min(room, kTooMuch);
  return Element(NewCompactTlv(header.type, header.length, header.qualifier,
                               static_cast<std::size_t>(room), pool));
}

// GiveBackRest gives the next element in the pool what this one did not need.
void GiveBackRest(CompactTlv& made, const Arena& arena, MessagePool* pool) {
  if (!IsPooled(&made)) return;
  made.size -= arena.room();
  pool->GiveBack(arena.room());
}

// PartsRoom is what the texts and blocks take of values that are wire_bytes long on the wire. What
// stands there besides, at the least a length for each, covers their terminators and paddings; the
// spare word covers the terminator of a text that fills its element.
Room PartsRoom(const ValueKind& kind, bool combo, std::size_t wire_bytes) {
  if (!combo && kind.variable == ValueKind::Variable::kNothing) return 0;
  return wire_bytes + sizeof(void*);
}

Element ReadPlainElement(Reader& in, const ElementHeader& header, const ValueKind& kind,
                         MessagePool* pool) {
  const Room room = kind.value_room + PartsRoom(kind, false, in.remaining());
  Element made = NewElement(header, room, pool);
  if (made == nullptr) return nullptr;
  Arena arena(made.get() + 1, static_cast<std::size_t>(room));
  HostValue value;
  if (kind.Decode(in, arena, value) != Status::kOk) return nullptr;
  GiveBackRest(*made, arena, pool);
  Tlv& tlv = made->tlv;
  tlv.value = value.data;
  // A text counts its terminator in memory. All other plain values fill their element, or are
  // dropped for what they leave over.
  if (value.len > tlv.length - VT_TLV_HEADER_SIZE) tlv.length = VT_TLV_HEADER_SIZE + value.len;
  return made;
}

// AggregateCounts are the numbers that an aggregate is measured by.
struct AggregateCounts {
  std::uint32_t device_data = 0;
  std::uint32_t entries = 0;
  std::size_t entry_bytes = 0;

  // Look reads ahead, and holds the numbers against the bytes that are there.
  [[nodiscard]] bool Look(Reader in) {
    constexpr std::size_t kLeastEntrySize = 4;
    if (!in.Skip(sizeof(corvane_id)) || !in.Read(device_data) || !in.Skip(device_data) ||
        !in.Read(entries)) {
      return false;
    }
    entry_bytes = in.remaining();
    return entries <= entry_bytes / kLeastEntrySize;
  }
};

Room AggregateRoom(const AggregateCounts& counts, const ValueKind& kind, bool combo) {
  constexpr Room kPadding = sizeof(void*) - 1;  // behind the data of the device
  const Room entry = (combo ? sizeof(combo_entry) : sizeof(plain_entry)) + kind.value_room;
  return sizeof(aggregated_value) + counts.device_data + kPadding +
         counts.entries * (sizeof(void*) + entry) + PartsRoom(kind, combo, counts.entry_bytes);
}

Element ReadAggregatedElement(Reader& in, const ElementHeader& header, const ValueKind& kind,
                              MessagePool* pool) {
  AggregateCounts counts;
  if (!counts.Look(in)) return nullptr;
  const bool combo = cv_is_combo_tlv(header.type) != 0;
  const Room room = AggregateRoom(counts, kind, combo);
  Element made = NewElement(header, room, pool);
  if (made == nullptr) return nullptr;
  Arena arena(made.get() + 1, static_cast<std::size_t>(room));
  auto* aggregate =
      static_cast<aggregated_value*>(arena.New<aggregated_value>(sizeof(aggregated_value)));
  *aggregate = {};
  made->tlv.value = aggregate;
  // The look ahead has seen all of this.
  device_header& device = aggregate->device;
  (void)Identity::Read(in, arena, device.id);
  (void)CountedBlock::Read(in, arena, device.data_len, device.data);
  (void)in.Skip(sizeof counts.entries);
  Status status = Status::kOk;
  if (counts.entries != 0) {
    status = kind.ReadEntries(in, arena, combo, counts.entries, *aggregate);
  }
  if (status != Status::kOk) return nullptr;
  GiveBackRest(*made, arena, pool);
  return made;
}

// ReadElement decodes the value bytes of an element, all of which must be used.
Element ReadElement(const ElementHeader& header, Reader value, MessagePool* pool) {
  if (value.remaining() == 0) return NewElement(header, 0, pool);
  const auto number = static_cast<int>(TypeNumber(header.type));
  const ValueKind* kind = KindOf(header.type);
  if (kind == nullptr) {
    VT_LOG_AS(kTrace, "cv_create_tlv_from_raw_buf", "Skipping unknown TLV, type = %d", number);
    return NewElement(header, 0, pool);
  }
  Element made = IsAggregated(header.type) ? ReadAggregatedElement(value, header, *kind, pool)
                                           : ReadPlainElement(value, header, *kind, pool);
  if (made != nullptr && value.remaining() != 0) {
    VT_LOG_AS(kError, "cv_create_tlv_from_raw_buf",
              "Received mismatched TLV for type %d, dropping packet", number);
    return nullptr;
  }
  return made;
}

std::int32_t ClampedDifference(std::int32_t remaining, std::uint32_t length) {
  const std::int64_t left = std::int64_t{remaining} - std::int64_t{length};
  return static_cast<std::int32_t>(
      std::max<std::int64_t>(left, std::numeric_limits<std::int32_t>::min()));
}

}  // namespace

Tlv* ReadTlv(std::int32_t* remaining, std::uint8_t** cursor, MessagePool* pool) {
  Reader in = InputOf(*cursor, *remaining);
  ElementHeader header{};
  if (!in.Read(header.type) || !in.Read(header.length) || !in.Read(header.qualifier)) {
    return nullptr;
  }
  *remaining = ClampedDifference(*remaining, header.length);
  if (header.length < VT_TLV_HEADER_SIZE) return nullptr;
  Bytes value;
  if (!in.Take(header.length - VT_TLV_HEADER_SIZE, value)) return nullptr;
  CompactTlv* made = ReadElement(header, Reader(value), pool).release();
  if (made == nullptr) return nullptr;
  *cursor += header.length;
  return &made->tlv;
}

}  // namespace vt::codec

extern "C" Tlv* cv_create_tlv_from_raw_buf(std::int32_t* remaining, std::uint8_t** cursor) {
  return vt::codec::ReadTlv(remaining, cursor, nullptr);
}
