// The answer to a query as plain data: what the library's rows held, read once and kept, so that it
// can be printed in any form after the library's own records are gone.
#ifndef VT_TOOLS_ANSWER_H_
#define VT_TOOLS_ANSWER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "vtapi.hpp"

#include "tools/attributes.h"

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
  std::vector<Value> values;  // one for each column
};

struct Answer {
  std::vector<const Attribute*> columns;
  std::vector<Row> rows;
  std::size_t acknowledged = 0;
  std::size_t refused = 0;
  std::optional<voltaris::Error> failure;  // why it is not complete
  bool timed_out = false;
};

// ReadAnswer takes the values of all rows. Rows that hold nothing and stand for a refusal
// alone are left out.
Answer ReadAnswer(const voltaris::Results& results, const std::vector<const Attribute*>& columns);

}  // namespace vt::tools

#endif  // VT_TOOLS_ANSWER_H_
