#include "tools/watch_order.h"

#include <gtest/gtest.h>

#include "tools/exit_code.h"

namespace vt::tools {
namespace {

TEST(WatchOrder, IsAColumnAndADirection) {
  EXPECT_EQ(ParseWatchOrder("usage"), (WatchOrder{WatchColumn::kUsage, false}));
  EXPECT_EQ(ParseWatchOrder("change:desc"), (WatchOrder{WatchColumn::kChange, true}));
  EXPECT_EQ(ParseWatchOrder("device"), WatchOrder());
}

TEST(WatchOrder, ColumnsThatAreNotThereAreRefused) {
  for (const char* text : {"", "power", "usage:asc", ":desc", "usage:desc:desc"}) {
    EXPECT_THROW(ParseWatchOrder(text), Failure) << text;
  }
}

}  // namespace
}  // namespace vt::tools
