// A received wire image turned into headers and elements, and the check of its digest.
#include "protocol/event_decode.h"

#include <cstdlib>
#include <cstring>

#include "codec/tlv_decode.h"
#include "protocol/event_parts.h"
#include "protocol/tlv_list.h"
#include "protocol/wire_image.h"
#include "protocol/wire_layout.h"
#include "support/assert.h"
#include "support/bytes.h"
#include "support/heap.h"
#include "support/log.h"

namespace vt::protocol {

namespace {

// The results of cv_unpack_event.
constexpr int kDecoded = 0;
constexpr int kFailed = 1;
constexpr int kSizeMismatch = 3;
constexpr int kUnacceptable = 5;

int Fail(Event& ev, int result) {
  ev.state = CV_EVENT_STATE_FAILED;
  return result;
}

// IsAcceptable holds the security header against the one combination that is spoken.
bool IsAcceptable(const security_header& sec) {
  return HighNibble(sec.byte9) <= kLastComm && sec.digest_len == VT_DIGEST_SIZE &&
         HighNibble(sec.byte1) == kEnc && LowNibble(sec.byte9) == kAuth;
}

// AdoptSecurityHeader keeps a copy of the header; the digest that it announces is not copied. Its
// block, which an Event of a pool has behind it, has room for what follows.
bool AdoptSecurityHeader(Event& ev, const security_header& sec, bool is_pooled) {
  ReleaseSec(ev);  // of a decoding that failed before
  const std::size_t size = SecSize(ev.raw, ev.raw_len);
  void* block = is_pooled ? std::memset(&ev + 1, 0, size) : support::ZeroedBlock(size);
  if (block == nullptr) return false;
  ev.sec = static_cast<security_header*>(block);
  *ev.sec = sec;
  return true;
}

int ReportSizeMismatch(Event& ev, std::uint32_t expected) {
  VT_LOG_AS(kTrace, "cv_unpack_event", "Cant unpack size mismatch: got %d, expecting: %d",
            ev.raw_len, expected);
  return Fail(ev, kSizeMismatch);
}

void AdoptMessageHeader(Event& ev) {
  ev.pak = static_cast<message_header*>(BehindSec(ev, kPakBehindSec));
  cv_corvane_event_nw_to_host(ev.raw_hdr, ev.pak);
}

int FinishWithoutElements(Event& ev) {
  ev.pak_valid = 1;
  ev.state = CV_EVENT_STATE_OK;
  return kDecoded;
}

// ExpectedSizeOfTruncated is the size of a whole image, as far as a shorter one tells it.
std::uint32_t ExpectedSizeOfTruncated(const Event& ev) {
  constexpr std::size_t kTlvBytesOffset = kMessageHeaderOffset + kTlvBytesInHeader;
  const bool tells = ev.raw_len >= kTlvBytesOffset + sizeof(std::uint16_t);
  const std::uint32_t tlv_bytes =
      tells ? support::LoadNetwork<std::uint16_t>(ev.raw + kTlvBytesOffset) : 0;
  return VT_PDU_HEADER_SIZE + tlv_bytes;
}

// UnpackWithoutDigest handles images too short for a digest and a header. The one that is valid is
// a header alone: it is decoded, and there is nothing to check it with.
int UnpackWithoutDigest(Event& ev) {
  const std::uint8_t* header = ev.raw + kDigestOffset;
  const auto tlv_bytes = support::LoadNetwork<std::uint16_t>(header + kTlvBytesInHeader);
  const auto tlv_count = support::LoadNetwork<std::uint16_t>(header + kTlvBytesInHeader + 2);
  if (ev.raw_len != kSmallestImage || tlv_bytes != 0 || tlv_count != 0) {
    return ReportSizeMismatch(ev, ExpectedSizeOfTruncated(ev));
  }
  ev.raw_hdr = ev.raw + kDigestOffset;
  AdoptMessageHeader(ev);
  return FinishWithoutElements(ev);
}

// DropHalfDecoded takes back everything but the image.
void DropHalfDecoded(Event& ev) {
  cv_free_tlvs(&ev);
  ReleasePak(ev);
  ev.pak_valid = 0;
  ReleaseSec(ev);
}

int FailElements(Event& ev) {
  VT_LOG_AS(kTrace, "cv_unpack_event", "Cant unpack payload tlvs");
  DropHalfDecoded(ev);
  return Fail(ev, kFailed);
}

// DecodeElements fills the slots, or leaves them empty and returns false.
bool DecodeElements(Event& ev, codec::MessagePool* pool) {
  std::int32_t remaining = ev.pak->tlv_bytes;
  std::uint8_t* cursor = ev.raw_hdr + VT_MESSAGE_HEADER_SIZE;
  const auto slots = std::span(ev.tlvs, Slots(ev).size());
  for (std::size_t i = 0; i < slots.size(); ++i) {
    slots[i] = codec::ReadTlv(&remaining, &cursor, pool);
    if (slots[i] != nullptr) continue;
    for (Tlv*& made : slots.first(i)) {
      vt_free_tlv_ptr(made);
      made = nullptr;
    }
    return false;
  }
  return true;
}

int UnpackElements(Event& ev, const hmac_context* key, const Lodging& lodging, Verdict& verdict) {
  const std::uint32_t count = SlotCount(ev.pak->tlv_bytes, ev.pak->tlv_count);
  ev.tlvs = static_cast<Tlv**>(SlotsGoWithSec(count) ? BehindSec(ev, kSlotsBehindSec)
                                                     : support::ZeroedBlock(count * sizeof(Tlv*)));
  if (ev.tlvs == nullptr) {
    // Deliberate: the one failure that leaves the state as it was.
    ev.pak->tlv_count = 0;
    ev.tlv_capacity = 0;
    ev.pak_valid = 0;
    return kFailed;
  }
  ev.tlv_capacity = count;
  if (!DecodeElements(ev, lodging.pool)) return FailElements(ev);
  ev.pak_valid = 1;
  ev.state = CV_EVENT_STATE_OK;
  const bool authentic = vtn_validateMessageHeader(&ev, key) != 0;
  verdict = authentic ? Verdict::kAuthentic : Verdict::kForged;
  // A checked image has served; without a digest to check, none gets here.
  lodging.owns_image ? DropImage(ev) : ForgetImage(ev);
  return kDecoded;
}

}  // namespace

bool HasDigest(const Event& ev) {
  return ev.raw != nullptr && ev.raw_hdr != nullptr && ev.raw_len >= VT_PDU_HEADER_SIZE;
}

int DigestDifference(const Event& ev, const hmac_context* key,
                     std::uint8_t (&computed)[VT_DIGEST_SIZE]) {
  // Lengths of the digest are 16 bits wide; an image beyond that is covered in part only.
  hmac_sha_msg(key, ev.raw_hdr, (ev.raw_len - kMessageHeaderOffset) & 0xFFFFU, computed);
  const std::uint8_t* received = ev.raw + kDigestOffset;
  int difference = 0;
  for (int i = VT_DIGEST_SIZE - 1; i >= 0; --i) {
    const int here = computed[i] - received[i];
    const int differs = -static_cast<int>(here != 0);  // all ones or none, no branch
    difference = (here & differs) | (difference & ~differs);
  }
  return difference;
}

int UnpackEvent(Event& ev, const hmac_context* key, const Lodging& lodging, Verdict& verdict) {
  verdict = Verdict::kNotChecked;
  if (ev.pak_valid != 0 || ev.raw_valid == 0) return kDecoded;
  const auto assert_that = [](bool holds, const char* text) {
    if (!holds) support::AssertionFailed(text, kUnit, __LINE__, "cv_unpack_event");
  };
  assert_that(ev.pak == nullptr, "!ev->pak");
  assert_that(ev.raw != nullptr, "ev->raw");

  security_header sec;
  cv_corvane_secure_nw_to_host(ev.raw, &sec);
  if (!IsAcceptable(sec)) return Fail(ev, kUnacceptable);
  if (!AdoptSecurityHeader(ev, sec, lodging.pool != nullptr)) return Fail(ev, kFailed);
  if (ev.raw_len < VT_PDU_HEADER_SIZE) return UnpackWithoutDigest(ev);

  const std::uint32_t padded_digest = RoundUpTo4(sec.digest_len);
  ev.raw_hdr = ev.raw + VT_SECURITY_HEADER_SIZE + padded_digest;
  const std::uint32_t expected =
      support::LoadNetwork<std::uint16_t>(ev.raw_hdr + kTlvBytesInHeader) + padded_digest +
      kSmallestImage;
  if (ev.raw_len != expected) return ReportSizeMismatch(ev, expected);
  AdoptMessageHeader(ev);
  return ev.pak->tlv_count == 0 ? FinishWithoutElements(ev)
                                : UnpackElements(ev, key, lodging, verdict);
}

}  // namespace vt::protocol

