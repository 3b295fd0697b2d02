// What a ResultSet keeps behind the fields that applications see.
#ifndef VT_API_RESULT_TAIL_H
#define VT_API_RESULT_TAIL_H

#include <cstddef>

#include "vtapi/result.h"

#include "codec/message_pool.h"

namespace vt::api {

class RowStore;

struct ResultTail {
  RowStore* rows;               // of the rows, or null while there are none
  codec::MessagePool messages;  // in which replies are made
};
static_assert(sizeof(ResultTail) <= sizeof(ResultSet::reserved) &&
              offsetof(ResultSet, reserved) % alignof(ResultTail) == 0);

[[nodiscard]] inline ResultTail& TailOf(ResultSet& result) {
  return *static_cast<ResultTail*>(static_cast<void*>(result.reserved));
}
[[nodiscard]] inline const ResultTail& TailOf(const ResultSet& result) {
  return *static_cast<const ResultTail*>(static_cast<const void*>(result.reserved));
}

}  // namespace vt::api

#endif  // VT_API_RESULT_TAIL_H
