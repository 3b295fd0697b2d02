// voltaris-node probe as an operator runs it, on a made-up system.

#include <gtest/gtest.h>

#include "tests/node/host/host_tree.h"
#include "tests/node/host/nut_script.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

Outcome Probe(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "probe");
  return Program("voltaris-node", arguments).Finish();
}

// With adds a server, and all the time that it may take on a busy machine.
std::vector<std::string> With(const ScriptedPeer& server, std::vector<std::string> arguments) {
  arguments.insert(arguments.end(),
                   {"--nut", "127.0.0.1:" + std::to_string(server.port()), "--nut-timeout", "30"});
  return arguments;
}

TEST(ProbeCommand, PrintsWhatIsFoundWhatItTellsAndWhatIsWrong) {
  HostTree host;
  host.PutZone("intel-rapl:0", "package-0", "1000000");
  host.Put("sys/class/hwmon/hwmon0/name", "chip");
  host.Put("sys/class/hwmon/hwmon0/power1_input", "12500000");
  host.Put("sys/class/hwmon/hwmon0/power2_input", "warm");
  const Outcome outcome = Probe({"--root", host.root(), "--nut", "off"});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  const std::string file = host.root() + "/sys/class/hwmon/hwmon0/power2_input";
  EXPECT_EQ(outcome.out,
            "key                name         power (W)  caliber    category\n"
            "rapl/package-0     package-0            0  estimated  consumer\n"
            "hwmon/chip/power1  chip power1       12.5  measured   consumer\n"
            "hwmon/chip/power2  chip power2          -  measured   consumer\n"
            "\n"
            "Not readable:\n"
            "  hwmon/chip/power2: " +
                file +
                ": not a number: warm\n"
                "    A sensor may be asleep with its device; reading the file as root (cat) shows "
                "whether\n"
                "    the driver or this user is the cause.\n"
                "\n"
                "Not found:\n"
                "  supply: " +
                host.root() +
                "/sys/class/power_supply: no battery, and no supply that tells its power\n");
}

TEST(ProbeCommand, PrintsJson) {
  HostTree host;
  host.Put("sys/class/power_supply/BAT0/type", "Battery");
  host.Put("sys/class/power_supply/BAT0/status", "Discharging");
  host.Put("sys/class/power_supply/BAT0/power_now", "65536000");
  ScriptedPeer peer(NutScript({{{"LIST UPS", "BEGIN LIST UPS\nUPS u \"Cellar\"\nEND LIST UPS"},
                                {"GET VAR u ups.realpower", "VAR u ups.realpower \"40\""}},
                               {{"GET VAR u ups.realpower", "VAR u ups.realpower \"41\""}}}),
                    2);
  const Outcome outcome = Probe(With(peer, {"--root", host.root(), "-o", "json"}));
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  const nlohmann::json document = outcome.answer();
  ASSERT_EQ(document["entities"].size(), 2u);
  EXPECT_EQ(document["entities"][0]["milliwatts"], 65536);
  EXPECT_EQ(document["entities"][0]["usage"], 6554);
  EXPECT_EQ(document["entities"][0]["units"], -2);
  EXPECT_EQ(document["entities"][1]["name"], "Cellar");
  EXPECT_EQ(document["entities"][1]["milliwatts"], 41000);
}

TEST(ProbeCommand, NothingReadableEndsWithOne) {
  HostTree host;
  Outcome outcome = Probe({"--root", host.root(), "--nut", "off"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(outcome.out.starts_with("Nothing tells the power of this host.\n")) << outcome.out;
  host.MakeFolder("sys/class/hwmon/hwmon0/power1_input");
  outcome = Probe({"--root", host.root(), "--nut", "off"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_NE(outcome.out.find("power1_input: not a file"), std::string::npos) << outcome.out;
}

TEST(ProbeCommand, AServerThatSaysNothingIsLeftWhenItsTimeIsUp) {
  HostTree host;
  ScriptedPeer peer([](PeerConnection& connection) { connection.WaitForClose(); });
  const Outcome outcome =
      Probe({"--root", host.root(), "--nut", "127.0.0.1:" + std::to_string(peer.port()),
             "--nut-timeout", "0.1"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_NE(outcome.out.find("the server took too long"), std::string::npos) << outcome.out;
}

TEST(ProbeCommand, AHostileServerCannotSteerTheTerminal) {
  HostTree host;
  ScriptedPeer peer(NutScript({{{"LIST UPS", "\x1b]0;title\x07"}}}));
  const Outcome outcome = Probe(With(peer, {"--root", host.root()}));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_NE(outcome.out.find("the server answers \"?]0;title?\""), std::string::npos)
      << outcome.out;
  EXPECT_EQ(outcome.out.find('\x1b'), std::string::npos);
}

TEST(ProbeCommand, HelpShowsExamples) {
  const Outcome outcome = Probe({"--help"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.out.find("voltaris-node probe --nut 192.0.2.7:3493 -o json"), std::string::npos)
      << outcome.out;
  const Outcome whole = Program("voltaris-node", {"--help"}).Finish();
  EXPECT_NE(whole.out.find("voltaris-node probe"), std::string::npos) << whole.out;
}

TEST(ProbeCommand, WrongUsageEndsWithTwo) {
  const HostTree host;
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--nut", "somewhere"},
                                             {"--nut", "127.0.0.1:70000"},
                                             {"--nut", "localhost:3493"},
                                             {"--root", host.root() + "/elsewhere"},
                                             {"-o", "xml"},
                                             {"--nut-timeout", "0"},
                                             {"--nut-timeout", "nan"},
                                             {"more"},
                                             {"--config", "x"}}) {
    const Outcome outcome = Probe(arguments);
    EXPECT_EQ(outcome.exit_code, 2) << arguments[0];
    EXPECT_TRUE(outcome.err.starts_with("voltaris-node: ")) << outcome.err;
    EXPECT_EQ(outcome.out, "");
  }
}

TEST(ProbeCommand, IsTheFirstWordOrNone) {
  const Outcome outcome = Program("voltaris-node", {"--config", "x", "probe"}).Finish();
  EXPECT_EQ(outcome.exit_code, 2);
}

}  // namespace
}  // namespace vt::testing
