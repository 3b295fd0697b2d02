// The answers of nodes as plain data: what the library's rows held, read once and kept, so that it
// can be printed in any form after the library's own records are gone.
#ifndef VT_TOOLS_ANSWER_H_
#define VT_TOOLS_ANSWER_H_

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "vtapi.hpp"

#include "tools/attributes.h"
#include "tools/target.h"
#include "tools/verdict.h"

namespace vt::tools {

// Power is a number of units of power: watts = raw x 10^units. Units that the device did not tell
// leave the watts unknown.
struct Power {
  std::int64_t raw = 0;
  std::optional<int> units;
};

// PowerVector is one Power for each level.
struct PowerVector {
  std::vector<std::int64_t> raw;
  std::optional<int> units;
};

// Value is what a device told of an attribute: nothing, a text, a number or power.
using Value = std::variant<std::monostate, std::string, std::int64_t, Power, PowerVector>;

struct Row {
  std::string device;  // the identity, as text or as hexadecimal digits
  std::uint32_t entity = 0;
  std::vector<Value> values;  // one for each attribute that was asked for
};

// EntityName names a part of a device.
struct EntityName {
  std::string device;
  std::uint32_t entity = 0;

  friend bool operator==(const EntityName&, const EntityName&) = default;
  friend auto operator<=>(const EntityName& a, const EntityName& b) {
    return std::tie(a.device, a.entity) <=> std::tie(b.device, b.entity);
  }
};

// Answer is what one node told: values, and who will and who will not do what the query says, both
// in ascending order.
struct Answer {
  std::vector<Row> rows;
  std::vector<EntityName> accepted;
  std::vector<EntityName> refused;
};

// NodeAnswer is how the question to one node ended, with what came of it.
struct NodeAnswer {
  const Target* target = nullptr;  // of the options
  Verdict verdict;
  unsigned attempts = 0;
  CollectionCounters counters{};
  Answer answer;
};

// HoldsNothing tells rows without a value, apart from the address that every row has.
bool HoldsNothing(const voltaris::Row& row);

// ReadAnswer takes the values of all rows. Rows that hold nothing and stand for a refusal
// alone are left out.
Answer ReadAnswer(const voltaris::Results& results,
                  const std::vector<const Attribute*>& attributes);

// ReadNodeAnswer is the answer of a node with the verdict on it.
NodeAnswer ReadNodeAnswer(const Target& target, unsigned attempts, const voltaris::Results& results,
                          const std::vector<const Attribute*>& attributes);

}  // namespace vt::tools

#endif  // VT_TOOLS_ANSWER_H_
