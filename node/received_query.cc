#include "node/received_query.h"

#include <algorithm>
#include <array>

#include "node/message_layout.h"

namespace vt::node {
namespace {

using Message = std::span<const std::uint8_t>;

hmac_context KeyFor(Message message, const std::optional<voltaris::Key>& key) {
  hmac_context context{};
  if (key) {
    hmac_shainit(&context, key->secret_bytes().data(), voltaris::Key::kSize);
  } else {
    hmac_shainit(&context, message.data() + kSenderOffset, VT_IDENTITY_SIZE);
  }
  return context;
}

// SameDigest takes the same time wherever the two differ, so that a forger learns nothing from it.
bool SameDigest(const std::uint8_t* left, const std::uint8_t* right) {
  unsigned difference = 0;
  for (std::size_t i = 0; i < VT_DIGEST_SIZE; ++i) {
    difference |= static_cast<unsigned>(left[i] ^ right[i]);
  }
  return difference == 0;
}

bool DigestMatches(Message message, const hmac_context& key) {
  const Message signed_part = message.subspan(kSignedOffset);
  std::array<std::uint8_t, VT_DIGEST_SIZE> digest{};
  hmac_sha_msg(&key, signed_part.data(), static_cast<std::uint32_t>(signed_part.size()),
               digest.data());
  return SameDigest(digest.data(), message.data() + kDigestOffset);
}

// The digest is looked for at its fixed place, which holds for digests of 20 bytes alone.
void CheckShape(Message message) {
  if (message.size() < VT_PDU_HEADER_SIZE) throw Rejected("it is shorter than a message header");
  const unsigned digest_len =
      static_cast<unsigned>(message[kDigestLenOffset] << 8) | message[kDigestLenOffset + 1];
  if (digest_len != VT_DIGEST_SIZE) throw Rejected("its digest is not of 20 bytes");
}

}  // namespace

ReceivedQuery::ReceivedQuery(Message message, const std::optional<voltaris::Key>& key) {
  CheckShape(message);
  key_ = KeyFor(message, key);
  // Decoding only logs a digest that does not match, so the verdict is reached here, and first.
  if (!DigestMatches(message, key_)) {
    throw Rejected("its digest does not match", Rejection::kBadDigest);
  }
  std::ranges::copy(message.subspan(kDigestOffset, VT_DIGEST_SIZE), digest_.begin());

  event_.reset(
      cv_mkevent_from_rawbuffer(static_cast<std::int32_t>(message.size()), message.data()));
  if (event_ == nullptr) throw std::bad_alloc();
  const int status = cv_unpack_event(event_.get(), &key_);
  if (status != 0) throw Rejected("it cannot be decoded, status " + std::to_string(status));
  if (header().shipment != CV_SHIPMENT_SEND) throw Rejected("it is an answer and not a query");
  ReadElements();
}

void ReceivedQuery::ReadElements() {
  const std::span<Tlv* const> elements(event_->tlvs,
                                       event_->tlvs == nullptr ? 0u : header().tlv_count);
  bool has_domain = false;
  for (const Tlv* element : elements) {
    if (element == nullptr || element->qualifier != 0) continue;
    if (element->type == VT_TLV_QUERY_TIMEOUT) continue;
    if (element->type != CV_CORVANE_TLV_TYPE_DOMAIN || has_domain) {
      attributes_.push_back(element);
      continue;
    }
    // The first domain is the query's own.
    if (element->value != nullptr) domain_ = static_cast<const char*>(element->value);
    has_domain = true;
  }
}

std::chrono::seconds ReceivedQuery::timeout() const {
  constexpr std::chrono::seconds usual{6};  // what clients add to a query without one
  const std::uint32_t seconds = cv_get_timeout_val_from_query(event_.get());
  return seconds != 0 ? std::chrono::seconds(seconds) : usual;
}

}  // namespace vt::node
