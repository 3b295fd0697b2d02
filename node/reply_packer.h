// Packs answers into messages: acknowledgements, refusals and results, each kind in as many signed
// messages of at most 1400 bytes as it takes. It knows the form of messages and nothing of what
// devices answer.
#ifndef VT_NODE_REPLY_PACKER_H_
#define VT_NODE_REPLY_PACKER_H_

#include <netinet/in.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vtapi.h"

#include "node/received_query.h"

namespace vt::node {

using Bytes = std::vector<std::uint8_t>;

// DeviceHeader names a device in a message: its identity and its address.
class DeviceHeader {
 public:
  DeviceHeader(const std::string& id, const sockaddr_in& address);
  ~DeviceHeader() = default;
  DeviceHeader(const DeviceHeader&) = delete;
  DeviceHeader& operator=(const DeviceHeader&) = delete;

  const device_header& get() const { return header_; }

 private:
  sockaddr_in address_;
  device_header header_{};
};

// UsageHeader is what a combined element tells of an entity besides its usage.
struct UsageHeader {
  std::int32_t caliber = 0;
  std::string name;
  std::string role;
  std::string keywords;
  std::int8_t units = 0;
  std::uint8_t level = 0;
  std::uint8_t importance = 0;
};

// ReplyStream is the messages of one kind.
class ReplyStream {
 public:
  // sender is the identity of the node. A domain that is not empty stands in every message.
  ReplyStream(const ReceivedQuery& query, std::int32_t shipment, const std::string& sender,
              const std::string& domain);

  // Room returns a message into which size more bytes of elements fit, a new one if need be.
  Event* Room(std::size_t size);

  // Finish signs the last message and appends all of them to out.
  void Finish(std::vector<Bytes>& out);

 private:
  struct ReleaseEvent {
    void operator()(Event* event) const { cv_cleanup_event(event); }
  };

  bool Fits(std::size_t size) const;
  void Open();
  void Close();

  const ReceivedQuery& query_;
  std::int32_t shipment_;
  std::string sender_;
  std::string domain_;
  std::unique_ptr<Event, ReleaseEvent> open_;
  std::vector<Bytes> closed_;
};

class ReplyPacker {
 public:
  // query must outlive the packer. Answers echo its class, action and number.
  ReplyPacker(const ReceivedQuery& query, const std::string& sender, const std::string& domain);

  // Accept and Refuse say whether an entity will answer. Entity 0 is the device as a whole.
  void Accept(const DeviceHeader& device, std::uint32_t entity);
  void Refuse(const DeviceHeader& device, std::uint32_t entity);

  // AddText and AddValue add one attribute of an entity, by its element type; data is in host
  // order.
  void AddText(const DeviceHeader& device, std::uint32_t entity, std::uint32_t type,
               const std::string& text);
  void AddValue(const DeviceHeader& device, std::uint32_t entity, std::uint32_t type,
                const void* data, std::size_t size);

  // AddCombined adds a combined element: type 43 with 2 bytes of data, 44 with 22, 45 with 44.
  void AddCombined(const DeviceHeader& device, std::uint32_t entity, std::uint32_t type,
                   const UsageHeader& usage, const void* data, std::size_t size);

  // Finish returns the signed messages, the acknowledgements first. The packer is used up.
  std::vector<Bytes> Finish();

 private:
  ReplyStream accepted_;
  ReplyStream refused_;
  ReplyStream results_;
};

}  // namespace vt::node

#endif  // VT_NODE_REPLY_PACKER_H_
