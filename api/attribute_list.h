// The list of a Query's attributes, which gives the columns of the result rows.
#ifndef VT_API_ATTRIBUTE_LIST_H
#define VT_API_ATTRIBUTE_LIST_H

#include "vtapi/query.h"

#include "support/heap.h"

namespace vt::api {

// AppendAttribute adds a column and counts it, or returns false without memory.
[[nodiscard]] inline bool AppendAttribute(Query& query, std::int32_t attribute) {
  support::Owned<attribute_list_entry> entry = support::AllocateZeroed<attribute_list_entry>();
  if (entry == nullptr) return false;
  entry->attribute = attribute;
  (void)enqueue(&query.attributes, entry.release());
  ++query.attribute_count;
  return true;
}

// ReleaseAttributes empties the list. The count stays: it tells how many were ever asked for.
inline void ReleaseAttributes(Query& query) {
  while (void* entry = dequeue(&query.attributes)) std::free(entry);
}

[[nodiscard]] inline const attribute_list_entry* FirstAttribute(const Query& query) {
  return static_cast<const attribute_list_entry*>(static_cast<const void*>(query.attributes.head));
}

}  // namespace vt::api

#endif  // VT_API_ATTRIBUTE_LIST_H
