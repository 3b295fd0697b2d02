#include "node/host/hwmon.h"

#include <gtest/gtest.h>

#include "tests/node/host/host_tree.h"

namespace vt::testing {
namespace {

using node::Caliber;
using node::Category;
using node::Findings;
using node::HwmonSource;
using node::Reading;
using node::Trouble;

class Hwmon : public ::testing::Test {
 protected:
  HostTree host_;
  HwmonSource source_{host_.tree()};
};

TEST_F(Hwmon, ASensorIsNamedAfterItsDeviceAndItsLabel) {
  host_.Put(kChip + "name", "amdgpu");
  host_.Link(kChip + "device", "../../../0000:03:00.0");
  host_.Put(kChip + "power1_label", "PPT");
  host_.Put(kChip + "power1_average", "42000499");
  const Findings findings = source_.Find();
  ASSERT_EQ(findings.entities.size(), 1u);
  EXPECT_EQ(findings.entities[0].key, "hwmon/amdgpu/0000:03:00.0/power1");
  EXPECT_EQ(findings.entities[0].name, "amdgpu PPT");
  EXPECT_EQ(findings.entities[0].caliber, Caliber::kMeasured);
  EXPECT_EQ(findings.entities[0].category, Category::kConsumer);
  const std::vector<Reading> readings = source_.Read();
  ASSERT_EQ(readings.size(), 1u);
  EXPECT_EQ(readings[0].milliwatts, 42000);
}

TEST_F(Hwmon, TheInputGoesBeforeTheAverage) {
  host_.Put(kChip + "name", "chip");
  host_.Put(kChip + "power1_average", "1000");
  host_.Put(kChip + "power1_input", "2000");
  host_.Put(kChip + "power2_average", "3000");
  ASSERT_EQ(source_.Find().entities.size(), 2u);
  const std::vector<Reading> readings = source_.Read();
  EXPECT_EQ(readings[0].milliwatts, 2);
  EXPECT_EQ(readings[1].milliwatts, 3);
}

TEST_F(Hwmon, OtherFilesAreNoSensors) {
  for (const char* file :
       {"power1_max", "power1_cap", "power_input", "powerx_input", "power1", "in1_input",
        "power-1_input", "power1_input_lowest", "power99999999999999999999_input"}) {
    host_.Put(kChip + file, "1");
  }
  host_.Put("sys/class/hwmon/other0/power1_input", "1");
  const Findings findings = source_.Find();
  EXPECT_TRUE(findings.entities.empty());
  EXPECT_EQ(findings.note, host_.root() + "/sys/class/hwmon/hwmon*: no power sensor");
}

TEST_F(Hwmon, WhatSeesTheWholeHostIsAMeter) {
  host_.Put(kChip + "name", "power_meter");
  host_.Put(kChip + "power1_average", "120000000");
  host_.Put("sys/class/hwmon/hwmon1/name", "pmbus");
  host_.Put("sys/class/hwmon/hwmon1/power1_input", "5");
  host_.Put("sys/class/hwmon/hwmon1/power1_label", "pin");
  host_.Put("sys/class/hwmon/hwmon1/power2_input", "5");
  host_.Put("sys/class/hwmon/hwmon1/power2_label", "pout1");
  const Findings findings = source_.Find();
  ASSERT_EQ(findings.entities.size(), 3u);
  for (const auto& entity : findings.entities) {
    EXPECT_EQ(entity.category, Category::kMeter) << entity.key;
  }
  EXPECT_EQ(source_.Read().at(0).category, Category::kMeter);
}

TEST_F(Hwmon, AProcessorThatJudgesItselfIsEstimated) {
  host_.Put(kChip + "name", "fam15h_power");
  host_.Put(kChip + "power1_input", "5");
  EXPECT_EQ(source_.Find().entities.at(0).caliber, Caliber::kEstimated);
}

TEST_F(Hwmon, TheSensorsOfABatteryAreItsOwnSource) {
  host_.Put("sys/class/power_supply/BAT0/type", "Battery");
  host_.Put(kChip + "name", "BAT0");
  host_.Link(kChip + "device", "../../BAT0");
  host_.Put(kChip + "power1_input", "5");
  EXPECT_TRUE(source_.Find().entities.empty());
}

TEST_F(Hwmon, FailuresAreSaidForEachSensor) {
  host_.Put(kChip + "name", "chip");
  const std::vector<std::string> files = {"power1_input", "power2_input", "power3_input",
                                          "power4_input", "power5_input", "power6_input"};
  for (const std::string& file : files) host_.Put(kChip + file, "1000000");
  ASSERT_EQ(source_.Find().entities.size(), files.size());
  host_.Deny(kChip + files[1]);
  HwmonSource denied(host_.tree());
  ASSERT_EQ(denied.Find().entities.size(), files.size());
  host_.Remove(kChip + files[2]);
  host_.Put(kChip + files[3], "-1000");
  host_.Put(kChip + files[4], "9223372036854775807");
  host_.Put(kChip + files[5], "warm");
  const std::vector<Reading> readings = denied.Read();
  ASSERT_EQ(readings.size(), files.size());
  EXPECT_EQ(readings[0].milliwatts, 1000) << "one that works is read all the same";
  EXPECT_EQ(readings[1].trouble, Trouble::kDenied);
  EXPECT_EQ(readings[2].trouble, Trouble::kGone);
  EXPECT_EQ(readings[3].trouble, Trouble::kFaulty);
  EXPECT_EQ(readings[4].trouble, Trouble::kFaulty);
  EXPECT_EQ(readings[5].trouble, Trouble::kFaulty);
  EXPECT_NE(denied.Advice(Trouble::kDenied).find("SUBSYSTEM==\"hwmon\""), std::string::npos);
  EXPECT_NE(denied.Advice(Trouble::kGone), denied.Advice(Trouble::kDenied));
}

TEST_F(Hwmon, LinksInACircleAreNoSensors) {
  host_.Link("sys/class/hwmon/hwmon0", "hwmon1");
  host_.Link("sys/class/hwmon/hwmon1", "hwmon0");
  EXPECT_TRUE(source_.Find().entities.empty());
}

TEST_F(Hwmon, OnlySoManySensorsAreListed) {
  for (int i = 1; i <= 70; ++i) host_.Put(kChip + "power" + std::to_string(i) + "_input", "1");
  EXPECT_EQ(source_.Find().entities.size(), node::kMostEntities);
}

}  // namespace
}  // namespace vt::testing
