#include "vtapi/scalars.h"

#include "codec/boundary.h"

namespace {

using vt::codec::Boolean;
using vt::codec::CloneNew;
using vt::codec::Integer;
using vt::codec::Pack;
using vt::codec::Status;
using vt::codec::ToWord;
using vt::codec::UnpackInto;
using vt::codec::UnpackNew;

// RestoreOnShortInput puts back what the caller had in a counter. Deliberate: on short input, the
// int32 calls leave it alone, where all others set it to 0.
void RestoreOnShortInput(std::uint32_t* consumed, std::uint32_t before, std::uint32_t status) {
  if (status == ToWord(Status::kShortInput)) *consumed = before;
}

}  // namespace

extern "C" {

std::uint32_t vt_pack_int8(void* dst, const std::int8_t* src) {
  return Pack<Integer<std::int8_t>>(dst, src);
}
void vt_unpack_int8(const void* src, std::int8_t* dst, std::uint32_t* consumed,
                    std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<Integer<std::int8_t>>(src, dst, consumed, remaining, status);
}
std::int8_t* vt_unpack_int8_ptr(const void* src, std::uint32_t* consumed, std::int32_t* remaining,
                                std::uint32_t* status) {
  return UnpackNew<Integer<std::int8_t>, std::int8_t>(src, consumed, remaining, status);
}
std::int8_t* vt_clone_int8_ptr(const std::int8_t* src, std::uint32_t* status) {
  return CloneNew<Integer<std::int8_t>>(src, status);
}

std::uint32_t vt_pack_uint8(void* dst, const std::uint8_t* src) {
  return Pack<Integer<std::uint8_t>>(dst, src);
}
void vt_unpack_uint8(const void* src, std::uint8_t* dst, std::uint32_t* consumed,
                     std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<Integer<std::uint8_t>>(src, dst, consumed, remaining, status);
}
std::uint8_t* vt_unpack_uint8_ptr(const void* src, std::uint32_t* consumed, std::int32_t* remaining,
                                  std::uint32_t* status) {
  return UnpackNew<Integer<std::uint8_t>, std::uint8_t>(src, consumed, remaining, status);
}
std::uint8_t* vt_clone_uint8_ptr(const std::uint8_t* src, std::uint32_t* status) {
  return CloneNew<Integer<std::uint8_t>>(src, status);
}

std::uint32_t vt_pack_uint16(void* dst, const std::uint16_t* src) {
  return Pack<Integer<std::uint16_t>>(dst, src);
}
void vt_unpack_uint16(const void* src, std::uint16_t* dst, std::uint32_t* consumed,
                      std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<Integer<std::uint16_t>>(src, dst, consumed, remaining, status);
}
std::uint16_t* vt_unpack_uint16_ptr(const void* src, std::uint32_t* consumed,
                                    std::int32_t* remaining, std::uint32_t* status) {
  return UnpackNew<Integer<std::uint16_t>, std::uint16_t>(src, consumed, remaining, status);
}
std::uint16_t* vt_clone_uint16_ptr(const std::uint16_t* src, std::uint32_t* status) {
  return CloneNew<Integer<std::uint16_t>>(src, status);
}

std::uint32_t vt_pack_boolean(void* dst, const std::int32_t* src) {
  return Pack<Boolean>(dst, src);
}
void vt_unpack_boolean(const void* src, std::int32_t* dst, std::uint32_t* consumed,
                       std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<Boolean>(src, dst, consumed, remaining, status);
}

std::uint32_t vt_pack_int32(void* dst, const std::int32_t* src) {
  return Pack<Integer<std::int32_t>>(dst, src);
}
void vt_unpack_int32(const void* src, std::int32_t* dst, std::uint32_t* consumed,
                     std::int32_t* remaining, std::uint32_t* status) {
  const std::uint32_t before = *consumed;
  UnpackInto<Integer<std::int32_t>>(src, dst, consumed, remaining, status);
  RestoreOnShortInput(consumed, before, *status);
}
std::int32_t* vt_unpack_int32_ptr(const void* src, std::uint32_t* consumed, std::int32_t* remaining,
                                  std::uint32_t* status) {
  const std::uint32_t before = *consumed;
  auto* value = UnpackNew<Integer<std::int32_t>, std::int32_t>(src, consumed, remaining, status);
  RestoreOnShortInput(consumed, before, *status);
  return value;
}
std::int32_t* vt_clone_int32_ptr(const std::int32_t* src, std::uint32_t* status) {
  return CloneNew<Integer<std::int32_t>>(src, status);
}

std::uint32_t vt_pack_uint32(void* dst, const std::uint32_t* src) {
  return Pack<Integer<std::uint32_t>>(dst, src);
}
void vt_unpack_uint32(const void* src, std::uint32_t* dst, std::uint32_t* consumed,
                      std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<Integer<std::uint32_t>>(src, dst, consumed, remaining, status);
}
std::uint32_t* vt_unpack_uint32_ptr(const void* src, std::uint32_t* consumed,
                                    std::int32_t* remaining, std::uint32_t* status) {
  return UnpackNew<Integer<std::uint32_t>, std::uint32_t>(src, consumed, remaining, status);
}
std::uint32_t* vt_clone_uint32_ptr(const std::uint32_t* src, std::uint32_t* status) {
  return CloneNew<Integer<std::uint32_t>>(src, status);
}

std::uint32_t vt_pack_long(void* dst, const std::int32_t* src) {
  return Pack<Integer<std::int32_t>>(dst, src);
}
void vt_unpack_long(const void* src, std::int32_t* dst, std::uint32_t* consumed,
                    std::int32_t* remaining, std::uint32_t* status) {
  UnpackInto<Integer<std::int32_t>>(src, dst, consumed, remaining, status);
}
std::int32_t* vt_unpack_long_ptr(const void* src, std::uint32_t* consumed, std::int32_t* remaining,
                                 std::uint32_t* status) {
  return UnpackNew<Integer<std::int32_t>, std::int32_t>(src, consumed, remaining, status);
}
std::int32_t* vt_clone_long_ptr(const std::int32_t* src, std::uint32_t* status) {
  return CloneNew<Integer<std::int32_t>>(src, status);
}

void vt_free_ptr(void* p) { vt::codec::ReleaseBlock(p); }

}  // extern "C"
