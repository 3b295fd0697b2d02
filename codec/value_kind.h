// A kind of value: how values of one wire form are decoded, encoded, measured, copied and released,
// in a plain element and in an aggregated one. A type has a kind (type_table.h), never a case
// label.
#ifndef VT_CODEC_VALUE_KIND_H
#define VT_CODEC_VALUE_KIND_H

#include <cstdint>

#include "vtapi/values.h"

#include "codec/boundary.h"

namespace vt::codec {

// Every kind with the form (value_forms.h) that does its work. The table of their properties and
// the choice of a form are made from these lists. There is no table of functions: a pointer to each
// of them would have to be set right whenever the library is loaded.
#define VT_KINDS_WITH_VALUE_LIST(X)                                                              \
  X(kOpaque, OpaqueForm)                                                                         \
  X(kText, TextForm)                                                                             \
  X(kInt8, IntegerForm<std::int8_t>)                                                             \
  X(kUint8, IntegerForm<std::uint8_t>)                                                           \
  X(kUint16, IntegerForm<std::uint16_t>)                                                         \
  X(kInt32, IntegerForm<std::int32_t>)                                                           \
  X(kUint32, IntegerForm<std::uint32_t>)                                                         \
  X(kIdentity, PaddedForm<IdentityWire>)                                                         \
  X(kSenderId, RecordForm<SenderIdWire>)                                                         \
  X(kEventId, RecordForm<EventIdWire>)                                                           \
  X(kNeighbor, RecordForm<NeighborWire>)                                                         \
  X(kRecurrence, RecordForm<RecurrenceWire>)                                                     \
  X(kAlarm, RecordForm<AlarmWire>)                                                               \
  X(kDeltaVector, PaddedForm<DeltaVectorWire>)                                                   \
  X(kUsageVector, PaddedForm<UsageVectorWire>)                                                   \
  /* The vectors of combined types have their own length, whatever length stands beside them. */ \
  X(kComboDeltaVector, RecordForm<DeltaVectorWire>)                                              \
  X(kComboUsageVector, RecordForm<UsageVectorWire>)

#define VT_VALUE_KIND_LIST(X) \
  X(kNoValue, NoValueForm)    \
  VT_KINDS_WITH_VALUE_LIST(X)

#define VT_KIND_NAME(name, form) name,
enum class KindName : std::uint8_t { VT_VALUE_KIND_LIST(VT_KIND_NAME) };
#undef VT_KIND_NAME

// Where a value stands. Texts and opaque blocks fill a plain element, whose header tells their
// length, and are counted inside an aggregate; all other kinds look the same in both.
enum class Place { kPlain, kAggregated };

// HostValue is a value in memory with its length: bytes of an opaque block, bytes with the
// terminator of a text, wire bytes of everything else.
struct HostValue {
  void* data = nullptr;
  std::uint32_t len = 0;
};

struct alignas(8) ValueKind {
  // What a null value of a plain element stands for: nothing, or as many zero bytes as it lacks.
  enum class NullPlain : std::uint8_t { kNothing, kZeros };
  // Whether the value is of variable length, or is a record which owns such parts.
  enum class Variable : std::uint8_t { kNothing, kWhole, kParts };

  // What a copy of a value is: made of parts by a function of its form, or one block, with a text
  // up to its terminator, with as many bytes as stand beside it, or with a record. A padded record
  // takes these too, and is zero behind them.
  enum class Copying : std::uint8_t { kByForm, kText, kBytes, kRecord, kPaddedRecord };

  // Decode takes the value of a plain element, to which the whole input belongs.
  Status Decode(Reader& in, Arena& arena, HostValue& out) const;
  // ReadEntries gives an aggregate its entries, which are one or more. Values of combined types
  // have entries of a shape of their own; combo tells whether the aggregate has these.
  Status ReadEntries(Reader& in, Arena& arena, bool combo, std::uint32_t count,
                     aggregated_value& aggregate) const;
  // Encode writes exactly Size bytes; a null value as an all-zero one.
  void Encode(Writer& out, Place place, const void* value, std::uint32_t len) const;
  [[nodiscard]] std::uint32_t Size(Place place, const void* value, std::uint32_t len) const {
    return fixed_size != 0 ? fixed_size : VariableSize(place, value, len);
  }
  // Clone makes to a copy, in blocks of its own, of a value that is not null.
  Status Clone(const void* from, std::uint32_t len, void*& to) const;
  [[nodiscard]] bool is_one_piece() const { return copying != Copying::kByForm; }
  // A copy of a value that is_one_piece is a block of CopySize bytes, which Copy fills.
  [[nodiscard]] std::uint32_t CopySize(const void* value, std::uint32_t len) const;
  void Copy(void* to, const void* from, std::uint32_t len) const;
  // Release releases what of a value lies outside of its element's block.
  void Release(const Extent& own, void* value) const;

  KindName name;
  // A value in an arena takes value_room bytes and, if it has texts or blocks, no more besides than
  // its bytes on the wire, counts and paddings against lengths.
  std::uint8_t value_room;
  std::uint8_t fixed_size;  // 0 for values of variable size, and for none
  Variable variable;
  NullPlain null_plain;
  Copying copying;
  // False for types that carry no value: then nothing to clone is no failure.
  bool has_value;

 private:
  [[nodiscard]] std::uint32_t VariableSize(Place place, const void* value, std::uint32_t len) const;
};

extern const ValueKind kValueKinds[] __attribute__((visibility("hidden")));

// KindNamed gives the properties of a kind.
[[nodiscard]] inline const ValueKind& KindNamed(KindName name) {
  return kValueKinds[static_cast<std::size_t>(name)];
}

}  // namespace vt::codec

#endif  // VT_CODEC_VALUE_KIND_H
