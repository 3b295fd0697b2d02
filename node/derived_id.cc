#include "node/derived_id.h"

#include <array>
#include <cstdint>

#include "vtapi.h"

namespace vt::node {

DeviceIdText DerivedId(std::string_view node_id, std::string_view text) {
  std::array<std::uint8_t, VT_DIGEST_SIZE> digest{};
  hmac_sha(node_id.data(), static_cast<std::uint32_t>(node_id.size()), text.data(),
           static_cast<std::uint32_t>(text.size()), digest.data());
  constexpr std::string_view digits = "0123456789abcdef";
  DeviceIdText id{};
  for (std::size_t i = 0; i < id.size(); i += 2) {
    id[i] = digits[digest[i / 2] >> 4];
    id[i + 1] = digits[digest[i / 2] & 15];
  }
  return id;
}

}  // namespace vt::node
