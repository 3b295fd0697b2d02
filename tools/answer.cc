#include "tools/answer.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <utility>

namespace vt::tools {
namespace {

// ValueOf is what a typed value becomes here.
Value ValueOf(std::string_view text) { return std::string(text); }
Value ValueOf(std::int64_t number) { return number; }
Value ValueOf(const voltaris::Address& address) { return address.endpoint(); }

Value ValueOf(const std::vector<std::string>& items) {
  std::string list;
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) list += ',';
    list += items[i];
  }
  return list;
}

// A number without a name stays one.
template <typename Enumeration>
requires std::is_enum_v<Enumeration> Value ValueOf(Enumeration value) {
  if (const auto word = voltaris::name_of(value)) return *word;
  return std::int64_t{static_cast<std::int32_t>(value)};
}

Value ValueOf(const voltaris::Usage& usage) { return Power{usage.raw, usage.exponent}; }

template <typename Number>
Value ValueOf(const voltaris::PowerVector<Number>& vector) {
  return PowerVector{{vector.raw.begin(), vector.raw.end()}, vector.exponent};
}

// What no column shows.
Value ValueOf(const voltaris::EntityId& /*id*/) { return {}; }
Value ValueOf(const voltaris::Neighbor& /*neighbor*/) { return {}; }
Value ValueOf(const voltaris::Recurrence& /*recurrence*/) { return {}; }

Value Read(const voltaris::Row& row, const Attribute& attribute) {
  Value value;
  voltaris::visit_attribute(attribute.number, [&row, &value](auto known) {
    if (const auto told = row.get(known)) value = ValueOf(*told);
  });
  return value;
}

std::vector<EntityName> NamesOf(std::span<const AckEntry> entries) {
  std::vector<EntityName> names;
  names.reserve(entries.size());
  for (const AckEntry& entry : entries) {
    const voltaris::EntityId id(entry);
    names.push_back({id.device.text(), id.index});
  }
  std::ranges::sort(names);
  return names;
}

}  // namespace

bool HoldsNothing(const voltaris::Row& row) {
  const auto* values = row.cursor().row;
  return values == nullptr || values->attributes.head == nullptr;
}

Answer ReadAnswer(const voltaris::Results& results,
                  const std::vector<const Attribute*>& attributes) {
  Answer answer;
  answer.accepted = NamesOf(results.accepted());
  answer.refused = NamesOf(results.refused());
  std::unordered_set<voltaris::EntityId> accepted;
  for (const AckEntry& entry : results.accepted()) accepted.emplace(entry);
  for (const voltaris::Row row : results.rows()) {
    // A refusal that names an entity makes a row of its own, which says nothing.
    if (HoldsNothing(row) && !accepted.contains(row.id())) continue;
    Row read{row.device().text(), row.entity(), {}};
    for (const Attribute* attribute : attributes) read.values.push_back(Read(row, *attribute));
    answer.rows.push_back(std::move(read));
  }
  return answer;
}

NodeAnswer ReadNodeAnswer(const Target& target, unsigned attempts, const voltaris::Results& results,
                          const std::vector<const Attribute*>& attributes) {
  NodeAnswer node{&target, {}, attempts, results.counters(), ReadAnswer(results, attributes)};
  const std::optional<voltaris::Error> failure = results.failure();
  node.verdict = Judge({.outcome = results.outcome(),
                        .error_number = results.error_number(),
                        .lacked_memory = failure && failure->cause == voltaris::Cause::kNoMemory,
                        .counters = results.counters(),
                        .rows = node.answer.rows.size(),
                        .accepted = node.answer.accepted.size(),
                        .refused = node.answer.refused.size()});
  return node;
}

}  // namespace vt::tools
