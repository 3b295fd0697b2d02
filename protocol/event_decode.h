// Decoding with the verdict on the digest handed out, so that who must know it need not hash twice.
#ifndef VT_PROTOCOL_EVENT_DECODE_H
#define VT_PROTOCOL_EVENT_DECODE_H

#include <cstdint>

#include "vtapi/event.h"

namespace vt::protocol {

enum class Verdict { kNotChecked, kAuthentic, kForged };

// Image tells whose the wire image of an Event is.
enum class Image { kOwned, kBorrowed };

// UnpackEvent is cv_unpack_event; verdict tells what the comparison gave, if one was made. A
// borrowed image is read as an owned one is, and is not released.
[[nodiscard]] int UnpackEvent(Event& ev, const hmac_context* key, Image image, Verdict& verdict);

// DigestDifference compares the digest in the wire image with the HMAC of the message, in a time
// that does not depend on where they differ: 0 when equal, else the difference of the first bytes
// that differ. computed receives the HMAC. The image has at least 80 bytes.
[[nodiscard]] int DigestDifference(const Event& ev, const hmac_context* key,
                                   std::uint8_t (&computed)[VT_DIGEST_SIZE]);

// HasDigest tells whether the Event holds a wire image with a digest and a message header.
[[nodiscard]] bool HasDigest(const Event& ev);

}  // namespace vt::protocol

#endif  // VT_PROTOCOL_EVENT_DECODE_H
