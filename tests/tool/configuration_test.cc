// Where settings come from, and what of a configuration file is wrong.
#include "tools/configuration.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/tools/programs.h"
#include "tools/exit_code.h"

namespace vt::tools {
namespace {

using Strings = std::vector<std::string>;

class ConfigurationTest : public ::testing::Test {
 protected:
  ConfigurationTest() {
    sources_.system_file = folder_.path("system.toml");
    sources_.environment["XDG_CONFIG_HOME"] = folder_.path("xdg");
    sources_.environment["HOME"] = "/home/someone";
  }

  std::string WriteUser(const std::string& content) {
    std::filesystem::create_directories(folder_.path("xdg/voltaris"));
    return folder_.Write("xdg/voltaris/config.toml", content);
  }
  std::string WriteSystem(const std::string& content) {
    return folder_.Write("system.toml", content);
  }

  Configuration Load() const { return Configuration::Load(sources_); }
  std::string Fault() const {
    try {
      Load();
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), kExitUsage);
      return failure.what();
    }
    return "none";
  }
  std::string OriginOf(const char* name) const { return Load().Get(name).origin.text(); }

  vt::testing::TempFolder folder_;
  ConfigurationSources sources_;
};

TEST_F(ConfigurationTest, WithoutAnyFileThePresetsHold) {
  const Configuration configuration = Load();
  EXPECT_EQ(configuration.Number("port"), 7440);
  EXPECT_EQ(configuration.Text("domain"), "default");
  EXPECT_EQ(configuration.Text("key-file"), std::nullopt);
  EXPECT_EQ(configuration.Wait("timeout"), std::chrono::seconds(60));
  EXPECT_FALSE(configuration.Flag("no-header"));
  EXPECT_EQ(configuration.Get("port").origin.text(), "preset");
  EXPECT_TRUE(configuration.files().empty());
}

TEST_F(ConfigurationTest, AFlagComesBeforeTheEnvironmentBeforeTheUserBeforeTheSystem) {
  const std::string system = WriteSystem("domain = \"system\"\n");
  EXPECT_EQ(OriginOf("domain"), system + ":1:10");
  const std::string user = WriteUser("\ndomain = \"user\"\n");
  EXPECT_EQ(OriginOf("domain"), user + ":2:10");
  sources_.environment["VOLTARIS_DOMAIN"] = "variable";
  EXPECT_EQ(OriginOf("domain"), "VOLTARIS_DOMAIN");
  sources_.flags["domain"] = {"flag"};
  EXPECT_EQ(OriginOf("domain"), "--domain");
  EXPECT_EQ(Load().Text("domain"), "flag");
}

TEST_F(ConfigurationTest, WhatTheUsersFileDoesNotTellTheSystemsTells) {
  WriteSystem("domain = \"system\"\nport = 1\n");
  WriteUser("port = 2\n");
  EXPECT_EQ(Load().Number("port"), 2);
  EXPECT_EQ(Load().Text("domain"), "system");
}

TEST_F(ConfigurationTest, AnEmptyVariableCountsAsNone) {
  sources_.environment["VOLTARIS_DOMAIN"] = "";
  EXPECT_EQ(OriginOf("domain"), "preset");
}

TEST_F(ConfigurationTest, WithoutTheXdgFolderTheUsersFileLiesBelowHome) {
  sources_.environment.erase("XDG_CONFIG_HOME");
  sources_.environment["HOME"] = folder_.path("home");
  std::filesystem::create_directories(folder_.path("home/.config/voltaris"));
  folder_.Write("home/.config/voltaris/config.toml", "port = 3\n");
  EXPECT_EQ(Load().Number("port"), 3);
  sources_.environment["XDG_CONFIG_HOME"] = "relative";
  EXPECT_EQ(Load().Number("port"), 3);
}

TEST_F(ConfigurationTest, AProfileComesBeforeTheRestOfItsFileAndNotBeforeTheUsersFile) {
  WriteUser("port = 2\n[profiles.lab]\ndomain = \"lab\"\n");
  const std::string system = WriteSystem(
      "domain = \"system\"\nport = 1\npriority = 7\n[profiles.lab]\nport = 9\n"
      "priority = 8\n");
  sources_.flags["profile"] = {"lab"};
  const Configuration configuration = Load();
  EXPECT_EQ(configuration.profile(), "lab");
  EXPECT_EQ(configuration.Text("domain"), "lab");
  EXPECT_EQ(configuration.Number("port"), 2);
  EXPECT_EQ(configuration.Number("priority"), 8);
  EXPECT_EQ(configuration.Get("priority").origin.text(), system + ":6:12 (profile lab)");
}

TEST_F(ConfigurationTest, AFileMayChooseTheProfile) {
  WriteSystem("profile = \"a\"\n[profiles.a]\nport = 1\n[profiles.b]\nport = 2\n");
  EXPECT_EQ(Load().Number("port"), 1);
  sources_.environment["VOLTARIS_PROFILE"] = "b";
  EXPECT_EQ(Load().Number("port"), 2);
  sources_.flags["profile"] = {"c"};
  EXPECT_EQ(Fault(), "there is no profile \"c\"; there are a, b");
}

