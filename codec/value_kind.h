// A kind of value: how values of one wire form are decoded, encoded, measured, copied and released,
// in a plain element and in an aggregated one. A type has a kind (type_table.h), never a case
// label.
#ifndef VT_CODEC_VALUE_KIND_H
#define VT_CODEC_VALUE_KIND_H

#include <cstdint>
#include <span>

#include "codec/boundary.h"
#include "codec/records.h"

namespace vt::codec {

// Where a value stands. Texts and opaque blocks fill a plain element, whose header tells their
// length, and are counted inside an aggregate; all other kinds look the same in both.
enum class Place { kPlain, kAggregated };

// HostValue is a value in memory with its length: bytes of an opaque block, bytes with the
// terminator of a text, wire bytes of everything else.
struct HostValue {
  void* data = nullptr;
  std::uint32_t len = 0;
};

struct ValueKind {
  // What a null value of a plain element stands for: nothing, or as many zero bytes as it lacks.
  enum class NullPlain { kNothing, kZeros };
  // Whether the value is of variable length, or is a record which owns such parts.
  enum class Variable { kNothing, kWhole, kParts };

  // decode takes the value of a plain element, to which the whole input belongs.
  Status (*decode)(Reader& in, Arena& arena, HostValue& out);
  // read_plain_entries and, for values of combined types, read_combo_entries give an aggregate its
  // entries, which are one or more.
  Status (*read_plain_entries)(Reader& in, Arena& arena, std::uint32_t count,
                               aggregated_value& aggregate);
  Status (*read_combo_entries)(Reader& in, Arena& arena, std::uint32_t count,
                               aggregated_value& aggregate);
  // encode writes exactly Size bytes; a null value as an all-zero one.
  void (*encode)(Writer& out, Place place, const void* value, std::uint32_t len);
  // size measures values of variable size. All others take fixed_size bytes.
  std::uint32_t (*size)(Place place, const void* value, std::uint32_t len);
  std::uint32_t fixed_size;
  // A copy of a value that is not null is one block of copy_size bytes, which copy fills. Values
  // that own parts, or are none, have clone instead.
  std::uint32_t (*copy_size)(const void* value, std::uint32_t len);
  void (*copy)(void* to, const void* from, std::uint32_t len);
  Status (*clone)(const void* value, void*& to);
  // release releases what of a value lies outside of its element's block.
  void (*release)(const Extent& own, void* value);
  // A value in an arena takes value_room bytes and, if it has texts or blocks, no more besides than
  // its bytes on the wire, counts and paddings against lengths.
  std::uint32_t value_room;
  Variable variable;
  NullPlain null_plain;
  // has_value is false for types that carry no value: then nothing to clone is no failure.
  bool has_value;

