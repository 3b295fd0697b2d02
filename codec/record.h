// A record described once, in wire order; the description reads, writes, measures, copies and
// releases it.
//
//   using EventIdWire = Record<event_id, Field<&event_id::number, Integer<std::uint32_t>>,
//                                        Field<&event_id::id, Identity>>;
#ifndef VT_CODEC_RECORD_H
#define VT_CODEC_RECORD_H

#include <cstdint>
#include <cstring>

#include "codec/wire.h"

namespace vt::codec {

// Field is one member in one wire form.
template <auto Member, class Wire>
struct Field {
  static constexpr bool kOwnsParts = Wire::kOwnsParts;
  template <class Memory, class T>
  static Status Read(Reader& in, Memory& memory, T& record) {
    return Wire::Read(in, memory, record.*Member);
  }
  template <class T>
  static void Write(Writer& out, const T& record, NullText null_text) {
    Wire::Write(out, record.*Member, null_text);
  }
  template <class T>
  static constexpr std::uint32_t Size(const T& record) {
    return Wire::Size(record.*Member);
  }
  template <class T>
  static Status Clone(const T& from, T& to) {
    return Wire::Clone(from.*Member, to.*Member);
  }
  template <class Memory, class T>
  static void Release(Memory& memory, T& record) {
    Wire::Release(memory, record.*Member);
  }
  template <class T>
  static void Forget(T& record) {
    Wire::Forget(record.*Member);
  }
};

// BlockField is a counted block held in two members.
template <auto Length, auto Data>
struct BlockField {
  static constexpr bool kOwnsParts = CountedBlock::kOwnsParts;
  template <class Memory, class T>
  static Status Read(Reader& in, Memory& memory, T& record) {
    return CountedBlock::Read(in, memory, record.*Length, record.*Data);
  }
  template <class T>
  static void Write(Writer& out, const T& record, NullText /*unused*/) {
    CountedBlock::Write(out, record.*Length, record.*Data);
  }
  template <class T>
  static constexpr std::uint32_t Size(const T& record) {
    return CountedBlock::Size(record.*Length, record.*Data);
  }
  template <class T>
  static Status Clone(const T& from, T& to) {
    return CountedBlock::Clone(from.*Length, from.*Data, to.*Length, to.*Data);
  }
  template <class Memory, class T>
  static void Release(Memory& memory, T& record) {
    CountedBlock::Release(memory, record.*Length, record.*Data);
  }
  template <class T>
  static void Forget(T& record) {
    CountedBlock::Forget(record.*Length, record.*Data);
  }
};

template <class T, class... Fields>
struct Record {
  using Host = T;
  static constexpr bool kOwnsParts = (Fields::kOwnsParts || ...);

  // Read sets the fields in order up to the first that fails, after which nothing is owned. The
  // record counts as uninitialised memory before.
  template <class Memory>
  [[gnu::noinline]] static Status Read(Reader& in, Memory& memory, T& record) {
    (Fields::Forget(record), ...);
    Status status;  // set by the first field
    (void)(((status = Fields::Read(in, memory, record)) == Status::kOk) && ...);
    if (status != Status::kOk) Release(memory, record);
    return status;
  }

  [[gnu::noinline]] static void Write(Writer& out, const T& record, NullText null_text) {
    (Fields::Write(out, record, null_text), ...);
  }

  static constexpr std::uint32_t Size(const T& record) { return (Fields::Size(record) + ...); }

  // Clone makes to a copy; fields that do not travel, and on failure all, are zero.
  [[gnu::noinline]] static Status Clone(const T& from, T& to) {
    std::memset(&to, 0, sizeof to);
    Status status = Status::kOk;
    (CloneUnlessFailed<Fields>(from, to, status), ...);
    if (status == Status::kOk) return status;
    constexpr Heap kHeap;
    Release(kHeap, to);
    std::memset(&to, 0, sizeof to);
    return status;
  }

  template <class Memory>
  static void Release(Memory& memory, T& record) {
    (Fields::Release(memory, record), ...);
  }

 private:
  // Most fields need no memory and cannot fail: as conditions of one expression, as in Read, they
  // would be conditions that never decide anything.
  template <class OneField>
  static void CloneUnlessFailed(const T& from, T& to, Status& status) {
    if (status == Status::kOk) status = OneField::Clone(from, to);
  }
};

}  // namespace vt::codec

#endif  // VT_CODEC_RECORD_H
