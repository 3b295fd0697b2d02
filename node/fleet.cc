#include "node/fleet.h"

#include <toml++/toml.h>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <optional>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

#include "vtapi.h"

#include "node/options.h"
#include "node/power.h"

namespace vt::node {
namespace {

constexpr int kBlanksAllowed = 2;

// Section reads the members of one table and names the place of what is wrong with them.
class Section {
 public:
  Section(const toml::table& table, std::string path) : table_(table), path_(std::move(path)) {}

  void AllowOnly(std::initializer_list<std::string_view> keys) const {
    for (const auto& [key, value] : table_) {
      if (std::ranges::find(keys, key.str()) == keys.end()) {
        Reject(&value, "there is no setting '" + std::string(key.str()) + "' here");
      }
    }
  }

  bool Has(std::string_view key) const { return table_.contains(key); }

  std::string Text(std::string_view key) const {
    const toml::node* node = Find(key);
    const std::optional<std::string> text = node->value_exact<std::string>();
    if (!text) Reject(node, "'" + std::string(key) + "' must be a text");
    CheckText(node, key, *text);
    return *text;
  }

  std::string Text(std::string_view key, const std::string& fallback) const {
    return Has(key) ? Text(key) : fallback;
  }

  std::string Id(std::string_view key) const {
    std::string id = Text(key);
    if (id.size() != kIdLength) {
      Reject(table_.get(key), "'" + std::string(key) + "' must have 32 characters, and has " +
                                  std::to_string(id.size()));
    }
    return id;
  }

  // Keywords are a list of texts; a device keeps them with commas between.
  std::string Keywords(std::string_view key) const {
    if (!Has(key)) return {};
    const toml::node* node = Find(key);
    const toml::array* items = node->as_array();
    if (items == nullptr) Reject(node, "'" + std::string(key) + "' must be a list of texts");
    std::string joined;
    for (const toml::node& item : *items) {
      const std::optional<std::string> word = item.value_exact<std::string>();
      if (!word || word->find(',') != std::string::npos) {
        Reject(&item, "a keyword must be a text without a comma");
      }
      CheckText(&item, "keyword", *word);
      joined += (joined.empty() ? "" : ",") + *word;
    }
    if (joined.size() > kLongestText) Reject(node, "the keywords are longer than 255 characters");
    return joined;
  }

  template <typename T>
  T Number(std::string_view key, std::int64_t least, std::int64_t greatest) const {
    return static_cast<T>(NumberOf(Find(key), "'" + std::string(key) + "'", least, greatest));
  }

  template <typename T>
  T Number(std::string_view key, std::int64_t least, std::int64_t greatest, T fallback) const {
    return Has(key) ? Number<T>(key, least, greatest) : fallback;
  }

  std::array<std::uint16_t, kLevels> UsageVector(std::string_view key) const {
    const toml::node* node = Find(key);
    const toml::array* items = node->as_array();
    if (items == nullptr || items->size() != kLevels) {
      Reject(node, "'" + std::string(key) + "' must be a list of 11 numbers, for level 0 to 10");
    }
    std::array<std::uint16_t, kLevels> vector{};
    for (std::size_t i = 0; i < kLevels; ++i) {
      vector[i] = static_cast<std::uint16_t>(
          NumberOf(items->get(i), "a usage", 0, std::numeric_limits<std::uint16_t>::max()));
    }
    return vector;
  }

  // Word translates one of a few words.
  std::int32_t Word(std::string_view key,
                    std::initializer_list<std::pair<std::string_view, std::int32_t>> words,
                    std::int32_t fallback) const {
    if (!Has(key)) return fallback;
    const std::string text = Text(key);
    std::string all;
    for (const auto& [word, value] : words) {
      if (word == text) return value;
      all += (all.empty() ? "" : ", ") + std::string(word);
    }
    Reject(table_.get(key), "'" + std::string(key) + "' must be one of " + all);
  }

  std::optional<sockaddr_in> Address(std::string_view key) const {
    if (!Has(key)) return std::nullopt;
    const std::optional<sockaddr_in> address = ParseEndpoint(Text(key));
    if (!address) {
      Reject(table_.get(key), "'" + std::string(key) + "' must be HOST:PORT with an IPv4 address");
    }
    return address;
  }

  [[noreturn]] void Reject(const toml::node* node, const std::string& message) const {
    const toml::source_position place =
        node != nullptr ? node->source().begin : table_.source().begin;
    throw FleetError(path_ + ":" + std::to_string(place.line) + ": " + message);
  }

  const toml::table& table() const { return table_; }

 private:
  const toml::node* Find(std::string_view key) const {
    const toml::node* node = table_.get(key);
    if (node == nullptr) Reject(nullptr, "'" + std::string(key) + "' is missing");
    return node;
  }

  void CheckText(const toml::node* node, std::string_view key, const std::string& text) const {
    const std::string what = "'" + std::string(key) + "'";
    if (text.size() > kLongestText) Reject(node, what + " is longer than 255 characters");
    if (text.find('\0') != std::string::npos ||
        vtn_string_in_whitelist(text.c_str(), kBlanksAllowed) == 0) {
      Reject(node, what +
                       " must not be empty, and may have letters, digits, blanks and "
                       "~!@#$%^&()_-+={}[]\\:.,></ only");
    }
  }

