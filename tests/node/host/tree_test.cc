#include "node/host/tree.h"

#include <gtest/gtest.h>

#include "tests/node/host/host_tree.h"

namespace vt::testing {
namespace {

using node::FileNumber;
using node::FileText;
using node::Trouble;

std::string Detail(const HostTree& host, const std::string& what) {
  return host.root() + "/f: " + what;
}

TEST(Tree, ReadsTextAndNumbersWithoutTheLineEnd) {
  HostTree host;
  host.Put("f", "-12345 ");
  EXPECT_EQ(host.tree().ReadWord("f"), "-12345");
  const FileNumber number = host.tree().ReadNumber("f");
  EXPECT_TRUE(number.ok());
  EXPECT_EQ(number.value, -12345);
}

TEST(Tree, TheRootMayEndInASlash) {
  HostTree host;
  host.Put("f", "1");
  EXPECT_EQ(node::Tree(host.root() + "/").Path("f"), host.root() + "/f");
  EXPECT_EQ(node::Tree(host.root()).ReadWord("f"), "1");
}

TEST(Tree, WhatIsNotThereIsGone) {
  HostTree host;
  const FileText file = host.tree().Read("f");
  EXPECT_EQ(file.trouble, Trouble::kGone);
  EXPECT_EQ(file.detail, Detail(host, "No such file or directory"));
  host.Put("f", "a file, not a folder");
  EXPECT_EQ(host.tree().Read("f/below").trouble, Trouble::kGone);
}

TEST(Tree, WhatMayNotBeReadIsDenied) {
  HostTree host;
  host.Put("f", "1");
  host.Deny("f");
  const FileNumber number = host.tree().ReadNumber("f");
  EXPECT_EQ(number.trouble, Trouble::kDenied);
  EXPECT_EQ(number.detail, Detail(host, "Permission denied"));
}

TEST(Tree, AFolderOrAPipeInThePlaceOfAFileIsFaulty) {
  HostTree host;
  host.MakeFolder("f");
  EXPECT_EQ(host.tree().Read("f").detail, Detail(host, "not a file"));
  host.Remove("f");
  host.MakePipe("f");
  const FileText pipe = host.tree().Read("f");
  EXPECT_EQ(pipe.trouble, Trouble::kFaulty);
  EXPECT_EQ(pipe.detail, Detail(host, "not a file"));
}

TEST(Tree, ALinkToItselfIsFaulty) {
  HostTree host;
  host.Link("f", "f");
  const FileText file = host.tree().Read("f");
  EXPECT_EQ(file.trouble, Trouble::kFaulty);
  EXPECT_EQ(file.detail, Detail(host, "Too many levels of symbolic links"));
  EXPECT_TRUE(host.tree().List("f").empty());
}

TEST(Tree, AFileOfMoreThanAPageIsFaulty) {
  HostTree host;
  host.Put("f", std::string(4095, '0'));
  EXPECT_EQ(host.tree().ReadNumber("f").value, 0) << "4096 bytes with the line end";
  EXPECT_TRUE(host.tree().ReadNumber("f").ok());
  host.Put("f", std::string(4096, '0'));
  EXPECT_EQ(host.tree().ReadNumber("f").detail, Detail(host, "too long"));
}

TEST(Tree, WhatIsNoNumberIsFaultyAndShownPrintable) {
  HostTree host;
  for (const char* text : {"", "abc", "12 13", "1e3", "+5", "0x10", "1.5", "9223372036854775808",
                           "-9223372036854775809", "99999999999999999999999999"}) {
    host.Put("f", text);
    EXPECT_EQ(host.tree().ReadNumber("f").trouble, Trouble::kFaulty) << text;
  }
  std::string strange = "\x1b[2J\xff";
  strange.append(100, 'x');
  host.Put("f", strange);
  EXPECT_EQ(host.tree().ReadNumber("f").detail,
            Detail(host, "not a number: ?[2J?" + std::string(59, 'x')));
  host.Put("f", "9223372036854775807");
  EXPECT_TRUE(host.tree().ReadNumber("f").ok());
}

TEST(Tree, ListsInTheOrderOfNumbers) {
  HostTree host;
  for (const char* name : {"z10", "z9", "z1"}) host.Put(std::string("d/") + name, "");
  EXPECT_EQ(host.tree().List("d"), (std::vector<std::string>{"z1", "z9", "z10"}));
  EXPECT_TRUE(host.tree().List("elsewhere").empty());
  EXPECT_TRUE(host.tree().List("d/z1").empty()) << "a file";
}

TEST(Tree, ListsSoManyNamesAndNoMore) {
  HostTree host;
  for (int i = 0; i < 1030; ++i) host.MakeFolder("d/" + std::to_string(i));
  EXPECT_EQ(host.tree().List("d").size(), 1024u);
}

TEST(Tree, TellsWhereALinkLeads) {
  HostTree host;
  host.Link("l", "../../../0000:03:00.0");
  host.Put("f", "");
  EXPECT_EQ(host.tree().LinkName("l"), "0000:03:00.0");
  EXPECT_EQ(host.tree().LinkName("f"), "");
  EXPECT_EQ(host.tree().LinkName("elsewhere"), "");
}

TEST(Tree, ALinkToNowhereExists) {
  HostTree host;
  host.Link("l", "nowhere");
  EXPECT_TRUE(host.tree().Exists("l"));
  EXPECT_FALSE(host.tree().Exists("m"));
}

}  // namespace
}  // namespace vt::testing
