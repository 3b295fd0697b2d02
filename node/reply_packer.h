// Packs answers into messages: acknowledgements, refusals and results, each kind in as few signed
// messages of at most 1400 bytes as its elements fill. It knows the form of messages and nothing of
// what devices answer.
//
// Elements are written into their message as they come. A tree of elements that the library
// encodes afterwards would take several blocks of memory for each of them.
#ifndef VT_NODE_REPLY_PACKER_H_
#define VT_NODE_REPLY_PACKER_H_

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vtapi.h"

#include "node/received_query.h"

namespace vt::node {

using Bytes = std::vector<std::uint8_t>;

// What an aggregated element takes besides its entries, and an entry besides its value.
inline constexpr std::size_t kDeviceHeaderSize =
    VT_IDENTITY_SIZE + sizeof(std::uint32_t) + sizeof(sockaddr_in);
inline constexpr std::size_t kAggregateSize =
    VT_TLV_HEADER_SIZE + kDeviceHeaderSize + sizeof(std::uint32_t);
inline constexpr std::size_t kTagSize = sizeof(std::uint32_t);

// SignMessage writes the digest of a whole message into it.
void SignMessage(const hmac_context& key, Bytes& message);

// LargestValue is the size of the largest value that fits into a message of a domain.
std::size_t LargestValue(const std::string& domain);

// DeviceHeader names a device in a message: its identity and its address, as they travel.
class DeviceHeader {
 public:
  DeviceHeader(std::string_view id, const sockaddr_in& address);

  std::span<const std::uint8_t> wire() const { return wire_; }

 private:
  std::array<std::uint8_t, kDeviceHeaderSize> wire_{};
};

// UsageHeader is what a combined element tells of an entity besides its usage.
struct UsageHeader {
  std::int32_t caliber = 0;
  const char* name = "";
  const char* role = "";
  const char* keywords = "";
  std::int8_t units = 0;
  std::uint8_t level = 0;
  std::uint8_t importance = 0;
};

// ValueWriter appends values as they travel to a buffer of bytes.
class ValueWriter {
 public:
  explicit ValueWriter(Bytes& out) : out_(out) {}

  void Int8(std::int8_t value) { Put(value, vt_pack_int8); }
  void Uint8(std::uint8_t value) { Put(value, vt_pack_uint8); }
  void Uint16(std::uint16_t value) { Put(value, vt_pack_uint16); }
  void Int32(std::int32_t value) { Put(value, vt_pack_int32); }
  void Uint32(std::uint32_t value) { Put(value, vt_pack_uint32); }
  // Block is bytes with their length in front.
  void Block(const void* data, std::size_t size);
  void Text(std::string_view text) { Block(text.data(), text.size()); }
  void Identity(std::string_view id);
  void Usages(std::span<const std::uint16_t> usages);
  void Deltas(std::span<const std::int32_t> deltas);
  void Header(const UsageHeader& header);

 private:
  template <class T>
  void Put(T value, std::uint32_t (*pack)(void*, const T*)) {
    std::array<std::uint8_t, sizeof(T)> wire{};
    pack(wire.data(), &value);
    out_.insert(out_.end(), wire.begin(), wire.end());
  }

  Bytes& out_;
};

// ReplyStream is the messages of one kind. It keeps a few of them open, so that a small element may
// fill what a large one has left.
class ReplyStream {
 public:
  // sender is the identity of the node, of 32 characters. A domain that is not empty stands in
  // every message.
  ReplyStream(const ReceivedQuery& query, std::int32_t shipment, std::string sender,
              std::string domain);

  // Add adds an entry to the aggregated element of a type for a device. Entries of an element that
  // follow each other share it. It throws std::length_error for what fits into no message.
  void Add(const DeviceHeader& device, std::uint32_t type, std::uint32_t entity,
           std::span<const std::uint8_t> value);

  // Finish signs the messages that are open and appends all of them to out.
  void Finish(std::vector<Bytes>& out);

 private:
  struct Message {
    Bytes bytes;
    std::uint16_t elements = 0;
    std::size_t last = 0;  // where the last aggregated element begins
    std::uint32_t last_length = 0;
    std::uint32_t last_entries = 0;

    bool HasRoom(std::size_t size) const { return bytes.size() + size <= VT_MAX_PDU_SIZE; }
  };

  static bool Continues(const Message& message, const DeviceHeader& device, std::uint32_t type);
  Message& MessageFor(std::size_t size);
  Message NewMessage() const;
  void Begin(Message& message, const DeviceHeader& device, std::uint32_t type) const;
  void Seal(Message& message);

  const ReceivedQuery& query_;
  std::int32_t shipment_;
  std::string sender_;
  std::string domain_;
  std::vector<Message> open_;
  std::vector<Bytes> sealed_;
};

class ReplyPacker {
 public:
  // query must outlive the packer. Answers echo its class, action and number.
  ReplyPacker(const ReceivedQuery& query, const std::string& sender, const std::string& domain);

  // Accept and Refuse say whether an entity will answer. Entity 0 is the device as a whole.
  void Accept(const DeviceHeader& device, std::uint32_t entity);
  void Refuse(const DeviceHeader& device, std::uint32_t entity);

  // Postpone says that an entity will answer later, which is not on this connection.
  void Postpone(const DeviceHeader& device, std::uint32_t entity);

  // Add adds one value of an entity, as ValueWriter writes it; type is without its flag.
  void Add(const DeviceHeader& device, std::uint32_t entity, std::uint32_t type,
           std::span<const std::uint8_t> value);

  // accepted and refused are how many acknowledgements of each kind there are.
  std::uint32_t accepted() const { return num_accepted_; }
  std::uint32_t refused() const { return num_refused_; }

  // Finish returns the signed messages, the acknowledgements first. The packer is used up.
  std::vector<Bytes> Finish();

 private:
  ReplyStream accepted_;
  ReplyStream refused_;
  ReplyStream postponed_;
  ReplyStream results_;
  std::uint32_t num_accepted_ = 0;
  std::uint32_t num_refused_ = 0;
};

}  // namespace vt::node

#endif  // VT_NODE_REPLY_PACKER_H_
