// Identities as people write and files hold them, and the ways to make one.
#ifndef VT_TOOLS_IDENTITIES_H_
#define VT_TOOLS_IDENTITIES_H_

#include <array>
#include <chrono>
#include <string>
#include <string_view>

#include "vtapi.hpp"

#include "tools/secret_file.h"

namespace vt::tools {

// RandomIdentity is the 32 digits of a fresh UUID.
std::string RandomIdentity();

// IdentityOfMac is the identity that devices have by their hardware address, which is written with
// colons or hyphens between its six pairs of digits, or with nothing. Another text throws Failure
// (usage).
std::string IdentityOfMac(std::string_view mac);

// The lengths of the parts that an identity can be made of.
inline constexpr std::array<std::size_t, 4> kIdentityPartSizes = {18, 3, 5, 6};

// IdentityOfParts joins them. Parts of other lengths, or with characters that cannot be printed,
// throw Failure (usage).
std::string IdentityOfParts(const std::array<std::string, 4>& parts);

// ParseIdentity takes 32 characters or 64 hexadecimal digits; another text throws Failure (usage).
voltaris::DeviceId ParseIdentity(std::string_view text);

// ReadIdentityFile reads a file with an identity of 36 characters, or their first 32, which a line
// end may follow. It is as secret as a key, for where there is no key it stands in its place; what
// ReadSecretFile refuses, it refuses.
voltaris::Identity ReadIdentityFile(const std::string& path,
                                    std::chrono::steady_clock::time_point deadline =
                                        std::chrono::steady_clock::now() + kPipePatience);

// DeviceOf is the device that an identity names: the first 32 characters.
voltaris::DeviceId DeviceOf(const voltaris::Identity& identity);

}  // namespace vt::tools

#endif  // VT_TOOLS_IDENTITIES_H_
