#include "tools/query.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "tools/exit_code.h"

namespace vt::tools {
namespace {

// The library holds the length of a value to set, terminator included, in eight bits.
constexpr std::size_t kLongestText = 254;

constexpr unsigned kHighestLevel = 10;
constexpr unsigned kHighestImportance = 255;

// SplitKeywords gives the items of a list with commas.
std::vector<std::string> SplitKeywords(std::string_view list) {
  std::vector<std::string> items;
  while (!list.empty()) {
    const std::size_t end = list.find(',');
    items.emplace_back(list.substr(0, end));
    list = end == std::string_view::npos ? std::string_view() : list.substr(end + 1);
  }
  return items;
}

voltaris::DeviceId DeviceIdOf(const std::string& text) {
  voltaris::Expected<voltaris::DeviceId> device = voltaris::DeviceId::from_text(text);
  if (!device) throw Failure(kExitUsage, device.error().text);
  return *device;
}

void AddQualifiers(voltaris::QueryDescription& description, const Options& options,
                   const Target& target) {
  for (const voltaris::Category category : options.categories) {
    description.where(voltaris::category, category);
  }
  for (const std::string& id : options.ids) description.where(voltaris::identity, DeviceIdOf(id));
  for (const std::string& role : options.roles) description.where(voltaris::role, role);
  for (const std::string& name : options.names) description.where(voltaris::name, name);
  for (const std::string& list : options.keywords) {
    description.where(voltaris::keywords, SplitKeywords(list));
  }
  description.priority(PriorityOf(options, target)).timeout(options.device_timeout);
}

std::uint8_t ParseByte(const Assignment& assignment, unsigned limit) {
  const std::string& text = assignment.value;
  unsigned value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end || value > limit) {
    throw Failure(kExitUsage, std::string(assignment.attribute->name) +
                                  " must be a number from 0 to " + std::to_string(limit) +
                                  ", not '" + text + "'");
  }
  return static_cast<std::uint8_t>(value);
}

void CheckText(const Assignment& assignment) {
  const std::string name(assignment.attribute->name);
  if (assignment.value.size() > kLongestText) {
    throw Failure(kExitUsage,
                  name + " must have at most " + std::to_string(kLongestText) + " characters");
  }
  if (!voltaris::is_plain(assignment.value)) {
    throw Failure(kExitUsage, name +
                                  " must not be empty, and may have letters, digits, blanks and "
                                  "~!@#$%^&()_-+={}[]\\:.,></ only");
  }
}

void AddAssignment(voltaris::QueryDescription& description, const Assignment& assignment) {
  const std::int32_t number = assignment.attribute->number;
  if (number == voltaris::level.number) {
    description.set(voltaris::level, ParseByte(assignment, kHighestLevel));
    return;
  }
  if (number == voltaris::importance.number) {
    description.set(voltaris::importance, ParseByte(assignment, kHighestImportance));
    return;
  }
  CheckText(assignment);
  if (number == voltaris::keywords.number) {
    description.set(voltaris::keywords, SplitKeywords(assignment.value));
  } else if (number == voltaris::role.number) {
    description.set(voltaris::role, assignment.value);
  } else {
    description.set(voltaris::name, assignment.value);
  }
}

void AddColumn(voltaris::QueryDescription& description, std::int32_t number) {
  voltaris::visit_attribute(number, [&description](auto attribute) { description.get(attribute); });
}

bool IsSet(const Options& options, const Attribute* attribute) {
  return std::ranges::find(options.assignments, attribute, &Assignment::attribute) !=
         options.assignments.end();
}

voltaris::QueryKind KindOf(Command command) {
  switch (command) {
    case Command::kSet:
      return voltaris::QueryKind::kSet;
    case Command::kSum:
      return voltaris::QueryKind::kSum;
    case Command::kCollect:
    case Command::kRecord:
    case Command::kCheck:
    case Command::kPing:
    case Command::kWatch:
      break;
  }
  return voltaris::QueryKind::kCollect;
}

}  // namespace

voltaris::QueryDescription DescribeQuery(const Options& options, const Target& target) {
  voltaris::QueryDescription description(KindOf(options.command), DomainOf(options, target));
  AddQualifiers(description, options, target);
  for (const Assignment& assignment : options.assignments) AddAssignment(description, assignment);
  // What is set is told anyway, and asking for it could be taken for setting it to nothing.
  for (const Attribute* attribute : options.attributes) {
    if (!IsSet(options, attribute)) AddColumn(description, attribute->number);
  }
  return description;
}

voltaris::QueryDescription DescribeCollect(const Options& options, const Target& target,
                                           std::span<const std::int32_t> attributes) {
  voltaris::QueryDescription description = voltaris::collect_query(DomainOf(options, target));
  AddQualifiers(description, options, target);
  for (const std::int32_t number : attributes) AddColumn(description, number);
  return description;
}

void CheckQuery(const voltaris::QueryDescription& description) {
  const voltaris::Expected<voltaris::Query> query = description.build();
  if (query) return;
  const bool lacks_memory = query.error().cause == voltaris::Cause::kNoMemory;
  throw Failure(lacks_memory ? kExitInternal : kExitUsage, query.error().text);
}

const std::string& DomainOf(const Options& options, const Target& target) {
  return target.domain ? *target.domain : options.domain;
}

std::uint8_t PriorityOf(const Options& options, const Target& target) {
  return target.priority.value_or(options.priority);
}

}  // namespace vt::tools
