#include "node/host/host_sensors.h"

#include <algorithm>
#include <utility>

#include "node/host/hwmon.h"
#include "node/host/nut.h"
#include "node/host/rapl.h"

namespace vt::node {
namespace {

constexpr in_port_t kNutPort = 3493;

// MakeUnique tells entities of one key apart by a number. Where a system does that to its devices,
// only the order in which it names them is left to go by.
void MakeUnique(HostEntity& entity, const std::vector<ProbedEntity>& others) {
  const std::string key = entity.key;
  const auto taken = [&](const ProbedEntity& other) { return other.entity.key == entity.key; };
  for (int number = 2; std::ranges::any_of(others, taken); ++number) {
    entity.key = key + "#" + std::to_string(number);
  }
}

}  // namespace

sockaddr_in LocalNutServer() {
  sockaddr_in server{};
  server.sin_family = AF_INET;
  server.sin_port = htons(kNutPort);
  server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return server;
}

HostSensors::HostSensors(HostSettings settings) {
  if (!settings.clock) settings.clock = std::chrono::steady_clock::now;
  const Tree tree(settings.root, settings.open);
  auto supplies = std::make_unique<PowerSupplySource>(tree);
  supplies_ = supplies.get();
  sources_.push_back({std::make_unique<RaplSource>(tree, settings.clock), {}});
  sources_.push_back({std::make_unique<HwmonSource>(tree), {}});
  sources_.push_back({std::move(supplies), {}});
  if (settings.nut) {
    sources_.push_back(
        {std::make_unique<NutSource>(*settings.nut, settings.nut_patience, settings.clock), {}});
  }
}

void HostSensors::ProbeSource(Kept& kept, ProbeReport& report) {
  PowerSource& source = *kept.source;
  const std::string kind(source.kind());
  Findings findings = source.Find();
  const bool troubled = findings.trouble != Trouble::kNone;
  report.sources.push_back({kind, findings.entities.size(), std::move(findings.note),
                            troubled ? source.Advice(findings.trouble) : std::string()});
  std::vector<Reading> readings = source.Read();
  kept.keeps.clear();
  for (std::size_t i = 0; i < readings.size(); ++i) {
    HostEntity& entity = findings.entities[i];
    Reading& reading = readings[i];
    MakeUnique(entity, report.entities);
    const bool works = reading.ok() || reading.trouble == Trouble::kWaiting;
    kept.keeps.push_back(works);
    if (works) entities_.push_back(entity);
    std::string advice = works ? std::string() : source.Advice(reading.trouble);
    report.entities.push_back({kind, std::move(entity), std::move(reading), std::move(advice)});
  }
}

ProbeReport HostSensors::Probe() {
  ProbeReport report;
  entities_.clear();
  for (Kept& kept : sources_) ProbeSource(kept, report);
  report.on_mains = OnMains();
  return report;
}

std::vector<Reading> HostSensors::Read() {
  std::vector<Reading> result;
  for (Kept& kept : sources_) {
    if (std::ranges::find(kept.keeps, true) == kept.keeps.end()) continue;
    std::vector<Reading> readings = kept.source->Read();
    for (std::size_t i = 0; i < readings.size(); ++i) {
      if (kept.keeps[i]) result.push_back(std::move(readings[i]));
    }
  }
  return result;
}

}  // namespace vt::node
