// The table of element types: one row a type, which drives lengths, numbers, decoding, encoding,
// measuring, copying and releasing. To add a type is to add a row.
#ifndef VT_CODEC_TYPE_TABLE_H
#define VT_CODEC_TYPE_TABLE_H

#include <cstdint>
#include <span>

#include "vtapi/catalogue.h"

#include "codec/value_kind.h"

namespace vt::codec {

struct TypeRow {
  std::uint32_t number;
  const ValueKind* kind;
  std::uint32_t fixed_length;  // what vtn_getTypeLength gives; sizes of the 32-bit records
  std::int32_t attribute;      // external number, or kNoAttribute
};

constexpr std::int32_t kNoAttribute = -1;
constexpr std::uint32_t kUnknownLength = 255;

// kTypeRows has all rows; the row of number n stands at n.
extern const TypeRow kTypeRows[VT_TLV_TYPE_COUNT];

[[nodiscard]] inline std::span<const TypeRow> TypeRows() { return kTypeRows; }

// TypeNumber strips the flags of a type word.
constexpr std::uint32_t TypeNumber(std::uint32_t type) { return type & VT_TLV_NUMBER_MASK; }

constexpr bool IsAggregated(std::uint32_t type) { return (type & VT_TLV_AGGREGATED) != 0; }

// KindOf gives the kind of a type word, flags and all, or null for an unknown number.
[[nodiscard]] inline const ValueKind* KindOf(std::uint32_t type) {
  const std::uint32_t number = TypeNumber(type);
  return number < VT_TLV_TYPE_COUNT ? kTypeRows[number].kind : nullptr;
}

}  // namespace vt::codec

#endif  // VT_CODEC_TYPE_TABLE_H
