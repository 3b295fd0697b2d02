// The kinds of queries that the node serves.
#ifndef VT_NODE_QUERY_KIND_H_
#define VT_NODE_QUERY_KIND_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vt::node {

enum class QueryKind : std::uint8_t { kCollect, kFurther, kSet, kSum };

// kQueryKindNames are the names of the kinds, in the order of their values. Further is the third
// query action.
inline constexpr std::array<std::string_view, 4> kQueryKindNames = {"collect", "further", "set",
                                                                    "sum"};

constexpr std::string_view NameOf(QueryKind kind) {
  return kQueryKindNames[static_cast<std::size_t>(kind)];
}

// QueryBit is the bit of a kind in a set of kinds.
constexpr std::uint8_t QueryBit(QueryKind kind) {
  return static_cast<std::uint8_t>(1u << static_cast<unsigned>(kind));
}

}  // namespace vt::node

#endif  // VT_NODE_QUERY_KIND_H_
