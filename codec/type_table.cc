#include "codec/type_table.h"

#include "vtapi/enumerations.h"

namespace vt::codec {

using enum KindName;

constexpr TypeRow kTypeRows[VT_TLV_TYPE_COUNT] = {
    {CV_CORVANE_TLV_TYPE_RESERVED, kOpaque, 0, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_VLTRS_ID, kSenderId, 36, VT_ATTRIBUTE_ID},
    {CV_CORVANE_TLV_TYPE_ID, kIdentity, 32, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_ENT_ID, kUint32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_AUTHORIZATION, kOpaque, 0, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_ADDRESSEE, kText, 0, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_RECUR, kText, 0, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_ROLE, kText, 0, VT_ATTRIBUTE_ROLE},
    {CV_CORVANE_TLV_TYPE_DOMAIN, kText, 0, VT_ATTRIBUTE_DOMAIN},
    {CV_CORVANE_TLV_TYPE_NAME, kText, 0, VT_ATTRIBUTE_NAME},
    {CV_CORVANE_TLV_TYPE_KEYWORDS, kOpaque, 0, VT_ATTRIBUTE_KEYWORDS},
    {CV_CORVANE_TLV_TYPE_ERROR_STRING, kText, 0, VT_ATTRIBUTE_ERROR_STRING},
    {CV_CORVANE_TLV_TYPE_UNITS, kInt8, 1, VT_ATTRIBUTE_UNITS},
    {CV_CORVANE_TLV_TYPE_USAGE, kUint16, 2, VT_ATTRIBUTE_USAGE},
    {CV_CORVANE_TLV_TYPE_LEVEL_CURRENT, kUint8, 1, VT_ATTRIBUTE_LEVEL},
    {CV_CORVANE_TLV_TYPE_LEVEL_PROVISIONED, kUint8, 1, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE, kUint8, 1, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_I, kUint8, 1, VT_ATTRIBUTE_IMPORTANCE},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_E, kUint8, 1, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_MAX, kUint16, 2, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_MAX_ID, kIdentity, 32, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_PARENT, kIdentity, 32, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_ENTITY_TYPE, kInt32, 4, VT_ATTRIBUTE_ENTITY_TYPE},
    {CV_CORVANE_TLV_TYPE_REPLY_TO, kOpaque, 16, VT_ATTRIBUTE_REPLY_TO},
    {CV_CORVANE_TLV_TYPE_PROXY_ADDRESS, kOpaque, 16, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_PROXY_PORT, kUint32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_PROXY_PROTO, kInt32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_PROXY_CLASS, kText, 0, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_NEIGHBOR, kNeighbor, 84, VT_ATTRIBUTE_NEIGHBOR},
    {CV_CORVANE_TLV_TYPE_NEIGHBOR_COUNT, kUint16, 2, VT_ATTRIBUTE_NEIGHBOR_COUNT},
    {CV_CORVANE_TLV_TYPE_PARENT, kIdentity, 32, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_HEARTBEAT, kInt32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_CLOCK, kInt32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_SENDER_CLOCK, kInt32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_NANNY_VECTOR, kUint32, 4, VT_ATTRIBUTE_NANNY_VECTOR},
    {CV_CORVANE_TLV_TYPE_EVENT_ID, kEventId, 36, kNoAttribute},
    {VT_TLV_DELTA_VECTOR, kDeltaVector, 44, VT_ATTRIBUTE_DELTA_VECTOR},
    {VT_TLV_NO_VALUE, kNoValue, kUnknownLength, kNoAttribute},
    {VT_TLV_USAGE_CALIBER, kInt32, 4, VT_ATTRIBUTE_USAGE_CALIBER},
    {VT_TLV_USAGE_VECTOR, kUsageVector, 22, VT_ATTRIBUTE_USAGE_VECTOR},
    {VT_TLV_TEXT_40, kText, 0, kNoAttribute},
    {VT_TLV_QUERY_TIMEOUT, kUint8, 1, VT_ATTRIBUTE_QUERY_TIMEOUT},
    // Deliberate: a length of 4 for a type that carries no value; and 37, 47, 49 and 50 have none.
    {VT_TLV_ACKNOWLEDGEMENT, kNoValue, 4, kNoAttribute},
    {VT_TLV_COMBINED_USAGE, kUint16, 26, kNoAttribute},
    {VT_TLV_COMBINED_USAGE_VECTOR, kComboUsageVector, 46, kNoAttribute},
    {VT_TLV_COMBINED_DELTA_VECTOR, kComboDeltaVector, 68, kNoAttribute},
    {VT_TLV_RECURRENCE, kRecurrence, 12, VT_ATTRIBUTE_RECURRENCE},
    {VT_TLV_UINT32_47, kUint32, kUnknownLength, kNoAttribute},
    {VT_TLV_TEXT_48, kText, 0, VT_ATTRIBUTE_TEXT_21},
    {VT_TLV_UINT16_49, kUint16, kUnknownLength, kNoAttribute},
    {VT_TLV_ALARM, kAlarm, kUnknownLength, kNoAttribute},
    {VT_TLV_USAGE_CATEGORY, kInt32, 4, VT_ATTRIBUTE_USAGE_CATEGORY},
};

namespace {

consteval bool RowsStandAtTheirNumbers() {
  for (std::uint32_t i = 0; i < VT_TLV_TYPE_COUNT; ++i) {
    if (kTypeRows[i].number != i) return false;
  }
  return true;
}
static_assert(RowsStandAtTheirNumbers(), "a type is missing or out of order");

// TypesByAttribute turns the table round.
consteval std::array<std::int8_t, kAttributeCount> TypesByAttribute() {
  std::array<std::int8_t, kAttributeCount> types{};
  types.fill(kNoType);
  for (const TypeRow& row : kTypeRows) {
    if (row.attribute == kNoAttribute) continue;
    types.at(static_cast<std::size_t>(row.attribute)) = static_cast<std::int8_t>(row.number);
  }
  return types;
}
}  // namespace

constexpr std::array<std::int8_t, kAttributeCount> kTypesByAttribute = TypesByAttribute();

namespace {

consteval bool AttributesHaveOneTypeEach() {
  for (const TypeRow& row : kTypeRows) {
    if (row.attribute == kNoAttribute) continue;
    if (kTypesByAttribute.at(static_cast<std::size_t>(row.attribute)) !=
        static_cast<std::int32_t>(row.number)) {
      return false;
    }
  }
  return true;
}
static_assert(AttributesHaveOneTypeEach(), "two types carry one attribute");

}  // namespace

}  // namespace vt::codec
