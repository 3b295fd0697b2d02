// The table of element types: one row a type, which drives lengths, numbers, decoding, encoding,
// measuring, copying and releasing. To add a type is to add a row.
#ifndef VT_CODEC_TYPE_TABLE_H
#define VT_CODEC_TYPE_TABLE_H

#include <array>
#include <cstdint>
#include <span>

#include "vtapi/catalogue.h"

#include "codec/value_kind.h"

namespace vt::codec {

struct TypeRow {
  std::uint32_t number;
  KindName kind;
  std::uint32_t fixed_length;  // what vtn_getTypeLength gives; sizes of the 32-bit records
  std::int32_t attribute;      // external number, or kNoAttribute
};

constexpr std::int32_t kNoAttribute = -1;
constexpr std::uint32_t kUnknownLength = 255;

// kTypeRows has all rows; the row of number n stands at n.
extern const TypeRow kTypeRows[VT_TLV_TYPE_COUNT] __attribute__((visibility("hidden")));

[[nodiscard]] inline std::span<const TypeRow> TypeRows() { return kTypeRows; }

// TypeOfAttribute gives the type number of an external attribute number, or kNoType.
constexpr std::int32_t kNoType = -1;
constexpr std::uint32_t kAttributeCount = VT_ATTRIBUTE_USAGE_CATEGORY + 1;
extern const std::array<std::int8_t, kAttributeCount> kTypesByAttribute
    __attribute__((visibility("hidden")));

[[nodiscard]] inline std::int32_t TypeOfAttribute(std::int32_t attribute) {
  const auto index = static_cast<std::uint32_t>(attribute);
  return index < kAttributeCount ? kTypesByAttribute[index] : kNoType;
}

// TypeNumber strips the flags of a type word.
constexpr std::uint32_t TypeNumber(std::uint32_t type) { return type & VT_TLV_NUMBER_MASK; }

constexpr bool IsAggregated(std::uint32_t type) { return (type & VT_TLV_AGGREGATED) != 0; }

// KindOf gives the kind of a type word, flags and all, or null for an unknown number.
[[nodiscard]] inline const ValueKind* KindOf(std::uint32_t type) {
  const std::uint32_t number = TypeNumber(type);
  return number < VT_TLV_TYPE_COUNT ? &KindNamed(kTypeRows[number].kind) : nullptr;
}

}  // namespace vt::codec

#endif  // VT_CODEC_TYPE_TABLE_H
