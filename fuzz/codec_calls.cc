// The exported calls of the codec, one by one. The first byte chooses the kind of value, the second
// how many bytes fewer than there are the call is told of (0xFF: a negative number); the rest is
// what is unpacked, packed, measured, copied and released.
#include <algorithm>
#include <limits>

#include "fuzz/check.h"
#include "fuzz/heap_meter.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "fuzz/time_limit.h"

namespace vt::fuzz {

const Layout kInputLayout = Layout::kBytes;

namespace {

// Outcome holds what an unpacking call reports.
struct Outcome {
  explicit Outcome(std::int32_t told) : before(told), remaining(told) {}

  const std::int32_t before;
  std::int32_t remaining;
  std::uint32_t consumed = 0;
  std::uint32_t status = 0xFFFFFFFF;

  // Check holds the counters against each other; returns whether the call succeeded.
  bool Check() const {
    FUZZ_CHECK(status == VT_CODEC_OK || status == VT_CODEC_SHORT_INPUT);
    FUZZ_CHECK(consumed <= static_cast<std::uint32_t>(std::max(before, 0)));
    FUZZ_CHECK(before - remaining == static_cast<std::int32_t>(consumed));
    return status == VT_CODEC_OK;
  }
};

struct Input {
  const std::uint8_t* at;
  std::int32_t told;
};

// CheckPacked packs into a block of exactly the size and, where nothing was cut at a zero byte,
// expects the bytes that were unpacked.
template <class Pack>
void CheckPacked(const Input& input, std::size_t consumed, std::size_t size, Pack pack) {
  const Block wire(size);
  FUZZ_CHECK(pack(wire.data()) == size);
  FUZZ_CHECK(size <= consumed);
  if (size == consumed) FUZZ_CHECK(Same(wire.bytes(), {input.at, consumed}));
}

// Fixed: integers, which have no size call and are released as plain blocks.
template <class T>
void Fixed(const Input& input, std::uint32_t (*pack)(void*, const T*),
           void (*unpack)(const void*, T*, std::uint32_t*, std::int32_t*, std::uint32_t*),
           T* (*unpack_new)(const void*, std::uint32_t*, std::int32_t*, std::uint32_t*),
           T* (*clone)(const T*, std::uint32_t*)) {
  T value{};
  Outcome into(input.told);
  unpack(input.at, &value, &into.consumed, &into.remaining, &into.status);
  const bool unpacked = into.Check();
  if (unpacked) {
    CheckPacked(input, into.consumed, sizeof(T), [&](void* dst) { return pack(dst, &value); });
  }
  if (unpack_new != nullptr) {
    Outcome made(input.told);
    T* block = unpack_new(input.at, &made.consumed, &made.remaining, &made.status);
    FUZZ_CHECK(made.Check() == unpacked && (block != nullptr) == unpacked);
    if (block != nullptr) FUZZ_CHECK(*block == value);
    vt_free_ptr(block);
  }
  if (clone != nullptr) {
    std::uint32_t status = 0xFFFFFFFF;
    T* copy = clone(&value, &status);
    FUZZ_CHECK(copy != nullptr && status == VT_CODEC_OK && *copy == value);
    vt_free_ptr(copy);
    FUZZ_CHECK(clone(nullptr, &status) == nullptr && status == VT_CODEC_NULL_SOURCE);
  }
}

// Made: structures that are unpacked into a new record, measured, packed, copied and released.
template <class T>
void Made(const Input& input, std::uint32_t (*pack)(void*, const T*),
          T* (*unpack_new)(const void*, std::uint32_t*, std::int32_t*, std::uint32_t*),
          std::uint32_t (*size)(const T*), T* (*clone)(const T*, std::uint32_t*),
          void (*release)(T*)) {
  Outcome made(input.told);
  T* record = unpack_new(input.at, &made.consumed, &made.remaining, &made.status);
  FUZZ_CHECK(made.Check() == (record != nullptr));
  if (record == nullptr) return;
  const auto pack_it = [&](const T* from) {
    CheckPacked(input, made.consumed, size(from), [&](void* dst) { return pack(dst, from); });
  };
  pack_it(record);
  if (clone != nullptr) {
    std::uint32_t status = 0xFFFFFFFF;
    T* copy = clone(record, &status);
    FUZZ_CHECK(copy != nullptr && status == VT_CODEC_OK && size(copy) == size(record));
    pack_it(copy);
    release(copy);
  }
  release(record);
}

// Into: structures that are unpacked into the caller's record. A null block inside stays null.
template <class T>
void Into(const Input& input, std::uint32_t (*pack)(void*, const T*),
          void (*unpack)(const void*, T*, std::uint32_t*, std::int32_t*, std::uint32_t*),
          std::uint32_t (*size)(const T*), std::uint32_t (*clone)(const T*, T*, std::uint32_t*),
          void (*release)(T*)) {
  T record;
  std::memset(&record, 0xEE, sizeof record);
  Outcome into(input.told);
  unpack(input.at, &record, &into.consumed, &into.remaining, &into.status);
  if (!into.Check()) {
    if (release != nullptr) release(&record);
    return;
  }
  CheckPacked(input, into.consumed, size(&record), [&](void* dst) { return pack(dst, &record); });
  if (clone != nullptr) {
    T copy;
    std::memset(&copy, 0xEE, sizeof copy);
    std::uint32_t status = 0xFFFFFFFF;
    FUZZ_CHECK(clone(&record, &copy, &status) == VT_CODEC_OK && status == VT_CODEC_OK);
    CheckPacked(input, into.consumed, size(&copy), [&](void* dst) { return pack(dst, &copy); });
    release(&copy);
  }
  if (release != nullptr) release(&record);
}

template <class T, std::uint32_t kSize>
std::uint32_t ConstantSize(const T* /*record*/) {
  return kSize;
}

template <class T>
void ReleaseBlock(T* block) {
  vt_free_ptr(block);
}

void CountedText(const Input& input) {
  Outcome made(input.told);
  char* text = vt_unpack_string_ptr(input.at, &made.consumed, &made.remaining, &made.status);
  FUZZ_CHECK(made.Check() == (text != nullptr));
  if (text == nullptr) return;
  std::uint32_t status = 0xFFFFFFFF;
  char* copy = vt_clone_string(text, &status);
  FUZZ_CHECK(copy != nullptr && status == VT_CODEC_OK && std::strcmp(copy, text) == 0);
  // The length word says how long the text is in memory, so it differs where a zero byte cuts.
  const std::size_t size = 4 + std::strlen(copy);
  const Block wire(size);
  FUZZ_CHECK(vt_pack_string(wire.data(), copy) == size);
  FUZZ_CHECK(Load32(wire.data()) == std::strlen(copy));
  FUZZ_CHECK(Same(wire.bytes().subspan(4), {input.at + 4, size - 4}));
  vt_free_ptr(copy);
  vt_free_ptr(text);
}

// OfLength: texts and blocks whose length the caller gives, here in the first four bytes.
void OfLength(const Input& input) {
  if (input.told < 4) return;
  const std::uint32_t length = Load32(input.at);
  const Input rest{input.at + 4, input.told - 4};
  Outcome made(rest.told);
  char* text =
      vt_unpack_string_tlv_ptr(rest.at, length, &made.consumed, &made.remaining, &made.status);
  FUZZ_CHECK(made.Check() == (text != nullptr));
  if (text != nullptr) {
    FUZZ_CHECK(made.consumed == length);
    CheckPacked(rest, length, std::strlen(text),
                [&](void* dst) { return vt_pack_string_tlv(dst, text); });
  }
  vt_free_ptr(text);

  Outcome opaque(rest.told);
  void* block =
      vt_unpack_void_tlv_ptr(rest.at, length, &opaque.consumed, &opaque.remaining, &opaque.status);
  FUZZ_CHECK(opaque.Check() == (block != nullptr));
  if (block == nullptr) return;
  FUZZ_CHECK(opaque.consumed == length);
  CheckPacked(rest, length, length,
              [&](void* dst) { return vt_pack_void_tlv(dst, block, length); });
  std::uint32_t status = 0xFFFFFFFF;
  void* copy = vt_clone_void_ptr(block, length, &status);
  FUZZ_CHECK(copy != nullptr && status == VT_CODEC_OK);
  CheckPacked(rest, length, length, [&](void* dst) { return vt_pack_void_tlv(dst, copy, length); });
  vt_free_ptr(copy);
  vt_free_ptr(block);
}

void CountedBlock(const Input& input) {
  Outcome made(input.told);
  std::int32_t length = -1;
  void* block =
      vt_unpack_void_ptr(input.at, &length, &made.consumed, &made.remaining, &made.status);
  if (!made.Check()) {
    FUZZ_CHECK(block == nullptr);
    return;
  }
  FUZZ_CHECK(length >= 0 && (block != nullptr) == (length > 0));
  const auto size = static_cast<std::uint32_t>(length);
  CheckPacked(input, made.consumed, 4 + size,
              [&](void* dst) { return vt_pack_void(dst, block, size); });
  vt_free_ptr(block);
}

// Whole elements, of which codec_calls only tries the decoder with odd counters.
void WholeElement(const Input& input) {
  const Block copy({input.at, static_cast<std::size_t>(std::max(input.told, 0))});
  std::uint8_t* cursor = copy.data();
  std::int32_t remaining = input.told;
  Tlv* tlv = cv_create_tlv_from_raw_buf(&remaining, &cursor);
  if (tlv == nullptr) FUZZ_CHECK(cursor == copy.data());
  vt_free_tlv_ptr(tlv);
}

constexpr void (*kKinds[])(const Input&) = {
    [](const Input& in) {
      Fixed<std::int8_t>(in, vt_pack_int8, vt_unpack_int8, vt_unpack_int8_ptr, vt_clone_int8_ptr);
    },
    [](const Input& in) {
      Fixed<std::uint8_t>(in, vt_pack_uint8, vt_unpack_uint8, vt_unpack_uint8_ptr,
                          vt_clone_uint8_ptr);
    },
    [](const Input& in) {
      Fixed<std::uint16_t>(in, vt_pack_uint16, vt_unpack_uint16, vt_unpack_uint16_ptr,
                           vt_clone_uint16_ptr);
    },
    [](const Input& in) {
      Fixed<std::int32_t>(in, vt_pack_boolean, vt_unpack_boolean, nullptr, nullptr);
    },
    [](const Input& in) {
      Fixed<std::int32_t>(in, vt_pack_int32, vt_unpack_int32, vt_unpack_int32_ptr,
                          vt_clone_int32_ptr);
    },
    [](const Input& in) {
      Fixed<std::uint32_t>(in, vt_pack_uint32, vt_unpack_uint32, vt_unpack_uint32_ptr,
                           vt_clone_uint32_ptr);
    },
    [](const Input& in) {
      Fixed<std::int32_t>(in, vt_pack_long, vt_unpack_long, vt_unpack_long_ptr, vt_clone_long_ptr);
    },
    CountedText,
    OfLength,
    CountedBlock,
    [](const Input& in) {
      Made<corvane_id>(in, vt_pack_corvane_id, vt_unpack_corvane_id_ptr,
                       ConstantSize<corvane_id, 32>, nullptr, ReleaseBlock<corvane_id>);
      Into<corvane_id>(in, vt_pack_corvane_id, vt_unpack_corvane_id, ConstantSize<corvane_id, 32>,
                       nullptr, nullptr);
    },
    [](const Input& in) {
      Made<sender_id>(in, vt_pack_sender_id, vt_unpack_sender_id_ptr, vt_get_sender_id_size,
                      vt_clone_sender_id_ptr, ReleaseBlock<sender_id>);
    },
    [](const Input& in) {
      Made<event_id>(in, vt_pack_event_id, vt_unpack_event_id_ptr, vt_get_event_id_size,
                     vt_clone_event_id_ptr, ReleaseBlock<event_id>);
    },
    [](const Input& in) {
      Into<device_header>(in, vt_pack_deviceheader, vt_unpack_deviceheader,
                          vt_get_deviceheader_size, vt_clone_deviceheader, vt_free_deviceheader);
    },
    [](const Input& in) {
      Made<alarm_value>(in, vt_pack_alarm, vt_unpack_alarm_ptr, vt_get_alarm_size,
                        vt_clone_alarm_ptr, ReleaseBlock<alarm_value>);
    },
    [](const Input& in) {
      Made<recurrence>(in, vt_pack_recurrence, vt_unpack_recurrence_ptr, vt_get_recurrence_size,
                       vt_clone_recurrence_ptr, vt_free_recurrence_ptr);
    },
    [](const Input& in) {
      Made<neighbor>(in, vt_pack_neighbor, vt_unpack_neighbor_ptr, vt_get_neighbor_size,
                     vt_clone_neighbor_ptr, vt_free_neighbor_ptr);
    },
    [](const Input& in) {
      Into<usage_cmn_hdr>(in, vt_pack_usage_cmn_hdr, vt_unpack_usage_cmn_hdr,
                          vt_get_usage_cmn_hdr_size, vt_clone_usage_cmn_hdr, vt_free_usage_cmn_hdr);
    },
    [](const Input& in) {
      Made<delta_vector>(in, vt_pack_delta_vector, vt_unpack_delta_vector_ptr,
                         ConstantSize<delta_vector, 44>, nullptr, ReleaseBlock<delta_vector>);
      Into<delta_vector>(in, vt_pack_delta_vector, vt_unpack_delta_vector,
                         ConstantSize<delta_vector, 44>, nullptr, nullptr);
    },
    [](const Input& in) {
      Made<usage_vector>(in, vt_pack_usage_vector, vt_unpack_usage_vector_ptr,
                         ConstantSize<usage_vector, 22>, nullptr, ReleaseBlock<usage_vector>);
      Into<usage_vector>(in, vt_pack_usage_vector, vt_unpack_usage_vector,
                         ConstantSize<usage_vector, 22>, nullptr, nullptr);
    },
    WholeElement,
};

}  // namespace

}  // namespace vt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vt::fuzz::TimeLimit limit;
  using namespace vt::fuzz;  // NOLINT(google-build-using-namespace)
  if (size < 2) return 0;
  SetUpLog(size);
  const HeapMeter meter;
  {
    const Block input({data + 2, size - 2});
    const auto there = static_cast<std::int32_t>(input.size());
    const std::int32_t told = data[1] == 0xFF ? std::numeric_limits<std::int32_t>::min()
                                              : there - std::min<std::int32_t>(data[1], there);
    kKinds[data[0] % std::size(kKinds)]({input.data(), told});
  }
  FUZZ_CHECK(meter.balanced());
  return 0;
}
