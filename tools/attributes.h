// The attributes of a device as an operator names them: the name, the library's number, the form of
// the value, and which commands take it.
#ifndef VT_TOOLS_ATTRIBUTES_H_
#define VT_TOOLS_ATTRIBUTES_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace vt::tools {

// ValueKind is the form in which the library hands out a value.
enum class ValueKind {
  kText,
  kKeywords,
  kInteger,  // of 1, 2 or 4 bytes; see is_signed
  kCaliber,  // the three enumerations, as int32
  kCategory,
  kEntityType,
  kAddress,      // struct sockaddr_in
  kUsage,        // uint16, scaled by the units column that follows it in a row
  kUsageVector,  // 11 uint16, scaled likewise
  kDeltaVector,  // 11 int32, scaled likewise
};

struct Attribute {
  std::string_view name;
  std::int32_t number;  // enum vt_attribute
  ValueKind kind;
  bool is_signed;
  bool settable;
  std::string_view meaning;
};

// AllAttributes lists them in the order of their numbers.
std::span<const Attribute> AllAttributes();

// FindAttribute returns the attribute of that name; it throws Failure (usage) for an unknown one.
const Attribute& FindAttribute(std::string_view name);

// HasUnits tells whether the library puts a units column behind this one.
bool HasUnits(const Attribute& attribute);

// KeyOf is the name as outputs for programs have it: with underscores for hyphens.
std::string KeyOf(const Attribute& attribute);

// AttributeHelp is one line of text for each attribute.
std::string AttributeHelp();

}  // namespace vt::tools

#endif  // VT_TOOLS_ATTRIBUTES_H_