extern "C" {

int cv_unpack_event(Event* ev, const hmac_context* key) {
  // Deliberate: a forged message decodes all the same. Whoever acts on messages looks at the
  // verdict.
  vt::protocol::Verdict verdict;
  return vt::protocol::UnpackEvent(*ev, key, {}, verdict);
}

int cv_unpack_tlvs(Event* ev) {
  VT_ASSERT(ev != nullptr, "ev", vt::protocol::kUnit);
  VT_ASSERT(ev->pak != nullptr, "ev->pak", vt::protocol::kUnit);
  VT_ASSERT(ev->tlvs != nullptr, "ev->tlvs", vt::protocol::kUnit);
  return vt::protocol::DecodeElements(*ev, nullptr) ? 0 : 1;
}

int vtn_validateMessageHeader(Event* ev, const hmac_context* key) {
  if (!vt::protocol::HasDigest(*ev)) return 0;
  std::uint8_t computed[VT_DIGEST_SIZE];
  const int difference = vt::protocol::DigestDifference(*ev, key, computed);
  if (difference != 0) {
    VT_LOG(kWarn, "HMAC_SHA1 header mismatch %d", difference);
    if (vt::support::LogEnabled(vt::support::Level::kDebug)) {
      voltaris_dump_digest(ev->raw + vt::protocol::kDigestOffset);
      voltaris_dump_digest(computed);
    }
    return 0;
  }
  if (ev->sec != nullptr && ev->sec->tag != 0) {
    VT_LOG(kWarn, "Unexpected HMAC tag value %d", ev->sec->tag);
  }
  return 1;
}

}  // extern "C"
