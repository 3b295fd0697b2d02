// One message out of its bytes: its headers, who signed it, and its elements as far as they can be
// read.
#ifndef VT_TOOLS_DECODED_MESSAGE_H_
#define VT_TOOLS_DECODED_MESSAGE_H_

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vtapi.hpp"
#include "vtapi/pdu.h"

#include "tools/byte_reader.h"

namespace vt::tools {

// Signature is what the digest of a message shows.
enum class Signature {
  kVerified,   // it is that of the key that was given
  kIdentity,   // without a key: it is that of the identity of who sent or asked
  kForged,     // it is not that of the key that was given
  kUnchecked,  // without a key: it is that of a key that is not known here
  kNone,       // there is no digest of 20 bytes
};

// Verifier checks digests, with a key or, without one, with the identities that it has met: where
// there is no key, the identity of who asks signs queries and replies.
class Verifier {
 public:
  explicit Verifier(std::optional<voltaris::Key> key) : key_(std::move(key)) {}

  bool has_key() const { return key_.has_value(); }
  // Check looks at a whole message of at least VT_PDU_HEADER_SIZE bytes.
  Signature Check(ByteView message);

 private:
  std::optional<voltaris::Key> key_;
  std::deque<std::array<std::uint8_t, VT_IDENTITY_SIZE>> identities_;
};

// NOLINTNEXTLINE(bugprone-exception-escape): what nlohmann::ordered_json says of its move is true
struct DecodedElement {
  std::uint32_t type = 0;  // with its flags
  std::uint32_t qualifier = 0;
  std::string name;              // empty for unknown types
  nlohmann::ordered_json value;  // of unknown types, the bytes as hexadecimal digits
};

struct DecodedMessage {
  security_header security{};
  bool has_header = false;  // without one, header and elements are empty
  message_header header{};
  Signature signature = Signature::kNone;
  std::vector<DecodedElement> elements;
  std::size_t size = 0;
  std::string fault;  // why it cannot be read to its end; empty for one that can
};

// DecodeMessage reads a message of any bytes. What is too short for its headers, or follows none,
// has a fault and nothing else.
DecodedMessage DecodeMessage(ByteView bytes, Verifier& verifier);

// The names of the header's numbers, such as "query", "collect" and "ack-will"; the number itself
// where there is no name.
std::string ClassName(const message_header& header);
std::string ActionName(const message_header& header);
std::string ShipmentName(const message_header& header);

}  // namespace vt::tools

#endif  // VT_TOOLS_DECODED_MESSAGE_H_
