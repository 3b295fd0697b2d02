// Names and ranges of nodes.
#include "tools/host_names.h"

#include <gtest/gtest.h>

#include "tools/exit_code.h"

namespace vt::tools {
namespace {

using Strings = std::vector<std::string>;

std::string FaultOfNames(const std::string& list) {
  try {
    ExpandNames(list);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), kExitUsage);
    return failure.what();
  }
  return "none";
}

TEST(HostNames, ARangeKeepsTheZerosInFront) {
  EXPECT_EQ(ExpandNames("pdu[08-11].lab"),
            (Strings{"pdu08.lab", "pdu09.lab", "pdu10.lab", "pdu11.lab"}));
}

TEST(HostNames, WithoutZerosInFrontNumbersAreAsLongAsTheyAre) {
  EXPECT_EQ(ExpandNames("n[9-11]"), (Strings{"n9", "n10", "n11"}));
}

TEST(HostNames, AStepLeavesOut) { EXPECT_EQ(ExpandNames("n[1-8/3]"), (Strings{"n1", "n4", "n7"})); }

TEST(HostNames, TheLastBracketTurnsFastest) {
  EXPECT_EQ(ExpandNames("r[1-2]u[a,b]"), (Strings{"r1ua", "r1ub", "r2ua", "r2ub"}));
}

TEST(HostNames, CommasPartNamesOutsideAndChoicesInsideOfBrackets) {
  EXPECT_EQ(ExpandNames("a[1,5-6,x-y],b , 192.0.2.[1-2]:7441"),
            (Strings{"a1", "a5", "a6", "ax-y", "b", "192.0.2.1:7441", "192.0.2.2:7441"}));
}

TEST(HostNames, AsManyNamesAsAreAllowedAreGiven) {
  EXPECT_EQ(ExpandNames("n[1-65536]").size(), kMostNames);
}

TEST(HostNames, OneNameMoreThanIsAllowedIsRefused) {
  for (const char* list :
       {"n[1-65537]", "n[0-4294967295]", "n[1-300][1-300]", "n[1-65536],m", "a[1-40000,1-40000]"}) {
    EXPECT_NE(FaultOfNames(list).find("more than 65536 names"), std::string::npos) << list;
  }
}

TEST(HostNames, WhatCannotBeReadIsToldWithTheReason) {
  EXPECT_EQ(FaultOfNames(""), "\"\" has nothing where the name of a node should stand");
  EXPECT_EQ(FaultOfNames("a,,b"), "\"a,,b\" has nothing where the name of a node should stand");
  EXPECT_EQ(FaultOfNames("a[1-2"), "\"a[1-2\" opens a bracket that is not closed");
  EXPECT_EQ(FaultOfNames("a]"), "\"a]\" closes a bracket that was not opened");
  EXPECT_EQ(FaultOfNames("a[[1]]"), "\"a[[1]]\" has a bracket inside of brackets");
  EXPECT_EQ(FaultOfNames("a[]"), "\"a[]\" has nothing where a number or a word should stand");
  EXPECT_EQ(FaultOfNames("a[1,]"), "\"a[1,]\" has nothing where a number or a word should stand");
  EXPECT_EQ(FaultOfNames("a[2-1]"), "\"a[2-1]\" has a range that ends before it begins");
  EXPECT_EQ(FaultOfNames("a[1-2/0]"), "\"a[1-2/0]\" has a range with a step of 0");
  EXPECT_EQ(FaultOfNames("a[1-]"), "\"a[1-]\" has a range that is not of the form 1-40 or 1-40/2");
  EXPECT_EQ(FaultOfNames("a[1-99999999999]"),
            "\"a[1-99999999999]\" has a range of what are no numbers up to 4294967295");
}

TEST(HostNames, NoTruncationOfAListDoesMoreThanFail) {
  const std::string list = "a[01-03/2,x],b[1-2]c[7,8].lab:7440";
  for (std::size_t size = 0; size <= list.size(); ++size) {
    try {
      EXPECT_FALSE(ExpandNames(list.substr(0, size)).empty());
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), kExitUsage);
    }
  }
}

TEST(HostNames, APortStandsBehindAColon) {
  EXPECT_EQ(SplitPort("pdu-1.lab:7441"), (HostPort{"pdu-1.lab", std::uint16_t{7441}}));
  EXPECT_EQ(SplitPort("192.0.2.7"), (HostPort{"192.0.2.7", std::nullopt}));
}

TEST(HostNames, WhatIsNoHostOrNoPortIsRefused) {
  for (const char* name :
       {"", ":7440", "a:", "a:0", "a:65536", "a:7x", "-n", "a b", "a:1:2", "a\x1b[31m", "a/b"}) {
    EXPECT_THROW(SplitPort(name), Failure) << name;
  }
  EXPECT_THROW(SplitPort(std::string(254, 'a')), Failure);
}

}  // namespace
}  // namespace vt::tools
