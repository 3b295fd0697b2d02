#include "tools/options.h"

#include <CLI/CLI.hpp>
#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iostream>

#include "recording/attribute_lines.h"
#include "tools/exit_code.h"

namespace vt::tools {
namespace {

constexpr std::size_t kIdentityLength = 36;
constexpr std::size_t kDeviceIdLength = 32;

// What the command line says, word for word.
struct RawOptions {
  std::string node;
  std::optional<unsigned> port;
  std::string domain;
  std::string key_file;
  std::string identity;
  unsigned priority = 100;
  unsigned timeout = 6;
  std::string log_level = "warn";
  std::string format = "table";
  std::vector<std::string> names, roles, keywords, ids, categories;
  std::vector<std::string> attributes, listed_attributes;
  std::vector<std::string> assignments;
  std::string output_file;
  bool anonymize = false;
};

constexpr const char* kExitCodeHelp =
    "Exit codes: 0 devices answered; 1 nothing answered; 2 wrong usage; 3 no connection to the\n"
    "node; 4 incomplete, by the time-out or a read error; 5 internal failure.\n";

constexpr const char* kEnvironmentHelp =
    "Environment: VOLTARIS_NODE, VOLTARIS_DOMAIN and VOLTARIS_KEY_FILE stand in for --node, "
    "--domain\n"
    "and --key-file. NO_COLOR switches colours off.\n";

constexpr const char* kSelectionHelp =
    "Without --name, --role, --keyword and --id every device of the domain is meant. Options of\n"
    "different kinds must all hold, of the same kind one. Names and roles may end in a star.\n"
    "Devices obey queries whose priority is not below their importance.\n";

std::string GeneralFooter() {
  return "Examples:\n"
         "  voltaris collect\n"
         "  voltaris set --role lamp level=3\n"
         "  voltaris sum --role lamp\n"
         "  voltaris record -o office.recording\n"
         "  voltaris --node 192.0.2.7:7440 --domain office --key-file ~/office.key collect\n\n" +
         std::string(kExitCodeHelp) + "\n" + kEnvironmentHelp;
}

std::string CollectFooter() {
  return "Examples:\n"
         "  voltaris collect\n"
         "  voltaris collect name role keywords --keyword floor2\n"
         "  voltaris collect -a usage,usage-vector --name 'lamp*' -o json\n\n"
         "Attributes:\n" +
         AttributeHelp() + "\n" + kSelectionHelp + "\n" + kExitCodeHelp + "\n" + kEnvironmentHelp;
}

std::string SetFooter() {
  return "Examples:\n"
         "  voltaris set --role lamp level=3\n"
         "  voltaris set --name printer-2 name=printer-west importance=40\n\n"
         "Attributes that can be set: name, role, keywords, level, importance.\n\n" +
         std::string(kSelectionHelp) + "\n" + kExitCodeHelp + "\n" + kEnvironmentHelp;
}

std::string SumFooter() {
  return "Examples:\n"
         "  voltaris sum --role lamp\n"
         "  voltaris sum -a usage,delta-vector -o json\n\n"
         "Attributes: usage (the default), delta-vector.\n\n" +
         std::string(kSelectionHelp) + "\n" + kExitCodeHelp + "\n" + kEnvironmentHelp;
}

std::string RecordableWords() {
  std::string words;
  for (const recording::AttributeLines& row : recording::RecordableAttributes()) {
    // In lines of a width that terminals have.
    constexpr std::size_t width = 90;
    const std::size_t line = words.size() - (words.rfind('\n') + 1);
    if (!words.empty()) words += line + row.word().size() > width ? ",\n  " : ", ";
    if (words.empty()) words = "  ";
    words += row.word();
  }
  return words + '\n';
}

std::string RecordFooter() {
  return "Examples:\n"
         "  voltaris record -o office.recording\n"
         "  voltaris record name usage level -n 192.0.2.7 -d office --role lamp -o "
         "lamps.recording\n"
         "  voltaris record --anonymize -o for-the-bug-report.recording\n"
         "  voltaris-node --replay office.recording      answers as the recorded devices did\n\n"
         "A recording is text, one value a line. It is written when the answer is complete, or "
         "not\n"
         "at all. Without --output it goes to standard output.\n\n"
         "--anonymize replaces identities by digests under a key that is made for this one\n"
         "recording and forgotten, and the domain, names, roles, keywords, labels, other texts "
         "and\n"
         "addresses by counted stand-ins; equal ones stay equal. Numbers stay.\n\n"
         "Attributes:\n" +
         RecordableWords() + "\n" + kSelectionHelp + "\n" + kExitCodeHelp + "\n" + kEnvironmentHelp;
}

void AddCommonOptions(CLI::App& app, RawOptions& raw) {
  app.add_option("-n,--node", raw.node, "node to ask, IPv4 (default 127.0.0.1:7440)")
      ->type_name("HOST[:PORT]");
  app.add_option("--port", raw.port, "TCP port of the node, instead of :PORT")->type_name("PORT");
  app.add_option("-d,--domain", raw.domain, "domain of the devices (default: default)")
      ->type_name("TEXT");
  app.add_option("-p,--priority", raw.priority, "priority, 0 to 255 (default 100)")
      ->type_name("N")
      ->check(CLI::Range(0, 255));
  app.add_option("-k,--key-file", raw.key_file,
                 "file with the key: 20 raw bytes or 40 hexadecimal digits")
      ->type_name("FILE");
  app.add_option("--identity", raw.identity,
                 "36 characters that name the sender (default: made afresh)")
      ->type_name("TEXT");
  app.add_option("-t,--timeout", raw.timeout,
                 "seconds that devices may take, 1 to 180 (default 6); voltaris waits 2 more")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 180));
  app.add_option("--log-level", raw.log_level,
                 "lines of the library on standard error: trace, debug, info, warn (default), "
                 "error, fatal, off")
      ->type_name("LEVEL");
}

