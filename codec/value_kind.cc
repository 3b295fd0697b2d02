#include "codec/value_kind.h"

#include <algorithm>
#include <cstring>

#include "codec/value_forms.h"

namespace vt::codec {

namespace {

template <class Form>
concept MeasuresItself = requires(const void* value) {
  Form::Size(Place::kPlain, value, 0);
};

template <class Form>
consteval ValueKind MakeKind(KindName name) {
  static_assert(Form::kRoom <= UINT8_MAX);
  ValueKind kind{};
  kind.name = name;
  kind.value_room = Form::kRoom;
  if constexpr (!MeasuresItself<Form>) kind.fixed_size = Form::kFixedSize;
  kind.variable = Form::kVariable;
  kind.null_plain = Form::kNullPlain;
  kind.copying = Form::kCopying;
  kind.has_value = Form::kHasValue;
  return kind;
}

}  // namespace

#define VT_KIND_ROW(kind, form) MakeKind<form>(KindName::kind),
constexpr ValueKind kValueKinds[] = {VT_VALUE_KIND_LIST(VT_KIND_ROW)};

void ValueKind::Encode(Writer& out, Place place, const void* value, std::uint32_t len) const {
  WithForm(name, [&](auto form) { decltype(form)::type::Encode(out, place, value, len); });
}

std::uint32_t ValueKind::VariableSize(Place place, const void* value, std::uint32_t len) const {
  return WithForm(name, [&](auto form) {
    using Form = typename decltype(form)::type;
    std::uint32_t size = 0;
    if constexpr (MeasuresItself<Form>) size = Form::Size(place, value, len);
    return size;
  });
}

Status ValueKind::Clone(const void* from, std::uint32_t len, void*& to) const {
  if (is_one_piece()) {
    to = NewBlock(CopySize(from, len));
    if (to == nullptr) return Status::kNoMemory;
    Copy(to, from, len);
    return Status::kOk;
  }
  return WithForm(name, [&](auto form) {
    using Form = typename decltype(form)::type;
    Status status = Status::kOk;
    if constexpr (Form::kCopying == Copying::kByForm) status = Form::Clone(from, to);
    return status;
  });
}

std::uint32_t ValueKind::CopySize(const void* value, std::uint32_t len) const {
  if (copying == Copying::kText) return TextLength(static_cast<const char*>(value)) + 1;
  if (copying == Copying::kRecord) return value_room;
  return std::max<std::uint32_t>(len, value_room);  // there is no room of its own for bytes
}

void ValueKind::Copy(void* to, const void* from, std::uint32_t len) const {
  if (copying == Copying::kPaddedRecord) std::memset(to, 0, value_room);
  const bool goes_by_length = copying == Copying::kBytes || copying == Copying::kPaddedRecord;
  const std::uint32_t size = goes_by_length ? len : CopySize(from, len);
  if (size != 0) std::memcpy(to, from, size);
}

void ValueKind::Release(const Extent& own, void* value) const {
  WithForm(name, [&](auto form) { decltype(form)::type::Release(own, value); });
}

}  // namespace vt::codec
