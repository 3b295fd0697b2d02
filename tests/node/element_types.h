// The types of elements, by what they carry.
#ifndef VT_TESTS_NODE_ELEMENT_TYPES_H_
#define VT_TESTS_NODE_ELEMENT_TYPES_H_

#include <cstdint>

namespace vt::testing {

enum ElementType : std::uint32_t {
  kIdentityType = 1,
  kRole = 7,
  kDomain = 8,
  kName = 9,
  kKeywords = 10,
  kErrorText = 11,
  kUnits = 12,
  kUsage = 13,
  kLevel = 14,
  kImportance = 17,
  kEntityType = 22,
  kReplyTo = 23,
  kNeighbor = 28,
  kNeighborCount = 29,
  kNannyVector = 34,
  kDeltaVector = 36,
  kCaliber = 38,
  kUsageVector = 39,
  kTimeout = 41,
  kCombinedUsage = 43,
  kCombinedUsageVector = 44,
  kCombinedDeltaVector = 45,
  kRecurrence = 46,
  kText21 = 48,
  kCategory = 51,
};

}  // namespace vt::testing

#endif  // VT_TESTS_NODE_ELEMENT_TYPES_H_
