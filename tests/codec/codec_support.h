// What the codec tests share: owners of decoded elements, and the conversions with guarded ends.
#ifndef VT_TESTS_CODEC_CODEC_SUPPORT_H_
#define VT_TESTS_CODEC_CODEC_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "vtapi.h"

#include "tests/harness/guard.h"
#include "tests/harness/hex.h"

namespace vt::testing {

struct FreeTlv {
  void operator()(Tlv* tlv) const { vt_free_tlv_ptr(tlv); }
};
using TlvPtr = std::unique_ptr<Tlv, FreeTlv>;

// FreeBlock gives back what the codec hands out as one block.
struct FreeBlock {
  void operator()(void* block) const { vt_free_ptr(block); }
};
template <class T>
using BlockPtr = std::unique_ptr<T, FreeBlock>;

// Decoded is the outcome of one call on an input that ends at an inaccessible page.
struct Decoded {
  TlvPtr tlv;
  std::int32_t remaining = 0;
  std::ptrdiff_t moved = 0;  // how far the cursor went
};

// Decode decodes the first element of bytes, claiming remaining bytes to be left. DecodeAll claims
// all of them.
inline Decoded Decode(const Bytes& bytes, std::int32_t remaining) {
  GuardedBytes input(bytes);
  std::uint8_t* cursor = input.data();
  Decoded result;
  result.remaining = remaining;
  result.tlv.reset(cv_create_tlv_from_raw_buf(&result.remaining, &cursor));
  result.moved = cursor - input.data();
  return result;
}

inline Decoded DecodeAll(const Bytes& bytes) {
  return Decode(bytes, static_cast<std::int32_t>(bytes.size()));
}

// Encode writes the element into a buffer of exactly its size that ends at an inaccessible page
// and was full of 0xEE, and checks the size that the call returns.
inline Bytes Encode(const Tlv* tlv) {
  const std::uint32_t size = vt_get_tlv_size(tlv);
  GuardedBytes output(Bytes(size, 0xEE));
  EXPECT_EQ(cv_update_raw_buf_from_tlv(tlv, output.data()), size);
  return Bytes(output.data(), output.data() + size);
}

// UnpackReport holds what a call of the unpack family reports.
struct UnpackReport {
  std::uint32_t consumed = 77;
  std::int32_t remaining = 0;
  std::uint32_t status = 77;
};

// MakeTlv is an element in memory of the malloc family that takes over value.
inline TlvPtr MakeTlv(std::uint32_t type, std::uint32_t length, std::uint32_t qualifier,
                      void* value) {
  auto* tlv = static_cast<Tlv*>(std::calloc(1, sizeof(Tlv)));
  if (tlv == nullptr) std::abort();
  *tlv = Tlv{type, length, qualifier, value};
  return TlvPtr(tlv);
}

// HeapCopy is a malloc block with the len bytes at data; HeapText one with text.
inline void* HeapCopy(const void* data, std::size_t len) {
  void* block = std::malloc(len > 0 ? len : 1);
  if (block == nullptr) std::abort();
  if (len > 0) std::memcpy(block, data, len);
  return block;
}

inline char* HeapText(const char* text) {
  return static_cast<char*>(HeapCopy(text, std::strlen(text) + 1));
}

// HeapRecord is a zeroed record in a malloc block.
template <class Record>
Record* HeapRecord() {
  void* block = std::calloc(1, sizeof(Record));
  if (block == nullptr) std::abort();
  return static_cast<Record*>(block);
}

// Aggregated and the entry look-ups read the value of a decoded aggregate.
inline const aggregated_value& Aggregated(const Tlv* tlv) {
  return *static_cast<const aggregated_value*>(tlv->value);
}

inline const plain_entry& PlainEntry(const Tlv* tlv, std::size_t index) {
  return *static_cast<const plain_entry*>(Aggregated(tlv).entries[index]);
}

inline const combo_entry& ComboEntry(const Tlv* tlv, std::size_t index) {
  return *static_cast<const combo_entry*>(Aggregated(tlv).entries[index]);
}

}  // namespace vt::testing

#endif  // VT_TESTS_CODEC_CODEC_SUPPORT_H_
