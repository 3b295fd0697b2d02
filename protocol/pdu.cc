// What can be told of a Pdu by its message header alone.
#include "vtapi/pdu.h"

#include <cstdint>

#include "protocol/wire_layout.h"
#include "support/bytes.h"

using vt::support::AddressBehind;

extern "C" {

std::uint32_t vtn_getPduSize(const void* hdr) {
  const auto tlv_bytes =
      vt::support::LoadNetwork<std::uint16_t>(AddressBehind(hdr, vt::protocol::kTlvBytesInHeader));
  return tlv_bytes + std::uint32_t{VT_MESSAGE_HEADER_SIZE};
}

int vtn_isValidPduAddress(const void* hdr, const void* p) {
  // Deliberate: addresses compare as signed numbers.
  const auto first = reinterpret_cast<std::intptr_t>(hdr);
  const auto end = reinterpret_cast<std::intptr_t>(AddressBehind(hdr, vtn_getPduSize(hdr)));
  const auto address = reinterpret_cast<std::intptr_t>(p);
  return first <= address && address < end ? 1 : 0;
}

}  // extern "C"
