// Elements back to back, each decoded, copied, encoded, decoded again and encoded again.
#include "fuzz/check.h"
#include "fuzz/heap_meter.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "fuzz/time_limit.h"

namespace vt::fuzz {

const Layout kInputLayout = Layout::kElements;

namespace {

// CheckCopy holds the copy of a value against the original: it encodes to the same bytes.
void CheckCopy(const Tlv& tlv, const Block& wire) {
  std::uint32_t status = 0xFFFFFFFF;
  void* copy = vt_clone_tlv_ptr(tlv.type, tlv.length - VT_TLV_HEADER_SIZE, tlv.value, &status);
  FUZZ_CHECK(status == VT_CODEC_OK);
  auto* twin = static_cast<Tlv*>(std::malloc(sizeof(Tlv)));
  *twin = {tlv.type, tlv.length, tlv.qualifier, copy};
  FUZZ_CHECK(Same(Encode(*twin).bytes(), wire.bytes()));
  vt_free_tlv_ptr(twin);
}

// CheckSecondTrip decodes what was encoded, which must always be possible, and encodes it again.
void CheckSecondTrip(const Block& wire) {
  std::uint8_t* cursor = wire.data();
  auto remaining = static_cast<std::int32_t>(wire.size());
  Tlv* again = cv_create_tlv_from_raw_buf(&remaining, &cursor);
  FUZZ_CHECK(again != nullptr && remaining == 0 && cursor == wire.data() + wire.size());
  FUZZ_CHECK(Same(Encode(*again).bytes(), wire.bytes()));
  vt_free_tlv_ptr(again);
}

// RoundTrip takes one element off the input; false when there is none that can be decoded.
bool RoundTrip(std::uint8_t*& cursor, std::int32_t& remaining) {
  const std::uint8_t* const begin = cursor;
  const std::int32_t before = remaining;
  Tlv* tlv = cv_create_tlv_from_raw_buf(&remaining, &cursor);
  if (tlv == nullptr) {
    FUZZ_CHECK(cursor == begin);
    return false;
  }
  const Bytes origin(begin, cursor);
  FUZZ_CHECK(origin.size() == Load32(begin + 4));
  FUZZ_CHECK(before - remaining == static_cast<std::int32_t>(origin.size()));
  const Block wire = Encode(*tlv);
  // Texts end at their first zero byte and unknown values are not kept; all else is kept as it is.
  FUZZ_CHECK(wire.size() <= origin.size());
  if (wire.size() == origin.size()) FUZZ_CHECK(Same(wire.bytes(), origin));
  if (tlv->value != nullptr) CheckCopy(*tlv, wire);
  vt_free_tlv_ptr(tlv);
  CheckSecondTrip(wire);
  return true;
}

}  // namespace

}  // namespace vt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vt::fuzz::TimeLimit limit;
  using namespace vt::fuzz;  // NOLINT(google-build-using-namespace)
  SetUpLog(size);
  const Block input({data, size});
  const HeapMeter meter;
  std::uint8_t* cursor = input.data();
  auto remaining = static_cast<std::int32_t>(size);
  while (RoundTrip(cursor, remaining)) {
  }
  FUZZ_CHECK(meter.balanced());
  return 0;
}
