// The wire image of an Event and the fields that tell of it.
#ifndef VT_PROTOCOL_WIRE_IMAGE_H
#define VT_PROTOCOL_WIRE_IMAGE_H

#include <cstdlib>

#include "vtapi/event.h"

namespace vt::protocol {

// ForgetImage resets all that points at the image or tells its length. DropImage releases it too.
inline void ForgetImage(Event& ev) {
  ev.raw = nullptr;
  ev.raw_hdr = nullptr;
  ev.raw_len = 0;
  ev.raw_valid = 0;
}

inline void DropImage(Event& ev) {
  std::free(ev.raw);
  ForgetImage(ev);
}

}  // namespace vt::protocol

#endif  // VT_PROTOCOL_WIRE_IMAGE_H
