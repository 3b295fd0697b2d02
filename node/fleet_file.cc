#include "node/fleet_file.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string_view>
#include <utility>

#include "vtapi.h"

#include "node/changes.h"
#include "node/config_section.h"
#include "node/derived_id.h"
#include "node/fault_file.h"
#include "node/host/host_section.h"
#include "node/power_units.h"

namespace vt::node {
namespace {

constexpr std::uint32_t kMostDevices = 1'000'000;
constexpr std::uint32_t kMostEntities = 1'000;  // of a device

constexpr std::chrono::seconds kLongestReplayWindow{86400};

// What a [[device]] and a [[group]] may both say.
#define VT_NODE_MODEL_KEYS                                                                       \
  "domain", "name", "role", "keywords", "importance", "level", "units", "usage", "usage_vector", \
      "watts", "caliber", "category", "entity_type", "address", "profile", "noise", "seed",      \
      "noise_interval", "recurrence", "error", "text_21", "nanny_vector", "neighbors"

std::string Beside(const std::string& config, const std::string& path) {
  return (std::filesystem::path(config).parent_path() / path).string();
}

std::string ReadWhole(const Section& section, std::string_view key, const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (file) text << file.rdbuf();
  if (!file || !text) section.Reject(key, "cannot read " + path + ": " + std::strerror(errno));
  return text.str();
}

NodeDescription ReadNode(const Section& section) {
  section.AllowOnly({"id", "domain", "name", "role", "keywords", "state", "replay_window"});
  NodeDescription node;
  node.id = section.Id("id");
  node.domain = section.Text("domain", "default");
  node.name = section.Text("name", "node");
  node.role = section.Text("role", "node");
  node.keywords = section.Keywords("keywords");
  return node;
}

// --- power ---

void ReadUsages(const Section& section, Model& model) {
  const auto units =
      static_cast<std::int8_t>(section.Number("units", kFinestUnits, kCoarsestUnits, 0));
  const std::vector<std::int64_t> usages = section.Numbers("usage_vector", 0, kGreatestUsage);
  if (usages.size() != kLevels) {
    section.Reject("usage_vector",
                   "'usage_vector' must be a list of 11 numbers, for level 0 to 10");
  }
  for (std::size_t i = 0; i < kLevels; ++i) model.milliwatts[i] = ToMilliwatts(usages[i], units);
  model.units = units;
  if (section.Has("usage")) {
    model.measured_milliwatts = ToMilliwatts(section.Number("usage", 0, kGreatestUsage), units);
  }
}

void ReadWatts(const Section& section, Model& model) {
  for (const std::string_view key : {"units", "usage", "usage_vector"}) {
    if (section.Has(key))
      section.Reject(key, "there are 'watts' already, which need no '" + std::string(key) + "'");
  }
  constexpr double most = static_cast<double>(kGreatestUsage) * 1e6;
  const std::vector<double> watts = section.Fractions("watts", 0, most);
  constexpr double milli = 1e3;
  if (watts.size() == 2) {
    const std::int64_t from = std::llround(watts[0] * milli);
    const std::int64_t to = std::llround(watts[1] * milli);
    constexpr std::int64_t steps = kLevels - 1;
    for (std::size_t i = 0; i < kLevels; ++i) {
      model.milliwatts[i] = from + (to - from) * static_cast<std::int64_t>(i) / steps;
    }
  } else if (watts.size() == kLevels) {
    for (std::size_t i = 0; i < kLevels; ++i) {
      model.milliwatts[i] = std::llround(watts[i] * milli);
    }
  } else {
    section.Reject("watts",
                   "'watts' must be a list of 11 numbers, for level 0 to 10, or of 2, for level 0 "
                   "and level 10");
  }
}

Profile ReadSine(const Section& section) {
  section.AllowOnly({"kind", "period", "phase", "low", "high"});
  const std::chrono::seconds period(section.Number("period", 1, kLongestPeriod.count(), 86400));
  const std::chrono::seconds phase(section.Number("phase", 0, kLongestPeriod.count(), 0));
  const std::int64_t low = section.Millionths("low", 0, 100, 0);
  const std::int64_t high = section.Millionths("high", 0, 100, kOne);
  if (low > high) section.Reject("low", "'low' must not be more than 'high'");
  return Profile::Sine(period, phase, low, high);
}

Profile ReadOfficeDay(const Section& section) {
  section.AllowOnly({"kind", "low", "high", "utc_offset"});
  constexpr int most_minutes = 14 * 60;
  const std::chrono::minutes offset(section.Number("utc_offset", -most_minutes, most_minutes, 0));
  const std::int64_t low = section.Millionths("low", 0, 100, kOne * 15 / 100);
  const std::int64_t high = section.Millionths("high", 0, 100, kOne);
  if (low > high) section.Reject("low", "'low' must not be more than 'high'");
  return Profile::OfficeDay(offset, low, high);
}

Profile ReadCsv(const Section& section) {
  section.AllowOnly({"kind", "file", "period"});
  const std::chrono::seconds period(section.Number("period", 1, kLongestPeriod.count(), 86400));
  const std::string path = Beside(section.path(), section.AnyText("file"));
  try {
    return Profile::Table(ParseProfileRows(ReadWhole(section, "file", path), period), period);
  } catch (const ProfileError& error) {
    throw FleetError(path, error.line, error.column, error.what());
  }
}

Profile ReadProfile(const Section& section) {
  enum : std::int32_t { kConstant, kSine, kOfficeDay, kCsv };
  if (!section.Has("profile")) return {};
  if (section.IsText("profile")) {
    const std::int32_t kind =
        section.Word("profile", {{"constant", kConstant}, {"office-day", kOfficeDay}}, kConstant);
    return kind == kConstant ? Profile()
                             : Profile::OfficeDay(std::chrono::minutes(0), kOne * 15 / 100, kOne);
  }
  const Section table = *section.Table("profile");
  if (!table.Has("kind")) table.Reject("'kind' is missing");
  switch (table.Word(
      "kind", {{"constant", kConstant}, {"sine", kSine}, {"office-day", kOfficeDay}, {"csv", kCsv}},
      kConstant)) {
    case kSine:
      return ReadSine(table);
    case kOfficeDay:
      return ReadOfficeDay(table);
    case kCsv:
      return ReadCsv(table);
    default:
      table.AllowOnly({"kind"});
      return {};
  }
}

void ReadChange(const Section& section, Model& model) {
  model.profile = ReadProfile(section);
  model.noise.amplitude = section.Millionths("noise", 0, 1, 0);
  model.noise.seed = static_cast<std::uint64_t>(
      section.Number("seed", 0, std::numeric_limits<std::int64_t>::max(), 0));
  model.noise.interval =
      std::chrono::seconds(section.Number("noise_interval", 1, kLongestPeriod.count(), 60));
  for (const std::string_view key : {"profile", "noise"}) {
    if (model.measured_milliwatts && section.Has(key)) {
      section.Reject("usage",
                     "a 'usage' that is measured does not go with a '" + std::string(key) + "'");
    }
  }
}

// FitUnits sees to it that the greatest power at any time fits into 16 bits of units.
void FitUnits(const Section& section, Model& model) {
  const std::int64_t nominal = *std::ranges::max_element(model.milliwatts);
  const std::int64_t greatest =
      Scaled(nominal, Scaled(model.profile.greatest(), kOne + model.noise.amplitude));
  const std::int8_t fitting = CommonUnits({&greatest, 1});
  const std::string at_most = " with the profile and the noise at their greatest, is more than ";
  if (section.Has("watts")) {
    if (fitting > kCoarsestUnits) section.Reject("watts", "the power," + at_most + "65535 MW");
    model.units = fitting;
  } else if (fitting > model.units) {
    section.Reject("usage_vector", "the usage," + at_most + "65535: choose larger units");
  }
}

void ReadPower(const Section& section, Model& model) {
  if (section.Has("watts")) {
    ReadWatts(section, model);
  } else {
    ReadUsages(section, model);
  }
  ReadChange(section, model);
  FitUnits(section, model);
  model.caliber = section.Word("caliber",
                               {{"max", CV_CORVANE_USAGE_CALIBER_MAX},
                                {"presumed", CV_CORVANE_USAGE_CALIBER_PRESUMED},
                                {"unknown", CV_CORVANE_USAGE_CALIBER_UNKNOWN},
                                {"actual", CV_CORVANE_USAGE_CALIBER_ACTUAL},
                                {"trusted", CV_CORVANE_USAGE_CALIBER_TRUSTED}},
                               CV_CORVANE_USAGE_CALIBER_PRESUMED);
  model.category = section.Word("category",
                                {{"consumer", CV_CORVANE_USAGE_CONSUMER},
                                 {"producer", CV_CORVANE_USAGE_PRODUCER},
                                 {"meter", CV_CORVANE_USAGE_METER}},
                                CV_CORVANE_USAGE_CONSUMER);
}

// --- what else devices have ---

std::optional<Recurrence> ReadRecurrence(const Section& section) {
  const std::optional<Section> table = section.Table("recurrence");
  if (!table) return std::nullopt;
  table->AllowOnly({"text", "byte1", "byte2", "flag"});
  Recurrence recurrence;
  // The stars of a calendar expression are no letters of names.
  recurrence.text = table->AnyText("text");
  if (!IsSettableRecurrence(recurrence)) {
    table->Reject("text", "'text' must have at most 255 characters and no control characters");
  }
  recurrence.byte1 = static_cast<std::uint8_t>(table->Number("byte1", 0, 255, 0));
  recurrence.byte2 = static_cast<std::uint8_t>(table->Number("byte2", 0, 255, 0));
  recurrence.flag = table->Flag("flag", false) ? 1 : 0;
  return recurrence;
}

std::vector<NeighborDescription> ReadNeighbors(const Section& section) {
  std::vector<NeighborDescription> neighbors;
  for (const Section& table : section.Tables("neighbors")) {
    table.AllowOnly({"id", "label", "address", "reachable"});
    NeighborDescription neighbor;
    neighbor.id = table.Id("id");
    neighbor.label = table.Text("label", "");
    if (const std::optional<sockaddr_in> address = table.Address("address")) {
      neighbor.data.assign(reinterpret_cast<const char*>(&*address), sizeof *address);
    }
    neighbor.flag = table.Flag("reachable", true) ? 1 : 0;
    neighbors.push_back(std::move(neighbor));
  }
  return neighbors;
}

// ReadModel reads everything but the name.
Model ReadModel(const Section& section, const NodeDescription& node) {
  Model model;
  model.domain = section.Text("domain", node.domain);
  model.role = section.Text("role");
  model.keywords = section.Keywords("keywords");
  model.address = section.Address("address");
  model.entity_type = section.Word("entity_type",
                                   {{"none", CV_ENTITY_TYPE_NONE},
                                    {"local", CV_ENTITY_TYPE_LOCAL},
                                    {"remote", CV_ENTITY_TYPE_REMOTE},
                                    {"corvane", CV_ENTITY_TYPE_CORVANE},
                                    {"admin-off", CV_ENTITY_TYPE_ADMIN_OFF},
                                    {"non-poe", CV_ENTITY_TYPE_NON_POE}},
                                   CV_ENTITY_TYPE_LOCAL);
  model.recurrence = ReadRecurrence(section);
  model.error_text = section.OptionalText("error");
  model.text_21 = section.OptionalText("text_21");
  if (section.Has("nanny_vector")) {
    model.nanny_vector = static_cast<std::uint32_t>(
        section.Number("nanny_vector", 0, std::numeric_limits<std::uint32_t>::max()));
  }
  model.neighbors = ReadNeighbors(section);
  ReadPower(section, model);
  return model;
}

// EntityOf is an entity as it begins.
Fleet::Entity EntityOf(const Section& section, std::uint32_t model) {
  Fleet::Entity entity;
  entity.model = model;
  entity.level = static_cast<std::uint8_t>(section.Number("level", 0, kLevels - 1, entity.level));
  entity.importance =
      static_cast<std::uint8_t>(section.Number("importance", 0, 255, entity.importance));
  return entity;
}

DeviceIdText IdFrom(std::string_view text) {
  DeviceIdText id{};
  std::copy_n(text.begin(), std::min(text.size(), id.size()), id.begin());
  return id;
}

// --- groups ---

Pattern ReadPattern(const Section& section, std::string_view key) {
  std::optional<Pattern> pattern = Pattern::Parse(section.Text(key));
  if (!pattern) {
    section.Reject(key, "'" + std::string(key) +
                            "' may have {n} and {e} in braces, and a width behind a colon such as "
                            "{n:04}, only");
  }
  return *std::move(pattern);
}

// GroupIds gives the devices of a group their identities: those of a pattern or, without one,
// identities that the node's own, the name pattern and the number determine, so that they stay what
// they are however the rest of the file changes.
class GroupIds {
 public:
  GroupIds(const Section& section, const NodeDescription& node, const Pattern& name,
           std::uint32_t last)
      : node_(node.id), name_(name.text()) {
    if (!section.Has("id")) return;
    pattern_ = ReadPattern(section, "id");
    if (pattern_->HasEntity()) section.Reject("id", "entities share the identity of their device");
    if (!pattern_->FillTo(kIdLength, last)) {
      section.Reject("id", "'id' must have a {n}, and no more than 32 characters with " +
                               std::to_string(last) + " in its place");
    }
  }

