// What the client interface shares.
#ifndef VT_API_UNIT_H
#define VT_API_UNIT_H

namespace vt::api {

// The unit that assertions of this layer name.
constexpr const char kUnit[] = "MgmtApi";

}  // namespace vt::api

#endif  // VT_API_UNIT_H
