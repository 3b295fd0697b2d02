// Values and entries read from the wire: what every reply passes through.
#include <span>

#include "codec/value_forms.h"
#include "codec/value_kind.h"

namespace vt::codec {

namespace {

// ReadTag takes the word that an entry of either shape begins with.
template <class Entry>
Status ReadTag(Reader& in, Entry& entry) {
  return in.Read(entry.tag) ? Status::kOk : Status::kShortInput;
}

// ReadEntry fills an entry of either shape; decode(value) takes its value.
template <class Decode>
Status ReadEntry(Reader& in, Arena& /*arena*/, plain_entry& entry, Decode decode) {
  if (const Status status = ReadTag(in, entry); status != Status::kOk) return status;
  HostValue value;
  const Status status = decode(value);
  entry.data = value.data;
  entry.data_len = value.len;
  return status;
}

template <class Decode>
Status ReadEntry(Reader& in, Arena& arena, combo_entry& entry, Decode decode) {
  if (const Status status = ReadTag(in, entry); status != Status::kOk) return status;
  if (const Status status = UsageHeaderWire::Read(in, arena, entry.usage); status != Status::kOk) {
    return status;
  }
  HostValue value;
  const Status status = decode(value);
  entry.data = value.data;
  return status;
}

// NewEntries makes an array of pointers and, behind it, the entries that they are to lead to, both
// of which may hold anything; none without room.
template <class Entry>
std::span<Entry> NewEntries(Arena& arena, std::uint32_t count, aggregated_value& aggregate) {
  static_assert(alignof(Entry) <= alignof(void*));
  auto** slots = static_cast<void**>(arena.New<void*>(count * (sizeof(void*) + sizeof(Entry))));
  if (slots == nullptr) return {};
  aggregate.entries = slots;
  aggregate.entry_count = count;
  return {static_cast<Entry*>(static_cast<void*>(slots + count)), count};
}

// ReadEach gives an aggregate its entries, one after the other. When it fails, the aggregate holds
// anything.
template <class Entry, class Decode>
Status ReadEach(Reader& in, Arena& arena, std::uint32_t count, aggregated_value& aggregate,
                Decode decode) {
  const std::span<Entry> entries = NewEntries<Entry>(arena, count, aggregate);
  if (entries.empty()) return Status::kNoMemory;
  void** slot = aggregate.entries;
  for (Entry& entry : entries) {
    if (const Status status = ReadEntry(in, arena, entry, decode); status != Status::kOk) {
      return status;
    }
    *slot++ = &entry;
  }
  return Status::kOk;
}

// ReadOwnEntries is ReadEach with a loop of the form's own.
template <class Form>
[[gnu::noinline]] Status ReadOwnEntries(Reader& in, Arena& arena, std::uint32_t count,
                                        aggregated_value& aggregate) {
  if constexpr (requires { Form::ReadAll(in, arena, nullptr, std::span<plain_entry>()); }) {
    const std::span<plain_entry> entries = NewEntries<plain_entry>(arena, count, aggregate);
    if (entries.empty()) return Status::kNoMemory;
    return Form::ReadAll(in, arena, aggregate.entries, entries);
  } else {
    return ReadEach<plain_entry>(in, arena, count, aggregate, [&](HostValue& value) {
      return Form::Decode(in, arena, Place::kAggregated, value);
    });
  }
}

// ReadOtherEntries is ReadEach for what looks the same in an aggregate and outside.
template <class Entry>
[[gnu::noinline]] Status ReadOtherEntries(const ValueKind& kind, Reader& in, Arena& arena,
                                          std::uint32_t count, aggregated_value& aggregate) {
  return ReadEach<Entry>(in, arena, count, aggregate,
                         [&](HostValue& value) { return kind.Decode(in, arena, value); });
}

}  // namespace

Status ValueKind::Decode(Reader& in, Arena& arena, HostValue& out) const {
  return WithForm(name, [&](auto form) {
    return decltype(form)::type::Reading::Decode(in, arena, Place::kPlain, out);
  });
}

Status ValueKind::ReadEntries(Reader& in, Arena& arena, bool combo, std::uint32_t count,
                              aggregated_value& aggregate) const {
  if (combo) return ReadOtherEntries<combo_entry>(*this, in, arena, count, aggregate);
  return WithForm(name, [&](auto form) {
    using Form = typename decltype(form)::type;
    if constexpr (Form::kHasLoop) {
      return ReadOwnEntries<typename Form::Reading>(in, arena, count, aggregate);
    } else {
      return ReadOtherEntries<plain_entry>(*this, in, arena, count, aggregate);
    }
  });
}

}  // namespace vt::codec