  DeviceIdText Of(std::uint32_t number) const {
    return pattern_ ? Written(number) : DerivedId(node_, name_ + '\0' + std::to_string(number));
  }

 private:
  DeviceIdText Written(std::uint32_t number) const {
    std::string text;
    pattern_->Write(number, 1, text);
    return IdFrom(text);
  }

  std::string node_;
  std::string name_;
  std::optional<Pattern> pattern_;
};

// --- the file ---

toml::table Parse(const std::string& path) {
  try {
    return toml::parse_file(path);
  } catch (const toml::parse_error& error) {
    const toml::source_position place = error.source().begin;
    throw FleetError(path, place.line, place.column, std::string(error.description()));
  }
}

// FleetReader puts the fleet together, and remembers which table each entity came from.
class FleetReader {
 public:
  FleetReader(const Section& top, const HostProbe& probe) : top_(top), probe_(probe) {}

  FleetFile Read() {
    top_.AllowOnly({"node", "device", "group", "host", "fault"});
    const std::optional<Section> node = top_.Table("node");
    if (!node) top_.Reject("a table [node] is missing");
    fleet_.node = ReadNode(*node);
    FleetFile file;
    if (node->Has("state")) file.state = Beside(node->path(), node->AnyText("state"));

    if (node->Has("replay_window")) {
      file.replay_window =
          std::chrono::seconds(node->Number("replay_window", 1, kLongestReplayWindow.count()));
    }

    for (const Section& section : top_.Tables("device")) ReadDevice(section);
    for (const Section& section : top_.Tables("group")) ReadGroup(section);
    if (const std::optional<Section> host = top_.Table("host")) {
      file.host = ReadHost(*host, fleet_.node);
      if (probe_) file.host_entities = AddHost(fleet_, *file.host, probe_(*file.host));
      parts_.push_back({*host, fleet_.entity_count()});
    }
    if (fleet_.entity_count() == 0 && !file.host) {
      top_.Reject("device", "there must be one table [[device]], [[group]] or [host] at least");
    }
    if (const std::optional<std::uint32_t> doubled = fleet_.Finish()) RejectDoubled(*doubled);
    file.faults = ReadFaults(top_, fleet_, !file.host);
    file.fleet = std::move(fleet_);
    return file;
  }

