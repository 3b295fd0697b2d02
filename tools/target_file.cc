#include "tools/target_file.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "recording/quoted_text.h"
#include "tools/exit_code.h"
#include "tools/host_names.h"
#include "tools/toml_file.h"

namespace vt::tools {
namespace {

using Labels = std::vector<std::pair<std::string, std::string>>;

// Details is what a table tells of its nodes.
struct Details {
  std::optional<std::uint16_t> port;
  std::optional<std::string> domain;
  std::optional<std::uint8_t> priority;
  std::optional<std::string> key_file;
  std::optional<std::string> id_file;
  Labels labels;
};

template <class T>
void FillIn(std::optional<T>& value, const std::optional<T>& other) {
  if (!value) value = other;
}

// AddLabels adds those whose names are not there yet.
void AddLabels(Labels& labels, const Labels& more) {
  for (const auto& label : more) {
    const auto same = [&label](const auto& other) { return other.first == label.first; };
    if (std::ranges::none_of(labels, same)) labels.push_back(label);
  }
}

// FillIn adds to a node what it does not tell itself.
void FillIn(ListedTarget& listed, const Details& details) {
  Target& target = listed.target;
  FillIn(listed.port, details.port);
  FillIn(target.domain, details.domain);
  FillIn(target.priority, details.priority);
  FillIn(target.key_file, details.key_file);
  FillIn(target.id_file, details.id_file);
  AddLabels(target.labels, details.labels);
}

class TargetFileReader {
 public:
  TargetFileReader(const std::string& path, std::string home, Faults& faults)
      : file_(path, faults), home_(std::move(home)) {}

  std::vector<ListedTarget> Read() {
    file_.AllowOnly(file_.top(), {"defaults", "groups", "target"});
    if (const toml::table* table = TableAt(file_.top(), "defaults")) {
      AllowDetailsAnd(*table, {});
      defaults_ = ReadDetails(*table);
    }
    ReadTargets();
    ReadGroups();
    // Last of all, for every group says more of its nodes.
    for (ListedTarget& listed : targets_) {
      FillIn(listed, defaults_);
      if (listed.port) listed.target.port = *listed.port;
    }
    return std::move(targets_);
  }

 private:
  const toml::table* TableAt(const toml::table& table, std::string_view key) const {
    const toml::node* node = table.get(key);
    if (node == nullptr) return nullptr;
    if (const toml::table* found = node->as_table()) return found;
    file_.Report(*node, "'" + std::string(key) + "' must be a table");
    return nullptr;
  }

  void AllowDetailsAnd(const toml::table& table, const std::vector<std::string_view>& more) const {
    std::vector<std::string_view> keys = {"port",     "domain",  "priority",
                                          "key-file", "id-file", "labels"};
    keys.insert(keys.end(), more.begin(), more.end());
    file_.AllowOnly(table, keys);
  }

  Details ReadDetails(const toml::table& table) const {
    Details details;
    if (const auto port = file_.Number(table, "port", 1, 65535)) {
      details.port = static_cast<std::uint16_t>(*port);
    }
    if (const auto priority = file_.Number(table, "priority", 0, 255)) {
      details.priority = static_cast<std::uint8_t>(*priority);
    }
    details.domain = file_.Text(table, "domain");
    details.key_file = PathAt(table, "key-file");
    details.id_file = PathAt(table, "id-file");
    if (const toml::table* labels = TableAt(table, "labels")) {
      for (const auto& [key, value] : *labels) {
        const auto text = file_.Text(*labels, key.str());
        if (text) details.labels.emplace_back(key.str(), *text);
      }
    }
    return details;
  }

  std::optional<std::string> PathAt(const toml::table& table, std::string_view key) const {
    const std::optional<std::string> path = file_.Text(table, key);
    if (!path) return std::nullopt;
    return file_.PathFrom(*path, home_);
  }

