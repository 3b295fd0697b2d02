// Texts and opaque blocks, each in the form that fills an element and in the counted form.
#include <cerrno>

#include "vtapi/scalars.h"

#include "codec/boundary.h"

namespace {

using vt::codec::Account;
using vt::codec::Heap;
using vt::codec::InputOf;
using vt::codec::Reader;
using vt::codec::Status;
using vt::codec::ToWord;
using vt::support::Owned;

constexpr Heap kHeap;

// ReadSized drives a read of len bytes under the conventions of the _tlv_ptr calls.
template <class T>
T* ReadSized(Status (*read)(Reader&, const Heap&, std::size_t, T*&), const void* src,
             std::uint32_t len, std::uint32_t* consumed, std::int32_t* remaining,
             std::uint32_t* status) {
  T* out = nullptr;
  Reader in = InputOf(src, *remaining);
  *status = ToWord(read(in, Heap(), len, out));
  *consumed = Account(in, remaining);
  return out;
}

// Duplicate reports the outcome of a copy that make produces from a source.
template <class Make>
auto Duplicate(const void* src, std::uint32_t* status, Make make) -> decltype(make().release()) {
  *status = ToWord(Status::kNullSource);
  if (src == nullptr) return nullptr;
  auto copy = make();
  *status = ToWord(copy != nullptr ? Status::kOk : Status::kNoMemory);
  return copy.release();
}

}  // namespace

extern "C" {

std::uint32_t vt_pack_string_tlv(void* dst, const char* src) {
  const std::uint32_t len = vt::codec::TextLength(src);
  if (len != 0) std::memcpy(dst, src, len);
  return len;
}

char* vt_unpack_string_tlv_ptr(const void* src, std::uint32_t len, std::uint32_t* consumed,
                               std::int32_t* remaining, std::uint32_t* status) {
  return ReadSized<char>(vt::codec::ReadText, src, len, consumed, remaining, status);
}

std::uint32_t vt_pack_string(void* dst, const char* src) {
  if (src == nullptr) return 0;
  vt::codec::Writer out(dst, vt::codec::CountedText::Size(src));
  vt::codec::CountedText::Write(out, src, vt::codec::NullText::kNothing);
  return static_cast<std::uint32_t>(out.written());
}

char* vt_unpack_string_ptr(const void* src, std::uint32_t* consumed, std::int32_t* remaining,
                           std::uint32_t* status) {
  char* out = nullptr;
  Reader in = InputOf(src, *remaining);
  *status = ToWord(vt::codec::CountedText::Read(in, kHeap, out));
  *consumed = Account(in, remaining);
  return out;
}

char* vt_clone_string(const char* src, std::uint32_t* status) {
  return Duplicate(src, status, [src] {
    errno = 0;  // callers tell a failed duplication from an earlier error by it
    return vt::support::DuplicateText(src);
  });
}

std::uint32_t vt_pack_void_tlv(void* dst, const void* src, std::uint32_t len) {
  // Deliberate: a null block with a length advances over bytes that are not written.
  if (src != nullptr && len != 0) std::memcpy(dst, src, len);
  return len;
}

void* vt_unpack_void_tlv_ptr(const void* src, std::uint32_t len, std::uint32_t* consumed,
                             std::int32_t* remaining, std::uint32_t* status) {
  return ReadSized<void>(vt::codec::ReadBlock, src, len, consumed, remaining, status);
}

std::uint32_t vt_pack_void(void* dst, const void* src, std::uint32_t len) {
  vt::support::StoreNetwork(dst, len);
  auto* data = static_cast<std::uint8_t*>(dst) + vt::codec::kLengthWordSize;
  return vt::codec::kLengthWordSize + vt_pack_void_tlv(data, src, len);
}

void* vt_unpack_void_ptr(const void* src, std::int32_t* len_out, std::uint32_t* consumed,
                         std::int32_t* remaining, std::uint32_t* status) {
  std::uint32_t len = 0;
  void* out = nullptr;
  Reader in = InputOf(src, *remaining);
  Status outcome = Status::kShortInput;
  if (in.Read(len)) {
    *len_out = static_cast<std::int32_t>(len);
    outcome = len != 0 ? vt::codec::ReadBlock(in, kHeap, len, out) : Status::kOk;
  }
  *status = ToWord(outcome);
  *consumed = Account(in, remaining);
  return out;
}

void* vt_clone_void_ptr(const void* src, std::uint32_t len, std::uint32_t* status) {
  return Duplicate(src, status, [src, len] { return vt::support::DuplicateBytes(src, len); });
}

}  // extern "C"