 private:
  // Part is the entities that came from one table.
  struct Part {
    Section section;
    std::size_t end;
  };

  void ReadDevice(const Section& section) {
    section.AllowOnly({"id", "entity", VT_NODE_MODEL_KEYS});
    const DeviceIdText id = IdFrom(section.Id("id"));
    Model model = ReadModel(section, fleet_.node);
    model.name = Pattern::Plain(section.Text("name"));
    Fleet::Entity entity = EntityOf(section, fleet_.AddModel(std::move(model)));
    // Entity 0 stands for a device as a whole.
    entity.number = static_cast<std::uint32_t>(
        section.Number("entity", 1, std::numeric_limits<std::uint32_t>::max(), 1));
    fleet_.AddEntity(id, 1, entity);
    parts_.push_back({section, fleet_.entity_count()});
  }

  void ReadGroup(const Section& section) {
    section.AllowOnly({"id", "count", "first", "entities", VT_NODE_MODEL_KEYS});
    const auto count = static_cast<std::uint32_t>(section.Number("count", 1, kMostDevices));
    const auto first = static_cast<std::uint32_t>(section.Number("first", 0, kMostDevices, 1));
    const auto entities =
        static_cast<std::uint32_t>(section.Number("entities", 1, kMostEntities, 1));
    if (fleet_.entity_count() + std::size_t{count} * entities > kMostDevices) {
      section.Reject("count", "the fleet has more than 1000000 entities");
    }
    Model model = ReadModel(section, fleet_.node);
    model.name = ReadName(section, first + count - 1, count, entities);
    const GroupIds ids(section, fleet_.node, model.name, first + count - 1);
    Fleet::Entity entity = EntityOf(section, fleet_.AddModel(std::move(model)));
    for (std::uint32_t n = first; n < first + count; ++n) {
      const DeviceIdText id = ids.Of(n);
      for (entity.number = 1; entity.number <= entities; ++entity.number) {
        fleet_.AddEntity(id, n, entity);
      }
    }
    parts_.push_back({section, fleet_.entity_count()});
  }

