// What the options ask of a node, as a query.
#ifndef VT_TOOLS_QUERY_H_
#define VT_TOOLS_QUERY_H_

#include <cstdint>
#include <span>

#include "vtapi.hpp"

#include "tools/options.h"
#include "tools/target.h"

namespace vt::tools {

// DescribeQuery is the query of the options' own command to a node. It throws Failure (usage) for a
// value that cannot be set.
voltaris::QueryDescription DescribeQuery(const Options& options, const Target& target);

// DescribeCollect reads attributes, by their numbers, of the devices that the options select,
// whatever their command is.
voltaris::QueryDescription DescribeCollect(const Options& options, const Target& target,
                                           std::span<const std::int32_t> attributes);

// CheckQuery throws Failure (usage) for a query that cannot be built, such as one that does not fit
// into a message.
void CheckQuery(const voltaris::QueryDescription& description);

// DomainOf and PriorityOf are those that a node is asked with.
const std::string& DomainOf(const Options& options, const Target& target);
std::uint8_t PriorityOf(const Options& options, const Target& target);

}  // namespace vt::tools

#endif  // VT_TOOLS_QUERY_H_
