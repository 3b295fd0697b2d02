#include "node/host/rapl.h"

#include <gtest/gtest.h>

#include "tests/node/host/host_tree.h"

namespace vt::testing {
namespace {

using node::Category;
using node::Findings;
using node::RaplSource;
using node::Reading;
using node::Trouble;
using std::chrono::milliseconds;

constexpr const char* kEnergyFile = "sys/class/powercap/intel-rapl:0/energy_uj";

class Rapl : public ::testing::Test {
 protected:
  // PutPackage makes one package with its parts, and psys beside it.
  void PutPackage() const {
    host_.MakeFolder("sys/class/powercap/intel-rapl");
    host_.PutZone("intel-rapl:0", "package-0", "1000000");
    host_.PutZone("intel-rapl:0:0", "core", "500000");
    host_.PutZone("intel-rapl:0:1", "uncore", "400000");
    host_.PutZone("intel-rapl:0:2", "dram", "300000");
    host_.PutZone("intel-rapl:1", "psys", "9000000");
  }

  RaplSource Source() const { return {host_.tree(), clock_.clock()}; }

  // ReadAfterASecond is the reading of the only zone.
  Reading ReadAfterASecond(RaplSource& source) {
    clock_.Advance(milliseconds(1000));
    const std::vector<Reading> readings = source.Read();
    EXPECT_EQ(readings.size(), 1u);
    return readings.at(0);
  }

  // FirstReading makes a tree with one package and reads it once.
  void FirstReading(RaplSource& source) {
    ASSERT_EQ(source.Find().entities.size(), 1u);
    ASSERT_EQ(source.Read().at(0).trouble, Trouble::kWaiting);
  }

