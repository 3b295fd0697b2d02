#include "tools/command_line.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "vtapi.hpp"

#include "arguments/decimal.h"
#include "arguments/help_formatter.h"
#include "arguments/repeatable.h"
#include "tools/exit_code.h"
#include "tools/help_texts.h"
#include "tools/leading_options.h"
#include "tools/offline_commands.h"
#include "tools/setting_options.h"
#include "tools/usage_fault.h"

namespace vt::tools {
namespace {

// --- options ---

void AddTalk(CLI::App& app, RawOptions& raw) {
  app.add_flag("-v,--verbose", raw.verbose,
               "lines of the library on standard error: info, debug with -vv, trace with -vvv");
  app.add_flag("-q,--quiet", raw.quiet, "errors alone on standard error");
}

void AddSelection(CLI::App& app, RawOptions& raw) {
  arguments::Repeatable(app.add_option("--name", raw.names, "devices of this name; repeatable"),
                        "TEXT");
  arguments::Repeatable(app.add_option("--role", raw.roles, "devices of this role; repeatable"),
                        "TEXT");
  arguments::Repeatable(
      app.add_option("--keyword", raw.keywords, "devices with any of these keywords; repeatable"),
      "K[,K...]");
  arguments::Repeatable(
      app.add_option("--id", raw.ids, "the device of this identity, 32 characters; repeatable"),
      "ID");
  arguments::Repeatable(
      app.add_option(
          "--category", raw.categories,
          "consumer, producer, meter or any; repeatable (default: collect any, otherwise "
          "consumer)"),
      "WORD");
}

constexpr const char* kShown = "attributes to show";

void AddAttributes(CLI::App& app, RawOptions& raw, const std::string& meaning,
                   const std::string& defaults) {
  app.add_option("attribute", raw.attributes, meaning + " (default: " + defaults + ")");
  arguments::Repeatable(app.add_option("-a,--attribute", raw.listed_attributes,
                                       "the same; repeatable, or with commas"),
                        "NAME")
      ->delimiter(',');
}

void AddCollectOptions(CLI::App& app, RawOptions& raw) {
  AddAttributes(app, raw, kShown, "name usage level");
}

void AddSetOptions(CLI::App& app, RawOptions& raw) {
  app.add_option("assignment", raw.assignments, "what to set")
      ->type_name("ATTRIBUTE=VALUE")
      ->required();
  app.add_flag("--dry-run", raw.dry_run, "show which devices would be set, and set nothing");
  app.add_flag("-y,--yes", raw.yes, "set without asking");
  app.add_option("--max-devices", raw.max_devices, "set nothing when more devices are concerned")
      ->type_name("N")
      ->check(arguments::DecimalFault);
}

void AddSumOptions(CLI::App& app, RawOptions& raw) { AddAttributes(app, raw, kShown, "usage"); }

void AddRecordOptions(CLI::App& app, RawOptions& raw) {
  AddAttributes(app, raw, "attributes to record", "all that a device can have");
  app.add_option("-o,--output", raw.output_file, "where to write it (default: standard output)")
      ->type_name("FILE");
  app.add_flag("--anonymize", raw.anonymize, "leave out whose devices they are, see below");
}

// --- commands ---

// CommandRow is a command as its user meets it.
struct CommandRow {
  Command command;
  const char* purpose;
  std::string (*help)();
  void (*add_options)(CLI::App& app, RawOptions& raw);
  OutputSettings output;
  // Of a command that leaves the settings of outputs out: the one that it takes all the same, or
  // none, and what it says to the others.
  std::string_view taken = {};
  const char* refusal = "";
};

constexpr OutputSettings kTaken = OutputSettings::kTaken;
constexpr OutputSettings kLeftOut = OutputSettings::kLeftOut;

constexpr std::array kRows = {
    CommandRow{Command::kCollect, "Reads attributes of devices.", CollectHelp, AddCollectOptions,
               kTaken},
    CommandRow{Command::kSet, "Sets attributes of devices and shows what came of it.", SetHelp,
               AddSetOptions, kTaken},
    CommandRow{Command::kSum, "Sums up the usage of devices.", SumHelp, AddSumOptions, kTaken},
    CommandRow{Command::kRecord, "Records devices, for voltaris-node to answer as they did.",
               RecordHelp, AddRecordOptions, kLeftOut, "",
               "record writes a recording, and takes no format, columns or order"},
    CommandRow{Command::kCheck, "Holds power and nodes against thresholds, for monitoring.",
               CheckHelp, [](CLI::App& app, RawOptions& raw) { AddCheckOptions(app, raw.live); },
               kLeftOut, "", "check has an output of its own"},
    CommandRow{Command::kPing, "Connects, makes a signed round trip, and tells how long it took.",
               PingHelp, [](CLI::App& app, RawOptions& raw) { AddPingOptions(app, raw.live); },
               kLeftOut, "output",
               "ping has an output of its own; of the settings of outputs it takes --output"},
    CommandRow{Command::kWatch, "Collects again and again, as a live table.", WatchHelp,
               [](CLI::App& app, RawOptions& raw) { AddWatchOptions(app, raw.live); }, kLeftOut,
               "sort",
               "watch has an output of its own; of the settings of outputs it takes --sort"}};

constexpr const CommandRow& RowOf(Command command) {
  return kRows[static_cast<std::size_t>(command)];
}
static_assert(std::ranges::all_of(kRows, [](const CommandRow& row) {
  return &RowOf(row.command) == &row;
}));

// Its own options come first, so that theirs are the short names.
CLI::App* AddCommand(CLI::App& app, const CommandRow& row, RawOptions& raw) {
  CLI::App* command = app.add_subcommand(CommandName(row.command), row.purpose);
  row.add_options(*command, raw);
  AddSettingOptions(*command, row.output);
  AddTalk(*command, raw);
  AddSelection(*command, raw);
  command->footer(row.help());
  return command;
}

void RefuseOutputSettings(const CLI::App& app, const CommandRow& row) {
  for (const Setting& setting : AllSettings()) {
    if (!setting.shapes_output || setting.name == row.taken) continue;
    if (app.count("--" + std::string(setting.name)) > 0) throw Failure(kExitUsage, row.refusal);
  }
}

}  // namespace

std::vector<std::string> RawOptions::named_attributes() const {
  std::vector<std::string> named = attributes;
  named.insert(named.end(), listed_attributes.begin(), listed_attributes.end());
  return named;
}

CommandLine::CommandLine()
    : app_("Queries and configures the devices of a power-management network.", "voltaris") {
  app_.formatter(std::make_shared<arguments::HelpFormatter>());
  app_.set_help_flag("-h,--help", "print this help");
  app_.set_version_flag("--version", std::string("voltaris, libvtapi ").append(voltaris::version()),
                        "print the version");
  app_.footer(GeneralHelp());
  app_.require_subcommand(1);
  AddSettingOptions(app_);
  AddTalk(app_, raw_);
  for (const CommandRow& row : kRows) commands_.push_back(AddCommand(app_, row, raw_));
  AddOfflineCommands(app_, action_);
  for (CLI::App* added : app_.get_subcommands([](const CLI::App*) { return true; })) {
    const bool asks = std::ranges::find(commands_, added) != commands_.end();
    added->group(asks ? "Commands that ask nodes" : "Other commands");
  }
}

bool CommandLine::Parse(int argc, const char* const* argv) {
  try {
    app_.parse(argc, argv);
    return true;
  } catch (const CLI::Success& done) {
    app_.exit(done);
    return false;
  } catch (const CLI::ParseError& error) {
    throw Failure(kExitUsage, UsageFault(app_, error));
  }
}

bool CommandLine::Names(Command command) const {
  return commands_[static_cast<std::size_t>(command)]->parsed();
}

Command CommandLine::command() const {
  return std::ranges::find_if(kRows, [this](const CommandRow& row) { return Names(row.command); })
      ->command;
}

ConfigurationSources CommandLine::sources() const {
  const CommandRow& row = RowOf(command());
  if (row.output == kLeftOut) RefuseOutputSettings(app_, row);
  const bool takes_none = row.output == kLeftOut && row.taken.empty();
  return SourcesGiven(*commands_[static_cast<std::size_t>(row.command)],
                      takes_none ? kLeftOut : kTaken);
}

ConfigurationSources CommandLine::action_sources() {
  CLI::App& chosen = ChosenCommand(app_);
  PassLeadingOptions(app_, chosen);
  return SourcesGiven(chosen);
}

}  // namespace vt::tools
