// The calling conventions of the exported codec calls, each written once: a wire form on the
// inside, cursors, counters and status words on the outside.
#ifndef VT_CODEC_BOUNDARY_H
#define VT_CODEC_BOUNDARY_H

#include <cstdint>

#include "codec/memory.h"
#include "codec/status.h"
#include "codec/wire.h"

namespace vt::codec {

// InputOf makes the reader of what is left at src; a negative count means nothing is.
inline Reader InputOf(const void* src, std::int32_t remaining) {
  return Reader(Bytes(static_cast<const std::uint8_t*>(src),
                      remaining > 0 ? static_cast<std::size_t>(remaining) : 0));
}

// Account takes what the reader has consumed off *remaining and returns it.
inline std::uint32_t Account(const Reader& in, std::int32_t* remaining) {
  const auto before = static_cast<std::size_t>(*remaining > 0 ? *remaining : 0);
  const auto consumed = static_cast<std::uint32_t>(before - in.remaining());
  *remaining -= static_cast<std::int32_t>(consumed);
  return consumed;
}

// Pack writes the wire form of the T at src, which may be at any address.
template <class Wire, class T>
std::uint32_t Pack(void* dst, const T* src) {
  if (src == nullptr) return 0;
  const T value = support::LoadHost<T>(src);
  Writer out(dst, Wire::Size(value));
  Wire::Write(out, value, NullText::kNothing);
  return static_cast<std::uint32_t>(out.written());
}

// UnpackInto reads a T into the caller's variable.
template <class Wire, class T>
void UnpackInto(const void* src, T* dst, std::uint32_t* consumed, std::int32_t* remaining,
                std::uint32_t* status) {
  constexpr Heap kHeap;
  Reader in = InputOf(src, *remaining);
  *status = ToWord(Wire::Read(in, kHeap, *dst));
  *consumed = Account(in, remaining);
}

// UnpackNew reads a T into a new zero-filled block.
template <class Wire, class T>
T* UnpackNew(const void* src, std::uint32_t* consumed, std::int32_t* remaining,
             std::uint32_t* status) {
  *consumed = 0;
  *status = ToWord(Status::kNoMemory);
  OwnedBlock<T> value(NewRecord<T>());
  if (value == nullptr) return nullptr;
  UnpackInto<Wire>(src, value.get(), consumed, remaining, status);
  return *status == ToWord(Status::kOk) ? value.release() : nullptr;
}

template <class Wire, class T>
std::uint32_t SizeOf(const T* src) {
  return src != nullptr ? Wire::Size(support::LoadHost<T>(src)) : 0;
}

// CloneInto copies the T at src, which may be at any address, into the caller's variable.
template <class Wire, class T>
Status CloneInto(const void* src, T* dst) {
  if (src == nullptr) {
    std::memset(dst, 0, sizeof *dst);
    return Status::kNullSource;
  }
  const T value = support::LoadHost<T>(src);
  return Wire::Clone(value, *dst);
}

// CloneNew copies the T at src into a new block.
template <class Wire, class T>
T* CloneNew(const void* src, Status& status) {
  status = Status::kNullSource;
  if (src == nullptr) return nullptr;
  status = Status::kNoMemory;
  OwnedBlock<T> copy(NewRecord<T>());
  if (copy == nullptr) return nullptr;
  status = CloneInto<Wire>(src, copy.get());
  return status == Status::kOk ? copy.release() : nullptr;
}

template <class Wire, class T>
T* CloneNew(const T* src, std::uint32_t* status) {
  Status outcome;
  T* copy = CloneNew<Wire, T>(src, outcome);
  *status = ToWord(outcome);
  return copy;
}

// ReleaseNew releases a record that UnpackNew or CloneNew handed out, with what it owns.
template <class Wire, class T>
void ReleaseNew(T* value) {
  if (value == nullptr) return;
  constexpr Heap kHeap;
  Wire::Release(kHeap, *value);
  ReleaseBlock(value);
}

}  // namespace vt::codec

#endif  // VT_CODEC_BOUNDARY_H
