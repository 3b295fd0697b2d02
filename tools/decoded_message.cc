#include "tools/decoded_message.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string_view>

#include "vtapi/enumerations.h"
#include "vtapi/hmac.h"
#include "vtapi/tlv.h"

#include "tools/element_values.h"

namespace vt::tools {
namespace {

constexpr std::size_t kDigestOffset = VT_SECURITY_HEADER_SIZE;
constexpr std::size_t kSignedOffset = VT_SECURITY_HEADER_SIZE + VT_DIGEST_SIZE;
constexpr std::size_t kIdentityOffset = kSignedOffset + 4;
constexpr std::size_t kMostIdentities = 64;

bool IsSignedWith(ByteView message, ByteView key) {
  std::array<std::uint8_t, VT_DIGEST_SIZE> digest{};
  const ByteView content = message.subspan(kSignedOffset);
  hmac_sha(key.data(), static_cast<std::uint32_t>(key.size()), content.data(),
           static_cast<std::uint32_t>(content.size()), digest.data());
  return std::ranges::equal(digest, message.subspan(kDigestOffset, VT_DIGEST_SIZE));
}

// IsSpoken tells whether nodes take messages with such a header. Its nibbles are swapped in memory.
bool IsSpoken(const security_header& security) {
  constexpr int enc = 2;
  constexpr int auth = 1;
  constexpr int last_comm = 4;
  return security.byte1 >> 4 == enc && (security.byte9 & 0x0F) == auth &&
         security.byte9 >> 4 <= last_comm && security.digest_len == VT_DIGEST_SIZE;
}

struct ElementDeleter {
  void operator()(Tlv* element) const { vt_free_tlv_ptr(element); }
};
using ElementOwner = std::unique_ptr<Tlv, ElementDeleter>;

DecodedElement ElementOf(const Tlv& element, ByteView wire) {
  DecodedElement decoded;
  decoded.type = element.type;
  decoded.qualifier = element.qualifier;
  decoded.name = ElementName(element.type);
  if (decoded.name.empty()) {
    decoded.value = HexText(wire.subspan(VT_TLV_HEADER_SIZE));
  } else {
    decoded.value = ElementValue(element);
  }
  return decoded;
}

// ReadElements reads those that the header counts, up to the first that cannot be read. offset is
// where they begin in the message, for what is told of the others.
void ReadElements(ByteView wire, std::size_t offset, DecodedMessage& message) {
  std::vector<std::uint8_t> bytes(wire.begin(), wire.end());
  std::uint8_t* cursor = bytes.data();
  auto remaining = static_cast<std::int32_t>(bytes.size());
  for (std::uint32_t i = 0; i < message.header.tlv_count; ++i) {
    const std::uint8_t* start = cursor;
    const auto at = static_cast<std::size_t>(start - bytes.data());
    const ElementOwner element(cv_create_tlv_from_raw_buf(&remaining, &cursor));
    if (element == nullptr) {
      message.fault = "element " + std::to_string(i + 1) + " of " +
                      std::to_string(message.header.tlv_count) + ", at byte " +
                      std::to_string(offset + at) + ", cannot be read";
      return;
    }
    message.elements.push_back(ElementOf(*element, {start, cursor}));
  }
  if (remaining > 0) {
    message.fault = std::to_string(remaining) + " bytes follow the last element";
  }
}

std::string WordOr(const char* constant, std::string_view prefix, std::int64_t number) {
  if (constant == nullptr) return std::to_string(number);
  std::string_view rest(constant);
  if (rest.starts_with(prefix)) rest.remove_prefix(prefix.size());
  std::string word;
  for (const char letter : rest) {
    if (letter == '_') {
      word += '-';
    } else {
      word += letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    }
  }
  return word;
}

// ActionNames are those of one class.
struct ActionNames {
  std::int32_t class_number;
  const char* (*name_of)(std::int32_t action);  // cppcheck-suppress unusedStructMember
  std::string_view prefix;                      // cppcheck-suppress unusedStructMember
};

constexpr std::array kActions = {
    ActionNames{CV_CLASS_QUERY, cv_util_e2s_action_mxrt_corvane_query,
                "CV_ACTION_MXRT_CORVANE_QUERY_"},
    ActionNames{CV_CLASS_AGGREGATE, cv_util_e2s_action_mxrt_corvane_aggregate,
                "CV_ACTION_MXRT_CORVANE_AGGREGATE_"},
    ActionNames{CV_CLASS_NOTIFY, cv_util_e2s_action_mxrt_corvane_notify,
                "CV_ACTION_MXRT_CORVANE_NOTIFY_"},
    ActionNames{CV_CLASS_REPLY, cv_util_e2s_action_mxrt_corvane_reply,
                "CV_ACTION_MXRT_CORVANE_REPLY_"},
    ActionNames{CV_CLASS_DISCOVERY, cv_util_e2s_action_mxrt_corvane_discovery,
                "CV_ACTION_MXRT_CORVANE_DISCOVERY_"},
};

}  // namespace

Signature Verifier::Check(ByteView message) {
  if (key_) {
    return IsSignedWith(message, key_->secret_bytes()) ? Signature::kVerified : Signature::kForged;
  }
  std::array<std::uint8_t, VT_IDENTITY_SIZE> sender{};
  std::ranges::copy(message.subspan(kIdentityOffset, sender.size()), sender.begin());
  if (std::ranges::find(identities_, sender) == identities_.end()) {
    identities_.push_front(sender);
    if (identities_.size() > kMostIdentities) identities_.pop_back();
  }
  const bool known = std::ranges::any_of(
      identities_, [message](const auto& identity) { return IsSignedWith(message, identity); });
  return known ? Signature::kIdentity : Signature::kUnchecked;
}

DecodedMessage DecodeMessage(ByteView bytes, Verifier& verifier) {
  DecodedMessage message;
  message.size = bytes.size();
  if (bytes.size() < VT_SECURITY_HEADER_SIZE) {
    message.fault = "it is shorter than its first header";
    return message;
  }
  cv_corvane_secure_nw_to_host(bytes.data(), &message.security);
  const std::size_t digest_size = (std::size_t{message.security.digest_len} + 3) / 4 * 4;
  const std::size_t header_offset = VT_SECURITY_HEADER_SIZE + digest_size;
  const std::size_t elements_offset = header_offset + VT_MESSAGE_HEADER_SIZE;
  if (bytes.size() < elements_offset) {
    message.fault = "it is shorter than its headers";
    return message;
  }
  cv_corvane_event_nw_to_host(bytes.data() + header_offset, &message.header);
  message.has_header = true;
  if (message.security.digest_len == VT_DIGEST_SIZE) message.signature = verifier.Check(bytes);
  const ByteView elements = bytes.subspan(elements_offset);
  if (elements.size() != message.header.tlv_bytes) {
    message.fault = "its header tells of " + std::to_string(message.header.tlv_bytes) +
                    " bytes of elements, and there are " + std::to_string(elements.size());
    return message;
  }
  ReadElements(elements, elements_offset, message);
  if (message.fault.empty() && !IsSpoken(message.security)) {
    message.fault = "its first header is of a kind that no node takes";
  }
  return message;
}

std::string ClassName(const message_header& header) {
  return WordOr(cv_util_e2s_class(header.class_), "CV_CLASS_", header.class_);
}

std::string ActionName(const message_header& header) {
  const auto* const names =
      std::ranges::find(kActions, std::int32_t{header.class_}, &ActionNames::class_number);
  if (names == kActions.end()) return std::to_string(header.action);
  return WordOr(names->name_of(header.action), names->prefix, header.action);
}

std::string ShipmentName(const message_header& header) {
  return WordOr(cv_util_e2s_shipment(header.shipment), "CV_SHIPMENT_", header.shipment);
}

}  // namespace vt::tools
