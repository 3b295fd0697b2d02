#include "node/host/host_sensors.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "vtapi.h"

#include "tests/node/host/host_tree.h"
#include "tests/node/host/nut_script.h"

namespace vt::testing {
namespace {

using node::Caliber;
using node::Category;
using node::HostSensors;
using node::HostSettings;
using node::ProbeReport;
using node::Reading;
using node::Trouble;
using std::chrono::milliseconds;

class HostSensorsTest : public ::testing::Test {
 protected:
  // Settings have no NUT server: a test must not ask one that may run on this machine.
  HostSettings Settings() const {
    HostSettings settings;
    settings.root = host_.root();
    settings.nut.reset();
    settings.clock = clock_.clock();
    settings.open = host_.open();
    return settings;
  }

  HostTree host_;
  HandClock clock_;
};

TEST(HostSettings, ByDefaultTheServerOfThisHostIsAsked) {
  const HostSettings settings;
  EXPECT_EQ(settings.root, "/");
  ASSERT_TRUE(settings.nut.has_value());
  EXPECT_EQ(settings.nut->sin_addr.s_addr, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(ntohs(settings.nut->sin_port), 3493);
}

TEST(PowerSource, CalibersAndCategoriesAreThoseOfTheLibrary) {
  EXPECT_EQ(node::LibraryCaliber(Caliber::kMeasured), CV_CORVANE_USAGE_CALIBER_ACTUAL);
  EXPECT_EQ(node::LibraryCaliber(Caliber::kEstimated), CV_CORVANE_USAGE_CALIBER_PRESUMED);
  EXPECT_EQ(node::LibraryCategory(Category::kConsumer), CV_CORVANE_USAGE_CONSUMER);
  EXPECT_EQ(node::LibraryCategory(Category::kProducer), CV_CORVANE_USAGE_PRODUCER);
  EXPECT_EQ(node::LibraryCategory(Category::kMeter), CV_CORVANE_USAGE_METER);
}

TEST_F(HostSensorsTest, AllSourcesTogether) {
  host_.PutZone("intel-rapl:0", "package-0", "0");
  host_.Put(kChip + "name", "chip");
  host_.Put(kChip + "power1_input", "3000000");
  host_.Put("sys/class/power_supply/BAT0/type", "Battery");
  host_.Put("sys/class/power_supply/BAT0/status", "Discharging");
  host_.Put("sys/class/power_supply/BAT0/power_now", "9000000");
  host_.Put("sys/class/power_supply/AC/type", "Mains");
  host_.Put("sys/class/power_supply/AC/online", "0");
  const std::string answer = "VAR u ups.realpower \"40\"";
  ScriptedPeer peer(NutScript({{{"LIST UPS", "BEGIN LIST UPS\nUPS u\nEND LIST UPS"},
                                {"GET VAR u ups.realpower", answer}},
                               {{"GET VAR u ups.realpower", answer}},
                               {{"GET VAR u ups.realpower", answer}}}),
                    3);
  HostSettings settings = Settings();
  settings.nut = LoopbackAddress(peer.port());
  settings.clock = std::chrono::steady_clock::now;
  settings.nut_patience = milliseconds(20000);
  HostSensors sensors(settings);
  const ProbeReport report = sensors.Probe();
  ASSERT_EQ(report.sources.size(), 4u);
  for (const auto& source : report.sources) EXPECT_EQ(source.num_entities, 1u) << source.kind;
  ASSERT_EQ(report.entities.size(), 4u);
  EXPECT_EQ(report.entities[0].reading.trouble, Trouble::kWaiting);
  EXPECT_EQ(report.entities[0].advice, "") << "nothing is wrong with it";
  EXPECT_EQ(report.on_mains, false);
  ASSERT_EQ(sensors.entities().size(), 4u);
  const std::vector<Reading> readings = sensors.Read();
  ASSERT_EQ(readings.size(), 4u);
  EXPECT_EQ(readings[1].milliwatts, 3000);
  EXPECT_EQ(readings[2].milliwatts, 9000);
  EXPECT_EQ(readings[2].category, Category::kProducer);
  EXPECT_EQ(readings[3].milliwatts, 40000);
}

TEST_F(HostSensorsTest, OnlyWhatCanBeReadIsKept) {
  host_.PutZone("intel-rapl:0", "package-0", "0");
  host_.PutZone("intel-rapl:1", "package-1", "0");
  host_.Put(kChip + "power1_input", "warm");
  host_.Put(kChip + "power2_input", "2000");
  host_.Deny("sys/class/powercap/intel-rapl:0/energy_uj");
  HostSensors sensors(Settings());
  const ProbeReport report = sensors.Probe();
  ASSERT_EQ(report.entities.size(), 4u);
  EXPECT_NE(report.entities[0].advice.find("powercap"), std::string::npos);
  ASSERT_EQ(sensors.entities().size(), 2u);
  EXPECT_EQ(sensors.entities()[0].key, "rapl/package-1");
  EXPECT_EQ(sensors.entities()[1].key, "hwmon/unnamed/power2");
  clock_.Advance(milliseconds(1000));
  host_.PutEnergy("intel-rapl:1", "5000000");
  const std::vector<Reading> readings = sensors.Read();
  ASSERT_EQ(readings.size(), 2u);
  EXPECT_EQ(readings[0].milliwatts, 5000);
  EXPECT_EQ(readings[1].milliwatts, 2);
}

TEST_F(HostSensorsTest, WhatVanishesStaysAndSaysSoUntilTheNextProbe) {
  host_.Put(kChip + "power1_input", "1000");
  HostSensors sensors(Settings());
  (void)sensors.Probe();
  ASSERT_EQ(sensors.entities().size(), 1u);
  host_.Remove("sys");
  ASSERT_EQ(sensors.Read().size(), 1u);
  EXPECT_EQ(sensors.Read()[0].trouble, Trouble::kGone);
  (void)sensors.Probe();
  EXPECT_TRUE(sensors.entities().empty());
  EXPECT_TRUE(sensors.Read().empty());
}

TEST_F(HostSensorsTest, ANewProbeFindsWhatHasCome) {
  HostSensors sensors(Settings());
  EXPECT_TRUE(sensors.Read().empty()) << "before the first probe";
  const ProbeReport report = sensors.Probe();
  EXPECT_TRUE(report.entities.empty());
  EXPECT_EQ(report.on_mains, std::nullopt);
  for (const auto& source : report.sources) EXPECT_NE(source.note, "") << source.kind;
  host_.Put(kChip + "power1_input", "1000");
  (void)sensors.Probe();
  EXPECT_EQ(sensors.entities().size(), 1u);
}

TEST_F(HostSensorsTest, KeysAreDifferentEvenWhereDevicesAreNot) {
  for (const char* chip : {"hwmon0", "hwmon1", "hwmon2"}) {
    host_.Put(std::string("sys/class/hwmon/") + chip + "/name", "twin");
    host_.Put(std::string("sys/class/hwmon/") + chip + "/power1_input", "1000");
  }
  HostSensors sensors(Settings());
  (void)sensors.Probe();
  ASSERT_EQ(sensors.entities().size(), 3u);
  EXPECT_EQ(sensors.entities()[0].key, "hwmon/twin/power1");
  EXPECT_EQ(sensors.entities()[1].key, "hwmon/twin/power1#2");
  EXPECT_EQ(sensors.entities()[2].key, "hwmon/twin/power1#3");
}

TEST_F(HostSensorsTest, AServerThatIsNotThereIsASourceWithAnAdvice) {
  HostSettings settings = Settings();
  settings.nut = LoopbackAddress(UnusedPort());
  HostSensors sensors(settings);
  const ProbeReport report = sensors.Probe();
  ASSERT_EQ(report.sources.size(), 4u);
  EXPECT_EQ(report.sources[3].kind, "nut");
  EXPECT_NE(report.sources[3].note.find("Connection refused"), std::string::npos);
  EXPECT_NE(report.sources[3].advice.find("--nut"), std::string::npos);
}

}  // namespace
}  // namespace vt::testing
