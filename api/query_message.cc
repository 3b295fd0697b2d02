#include "api/query_message.h"

#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"

#include "support/log.h"

namespace vt::api {

namespace {

constexpr std::uint8_t kDefaultTimeoutSeconds = 6;
constexpr std::uint32_t kComm = 2;

int AddDefaultTimeout(Event* event) {
  return cv_add_tlv_common(event, VT_TLV_QUERY_TIMEOUT,
                           VT_TLV_HEADER_SIZE + sizeof kDefaultTimeoutSeconds,
                           &kDefaultTimeoutSeconds, 0);
}

void LogFailure(const char* function, int error) {
  VT_LOG_AS(kError, function, "create pdu failed, err=%d", error);
}

}  // namespace

bool MakeMessage(Session& session, Query& query, const char* function) {
  if (query.event == nullptr) {  // executed before
    LogFailure(function, 1);
    return false;
  }
  // Without memory for a time-out the nodes take their own.
  if (cv_get_timeout_val_from_query(query.event) == 0) (void)AddDefaultTimeout(query.event);
  const std::uint32_t sequence_number = getNextSequenceNumber(&session);
  const int failed = vtn_createPdu(query.event, query.priority, CV_SHIPMENT_SEND,
                                   static_cast<std::uint32_t>(query.class_),
                                   static_cast<std::uint32_t>(query.action), session.identity,
                                   sequence_number, &session.key, kComm);
  if (failed != 0) LogFailure(function, failed);
  return failed == 0;
}

}  // namespace vt::api
