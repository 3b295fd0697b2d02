#include "node/reply_packer.h"

#include <cstring>
#include <new>
#include <stdexcept>

#include "node/fleet.h"

namespace vt::node {
namespace {

constexpr std::uint32_t kComm = 2;  // as in queries

// The sizes on the wire. An element that gathers several entries is smaller than its entries
// counted one by one, so that a message never comes out longer than reckoned.
constexpr std::size_t kCountedLength = 4;
constexpr std::size_t kTag = 4;
constexpr std::size_t kAggregate =
    VT_TLV_HEADER_SIZE + VT_IDENTITY_SIZE + kCountedLength + sizeof(sockaddr_in) + 4;
constexpr std::size_t kUsageHeaderWithoutTexts = 23;

void Require(int status) {
  if (status != 0) throw std::bad_alloc();
}

}  // namespace

DeviceHeader::DeviceHeader(const std::string& id, const sockaddr_in& address) : address_(address) {
  std::memcpy(header_.id.bytes, id.data(), std::min(id.size(), sizeof header_.id.bytes));
  header_.data = &address_;
  header_.data_len = sizeof address_;
}

ReplyStream::ReplyStream(const ReceivedQuery& query, std::int32_t shipment,
                         const std::string& sender, const std::string& domain)
    : query_(query), shipment_(shipment), sender_(sender), domain_(domain) {}

bool ReplyStream::Fits(std::size_t size) const {
  return VT_PDU_HEADER_SIZE + vt_get_total_tlvs_data_size(open_.get()) + size <= VT_MAX_PDU_SIZE;
}

Event* ReplyStream::Room(std::size_t size) {
  if (open_ != nullptr && !Fits(size)) Close();
  if (open_ == nullptr) Open();
  if (!Fits(size)) throw std::length_error("an element does not fit into a message");
  return open_.get();
}

void ReplyStream::Open() {
  open_.reset(corvane_create_my_packet());
  if (open_ == nullptr) throw std::bad_alloc();
  if (domain_.empty()) return;
  const auto length = static_cast<std::uint32_t>(VT_TLV_HEADER_SIZE + domain_.size() + 1);
  Require(cv_add_tlv(open_.get(), CV_CORVANE_TLV_TYPE_DOMAIN, length, domain_.c_str()));
}

void ReplyStream::Close() {
  const message_header& query = query_.header();
  Require(vtn_createPdu(open_.get(), query.pri, static_cast<std::uint32_t>(shipment_), query.class_,
                        query.action, sender_.data(), query.seq, &query_.key(), kComm));
  closed_.emplace_back(open_->raw, open_->raw + open_->raw_len);
  open_.reset();
}

void ReplyStream::Finish(std::vector<Bytes>& out) {
  if (open_ != nullptr) Close();
  for (Bytes& message : closed_) out.push_back(std::move(message));
  closed_.clear();
}

ReplyPacker::ReplyPacker(const ReceivedQuery& query, const std::string& sender,
                         const std::string& domain)
    : accepted_(query, CV_SHIPMENT_ACK_WILL, sender, ""),
      refused_(query, CV_SHIPMENT_ACK_WONT, sender, ""),
      results_(query, CV_SHIPMENT_REPLY_NO_ERROR, sender, domain) {}

void ReplyPacker::Accept(const DeviceHeader& device, std::uint32_t entity) {
  Require(cv_aggr_ack(accepted_.Room(kAggregate + kTag), entity, &device.get()));
}

void ReplyPacker::Refuse(const DeviceHeader& device, std::uint32_t entity) {
  Require(cv_aggr_ack(refused_.Room(kAggregate + kTag), entity, &device.get()));
}

void ReplyPacker::AddText(const DeviceHeader& device, std::uint32_t entity, std::uint32_t type,
                          const std::string& text) {
  AddValue(device, entity, type, text.c_str(), kCountedLength + text.size() + 1);
}

void ReplyPacker::AddValue(const DeviceHeader& device, std::uint32_t entity, std::uint32_t type,
                           const void* data, std::size_t size) {
  Event* message = results_.Room(kAggregate + kTag + size);
  Require(cv_add_aggr_type_tlv(message, type, data, entity, &device.get(), nullptr));
}

void ReplyPacker::AddCombined(const DeviceHeader& device, std::uint32_t entity, std::uint32_t type,
                              const UsageHeader& usage, const void* data, std::size_t size) {
  // The record wants texts that could be written to; the library copies them.
  UsageHeader texts = usage;
  usage_cmn_hdr header{};
  header.value = usage.caliber;
  header.text1 = texts.name.data();
  header.text2 = texts.role.data();
  header.text3 = texts.keywords.data();
  header.small = usage.units;
  header.byte1 = usage.level;
  header.byte2 = usage.importance;
  const std::size_t texts_size =
      usage.name.size() + usage.role.size() + usage.keywords.size() + kUsageHeaderWithoutTexts;
  Event* message = results_.Room(kAggregate + kTag + texts_size + size);
  Require(cv_add_aggr_type_tlv(message, type, data, entity, &device.get(), &header));
}

std::vector<Bytes> ReplyPacker::Finish() {
  std::vector<Bytes> messages;
  accepted_.Finish(messages);
  refused_.Finish(messages);
  results_.Finish(messages);
  return messages;
}

}  // namespace vt::node
