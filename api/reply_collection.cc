// The collection of replies: wait, read, check, decode, fold, until the node has closed the
// connection.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"
#include "vtapi/reception.h"
#include "vtapi/result.h"
#include "vtapi/socket.h"

#include "api/reply.h"
#include "support/log.h"
#include "support/reader.h"
#include "transport/wait.h"

namespace {

constexpr const char kLoop[] = "vtn_queryLoop";
constexpr long kWaitSeconds = 180;

// WasSent tells whether there is a connection with replies. A Session that never executed anything
// has descriptor 0, which is not its own.
bool WasSent(const Session& session, const Query& query) {
  return session.descriptor != -1 && (session.descriptor != 0 || query.session != nullptr);
}

// WaitForMessage returns 1 when there is something to read and 0 when the collection is over.
int WaitForMessage(int fd, ResultSet& result) {
  for (;;) {
    const timeval limit{kWaitSeconds, 0};
    bool marked;
    const int ready = vt::transport::WaitReadable(fd, &limit, &marked);
    if (marked) return 1;
    if (ready == 0) {
      VT_LOG_AS(kDebug, kLoop, "select() timout expired");  // Deliberate: spelt so.
      result.error_code = VT_ERROR_TIMEOUT;
      return 0;
    }
    const int error = vtn_getErrorCode();
    VT_LOG_AS(kWarn, kLoop, "unexpected read status value %d, error: %d(%s)", ready, error,
              std::strerror(error));
    // An interrupted wait is retried; a descriptor that cannot be waited for never becomes better.
    if (ready < 0 && (error == EBADF || error == EINVAL)) {
      result.error_code = error;
      return 0;
    }
  }
}

}  // namespace

extern "C" {

ResultSet* voltaris_queryResults(Session* session, Query* query) {
  if (!WasSent(*session, *query)) {
    VT_LOG(kError, "Query failed to execute, no results available.");
    return nullptr;
  }
  ResultSet* result = new_resultset();
  if (result == nullptr) {
    VT_LOG(kFatal, "out of memory");
    return nullptr;
  }
  vt::api::BeginResult(*result, *query);
  if (!vt::api::MakeArrays(*result)) {
    VT_LOG(kFatal, "out of memory");
    result->error_code = VT_ERROR_NO_MEMORY;
    return result;
  }
  vtn_queryLoop(session, result);
  VT_LOG(kDebug, "ACK %d/NAK %d ans pending=%d ans received=%d", result->ack_count,
         result->nak_count, result->answers_pending, result->answers_received);
  VT_LOG(kDebug, "sorting ACK/NAK results");
  vt::api::SortArrays(*result);
  return result;
}

void vtn_queryLoop(Session* session, ResultSet* result) {
  std::array<std::uint8_t, VT_MAX_PDU_SIZE> buffer;
  while (WaitForMessage(session->descriptor, *result) != 0) {
    sockaddr_in sender{};
    const int count = vtn_read_tcp_message(session->descriptor, buffer.data(),
                                           static_cast<std::int32_t>(buffer.size()), &sender);
    if (count == 0) {
      VT_LOG(kDebug, "bytes read %d", count);
      return;
    }
    if (count < 0) {
      const int error = errno;
      result->error_code = error;
      VT_LOG(kWarn, "no response read:  %d(%s)", error, std::strerror(error));
      return;
    }
    if (count > VT_MAX_PDU_SIZE) {
      VT_LOG(kError,
             "Dropping packet from %s, size exceeds maximum threshold.  Expected max:  %d bytes, "
             "Actual size:  %d bytes",
             inet_ntoa(sender.sin_addr), VT_MAX_PDU_SIZE, count);
      continue;
    }
    vtn_processReply(buffer.data(), count, result, &session->key);
  }
}

void vtn_processReply(const void* buf, std::int32_t len, ResultSet* result,
                      const hmac_context* key) {
  (void)vt::api::TakeReply(buf, len, *result, *key, vt::api::Arrays::kAreThere);
}

std::uint32_t vtn_getDomainFromPayload(const void* payload, std::uint32_t len) {
  if (payload == nullptr) return 0;
  vt::support::Reader in({static_cast<const std::uint8_t*>(payload), len});
  for (;;) {
    std::uint32_t type = 0;
    std::uint32_t length = 0;
    if (!in.Read(type) || !in.Read(length) || !in.Skip(sizeof(std::uint32_t))) return 0;
    if (type == CV_CORVANE_TLV_TYPE_DOMAIN) {
      std::uint32_t domain = 0;
      const std::size_t there = std::min(in.remaining(), sizeof domain);
      std::memcpy(&domain, in.cursor(), there);
      return domain;
    }
    if (length < VT_TLV_HEADER_SIZE) return 0;
    if (!in.Skip(length - VT_TLV_HEADER_SIZE) || in.remaining() == 0) return 0;
  }
}

}  // extern "C"
