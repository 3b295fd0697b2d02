// A kind of value: how values of one wire form are decoded, encoded, measured, copied and released,
// in a plain element and in an aggregated one. A type has a kind (type_table.h), never a case
// label.
#ifndef VT_CODEC_VALUE_KIND_H
#define VT_CODEC_VALUE_KIND_H

#include <cstdint>

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

  // decode takes a value; of a plain element, the whole input belongs to it.
  Status (*decode)(Reader& in, Place place, HostValue& out);
  // encode writes exactly size bytes; a null value as an all-zero one.
  void (*encode)(Writer& out, Place place, const void* value, std::uint32_t len);
  std::uint32_t (*size)(Place place, const void* value, std::uint32_t len);
  // clone copies a value that is not null.
  Status (*clone)(const void* value, std::uint32_t len, HostValue& out);
  void (*release)(void* value);
  NullPlain null_plain;
  // has_value is false for types that carry no value: then nothing to clone is no failure.
  bool has_value;
};

// NoValue: nothing in either place.
struct NoValueKind {
  static Status Decode(Reader& /*in*/, Place /*place*/, HostValue& /*out*/) { return Status::kOk; }
  static void Encode(Writer& /*out*/, Place /*place*/, const void* /*value*/,
                     std::uint32_t /*len*/) {}
  static std::uint32_t Size(Place /*place*/, const void* /*value*/, std::uint32_t /*len*/) {
    return 0;
  }
  static Status Clone(const void* /*value*/, std::uint32_t /*len*/, HostValue& /*out*/) {
    return Status::kOk;
  }
  static void Release(void* value) { ReleaseBlock(value); }
};

// Opaque: bytes whose length is kept beside them.
struct OpaqueKind {
  static Status Decode(Reader& in, Place place, HostValue& out) {
    if (place == Place::kAggregated) return CountedBlock::Read(in, out.len, out.data);
    out.len = static_cast<std::uint32_t>(in.remaining());
    return ReadBlock(in, in.remaining(), out.data);
  }
  static void Encode(Writer& out, Place place, const void* value, std::uint32_t len) {
    if (place == Place::kAggregated) return CountedBlock::Write(out, len, value);
    if (value == nullptr) return out.WriteZeros(len);
    out.Write(value, len);
  }
  static std::uint32_t Size(Place place, const void* value, std::uint32_t len) {
    return place == Place::kAggregated ? CountedBlock::Size(len, value) : len;
  }
  static Status Clone(const void* value, std::uint32_t len, HostValue& out) {
    out.data = CopyBlock(value, len);
    out.len = len;
    return out.data != nullptr ? Status::kOk : Status::kNoMemory;
  }
  static void Release(void* value) { ReleaseBlock(value); }
};

// Text: zero-terminated in memory; its own length counts, not the one beside it.
struct TextKind {
  static Status Decode(Reader& in, Place place, HostValue& out) {
    std::uint32_t len = static_cast<std::uint32_t>(in.remaining());
    if (place == Place::kAggregated && !in.Read(len)) return Status::kShortInput;
    char* text = nullptr;
    const Status status = ReadText(in, len, text);
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
  static Status Clone(const void* value, std::uint32_t /*len*/, HostValue& out) {
    char* copy = nullptr;
    const Status status = CloneText(static_cast<const char*>(value), copy);
    if (status == Status::kOk) out = {copy, TextLength(copy) + 1};
    return status;
  }
  static void Release(void* value) { ReleaseBlock(value); }
};

// RecordKind serves integers and structures: the wire form decides, the length beside it does not.
template <class Wire, class T = typename Wire::Host>
struct RecordKind {
  static Status Decode(Reader& in, Place /*place*/, HostValue& out) {
    OwnedBlock<T> value(NewRecord<T>());
    if (value == nullptr) return Status::kNoMemory;
    const std::size_t before = in.remaining();
    const Status status = Wire::Read(in, *value);
    if (status == Status::kOk) {
      out = {value.release(), static_cast<std::uint32_t>(before - in.remaining())};
    }
    return status;
  }
  static void Encode(Writer& out, Place /*place*/, const void* value, std::uint32_t /*len*/) {
    Wire::Write(out, ValueOrZero(value), NullText::kEmpty);
  }
  static std::uint32_t Size(Place /*place*/, const void* value, std::uint32_t /*len*/) {
    return Wire::Size(ValueOrZero(value));
  }
  static Status Clone(const void* value, std::uint32_t /*len*/, HostValue& out) {
    Status status;
    T* copy = CloneNew<Wire, T>(value, status);
    if (status == Status::kOk) out = {copy, Wire::Size(*copy)};
    return status;
  }
  static void Release(void* value) { ReleaseNew<Wire>(static_cast<T*>(value)); }

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
  static Status Clone(const void* value, std::uint32_t len, HostValue& out) {
    const std::uint32_t size = len > sizeof(T) ? len : static_cast<std::uint32_t>(sizeof(T));
    out.data = NewZeroedBlock(size);
    if (out.data == nullptr) return Status::kNoMemory;
    if (len != 0) std::memcpy(out.data, value, len);
    out.len = len;
    return Status::kOk;
  }
};

template <class T>
using IntegerKind = RecordKind<Integer<T>, T>;

template <class Kind>
consteval ValueKind MakeKind(ValueKind::NullPlain null_plain = ValueKind::NullPlain::kNothing,
                             bool has_value = true) {
  return {Kind::Decode,  Kind::Encode, Kind::Size, Kind::Clone,
          Kind::Release, null_plain,   has_value};
}

}  // namespace vt::codec

#endif  // VT_CODEC_VALUE_KIND_H
