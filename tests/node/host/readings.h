// Readings of sensors as tests want them.
#ifndef VT_TESTS_NODE_HOST_READINGS_H_
#define VT_TESTS_NODE_HOST_READINGS_H_

#include <cstdint>

#include "node/host/power_source.h"

namespace vt::testing {

inline node::Reading ReadingOf(std::int64_t milliwatts,
                               node::Category category = node::Category::kConsumer) {
  node::Reading reading;
  reading.milliwatts = milliwatts;
  reading.category = category;
  return reading;
}

}  // namespace vt::testing

#endif  // VT_TESTS_NODE_HOST_READINGS_H_
