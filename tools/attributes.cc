#include "tools/attributes.h"

#include <algorithm>
#include <array>

#include "vtapi.h"

#include "tools/exit_code.h"

namespace vt::tools {
namespace {

constexpr bool kSigned = true;
constexpr bool kUnsigned = false;
constexpr bool kSettable = true;
constexpr bool kReadOnly = false;

// Missing are the identity, which every row shows, and the attributes that are records or describe
// the query itself (neighbor, time-out, recurrence).
constexpr std::array kAttributes = {
    Attribute{"role", VT_ATTRIBUTE_ROLE, ValueKind::kText, kUnsigned, kSettable,
              "what the device is for"},
    Attribute{"domain", VT_ATTRIBUTE_DOMAIN, ValueKind::kText, kUnsigned, kReadOnly,
              "domain of the device"},
    Attribute{"name", VT_ATTRIBUTE_NAME, ValueKind::kText, kUnsigned, kSettable,
              "name of the device"},
    Attribute{"keywords", VT_ATTRIBUTE_KEYWORDS, ValueKind::kKeywords, kUnsigned, kSettable,
              "keywords, separated by commas"},
    Attribute{"error", VT_ATTRIBUTE_ERROR_STRING, ValueKind::kText, kUnsigned, kReadOnly,
              "error text of the device"},
    Attribute{"units", VT_ATTRIBUTE_UNITS, ValueKind::kInteger, kSigned, kReadOnly,
              "decimal exponent of the watt: -3 milliwatt, 0 watt, 3 kilowatt"},
    Attribute{"usage", VT_ATTRIBUTE_USAGE, ValueKind::kUsage, kUnsigned, kReadOnly,
              "power used now"},
    Attribute{"level", VT_ATTRIBUTE_LEVEL, ValueKind::kInteger, kUnsigned, kSettable,
              "power level, 0 (off) to 10 (full)"},
    Attribute{"importance", VT_ATTRIBUTE_IMPORTANCE, ValueKind::kInteger, kUnsigned, kSettable,
              "least priority that the device obeys, 0 to 255"},
    Attribute{"entity-type", VT_ATTRIBUTE_ENTITY_TYPE, ValueKind::kEntityType, kSigned, kReadOnly,
              "kind of entity"},
    Attribute{"address", VT_ATTRIBUTE_REPLY_TO, ValueKind::kAddress, kUnsigned, kReadOnly,
              "network address of the device"},
    Attribute{"neighbor-count", VT_ATTRIBUTE_NEIGHBOR_COUNT, ValueKind::kInteger, kUnsigned,
              kReadOnly, "number of neighbors"},
    Attribute{"nanny-vector", VT_ATTRIBUTE_NANNY_VECTOR, ValueKind::kInteger, kUnsigned, kReadOnly,
              "supervision flags"},
    Attribute{"delta-vector", VT_ATTRIBUTE_DELTA_VECTOR, ValueKind::kDeltaVector, kSigned,
              kReadOnly, "change of power that each level would bring"},
    Attribute{"caliber", VT_ATTRIBUTE_USAGE_CALIBER, ValueKind::kCaliber, kSigned, kReadOnly,
              "how the usage is known: actual, presumed, ..."},
    Attribute{"usage-vector", VT_ATTRIBUTE_USAGE_VECTOR, ValueKind::kUsageVector, kUnsigned,
              kReadOnly, "power used at each level"},
    Attribute{"category", VT_ATTRIBUTE_USAGE_CATEGORY, ValueKind::kCategory, kSigned, kReadOnly,
              "consumer, producer or meter"},
};

std::string NamesOfAll() {
  std::string names;
  for (const Attribute& attribute : kAttributes) {
    names += names.empty() ? "" : ", ";
    names += attribute.name;
  }
  return names;
}

}  // namespace

std::span<const Attribute> AllAttributes() { return kAttributes; }

const Attribute& FindAttribute(std::string_view name) {
  const auto found = std::ranges::find(kAttributes, name, &Attribute::name);
  if (found != kAttributes.end()) return *found;
  throw Failure(kExitUsage, "there is no attribute '" + std::string(name) +
                                "'; the attributes are " + NamesOfAll());
}

bool HasUnits(const Attribute& attribute) {
  return attribute.kind == ValueKind::kUsage || attribute.kind == ValueKind::kUsageVector ||
         attribute.kind == ValueKind::kDeltaVector;
}

std::string AttributeHelp() {
  constexpr std::size_t column = 18;
  std::string help;
  for (const Attribute& attribute : kAttributes) {
    std::string line = "  " + std::string(attribute.name);
    line.resize(std::max(line.size() + 1, column), ' ');
    help += line + std::string(attribute.meaning) + (attribute.settable ? " (can be set)" : "");
    help += '\n';
  }
  return help;
}

}  // namespace vt::tools
