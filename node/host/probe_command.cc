#include "node/host/probe_command.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "arguments/help_formatter.h"
#include "node/host/host_sensors.h"
#include "node/host/probe_output.h"
#include "node/options.h"

namespace vt::node {
namespace {

// Long enough for an energy counter to tell a power, and short for who waits for it.
constexpr std::chrono::milliseconds kBetweenReadings{250};

constexpr const char* kFooter =
    R"(Examples:
  voltaris-node probe
  voltaris-node probe --nut 192.0.2.7:3493 -o json
  voltaris-node probe --root /host --nut off    in a container: the host's files

A power is measured or estimated. Consumers can be added up; producers feed this
host, and meters contain what others tell. Nothing is changed: where something
cannot be read, what to do about it is printed.

Exit codes: 0 at least one power can be read; 1 none can, or the output cannot
be written; 2 wrong usage.
)";

struct ProbeOptions {
  HostSettings settings;
  bool json = false;
};

std::optional<ProbeOptions> ParseProbeOptions(int argc, const char* const* argv) {
  ProbeOptions options;
  std::string nut;
  std::string format = "table";
  std::optional<double> nut_seconds;
  CLI::App app("Looks for what tells the power of this host, and reads it once.",
               "voltaris-node probe");
  app.formatter(std::make_shared<arguments::HelpFormatter>());
  app.set_help_flag("-h,--help", "print this help");
  app.footer(kFooter);
  app.add_option("--root", options.settings.root,
                 "the folder below which sys/ is looked for (default /)")
      ->type_name("DIR")
      ->check(CLI::ExistingDirectory.description(""));
  app.add_option("--nut", nut, "a NUT server, IPv4 (default 127.0.0.1:3493), or off: ask none")
      ->type_name("HOST:PORT");
  app.add_option("--nut-timeout", nut_seconds,
                 "how long the NUT server may take (default 2), from 0.1 to 600")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.1, 600.0).description(""));
  app.add_option("-o,--output", format, "table (default) or json")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"table", "json"}).description(""));
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    app.exit(done);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    throw UsageError(std::string(error.what()) + "; see voltaris-node probe --help");
  }
  options.json = format == "json";
  if (nut_seconds) {
    // Neither below nor above any limit, so that the parser lets it through.
    if (std::isnan(*nut_seconds)) throw UsageError("--nut-timeout takes a number of seconds");
    options.settings.nut_patience = std::chrono::milliseconds(std::llround(*nut_seconds * 1000));
  }
  if (nut == "off") {
    options.settings.nut.reset();
  } else if (!nut.empty()) {
    options.settings.nut = ParseEndpoint(nut);
    if (!options.settings.nut) {
      throw UsageError(
          "--nut takes an IPv4 address and a port, such as 127.0.0.1:3493, or off, "
          "not '" +
          nut + "'");
    }
  }
  return options;
}

bool IsWaiting(const ProbedEntity& probed) { return probed.reading.trouble == Trouble::kWaiting; }

// ReadWaiting reads once more where power takes two readings.
void ReadWaiting(HostSensors& sensors, ProbeReport& report) {
  if (std::ranges::none_of(report.entities, IsWaiting)) return;
  std::this_thread::sleep_for(kBetweenReadings);
  const std::vector<Reading> readings = sensors.Read();
  for (std::size_t i = 0; i < readings.size(); ++i) {
    const auto probed = std::ranges::find(
        report.entities, sensors.entities()[i].key,
        [](const ProbedEntity& candidate) -> const std::string& { return candidate.entity.key; });
    if (IsWaiting(*probed)) probed->reading = readings[i];
  }
}

bool IsReadable(const ProbedEntity& probed) { return probed.reading.ok(); }

}  // namespace

int RunProbe(int argc, const char* const* argv) {
  const std::optional<ProbeOptions> options = ParseProbeOptions(argc, argv);
  if (!options) return 0;
  HostSensors sensors(options->settings);
  ProbeReport report = sensors.Probe();
  ReadWaiting(sensors, report);
  (options->json ? PrintProbeJson : PrintProbeTable)(std::cout, report);
  return std::ranges::any_of(report.entities, IsReadable) ? 0 : 1;
}

}  // namespace vt::node
