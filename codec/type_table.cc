#include "codec/type_table.h"

#include "vtapi/enumerations.h"

namespace vt::codec {

namespace {

constexpr ValueKind kNoValue = MakeKind<NoValueKind>(ValueKind::NullPlain::kNothing, false);
constexpr ValueKind kOpaque = MakeKind<OpaqueKind>(ValueKind::NullPlain::kZeros);
constexpr ValueKind kText = MakeKind<TextKind>();
constexpr ValueKind kInt8 = MakeKind<IntegerKind<std::int8_t>>();
constexpr ValueKind kUint8 = MakeKind<IntegerKind<std::uint8_t>>();
constexpr ValueKind kUint16 = MakeKind<IntegerKind<std::uint16_t>>();
constexpr ValueKind kInt32 = MakeKind<IntegerKind<std::int32_t>>();
constexpr ValueKind kUint32 = MakeKind<IntegerKind<std::uint32_t>>();
constexpr ValueKind kIdentity = MakeKind<PaddedKind<IdentityWire>>();
constexpr ValueKind kSenderId = MakeKind<RecordKind<SenderIdWire>>();
constexpr ValueKind kEventId = MakeKind<RecordKind<EventIdWire>>();
constexpr ValueKind kNeighbor = MakeKind<RecordKind<NeighborWire>>();
constexpr ValueKind kRecurrence = MakeKind<RecordKind<RecurrenceWire>>();
constexpr ValueKind kAlarm = MakeKind<RecordKind<AlarmWire>>();
constexpr ValueKind kDeltaVector = MakeKind<PaddedKind<DeltaVectorWire>>();
constexpr ValueKind kUsageVector = MakeKind<PaddedKind<UsageVectorWire>>();
// The vectors of combined types have their own length, whatever length stands beside them.
constexpr ValueKind kComboDeltaVector = MakeComboKind<RecordKind<DeltaVectorWire>>();
constexpr ValueKind kComboUsageVector = MakeComboKind<RecordKind<UsageVectorWire>>();
constexpr ValueKind kComboUsage = MakeComboKind<IntegerKind<std::uint16_t>>();

}  // namespace

constexpr TypeRow kTypeRows[VT_TLV_TYPE_COUNT] = {
    {CV_CORVANE_TLV_TYPE_RESERVED, &kOpaque, 0, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_VLTRS_ID, &kSenderId, 36, VT_ATTRIBUTE_ID},
    {CV_CORVANE_TLV_TYPE_ID, &kIdentity, 32, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_ENT_ID, &kUint32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_AUTHORIZATION, &kOpaque, 0, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_ADDRESSEE, &kText, 0, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_RECUR, &kText, 0, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_ROLE, &kText, 0, VT_ATTRIBUTE_ROLE},
    {CV_CORVANE_TLV_TYPE_DOMAIN, &kText, 0, VT_ATTRIBUTE_DOMAIN},
    {CV_CORVANE_TLV_TYPE_NAME, &kText, 0, VT_ATTRIBUTE_NAME},
    {CV_CORVANE_TLV_TYPE_KEYWORDS, &kOpaque, 0, VT_ATTRIBUTE_KEYWORDS},
    {CV_CORVANE_TLV_TYPE_ERROR_STRING, &kText, 0, VT_ATTRIBUTE_ERROR_STRING},
    {CV_CORVANE_TLV_TYPE_UNITS, &kInt8, 1, VT_ATTRIBUTE_UNITS},
    {CV_CORVANE_TLV_TYPE_USAGE, &kUint16, 2, VT_ATTRIBUTE_USAGE},
    {CV_CORVANE_TLV_TYPE_LEVEL_CURRENT, &kUint8, 1, VT_ATTRIBUTE_LEVEL},
    {CV_CORVANE_TLV_TYPE_LEVEL_PROVISIONED, &kUint8, 1, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE, &kUint8, 1, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_I, &kUint8, 1, VT_ATTRIBUTE_IMPORTANCE},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_E, &kUint8, 1, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_MAX, &kUint16, 2, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_MAX_ID, &kIdentity, 32, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_IMPORTANCE_PARENT, &kIdentity, 32, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_ENTITY_TYPE, &kInt32, 4, VT_ATTRIBUTE_ENTITY_TYPE},
    {CV_CORVANE_TLV_TYPE_REPLY_TO, &kOpaque, 16, VT_ATTRIBUTE_REPLY_TO},
    {CV_CORVANE_TLV_TYPE_PROXY_ADDRESS, &kOpaque, 16, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_PROXY_PORT, &kUint32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_PROXY_PROTO, &kInt32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_PROXY_CLASS, &kText, 0, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_NEIGHBOR, &kNeighbor, 84, VT_ATTRIBUTE_NEIGHBOR},
    {CV_CORVANE_TLV_TYPE_NEIGHBOR_COUNT, &kUint16, 2, VT_ATTRIBUTE_NEIGHBOR_COUNT},
    {CV_CORVANE_TLV_TYPE_PARENT, &kIdentity, 32, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_HEARTBEAT, &kInt32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_CLOCK, &kInt32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_SENDER_CLOCK, &kInt32, 4, kNoAttribute},
    {CV_CORVANE_TLV_TYPE_NANNY_VECTOR, &kUint32, 4, VT_ATTRIBUTE_NANNY_VECTOR},
    {CV_CORVANE_TLV_TYPE_EVENT_ID, &kEventId, 36, kNoAttribute},
    {VT_TLV_DELTA_VECTOR, &kDeltaVector, 44, VT_ATTRIBUTE_DELTA_VECTOR},
    {VT_TLV_NO_VALUE, &kNoValue, kUnknownLength, kNoAttribute},
    {VT_TLV_USAGE_CALIBER, &kInt32, 4, VT_ATTRIBUTE_USAGE_CALIBER},
    {VT_TLV_USAGE_VECTOR, &kUsageVector, 22, VT_ATTRIBUTE_USAGE_VECTOR},
    {VT_TLV_TEXT_40, &kText, 0, kNoAttribute},
    {VT_TLV_QUERY_TIMEOUT, &kUint8, 1, VT_ATTRIBUTE_QUERY_TIMEOUT},
    // Deliberate: a length of 4 for a type that carries no value; and 37, 47, 49 and 50 have none.
    {VT_TLV_ACKNOWLEDGEMENT, &kNoValue, 4, kNoAttribute},
    {VT_TLV_COMBINED_USAGE, &kComboUsage, 26, kNoAttribute},
    {VT_TLV_COMBINED_USAGE_VECTOR, &kComboUsageVector, 46, kNoAttribute},
    {VT_TLV_COMBINED_DELTA_VECTOR, &kComboDeltaVector, 68, kNoAttribute},
    {VT_TLV_RECURRENCE, &kRecurrence, 12, VT_ATTRIBUTE_RECURRENCE},
    {VT_TLV_UINT32_47, &kUint32, kUnknownLength, kNoAttribute},
    {VT_TLV_TEXT_48, &kText, 0, VT_ATTRIBUTE_TEXT_21},
    {VT_TLV_UINT16_49, &kUint16, kUnknownLength, kNoAttribute},
    {VT_TLV_ALARM, &kAlarm, kUnknownLength, kNoAttribute},
    {VT_TLV_USAGE_CATEGORY, &kInt32, 4, VT_ATTRIBUTE_USAGE_CATEGORY},
};

namespace {

consteval bool RowsStandAtTheirNumbers() {
  for (std::uint32_t i = 0; i < VT_TLV_TYPE_COUNT; ++i) {
    if (kTypeRows[i].number != i || kTypeRows[i].kind == nullptr) return false;
  }
  return true;
}
static_assert(RowsStandAtTheirNumbers(), "a type is missing or out of order");

}  // namespace

}  // namespace vt::codec
