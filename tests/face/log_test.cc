// The log through the C++ interface, and the version.
#include "vtapi/face/log.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "vtapi.hpp"

#include "tests/harness/log_capture.h"

namespace {

using voltaris::LogLevel;

std::vector<std::string> heard;

TEST(FaceLog, GoesToACallbackWithoutALineAboutThat) {
  const vt::testing::LogCapture restores;
  const vt::testing::FileLog file;
  heard.clear();
  voltaris::set_log(LogLevel::kDebug,
                    [](std::uint32_t, const char* text) { heard.emplace_back(text); });
  EXPECT_EQ(voltaris::log_level(), LogLevel::kDebug);
  EXPECT_TRUE(heard.empty());
  EXPECT_TRUE(voltaris::collect_query("office").build());
  ASSERT_FALSE(heard.empty());
  EXPECT_EQ(heard[0], "voltaris_createQuery: new Query (class=1, action=2, pri=100)");
  EXPECT_EQ(file.text(), "");
}

TEST(FaceLog, GoesToAStreamWithoutALineAboutThat) {
  const vt::testing::LogCapture capture;
  const vt::testing::FileLog file;
  voltaris::set_log(LogLevel::kDebug, file.stream());
  EXPECT_EQ(file.text(), "");
  EXPECT_TRUE(voltaris::collect_query("office").build());
  EXPECT_NE(file.text().find("new Query"), std::string::npos);
  EXPECT_TRUE(capture.lines().empty());
}

TEST(FaceLog, CanBeSilenced) {
  const vt::testing::LogCapture capture;
  voltaris::set_log_level(LogLevel::kOff);
  EXPECT_TRUE(voltaris::collect_query("office").build());
  EXPECT_TRUE(capture.lines().empty());
}

TEST(FaceVersion, IsThatOfTheLibrary) { EXPECT_EQ(voltaris::version(), "-2.0.136"); }

}  // namespace
