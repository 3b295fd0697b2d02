// The wire image of an Event and the fields that tell of it.
#ifndef VT_PROTOCOL_WIRE_IMAGE_H
#define VT_PROTOCOL_WIRE_IMAGE_H

#include <cstdlib>

#include "vtapi/event.h"

namespace vt::protocol {

// DropImage releases the image and resets all that points at it or tells its length.
inline void DropImage(Event& ev) {
  std::free(ev.raw);
  ev.raw = nullptr;
  ev.raw_hdr = nullptr;
  ev.raw_len = 0;
  ev.raw_valid = 0;
}

}  // namespace vt::protocol

#endif  // VT_PROTOCOL_WIRE_IMAGE_H
