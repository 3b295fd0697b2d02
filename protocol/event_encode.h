// The elements of an outgoing Event put into its image.
#ifndef VT_PROTOCOL_EVENT_ENCODE_H
#define VT_PROTOCOL_EVENT_ENCODE_H

#include <cstdint>

#include "vtapi/event.h"

namespace vt::protocol {

// PackElements is cv_pack_tlvs for who knows the size of all elements.
void PackElements(Event& ev, std::uint32_t size);

}  // namespace vt::protocol

#endif  // VT_PROTOCOL_EVENT_ENCODE_H
