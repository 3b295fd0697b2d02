#include "tools/nodes_command.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tools/configuration.h"
#include "tools/json_text.h"
#include "tools/resolve.h"
#include "tools/setting_options.h"
#include "tools/target_selection.h"
#include "tools/text_table.h"

namespace vt::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kNodesHelp = R"(Examples:
  voltaris nodes -n 'pdu[01-40].lab,127.0.0.1:7441'
  voltaris nodes -N examples/targets.toml -n @racks -o json

Brackets hold numbers, ranges such as 1-40 or 1-40/2, and words; 01-40 keeps the
zeros. @GROUP and @LABEL=VALUE stand for nodes of the file that --targets names;
without --node all of its nodes are meant. Quote what the shell would take for a
pattern.

Exit codes: 0; 2 wrong usage or configuration; 3 --resolve, and no name was
found; 1 some were.
)";

// Asked is a node with what the settings say where the targets file does not.
struct Asked {
  Target target;
  std::optional<Resolution> resolution;
};

Asked Complete(Target target, const Configuration& configuration) {
  if (!target.domain) target.domain = configuration.Text("domain");
  if (!target.priority) {
    target.priority = static_cast<std::uint8_t>(configuration.Number("priority"));
  }
  if (!target.key_file) target.key_file = configuration.Text("key-file");
  if (!target.id_file) target.id_file = configuration.Text("id-file");
  return {std::move(target), std::nullopt};
}

void AddAddresses(std::vector<Asked>& nodes, const Configuration& configuration) {
  std::vector<std::string> hosts;
  hosts.reserve(nodes.size());
  for (const Asked& node : nodes) hosts.push_back(node.target.host);
  const auto wait = configuration.Wait("connect-timeout").value_or(std::chrono::milliseconds());
  const std::vector<Resolution> resolutions =
      Resolve(hosts, std::chrono::steady_clock::now() + wait);
  for (std::size_t i = 0; i < nodes.size(); ++i) nodes[i].resolution = resolutions[i];
}

std::string LabelList(const Target& target) {
  std::string list;
  for (const auto& [label, value] : target.labels) {
    list.append(list.empty() ? "" : ",").append(label).append("=").append(value);
  }
  return list;
}

void PrintForPeople(std::ostream& out, const std::vector<Asked>& nodes) {
  TextTable table;
  for (const char* heading : {"node", "host"}) table.AddColumn(heading);
  table.AddColumn("port", TextTable::Side::kRight);
  table.AddColumn("domain");
  table.AddColumn("priority", TextTable::Side::kRight);
  for (const char* heading : {"key file", "labels"}) table.AddColumn(heading);
  const bool resolved = nodes.front().resolution.has_value();
  if (resolved) table.AddColumn("address");
  for (const Asked& node : nodes) {
    const Target& target = node.target;
    std::vector<std::string> line = {target.name,
                                     target.host,
                                     std::to_string(target.port),
                                     target.domain.value_or(""),
                                     std::to_string(target.priority.value_or(0)),
                                     target.key_file.value_or(""),
                                     LabelList(target)};
    if (resolved) line.push_back(node.resolution->address);
    table.AddLine(line);
  }
  out << table.Text();
}

Json OrNull(const std::optional<std::string>& text) { return text ? Json(*text) : Json(nullptr); }

Json JsonOf(const Asked& node) {
  const Target& target = node.target;
  Json labels = Json::object();
  for (const auto& [label, value] : target.labels) labels[label] = value;
  Json members = {{"node", target.name},
                  {"host", target.host},
                  {"port", target.port},
                  {"domain", OrNull(target.domain)},
                  {"priority", target.priority.value_or(0)},
                  {"key_file", OrNull(target.key_file)},
                  {"id_file", OrNull(target.id_file)},
                  {"labels", std::move(labels)}};
  if (node.resolution) {
    const Resolution& resolution = *node.resolution;
    members["address"] = resolution.address.empty() ? Json(nullptr) : Json(resolution.address);
    if (!resolution.reason.empty()) members["reason"] = resolution.reason;
  }
  return members;
}

void PrintForPrograms(std::ostream& out, const std::vector<Asked>& nodes) {
  Json list = Json::array();
  for (const Asked& node : nodes) list.push_back(JsonOf(node));
  out << JsonDocument({{"schema", "voltaris-nodes-1"}, {"nodes", std::move(list)}});
}

// Report tells of the names that were not found.
ExitCode Report(const std::vector<Asked>& nodes, const Streams& streams) {
  std::size_t missing = 0;
  for (const Asked& node : nodes) {
    if (!node.resolution || node.resolution->reason.empty()) continue;
    ++missing;
    streams.complain(node.target.host + ": " + node.resolution->reason);
  }
  if (missing == 0) return kExitOk;
  return missing < nodes.size() ? kExitPartial : kExitNoConnection;
}

ExitCode Run(const ConfigurationSources& sources, bool resolve, const Streams& streams) {
  const Configuration configuration = Configuration::Load(sources);
  const std::string format = configuration.Text("output").value_or("");
  if (configuration.IsFromFlag("output") && format != "table" && format != "json") {
    throw Failure(kExitUsage, "nodes are listed as table or json, not as " + format);
  }
  std::vector<Asked> nodes;
  for (Target& target : SelectTargets(configuration, HomeOf(sources))) {
    nodes.push_back(Complete(std::move(target), configuration));
  }
  if (resolve) AddAddresses(nodes, configuration);
  if (format == "json") {
    PrintForPrograms(streams.out, nodes);
  } else {
    PrintForPeople(streams.out, nodes);
  }
  return Report(nodes, streams);
}

}  // namespace

void AddNodesCommand(CLI::App& app, Action& chosen) {
  CLI::App* nodes = app.add_subcommand("nodes", "Lists the nodes that would be asked.");
  nodes->footer(kNodesHelp);
  AddSettingOptions(*nodes);
  const auto resolve = std::make_shared<bool>(false);
  const std::string meaning =
      "look up the addresses of names, for as long as a connection may take";
  nodes->add_flag("--resolve", *resolve, meaning);
  nodes->callback([nodes, resolve, &chosen] {
    chosen = [sources = SourcesGiven(*nodes), resolve](const Streams& streams) {
      return Run(sources, *resolve, streams);
    };
  });
}

}  // namespace vt::tools
