// The wire forms of which all values are made: integers, identities, counted texts and counted
// blocks. Each form is a stateless type with the same operations on its host form T:
//
//   Status Read(Reader&, M&, T&)        sets out, or leaves nothing owned in it; M is a memory
//   void Write(Writer&, const T&, NullText)
//   std::uint32_t Size(const T&)        bytes on the wire; a null text counts its length word;
//                                       constant, and known to the compiler, where nothing is owned
//   Status Clone(const T& from, T& to)  deep copy; a null text or block stays null
//   void Release(M&, T&)                returns what is owned and nulls it
//   bool kOwnsParts                     whether there is anything to release
//   void Forget(T&)                     nulls what would be owned, in memory that holds nothing yet
#ifndef VT_CODEC_WIRE_H
#define VT_CODEC_WIRE_H

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <span>

#include "vtapi/values.h"

#include "codec/memory.h"
#include "codec/status.h"
#include "support/reader.h"
#include "support/writer.h"

namespace vt::codec {

using support::Bytes;
using support::Reader;
using support::Writer;

// What Write makes of a null text. Deliberate: the exported packers write nothing at all;
// an element must carry an empty text, or all that follows it would be misread.
enum class NullText { kNothing, kEmpty };

constexpr std::uint32_t kLengthWordSize = 4;

// TextLength counts a null text as empty.
inline std::uint32_t TextLength(const char* text) {
  return text != nullptr ? static_cast<std::uint32_t>(std::strlen(text)) : 0;
}

// ReadText takes len bytes as a new zero-terminated text.
template <class Memory>
Status ReadText(Reader& in, Memory& memory, std::size_t len, char*& out) {
  Reader behind = in;
  Bytes bytes;
  if (!behind.Take(len, bytes)) return Status::kShortInput;
  auto* text = static_cast<char*>(memory.template New<char>(len + 1));
  if (text == nullptr) return Status::kNoMemory;
  if (len != 0) std::memcpy(text, bytes.data(), len);
  text[len] = '\0';
  out = text;
  in = behind;
  return Status::kOk;
}

// ReadBlock takes len bytes as a new block, which is not null even for len 0, and which may be read
// as a record of pointers and integers.
template <class Memory>
Status ReadBlock(Reader& in, Memory& memory, std::size_t len, void*& out) {
  Reader behind = in;
  Bytes bytes;
  if (!behind.Take(len, bytes)) return Status::kShortInput;
  void* block = memory.template New<void*>(len);
  if (block == nullptr) return Status::kNoMemory;
  if (len != 0) std::memcpy(block, bytes.data(), len);
  out = block;
  in = behind;
  return Status::kOk;
}

inline Status CloneText(const char* from, char*& to) {
  if (from == nullptr) return Status::kOk;
  to = CopyText(from);
  return to != nullptr ? Status::kOk : Status::kNoMemory;
}

// NothingOwned serves the forms whose host values are plain.
struct NothingOwned {
  static constexpr bool kOwnsParts = false;
  template <class Memory, class T>
  static void Release(Memory& /*memory*/, T& /*value*/) {}
  template <class T>
  static void Forget(T& /*value*/) {}
};

template <std::integral T>
struct Integer : NothingOwned {
  static constexpr std::uint32_t kSize = sizeof(T);
  template <class Memory>
  static Status Read(Reader& in, Memory& /*memory*/, T& out) {
    return in.Read(out) ? Status::kOk : Status::kShortInput;
  }
  static void Write(Writer& out, const T& value, NullText /*unused*/) { out.Write(value); }
  static constexpr std::uint32_t Size(const T& /*value*/) { return kSize; }
  static Status Clone(const T& from, T& to) {
    to = from;
    return Status::kOk;
  }
};

// Booleans travel as all 32 bits of their word, not normalised.
using Boolean = Integer<std::int32_t>;

// Identity is 32 bytes without a byte order.
struct Identity : NothingOwned {
  template <class Memory>
  static Status Read(Reader& in, Memory& /*memory*/, corvane_id& out) {
    Bytes bytes;
    if (!in.Take(sizeof out.bytes, bytes)) return Status::kShortInput;
    std::memcpy(out.bytes, bytes.data(), sizeof out.bytes);
    return Status::kOk;
  }
  static void Write(Writer& out, const corvane_id& value, NullText /*unused*/) {
    out.Write(value.bytes, sizeof value.bytes);
  }
  static constexpr std::uint32_t Size(const corvane_id& /*value*/) { return sizeof(corvane_id); }
  static Status Clone(const corvane_id& from, corvane_id& to) {
    to = from;
    return Status::kOk;
  }
};

// ReadIntegers fills values, or as many of the first as there are, and tells whether these are all.
// It and WriteIntegers are no part of who calls them, or the loops would be unrolled in each.
template <std::integral T>
[[gnu::noinline]] bool ReadIntegers(Reader& in, std::span<T> values) {
  const std::size_t whole = std::min(values.size(), in.remaining() / sizeof(T));
  Bytes bytes;
  (void)in.Take(whole * sizeof(T), bytes);
  for (std::size_t i = 0; i < whole; ++i) {
    values[i] = support::LoadNetwork<T>(bytes.data() + i * sizeof(T));
  }
  return whole == values.size();
}

template <std::integral T>
[[gnu::noinline]] void WriteIntegers(Writer& out, std::span<const T> values) {
  for (const T value : values) out.Write(value);
}

// IntegerArray is N integers; a short one leaves the whole elements before the end set.
template <std::integral T, std::size_t N>
struct IntegerArray : NothingOwned {
  using Host = T[N];
  template <class Memory>
  static Status Read(Reader& in, Memory& /*memory*/, Host& out) {
    return ReadIntegers(in, std::span<T>(out)) ? Status::kOk : Status::kShortInput;
  }
  static void Write(Writer& out, const Host& value, NullText /*unused*/) {
    WriteIntegers(out, std::span<const T>(value));
  }
  static constexpr std::uint32_t Size(const Host& /*value*/) { return sizeof(Host); }
  static Status Clone(const Host& from, Host& to) {
    std::memcpy(&to, &from, sizeof to);
    return Status::kOk;
  }
};

// CountedText is a 4-byte length and the characters without a terminator.
struct CountedText {
  static constexpr bool kOwnsParts = true;
  template <class Memory>
  static Status Read(Reader& in, Memory& memory, char*& out) {
    std::uint32_t len = 0;
    if (!in.Read(len)) return Status::kShortInput;
    return ReadText(in, memory, len, out);
  }
  static void Write(Writer& out, const char* value, NullText null_text) {
    if (value == nullptr && null_text == NullText::kNothing) return;
    const std::uint32_t len = TextLength(value);
    out.Write(len);
    out.Write(value, len);
  }
  static std::uint32_t Size(const char* value) { return kLengthWordSize + TextLength(value); }
  static Status Clone(const char* from, char*& to) { return CloneText(from, to); }
  template <class Memory>
  static void Release(Memory& memory, char*& value) {
    memory.Release(value);
    Forget(value);
  }
  static void Forget(char*& value) { value = nullptr; }
};

// CountedBlock is a 4-byte length and the bytes; in memory, a length and a pointer. A null block
// counts as empty whatever length stands beside it, and an empty block is null.
struct CountedBlock {
  static constexpr bool kOwnsParts = true;
  static std::uint32_t Length(std::uint32_t len, const void* data) {
    return data != nullptr ? len : 0;
  }
  template <class Memory>
  static Status Read(Reader& in, Memory& memory, std::uint32_t& out_len, void*& out_data) {
    std::uint32_t len = 0;
    if (!in.Read(len)) return Status::kShortInput;
    if (len != 0) {
      const Status status = ReadBlock(in, memory, len, out_data);
      if (status != Status::kOk) return status;
    }
    out_len = len;
    return Status::kOk;
  }
  static void Write(Writer& out, std::uint32_t len, const void* data) {
    out.Write(Length(len, data));
    out.Write(data, Length(len, data));
  }
  static std::uint32_t Size(std::uint32_t len, const void* data) {
    return kLengthWordSize + Length(len, data);
  }
  static Status Clone(std::uint32_t len, const void* data, std::uint32_t& out_len,
                      void*& out_data) {
    if (Length(len, data) == 0) return Status::kOk;
    out_data = CopyBlock(data, len);
    if (out_data == nullptr) return Status::kNoMemory;
    out_len = len;
    return Status::kOk;
  }
  template <class Memory>
  static void Release(Memory& memory, std::uint32_t& len, void*& data) {
    memory.Release(data);
    Forget(len, data);
  }
  static void Forget(std::uint32_t& len, void*& data) {
    data = nullptr;
    len = 0;
  }
};

}  // namespace vt::codec

#endif  // VT_CODEC_WIRE_H
