// The forms that values have, each with all that is done to them. What asks for the kind of a value
// sees ValueKind (value_kind.h); the forms stand behind it.
#ifndef VT_CODEC_VALUE_FORMS_H
#define VT_CODEC_VALUE_FORMS_H

#include <cstdint>
#include <span>
#include <type_traits>

#include "codec/boundary.h"
#include "codec/records.h"
#include "codec/value_kind.h"

namespace vt::codec {

// FormDefaults is what most forms have in common.
struct FormDefaults {
  static constexpr auto kNullPlain = ValueKind::NullPlain::kNothing;
  static constexpr bool kHasValue = true;
  // Whether entries of an aggregate are read by a loop of the form's own: for what there are many
  // of.
  static constexpr bool kHasLoop = false;
};

// Each form names the one that it is read as, so that forms which look the same on the wire share
// the code.

// NoValue: nothing in either place.
struct NoValueForm : FormDefaults {
  static constexpr auto kCopying = ValueKind::Copying::kByForm;
  using Reading = NoValueForm;
  static constexpr bool kHasValue = false;
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
struct OpaqueForm : FormDefaults {
  static constexpr auto kCopying = ValueKind::Copying::kBytes;
  using Reading = OpaqueForm;
  static constexpr auto kNullPlain = ValueKind::NullPlain::kZeros;
  static constexpr bool kHasLoop = true;
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
  static void Release(const Extent& own, void* value) { own.Release(value); }
};

// Text: zero-terminated in memory; its own length counts, not the one beside it.
struct TextForm : FormDefaults {
  static constexpr auto kCopying = ValueKind::Copying::kText;
  using Reading = TextForm;
  static constexpr bool kHasLoop = true;
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
  static void Release(const Extent& own, void* value) { own.Release(value); }
};

// RecordForm serves integers and structures: the wire form decides, the length beside it does not.
template <class Wire, class T = typename Wire::Host>
struct RecordForm : FormDefaults {
  static constexpr auto kCopying =
      Wire::kOwnsParts ? ValueKind::Copying::kByForm : ValueKind::Copying::kRecord;
  using Reading = RecordForm;
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

// PaddedForm is a RecordForm of plain bytes whose copies take the caller's length, but are never
// shorter than the record: what the caller's value lacks is zero.
template <class Wire, class T = typename Wire::Host>
struct PaddedForm : RecordForm<Wire, T> {
  static constexpr auto kCopying = ValueKind::Copying::kPaddedRecord;
};

template <std::integral T>
struct IntegerForm : RecordForm<Integer<T>, T> {
  using Reading = IntegerForm<std::make_unsigned_t<T>>;
  static constexpr bool kHasLoop = true;
  // ReadAll fills entries which are all of one size on the wire, and so need one check of bounds.
  static Status ReadAll(Reader& in, Arena& arena, void** slot, std::span<plain_entry> entries) {
    constexpr std::size_t kWireSize = sizeof(std::uint32_t) + sizeof(T);
    Bytes wire;
    if (!in.Take(entries.size() * kWireSize, wire)) return Status::kShortInput;
    auto* value = static_cast<T*>(arena.New<T>(entries.size() * sizeof(T)));
    if (value == nullptr) return Status::kNoMemory;
    const std::uint8_t* at = wire.data();
    for (plain_entry& entry : entries) {
      *value = support::LoadNetwork<T>(at + sizeof(std::uint32_t));
      entry = {support::LoadNetwork<std::uint32_t>(at), sizeof(T), value++};
      *slot++ = &entry;
      at += kWireSize;
    }
    return Status::kOk;
  }
};

#define VT_VISIT_FORM(kind, form) \
  case KindName::kind:            \
    return visit(std::type_identity<form>());

// WithForm calls visit with the form of a kind, as std::type_identity of it.
template <class Visit>
auto WithForm(KindName name, Visit visit) {
  switch (name) {
    VT_KINDS_WITH_VALUE_LIST(VT_VISIT_FORM)
    default:  // kNoValue
      return visit(std::type_identity<NoValueForm>());
  }
}

#undef VT_VISIT_FORM

}  // namespace vt::codec

#endif  // VT_CODEC_VALUE_FORMS_H
