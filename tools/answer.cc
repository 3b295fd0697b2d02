#include "tools/answer.h"

#include <algorithm>
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

Value Read(const voltaris::Row& row, const Attribute& column) {
  Value value;
  voltaris::visit_attribute(column.number, [&row, &value](auto attribute) {
    if (const auto told = row.get(attribute)) value = ValueOf(*told);
  });
  return value;
}

bool HoldsNothing(const Row& row) {
  return std::ranges::all_of(
      row.values, [](const Value& value) { return std::holds_alternative<std::monostate>(value); });
}

}  // namespace

Answer ReadAnswer(const voltaris::Results& results, const std::vector<const Attribute*>& columns) {
  Answer answer;
  answer.columns = columns;
  answer.acknowledged = results.accepted().size();
  answer.refused = results.refused().size();
  answer.failure = results.failure();
  answer.timed_out = results.outcome() == voltaris::Outcome::kIdle ||
                     results.outcome() == voltaris::Outcome::kDeadline;

  std::unordered_set<voltaris::EntityId> acknowledged;
  for (const AckEntry& entry : results.accepted()) acknowledged.emplace(entry);
  for (const voltaris::Row row : results.rows()) {
    Row read{row.device().text(), row.entity(), {}};
    for (const Attribute* column : columns) read.values.push_back(Read(row, *column));
    // A refusal that names an entity makes a row of its own, which says nothing.
    if (HoldsNothing(read) && !acknowledged.contains(row.id())) continue;
    answer.rows.push_back(std::move(read));
  }
  return answer;
}

}  // namespace vt::tools
