// What a set query asks to change, checked as a whole before any device is touched.
#ifndef VT_NODE_CHANGES_H_
#define VT_NODE_CHANGES_H_

#include <cstddef>
#include <optional>
#include <string>

#include "node/fleet.h"
#include "node/received_query.h"

namespace vt::node {

// IsSettableText tells whether a name, a role or keywords may be that.
bool IsSettableText(const std::string& text);

// IsSettableRecurrence likewise.
bool IsSettableRecurrence(const Recurrence& recurrence);

// ReadChanges returns nothing when the query asks for something that no device can do: to set what
// can only be read, or is not known, or to a value out of its range. Elements that only ask to be
// told a value, as a query may mix in, change nothing: those without a value, and those of
// attributes that can only be read whose value is all zeros.
std::optional<Changes> ReadChanges(const ReceivedQuery& query);

// Describe is what changes ask for, in words for people; of what cannot be done it says so.
std::string Describe(const std::optional<Changes>& changes);

}  // namespace vt::node

#endif  // VT_NODE_CHANGES_H_