  static Pattern ReadName(const Section& section, std::uint32_t last, std::uint32_t count,
                          std::uint32_t entities) {
    Pattern name = ReadPattern(section, "name");
    if (count > 1 && !name.HasDevice()) {
      section.Reject("name", "'name' must have a {n} for the number of the device");
    }
    std::string longest;
    name.Write(last, entities, longest);
    if (longest.size() > kLongestText) {
      section.Reject("name", "'name' is longer than 255 characters with its numbers");
    }
    return name;
  }

  [[noreturn]] void RejectDoubled(std::uint32_t entity) const {
    const auto part = std::ranges::find_if(
        parts_, [entity](const Part& candidate) { return entity < candidate.end; });
    part->section.Reject("id",
                         part->section.Has("count")
                             ? "a device of this group has the id and the entity of an earlier one"
                             : "this device has the id and the entity of an earlier one");
  }

  const Section& top_;
  const HostProbe& probe_;
  Fleet fleet_;
  std::vector<Part> parts_;
};

std::string Placed(const std::string& path, std::uint32_t line, std::uint32_t column,
                   const std::string& message) {
  if (line == 0) return path + ": " + message;
  return path + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message;
}

}  // namespace

FleetError::FleetError(const std::string& path, std::uint32_t line, std::uint32_t column,
                       const std::string& message)
    : std::runtime_error(Placed(path, line, column, message)), line_(line), column_(column) {}

FleetFile LoadFleet(const std::string& path, const HostProbe& probe) {
  const toml::table table = Parse(path);
  return FleetReader(Section(table, path), probe).Read();
}

}  // namespace vt::node
