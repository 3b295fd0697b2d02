// Values of elements as people and programs read them: what the library has decoded, by type, as
// JSON.
#ifndef VT_TOOLS_ELEMENT_VALUES_H_
#define VT_TOOLS_ELEMENT_VALUES_H_

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <string_view>

#include "vtapi/tlv.h"

#include "tools/byte_reader.h"

namespace vt::tools {

// HexText is two lowercase digits for each byte.
std::string HexText(ByteView bytes);

// ElementName is the word for a type, flags aside; empty for a type that has none.
std::string_view ElementName(std::uint32_t type);

// ElementValue is the value of an element: null where it has none, texts with the bytes that came,
// which need not be UTF-8, opaque values as hexadecimal digits. An aggregate is an object with the
// device and its entries.
nlohmann::ordered_json ElementValue(const Tlv& element);

}  // namespace vt::tools

#endif  // VT_TOOLS_ELEMENT_VALUES_H_