  // The tables of single nodes come first: they are told by themselves, whatever groups they are
  // in.
  void ReadTargets() {
    const toml::node* node = file_.top().get("target");
    if (node == nullptr) return;
    const toml::array* list = node->as_array();
    if (list == nullptr) {
      file_.Report(*node, "'target' must be a list of tables: [[target]]");
      return;
    }
    for (const toml::node& item : *list) {
      if (const toml::table* table = item.as_table()) {
        ReadTarget(*table);
      } else {
        file_.Report(item, "'target' must be a list of tables: [[target]]");
      }
    }
  }

  void ReadTarget(const toml::table& table) {
    AllowDetailsAnd(table, {"name", "host", "groups"});
    const std::optional<std::string> name = file_.Text(table, "name");
    const std::optional<std::string> host = file_.Text(table, "host");
    if (!name) {
      if (!table.contains("name")) file_.Report(table, "'name' is missing");
      return;
    }
    if (places_.contains(*name)) {
      file_.Report(table, "there is a target " + recording::Quote(*name) + " already");
      return;
    }
    const Details details = ReadDetails(table);
    const toml::node& place = *table.get(host ? "host" : "name");
    if (!Add(place, *name, host.value_or(*name), details)) return;
    targets_.back().groups = file_.Texts(table, "groups").value_or(std::vector<std::string>());
  }

  void ReadGroups() {
    const toml::table* groups = TableAt(file_.top(), "groups");
    if (groups == nullptr) return;
    for (const auto& [key, node] : *groups) {
      if (const toml::table* group = node.as_table()) {
        ReadGroup(std::string(key.str()), *group);
      } else {
        file_.Report(node, "a group must be a table, such as [groups.racks]");
      }
    }
  }

  void ReadGroup(const std::string& group, const toml::table& table) {
    AllowDetailsAnd(table, {"nodes"});
    const Details details = ReadDetails(table);
    for (ListedTarget& listed : targets_) {
      // Targets that name the group themselves have of it what they do not tell.
      if (std::ranges::find(listed.groups, group) == listed.groups.end()) continue;
      FillIn(listed, details);
    }
    const auto lists = file_.Texts(table, "nodes");
    if (!lists) return;
    for (const std::string& list : *lists) {
      for (const std::string& name : NamesOf(list, *table.get("nodes"))) {
        AddToGroup(*table.get("nodes"), group, name, details);
      }
    }
  }

  std::vector<std::string> NamesOf(const std::string& list, const toml::node& place) const {
    try {
      return ExpandNames(list);
    } catch (const Failure& failure) {
      file_.Report(place, failure.what());
      return {};
    }
  }

  void AddToGroup(const toml::node& place, const std::string& group, const std::string& name,
                  const Details& details) {
    const auto known = places_.find(name);
    if (known == places_.end()) {
      if (Add(place, name, name, details)) targets_.back().groups.push_back(group);
      return;
    }
    ListedTarget& listed = targets_[known->second];
    FillIn(listed, details);
    if (std::ranges::find(listed.groups, group) == listed.groups.end()) {
      listed.groups.push_back(group);
    }
  }

  bool Add(const toml::node& place, const std::string& name, const std::string& host,
           const Details& details) {
    if (targets_.size() >= kMostNames) {
      file_.Report(place, "there are more than " + std::to_string(kMostNames) + " nodes");
      return false;
    }
    try {
      const HostPort split = SplitPort(host);
      ListedTarget listed;
      listed.target.name = name;
      listed.target.host = split.host;
      listed.port = split.port;
      FillIn(listed, details);
      places_.emplace(name, targets_.size());
      targets_.push_back(std::move(listed));
      return true;
    } catch (const Failure& failure) {
      file_.Report(place, failure.what());
      return false;
    }
  }

  TomlFile file_;
  std::string home_;
  Details defaults_;
  std::vector<ListedTarget> targets_;
  std::map<std::string, std::size_t> places_;  // in targets_, by name
};

}  // namespace

std::vector<ListedTarget> ReadTargetFile(const std::string& path, const std::string& home) {
  Faults faults;
  std::vector<ListedTarget> targets = TargetFileReader(path, home, faults).Read();
  ThrowFaults(faults);
  return targets;
}

}  // namespace vt::tools
