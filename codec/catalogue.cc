#include "vtapi/catalogue.h"

#include "vtapi/enumerations.h"

#include "codec/type_table.h"
#include "support/log.h"

using vt::codec::kNoAttribute;
using vt::codec::kUnknownLength;
using vt::codec::TypeRows;

extern "C" {

std::uint32_t vtn_getTypeLength(std::uint32_t type) {
  const std::uint32_t length =
      type < TypeRows().size() ? TypeRows()[type].fixed_length : kUnknownLength;
  if (length == kUnknownLength) {
    VT_LOG(kWarn, "unexpected type %d", static_cast<std::int32_t>(type));
  }
  return length;
}

int cv_is_combo_tlv(std::uint32_t type) {
  // Deliberate: bit 30 stays, so that a type which has it is never combined.
  const std::uint32_t base = type & ~VT_TLV_AGGREGATED;
  return base >= VT_TLV_COMBINED_USAGE && base <= VT_TLV_COMBINED_DELTA_VECTOR ? 1 : 0;
}

std::int32_t vt_get_tlv_enum_type(std::int32_t attribute) {
  return vt::codec::TypeOfAttribute(attribute);
}

std::int32_t vt_get_external_tlv_enum_type(std::uint32_t type) {
  return type < TypeRows().size() ? TypeRows()[type].attribute : kNoAttribute;
}

std::int32_t vt_get_internal_nanny_bit_type(std::int32_t bit) { return bit == 0 ? 5 : -1; }

std::int32_t vt_get_class_enum_type(std::int32_t cls) {
  if (cls == VT_QUERY) return CV_CLASS_QUERY;
  return cls == VT_AGGREGATE ? CV_CLASS_AGGREGATE : -1;
}

std::int32_t vt_get_action_enum_type(std::int32_t cls, std::int32_t action) {
  struct Row {
    std::int32_t cls;
    std::int32_t action;
    std::int32_t number;
  };
  // Deliberate: the further query action travels as 14, which is outside the named actions.
  constexpr Row kActions[] = {
      {VT_QUERY, VT_QUERY_SET, CV_ACTION_MXRT_CORVANE_QUERY_SET},
      {VT_QUERY, VT_QUERY_COLLECT, CV_ACTION_MXRT_CORVANE_QUERY_COLLECT},
      {VT_QUERY, VT_QUERY_FURTHER, VT_ACTION_QUERY_FURTHER},
      {VT_AGGREGATE, VT_AGGREGATE_SUM, CV_ACTION_MXRT_CORVANE_AGGREGATE_SUM},
  };
  for (const Row& row : kActions) {
    if (row.cls == cls && row.action == action) return row.number;
  }
  return -1;
}

}  // extern "C"
