// Queries made and released.
#include "vtapi/query.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"
#include "vtapi/socket.h"

#include "api/attribute_list.h"
#include "support/bytes.h"
#include "support/heap.h"
#include "support/log.h"

namespace {

static_assert(sizeof(void*) != 4 || sizeof(Query) == 40, "Query changed size");

constexpr const char kCreate[] = "voltaris_createQuery";

Query* Create(std::int32_t cls, std::int32_t action, const char* domain, std::uint32_t priority) {
  vt::support::Owned<Query> query(new_query());
  if (query == nullptr) {
    VT_LOG_AS(kFatal, kCreate, "out of memory");
    return nullptr;
  }
  query->class_ = vt_get_class_enum_type(cls);
  if (query->class_ == -1) {
    VT_LOG_AS(kError, kCreate, "Invalid class, can't create query.");
    return nullptr;
  }
  query->action = vt_get_action_enum_type(cls, action);
  if (query->action == -1) {
    VT_LOG_AS(kError, kCreate, "Invalid action, can't create query.");
    return nullptr;
  }
  query->priority = static_cast<std::uint8_t>(priority);
  (void)queue_init(&query->attributes, 0);
  query->event = corvane_create_my_packet();
  if (query->event == nullptr) {
    VT_LOG_AS(kError, kCreate,
              "Error creating new query packet, could not allocate sufficient memory.");
    return nullptr;
  }
  // Without memory for the domain the query is of no domain; that is found out by its answers.
  const auto domain_length = static_cast<std::uint32_t>(std::strlen(domain)) + 1;
  (void)cv_add_tlv(query->event, CV_CORVANE_TLV_TYPE_DOMAIN, VT_TLV_HEADER_SIZE + domain_length,
                   domain);
  VT_LOG_AS(kDebug, kCreate, "new Query (class=%d, action=%d, pri=%d)", cls, action,
            query->priority);
  return query.release();
}

void CloseConnection(Session& session) {
  if (session.descriptor == -1) return;
  (void)closeSocket(session.descriptor);
  session.descriptor = -1;
}

}  // namespace

extern "C" {

Query* new_query() {
  Query* query = vt::support::AllocateZeroed<Query>().release();
  if (query == nullptr) return nullptr;
  VT_LOG(kTrace, "allocated %d bytes for query", static_cast<int>(sizeof(Query)));
  return query;
}

Query* voltaris_createQuery(std::int32_t cls, std::int32_t action, const char* domain,
                            std::uint32_t priority) {
  return Create(cls, action, domain, priority);
}

Query* voltaris_createSetQuery(const char* domain, std::uint32_t priority) {
  return Create(VT_QUERY, VT_QUERY_SET, domain, priority);
}

Query* voltaris_createCollectQuery(const char* domain, std::uint32_t priority) {
  return Create(VT_QUERY, VT_QUERY_COLLECT, domain, priority);
}

Query* voltaris_createSumQuery(const char* domain, std::uint32_t priority) {
  return Create(VT_AGGREGATE, VT_AGGREGATE_SUM, domain, priority);
}

void voltaris_releaseQuery(Query* query) {
  if (query->session != nullptr) {
    CloseConnection(*query->session);
  } else {
    (void)cv_cleanup_event(query->event);
  }
  vt::api::ReleaseAttributes(*query);
  std::free(query);
}

std::uint32_t cv_get_timeout_val_from_query(const Event* event) {
  constexpr std::uint8_t kLeast = 1;
  constexpr std::uint8_t kMost = 180;
  std::int32_t index = 0;
  std::uint32_t length = 0;
  const void* value = cv_get_next_tlv_value_common(event, &index, VT_TLV_QUERY_TIMEOUT, &length, 0);
  if (value == nullptr) return 0;
  return std::clamp(vt::support::LoadHost<std::uint8_t>(value), kLeast, kMost);
}

}  // extern "C"
