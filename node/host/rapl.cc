#include "node/host/rapl.h"

#include <algorithm>
#include <utility>

namespace vt::node {
namespace {

constexpr std::string_view kControlType = "intel-rapl:";

std::string ZonePath(const std::string& folder, const char* file) {
  return "sys/class/powercap/" + folder + "/" + file;
}

bool IsIndex(std::string_view text) {
  return !text.empty() &&
         std::ranges::all_of(text, [](char letter) { return letter >= '0' && letter <= '9'; });
}

// ParentFolder is that of the zone around the zone of a folder: intel-rapl:0 for intel-rapl:0:1,
// and empty for one at the top. It is nothing for a folder that is no zone.
std::optional<std::string> ParentFolder(const std::string& folder) {
  if (!folder.starts_with(kControlType)) return std::nullopt;
  const std::string_view indices = std::string_view(folder).substr(kControlType.size());
  const std::size_t colon = indices.find(':');
  if (!IsIndex(indices.substr(0, colon))) return std::nullopt;
  if (colon == std::string_view::npos) return std::string();
  if (!IsIndex(indices.substr(colon + 1))) return std::nullopt;
  return folder.substr(0, kControlType.size() + colon);
}

}  // namespace

RaplSource::RaplSource(Tree tree, MonotonicClock clock)
    : tree_(std::move(tree)), clock_(std::move(clock)) {}

// Describe returns nothing for zones that are no entities.
std::optional<HostEntity> RaplSource::Describe(const std::string& folder) const {
  const std::optional<std::string> parent_folder = ParentFolder(folder);
  if (!parent_folder) return std::nullopt;
  const std::string zone = tree_.ReadWord(ZonePath(folder, "name"));
  const bool is_package = parent_folder->empty() && zone.starts_with("package-");
  const bool is_platform = zone == "psys";
  const bool is_memory = zone == "dram";
  if (!is_package && !is_platform && !is_memory) return std::nullopt;
  std::string name = PrintableText(zone);
  std::string key = "rapl/" + KeyText(zone);
  if (is_memory && !parent_folder->empty()) {
    const std::string parent = tree_.ReadWord(ZonePath(*parent_folder, "name"));
    name = PrintableText(parent) + " " + name;
    key = "rapl/" + KeyText(parent) + "/" + KeyText(zone);
  }
  return HostEntity{std::move(key), std::move(name), Caliber::kEstimated,
                    is_platform ? Category::kMeter : Category::kConsumer};
}

Findings RaplSource::Find() {
  zones_.clear();
  Findings findings;
  for (const std::string& folder : tree_.List("sys/class/powercap")) {
    if (zones_.size() == kMostEntities) break;
    std::optional<HostEntity> entity = Describe(folder);
    if (!entity) continue;
    // Where the range cannot be read, a counter that wraps around begins anew.
    const std::int64_t range = tree_.ReadNumber(ZonePath(folder, "max_energy_range_uj")).value;
    zones_.push_back({ZonePath(folder, "energy_uj"), entity->category,
                      EnergyCounter(std::max<std::int64_t>(range, 0))});
    findings.entities.push_back(*std::move(entity));
  }
  if (zones_.empty()) {
    findings.note = tree_.Path("sys/class/powercap/intel-rapl:*") +
                    ": no package, dram or psys zone; on a machine that is not virtual, try "
                    "modprobe intel_rapl_msr";
  }
  return findings;
}

Reading RaplSource::ReadZone(Zone& zone) const {
  const std::string path = tree_.Path(zone.energy_path);
  FileNumber energy = tree_.ReadNumber(zone.energy_path);
  const auto now = clock_();
  if (energy.ok() && energy.value < 0) {
    energy = {0, Trouble::kFaulty, path + ": a negative energy"};
  }
  if (!energy.ok()) {
    // How often it wraps around meanwhile nobody counts.
    zone.counter.Forget();
    return Reading::Failed(energy.trouble, std::move(energy.detail));
  }
  const std::optional<double> milliwatts = zone.counter.Advance(energy.value, now);
  if (!milliwatts) return Reading::Failed(Trouble::kWaiting, path + ": power takes two readings");
  return PlausibleReading(*milliwatts, zone.category, path);
}

std::vector<Reading> RaplSource::Read() {
  std::vector<Reading> readings;
  for (Zone& zone : zones_) readings.push_back(ReadZone(zone));
  return readings;
}

std::string RaplSource::Advice(Trouble trouble) const {
  if (trouble != Trouble::kDenied) {
    return "Reading the file as root (cat) shows whether the driver or this user is the cause.";
  }
  return "Only root reads these counters, as fine readings of them can betray what a processor\n"
         "computes. To let the members of one group read them, put into\n"
         "/etc/udev/rules.d/70-voltaris-node.rules, as one line:\n"
         "  ACTION==\"add\", SUBSYSTEM==\"powercap\", KERNEL==\"intel-rapl:*\", "
         "RUN+=\"/bin/chgrp voltaris /sys%p/energy_uj\", "
         "RUN+=\"/bin/chmod g+r /sys%p/energy_uj\"\n"
         "then, with the group voltaris in place and this program's user in it:\n"
         "  udevadm control --reload\n"
         "  udevadm trigger --subsystem-match=powercap --action=add\n"
         "Or give the service that right alone: AmbientCapabilities=CAP_DAC_READ_SEARCH.";
}

}  // namespace vt::node
