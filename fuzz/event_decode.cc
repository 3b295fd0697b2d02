// One message, decoded, looked through and released. Bit 0 of its first byte, which nobody reads,
// asks for the wrong key.
#include "fuzz/check.h"
#include "fuzz/heap_meter.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "fuzz/time_limit.h"

namespace vt::fuzz {

const Layout kInputLayout = Layout::kMessages;

namespace {

constexpr std::size_t kSmallestImage = 60;

// LookUp finds each element again, by its type and by its slot.
void LookUp(const Event& ev) {
  for (std::int32_t i = 0; i < ev.pak->tlv_count; ++i) {
    const Tlv* tlv = ev.tlvs[i];
    FUZZ_CHECK(tlv != nullptr);
    const Tlv* first = cv_get_next_tlv(&ev, tlv->type);
    FUZZ_CHECK(first != nullptr && first->type == tlv->type);
    std::int32_t index = i;
    std::uint32_t length = 0;
    const void* value =
        cv_get_next_tlv_value_common(&ev, &index, tlv->type, &length, tlv->qualifier);
    FUZZ_CHECK(index == i && value == tlv->value && length == tlv->length - VT_TLV_HEADER_SIZE);
  }
  std::int32_t beyond = ev.pak->tlv_count;
  std::uint32_t length = 1;
  FUZZ_CHECK(cv_get_next_tlv_value_common(&ev, &beyond, 0, &length, 0) == nullptr);
  FUZZ_CHECK(beyond == -1 && length == 0);
  FUZZ_CHECK(cv_get_timeout_val_from_query(&ev) <= 180);
}

// LookUpDevices finds the aggregates by the device that they name.
void LookUpDevices(Event& ev) {
  for (std::int32_t i = 0; i < ev.pak->tlv_count; ++i) {
    const Tlv* tlv = ev.tlvs[i];
    if ((tlv->type & VT_TLV_AGGREGATED) == 0 || tlv->value == nullptr) continue;
    const auto* aggregate = static_cast<const aggregated_value*>(tlv->value);
    FUZZ_CHECK(cv_get_next_tlv_by_dh(&ev, tlv->type & ~VT_TLV_AGGREGATED, &aggregate->device, 0) !=
               nullptr);
  }
}

// ReadAll encodes every element, which reads every byte of its value.
void ReadAll(const Event& ev, std::size_t image_size) {
  std::uint32_t total = 0;
  for (std::int32_t i = 0; i < ev.pak->tlv_count; ++i) {
    const Block wire = Encode(*ev.tlvs[i]);
    total += static_cast<std::uint32_t>(wire.size());
  }
  FUZZ_CHECK(vt_get_total_tlvs_data_size(&ev) == total);
  FUZZ_CHECK(VT_PDU_HEADER_SIZE + total <= image_size || ev.pak->tlv_count == 0);
}

void Inspect(Event& ev, const Block& image, const hmac_context& key) {
  FUZZ_CHECK(ev.state == CV_EVENT_STATE_OK && ev.pak_valid == 1 && ev.pak != nullptr);
  if (ev.pak->tlv_count != 0) {
    FUZZ_CHECK(ev.raw == nullptr && ev.raw_len == 0 && ev.raw_valid == 0);
    FUZZ_CHECK(ev.tlv_capacity == ev.pak->tlv_count);
    LookUp(ev);
    LookUpDevices(ev);
    ReadAll(ev, image.size());
  } else {
    (void)vtn_validateMessageHeader(&ev, &key);
  }
  voltaris_dump_pdu(&ev);
  if (image.size() >= VT_PDU_HEADER_SIZE) {
    const std::uint8_t* elements = image.data() + VT_PDU_HEADER_SIZE;
    voltaris_dump_payload(elements - VT_MESSAGE_HEADER_SIZE);
    (void)vtn_getDomainFromPayload(elements,
                                   static_cast<std::uint32_t>(image.size() - VT_PDU_HEADER_SIZE));
  }
}

void Decode(const Block& image) {
  const HeapMeter meter;
  Event* ev = cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(image.size()), image.data());
  FUZZ_CHECK((ev != nullptr) == (image.size() >= kSmallestImage));
  if (ev == nullptr) return;
  const hmac_context& key = (image.data()[0] & 1) != 0 ? WrongKey() : RightKey();
  const int status = cv_unpack_event(ev, &key);
  FUZZ_CHECK(meter.peak() <= kDecodingLimit);
  FUZZ_CHECK(status == 0 || status == 1 || status == 3 || status == 5);
  if (status == 0) {
    Inspect(*ev, image, key);
  } else {
    FUZZ_CHECK(ev->state == CV_EVENT_STATE_FAILED && ev->pak == nullptr && ev->tlvs == nullptr);
  }
  FUZZ_CHECK(cv_unpack_event(ev, &key) == status);
  FUZZ_CHECK(cv_cleanup_event(ev) == 0);
  FUZZ_CHECK(meter.balanced());
}

}  // namespace

}  // namespace vt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const vt::fuzz::TimeLimit limit;
  if (size > VT_MAX_PDU_SIZE) return 0;
  vt::fuzz::SetUpLog(size);
  vt::fuzz::Decode(vt::fuzz::Block({data, size}));
  return 0;
}
