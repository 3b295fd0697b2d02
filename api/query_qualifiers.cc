// The qualifiers of a Query, which select the devices that answer.
#include <cstring>

#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"
#include "vtapi/keywords.h"
#include "vtapi/query.h"

#include "api/query_budget.h"
#include "support/heap.h"
#include "support/log.h"

namespace {

using vt::api::BaseEstimate;
using vt::api::FitsQuery;

constexpr const char kAdd[] = "voltaris_addQualifier";
constexpr std::uint32_t kQualifier = 1;
constexpr std::uint32_t kAttribute = 0;
constexpr int kPacketFull = 2;

// AddElement adds an element of length bytes, if they fit. Every line is of the one exported call.
int AddElement(Query& query, std::int32_t attribute, std::uint32_t type, std::uint32_t length,
               const void* value, std::uint32_t qualifier) {
  if (FitsQuery(BaseEstimate(query) + length)) {
    return cv_add_tlv_common(query.event, type, length, value, qualifier);
  }
  VT_LOG_AS(kWarn, kAdd, "Unable to add qualifier type %d, query packet has reached maximum size",
            attribute);
  return kPacketFull;
}

int AddText(Query& query, std::int32_t attribute, std::uint32_t type, const char* text) {
  const std::size_t length = text != nullptr ? std::strlen(text) : 0;
  // Keywords travel as a list with a zero byte behind each item. Without memory for that, as they
  // are.
  const vt::support::Owned<char> list(
      type == CV_CORVANE_TLV_TYPE_KEYWORDS ? corvane_conv_kw_list(text) : nullptr);
  return AddElement(query, attribute, type,
                    static_cast<std::uint32_t>(length) + 1 + VT_TLV_HEADER_SIZE,
                    list != nullptr ? list.get() : text, kQualifier);
}

int AddByType(Query& query, std::int32_t attribute, std::uint32_t type, const void* value) {
  switch (type) {
    case CV_CORVANE_TLV_TYPE_VLTRS_ID:
      return AddElement(query, attribute, type, VT_TLV_HEADER_SIZE + sizeof(sender_id), value,
                        kQualifier);
    case CV_CORVANE_TLV_TYPE_ROLE:
    case CV_CORVANE_TLV_TYPE_NAME:
    case CV_CORVANE_TLV_TYPE_KEYWORDS:
      return AddText(query, attribute, type, static_cast<const char*>(value));
    case VT_TLV_QUERY_TIMEOUT:
      // The time-out is told to all devices: an attribute, although it comes through this call.
      return AddElement(query, attribute, type, VT_TLV_HEADER_SIZE + 1, value, kAttribute);
    default:
      // Deliberate: a kind that is no qualifier is warned of and reported as success.
      VT_LOG_AS(kWarn, kAdd, "invalid qualifier type %d", attribute);
      return 0;
  }
}

std::int32_t Add(Query& query, std::int32_t attribute, const void* value) {
  const std::int32_t type = vt_get_tlv_enum_type(attribute);
  if (type == -1) {
    VT_LOG_AS(kError, kAdd, "Invalid attribute type.");
    return -1;
  }
  if (query.class_ != CV_CLASS_QUERY && query.class_ != CV_CLASS_AGGREGATE) {
    VT_LOG_AS(kError, kAdd, "must be QUERY or AGGREGATE event");
    return -1;
  }
  if (query.action != CV_ACTION_MXRT_CORVANE_QUERY_SET &&
      query.action != CV_ACTION_MXRT_CORVANE_QUERY_COLLECT &&
      query.action != VT_ACTION_QUERY_FURTHER) {
    VT_LOG_AS(kError, kAdd, "must be GET or SET or SUM query");
    return -2;
  }
  if (query.event == nullptr) return -1;  // executed before
  VT_LOG_AS(kDebug, kAdd, "adding qualifier type %d", attribute);
  const int error = AddByType(query, attribute, static_cast<std::uint32_t>(type), value);
  if (error == 0) return 0;
  VT_LOG_AS(kError, kAdd, "add qualifier failed, err=%d", error);
  return -1;
}

}  // namespace

extern "C" {

std::int32_t voltaris_addQualifier(Query* query, std::int32_t attribute, const void* value) {
  return Add(*query, attribute, value);
}

std::int32_t voltaris_addIdQualifier(Query* query, const void* value) {
  return Add(*query, VT_ATTRIBUTE_ID, value);
}

std::int32_t voltaris_addRoleQualifier(Query* query, const void* value) {
  return Add(*query, VT_ATTRIBUTE_ROLE, value);
}

std::int32_t voltaris_addNameQualifier(Query* query, const void* value) {
  return Add(*query, VT_ATTRIBUTE_NAME, value);
}

std::int32_t voltaris_addKeyQualifier(Query* query, const void* value) {
  return Add(*query, VT_ATTRIBUTE_KEYWORDS, value);
}

}  // extern "C"
