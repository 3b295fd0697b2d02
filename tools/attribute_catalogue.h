// All attributes of the catalogue as `voltaris attrs` tells them, those included that only a
// recording can hold.
#ifndef VT_TOOLS_ATTRIBUTE_CATALOGUE_H_
#define VT_TOOLS_ATTRIBUTE_CATALOGUE_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vt::tools {

// CatalogueEntry is one attribute.
struct CatalogueEntry {
  std::string_view name;
  std::int32_t number;          // enum vt_attribute
  std::int32_t element_type;    // enum cv_corvane_tlv_type, enum vt_tlv_type
  std::string_view value_type;  // such as "text" or "uint8"
  bool collectable;             // can be read with collect
  bool settable;                // can be written with set
  std::string_view meaning;
  // The words of an enumeration with their numbers, ascending; empty for other types.
  std::vector<std::pair<std::string, std::int32_t>> words;
};

// AttributeCatalogue lists them in the order of their numbers.
std::vector<CatalogueEntry> AttributeCatalogue();

}  // namespace vt::tools

#endif  // VT_TOOLS_ATTRIBUTE_CATALOGUE_H_
