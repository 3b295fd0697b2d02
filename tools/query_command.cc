#include "tools/query_command.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <iostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vtapi.hpp"

#include "tools/exit_code.h"

namespace vt::tools {
namespace {

// The library holds the length of a value to set, terminator included, in eight bits.
constexpr std::size_t kLongestText = 254;

constexpr unsigned kHighestLevel = 10;
constexpr unsigned kHighestImportance = 255;

// Unwrap ends the program where there is no result: what cannot be asked is wrong usage.
template <typename T>
T Unwrap(voltaris::Expected<T> expected) {
  if (expected) return *std::move(expected);
  const voltaris::Error& error = expected.error();
  throw Failure(error.cause == voltaris::Cause::kNoMemory ? kExitInternal : kExitUsage, error.text);
}

voltaris::Key ReadKey(const std::string& path) {
  std::string warning;
  voltaris::Key key =
      Unwrap(voltaris::Key::from_file(path, voltaris::KeyFilePolicy::kWarn, &warning));
  // cppcheck-suppress knownConditionTrueFalse; from_file may have written it
  if (!warning.empty()) std::cerr << "warning: " << warning << std::endl;
  return key;
}

voltaris::Session OpenSession(const Options& options) {
  const voltaris::Identity identity = options.identity
                                          ? Unwrap(voltaris::Identity::from_text(*options.identity))
                                          : voltaris::Identity::fresh();
  if (!options.key_file) {
    return Unwrap(voltaris::Session::open(options.host, options.port, identity));
  }
  const voltaris::Key key = ReadKey(*options.key_file);
  return Unwrap(voltaris::Session::open(options.host, options.port, identity, key));
}

voltaris::QueryDescription NewDescription(const Options& options) {
  switch (options.command) {
    case Command::kSet:
      return voltaris::set_query(options.domain);
    case Command::kSum:
      return voltaris::sum_query(options.domain);
    case Command::kCollect:
    case Command::kRecord:
      break;
  }
  return voltaris::collect_query(options.domain);
}

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

void AddQualifiers(voltaris::QueryDescription& description, const Options& options) {
  for (const voltaris::Category category : options.categories) {
    description.where(voltaris::category, category);
  }
  for (const std::string& id : options.ids) {
    description.where(voltaris::identity, Unwrap(voltaris::DeviceId::from_text(id)));
  }
  for (const std::string& role : options.roles) description.where(voltaris::role, role);
  for (const std::string& name : options.names) description.where(voltaris::name, name);
  for (const std::string& list : options.keywords) {
    description.where(voltaris::keywords, SplitKeywords(list));
  }
  description.priority(options.priority).timeout(std::chrono::seconds(options.timeout_seconds));
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

// What a set shows: which device, what it uses now, and what was set. The request for a name has no
// value and that for the usage is of an attribute that cannot be set, so that devices take neither
// for something to set.
std::vector<const Attribute*> AddSetColumns(voltaris::QueryDescription& description,
                                            const Options& options) {
  std::vector<const Attribute*> columns;
  for (const Assignment& assignment : options.assignments) {
    AddAssignment(description, assignment);
    columns.push_back(assignment.attribute);
  }
  const Attribute& usage = FindAttribute("usage");
  AddColumn(description, usage.number);
  columns.insert(columns.begin(), &usage);
  const Attribute& name = FindAttribute("name");
  if (std::ranges::find(columns, &name) == columns.end()) {
    AddColumn(description, name.number);
    columns.insert(columns.begin(), &name);
  }
  return columns;
}

std::vector<const Attribute*> AddColumns(voltaris::QueryDescription& description,
                                         const Options& options) {
  if (options.command == Command::kSet) return AddSetColumns(description, options);
  for (const Attribute* column : options.attributes) AddColumn(description, column->number);
  return options.attributes;
}

bool WasSent(voltaris::Outcome outcome) {
  using voltaris::Outcome;
  return outcome != Outcome::kRefused && outcome != Outcome::kUnreachable &&
         outcome != Outcome::kConnectTimeout && outcome != Outcome::kSendError;
}

voltaris::Results Send(const Options& options, const voltaris::QueryDescription& description) {
  voltaris::Session session = OpenSession(options);
  voltaris::Results results = Unwrap(session.execute(description));
  if (!WasSent(results.outcome())) {
    throw Failure(kExitNoConnection, "cannot send the query to " + options.host + ":" +
                                         std::to_string(options.port) + "; is the node running?");
  }
  return results;
}

}  // namespace

voltaris::Results Execute(const Options& options, const std::vector<std::int32_t>& attributes) {
  voltaris::QueryDescription description = NewDescription(options);
  AddQualifiers(description, options);
  for (const std::int32_t number : attributes) AddColumn(description, number);
  return Send(options, description);
}

Answer RunQuery(const Options& options) {
  voltaris::QueryDescription description = NewDescription(options);
  AddQualifiers(description, options);
  const std::vector<const Attribute*> columns = AddColumns(description, options);
  return ReadAnswer(Send(options, description), columns);
}

}  // namespace vt::tools
