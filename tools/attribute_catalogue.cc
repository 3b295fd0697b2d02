#include "tools/attribute_catalogue.h"

#include <algorithm>
#include <optional>
#include <span>
#include <type_traits>

#include "vtapi.hpp"
#include "vtapi/catalogue.h"

#include "tools/attributes.h"

namespace vt::tools {
namespace {

namespace kind = voltaris::kind;

// ValueTypeOf names the form of the values of a kind.
constexpr std::string_view ValueTypeOf(kind::Text /*kind*/) { return "text"; }
constexpr std::string_view ValueTypeOf(kind::Keywords /*kind*/) { return "keywords"; }
constexpr std::string_view ValueTypeOf(kind::Power /*kind*/) { return "power"; }
constexpr std::string_view ValueTypeOf(kind::Entity /*kind*/) { return "identity"; }
constexpr std::string_view ValueTypeOf(kind::SocketAddress /*kind*/) { return "address"; }
constexpr std::string_view ValueTypeOf(kind::NeighborRecord /*kind*/) { return "neighbor"; }
constexpr std::string_view ValueTypeOf(kind::RecurrenceRecord /*kind*/) { return "recurrence"; }
template <class Number>
constexpr std::string_view ValueTypeOf(kind::Vector<Number> /*kind*/) {
  return "11 powers";
}
template <class Enumeration>
constexpr std::string_view ValueTypeOf(kind::Enumerated<Enumeration> /*kind*/) {
  return "enumeration";
}
template <class Wire, class Shown, std::int64_t least, std::int64_t most>
constexpr std::string_view ValueTypeOf(kind::Integer<Wire, Shown, least, most> /*kind*/) {
  constexpr bool is_signed = std::is_signed_v<Wire>;
  switch (sizeof(Wire)) {
    case 1:
      return is_signed ? "int8" : "uint8";
    case 2:
      return is_signed ? "int16" : "uint16";
    default:
      return is_signed ? "int32" : "uint32";
  }
}
template <class Other>
constexpr std::string_view ValueTypeOf(kind::ReadOnly<Other> /*kind*/) {
  return ValueTypeOf(Other());
}

using NamedNumbers = std::vector<std::pair<std::string, std::int32_t>>;

template <class Other>
NamedNumbers WordsOf(Other /*kind*/) {
  return {};
}
template <class Enumeration>
NamedNumbers WordsOf(kind::Enumerated<Enumeration> /*kind*/) {
  // All enumerations of the protocol stay close to zero.
  constexpr std::int32_t range = 64;
  NamedNumbers words;
  for (std::int32_t number = -range; number <= range; ++number) {
    if (auto word = voltaris::name_of(static_cast<Enumeration>(number))) {
      words.emplace_back(*std::move(word), number);
    }
  }
  return words;
}

// What no command names, for it is a record, or describes the query itself.
std::string_view MeaningBesides(std::int32_t number) {
  switch (number) {
    case VT_ATTRIBUTE_ID:
      return "identity and entity of the device, which every row shows";
    case VT_ATTRIBUTE_NEIGHBOR:
      return "another device that the device knows";
    case VT_ATTRIBUTE_QUERY_TIMEOUT:
      return "seconds that devices may take to answer a query";
    case VT_ATTRIBUTE_RECURRENCE:
      return "when something repeats";
    case VT_ATTRIBUTE_TEXT_21:
      return "further text";
    default:
      return "";
  }
}

const Attribute* Named(std::int32_t number) {
  const std::span<const Attribute> all = AllAttributes();
  const auto found = std::ranges::find(all, number, &Attribute::number);
  return found == all.end() ? nullptr : &*found;
}

}  // namespace

std::vector<CatalogueEntry> AttributeCatalogue() {
  std::vector<CatalogueEntry> entries;
  for (std::int32_t number = VT_ATTRIBUTE_ID; number <= VT_ATTRIBUTE_USAGE_CATEGORY; ++number) {
    const Attribute* named = Named(number);
    CatalogueEntry entry{voltaris::word_of(number),
                         number,
                         vt_get_tlv_enum_type(number),
                         "",
                         named != nullptr,
                         named != nullptr && named->settable,
                         named != nullptr ? named->meaning : MeaningBesides(number),
                         {}};
    voltaris::visit_attribute(number, [&entry](auto attribute) {
      using Kind = typename decltype(attribute)::Kind;
      entry.value_type = ValueTypeOf(Kind());
      entry.words = WordsOf(Kind());
    });
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace vt::tools
