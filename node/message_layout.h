// Where the fields of a message stand that this program reads or writes in its bytes, from the
// first byte of the message on. Numbers are in network byte order.
#ifndef VT_NODE_MESSAGE_LAYOUT_H_
#define VT_NODE_MESSAGE_LAYOUT_H_

#include <cstddef>

namespace vt::node {

inline constexpr std::size_t kDigestLenOffset = 10;  // 2 bytes
inline constexpr std::size_t kDigestOffset = 12;     // 20 bytes
// What the digest is taken of: the message header, which the sender's identity is in, and the rest.
inline constexpr std::size_t kSignedOffset = 32;
inline constexpr std::size_t kSenderOffset = 36;        // 32 bytes
inline constexpr std::size_t kElementBytesOffset = 76;  // 2 bytes
inline constexpr std::size_t kElementCountOffset = 78;  // 2 bytes

}  // namespace vt::node

#endif  // VT_NODE_MESSAGE_LAYOUT_H_