void AddSelection(CLI::App& app, RawOptions& raw) {
  app.add_option("--name", raw.names, "devices of this name; repeatable")
      ->type_name("TEXT")
      ->expected(1)
      ->allow_extra_args(false)
      ->take_all();
  app.add_option("--role", raw.roles, "devices of this role; repeatable")
      ->type_name("TEXT")
      ->expected(1)
      ->allow_extra_args(false)
      ->take_all();
  app.add_option("--keyword", raw.keywords, "devices with this keyword; repeatable")
      ->type_name("TEXT")
      ->expected(1)
      ->allow_extra_args(false)
      ->take_all();
  app.add_option("--id", raw.ids, "the device of this identity, 32 characters; repeatable")
      ->type_name("ID")
      ->expected(1)
      ->allow_extra_args(false)
      ->take_all();
  app.add_option("--category", raw.categories,
                 "consumer, producer, meter or any; repeatable (default: collect any, otherwise "
                 "consumer)")
      ->type_name("WORD")
      ->expected(1)
      ->allow_extra_args(false)
      ->take_all();
}

void AddOutput(CLI::App& app, RawOptions& raw) {
  app.add_option("-o,--output", raw.format, "table (default), json or csv")->type_name("FORMAT");
}

void AddAttributes(CLI::App& app, RawOptions& raw, const std::string& defaults) {
  app.add_option("attribute", raw.attributes, "attributes to show (default: " + defaults + ")");
  app.add_option("-a,--attribute", raw.listed_attributes, "the same; repeatable, or with commas")
      ->type_name("NAME")
      ->delimiter(',')
      ->expected(1)
      ->allow_extra_args(false)
      ->take_all();
}

void AddRecordOptions(CLI::App& app, RawOptions& raw) {
  AddAttributes(app, raw, "all that a device can have");
  app.add_option("-o,--output", raw.output_file, "where to write it (default: standard output)")
      ->type_name("FILE");
  app.add_flag("--anonymize", raw.anonymize, "leave out whose devices they are, see below");
}

unsigned ParseNumber(const std::string& text, unsigned limit, const std::string& what) {
  unsigned value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end || value > limit) {
    throw Failure(kExitUsage, what + " must be a number from 0 to " + std::to_string(limit) +
                                  ", not '" + text + "'");
  }
  return value;
}

std::string FromEnvironment(const char* variable) {
  const char* value = std::getenv(variable);
  return value == nullptr ? "" : value;
}

const std::string& Either(const std::string& first, const std::string& second) {
  return first.empty() ? second : first;
}

