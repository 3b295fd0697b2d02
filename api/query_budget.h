// The limit on the size of a query.
#ifndef VT_API_QUERY_BUDGET_H
#define VT_API_QUERY_BUDGET_H

#include <cstdint>

#include "vtapi/query.h"

namespace vt::api {

// BaseEstimate is the bytes of the elements so far and 180 for headers, digest and framing.
[[nodiscard]] inline std::uint32_t BaseEstimate(const Query& query) {
  constexpr std::uint32_t kAllowance = 80 + 100;
  return vt_get_total_tlvs_data_size(query.event) + kAllowance;
}

[[nodiscard]] constexpr bool FitsQuery(std::uint32_t estimate) {
  return estimate <= VT_MAX_PDU_SIZE;
}

}  // namespace vt::api

#endif  // VT_API_QUERY_BUDGET_H
