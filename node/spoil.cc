#include "node/spoil.h"

#include <algorithm>
#include <span>
#include <utility>

#include "node/message_layout.h"

namespace vt::node {
namespace {

// Of the count of entries within an aggregated element.
constexpr std::size_t kEntriesOffset = VT_TLV_HEADER_SIZE + kDeviceHeaderSize;

std::uint32_t U32At(const Bytes& message, std::size_t at) {
  std::uint32_t value = 0;
  for (const std::uint8_t byte : std::span(message).subspan(at, sizeof value)) {
    value = value << 8 | byte;
  }
  return value;
}

std::uint16_t U16At(const Bytes& message, std::size_t at) {
  return static_cast<std::uint16_t>(message[at] << 8 | message[at + 1]);
}

void PutU32(Bytes& message, std::size_t at, std::uint32_t value) {
  vt_pack_uint32(message.data() + at, &value);
}

void PutU16(Bytes& message, std::size_t at, std::uint16_t value) {
  vt_pack_uint16(message.data() + at, &value);
}

std::size_t LastElementOf(const Bytes& message) {
  std::size_t at = VT_PDU_HEADER_SIZE;
  for (;;) {
    const std::size_t next = at + U32At(message, at + sizeof(std::uint32_t));
    if (next >= message.size()) return at;
    at = next;
  }
}

// The last element, which tells of a device, counts an entry more than it has.
void Malform(Bytes& message, const hmac_context& key) {
  const std::size_t at = LastElementOf(message) + kEntriesOffset;
  PutU32(message, at, U32At(message, at) + 1);
  SignMessage(key, message);
}

void SpoilDigest(Bytes& message) { message[kDigestOffset] ^= 0xFF; }

void Double(std::vector<Bytes>& messages) {
  std::vector<Bytes> doubled;
  doubled.reserve(2 * messages.size());
  for (Bytes& message : messages) {
    doubled.push_back(message);
    doubled.push_back(std::move(message));
  }
  messages = std::move(doubled);
}

// Cut keeps so many bytes.
void Cut(std::vector<Bytes>& messages, std::size_t size) {
  const auto kept = std::ranges::find_if(messages, [&size](const Bytes& message) {
    if (size < message.size()) return true;
    size -= message.size();
    return false;
  });
  if (kept == messages.end()) return;
  kept->resize(size);
  messages.erase(size == 0 ? kept : kept + 1, messages.end());
}

std::size_t MiddleOfTheLast(const std::vector<Bytes>& messages) {
  std::size_t size = 0;
  for (const Bytes& message : messages) size += message.size();
  return size - messages.back().size() / 2;
}

// The digest is that of what the length announces, so that nothing but the length is wrong.
void MistellLength(Bytes& message, std::int32_t by, const hmac_context& key) {
  const std::int32_t announced = std::max(U16At(message, kElementBytesOffset) + by, 0);
  PutU16(message, kElementBytesOffset, static_cast<std::uint16_t>(announced));
  const std::size_t whole = VT_PDU_HEADER_SIZE + static_cast<std::size_t>(announced);
  Bytes framed(message.begin(),
               message.begin() + static_cast<std::ptrdiff_t>(std::min(whole, message.size())));
  SignMessage(key, framed);
  std::ranges::copy(framed, message.begin());
}

// An element that means nothing fills the message up to its size.
void Fill(Bytes& message, std::size_t size, const hmac_context& key) {
  const std::size_t at = message.size();
  message.resize(size);
  PutU32(message, at, CV_CORVANE_TLV_TYPE_RESERVED);
  PutU32(message, at + sizeof(std::uint32_t), static_cast<std::uint32_t>(size - at));
  PutU16(message, kElementBytesOffset, static_cast<std::uint16_t>(size - VT_PDU_HEADER_SIZE));
  PutU16(message, kElementCountOffset,
         static_cast<std::uint16_t>(U16At(message, kElementCountOffset) + 1));
  SignMessage(key, message);
}

}  // namespace

bool SpoilsMessages(FaultKind kind) {
  return kind == FaultKind::kWrongDigest || kind == FaultKind::kMalformed ||
         kind == FaultKind::kDuplicate;
}

void Spoil(const Fault& fault, const hmac_context& key, std::vector<Bytes>& messages) {
  if (fault.kind == FaultKind::kDuplicate) return Double(messages);
  for (Bytes& message : messages) {
    fault.kind == FaultKind::kWrongDigest ? SpoilDigest(message) : Malform(message, key);
  }
}

void SpoilDelivery(const Fault& fault, const hmac_context& key, Delivery& delivery) {
  std::vector<Bytes>& messages = delivery.messages;
  delivery.reset = fault.reset;
  delivery.delay = fault.delay;
  delivery.step = fault.bytes;
  delivery.pause = fault.pause;
  // Where nobody answers there is nothing to spoil.
  if (messages.empty()) return;
  switch (fault.kind) {
    case FaultKind::kDrop:
      return Cut(messages, fault.after.value_or(MiddleOfTheLast(messages)));
    case FaultKind::kCloseEarly:
      messages.resize(std::min(messages.size(), fault.messages));
      return;
    case FaultKind::kBadLength:
      return MistellLength(messages.back(), fault.by, key);
    case FaultKind::kOverSize:
      return Fill(messages.back(), fault.size, key);
    default:
      return;
  }
}

}  // namespace vt::node
