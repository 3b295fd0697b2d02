#include "tools/live_options.h"

#include <cmath>

#include "arguments/decimal.h"
#include "arguments/repeatable.h"
#include "tools/check_judgement.h"
#include "tools/exit_code.h"
#include "tools/options.h"
#include "tools/watch_model.h"

namespace vt::tools {
namespace {

constexpr unsigned kMostRounds = 1000000000;
constexpr double kLongestInterval = 86400;

void AddInterval(CLI::App& app, RawLiveOptions& raw, const std::string& preset,
                 const std::string& meaning) {
  app.add_option("-i,--interval", raw.interval, meaning + " (default " + preset + ")")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, kLongestInterval));
}

void AddThresholds(CLI::App& app, const std::string& names, std::vector<std::string>& texts,
                   const std::string& state) {
  const std::string meaning = "what makes the check " + state + "; repeatable, see below";
  arguments::Repeatable(app.add_option(names, texts, meaning), "[METRIC=]RANGE");
}

void ResolvePing(const Configuration& configuration, Options& options) {
  const std::string format = configuration.Text("output").value_or("");
  if (format == "json") {
    options.output.format = Format::kJson;
    if (options.repeat.count != 0) return;
    throw Failure(kExitUsage, "ping writes json at its end, and needs another --count than 0");
  }
  if (format == "table" || !configuration.IsFromFlag("output")) return;
  throw Failure(kExitUsage, "ping writes table or json, not " + format);
}

void ResolveWatch(const Configuration& configuration, Options& options) {
  const std::optional<std::string> order = configuration.Text("sort");
  if (!order) return;
  try {
    options.watch_order = ParseWatchOrder(*order);
  } catch (const Failure&) {
    if (configuration.IsFromFlag("sort")) throw;
  }
}

void ResolveRepeat(const RawLiveOptions& raw, unsigned count, double interval, Options& options) {
  const double seconds = raw.interval.value_or(interval);
  // Neither below nor above any limit, so that the parser lets it through.
  if (std::isnan(seconds)) throw Failure(kExitUsage, "--interval must be a number of seconds");
  options.repeat.count = raw.count.value_or(count);
  options.repeat.interval = std::chrono::milliseconds(std::llround(seconds * 1000));
}

}  // namespace

void AddCheckOptions(CLI::App& app, RawLiveOptions& raw) {
  AddThresholds(app, "-w,--warning", raw.warnings, "warn");
  AddThresholds(app, "-c,--critical", raw.criticals, "critical");
  app.add_option("--on-failure", raw.on_failure,
                 "what a node that cannot be asked makes of it: ok, warning, critical or unknown "
                 "(default)")
      ->type_name("STATE");
}

void AddPingOptions(CLI::App& app, RawLiveOptions& raw) {
  app.add_option("-c,--count", raw.count, "round trips with each node, 0 for no end (default 1)")
      ->type_name("N")
      ->check(arguments::DecimalFault)
      ->check(CLI::Range(0u, kMostRounds));
  AddInterval(app, raw, "1", "seconds from one round trip to the next");
  // The setting, of which most formats make no sense here.
  arguments::Repeatable(
      app.add_option("-o,--output", "form of the output: table, json (default table)"), "FORMAT");
}

void AddWatchOptions(CLI::App& app, RawLiveOptions& raw) {
  AddInterval(app, raw, "2", "seconds from one round to the next");
  app.add_option("--count", raw.count, "end after so many rounds (default 0: never)")
      ->type_name("N")
      ->check(arguments::DecimalFault)
      ->check(CLI::Range(0u, kMostRounds));
  // The setting, of other columns.
  arguments::Repeatable(
      app.add_option(
          "--sort",
          "sort rows by device, name, level, usage or change; :desc for the greatest first"),
      "NAME[:desc]");
}

bool IsLive(Command command) {
  return command == Command::kCheck || command == Command::kPing || command == Command::kWatch;
}

void ResolveLive(const RawLiveOptions& raw, const Configuration& configuration, Options& options) {
  constexpr double ping_interval = 1;
  constexpr double watch_interval = 2;
  switch (options.command) {
    case Command::kCheck:
      options.attributes = CheckAttributes();
      options.check = ParseCheckOptions(raw.warnings, raw.criticals, raw.on_failure);
      return;
    case Command::kPing:
      ResolveRepeat(raw, 1, ping_interval, options);
      ResolvePing(configuration, options);
      return;
    case Command::kWatch:
      options.attributes = WatchAttributes();
      ResolveRepeat(raw, 0, watch_interval, options);
      ResolveWatch(configuration, options);
      return;
    default:
      return;
  }
}

}  // namespace vt::tools
