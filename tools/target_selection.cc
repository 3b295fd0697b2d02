#include "tools/target_selection.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "recording/quoted_text.h"
#include "tools/exit_code.h"
#include "tools/host_names.h"
#include "tools/target_file.h"

namespace vt::tools {
namespace {

// Place is a host with its port.
using Place = std::pair<std::string, std::uint16_t>;

class Selection {
 public:
  Selection(const Configuration& configuration, const std::string& home)
      : configuration_(configuration),
        preset_port_(static_cast<std::uint16_t>(configuration.Number("port"))),
        port_is_flag_(configuration.IsFromFlag("port")) {
    const std::optional<std::string> path = configuration.Text("targets");
    if (path) listed_ = ReadTargetFile(*path, home);
    for (const ListedTarget& listed : listed_) by_name_.emplace(listed.target.name, &listed);
  }

  std::vector<Target> Choose() {
    const SettingValue& nodes = configuration_.Get("node");
    if (IsForAllListed(nodes)) {
      for (const ListedTarget& listed : listed_) AddListed(listed);
    } else {
      for (const std::string& item : nodes.items) AddItem(item);
    }
    if (chosen_.empty()) throw Failure(kExitUsage, "no node is named, and no file lists one");
    return std::move(chosen_);
  }

 private:
  // The nodes of the file that a flag names are all meant where a file of settings names others.
  bool IsForAllListed(const SettingValue& nodes) const {
    const SettingValue& targets = configuration_.Get("targets");
    return !targets.items.empty() && RankOf(targets.origin) > RankOf(nodes.origin);
  }

  static int RankOf(const Origin& origin) {
    switch (origin.source) {
      case Origin::Source::kFlag:
        return 3;
      case Origin::Source::kVariable:
        return 2;
      case Origin::Source::kFile:
        return 1;
      case Origin::Source::kPreset:
        break;
    }
    return 0;
  }

  void AddItem(const std::string& item) {
    if (item.starts_with('@')) {
      AddMembers(std::string_view(item).substr(1));
      return;
    }
    for (const std::string& name : ExpandNames(item)) {
      const auto known = by_name_.find(name);
      if (known != by_name_.end()) {
        AddListed(*known->second);
      } else {
        AddName(name);
      }
    }
  }

  void AddMembers(std::string_view selector) {
    const std::size_t before = matched_;
    for (const ListedTarget& listed : listed_) {
      if (IsMember(listed, selector)) AddListed(listed);
    }
    if (matched_ != before) return;
    const std::string hint =
        configuration_.Text("targets")
            ? "; of the groups and labels of " + *configuration_.Text("targets") + " none matches"
            : "; groups and labels stand in the file that --targets names";
    throw Failure(kExitUsage, recording::Quote("@" + std::string(selector)) + " is no node" + hint);
  }

  static bool IsMember(const ListedTarget& listed, std::string_view selector) {
    const std::size_t equals = selector.find('=');
    if (equals == std::string_view::npos) {
      return std::ranges::find(listed.groups, selector) != listed.groups.end();
    }
    const auto matches = [&](const auto& label) {
      return label.first == selector.substr(0, equals) &&
             label.second == selector.substr(equals + 1);
    };
    return std::ranges::any_of(listed.target.labels, matches);
  }

  void AddListed(const ListedTarget& listed) {
    ++matched_;
    Target target = listed.target;
    if (!listed.port || port_is_flag_) target.port = preset_port_;
    if (configuration_.IsFromFlag("domain")) target.domain.reset();
    if (configuration_.IsFromFlag("priority")) target.priority.reset();
    if (configuration_.IsFromFlag("key-file")) target.key_file.reset();
    if (configuration_.IsFromFlag("id-file")) target.id_file.reset();
    AddOnce(std::move(target));
  }

  void AddName(const std::string& name) {
    const HostPort split = SplitPort(name);
    Target target;
    target.name = name;
    target.host = split.host;
    target.port = split.port.value_or(preset_port_);
    // Written with its port and without, it is one node.
    if (!places_.contains({target.host, target.port})) AddOnce(std::move(target));
  }

  void AddOnce(Target target) {
    const Place place = {target.host, target.port};
    const auto [same, is_new] = names_.emplace(NodeName(target), place);
    if (!is_new && same->second == place) return;
    if (!is_new) {
      throw Failure(kExitUsage, "two nodes with different addresses are called " +
                                    recording::Quote(NodeName(target)));
    }
    if (chosen_.size() >= kMostNames) {
      throw Failure(kExitUsage, "more than " + std::to_string(kMostNames) + " nodes are named");
    }
    places_.insert(place);
    chosen_.push_back(std::move(target));
  }

  const Configuration& configuration_;
  std::uint16_t preset_port_;
  bool port_is_flag_;
  std::vector<ListedTarget> listed_;
  std::map<std::string, const ListedTarget*, std::less<>> by_name_;
  std::map<std::string, Place> names_;  // as outputs have them, by which nodes are told apart
  std::set<Place> places_;
  std::vector<Target> chosen_;
  std::size_t matched_ = 0;
};

}  // namespace

std::vector<Target> SelectTargets(const Configuration& configuration, const std::string& home) {
  return Selection(configuration, home).Choose();
}

}  // namespace vt::tools
