// The page that the monitor serves, from page.html. {nonce} stands in it where each response has
// its own.
#ifndef VT_NODE_PAGE_H_
#define VT_NODE_PAGE_H_

#include <string_view>

namespace vt::node {

extern const std::string_view kPage;

}  // namespace vt::node

#endif  // VT_NODE_PAGE_H_
