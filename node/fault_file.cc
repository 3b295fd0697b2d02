#include "node/fault_file.h"

#include <algorithm>
#include <array>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <system_error>

#include "vtapi.h"

namespace vt::node {
namespace {

// Connections last no longer.
constexpr std::int64_t kLongestMilliseconds = 3'600'000;
constexpr std::int64_t kMost = 1'000'000;
// A message has to become longer by an element at least, and its digest covers what 16 bits count.
constexpr std::int64_t kSmallestOverSize = VT_MAX_PDU_SIZE + VT_TLV_HEADER_SIZE;
constexpr std::int64_t kGreatestOverSize = VT_PDU_HEADER_SIZE - VT_MESSAGE_HEADER_SIZE + 65535;
constexpr std::int64_t kMostElementBytes = VT_MAX_PDU_SIZE - VT_PDU_HEADER_SIZE;

// Own is a setting that one kind has, or two.
struct Own {
  std::string_view key;
  std::array<FaultKind, 2> kinds;
};

constexpr Own kOwn[] = {
    {"delay", {FaultKind::kDelay, FaultKind::kDelay}},
    {"bytes", {FaultKind::kDrip, FaultKind::kDrip}},
    {"pause", {FaultKind::kDrip, FaultKind::kDrip}},
    {"after", {FaultKind::kDrop, FaultKind::kDrop}},
    {"messages", {FaultKind::kCloseEarly, FaultKind::kCloseEarly}},
    {"reset", {FaultKind::kDrop, FaultKind::kCloseEarly}},
    {"by", {FaultKind::kBadLength, FaultKind::kBadLength}},
    {"size", {FaultKind::kOverSize, FaultKind::kOverSize}},
};

std::string Quoted(std::string_view key) { return "'" + std::string(key) + "'"; }

FaultKind ReadKind(const Section& section) {
  if (!section.Has("kind")) section.Reject("'kind' is missing");
  return static_cast<FaultKind>(section.Word("kind",
                                             {
#define VT_NODE_FAULT_KIND(kind, word, of_device) \
  {word, static_cast<std::int32_t>(FaultKind::kind)},
                                                 VT_NODE_FAULT_KINDS(VT_NODE_FAULT_KIND)
#undef VT_NODE_FAULT_KIND
                                             },
                                             0));
}

void RejectOfOtherKinds(const Section& section, FaultKind kind) {
  for (const Own& own : kOwn) {
    if (!section.Has(own.key) || std::ranges::find(own.kinds, kind) != own.kinds.end()) continue;
    std::string whose(WordOf(own.kinds[0]));
    if (own.kinds[1] != own.kinds[0]) whose += " and " + std::string(WordOf(own.kinds[1]));
    section.Reject(own.key, Quoted(own.key) + " is a setting of " + whose + ", and not of " +
                                std::string(WordOf(kind)));
  }
}

// OneOrMore is a text, or a list of texts.
std::vector<std::string> OneOrMore(const Section& section, std::string_view key) {
  if (!section.Has(key)) return {};
  std::vector<std::string> texts =
      section.IsText(key) ? std::vector{section.AnyText(key)} : section.AnyTexts(key);
  const bool has_empty = std::ranges::any_of(texts, &std::string::empty);
  if (texts.empty() || has_empty) section.Reject(key, Quoted(key) + " must not be empty");
  return texts;
}

std::vector<std::string> ReadPatterns(const Section& section) {
  std::vector<std::string> patterns = OneOrMore(section, "devices");
  for (const std::string& pattern : patterns) {
    if (pattern.find('*') < pattern.size() - 1) {
      section.Reject("devices", "a star may stand at the end of a name only");
    }
  }
  return patterns;
}

std::vector<asio::ip::network_v4> ReadClients(const Section& section) {
  std::vector<asio::ip::network_v4> clients;
  for (const std::string& text : OneOrMore(section, "clients")) {
    const bool is_network = text.find('/') != std::string::npos;
    asio::error_code error;
    const asio::ip::network_v4 network =
        asio::ip::make_network_v4(is_network ? text : text + "/32", error);
    if (error || network.canonical() != network) {
      section.Reject("clients",
                     "a client must be an IPv4 address or a network such as 192.0.2.0/24"
                     ", and not '" +
                         text + "'");
    }
    clients.push_back(network);
  }
  return clients;
}

std::uint8_t ReadQueries(const Section& section) {
  if (!section.Has("queries")) return kAllQueries;
  std::uint8_t queries = 0;
  for (const std::string& text : OneOrMore(section, "queries")) {
    if (text == "collect") {
      // The third query action asks as a collect does.
      queries |= QueryBit(QueryKind::kCollect);
      queries |= QueryBit(QueryKind::kFurther);
    } else if (text == "set") {
      queries |= QueryBit(QueryKind::kSet);
    } else if (text == "sum") {
      queries |= QueryBit(QueryKind::kSum);
    } else {
      section.Reject("queries", "'queries' must be one or more of collect, set, sum");
    }
  }
  return queries;
}

std::optional<DeviceIdText> ReadId(const Section& section) {
  if (!section.Has("id")) return std::nullopt;
  const std::string text = section.Id("id");
  DeviceIdText id{};
  std::copy_n(text.begin(), id.size(), id.begin());
  return id;
}

FaultTarget ReadTarget(const Section& section) {
  FaultTarget target;
  target.devices = ReadPatterns(section);
  target.id = ReadId(section);
  target.role = section.OptionalText("role");
  target.keyword = section.OptionalText("keyword");
  target.domain = section.OptionalText("domain");
  target.clients = ReadClients(section);
  target.queries = ReadQueries(section);
  return target;
}

void ReadChance(const Section& section, Fault& fault) {
  fault.probability = section.Millionths("probability", 0, 1, fault.probability);
  if (section.Has("seed") && !section.Has("probability")) {
    section.Reject("seed", "a 'seed' decides nothing without a 'probability'");
  }
  fault.seed = static_cast<std::uint64_t>(
      section.Number("seed", 0, std::numeric_limits<std::int64_t>::max(), 0));
}

std::chrono::milliseconds ReadTime(const Section& section, std::string_view key) {
  return std::chrono::milliseconds(section.Number(key, 1, kLongestMilliseconds));
}

// ReadOwn reads the settings of a kind.
void ReadOwn(const Section& section, Fault& fault) {
  constexpr std::int64_t usual_by = 8;
  constexpr std::int64_t usual_size = 2000;
  switch (fault.kind) {
    case FaultKind::kDelay:
      fault.delay = ReadTime(section, "delay");
      break;
    case FaultKind::kDrip:
      fault.bytes = static_cast<std::size_t>(section.Number("bytes", 1, kMost));
      fault.pause = ReadTime(section, "pause");
      break;
    case FaultKind::kDrop:
      if (section.Has("after")) {
        fault.after = static_cast<std::size_t>(
            section.Number("after", 1, std::numeric_limits<std::int32_t>::max()));
      }
      break;
    case FaultKind::kCloseEarly:
      fault.messages = static_cast<std::size_t>(section.Number("messages", 0, kMost, 0));
      break;
    case FaultKind::kBadLength:
      fault.by = static_cast<std::int32_t>(
          section.Number("by", -kMostElementBytes, kMostElementBytes, usual_by));
      if (fault.by == 0) section.Reject("by", "with a 'by' of 0 the length would be right");
      break;
    case FaultKind::kOverSize:
      fault.size = static_cast<std::size_t>(
          section.Number("size", kSmallestOverSize, kGreatestOverSize, usual_size));
      break;
    default:
      break;
  }
  fault.reset = section.Flag("reset", false);
}

Fault ReadFault(const Section& section) {
  section.AllowOnly({"kind",  "name",    "enabled",  "probability", "seed",    "devices", "id",
                     "role",  "keyword", "domain",   "clients",     "queries", "delay",   "bytes",
                     "pause", "after",   "messages", "reset",       "by",      "size"});
  Fault fault;
  fault.kind = ReadKind(section);
  RejectOfOtherKinds(section, fault.kind);
  fault.name = section.Text("name", "");
  fault.enabled = section.Flag("enabled", true);
  fault.target = ReadTarget(section);
  ReadChance(section, fault);
  ReadOwn(section, fault);
  return fault;
}

bool HasDevice(const Fleet& fleet, const DeviceIdText& id) {
  for (std::uint32_t i = 0; i < fleet.entity_count(); ++i) {
    if (fleet.IdOf(i) == id) return true;
  }
  return false;
}

// A mistyped name could be that of a device from the next set on; these can not.
void RejectNobody(const Section& section, const FaultTarget& target, const Fleet& fleet) {
  if (target.id && !HasDevice(fleet, *target.id)) {
    section.Reject("id", "no device has this id");
  }
  if (target.domain && fleet.InDomain(*target.domain).empty()) {
    section.Reject("domain", "no device is in the domain '" + *target.domain + "'");
  }
}

}  // namespace

std::vector<Fault> ReadFaults(const Section& top, const Fleet& fleet, bool is_whole) {
  std::vector<Fault> faults;
  std::set<std::string> names;
  for (const Section& section : top.Tables("fault")) {
    Fault fault = ReadFault(section);
    if (is_whole) RejectNobody(section, fault.target, fleet);
    if (!fault.name.empty() && !names.insert(fault.name).second) {
      section.Reject("name", "an earlier fault has the name '" + fault.name + "'");
    }
    faults.push_back(std::move(fault));
  }
  return faults;
}

}  // namespace vt::node
