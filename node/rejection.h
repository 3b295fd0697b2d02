// Why a node has nothing to do with a peer, or with what it sent.
#ifndef VT_NODE_REJECTION_H_
#define VT_NODE_REJECTION_H_

#include <array>
#include <cstddef>
#include <string_view>

namespace vt::node {

enum class Rejection {
  kBadDigest,   // signed with another key, or changed on the way
  kMalformed,   // no message, or none that can be decoded
  kNotServed,   // of a class and action that the node does not answer
  kReplayed,    // sent before, within the replay window
  kOverdue,     // its time was over before it could be answered
  kIncomplete,  // the connection ended within the message
  kTooSlow,     // the connection lasted too long
  kNotTaken     // the peer went away before it had the whole answer
};

// kRejectionNames are the names that metrics and the page use, in the order of the values.
inline constexpr std::array<std::string_view, 8> kRejectionNames = {
    "bad_digest", "malformed",  "not_served", "replayed",
    "overdue",    "incomplete", "too_slow",   "not_taken"};

constexpr std::string_view NameOf(Rejection rejection) {
  return kRejectionNames[static_cast<std::size_t>(rejection)];
}

}  // namespace vt::node

#endif  // VT_NODE_REJECTION_H_
