#include "tools/query_command.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>

#include "vtapi.h"

#include "tools/exit_code.h"
#include "tools/key_file.h"
#include "tools/watchdog.h"

namespace vt::tools {
namespace {

// How much longer than the devices voltaris waits: the answer still has to travel.
constexpr std::chrono::seconds kGrace{2};

// The library holds the length of a value to set, terminator included, in eight bits.
constexpr std::size_t kLongestText = 254;

constexpr unsigned kHighestLevel = 10;
constexpr unsigned kHighestImportance = 255;

struct ReleaseSession {
  void operator()(Session* session) const { voltaris_closeSession(session); }
};
struct ReleaseQuery {
  void operator()(Query* query) const { voltaris_releaseQuery(query); }
};
struct ReleaseResult {
  void operator()(ResultSet* result) const { voltaris_releaseResult(result); }
};
using SessionHandle = std::unique_ptr<Session, ReleaseSession>;
using QueryHandle = std::unique_ptr<Query, ReleaseQuery>;
using ResultHandle = std::unique_ptr<ResultSet, ReleaseResult>;

// FreshIdentity is the 32 digits of a new UUID and four more characters, which stay at home: a
// message carries the first 32.
std::string FreshIdentity() {
  std::array<char, VT_IDENTITY_SIZE> digits{};
  voltaris_utl_createUuid(digits.data());
  return std::string(digits.data(), digits.size()) + "0000";
}

SessionHandle OpenSession(const Options& options) {
  const std::string identity = options.identity ? *options.identity : FreshIdentity();
  Session* session = nullptr;
  if (options.key_file) {
    try {
      const Key key = ReadKeyFile(*options.key_file);
      session = voltaris_createSession(options.host.c_str(), options.port, identity.data(),
                                       key.data(), static_cast<std::int32_t>(kKeySize));
    } catch (const KeyFileError& error) {
      throw Failure(kExitUsage, error.what());
    }
  } else {
    session =
        voltaris_createSession(options.host.c_str(), options.port, identity.data(), nullptr, 0);
  }
  if (session == nullptr) throw Failure(kExitInternal, "no session could be made");
  return SessionHandle(session);
}

QueryHandle CreateQuery(const Options& options) {
  const char* domain = options.domain.c_str();
  switch (options.command) {
    case Command::kCollect:
      return QueryHandle(voltaris_createCollectQuery(domain, options.priority));
    case Command::kSet:
      return QueryHandle(voltaris_createSetQuery(domain, options.priority));
    case Command::kSum:
      return QueryHandle(voltaris_createSumQuery(domain, options.priority));
  }
  return nullptr;
}

// The library refuses what would make the query longer than one message.
void RequireRoom(std::int32_t status, const std::string& what) {
  if (status == 0) return;
  throw Failure(kExitUsage, what + " could not be added: a query must fit into 1400 bytes");
}

void AddIds(Query& query, const Options& options) {
  for (const std::string& id : options.ids) {
    sender_id device{};
    std::memcpy(device.id.bytes, id.data(), std::min(id.size(), sizeof device.id.bytes));
    RequireRoom(voltaris_addIdQualifier(&query, &device), "--id " + id);
  }
}

// Devices look at the first keywords of a query only, any of which may match.
void AddKeywords(Query& query, const Options& options) {
  if (options.keywords.empty()) return;
  std::string list;
  for (const std::string& keyword : options.keywords) {
    list += (list.empty() ? "" : ",") + keyword;
  }
  RequireRoom(voltaris_addKeyQualifier(&query, list.c_str()), "--keyword " + list);
}

// The qualifier call does not know categories, so the element is put into the message itself.
void AddCategories(Query& query, const Options& options) {
  constexpr std::uint32_t length = VT_TLV_HEADER_SIZE + sizeof(std::int32_t);
  constexpr std::uint32_t qualifier = 1;
  for (const std::int32_t category : options.categories) {
    if (cv_add_tlv_common(query.event, VT_TLV_USAGE_CATEGORY, length, &category, qualifier) != 0) {
      throw Failure(kExitInternal, "out of memory");
    }
  }
}

void AddQualifiers(Query& query, const Options& options) {
  AddCategories(query, options);
  AddIds(query, options);
  for (const std::string& role : options.roles) {
    RequireRoom(voltaris_addRoleQualifier(&query, role.c_str()), "--role " + role);
  }
  for (const std::string& name : options.names) {
    RequireRoom(voltaris_addNameQualifier(&query, name.c_str()), "--name " + name);
  }
  AddKeywords(query, options);
  RequireRoom(voltaris_addQualifier(&query, VT_ATTRIBUTE_QUERY_TIMEOUT, &options.timeout_seconds),
              "--timeout");
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
  constexpr int blanks_allowed = 2;
  const std::string name(assignment.attribute->name);
  if (assignment.value.size() > kLongestText) {
    throw Failure(kExitUsage,
                  name + " must have at most " + std::to_string(kLongestText) + " characters");
  }
  if (vtn_string_in_whitelist(assignment.value.c_str(), blanks_allowed) == 0) {
    throw Failure(kExitUsage, name +
                                  " must not be empty, and may have letters, digits, blanks and "
                                  "~!@#$%^&()_-+={}[]\\:.,></ only");
  }
}

void AddAssignment(Query& query, const Assignment& assignment) {
  const std::string what(assignment.attribute->name);
  const std::int32_t number = assignment.attribute->number;
  if (assignment.attribute->kind == ValueKind::kInteger) {
    const unsigned limit = number == VT_ATTRIBUTE_LEVEL ? kHighestLevel : kHighestImportance;
    const std::uint8_t value = ParseByte(assignment, limit);
    RequireRoom(voltaris_addSetAttribute(&query, number, &value), what);
    return;
  }
  CheckText(assignment);
  RequireRoom(voltaris_addSetAttribute(&query, number, assignment.value.c_str()), what);
}

void AddColumn(Query& query, const Attribute& attribute) {
  RequireRoom(voltaris_addGetAttribute(&query, attribute.number), std::string(attribute.name));
}

// What a set shows: which device, what it uses now, and what was set. The request for a name has no
// value and that for the usage is of an attribute that cannot be set, so that devices take neither
// for something to set.
std::vector<const Attribute*> AddSetColumns(Query& query, const Options& options) {
  std::vector<const Attribute*> columns;
  for (const Assignment& assignment : options.assignments) {
    AddAssignment(query, assignment);
    columns.push_back(assignment.attribute);
  }
  const Attribute& usage = FindAttribute("usage");
  AddColumn(query, usage);
  columns.insert(columns.begin(), &usage);
  const Attribute& name = FindAttribute("name");
  if (std::ranges::find(columns, &name) == columns.end()) {
    AddColumn(query, name);
    columns.insert(columns.begin(), &name);
  }
  return columns;
}

std::vector<const Attribute*> AddColumns(Query& query, const Options& options) {
  if (options.command == Command::kSet) return AddSetColumns(query, options);
  for (const Attribute* attribute : options.attributes) AddColumn(query, *attribute);
  return options.attributes;
}

void Send(Session& session, Query& query, const Options& options) {
  const std::int32_t unsent = voltaris_execQuery(&session, &query);
  if (unsent == 0) return;
  if (unsent < 0) throw Failure(kExitInternal, "the query could not be made into a message");
  throw Failure(kExitNoConnection, "cannot send the query to " + options.host + ":" +
                                       std::to_string(options.port) + "; is the node running?");
}

}  // namespace

Answer RunQuery(const Options& options) {
  // Released in the reverse order, as the library asks: the result, the query, the session.
  const SessionHandle session = OpenSession(options);
  const QueryHandle query = CreateQuery(options);
  if (query == nullptr) throw Failure(kExitInternal, "out of memory");
  AddQualifiers(*query, options);
  const std::vector<const Attribute*> columns = AddColumns(*query, options);
  Send(*session, *query, options);

  Watchdog watchdog(session->descriptor, std::chrono::seconds(options.timeout_seconds) + kGrace);
  const ResultHandle result(voltaris_queryResults(session.get(), query.get()));
  const bool timed_out = watchdog.Stop();
  if (result == nullptr) throw Failure(kExitInternal, "out of memory");
  Answer answer = ReadAnswer(*result, columns);
  answer.timed_out = timed_out;
  return answer;
}

}  // namespace vt::tools
