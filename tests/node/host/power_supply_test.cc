#include "node/host/power_supply.h"

#include <gtest/gtest.h>

#include "tests/node/host/host_tree.h"

namespace vt::testing {
namespace {

using node::Caliber;
using node::Category;
using node::Findings;
using node::PowerSupplySource;
using node::Reading;
using node::Trouble;

const std::string kBattery = "sys/class/power_supply/BAT0/";
const std::string kMains = "sys/class/power_supply/AC/";

class PowerSupply : public ::testing::Test {
 protected:
  void PutBattery(const std::string& status) const {
    host_.Put(kBattery + "type", "Battery");
    host_.Put(kBattery + "status", status);
    host_.Put(kBattery + "present", "1");
  }

  // ReadOnly is the reading of the only supply.
  Reading ReadOnly() {
    EXPECT_EQ(source_.Find().entities.size(), 1u);
    const std::vector<Reading> readings = source_.Read();
    return readings.empty() ? Reading::Failed(Trouble::kGone, "nothing") : readings[0];
  }

  HostTree host_;
  PowerSupplySource source_{host_.tree()};
};

TEST_F(PowerSupply, ADischargingBatteryProducesWhatTheHostDraws) {
  PutBattery("Discharging");
  host_.Put(kBattery + "power_now", "14250000");
  const Findings findings = source_.Find();
  ASSERT_EQ(findings.entities.size(), 1u);
  EXPECT_EQ(findings.entities[0].key, "supply/BAT0");
  EXPECT_EQ(findings.entities[0].category, Category::kProducer);
  EXPECT_EQ(findings.entities[0].caliber, Caliber::kMeasured);
  const Reading reading = ReadOnly();
  EXPECT_EQ(reading.milliwatts, 14250);
  EXPECT_EQ(reading.category, Category::kProducer);
}

TEST_F(PowerSupply, TheCategoryFollowsTheDirection) {
  PutBattery("Discharging");
  host_.Put(kBattery + "power_now", "1000000");
  (void)source_.Find();
  EXPECT_EQ(source_.Read().at(0).category, Category::kProducer);
  for (const char* status : {"Charging", "Full", "Not charging"}) {
    host_.Put(kBattery + "status", status);
    EXPECT_EQ(source_.Read().at(0).category, Category::kConsumer) << status;
  }
  for (const char* status : {"Unknown", "", "Dancing"}) {
    host_.Put(kBattery + "status", status);
    EXPECT_EQ(source_.Read().at(0).category, Category::kMeter) << status;
  }
}

TEST_F(PowerSupply, WithoutPowerItIsCurrentTimesVoltage) {
  PutBattery("Discharging");
  host_.Put(kBattery + "current_now", "-1250000");
  host_.Put(kBattery + "voltage_now", "12000000");
  EXPECT_EQ(ReadOnly().milliwatts, 15000) << "the sign is that of the direction";
}

TEST_F(PowerSupply, APowerThatCannotBeReadIsReplacedByCurrentTimesVoltage) {
  PutBattery("Discharging");
  host_.Put(kBattery + "power_now", "");
  host_.Put(kBattery + "current_now", "1000000");
  host_.Put(kBattery + "voltage_now", "5000000");
  EXPECT_EQ(ReadOnly().milliwatts, 5000);
}

TEST_F(PowerSupply, FailuresNameTheFileThatIsThere) {
  PutBattery("Discharging");
  EXPECT_EQ(ReadOnly().detail,
            host_.root() + "/" + kBattery + "power_now: No such file or directory");
  host_.Put(kBattery + "current_now", "1000000");
  EXPECT_EQ(ReadOnly().detail,
            host_.root() + "/" + kBattery + "voltage_now: No such file or directory");
  host_.Put(kBattery + "current_now", "much");
  EXPECT_EQ(ReadOnly().detail, host_.root() + "/" + kBattery + "current_now: not a number: much");
  host_.Put(kBattery + "power_now", "more");
  EXPECT_EQ(ReadOnly().detail, host_.root() + "/" + kBattery + "power_now: not a number: more");
  EXPECT_EQ(ReadOnly().trouble, Trouble::kFaulty);
}

TEST_F(PowerSupply, HugeNumbersAreFaultyAndDoNotOverflow) {
  PutBattery("Discharging");
  host_.Put(kBattery + "current_now", "-9223372036854775808");
  host_.Put(kBattery + "voltage_now", "9223372036854775807");
  EXPECT_EQ(ReadOnly().trouble, Trouble::kFaulty);
  host_.Put(kBattery + "power_now", "-9223372036854775808");
  EXPECT_EQ(ReadOnly().trouble, Trouble::kFaulty);
}

TEST_F(PowerSupply, DeniedFilesAreSaid) {
  PutBattery("Discharging");
  host_.Put(kBattery + "power_now", "1");
  host_.Deny(kBattery + "power_now");
  PowerSupplySource source(host_.tree());
  ASSERT_EQ(source.Find().entities.size(), 1u);
  EXPECT_EQ(source.Read().at(0).trouble, Trouble::kDenied);
  EXPECT_NE(source.Advice(Trouble::kDenied), source.Advice(Trouble::kGone));
}

TEST_F(PowerSupply, ABatteryThatIsTakenOutIsGone) {
  PutBattery("Discharging");
  host_.Put(kBattery + "power_now", "5000000");
  EXPECT_TRUE(ReadOnly().ok());
  host_.Put(kBattery + "present", "0");
  EXPECT_EQ(ReadOnly().trouble, Trouble::kGone);
  host_.Remove(kBattery);
  EXPECT_EQ(source_.Read().at(0).trouble, Trouble::kGone) << "since the last look";
}

TEST_F(PowerSupply, TheBatteryOfAMouseIsNotTheHosts) {
  PutBattery("Discharging");
  host_.Put(kBattery + "scope", "Device");
  EXPECT_TRUE(source_.Find().entities.empty());
}

TEST_F(PowerSupply, MainsThatTellNoPowerOnlyTellWhetherTheyArePluggedIn) {
  EXPECT_EQ(source_.OnMains(), std::nullopt);
  host_.Put(kMains + "type", "Mains");
  EXPECT_EQ(source_.OnMains(), std::nullopt);
  host_.Put(kMains + "online", "1");
  EXPECT_EQ(source_.OnMains(), true);
  const Findings findings = source_.Find();
  EXPECT_TRUE(findings.entities.empty());
  EXPECT_EQ(
      findings.note,
      host_.root() + "/sys/class/power_supply: no battery, and no supply that tells its power");
  host_.Put(kMains + "online", "0");
  EXPECT_EQ(source_.OnMains(), false);
  host_.Put("sys/class/power_supply/usb1/type", "USB_C");
  host_.Put("sys/class/power_supply/usb1/online", "2");
  EXPECT_EQ(source_.OnMains(), true) << "one of several suffices";
  host_.Put(kMains + "online", "1");
  host_.Put("sys/class/power_supply/usb1/online", "0");
  EXPECT_EQ(source_.OnMains(), true) << "whichever it is";
}

TEST_F(PowerSupply, MainsThatTellTheirPowerAreMetersAndZeroWhileUnplugged) {
  host_.Put(kMains + "type", "Mains");
  host_.Put(kMains + "online", "1");
  host_.Put(kMains + "power_now", "60000000");
  Reading reading = ReadOnly();
  EXPECT_EQ(reading.milliwatts, 60000);
  EXPECT_EQ(reading.category, Category::kMeter);
  host_.Put(kMains + "online", "0");
  reading = ReadOnly();
  EXPECT_TRUE(reading.ok());
  EXPECT_EQ(reading.milliwatts, 0) << "the last value is stale";
}

TEST_F(PowerSupply, WhatAUsbSupplyTellsIsAnEstimate) {
  host_.Put("sys/class/power_supply/usb/type", "USB");
  host_.Put("sys/class/power_supply/usb/current_now", "3000000");
  host_.Put("sys/class/power_supply/usb/voltage_now", "20000000");
  EXPECT_EQ(source_.Find().entities.at(0).caliber, Caliber::kEstimated);
  EXPECT_EQ(ReadOnly().milliwatts, 60000);
}

TEST_F(PowerSupply, OtherTypesAndGarbageAreLeftAlone) {
  host_.Put("sys/class/power_supply/w/type", "Wireless");
  host_.Put("sys/class/power_supply/x/type", "");
  host_.MakeFolder("sys/class/power_supply/y/type");
  host_.Link("sys/class/power_supply/z", "z");
  EXPECT_TRUE(source_.Find().entities.empty());
  EXPECT_EQ(source_.OnMains(), std::nullopt);
}

TEST_F(PowerSupply, OnlySoManyAreListed) {
  for (int i = 0; i < 70; ++i) {
    host_.Put("sys/class/power_supply/BAT" + std::to_string(i) + "/type", "Battery");
  }
  EXPECT_EQ(source_.Find().entities.size(), node::kMostEntities);
}

}  // namespace
}  // namespace vt::testing