  [[nodiscard]] std::uint32_t Size(Place place, const void* value, std::uint32_t len) const {
    return size != nullptr ? size(place, value, len) : fixed_size;
  }
};

// NoValue: nothing in either place.
struct NoValueKind {
  static constexpr std::uint32_t kRoom = 0;
  static constexpr auto kVariable = ValueKind::Variable::kNothing;
  static Status Decode(Reader& /*in*/, Arena& /*arena*/, Place /*place*/, HostValue& /*out*/) {
    return Status::kOk;
  }
  static constexpr std::uint32_t kFixedSize = 0;
  static void Encode(Writer& /*out*/, Place /*place*/, const void* /*value*/,
                     std::uint32_t /*len*/) {}
  static Status Clone(const void* /*value*/, void*& /*to*/) { return Status::kOk; }
  static void Release(const Extent& own, void* value) { own.Release(value); }
};

// Opaque: bytes whose length is kept beside them.
struct OpaqueKind {
  static constexpr std::uint32_t kRoom = 0;
  static constexpr auto kVariable = ValueKind::Variable::kWhole;
  static Status Decode(Reader& in, Arena& arena, Place place, HostValue& out) {
    if (place == Place::kAggregated) return CountedBlock::Read(in, arena, out.len, out.data);
    out.len = static_cast<std::uint32_t>(in.remaining());
    return ReadBlock(in, arena, in.remaining(), out.data);
  }
  static void Encode(Writer& out, Place place, const void* value, std::uint32_t len) {
    if (place == Place::kAggregated) return CountedBlock::Write(out, len, value);
    if (value == nullptr) return out.WriteZeros(len);
    out.Write(value, len);
  }
  static std::uint32_t Size(Place place, const void* value, std::uint32_t len) {
    return place == Place::kAggregated ? CountedBlock::Size(len, value) : len;
  }
  static std::uint32_t CopySize(const void* /*value*/, std::uint32_t len) { return len; }
  static void Copy(void* to, const void* from, std::uint32_t len) {
    if (len != 0) std::memcpy(to, from, len);
  }
  static void Release(const Extent& own, void* value) { own.Release(value); }
};

// Text: zero-terminated in memory; its own length counts, not the one beside it.
struct TextKind {
  static constexpr std::uint32_t kRoom = 0;
  static constexpr auto kVariable = ValueKind::Variable::kWhole;
  static Status Decode(Reader& in, Arena& arena, Place place, HostValue& out) {
    std::uint32_t len = static_cast<std::uint32_t>(in.remaining());
    if (place == Place::kAggregated && !in.Read(len)) return Status::kShortInput;
    char* text = nullptr;
    const Status status = ReadText(in, arena, len, text);
    if (status == Status::kOk) out = {text, len + 1};
    return status;
  }
  static void Encode(Writer& out, Place place, const void* value, std::uint32_t /*len*/) {
    const char* text = static_cast<const char*>(value);
    if (place == Place::kAggregated) return CountedText::Write(out, text, NullText::kEmpty);
    out.Write(text, TextLength(text));
  }
  static std::uint32_t Size(Place place, const void* value, std::uint32_t /*len*/) {
    const char* text = static_cast<const char*>(value);
    return place == Place::kAggregated ? CountedText::Size(text) : TextLength(text);
  }
  static std::uint32_t CopySize(const void* value, std::uint32_t /*len*/) {
    return TextLength(static_cast<const char*>(value)) + 1;
  }
  static void Copy(void* to, const void* from, std::uint32_t len) {
    std::memcpy(to, from, CopySize(from, len));
  }
  static void Release(const Extent& own, void* value) { own.Release(value); }
};

// RecordKind serves integers and structures: the wire form decides, the length beside it does not.
template <class Wire, class T = typename Wire::Host>
struct RecordKind {
  static constexpr std::uint32_t kRoom = sizeof(T);
  static constexpr auto kVariable =
      Wire::kOwnsParts ? ValueKind::Variable::kParts : ValueKind::Variable::kNothing;
  static constexpr std::uint32_t kFixedSize = Wire::kOwnsParts ? 0 : Wire::Size(T{});
  static Status Decode(Reader& in, Arena& arena, Place /*place*/, HostValue& out) {
    auto* value = static_cast<T*>(arena.New<T>(sizeof(T)));
    if (value == nullptr) return Status::kNoMemory;
    std::memset(value, 0, sizeof(T));
    const std::size_t before = in.remaining();
    const Status status = Wire::Read(in, arena, *value);
    out = {value, static_cast<std::uint32_t>(before - in.remaining())};
    return status;
  }
  static void Encode(Writer& out, Place /*place*/, const void* value, std::uint32_t /*len*/) {
    Wire::Write(out, ValueOrZero(value), NullText::kEmpty);
  }
  static std::uint32_t Size(Place /*place*/, const void* value,
                            std::uint32_t /*len*/) requires(Wire::kOwnsParts) {
    return Wire::Size(ValueOrZero(value));
  }
  static std::uint32_t CopySize(const void* /*value*/, std::uint32_t /*len*/) { return sizeof(T); }
  static void Copy(void* to, const void* from, std::uint32_t /*len*/) requires(!Wire::kOwnsParts) {
    (void)Wire::Clone(support::LoadHost<T>(from), *static_cast<T*>(to));  // has no way to fail
  }
  static Status Clone(const void* value, void*& to) requires(Wire::kOwnsParts) {
    Status status;
    to = CloneNew<Wire, T>(value, status);
    return status;
  }
  static void Release(const Extent& own, void* value) {
    Wire::Release(own, *static_cast<T*>(value));
    own.Release(value);
  }

