// An element from its wire bytes. Nothing a peer says about a length or a count is believed before
// it is held against the bytes that are there.
#include <algorithm>
#include <limits>

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

// ReadPlainEntry reads the value behind the tag. The entry owns what was read, failed or not.
Status ReadPlainEntry(Reader& in, const ValueKind& kind, plain_entry& entry) {
  HostValue value;
  const Status status = kind.decode(in, Place::kAggregated, value);
  entry.data = value.data;
  entry.data_len = value.len;
  return status;
}

Status ReadComboEntry(Reader& in, const ValueKind& kind, combo_entry& entry) {
  if (const Status status = UsageHeaderWire::Read(in, entry.usage); status != Status::kOk) {
    return status;
  }
  HostValue value;
  const Status status = kind.decode(in, Place::kAggregated, value);
  entry.data = value.data;
  return status;
}

Status ReadEntry(Reader& in, std::uint32_t type, const ValueKind& kind, void*& slot) {
  const bool combo = cv_is_combo_tlv(type) != 0;
  slot = combo ? static_cast<void*>(NewRecord<combo_entry>()) : NewRecord<plain_entry>();
  if (slot == nullptr) return Status::kNoMemory;
  std::uint32_t tag = 0;
  if (!in.Read(tag)) return Status::kShortInput;
  std::memcpy(slot, &tag, sizeof tag);  // both shapes begin with it
  return combo ? ReadComboEntry(in, kind, *static_cast<combo_entry*>(slot))
               : ReadPlainEntry(in, kind, *static_cast<plain_entry*>(slot));
}

Status ReadAggregate(Reader& in, std::uint32_t type, const ValueKind& kind, aggregated_value& out) {
  if (const Status status = DeviceHeaderWire::Read(in, out.device); status != Status::kOk) {
    return status;
  }
  std::uint32_t count = 0;
  if (!in.Read(count)) return Status::kShortInput;
  constexpr std::size_t kLeastEntrySize = 4;
  if (count > in.remaining() / kLeastEntrySize) return Status::kShortInput;
  if (count == 0) return Status::kOk;
  out.entries = NewEntrySlots(count);
  if (out.entries == nullptr) return Status::kNoMemory;
  out.entry_count = count;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (const Status status = ReadEntry(in, type, kind, out.entries[i]); status != Status::kOk) {
      return status;
    }
  }
  return Status::kOk;
}

Status ReadAggregatedElement(Reader& in, const ValueKind& kind, Tlv& tlv) {
  auto* aggregate = NewRecord<aggregated_value>();
  if (aggregate == nullptr) return Status::kNoMemory;
  tlv.value = aggregate;
  return ReadAggregate(in, tlv.type, kind, *aggregate);
}

Status ReadPlainElement(Reader& in, const ValueKind& kind, Tlv& tlv) {
  HostValue value;
  if (const Status status = kind.decode(in, Place::kPlain, value); status != Status::kOk) {
    return status;
  }
  tlv.value = value.data;
  // A text counts its terminator in memory. All other plain values fill their element, or are
  // dropped for what they leave over.
  if (value.len > tlv.length - VT_TLV_HEADER_SIZE) tlv.length = VT_TLV_HEADER_SIZE + value.len;
  return Status::kOk;
}

// ReadElement decodes the value bytes of an element, all of which must be used.
Tlv* ReadElement(const ElementHeader& header, Reader value) {
  OwnedTlv tlv(NewRecord<Tlv>());
  if (tlv == nullptr) return nullptr;
  tlv->type = header.type;
  tlv->length = header.length;
  tlv->qualifier = header.qualifier;
  if (value.remaining() == 0) return tlv.release();

  const auto number = static_cast<int>(TypeNumber(header.type));
  const ValueKind* kind = KindOf(header.type);
  if (kind == nullptr) {
    VT_LOG_AS(kTrace, "cv_create_tlv_from_raw_buf", "Skipping unknown TLV, type = %d", number);
    return tlv.release();
  }
  const Status status = IsAggregated(header.type) ? ReadAggregatedElement(value, *kind, *tlv)
                                                  : ReadPlainElement(value, *kind, *tlv);
  if (status != Status::kOk) return nullptr;
  if (value.remaining() != 0) {
    VT_LOG_AS(kError, "cv_create_tlv_from_raw_buf",
              "Received mismatched TLV for type %d, dropping packet", number);
    return nullptr;
  }
  return tlv.release();
}

std::int32_t ClampedDifference(std::int32_t remaining, std::uint32_t length) {
  const std::int64_t left = std::int64_t{remaining} - std::int64_t{length};
  return static_cast<std::int32_t>(
      std::max<std::int64_t>(left, std::numeric_limits<std::int32_t>::min()));
}

}  // namespace

}  // namespace vt::codec

extern "C" Tlv* cv_create_tlv_from_raw_buf(std::int32_t* remaining, std::uint8_t** cursor) {
  using namespace vt::codec;  // NOLINT(google-build-using-namespace): the one function of this file
  Reader in = InputOf(*cursor, *remaining);
  ElementHeader header{};
  if (!in.Read(header.type) || !in.Read(header.length) || !in.Read(header.qualifier)) {
    return nullptr;
  }
  *remaining = ClampedDifference(*remaining, header.length);
  if (header.length < VT_TLV_HEADER_SIZE) return nullptr;
  Bytes value;
  if (!in.Take(header.length - VT_TLV_HEADER_SIZE, value)) return nullptr;
  Tlv* tlv = ReadElement(header, Reader(value));
  if (tlv != nullptr) *cursor += header.length;
  return tlv;
}
