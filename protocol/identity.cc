// The comparison of identities.
#include <cstdint>

#include "vtapi/pdu.h"

extern "C" int corvane_id_cmp(const void* a, const void* b) {
  const auto* left = static_cast<const std::uint8_t*>(a);
  const auto* right = static_cast<const std::uint8_t*>(b);
  for (int i = 0; i < VT_IDENTITY_SIZE; ++i) {
    if (left[i] != right[i]) return left[i] - right[i];
  }
  return 0;
}
