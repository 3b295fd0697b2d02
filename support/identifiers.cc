#include "vtapi/identifiers.h"

#include <uuid/uuid.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "support/hexadecimal.h"

namespace {

using Uuid = std::array<std::uint8_t, VT_UUID_SIZE>;

// What marks a UUID as made from a hardware address.
constexpr std::array<std::uint8_t, 4> kMacPrefix = {0xE0, 0xD0, 0x0D, 0xE0};
constexpr std::size_t kMacSize = 6;

}  // namespace

extern "C" {

int convertUuidString(char* out, const std::uint8_t* uuid) {
  vt::support::WriteHexDigits(out, {uuid, VT_UUID_SIZE});
  return 0;
}

int uuidFromMacAddress(std::uint8_t* out, const std::uint8_t* mac) {
  Uuid uuid{};
  std::copy(kMacPrefix.begin(), kMacPrefix.end(), uuid.begin());
  std::copy_n(mac, kMacSize, uuid.end() - kMacSize);
  std::memcpy(out, uuid.data(), uuid.size());
  return 0;
}

int generateUuid(std::uint8_t* out) {
  uuid_generate(out);
  return 0;
}

char* newUUID(void* buf) {
  auto* uuid = static_cast<std::uint8_t*>(buf);
  char* text = reinterpret_cast<char*>(uuid) + VT_UUID_SIZE;
  generateUuid(uuid);
  convertUuidString(text, uuid);
  return text;
}

int voltaris_utl_createUuid(char* out) {
  Uuid uuid;
  generateUuid(uuid.data());
  return convertUuidString(out, uuid.data());
}

int voltaris_utl_createUuidFromMac(char* out, const std::uint8_t* mac) {
  Uuid uuid;
  uuidFromMacAddress(uuid.data(), mac);
  return convertUuidString(out, uuid.data());
}

int voltaris_utl_createUuidFromDetails(char* out, const void* part1, const void* part2,
                                       const void* part3, const void* part4) {
  struct Part {
    const void* bytes;
    std::size_t size;
  };
  const std::array<Part, 4> parts = {{{part1, 18}, {part2, 3}, {part3, 5}, {part4, 6}}};
  const auto is_null = [](const Part& part) { return part.bytes == nullptr; };
  if (out == nullptr || std::any_of(parts.begin(), parts.end(), is_null)) return -1;
  for (const Part& part : parts) {
    std::memcpy(out, part.bytes, part.size);
    out += part.size;
  }
  return 0;
}

void voltaris_idtos(char* out, const void* id, int n) {
  const auto* bytes = static_cast<const char*>(id);
  const int count = std::clamp(n, 0, VT_IDENTITY_SIZE);
  // Deliberate: a zero byte prints as a backspace, so that a short identity, padded with zeros, is
  // still one line of text of the full width.
  std::transform(bytes, bytes + count, out, [](char c) { return c == '\0' ? '\b' : c; });
  out[count] = '\0';
  if (n > VT_IDENTITY_SIZE) out[VT_IDENTITY_SIZE + 1] = '\0';
}

}  // extern "C"
