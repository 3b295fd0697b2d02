// Identities of devices that the configuration does not name.
#ifndef VT_NODE_DERIVED_ID_H_
#define VT_NODE_DERIVED_ID_H_

#include <string_view>

#include "node/fleet.h"

namespace vt::node {

// DerivedId is the first 32 hexadecimal digits of HMAC-SHA1 (RFC 2104) over the text, with the
// identity of the node as the key: it stays what it is as long as those two do.
DeviceIdText DerivedId(std::string_view node_id, std::string_view text);

}  // namespace vt::node

#endif  // VT_NODE_DERIVED_ID_H_
