#include "tools/check_options.h"

#include <gtest/gtest.h>

#include "tools/exit_code.h"

namespace vt::tools {
namespace {

TEST(CheckOptions, ARangeWithoutANameIsOfTheTotal) {
  const CheckOptions options = ParseCheckOptions({"400"}, {"total=500"}, "unknown");
  const Thresholds& total = options.Of(Metric::kTotal);
  EXPECT_EQ(total.warning->text(), "400");
  EXPECT_EQ(total.critical->text(), "500");
  EXPECT_FALSE(options.Of(Metric::kLargest).IsSet());
}

TEST(CheckOptions, EachMetricHasRangesOfItsOwn) {
  const CheckOptions options =
      ParseCheckOptions({"largest=1", "smallest=2:", "entities=3:"}, {"unreachable=0"}, "warning");
  EXPECT_EQ(options.Of(Metric::kLargest).warning->text(), "1");
  EXPECT_EQ(options.Of(Metric::kSmallest).warning->text(), "2:");
  EXPECT_EQ(options.Of(Metric::kEntities).warning->text(), "3:");
  EXPECT_EQ(options.Of(Metric::kUnreachable).critical->text(), "0");
  EXPECT_EQ(options.on_failure, CheckState::kWarning);
}

TEST(CheckOptions, WhatMakesNoSenseIsRefused) {
  EXPECT_THROW(ParseCheckOptions({"power=3"}, {}, "unknown"), Failure);
  EXPECT_THROW(ParseCheckOptions({"total=x"}, {}, "unknown"), Failure);
  EXPECT_THROW(ParseCheckOptions({"3", "total=4"}, {}, "unknown"), Failure);
  EXPECT_THROW(ParseCheckOptions({}, {"="}, "unknown"), Failure);
  EXPECT_THROW(ParseCheckOptions({}, {}, "fine"), Failure);
}

TEST(CheckOptions, ATildeThatTheShellReplacedIsToldOf) {
  const auto fault_of = [](const char* range) -> std::string {
    try {
      ParseCheckOptions({range}, {}, "unknown");
      return "none";
    } catch (const Failure& failure) {
      return failure.what();
    }
  };
  EXPECT_NE(fault_of("/home/ann:5").find("; a shell wants '~:5' in quotes"), std::string::npos);
  EXPECT_EQ(fault_of("x:5").find("quotes"), std::string::npos);
  EXPECT_EQ(fault_of("~:5"), "none");
}

TEST(CheckOptions, MetricsAreNamedAsOnTheCommandLine) {
  for (std::size_t i = 0; i < kMetricCount; ++i) {
    const auto metric = static_cast<Metric>(i);
    const CheckOptions options =
        ParseCheckOptions({std::string(MetricName(metric)) + "=7"}, {}, "ok");
    EXPECT_TRUE(options.Of(metric).IsSet());
  }
}

}  // namespace
}  // namespace vt::tools
