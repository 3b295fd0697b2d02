// Waiting for a descriptor to become readable. It is done with poll, because select cannot watch
// descriptors above 1023; the log texts of the callers keep the name of the call they once made.
#ifndef VT_TRANSPORT_WAIT_H
#define VT_TRANSPORT_WAIT_H

#include <sys/time.h>

#include "vtapi/base.h"

namespace vt::transport {

// WaitReadable waits for data, an end of stream or an error on fd, for at most timeout (null:
// without limit), which is not updated. Returns 1 when ready, 0 when the time is over, or -1 with
// errno: EBADF, at once, for a descriptor that is not open, EINVAL for a negative time, EINTR after
// a signal. *out_marked, unless null, tells whether fd itself was marked ready.
[[nodiscard]] int WaitReadable(int fd, const timeval* timeout, bool* out_marked = nullptr);

}  // namespace vt::transport

#endif  // VT_TRANSPORT_WAIT_H
