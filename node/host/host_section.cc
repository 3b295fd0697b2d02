#include "node/host/host_section.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>

#include "vtapi.h"

#include "node/derived_id.h"
#include "node/options.h"

namespace vt::node {
namespace {

// The name that the system gives itself, if it can be a name here.
std::string SystemName() {
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0) return "host";
  return vtn_string_in_whitelist(name.data(), 1) != 0 ? std::string(name.data()) : "host";
}

DeviceIdText IdOf(const Section& section, const NodeDescription& node) {
  if (!section.Has("id")) return DerivedId(node.id, "host");
  DeviceIdText id{};
  std::ranges::copy(section.Id("id"), id.begin());
  return id;
}

std::optional<sockaddr_in> NutServer(const Section& section) {
  if (!section.Has("nut")) return LocalNutServer();
  if (section.Text("nut") == "off") return std::nullopt;
  const std::optional<sockaddr_in> server = ParseEndpoint(section.Text("nut"));
  if (!server) section.Reject("nut", "'nut' must be HOST:PORT with an IPv4 address, or off");
  return server;
}

Action ReadAction(const Section& section) {
  section.AllowOnly({"level", "command", "timeout"});
  constexpr std::int64_t longest = 60;
  Action action;
  action.level = static_cast<std::uint8_t>(section.Number("level", 0, kLevels - 1));
  action.command = section.AnyTexts("command");
  // No folder is searched: which program runs is for the operator to say.
  if (action.command.empty() || !action.command.front().starts_with('/')) {
    section.Reject("command", "'command' must begin with the absolute path of a program");
  }
  action.timeout = std::chrono::seconds(section.Number("timeout", 1, longest, 3));
  return action;
}

}  // namespace

HostDescription ReadHost(const Section& section, const NodeDescription& node) {
  section.AllowOnly({"id", "name", "role", "keywords", "domain", "importance", "root", "nut",
                     "interval", "action"});
  // Energy counters may wrap around in a minute.
  constexpr std::int64_t longest_interval = 30;
  HostDescription host;
  host.id = IdOf(section, node);
  host.name = section.Text("name", SystemName());
  host.role = section.Text("role", "host");
  host.keywords = section.Keywords("keywords");
  host.domain = section.Text("domain", node.domain);
  host.importance = static_cast<std::uint8_t>(section.Number("importance", 0, 255, 1));
  if (section.Has("root")) host.sensors.root = section.AnyText("root");
  host.sensors.nut = NutServer(section);
  host.interval = std::chrono::seconds(section.Number("interval", 1, longest_interval, 10));
  for (const Section& table : section.Tables("action")) {
    Action action = ReadAction(table);
    if (std::ranges::find(host.actions, action.level, &Action::level) != host.actions.end()) {
      table.Reject("level", "there is an action for this level already");
    }
    host.actions.push_back(std::move(action));
  }
  return host;
}

}  // namespace vt::node
