#include "tools/options.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <utility>

#include "recording/attribute_lines.h"
#include "tools/command_line.h"
#include "tools/configuration.h"
#include "tools/exit_code.h"
#include "tools/help_texts.h"
#include "tools/live_options.h"
#include "tools/target_selection.h"

namespace vt::tools {
namespace {

template <typename T>
struct Word {
  std::string_view word;
  T value;
};

// WordOf is what the word of a setting means; Configuration has seen to it that it is one of them.
template <typename T, std::size_t size>
T WordOf(const Configuration& configuration, std::string_view setting,
         const std::array<Word<T>, size>& words) {
  const std::string text = configuration.Text(setting).value_or("");
  return std::ranges::find(words, text, &Word<T>::word)->value;
}

constexpr std::array kFormats = {
    Word<Format>{"table", Format::kTable}, Word<Format>{"json", Format::kJson},
    Word<Format>{"ndjson", Format::kNdjson}, Word<Format>{"csv", Format::kCsv},
    Word<Format>{"prom", Format::kProm}};
constexpr std::array kLogFormats = {Word<LogFormat>{"text", LogFormat::kText},
                                    Word<LogFormat>{"json", LogFormat::kJson}};
constexpr std::array kColorWhen = {Word<When>{"auto", When::kAuto},
                                   Word<When>{"always", When::kAlways},
                                   Word<When>{"never", When::kNever}};
constexpr std::array kProgressWhen = {Word<When>{"auto", When::kAuto},
                                      Word<When>{"never", When::kNever}};

void ResolveNodes(const Configuration& configuration, const std::string& home, Options& options) {
  options.targets = SelectTargets(configuration, home);
  options.domain = configuration.Text("domain").value_or("");
  options.key_file = configuration.Text("key-file");
  options.id_file = configuration.Text("id-file");
  options.priority = static_cast<std::uint8_t>(configuration.Number("priority"));
}

void ResolveLimits(const Configuration& configuration, Options& options) {
  options.connect_timeout = configuration.Wait("connect-timeout").value_or(options.connect_timeout);
  options.device_timeout = std::chrono::seconds(configuration.Number("device-timeout"));
  options.timeout = configuration.Wait("timeout").value_or(options.timeout);
  options.retries = static_cast<unsigned>(configuration.Number("retries"));
  options.fanout = static_cast<std::uint32_t>(configuration.Number("fanout"));
}

int VerbosityOf(const RawOptions& raw) { return raw.quiet ? -1 : raw.verbose; }

void ResolveTalk(const Configuration& configuration, const RawOptions& raw, Options& options) {
  options.console.format = WordOf(configuration, "log-format", kLogFormats);
  options.console.verbosity = VerbosityOf(raw);
  options.output.color = WordOf(configuration, "color", kColorWhen);
  options.progress = WordOf(configuration, "progress", kProgressWhen);
}

void CheckIds(const std::vector<std::string>& ids) {
  for (const std::string& id : ids) {
    const voltaris::Expected<voltaris::DeviceId> device = voltaris::DeviceId::from_text(id);
    if (!device) throw Failure(kExitUsage, "--id: " + device.error().text);
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
  const bool reads = command == Command::kCollect || command == Command::kRecord ||
                     command == Command::kPing || command == Command::kWatch;
  if (categories.empty() && reads) return any;
  return categories;
}

void ResolveRecorded(const RawOptions& raw, Options& options) {
  const std::vector<std::string> names = raw.named_attributes();
  for (const std::string& name : names) {
    if (recording::FindRecordable(name) != nullptr) continue;
    throw Failure(kExitUsage, "there is no attribute '" + name +
                                  "' that could be recorded; there are\n" + RecordableWords());
  }
  for (const recording::AttributeLines& row : recording::RecordableAttributes()) {
    const bool wanted = names.empty() || std::ranges::find(names, row.word()) != names.end();
    if (wanted) options.recorded.push_back(row.number);
  }
  if (options.targets.size() > 1) throw Failure(kExitUsage, "record takes one node");
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

// What a set shows: which device, what it uses now, and what was set. The request for a name has no
// value and that for the usage is of an attribute that cannot be set, so that devices take neither
// for something to set.
void AddSetAttributes(Options& options) {
  const Attribute& name = FindAttribute("name");
  const bool sets_name = std::ranges::find(options.assignments, &name, &Assignment::attribute) !=
                         options.assignments.end();
  if (!sets_name) options.attributes.push_back(&name);
  options.attributes.push_back(&FindAttribute("usage"));
  for (const Assignment& assignment : options.assignments) {
    options.attributes.push_back(assignment.attribute);
  }
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
  AddSetAttributes(options);
  options.dry_run = raw.dry_run;
  options.yes = raw.yes;
  options.max_devices = raw.max_devices;
}

Options Resolve(const RawOptions& raw, Command command, const ConfigurationSources& sources) {
  const Configuration configuration = Configuration::Load(sources);
  Options options;
  options.command = command;
  ResolveNodes(configuration, HomeOf(sources), options);
  ResolveLimits(configuration, options);
  ResolveTalk(configuration, raw, options);
  CheckIds(raw.ids);
  options.names = raw.names;
  options.roles = raw.roles;
  options.keywords = raw.keywords;
  options.ids = raw.ids;
  options.categories = CategoriesOf(raw, command);
  if (command == Command::kRecord) {
    ResolveRecorded(raw, options);
    return options;
  }
  if (IsLive(command)) {
    ResolveLive(raw.live, configuration, options);
    return options;
  }
  options.output.format = WordOf(configuration, "output", kFormats);
  if (command == Command::kSet) ResolveAssignments(raw, options);
  ResolveOutput(configuration, raw.named_attributes(), options);
  return options;
}

// A configuration that is wrong does not keep commands that ask no node from working.
LogFormat LogFormatOf(const ConfigurationSources& sources) {
  try {
    return WordOf(Configuration::Load(sources), "log-format", kLogFormats);
  } catch (const Failure&) {
    const auto flag = sources.flags.find("log-format");
    const bool is_json = flag != sources.flags.end() && flag->second.back() == "json";
    return is_json ? LogFormat::kJson : LogFormat::kText;
  }
}

// The commands that ask no node have no use for settings, but for how they tell what is wrong.
Options OptionsOfAction(CommandLine& line) {
  Options options;
  options.console.format = LogFormatOf(line.action_sources());
  options.console.verbosity = VerbosityOf(line.raw());
  options.action = std::move(line.action());
  return options;
}

std::optional<Options> Parse(CommandLine& line, int argc, const char* const* argv) {
  if (!line.Parse(argc, argv)) return std::nullopt;
  if (line.action()) return OptionsOfAction(line);
  return Resolve(line.raw(), line.command(), line.sources());
}

}  // namespace

std::optional<Options> ParseOptions(int argc, const char* const* argv) {
  CommandLine line;
  try {
    return Parse(line, argc, argv);
  } catch (const Failure& failure) {
    if (line.Names(Command::kCheck)) throw CheckFailure(failure.what());
    throw;
  }
}

}  // namespace vt::tools
