// A pool of the result that goes with all its memory.
#ifndef VT_TESTS_API_POOL_GUARD_H_
#define VT_TESTS_API_POOL_GUARD_H_

#include "api/node_pool.h"

namespace vt::testing {

// PoolGuard returns the pool's memory in the end.
struct PoolGuard {
  api::NodePool pool{};
  ~PoolGuard() { pool.ReleaseAll(); }
};

}  // namespace vt::testing

#endif  // VT_TESTS_API_POOL_GUARD_H_
