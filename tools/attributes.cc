#include "tools/attributes.h"

#include <algorithm>
#include <array>

#include "vtapi.hpp"

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
    Attribute{"role", voltaris::role.number, ValueKind::kText, kUnsigned, kSettable,
              "what the device is for"},
    Attribute{"domain", voltaris::domain.number, ValueKind::kText, kUnsigned, kReadOnly,
              "domain of the device"},
    Attribute{"name", voltaris::name.number, ValueKind::kText, kUnsigned, kSettable,
              "name of the device"},
    Attribute{"keywords", voltaris::keywords.number, ValueKind::kKeywords, kUnsigned, kSettable,
              "keywords, separated by commas"},
    Attribute{"error", voltaris::error_text.number, ValueKind::kText, kUnsigned, kReadOnly,
              "error text of the device"},
    Attribute{"units", voltaris::units.number, ValueKind::kInteger, kSigned, kReadOnly,
              "decimal exponent of the watt: -3 milliwatt, 0 watt, 3 kilowatt"},
    Attribute{"usage", voltaris::usage.number, ValueKind::kUsage, kUnsigned, kReadOnly,
              "power used now"},
    Attribute{"level", voltaris::level.number, ValueKind::kInteger, kUnsigned, kSettable,
              "power level, 0 (off) to 10 (full)"},
    Attribute{"importance", voltaris::importance.number, ValueKind::kInteger, kUnsigned, kSettable,
              "least priority that the device obeys, 0 to 255"},
    Attribute{"entity-type", voltaris::entity_type.number, ValueKind::kEntityType, kSigned,
              kReadOnly, "kind of entity"},
    Attribute{"address", voltaris::address.number, ValueKind::kAddress, kUnsigned, kReadOnly,
              "network address of the device"},
    Attribute{"neighbor-count", voltaris::neighbor_count.number, ValueKind::kInteger, kUnsigned,
              kReadOnly, "number of neighbors"},
    Attribute{"nanny-vector", voltaris::nanny_vector.number, ValueKind::kInteger, kUnsigned,
              kReadOnly, "supervision flags"},
    Attribute{"delta-vector", voltaris::delta_vector.number, ValueKind::kDeltaVector, kSigned,
              kReadOnly, "change of power that each level would bring"},
    Attribute{"caliber", voltaris::caliber.number, ValueKind::kCaliber, kSigned, kReadOnly,
              "how the usage is known: actual, presumed, ..."},
    Attribute{"usage-vector", voltaris::usage_vector.number, ValueKind::kUsageVector, kUnsigned,
              kReadOnly, "power used at each level"},
    Attribute{"category", voltaris::category.number, ValueKind::kCategory, kSigned, kReadOnly,
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

std::string KeyOf(const Attribute& attribute) {
  std::string key(attribute.name);
  std::ranges::replace(key, '-', '_');
  return key;
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