void ResolveNode(const RawOptions& raw, Options& options) {
  const std::string environment = FromEnvironment("VOLTARIS_NODE");
  std::string node = Either(raw.node, environment);
  if (const std::size_t colon = node.rfind(':'); colon != std::string::npos) {
    options.port =
        static_cast<std::uint16_t>(ParseNumber(node.substr(colon + 1), 65535, "the port"));
    node.resize(colon);
  }
  if (!node.empty()) options.host = node;
  if (raw.port) {
    options.port =
        static_cast<std::uint16_t>(ParseNumber(std::to_string(*raw.port), 65535, "the port"));
  }
  in_addr address{};
  if (inet_pton(AF_INET, options.host.c_str(), &address) != 1) {
    throw Failure(kExitUsage,
                  "the node must be an IPv4 address such as 127.0.0.1, not '" + options.host + "'");
  }
}

std::uint32_t ParseLogLevel(const std::string& word) {
  constexpr std::array<std::string_view, 7> words = {"trace", "debug", "info", "warn",
                                                     "error", "fatal", "off"};
  const auto found = std::ranges::find(words, word);
  if (found == words.end()) throw Failure(kExitUsage, "there is no log level '" + word + "'");
  return static_cast<std::uint32_t>(found - words.begin());
}

Format ParseFormat(const std::string& word) {
  if (word == "table") return Format::kTable;
  if (word == "json") return Format::kJson;
  if (word == "csv") return Format::kCsv;
  throw Failure(kExitUsage, "the output is table, json or csv, not '" + word + "'");
}

void CheckIds(const std::vector<std::string>& ids) {
  for (const std::string& id : ids) {
    if (id.size() == kDeviceIdLength) continue;
    throw Failure(kExitUsage, "an --id has " + std::to_string(kDeviceIdLength) +
                                  " characters, and '" + id + "' has " + std::to_string(id.size()));
  }
}

// CategoriesOf leaves the list empty for consumers alone, which is what devices assume.
std::vector<voltaris::Category> CategoriesOf(const RawOptions& raw, Command command) {
  std::vector<voltaris::Category> any = {voltaris::Category::kConsumer,
                                         voltaris::Category::kProducer, voltaris::Category::kMeter};
  std::vector<voltaris::Category> categories;
  for (const std::string& word : raw.categories) {
    if (word == "any") return any;
    if (word == "consumer") {
      categories.push_back(voltaris::Category::kConsumer);
    } else if (word == "producer") {
      categories.push_back(voltaris::Category::kProducer);
    } else if (word == "meter") {
      categories.push_back(voltaris::Category::kMeter);
    } else {
      throw Failure(kExitUsage,
                    "a category is consumer, producer, meter or any, not '" + word + "'");
    }
  }
  const bool reads = command == Command::kCollect || command == Command::kRecord;
  if (categories.empty() && reads) return any;
  return categories;
}

std::vector<std::string> DefaultAttributes(Command command) {
  if (command == Command::kSum) return {"usage"};
  return {"name", "usage", "level"};
}

void AddColumn(const Attribute& attribute, std::vector<const Attribute*>& columns) {
  if (std::ranges::find(columns, &attribute) == columns.end()) columns.push_back(&attribute);
}

void ResolveAttributes(const RawOptions& raw, Options& options) {
  std::vector<std::string> names = raw.attributes;
  names.insert(names.end(), raw.listed_attributes.begin(), raw.listed_attributes.end());
  if (names.empty()) names = DefaultAttributes(options.command);
  for (const std::string& name : names) {
    const Attribute& attribute = FindAttribute(name);
    if (options.command == Command::kSum && attribute.number != voltaris::usage.number &&
        attribute.number != voltaris::delta_vector.number) {
      throw Failure(kExitUsage,
                    "a sum can be had of usage and of delta-vector, not of '" + name + "'");
    }
    AddColumn(attribute, options.attributes);
  }
}

void ResolveRecorded(const RawOptions& raw, Options& options) {
  std::vector<std::string> names = raw.attributes;
  names.insert(names.end(), raw.listed_attributes.begin(), raw.listed_attributes.end());
  for (const std::string& name : names) {
    if (recording::FindRecordable(name) != nullptr) continue;
    throw Failure(kExitUsage, "there is no attribute '" + name +
                                  "' that could be recorded; there are\n" + RecordableWords());
  }
  for (const recording::AttributeLines& row : recording::RecordableAttributes()) {
    const bool wanted = names.empty() || std::ranges::find(names, row.word()) != names.end();
    if (wanted) options.recorded.push_back(row.number);
  }
  if (!raw.output_file.empty()) options.output_file = raw.output_file;
  options.anonymize = raw.anonymize;
}

