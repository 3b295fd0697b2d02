#include "node/host/probe_output.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <limits>
#include <sstream>

#include "tests/node/host/readings.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using node::Caliber;
using node::Category;
using node::ProbeReport;
using node::Reading;
using node::Trouble;

std::string Table(const ProbeReport& report) {
  std::ostringstream out;
  PrintProbeTable(out, report);
  return out.str();
}

ProbeReport Report() {
  ProbeReport report;
  report.on_mains = true;
  report.sources = {{"rapl", 3, "", ""}, {"hwmon", 0, "no sensor", ""}, {"nut", 0, "gone", "a\nb"}};
  const Reading denied = Reading::Failed(Trouble::kDenied, "energy_uj: Permission denied");
  report.entities = {
      {"rapl",
       {"rapl/package-0", "package-0", Caliber::kEstimated, Category::kConsumer},
       ReadingOf(12345, Category::kConsumer),
       ""},
      {"supply",
       {"supply/BAT0", "BAT0", Caliber::kMeasured, Category::kConsumer},
       ReadingOf(9000, Category::kProducer),
       ""},
      {"rapl", {"rapl/a", "a", Caliber::kEstimated, Category::kConsumer}, denied, "do\nthis"},
      {"rapl", {"rapl/b", "b", Caliber::kEstimated, Category::kMeter}, denied, "do\nthis"}};
  return report;
}

TEST(ProbeOutput, TheTableShowsAllAndTheAdviceOnce) {
  EXPECT_EQ(Table(Report()),
            "key             name       power (W)  caliber    category\n"
            "rapl/package-0  package-0     12.345  estimated  consumer\n"
            "supply/BAT0     BAT0               9  measured   producer\n"
            "rapl/a          a                  -  estimated  consumer\n"
            "rapl/b          b                  -  estimated  meter\n"
            "\n"
            "Mains: plugged in\n"
            "\n"
            "Not readable:\n"
            "  rapl/a: energy_uj: Permission denied\n"
            "  rapl/b: energy_uj: Permission denied\n"
            "    do\n"
            "    this\n"
            "\n"
            "Not found:\n"
            "  hwmon: no sensor\n"
            "  nut: gone\n"
            "    a\n"
            "    b\n");
}

TEST(ProbeOutput, NothingIsSaidOfWhatIsInOrder) {
  ProbeReport report = Report();
  report.on_mains.reset();
  report.sources.resize(1);
  report.entities.resize(1);
  EXPECT_EQ(Table(report),
            "key             name       power (W)  caliber    category\n"
            "rapl/package-0  package-0     12.345  estimated  consumer\n");
}

TEST(ProbeOutput, AnEmptyReportSaysSo) {
  ProbeReport report;
  report.on_mains = false;
  EXPECT_EQ(Table(report), "Nothing tells the power of this host.\n\nMains: unplugged\n");
}

TEST(ProbeOutput, JsonHoldsPowerAsDevicesTellIt) {
  std::ostringstream out;
  PrintProbeJson(out, Report());
  const nlohmann::json document = Outcome{0, out.str(), ""}.answer();
  EXPECT_EQ(document["on_mains"], true);
  ASSERT_EQ(document["sources"].size(), 3u);
  EXPECT_EQ(document["sources"][0]["entities"], 3);
  EXPECT_TRUE(document["sources"][0]["note"].is_null());
  EXPECT_EQ(document["sources"][2]["advice"], "a\nb");
  ASSERT_EQ(document["entities"].size(), 4u);
  const nlohmann::json& battery = document["entities"][1];
  EXPECT_EQ(battery["key"], "supply/BAT0");
  EXPECT_EQ(battery["category"], "producer") << "that of the reading";
  EXPECT_EQ(battery["caliber"], "measured");
  EXPECT_EQ(battery["readable"], true);
  EXPECT_EQ(battery["milliwatts"], 9000);
  EXPECT_EQ(battery["usage"], 9000);
  EXPECT_EQ(battery["units"], -3);
  EXPECT_TRUE(battery["trouble"].is_null());
  const nlohmann::json& denied = document["entities"][2];
  EXPECT_EQ(denied["readable"], false);
  EXPECT_EQ(denied["trouble"], "denied");
  EXPECT_EQ(denied["detail"], "energy_uj: Permission denied");
  EXPECT_EQ(denied["advice"], "do\nthis");
  EXPECT_TRUE(denied["milliwatts"].is_null());
}

TEST(ProbeOutput, APathThatIsNoUtf8IsStillJson) {
  ProbeReport report;
  report.sources = {{"rapl", 0, "\xff/sys", ""}};
  std::ostringstream out;
  PrintProbeJson(out, report);
  EXPECT_EQ((Outcome{0, out.str(), ""}.answer()["schema"]), "voltaris-probe-1");
}

TEST(ProbeOutput, WattsAreExact) {
  EXPECT_EQ(node::WattsOf(0), "0");
  EXPECT_EQ(node::WattsOf(1), "0.001");
  EXPECT_EQ(node::WattsOf(1010), "1.01");
  EXPECT_EQ(node::WattsOf(12500), "12.5");
  EXPECT_EQ(node::WattsOf(100000), "100");
  EXPECT_EQ(node::WattsOf(std::numeric_limits<std::int64_t>::max()), "9223372036854775.807");
}

}  // namespace
}  // namespace vt::testing
