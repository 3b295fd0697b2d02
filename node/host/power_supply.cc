#include "node/host/power_supply.h"

#include <cmath>
#include <utility>

namespace vt::node {
namespace {

constexpr const char* kSuppliesFolder = "sys/class/power_supply";

std::string FilePath(const std::string& folder, const char* file) {
  return std::string(kSuppliesFolder) + "/" + folder + "/" + file;
}

// Some drivers give what flows out a sign.
double Magnitude(const FileNumber& number) { return std::abs(static_cast<double>(number.value)); }

}  // namespace

PowerSupplySource::PowerSupplySource(Tree tree) : tree_(std::move(tree)) {}

// TypeOf returns nothing for what does not feed this host.
std::optional<PowerSupplySource::Type> PowerSupplySource::TypeOf(const std::string& folder) const {
  const std::string type = tree_.ReadWord(FilePath(folder, "type"));
  if (tree_.ReadWord(FilePath(folder, "scope")) == "Device") return std::nullopt;
  if (type == "Battery" || type == "UPS") return Type::kBattery;
  if (type == "Mains") return Type::kMains;
  if (type.starts_with("USB")) return Type::kUsb;
  return std::nullopt;
}

bool PowerSupplySource::TellsPower(const Supply& supply) const {
  return tree_.Exists(FilePath(supply.folder, "power_now")) ||
         (tree_.Exists(FilePath(supply.folder, "current_now")) &&
          tree_.Exists(FilePath(supply.folder, "voltage_now")));
}

Category PowerSupplySource::CategoryOf(const Supply& supply) const {
  if (supply.type != Type::kBattery) return Category::kMeter;
  const std::string status = tree_.ReadWord(FilePath(supply.folder, "status"));
  if (status == "Discharging") return Category::kProducer;
  if (status == "Charging" || status == "Full" || status == "Not charging") {
    return Category::kConsumer;
  }
  return Category::kMeter;
}

HostEntity PowerSupplySource::Describe(const Supply& supply) const {
  // What a USB supply tells as its current is what was negotiated.
  return {"supply/" + KeyText(supply.folder), PrintableText(supply.folder),
          supply.type == Type::kUsb ? Caliber::kEstimated : Caliber::kMeasured, CategoryOf(supply)};
}

Findings PowerSupplySource::Find() {
  supplies_.clear();
  Findings findings;
  for (const std::string& folder : tree_.List(kSuppliesFolder)) {
    if (supplies_.size() == kMostEntities) break;
    const std::optional<Type> type = TypeOf(folder);
    if (!type) continue;
    Supply supply{folder, *type};
    // A battery is listed all the same: its driver may tell more once it is in use.
    if (*type != Type::kBattery && !TellsPower(supply)) continue;
    findings.entities.push_back(Describe(supply));
    supplies_.push_back(std::move(supply));
  }
  if (supplies_.empty()) {
    findings.note =
        tree_.Path(kSuppliesFolder) + ": no battery, and no supply that tells its power";
  }
  return findings;
}

Reading PowerSupplySource::ReadPower(const std::string& folder, Category category) const {
  const std::string power_path = FilePath(folder, "power_now");
  FileNumber power = tree_.ReadNumber(power_path);
  if (power.ok()) {
    return PlausibleReading(Magnitude(power) / 1e3, category, tree_.Path(power_path));
  }
  const std::string current_path = FilePath(folder, "current_now");
  const FileNumber current = tree_.ReadNumber(current_path);
  const FileNumber voltage = tree_.ReadNumber(FilePath(folder, "voltage_now"));
  if (current.ok() && voltage.ok()) {
    return PlausibleReading(Magnitude(current) * Magnitude(voltage) / 1e9, category,
                            tree_.Path(current_path) + " x voltage_now");
  }
  // Tell of the file that is there, if one is.
  if (power.trouble != Trouble::kGone) return Reading::Failed(power.trouble, power.detail);
  if (current.trouble != Trouble::kGone && !current.ok()) {
    return Reading::Failed(current.trouble, current.detail);
  }
  if (current.ok()) return Reading::Failed(voltage.trouble, voltage.detail);
  return Reading::Failed(power.trouble, power.detail);
}

Reading PowerSupplySource::ReadSupply(const Supply& supply) const {
  const Category category = CategoryOf(supply);
  // What is not there or not plugged in may still show its last value.
  const bool absent = tree_.ReadWord(FilePath(supply.folder, "present")) == "0";
  if (absent) {
    return Reading::Failed(Trouble::kGone,
                           tree_.Path(FilePath(supply.folder, "present")) + ": not present");
  }
  const bool unplugged =
      supply.type != Type::kBattery && tree_.ReadWord(FilePath(supply.folder, "online")) == "0";
  if (unplugged) return {0, category, Trouble::kNone, {}};
  return ReadPower(supply.folder, category);
}

std::vector<Reading> PowerSupplySource::Read() {
  std::vector<Reading> readings;
  for (const Supply& supply : supplies_) readings.push_back(ReadSupply(supply));
  return readings;
}

std::string PowerSupplySource::Advice(Trouble trouble) const {
  if (trouble == Trouble::kDenied) {
    return "These files are readable for everybody unless a container or a mount option hides "
           "them:\n"
           "show this program the host's /sys, read-only, or run it outside of the container.";
  }
  return "The battery may be taken out, or its driver tells neither power_now nor both of\n"
         "current_now and voltage_now; there is nothing to set.";
}

std::optional<bool> PowerSupplySource::OnMains() const {
  std::optional<bool> plugged_in;
  for (const std::string& folder : tree_.List(kSuppliesFolder)) {
    const std::optional<Type> type = TypeOf(folder);
    if (!type || *type == Type::kBattery) continue;
    // 2 is a programmable supply that is plugged in.
    const FileNumber online = tree_.ReadNumber(FilePath(folder, "online"));
    if (online.ok()) plugged_in = plugged_in.value_or(false) || online.value > 0;
  }
  return plugged_in;
}

}  // namespace vt::node
