// Who asks (Identity) and who answers (DeviceId, EntityId).
#ifndef VTAPI_FACE_IDENTITY_HPP
#define VTAPI_FACE_IDENTITY_HPP

#include <algorithm>
#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "vtapi/face/error.hpp"
#include "vtapi/identifiers.h"
#include "vtapi/result.h"

namespace voltaris {

// Identity is the 36 characters under which a session asks. Messages carry the first 32, which are
// the key as well where there is no other.
class Identity {
 public:
  static constexpr std::size_t kSize = 36;

  // fresh makes one of the 32 digits of a new UUID and four zeros.
  static Identity fresh() {
    Identity made;
    made.characters_.fill('0');
    (void)voltaris_utl_createUuid(made.characters_.data());
    return made;
  }

  // from_text takes all 36 characters, or the first 32, which four zeros then follow.
  static Expected<Identity> from_text(std::string_view text) {
    if (text.size() != kSize && text.size() != VT_IDENTITY_SIZE) {
      return detail::MakeError(
          Cause::kBadIdentity,
          {"an identity has 36 characters (or their first 32), not ", std::to_string(text.size())});
    }
    Identity made;
    made.characters_.fill('0');
    std::copy(text.begin(), text.end(), made.characters_.begin());
    return made;
  }

  std::string_view text() const { return {characters_.data(), characters_.size()}; }

  friend auto operator<=>(const Identity&, const Identity&) = default;

 private:
  Identity() = default;

  std::array<char, kSize> characters_{};
};

// DeviceId is the 32 bytes that name a device.
struct DeviceId {
  std::array<std::uint8_t, VT_IDENTITY_SIZE> bytes{};

  // from_text takes 32 characters, or the 64 hexadecimal digits that text() gives for the others.
  static Expected<DeviceId> from_text(std::string_view text) {
    DeviceId made;
    if (text.size() == made.bytes.size()) {
      std::memcpy(made.bytes.data(), text.data(), made.bytes.size());
      return made;
    }
    if (text.size() == 2 * made.bytes.size() && made.ReadDigits(text)) return made;
    return detail::MakeError(
        Cause::kBadIdentity,
        {"a device's identity has 32 characters (or 64 hexadecimal digits), and '", text, "' has ",
         std::to_string(text.size())});
  }

  // text is the 32 characters where all can be printed, else 64 hexadecimal digits.
  std::string text() const {
    const auto readable = [](std::uint8_t byte) { return byte > 0x20 && byte < 0x7F; };
    if (std::all_of(bytes.begin(), bytes.end(), readable)) return {bytes.begin(), bytes.end()};
    std::string digits;
    for (const std::uint8_t byte : bytes) {
      digits += kDigits[byte >> 4];
      digits += kDigits[byte & 0x0F];
    }
    return digits;
  }

  friend auto operator<=>(const DeviceId&, const DeviceId&) = default;

 private:
  static constexpr std::string_view kDigits = "0123456789abcdef";

  bool ReadDigits(std::string_view text) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const std::size_t high = kDigits.find(text[2 * i]);
      const std::size_t low = kDigits.find(text[2 * i + 1]);
      if (high == std::string_view::npos || low == std::string_view::npos) return false;
      bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    return true;
  }
};

// EntityId names an entity of a device, which is what a row is about.
struct EntityId {
  DeviceId device;
  std::uint32_t index = 0;

  EntityId() = default;
  EntityId(const DeviceId& of, std::uint32_t number) : device(of), index(number) {}
  explicit EntityId(const AckEntry& entry) : index(entry.entity_index) {
    std::memcpy(device.bytes.data(), entry.device_id, device.bytes.size());
  }

  friend auto operator<=>(const EntityId&, const EntityId&) = default;
};

}  // namespace voltaris

template <>
struct std::hash<voltaris::DeviceId> {
  std::size_t operator()(const voltaris::DeviceId& id) const noexcept {
    std::array<char, VT_IDENTITY_SIZE> characters;
    std::memcpy(characters.data(), id.bytes.data(), characters.size());
    return std::hash<std::string_view>()({characters.data(), characters.size()});
  }
};

template <>
struct std::hash<voltaris::EntityId> {
  std::size_t operator()(const voltaris::EntityId& id) const noexcept {
    return std::hash<voltaris::DeviceId>()(id.device) * 31 + id.index;
  }
};

#endif  // VTAPI_FACE_IDENTITY_HPP