 private:
  static T ValueOrZero(const void* value) {
    if (value != nullptr) return support::LoadHost<T>(value);
    T zero;
    std::memset(&zero, 0, sizeof zero);
    return zero;
  }
};

// PaddedKind is a RecordKind of plain bytes whose copies take the caller's length, but are never
// shorter than the record: what the caller's value lacks is zero.
template <class Wire, class T = typename Wire::Host>
struct PaddedKind : RecordKind<Wire, T> {
  static std::uint32_t CopySize(const void* /*value*/, std::uint32_t len) {
    return len > sizeof(T) ? len : static_cast<std::uint32_t>(sizeof(T));
  }
  static void Copy(void* to, const void* from, std::uint32_t len) {
    std::memset(to, 0, sizeof(T));
    OpaqueKind::Copy(to, from, len);
  }
};

template <std::integral T>
struct IntegerKind : RecordKind<Integer<T>, T> {
  // ReadAll fills entries which are all of one size on the wire, and so need one check of bounds.
  static Status ReadAll(Reader& in, Arena& arena, std::span<plain_entry> entries) {
    constexpr std::size_t kWireSize = sizeof(std::uint32_t) + sizeof(T);
    Bytes wire;
    if (!in.Take(entries.size() * kWireSize, wire)) return Status::kShortInput;
    auto* value = static_cast<T*>(arena.New<T>(entries.size() * sizeof(T)));
    if (value == nullptr) return Status::kNoMemory;
    const std::uint8_t* at = wire.data();
    for (plain_entry& entry : entries) {
      *value = support::LoadNetwork<T>(at + sizeof(std::uint32_t));
      entry = {support::LoadNetwork<std::uint32_t>(at), sizeof(T), value++};
      at += kWireSize;
    }
    return Status::kOk;
  }
};

// ReadTag takes the word that an entry of either shape begins with.
template <class Entry>
Status ReadTag(Reader& in, Entry& entry) {
  return in.Read(entry.tag) ? Status::kOk : Status::kShortInput;
}

template <class Kind>
Status ReadEntry(Reader& in, Arena& arena, plain_entry& entry) {
  if (const Status status = ReadTag(in, entry); status != Status::kOk) return status;
  HostValue value;
  const Status status = Kind::Decode(in, arena, Place::kAggregated, value);
  entry.data = value.data;
  entry.data_len = value.len;
  return status;
}

template <class Kind>
Status ReadEntry(Reader& in, Arena& arena, combo_entry& entry) {
  if (const Status status = ReadTag(in, entry); status != Status::kOk) return status;
  if (const Status status = UsageHeaderWire::Read(in, arena, entry.usage); status != Status::kOk) {
    return status;
  }
  HostValue value;
  const Status status = Kind::Decode(in, arena, Place::kAggregated, value);
  entry.data = value.data;
  return status;
}

// NewEntries makes an array of pointers and, behind it, the entries that they lead to, which may
// hold anything; none without room.
template <class Entry>
std::span<Entry> NewEntries(Arena& arena, std::uint32_t count, aggregated_value& aggregate) {
  static_assert(alignof(Entry) <= alignof(void*));
  auto** slots = static_cast<void**>(arena.New<void*>(count * (sizeof(void*) + sizeof(Entry))));
  if (slots == nullptr) return {};
  const std::span<Entry> entries(static_cast<Entry*>(static_cast<void*>(slots + count)), count);
  for (std::uint32_t i = 0; i < count; ++i) slots[i] = &entries[i];
  aggregate.entries = slots;
  aggregate.entry_count = count;
  return entries;
}

// ReadEntries has a loop of its own for each kind, for aggregates of many small values.
template <class Kind, class Entry>
Status ReadEntries(Reader& in, Arena& arena, std::uint32_t count, aggregated_value& aggregate) {
  const std::span<Entry> entries = NewEntries<Entry>(arena, count, aggregate);
  if (entries.empty()) return Status::kNoMemory;
  if constexpr (requires { Kind::ReadAll(in, arena, entries); }) {
    return Kind::ReadAll(in, arena, entries);
  } else {
    for (Entry& entry : entries) {
      if (const Status status = ReadEntry<Kind>(in, arena, entry); status != Status::kOk) {
        return status;
      }
    }
    return Status::kOk;
  }
}

template <class Kind>
Status ReadPlain(Reader& in, Arena& arena, HostValue& out) {
  return Kind::Decode(in, arena, Place::kPlain, out);
}

template <class Kind>
consteval ValueKind MakeKind(ValueKind::NullPlain null_plain = ValueKind::NullPlain::kNothing,
                             bool has_value = true) {
  ValueKind kind{};
  kind.decode = ReadPlain<Kind>;
  kind.read_plain_entries = ReadEntries<Kind, plain_entry>;
  kind.encode = Kind::Encode;
  if constexpr (requires(const void* value) { Kind::Size(Place::kPlain, value, 0); }) {
    kind.size = Kind::Size;
  } else {
    kind.fixed_size = Kind::kFixedSize;
  }
  if constexpr (requires(void* to, const void* from) { Kind::Copy(to, from, 0); }) {
    kind.copy_size = Kind::CopySize;
    kind.copy = Kind::Copy;
  } else {
    kind.clone = Kind::Clone;
  }
  kind.release = Kind::Release;
  kind.value_room = Kind::kRoom;
  kind.variable = Kind::kVariable;
  kind.null_plain = null_plain;
  kind.has_value = has_value;
  return kind;
}

template <class Kind>
consteval ValueKind MakeComboKind() {
  ValueKind kind = MakeKind<Kind>();
  kind.read_combo_entries = ReadEntries<Kind, combo_entry>;
  return kind;
}

}  // namespace vt::codec

#endif  // VT_CODEC_VALUE_KIND_H