Assignment ParseAssignment(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw Failure(kExitUsage, "'" + text + "' is not of the form attribute=value");
  }
  const Attribute& attribute = FindAttribute(text.substr(0, equals));
  if (!attribute.settable) {
    throw Failure(kExitUsage,
                  "the attribute '" + std::string(attribute.name) + "' cannot be set, only read");
  }
  return {&attribute, text.substr(equals + 1)};
}

void ResolveAssignments(const RawOptions& raw, Options& options) {
  for (const std::string& text : raw.assignments) {
    const Assignment assignment = ParseAssignment(text);
    for (const Assignment& earlier : options.assignments) {
      if (earlier.attribute != assignment.attribute) continue;
      throw Failure(kExitUsage,
                    "'" + std::string(assignment.attribute->name) + "' is set more than once");
    }
    options.assignments.push_back(assignment);
  }
}

Options Resolve(const RawOptions& raw, Command command) {
  Options options;
  options.command = command;
  ResolveNode(raw, options);
  const std::string domain = Either(raw.domain, FromEnvironment("VOLTARIS_DOMAIN"));
  if (!domain.empty()) options.domain = domain;
  const std::string key_file = Either(raw.key_file, FromEnvironment("VOLTARIS_KEY_FILE"));
  if (!key_file.empty()) options.key_file = key_file;
  if (!raw.identity.empty()) {
    if (raw.identity.size() != kIdentityLength) {
      throw Failure(kExitUsage, "the identity must have 36 characters, and has " +
                                    std::to_string(raw.identity.size()));
    }
    options.identity = raw.identity;
  }
  options.priority = static_cast<std::uint8_t>(raw.priority);
  options.timeout_seconds = static_cast<std::uint8_t>(raw.timeout);
  options.log_level = ParseLogLevel(raw.log_level);
  options.format = ParseFormat(raw.format);
  CheckIds(raw.ids);
  options.names = raw.names;
  options.roles = raw.roles;
  options.keywords = raw.keywords;
  options.ids = raw.ids;
  options.categories = CategoriesOf(raw, command);
  if (command == Command::kSet) {
    ResolveAssignments(raw, options);
  } else if (command == Command::kRecord) {
    ResolveRecorded(raw, options);
  } else {
    ResolveAttributes(raw, options);
  }
  return options;
}

}  // namespace

std::string CommandName(Command command) {
  switch (command) {
    case Command::kCollect:
      return "collect";
    case Command::kSet:
      return "set";
    case Command::kSum:
      return "sum";
    case Command::kRecord:
      return "record";
  }
  return "";
}

std::optional<Options> ParseOptions(int argc, const char* const* argv) {
  RawOptions raw;
  CLI::App app("Queries and configures the devices of a power-management network.", "voltaris");
  app.set_version_flag("--version", std::string("voltaris, libvtapi ").append(voltaris::version()));
  app.footer(GeneralFooter());
  app.require_subcommand(1);
  AddCommonOptions(app, raw);

  CLI::App* collect = app.add_subcommand("collect", "Reads attributes of devices.");
  collect->footer(CollectFooter());
  AddAttributes(*collect, raw, "name usage level");
  CLI::App* set =
      app.add_subcommand("set", "Sets attributes of devices and shows what came of it.");
  set->footer(SetFooter());
  set->add_option("assignment", raw.assignments, "what to set")
      ->type_name("ATTRIBUTE=VALUE")
      ->required();
  CLI::App* sum = app.add_subcommand("sum", "Sums up the usage of devices.");
  sum->footer(SumFooter());
  AddAttributes(*sum, raw, "usage");
  CLI::App* record =
      app.add_subcommand("record", "Records devices, for voltaris-node to answer as they did.");
  record->footer(RecordFooter());
  AddRecordOptions(*record, raw);
  for (CLI::App* command : {collect, set, sum, record}) {
    AddCommonOptions(*command, raw);
    AddSelection(*command, raw);
  }
  for (CLI::App* command : {collect, set, sum}) AddOutput(*command, raw);

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    app.exit(done);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    throw Failure(kExitUsage, std::string(error.what()) + "; see voltaris --help");
  }
  if (set->parsed()) return Resolve(raw, Command::kSet);
  if (record->parsed()) return Resolve(raw, Command::kRecord);
  return Resolve(raw, sum->parsed() ? Command::kSum : Command::kCollect);
}

}  // namespace vt::tools
