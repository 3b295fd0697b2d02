// Decoding with the verdict on the digest handed out, so that who must know it need not hash twice.
#ifndef VT_PROTOCOL_EVENT_DECODE_H
#define VT_PROTOCOL_EVENT_DECODE_H

#include <cstdint>

#include "vtapi/event.h"

#include "codec/message_pool.h"

namespace vt::protocol {

enum class Verdict { kNotChecked, kAuthentic, kForged };

// Lodging tells where an Event that is decoded lies.
struct Lodging {
  codec::MessagePool* pool = nullptr;  // of which it is the message begun last, or null
  bool owns_image = true;              // else the wire image is only read
};

// UnpackEvent is cv_unpack_event; verdict tells what the comparison gave, if one was made.
[[nodiscard]] int UnpackEvent(Event& ev, const hmac_context* key, const Lodging& lodging,
                              Verdict& verdict);

// DigestDifference compares the digest in the wire image with the HMAC of the message, in a time
// that does not depend on where they differ: 0 when equal, else the difference of the first bytes
// that differ. computed receives the HMAC. The image has at least 80 bytes.
[[nodiscard]] int DigestDifference(const Event& ev, const hmac_context* key,
                                   std::uint8_t (&computed)[VT_DIGEST_SIZE]);

// HasDigest tells whether the Event holds a wire image with a digest and a message header.
[[nodiscard]] bool HasDigest(const Event& ev);

}  // namespace vt::protocol

#endif  // VT_PROTOCOL_EVENT_DECODE_H