  std::int64_t NumberOf(const toml::node* node, const std::string& what, std::int64_t least,
                        std::int64_t greatest) const {
    const std::optional<std::int64_t> number = node->value_exact<std::int64_t>();
    if (number && *number >= least && *number <= greatest) return *number;
    Reject(node, what + " must be a whole number from " + std::to_string(least) + " to " +
                     std::to_string(greatest));
  }

  const toml::table& table_;
  std::string path_;
};

NodeDescription ReadNode(const Section& section) {
  section.AllowOnly({"id", "domain", "name", "role", "keywords"});
  NodeDescription node;
  node.id = section.Id("id");
  node.domain = section.Text("domain", "default");
  node.name = section.Text("name", "node");
  node.role = section.Text("role", "node");
  node.keywords = section.Keywords("keywords");
  return node;
}

void ReadPower(const Section& section, Device& device) {
  device.units = section.Number<std::int8_t>("units", kLeastUnits, kGreatestUnits, 0);
  device.usage_vector = section.UsageVector("usage_vector");
  device.SetLevel(section.Number<std::uint8_t>("level", 0, kLevels - 1, device.level));
  // A measured usage may differ from what the level lets expect, until the level changes.
  device.usage = section.Number<std::uint16_t>(
      "usage", 0, std::numeric_limits<std::uint16_t>::max(), device.usage);
  device.caliber = section.Word("caliber",
                                {{"max", CV_CORVANE_USAGE_CALIBER_MAX},
                                 {"presumed", CV_CORVANE_USAGE_CALIBER_PRESUMED},
                                 {"unknown", CV_CORVANE_USAGE_CALIBER_UNKNOWN},
                                 {"actual", CV_CORVANE_USAGE_CALIBER_ACTUAL},
                                 {"trusted", CV_CORVANE_USAGE_CALIBER_TRUSTED}},
                                CV_CORVANE_USAGE_CALIBER_PRESUMED);
  device.category = section.Word("category",
                                 {{"consumer", CV_CORVANE_USAGE_CONSUMER},
                                  {"producer", CV_CORVANE_USAGE_PRODUCER},
                                  {"meter", CV_CORVANE_USAGE_METER}},
                                 CV_CORVANE_USAGE_CONSUMER);
}

Device ReadDevice(const Section& section, const NodeDescription& node) {
  section.AllowOnly({"id", "entity", "domain", "name", "role", "keywords", "importance", "level",
                     "units", "usage", "usage_vector", "caliber", "category", "address"});
  Device device;
  device.id = section.Id("id");
  // Entity 0 stands for a device as a whole.
  device.entity = section.Number<std::uint32_t>(
      "entity", 1, std::numeric_limits<std::uint32_t>::max(), device.entity);
  device.domain = section.Text("domain", node.domain);
  device.name = section.Text("name");
  device.role = section.Text("role");
  device.keywords = section.Keywords("keywords");
  device.importance = section.Number<std::uint8_t>("importance", 0, 255, device.importance);
  device.address = section.Address("address");
  ReadPower(section, device);
  return device;
}

toml::table Parse(const std::string& path) {
  try {
    return toml::parse_file(path);
  } catch (const toml::parse_error& error) {
    std::ostringstream text;
    text << path;
    if (error.source().begin.line > 0) text << ":" << error.source().begin.line;
    text << ": " << error.description();
    throw FleetError(text.str());
  }
}

const toml::table& NodeTable(const Section& top) {
  const toml::table* table = top.table()["node"].as_table();
  if (table == nullptr) top.Reject(top.table().get("node"), "a table [node] is missing");
  return *table;
}

void ReadDevices(const Section& top, const std::string& path, Fleet& fleet) {
  const toml::array* devices = top.table()["device"].as_array();
  if (devices == nullptr || devices->empty()) {
    top.Reject(top.table().get("device"), "there must be one table [[device]] at least");
  }
  std::set<std::pair<std::string, std::uint32_t>> seen;
  for (const toml::node& item : *devices) {
    const toml::table* table = item.as_table();
    if (table == nullptr) top.Reject(&item, "'device' must be written as [[device]]");
    const Section section(*table, path);
    Device device = ReadDevice(section, fleet.node);
    if (!seen.emplace(device.id, device.entity).second) {
      section.Reject(table, "this device has the id and the entity of an earlier one");
    }
    fleet.devices.push_back(std::move(device));
  }
}

}  // namespace

void Device::SetLevel(std::uint8_t new_level) {
  level = new_level;
  usage = usage_vector.at(new_level);
}

std::array<std::int32_t, kLevels> Device::DeltaVector() const {
  std::array<std::int32_t, kLevels> delta{};
  for (std::size_t i = 0; i < kLevels; ++i) {
    delta[i] = usage_vector[i] - usage;
  }
  return delta;
}

Fleet LoadFleet(const std::string& path) {
  const toml::table table = Parse(path);
  const Section top(table, path);
  top.AllowOnly({"node", "device"});
  Fleet fleet;
  fleet.node = ReadNode(Section(NodeTable(top), path));
  ReadDevices(top, path, fleet);
  return fleet;
}

}  // namespace vt::node