TEST_F(ConfigurationTest, TheNamedFileIsReadInsteadOfAllOthers) {
  WriteUser("port = 2\n");
  const std::string named = folder_.Write("named.toml", "domain = \"named\"\n");
  sources_.environment["VOLTARIS_CONFIG"] = folder_.path("not-this-one");
  sources_.flags["config"] = {named};
  EXPECT_EQ(Load().files(), Strings{named});
  EXPECT_EQ(Load().Number("port"), 7440);
  sources_.flags["config"] = {folder_.path("missing")};
  EXPECT_EQ(Fault(), folder_.path("missing") + ": No such file or directory");
}

TEST_F(ConfigurationTest, PathsOfAFileBeginInItsFolderOrAtHome) {
  WriteSystem("key-file = \"office.key\"\nid-file = \"~/office.id\"\ntargets = \"/etc/nodes\"\n");
  EXPECT_EQ(Load().Text("key-file"), folder_.path("office.key"));
  EXPECT_EQ(Load().Text("id-file"), "/home/someone/office.id");
  EXPECT_EQ(Load().Text("targets"), "/etc/nodes");
}

TEST_F(ConfigurationTest, ListsAreListsOrTextsWithCommas) {
  WriteSystem("node = [\"a\", \"b[1-2,4]\"]\ncolumns = \"name,usage\"\n");
  EXPECT_EQ(Load().Texts("node"), (Strings{"a", "b[1-2,4]"}));
  EXPECT_EQ(Load().Texts("columns"), (Strings{"name", "usage"}));
  sources_.flags["node"] = {"c,d[1,2]", "e"};
  EXPECT_EQ(Load().Texts("node"), (Strings{"c", "d[1,2]", "e"}));
}

TEST_F(ConfigurationTest, SecondsMayHaveAFraction) {
  WriteSystem("timeout = 2.5\nconnect-timeout = 4\n");
  EXPECT_EQ(Load().Wait("timeout"), std::chrono::milliseconds(2500));
  EXPECT_EQ(Load().Wait("connect-timeout"), std::chrono::milliseconds(4000));
}

TEST_F(ConfigurationTest, AllThatIsWrongIsToldWithLineAndColumn) {
  const std::string path = WriteSystem(
      "port = 70000\n"
      "prot = 1\n"
      "domain = 5\n"
      "output = \"xml\"\n"
      "no-header = \"yes\"\n"
      "[profiles.lab]\n"
      "device-timeout = 181\n"
      "key = \"0123456789\"\n");
  const std::string fault = Fault();
  for (const char* line : {
           ":1:8: 'port' must be a whole number from 1 to 65535, not '70000'",
           ":2:1: there is no setting \"prot\"",
           ":3:10: 'domain' must be a text",
           ":4:10: 'output' must be one of table, json, ndjson, csv, prom, not 'xml'",
           ":5:13: 'no-header' must be true or false",
           ":7:18: 'device-timeout' must be a whole number from 1 to 180, not '181'",
           ":8:1: there is no setting \"key\"; a secret stands in a file of its own",
       }) {
    EXPECT_NE(fault.find(path + line), std::string::npos) << line << "\nis not in\n" << fault;
  }
  EXPECT_EQ(fault.find("0123456789"), std::string::npos);
}

TEST_F(ConfigurationTest, WhatIsNoTomlIsToldWithLineAndColumn) {
  const std::string path = WriteSystem("port = 1\ndomain = \n");
  EXPECT_TRUE(Fault().starts_with(path + ":2:")) << Fault();
}

TEST_F(ConfigurationTest, FlagsAndVariablesAreCheckedAsFilesAre) {
  sources_.flags["port"] = {"0"};
  sources_.flags["domain"] = {"a", "b"};
  sources_.environment["VOLTARIS_COLOR"] = "often";
  sources_.environment["VOLTARIS_TIMEOUT"] = "nan";
  EXPECT_EQ(Fault(),
            "--port must be a whole number from 1 to 65535, not '0'; "
            "--domain must be given once; "
            "VOLTARIS_TIMEOUT must be a number of seconds from 0.001 to 86400, not 'nan'; "
            "VOLTARIS_COLOR must be one of auto, always, never, not 'often'");
}

TEST_F(ConfigurationTest, EveryPresetIsAValueThatItsSettingAllows) {
  for (const Setting& setting : AllSettings()) {
    if (setting.preset.empty()) continue;
    EXPECT_EQ(FaultOf(setting, {std::string(setting.preset)}), "") << setting.name;
  }
}

TEST_F(ConfigurationTest, NoTruncationOfAFileDoesMoreThanFail) {
  const std::string whole =
      "node = [\"a\", \"b\"]\nport = 1\n[profiles.lab]\ntimeout = 1.5\nno-header = true\n";
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    WriteSystem(whole.substr(0, size));
    const std::string fault = Fault();
    EXPECT_TRUE(fault == "none" || fault.starts_with(sources_.system_file + ":")) << fault;
  }
}

}  // namespace
}  // namespace vt::tools
