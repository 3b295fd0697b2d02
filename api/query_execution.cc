// A Query made into a signed Pdu and sent over a new connection.
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "vtapi/catalogue.h"
#include "vtapi/dump.h"
#include "vtapi/enumerations.h"
#include "vtapi/query.h"
#include "vtapi/socket.h"

#include "api/query_message.h"
#include "support/log.h"
#include "transport/address.h"

namespace {

using vt::support::Level;
using vt::support::LogEnabled;
using vt::transport::AsSocketAddress;
using vt::transport::kAddressSize;

constexpr const char kExec[] = "voltaris_execQuery";
// Connect opens a new connection to the Session's node; the descriptor is -1 if that fails.
// Deliberate: one that the Session held before is not closed, for it belongs to an earlier query.
void Connect(Session& session) {
  session.descriptor = socket(AF_INET, SOCK_STREAM, 0);
  if (session.descriptor == -1) {
    VT_LOG_AS(kError, kExec, "Socket creation failed (errno %d)", vtn_getErrorCode());
    return;
  }
  const int connected = connect(session.descriptor, AsSocketAddress(&session.target), kAddressSize);
  if (connected < 0) {
    const int error = errno;
    VT_LOG_AS(kError, kExec, "Socket connect failed %d, error = %d(%s)", connected, error,
              std::strerror(error));
    (void)closeSocket(session.descriptor);
    session.descriptor = -1;
    return;
  }
  socklen_t length = kAddressSize;
  (void)getsockname(session.descriptor, AsSocketAddress(&session.local), &length);
}

// Send sends the Pdu once and returns what send reported.
std::int32_t Send(int fd, const Event& event) {
  // Without a signal: a peer that is gone must give an error, not end the process.
  const auto sent = static_cast<std::int32_t>(send(fd, event.raw, event.raw_len, MSG_NOSIGNAL));
  if (sent < 0) VT_LOG_AS(kError, kExec, "send failed %d, errno = %d", sent, vtn_getErrorCode());
  const auto size = static_cast<std::int32_t>(event.raw_len);
  if (sent == size) {
    VT_LOG_AS(kDebug, kExec, "sent %d bytes", sent);
  } else {
    VT_LOG_AS(kWarn, kExec, "sent %d bytes of pdu size %d", sent, size);
  }
  if (LogEnabled(Level::kDebug)) voltaris_dump_pdu(&event);
  if (LogEnabled(Level::kTrace)) voltaris_dump_buf(event.raw, size);
  return sent;
}

}  // namespace

extern "C" std::int32_t voltaris_execQuery(Session* session, Query* query) {
  if (!vt::api::MakeMessage(*session, *query, kExec)) return -1;
  Connect(*session);
  query->session = session;
  std::int32_t sent = 0;
  if (session->descriptor == -1) {
    VT_LOG(kError, "Error connecting to host, query failed.");
  } else {
    sent = Send(session->descriptor, *query->event);
  }
  // Deliberate: a failed send counts as -1 byte, and so gives the size + 1.
  const std::int32_t unsent = std::abs(static_cast<std::int32_t>(query->event->raw_len) - sent);
  (void)cv_cleanup_event(query->event);
  query->event = nullptr;
  return unsent;
}
