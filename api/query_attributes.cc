// The attributes of a Query: those to be read and those to be set.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "vtapi/aggregate.h"
#include "vtapi/catalogue.h"
#include "vtapi/enumerations.h"
#include "vtapi/query.h"

#include "api/attribute_list.h"
#include "api/query_budget.h"
#include "support/log.h"

namespace {

using vt::api::AppendAttribute;
using vt::api::BaseEstimate;
using vt::api::FitsQuery;

constexpr const char kGet[] = "voltaris_addGetAttribute";
constexpr const char kSet[] = "voltaris_addSetAttribute";

bool IsSum(const Query& query) {
  return query.class_ == CV_CLASS_AGGREGATE && query.action == CV_ACTION_MXRT_CORVANE_AGGREGATE_SUM;
}

// HasUnits tells the usage attributes, each of which has a units column behind its own.
bool HasUnits(std::int32_t attribute) {
  return attribute == VT_ATTRIBUTE_USAGE || attribute == VT_ATTRIBUTE_DELTA_VECTOR ||
         attribute == VT_ATTRIBUTE_USAGE_VECTOR;
}

int LogFull(const char* function, std::int32_t attribute) {
  if (function == kGet) {
    VT_LOG_AS(kWarn, kGet, "Unable to add GET attribute %d, query packet has reached maximum size",
              attribute);
  } else {
    VT_LOG_AS(kWarn, kSet, "Unable to add SET attribute %d, query packet has reached maximum size",
              attribute);
  }
  return -1;
}

// A sum is asked for with a combined element that holds zeros. The estimates are those of the
// 32-bit layout, on every build.
struct SumShape {
  std::uint32_t type;
  std::uint32_t combined_type;
  std::uint32_t estimate;
};

constexpr std::array<SumShape, 2> kSumShapes = {{
    {CV_CORVANE_TLV_TYPE_USAGE, VT_TLV_COMBINED_USAGE, 94},
    {VT_TLV_DELTA_VECTOR, VT_TLV_COMBINED_DELTA_VECTOR, 136},
}};

int AddSumElement(Query& query, std::int32_t attribute, std::uint32_t type) {
  const auto* shape = std::find_if(kSumShapes.begin(), kSumShapes.end(),
                                   [type](const SumShape& row) { return row.type == type; });
  if (shape == kSumShapes.end()) {
    VT_LOG_AS(kWarn, kGet, "Sum query only supports usage and delta vector");
    return -1;
  }
  if (!FitsQuery(BaseEstimate(query) + shape->estimate)) return LogFull(kGet, attribute);
  const delta_vector zeros{};  // serves both: the usage is its first two bytes
  const device_header device{};
  const usage_cmn_hdr usage{};
  (void)cv_add_aggr_type_tlv(query.event, shape->combined_type, &zeros, 0, &device, &usage);
  return 0;
}

// The value of an attribute to be read is zeros, which receivers ignore. There are as many as the
// host record of every type has bytes, which may be more than the length of the 32-bit layout.
constexpr neighbor kZeros{};
static_assert(sizeof(neighbor) >= sizeof(delta_vector) && sizeof(neighbor) >= sizeof(sender_id));

int AddPlaceholder(Query& query, std::int32_t attribute, std::uint32_t type) {
  char empty_text[] = "";  // cppcheck-suppress variableScope; the recurrence points to it
  const recurrence empty_recurrence{empty_text, 0, 0, 0};
  const void* placeholder = &kZeros;
  std::uint32_t length = vtn_getTypeLength(type);
  if (type == VT_TLV_RECURRENCE) {
    placeholder = &empty_recurrence;
    length = vt_get_recurrence_size(&empty_recurrence);
  }
  if (!FitsQuery(length + BaseEstimate(query) + VT_TLV_HEADER_SIZE)) {
    return LogFull(kGet, attribute);
  }
  VT_LOG_AS(kDebug, kGet, "adding type of length %d", length);
  const int status = cv_add_tlv_common(query.event, type, length + VT_TLV_HEADER_SIZE,
                                       length != 0 ? placeholder : nullptr, 0);
  return status == 0 ? 0 : -1;
}

int AddColumn(Query& query, const char* function, std::int32_t attribute) {
  if (AppendAttribute(query, attribute)) return 0;
  VT_LOG_AS(kFatal, function, "Out of memory");
  return -1;
}

// SetLength is the length of a value to be set. Deliberate: it is held in eight bits, so that a
// text of 255 characters wraps to an empty value.
std::uint8_t SetLength(std::uint32_t type, const void* value) {
  auto length = static_cast<std::uint8_t>(vtn_getTypeLength(type));
  if (length == 0 && value != nullptr) {
    length = static_cast<std::uint8_t>(std::strlen(static_cast<const char*>(value)) + 1);
  }
  if (type == VT_TLV_RECURRENCE && value != nullptr) {
    length =
        static_cast<std::uint8_t>(vt_get_recurrence_size(static_cast<const recurrence*>(value)));
  }
  return length;
}

}  // namespace

extern "C" {

std::int32_t voltaris_addGetAttribute(Query* query, std::int32_t attribute) {
  const std::int32_t type = vt_get_tlv_enum_type(attribute);
  if (type == -1) {
    VT_LOG(kError, "Invalid attribute type.");
    return -1;
  }
  if (query->event == nullptr) return -1;  // executed before
  const auto wire_type = static_cast<std::uint32_t>(type);
  const int added = IsSum(*query) ? AddSumElement(*query, attribute, wire_type)
                                  : AddPlaceholder(*query, attribute, wire_type);
  if (added != 0) return -1;
  if (AddColumn(*query, kGet, attribute) != 0) return -1;
  return HasUnits(attribute) ? AddColumn(*query, kGet, VT_ATTRIBUTE_UNITS) : 0;
}

std::int32_t voltaris_addSetAttribute(Query* query, std::int32_t attribute, const void* value) {
  const std::int32_t type = vt_get_tlv_enum_type(attribute);
  if (type == -1) {
    VT_LOG(kError, "Invalid attribute type.");
    return -1;
  }
  if (query->class_ != CV_CLASS_QUERY) {
    VT_LOG(kWarn, "not supported for class type %d", query->class_);
    return -1;
  }
  if (query->action != CV_ACTION_MXRT_CORVANE_QUERY_SET) {
    VT_LOG(kWarn, "not supported for action type %d", query->action);
    return -2;
  }
  if (query->event == nullptr) return -1;  // executed before
  const auto wire_type = static_cast<std::uint32_t>(type);
  const std::uint32_t length = SetLength(wire_type, value);
  if (length != 0 && value == nullptr) {
    VT_LOG(kWarn, "Can't add attribute %d due to invalid value address.", attribute);
    return -1;
  }
  if (!FitsQuery(length + BaseEstimate(*query) + VT_TLV_HEADER_SIZE)) {
    return LogFull(kSet, attribute);
  }
  if (cv_add_tlv_common(query->event, wire_type, length + VT_TLV_HEADER_SIZE, value, 0) != 0) {
    return -1;
  }
  return AddColumn(*query, kSet, attribute);
}

}  // extern "C"
