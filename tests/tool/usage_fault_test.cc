#include "tools/usage_fault.h"

#include <gtest/gtest.h>

namespace vt::tools {
namespace {

TEST(NearestWord, IsFoundThroughOneLetterTooFewTooManySwappedOrWrong) {
  const std::vector<std::string> commands = {"collect", "set", "sum", "nodes"};
  for (const char* typed : {"colect", "colllect", "collcet", "collekt", "coll"}) {
    EXPECT_EQ(NearestWord(typed, commands), "collect") << typed;
  }
  EXPECT_EQ(NearestWord("node", commands), "nodes");
}

TEST(NearestWord, IsTheNearerOfTwo) {
  EXPECT_EQ(NearestWord("sun", {"set", "sum"}), "sum");
  EXPECT_EQ(NearestWord("--profle", {"--profile", "--role"}), "--profile");
}

TEST(NearestWord, IsNoneWhereNothingIsNear) {
  EXPECT_EQ(NearestWord("toaster", {"collect", "set", "sum"}), "");
  EXPECT_EQ(NearestWord("", {"set"}), "");
  EXPECT_EQ(NearestWord("x", {}), "");
}

}  // namespace
}  // namespace vt::tools