  HostTree host_;
  HandClock clock_;
};

TEST_F(Rapl, PackagesAndMemoryAreConsumersAndThePlatformIsAMeter) {
  PutPackage();
  RaplSource source = Source();
  const Findings findings = source.Find();
  ASSERT_EQ(findings.entities.size(), 3u) << "core and uncore are parts of the package";
  EXPECT_EQ(findings.entities[0].key, "rapl/package-0");
  EXPECT_EQ(findings.entities[0].category, Category::kConsumer);
  EXPECT_EQ(findings.entities[0].caliber, node::Caliber::kEstimated);
  EXPECT_EQ(findings.entities[1].key, "rapl/psys");
  EXPECT_EQ(findings.entities[1].category, Category::kMeter);
  EXPECT_EQ(findings.entities[2].key, "rapl/package-0/dram");
  EXPECT_EQ(findings.entities[2].name, "package-0 dram");
  EXPECT_EQ(findings.entities[2].category, Category::kConsumer);
  EXPECT_EQ(findings.note, "");
}

TEST_F(Rapl, PowerComesFromTwoReadingsAndNothingIsAddedUp) {
  PutPackage();
  RaplSource source = Source();
  (void)source.Find();
  for (const Reading& reading : source.Read()) EXPECT_EQ(reading.trouble, Trouble::kWaiting);
  clock_.Advance(milliseconds(2000));
  host_.PutEnergy("intel-rapl:0", "31000000");
  host_.PutEnergy("intel-rapl:0:0", "20500000");
  host_.PutEnergy("intel-rapl:0:2", "4300000");
  host_.PutEnergy("intel-rapl:1", "99000000");
  const std::vector<Reading> readings = source.Read();
  ASSERT_EQ(readings.size(), 3u);
  EXPECT_EQ(readings[0].milliwatts, 15000);
  EXPECT_EQ(readings[1].milliwatts, 45000);
  EXPECT_EQ(readings[2].milliwatts, 2000);
  EXPECT_EQ(readings[1].category, Category::kMeter);
  EXPECT_TRUE(readings[0].ok() && readings[1].ok() && readings[2].ok());
}

TEST_F(Rapl, OtherControlTypesAndStrangeFoldersAreLeftAlone) {
  for (const char* folder : {"intel-rapl-mmio:0", "dtpm:0", "intel-rapl:", "intel-rapl:x",
                             "intel-rapl:0:", "intel-rapl:0:1:2", "intel-rapl:0x"}) {
    host_.PutZone(folder, "package-0", "1");
  }
  host_.PutZone("intel-rapl:4", "core", "1");
  host_.PutZone("intel-rapl:5:0", "package-5", "1");
  RaplSource source = Source();
  const Findings findings = source.Find();
  EXPECT_TRUE(findings.entities.empty());
  EXPECT_NE(findings.note.find("modprobe intel_rapl_msr"), std::string::npos) << findings.note;
}

TEST_F(Rapl, NothingIsThereOnAnEmptyTree) {
  RaplSource source = Source();
  EXPECT_TRUE(source.Find().entities.empty());
  EXPECT_TRUE(source.Read().empty());
}

TEST_F(Rapl, ZonesAreReachedThroughLinksAsTheKernelHasThem) {
  host_.Put("sys/devices/virtual/powercap/intel-rapl/intel-rapl:0/name", "package-0");
  host_.Put("sys/devices/virtual/powercap/intel-rapl/intel-rapl:0/energy_uj", "5");
  host_.Link("sys/class/powercap/intel-rapl:0",
             "../../devices/virtual/powercap/intel-rapl/intel-rapl:0");
  RaplSource source = Source();
  FirstReading(source);
}

TEST_F(Rapl, WrapsAroundByTheRangeOfItsFile) {
  host_.PutZone("intel-rapl:0", "package-0", "65532000000", "65532610987");
  RaplSource source = Source();
  FirstReading(source);
  host_.PutEnergy("intel-rapl:0", "9389013");
  EXPECT_EQ(ReadAfterASecond(source).milliwatts, 10000);
}

TEST_F(Rapl, ACounterThatIsSetBackWaitsForAnotherReading) {
  host_.PutZone("intel-rapl:0", "package-0", "9000000");
  RaplSource source = Source();
  FirstReading(source);
  host_.PutEnergy("intel-rapl:0", "8000000");
  EXPECT_EQ(ReadAfterASecond(source).trouble, Trouble::kWaiting);
  host_.PutEnergy("intel-rapl:0", "9000000");
  EXPECT_EQ(ReadAfterASecond(source).milliwatts, 1000);
}

TEST_F(Rapl, WithoutAReadableRangeAWrapAroundWaitsForAnotherReading) {
  for (const char* range : {"", "junk", "-5", "99999999999999999999"}) {
    host_.PutZone("intel-rapl:0", "package-0", "65532000000", range);
    RaplSource source = Source();
    FirstReading(source);
    host_.PutEnergy("intel-rapl:0", "1000000");
    EXPECT_EQ(ReadAfterASecond(source).trouble, Trouble::kWaiting) << range;
  }
}

TEST_F(Rapl, DeniedCountersAreListedAndSayWhatToDo) {
  host_.PutZone("intel-rapl:0", "package-0", "1");
  host_.Deny(kEnergyFile);
  RaplSource source = Source();
  ASSERT_EQ(source.Find().entities.size(), 1u);
  const Reading reading = source.Read().at(0);
  EXPECT_EQ(reading.trouble, Trouble::kDenied);
  EXPECT_EQ(reading.detail, host_.root() + "/" + kEnergyFile + ": Permission denied");
  const std::string advice = source.Advice(reading.trouble);
  EXPECT_NE(advice.find("SUBSYSTEM==\"powercap\""), std::string::npos);
  EXPECT_NE(advice.find("chmod g+r /sys%p/energy_uj"), std::string::npos);
}

TEST_F(Rapl, AfterAFailureTheFirstReadingCountsAnew) {
  host_.PutZone("intel-rapl:0", "package-0", "1000000");
  RaplSource source = Source();
  FirstReading(source);
  host_.Deny(kEnergyFile);
  EXPECT_EQ(ReadAfterASecond(source).trouble, Trouble::kDenied);
  host_.Allow(kEnergyFile);
  EXPECT_EQ(ReadAfterASecond(source).trouble, Trouble::kWaiting);
  host_.PutEnergy("intel-rapl:0", "3000000");
  EXPECT_EQ(ReadAfterASecond(source).milliwatts, 2000);
}

TEST_F(Rapl, WhatVanishesOrMakesNoSenseIsSaid) {
  host_.PutZone("intel-rapl:0", "package-0", "1000000");
  RaplSource source = Source();
  FirstReading(source);
  host_.Remove(kEnergyFile);
  EXPECT_EQ(ReadAfterASecond(source).trouble, Trouble::kGone);
  for (const char* text : {"", "-1", "12x", "99999999999999999999"}) {
    host_.PutEnergy("intel-rapl:0", text);
    EXPECT_EQ(ReadAfterASecond(source).trouble, Trouble::kFaulty) << text;
  }
  host_.Remove(kEnergyFile);
  host_.Link(kEnergyFile, "energy_uj");
  EXPECT_EQ(ReadAfterASecond(source).trouble, Trouble::kFaulty) << "a link to itself";
  host_.Remove(kEnergyFile);
  host_.MakeFolder(kEnergyFile);
  EXPECT_EQ(ReadAfterASecond(source).trouble, Trouble::kFaulty) << "a folder";
}

TEST_F(Rapl, APowerThatNoHostHasIsFaulty) {
  host_.PutZone("intel-rapl:0", "package-0", "0", "9223372036854775807");
  RaplSource source = Source();
  FirstReading(source);
  host_.PutEnergy("intel-rapl:0", "9223372036854775807");
  const Reading reading = ReadAfterASecond(source);
  EXPECT_EQ(reading.trouble, Trouble::kFaulty);
  EXPECT_EQ(reading.detail, host_.root() + "/" + kEnergyFile + ": no host has such a power");
}

TEST_F(Rapl, NamesWithControlCharactersAreMadePrintable) {
  host_.PutZone("intel-rapl:0", "package-\x1b[2J \"\xc3", "0");
  RaplSource source = Source();
  const Findings findings = source.Find();
  ASSERT_EQ(findings.entities.size(), 1u);
  EXPECT_EQ(findings.entities[0].name, "package-?[2J \"?");
  EXPECT_EQ(findings.entities[0].key, "rapl/package-__2J___");
}

TEST_F(Rapl, OnlySoManyZonesAreListed) {
  for (int i = 0; i < 70; ++i) {
    host_.PutZone("intel-rapl:" + std::to_string(i), "package-" + std::to_string(i), "0");
  }
  RaplSource source = Source();
  EXPECT_EQ(source.Find().entities.size(), node::kMostEntities);
  EXPECT_EQ(source.Read().size(), node::kMostEntities);
}

}  // namespace
}  // namespace vt::testing
