#include "node/reply_packer.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "node/message_layout.h"

namespace vt::node {
namespace {

// With four open messages hardly a byte is left over that a smaller element could have used.
constexpr std::size_t kOpenMessages = 4;

constexpr std::uint8_t kComm = 2;  // as in queries

void PutNumber(std::uint8_t* at, std::uint32_t value) { vt_pack_uint32(at, &value); }

void PutElementHeader(std::uint8_t* at, std::uint32_t type, std::uint32_t length) {
  constexpr std::uint32_t no_qualifier = 0;
  PutNumber(at, type);
  PutNumber(at + 4, length);
  PutNumber(at + 8, no_qualifier);
}

security_header SecurityHeader() {
  security_header header{};
  header.byte1 = 2 << 4;
  header.byte9 = 1 | kComm << 4;
  header.digest_len = VT_DIGEST_SIZE;
  return header;
}

}  // namespace

void SignMessage(const hmac_context& key, Bytes& message) {
  hmac_sha_msg(&key, message.data() + kSignedOffset,
               static_cast<std::uint32_t>(message.size() - kSignedOffset),
               message.data() + kDigestOffset);
}

std::size_t LargestValue(const std::string& domain) {
  const std::size_t taken =
      VT_PDU_HEADER_SIZE + VT_TLV_HEADER_SIZE + domain.size() + kAggregateSize + kTagSize;
  return taken < VT_MAX_PDU_SIZE ? VT_MAX_PDU_SIZE - taken : 0;
}

DeviceHeader::DeviceHeader(std::string_view id, const sockaddr_in& address) {
  std::memcpy(wire_.data(), id.data(), std::min<std::size_t>(id.size(), VT_IDENTITY_SIZE));
  PutNumber(wire_.data() + VT_IDENTITY_SIZE, sizeof address);
  std::memcpy(wire_.data() + VT_IDENTITY_SIZE + sizeof(std::uint32_t), &address, sizeof address);
}

void ValueWriter::Block(const void* data, std::size_t size) {
  Uint32(static_cast<std::uint32_t>(size));
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  out_.insert(out_.end(), bytes, bytes + size);
}

void ValueWriter::Identity(std::string_view id) {
  const std::size_t size = std::min<std::size_t>(id.size(), VT_IDENTITY_SIZE);
  out_.insert(out_.end(), id.begin(), id.begin() + static_cast<std::ptrdiff_t>(size));
  out_.insert(out_.end(), VT_IDENTITY_SIZE - size, 0);
}

void ValueWriter::Usages(std::span<const std::uint16_t> usages) {
  for (const std::uint16_t usage : usages) Uint16(usage);
}

void ValueWriter::Deltas(std::span<const std::int32_t> deltas) {
  for (const std::int32_t delta : deltas) Int32(delta);
}

void ValueWriter::Header(const UsageHeader& header) {
  constexpr std::uint32_t word = 0;
  Uint32(word);
  Int32(header.caliber);
  Text(header.name);
  Text(header.role);
  Int8(header.units);
  Uint8(header.level);
  Uint8(header.importance);
  Text(header.keywords);
}

ReplyStream::ReplyStream(const ReceivedQuery& query, std::int32_t shipment, std::string sender,
                         std::string domain)
    : query_(query), shipment_(shipment), sender_(std::move(sender)), domain_(std::move(domain)) {}

// Continues tells whether the last element of a message is the one for a device and a type.
bool ReplyStream::Continues(const Message& message, const DeviceHeader& device,
                            std::uint32_t type) {
  if (message.last == 0) return false;
  std::array<std::uint8_t, sizeof type> wire_type{};
  PutNumber(wire_type.data(), type);
  const std::uint8_t* at = message.bytes.data() + message.last;
  return std::memcmp(at, wire_type.data(), sizeof type) == 0 &&
         std::memcmp(at + VT_TLV_HEADER_SIZE, device.wire().data(), kDeviceHeaderSize) == 0;
}

void ReplyStream::Add(const DeviceHeader& device, std::uint32_t type, std::uint32_t entity,
                      std::span<const std::uint8_t> value) {
  type |= VT_TLV_AGGREGATED;
  const std::size_t size = kTagSize + value.size();
  const auto continued = std::ranges::find_if(open_, [&](const Message& message) {
    return message.HasRoom(size) && Continues(message, device, type);
  });
  const bool is_new = continued == open_.end();
  Message& message = is_new ? MessageFor(kAggregateSize + size) : *continued;
  if (is_new) Begin(message, device, type);

  ValueWriter(message.bytes).Uint32(entity);
  message.bytes.insert(message.bytes.end(), value.begin(), value.end());
  message.last_length += static_cast<std::uint32_t>(size);
  std::uint8_t* element = message.bytes.data() + message.last;
  PutNumber(element + 4, message.last_length);
  PutNumber(element + VT_TLV_HEADER_SIZE + kDeviceHeaderSize, ++message.last_entries);
}

ReplyStream::Message& ReplyStream::MessageFor(std::size_t size) {
  const auto found =
      std::ranges::find_if(open_, [size](const Message& message) { return message.HasRoom(size); });
  if (found != open_.end()) return *found;
  if (open_.size() == kOpenMessages) {
    const auto fullest = std::ranges::max_element(
        open_, {}, [](const Message& message) { return message.bytes.size(); });
    Seal(*fullest);
    open_.erase(fullest);
  }
  Message& made = open_.emplace_back(NewMessage());
  if (!made.HasRoom(size)) throw std::length_error("an element does not fit into a message");
  return made;
}

ReplyStream::Message ReplyStream::NewMessage() const {
  Message message;
  message.bytes.reserve(VT_MAX_PDU_SIZE);
  message.bytes.resize(VT_PDU_HEADER_SIZE);
  if (domain_.empty()) return message;
  const std::size_t length = VT_TLV_HEADER_SIZE + domain_.size();
  message.bytes.resize(VT_PDU_HEADER_SIZE + VT_TLV_HEADER_SIZE);
  PutElementHeader(message.bytes.data() + VT_PDU_HEADER_SIZE, CV_CORVANE_TLV_TYPE_DOMAIN,
                   static_cast<std::uint32_t>(length));
  message.bytes.insert(message.bytes.end(), domain_.begin(), domain_.end());
  ++message.elements;
  return message;
}

void ReplyStream::Begin(Message& message, const DeviceHeader& device, std::uint32_t type) const {
  message.last = message.bytes.size();
  message.last_length = kAggregateSize;
  message.last_entries = 0;
  message.bytes.resize(message.last + VT_TLV_HEADER_SIZE);
  PutElementHeader(message.bytes.data() + message.last, type, message.last_length);
  message.bytes.insert(message.bytes.end(), device.wire().begin(), device.wire().end());
  ValueWriter(message.bytes).Uint32(message.last_entries);
  ++message.elements;
}

void ReplyStream::Seal(Message& message) {
  const message_header& query = query_.header();
  message_header header{};
  header.seq = query.seq;
  std::memcpy(header.voltarisid, sender_.data(),
              std::min(sender_.size(), sizeof header.voltarisid));
  header.ver = 1;
  header.shipment = static_cast<std::int8_t>(shipment_);
  header.pri = query.pri;
  header.type = CV_TYPE_MXRT;
  header.app = CV_APPLICATION_CORVANE;
  header.class_ = query.class_;
  header.action = query.action;
  header.tlv_bytes = static_cast<std::uint16_t>(message.bytes.size() - VT_PDU_HEADER_SIZE);
  header.tlv_count = message.elements;

  std::uint8_t* wire = message.bytes.data();
  const security_header security = SecurityHeader();
  cv_corvane_secure_host_to_nw(&security, wire);
  cv_corvane_event_host_to_nw(&header, wire + kSignedOffset);
  SignMessage(query_.key(), message.bytes);
  sealed_.push_back(std::move(message.bytes));
}

void ReplyStream::Finish(std::vector<Bytes>& out) {
  for (Message& message : open_) Seal(message);
  open_.clear();
  std::ranges::move(sealed_, std::back_inserter(out));
  sealed_.clear();
}

ReplyPacker::ReplyPacker(const ReceivedQuery& query, const std::string& sender,
                         const std::string& domain)
    : accepted_(query, CV_SHIPMENT_ACK_WILL, sender, ""),
      refused_(query, CV_SHIPMENT_ACK_WONT, sender, ""),
      postponed_(query, CV_SHIPMENT_ACK_LATER, sender, ""),
      results_(query, CV_SHIPMENT_REPLY_NO_ERROR, sender, domain) {}

void ReplyPacker::Accept(const DeviceHeader& device, std::uint32_t entity) {
  accepted_.Add(device, VT_TLV_ACKNOWLEDGEMENT, entity, {});
  ++num_accepted_;
}

void ReplyPacker::Refuse(const DeviceHeader& device, std::uint32_t entity) {
  refused_.Add(device, VT_TLV_ACKNOWLEDGEMENT, entity, {});
  ++num_refused_;
}

void ReplyPacker::Postpone(const DeviceHeader& device, std::uint32_t entity) {
  postponed_.Add(device, VT_TLV_ACKNOWLEDGEMENT, entity, {});
}

void ReplyPacker::Add(const DeviceHeader& device, std::uint32_t entity, std::uint32_t type,
                      std::span<const std::uint8_t> value) {
  results_.Add(device, type, entity, value);
}

std::vector<Bytes> ReplyPacker::Finish() {
  std::vector<Bytes> messages;
  accepted_.Finish(messages);
  refused_.Finish(messages);
  postponed_.Finish(messages);
  results_.Finish(messages);
  return messages;
}

}  // namespace vt::node
