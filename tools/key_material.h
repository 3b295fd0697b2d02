// Keys as files hold them: made at random, or derived from a passphrase.
#ifndef VT_TOOLS_KEY_MATERIAL_H_
#define VT_TOOLS_KEY_MATERIAL_H_

#include <chrono>
#include <string>
#include <string_view>

#include "vtapi.hpp"

#include "tools/secret_file.h"

namespace vt::tools {

// kLongestPassphrase is what the derivation takes with room to spare.
inline constexpr std::size_t kLongestPassphrase = 1024;

// ReadKeyFile reads a file with a key: 20 raw bytes, or 40 hexadecimal digits that blanks or a line
// end may follow. It throws Failure (usage) for what holds anything else, for what others than the
// owner may open, and for a pipe that is not written before the deadline. From then on this process
// leaves no core file.
voltaris::Key ReadKeyFile(const std::string& path,
                          std::chrono::steady_clock::time_point deadline =
                              std::chrono::steady_clock::now() + kPipePatience);

// RandomKey is a new key as a key file holds it: 40 hexadecimal digits and a line end. It throws
// Failure when the system has no random numbers.
Secret RandomKey();

// DerivedKey is, in the same form, the key that all who know passphrase and identity derive:
// HMAC-SHA1 of the identity's 32 bytes under the passphrase.
Secret DerivedKey(std::string_view passphrase, const voltaris::DeviceId& identity);

}  // namespace vt::tools

#endif  // VT_TOOLS_KEY_MATERIAL_H_
