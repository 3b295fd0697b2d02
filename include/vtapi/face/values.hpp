// The values of attributes: power with its units, the three enumerations, addresses, and the two
// records that are more than a number or a text.
#ifndef VTAPI_FACE_VALUES_HPP
#define VTAPI_FACE_VALUES_HPP

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "vtapi/enumerations.h"
#include "vtapi/face/identity.hpp"

namespace voltaris {

// to_watts is raw x 10^exponent. Dividing by an exact power of ten gives the number nearest to what
// is meant; multiplying with a rounded fraction would not.
inline double to_watts(std::int64_t raw, int exponent) {
  const double power = std::pow(10.0, std::abs(exponent));
  return exponent < 0 ? static_cast<double>(raw) / power : static_cast<double>(raw) * power;
}

// Usage is power as a device tells it: a number, and the decimal exponent of the watt that goes
// with it. Without one, the watts are unknown.
struct Usage {
  std::uint16_t raw = 0;
  std::optional<int> exponent;

  std::optional<double> watts() const {
    return exponent ? std::optional(to_watts(raw, *exponent)) : std::nullopt;
  }

  friend bool operator==(const Usage&, const Usage&) = default;
};

// The levels of power, 0 (off) to 10 (full).
inline constexpr std::size_t kLevelCount = 11;

// PowerVector is power for each level: the usage itself, or the change that the level would bring.
template <class Number>
struct PowerVector {
  std::array<Number, kLevelCount> raw{};
  std::optional<int> exponent;

  std::optional<double> watts(std::size_t at_level) const {
    if (!exponent || at_level >= raw.size()) return std::nullopt;
    return to_watts(raw[at_level], *exponent);
  }

  friend bool operator==(const PowerVector&, const PowerVector&) = default;
};

using UsageVector = PowerVector<std::uint16_t>;
using DeltaVector = PowerVector<std::int32_t>;

// The enumerations. A device may tell numbers that have no name.
enum class Caliber : std::int32_t {
  kMax = CV_CORVANE_USAGE_CALIBER_MAX,
  kPresumed = CV_CORVANE_USAGE_CALIBER_PRESUMED,
  kUnknown = CV_CORVANE_USAGE_CALIBER_UNKNOWN,
  kActual = CV_CORVANE_USAGE_CALIBER_ACTUAL,
  kTrusted = CV_CORVANE_USAGE_CALIBER_TRUSTED
};
enum class Category : std::int32_t {
  kProducer = CV_CORVANE_USAGE_PRODUCER,
  kMeter = CV_CORVANE_USAGE_METER,
  kConsumer = CV_CORVANE_USAGE_CONSUMER
};
enum class EntityType : std::int32_t {
  kNone = CV_ENTITY_TYPE_NONE,
  kLocal = CV_ENTITY_TYPE_LOCAL,
  kRemote = CV_ENTITY_TYPE_REMOTE,
  kCorvane = CV_ENTITY_TYPE_CORVANE,
  kAdminOff = CV_ENTITY_TYPE_ADMIN_OFF,
  kNonPoe = CV_ENTITY_TYPE_NON_POE
};

namespace detail {

// Word turns CV_ENTITY_TYPE_ADMIN_OFF into "admin-off".
inline std::optional<std::string> Word(const char* constant, std::string_view prefix) {
  if (constant == nullptr) return std::nullopt;
  std::string_view rest(constant);
  if (rest.starts_with(prefix)) rest.remove_prefix(prefix.size());
  std::string word(rest);
  for (char& letter : word) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    if (letter == '_') letter = '-';
  }
  return word;
}

}  // namespace detail

// name_of gives the word for a value, such as "presumed" or "admin-off", or nothing for a number
// without a name.
inline std::optional<std::string> name_of(Caliber value) {
  return detail::Word(cv_util_e2s_corvane_usage_caliber(static_cast<std::int32_t>(value)),
                      "CV_CORVANE_USAGE_CALIBER_");
}
inline std::optional<std::string> name_of(Category value) {
  return detail::Word(cv_util_e2s_corvane_usage_category(static_cast<std::int32_t>(value)),
                      "CV_CORVANE_USAGE_");
}
inline std::optional<std::string> name_of(EntityType value) {
  return detail::Word(cv_util_e2s_entity_type(static_cast<std::int32_t>(value)), "CV_ENTITY_TYPE_");
}

// Address is where a device receives, IPv4.
struct Address {
  std::array<std::uint8_t, 4> bytes{};
  std::uint16_t port = 0;

  // text is "192.0.2.7".
  std::string text() const {
    std::string dotted = std::to_string(bytes[0]);
    for (std::size_t i = 1; i < bytes.size(); ++i) dotted += '.' + std::to_string(bytes[i]);
    return dotted;
  }
  // endpoint is "192.0.2.7:7440".
  std::string endpoint() const { return text() + ':' + std::to_string(port); }

  friend bool operator==(const Address&, const Address&) = default;
};

// Neighbor is another device that a device knows. Label and data lie where the row lies.
struct Neighbor {
  DeviceId device;
  std::string_view label;
  std::span<const std::uint8_t> data;
  std::int32_t flag = 0;
};

// Recurrence is when something repeats: a text and what goes with it. The text lies where the row
// lies, or where the application keeps it.
struct Recurrence {
  std::string_view text;
  std::uint8_t byte1 = 0;
  std::uint8_t byte2 = 0;
  std::int32_t flag = 0;

  friend bool operator==(const Recurrence&, const Recurrence&) = default;
};

}  // namespace voltaris

#endif  // VTAPI_FACE_VALUES_HPP
