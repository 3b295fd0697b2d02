// A received message decoded where it lies, into memory of the caller's choice.
#ifndef VT_PROTOCOL_EVENT_H
#define VT_PROTOCOL_EVENT_H

#include <cstdint>

#include "vtapi/event.h"

#include "protocol/event_decode.h"

namespace vt::protocol {

// ReceiveEvent is cv_mkevent_from_rawbuffer and cv_unpack_event in one: it returns the Event, null
// if the former would be, and sets error and verdict to what the latter tells. The Event gets an
// image of its own only where decoding leaves it with one, which it does of a message that has no
// elements or was refused. If pool is not null, the Event is made there, as long as there is memory
// for that; after the release of one that was refused, the pool takes back its memory.
[[nodiscard]] Event* ReceiveEvent(std::int32_t size, const void* buf, const hmac_context* key,
                                  codec::MessagePool* pool, int& error, Verdict& verdict);

}  // namespace vt::protocol

#endif  // VT_PROTOCOL_EVENT_H
