#include <gtest/gtest.h>

#include "vtapi.h"

namespace {

TEST(Version, IsTheReleasedTextWithItsLeadingHyphen) {
  EXPECT_STREQ("-2.0.136", voltaris_utl_getVersion());
}

TEST(Version, IsTheSamePointerOnEveryCall) {
  EXPECT_EQ(voltaris_utl_getVersion(), voltaris_utl_getVersion());
}

}  // namespace
