#include "node/host/hwmon.h"

#include <map>
#include <optional>
#include <utility>

namespace vt::node {
namespace {

constexpr std::string_view kChipsFolder = "sys/class/hwmon/";

// Index takes "power", a number and the ending apart: 3 of power3_input.
std::optional<std::int64_t> Index(const std::string& file, std::string_view ending) {
  constexpr std::string_view beginning = "power";
  if (!file.starts_with(beginning) || !file.ends_with(ending)) return std::nullopt;
  if (file.size() <= beginning.size() + ending.size()) return std::nullopt;
  const std::optional<std::int64_t> index =
      ParseWhole(file.substr(beginning.size(), file.size() - beginning.size() - ending.size()));
  return index && *index >= 0 ? index : std::nullopt;
}

// PowerFiles are the files to read, by the index of the sensor.
std::map<std::int64_t, std::string> PowerFiles(const std::vector<std::string>& files) {
  std::map<std::int64_t, std::string> result;
  for (const std::string& file : files) {
    if (const auto index = Index(file, "_input")) result[*index] = file;
  }
  for (const std::string& file : files) {
    if (const auto index = Index(file, "_average")) result.try_emplace(*index, file);
  }
  return result;
}

// The firmware's meter sees the whole host, and so does a power supply unit, whose driver calls its
// sides pin, pout1 and the like; what they tell contains all the others.
Category CategoryOf(const std::string& chip, const std::string& label) {
  const bool is_whole =
      chip == "power_meter" || label.starts_with("pin") || label.starts_with("pout");
  return is_whole ? Category::kMeter : Category::kConsumer;
}

// This driver reads the processor's estimate of itself.
Caliber CaliberOf(const std::string& chip) {
  return chip == "fam15h_power" ? Caliber::kEstimated : Caliber::kMeasured;
}

}  // namespace

HwmonSource::HwmonSource(Tree tree) : tree_(std::move(tree)) {}

void HwmonSource::FindOnChip(const std::string& folder, Findings& findings) {
  const std::string path = std::string(kChipsFolder) + folder + "/";
  const std::string device = tree_.LinkName(path + "device");
  // The kernel shows a battery's values here once more.
  if (!device.empty() && tree_.Exists("sys/class/power_supply/" + device)) return;
  std::string chip = tree_.ReadWord(path + "name");
  if (chip.empty()) chip = "unnamed";
  // The number of the folder changes from start to start, the device does not.
  std::string key = "hwmon/" + KeyText(chip) + "/";
  if (!device.empty()) key += KeyText(device) + "/";
  for (const auto& [index, file] : PowerFiles(tree_.List(path))) {
    if (sensors_.size() == kMostEntities) return;
    const std::string sensor = "power" + std::to_string(index);
    const std::string label = tree_.ReadWord(path + sensor + "_label");
    const Category category = CategoryOf(chip, label);
    sensors_.push_back({path + file, category});
    findings.entities.push_back({key + sensor,
                                 PrintableText(chip + " " + (label.empty() ? sensor : label)),
                                 CaliberOf(chip), category});
  }
}

Findings HwmonSource::Find() {
  sensors_.clear();
  Findings findings;
  for (const std::string& folder : tree_.List(std::string(kChipsFolder))) {
    if (folder.starts_with("hwmon")) FindOnChip(folder, findings);
  }
  if (sensors_.empty()) {
    findings.note = tree_.Path("sys/class/hwmon/hwmon*") + ": no power sensor";
  }
  return findings;
}

Reading HwmonSource::ReadSensor(const Sensor& sensor) const {
  FileNumber microwatts = tree_.ReadNumber(sensor.path);
  if (!microwatts.ok()) return Reading::Failed(microwatts.trouble, std::move(microwatts.detail));
  return PlausibleReading(static_cast<double>(microwatts.value) / 1000, sensor.category,
                          tree_.Path(sensor.path));
}

std::vector<Reading> HwmonSource::Read() {
  std::vector<Reading> readings;
  for (const Sensor& sensor : sensors_) readings.push_back(ReadSensor(sensor));
  return readings;
}

std::string HwmonSource::Advice(Trouble trouble) const {
  if (trouble != Trouble::kDenied) {
    return "A sensor may be asleep with its device; reading the file as root (cat) shows whether\n"
           "the driver or this user is the cause.";
  }
  return "This driver lets only root read. To let the members of one group read it, put into\n"
         "/etc/udev/rules.d/70-voltaris-node.rules, as one line:\n"
         "  ACTION==\"add\", SUBSYSTEM==\"hwmon\", "
         "RUN+=\"/bin/sh -c 'chgrp voltaris /sys%p/power*; chmod g+r /sys%p/power*'\"\n"
         "then, with the group voltaris in place and this program's user in it:\n"
         "  udevadm control --reload\n"
         "  udevadm trigger --subsystem-match=hwmon --action=add";
}

}  // namespace vt::node
