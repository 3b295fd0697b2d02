// Completion, as shells do it: bash runs the script with the words of a line; zsh and fish read
// theirs where they are installed, and fish completes as well.

#include "tools/completion.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/tool/command_line.h"
#include "tests/tools/programs.h"

namespace vt::testing {
namespace {

using Words = std::set<std::string>;

struct ShellOutcome {
  int status = -1;
  std::string out;
};

ShellOutcome InShell(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return {};
  ShellOutcome outcome;
  std::array<char, 4096> block{};
  for (std::size_t got = 0; (got = fread(block.data(), 1, block.size(), pipe)) > 0;) {
    outcome.out.append(block.data(), got);
  }
  outcome.status = pclose(pipe);
  return outcome;
}

bool HasShell(const std::string& shell) {
  return InShell("command -v " + shell + " >/dev/null").status == 0;
}

// ScriptOf is what the program itself prints, for all commands that it has.
std::string ScriptOf(const std::string& shell) {
  const Outcome outcome = Voltaris({"completion", shell});
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  return outcome.out;
}

Words Lines(const std::string& text) {
  std::istringstream lines(text);
  Words words;
  for (std::string line; std::getline(lines, line);) words.insert(line);
  return words;
}

class Completion : public ::testing::Test {
 protected:
  // Bash completes the last of the words, which are parted as readline does it.
  Words Bash(const std::vector<std::string>& words) const {
    std::string line = "voltaris";
    for (const std::string& word : words) line += " " + tools::ShellQuoted(word);
    const std::string program =
        ". \"$0\"; COMP_WORDS=(" + line + "); COMP_CWORD=" + std::to_string(words.size()) +
        "; _voltaris; if (( ${#COMPREPLY[@]} )); then printf '%s\\n' \"${COMPREPLY[@]}\"; fi";
    const ShellOutcome outcome =
        InShell("bash --norc -c " + tools::ShellQuoted(program) + " " + bash_);
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    return Lines(outcome.out);
  }

  TempFolder folder_;
  std::string bash_ = folder_.Write("bash", ScriptOf("bash"));
};

TEST_F(Completion, InBashListsAllCommands) {
  const Words commands = Bash({""});
  for (const char* command : {"collect", "set", "sum", "record", "watch", "check", "ping", "nodes",
                              "attrs", "decode", "key", "id", "config", "completion"}) {
    EXPECT_TRUE(commands.contains(command)) << command;
  }
  EXPECT_EQ(Bash({"col"}), Words{"collect"});
  EXPECT_EQ(Bash({"key", ""}), (Words{"generate", "derive", "check"}));
}

TEST_F(Completion, InBashListsTheOptionsOfTheCommand) {
  const Words options = Bash({"set", "--"});
  EXPECT_TRUE(options.contains("--dry-run"));
  EXPECT_TRUE(options.contains("--key-file"));
  EXPECT_FALSE(Bash({"collect", "--"}).contains("--dry-run"));
  EXPECT_EQ(Bash({"key", "derive", "--pass"}), Words{"--passphrase-file"});
}

TEST_F(Completion, InBashKnowsTheWordsOfValues) {
  const Words formats = {"table", "json", "ndjson", "csv", "prom"};
  EXPECT_EQ(Bash({"collect", "-o", ""}), formats);
  EXPECT_EQ(Bash({"collect", "--output", "="}), formats);
  EXPECT_EQ(Bash({"collect", "--output", "=", "ta"}), Words{"table"});
  EXPECT_EQ(Bash({"-o", ""}), formats) << "in front of the command";
  EXPECT_EQ(Bash({"decode", "-o", ""}), (Words{"text", "json", "ndjson"}));
  EXPECT_EQ(Bash({"sum", ""}), (Words{"usage", "delta-vector"}));
  EXPECT_EQ(Bash({"completion", ""}), (Words{"bash", "zsh", "fish"}));
  EXPECT_EQ(Bash({"collect", "--category", "m"}), Words{"meter"});
  EXPECT_EQ(Bash({"check", "--on-failure", "w"}), Words{"warning"});
  EXPECT_EQ(Bash({"watch", "--sort", "ch"}), (Words{"change", "change:desc"}));
}

TEST_F(Completion, InBashCompletesAttributesWhereTheyAreMeant) {
  EXPECT_EQ(Bash({"collect", "usage-"}), Words{"usage-vector"});
  EXPECT_EQ(Bash({"collect", "name", "us"}), (Words{"usage", "usage-vector"}));
  EXPECT_EQ(Bash({"collect", "--columns", "name,ent"}), (Words{"name,entity", "name,entity-type"}));
  EXPECT_EQ(Bash({"set", "le"}), Words{"level="});
  EXPECT_EQ(Bash({"set", "level", "="}), Words{});
  EXPECT_EQ(Bash({"record", "recurr"}), Words{"recurrence"});
  EXPECT_EQ(Bash({"collect", "recurr"}), Words{}) << "which only a recording can hold";
}

TEST_F(Completion, InBashGoesOnBehindTheColonOfAnOrder) {
  EXPECT_TRUE(Bash({"collect", "--sort", "usage"}).contains("usage:desc"));
  EXPECT_EQ(Bash({"collect", "--sort", "level", ":"}), Words{"desc"});
  EXPECT_EQ(Bash({"collect", "--sort", "level", ":", "de"}), Words{"desc"});
}

TEST_F(Completion, InBashListsFilesWhereFilesAreMeant) {
  const std::string file = folder_.Write("a key.file", "");
  EXPECT_EQ(Bash({"collect", "-k", folder_.path("a")}), Words{file});
  EXPECT_EQ(Bash({"decode", folder_.path("a")}), Words{file});
  EXPECT_EQ(Bash({"nodes", "-d", folder_.path("a")}), Words{}) << "a domain is no file";
}

TEST_F(Completion, InBashTakesTheValueOfAnOptionForNoCommand) {
  EXPECT_EQ(Bash({"-d", "collect", "col"}), Words{"collect"});
  EXPECT_EQ(Bash({"-d", "key", "key", "gen"}), Words{"generate"});
}

TEST_F(Completion, ForZshIsReadByZsh) {
  if (!HasShell("zsh")) GTEST_SKIP() << "there is no zsh";
  const std::string script = folder_.Write("zsh", ScriptOf("zsh"));
  const ShellOutcome checked = InShell("zsh -f -n " + script);
  EXPECT_EQ(checked.status, 0) << checked.out;
  const ShellOutcome sourced =
      InShell("zsh -f -c '. " + script + " && whence -w _voltaris_collect'");
  EXPECT_EQ(sourced.out, "_voltaris_collect: function\n");
}

TEST_F(Completion, ForFishIsReadByFishWhichCompletes) {
  if (!HasShell("fish")) GTEST_SKIP() << "there is no fish";
  const std::string script = folder_.Write("fish", ScriptOf("fish"));
  const ShellOutcome checked = InShell("fish -n " + script);
  EXPECT_EQ(checked.status, 0) << checked.out;
  const auto complete = [&](const std::string& line) {
    const ShellOutcome outcome =
        InShell("HOME=" + folder_.path("") + " fish --no-config -c " +
                tools::ShellQuoted("source " + script + "; complete -C '" + line + "'"));
    Words words;
    for (const std::string& found : Lines(outcome.out))
      words.insert(found.substr(0, found.find('\t')));
    return words;
  };
  EXPECT_EQ(complete("voltaris col"), Words{"collect"});
  EXPECT_EQ(complete("voltaris key "), (Words{"generate", "derive", "check"}));
  EXPECT_EQ(complete("voltaris decode -o "), (Words{"text", "json", "ndjson"}));
  EXPECT_EQ(complete("voltaris collect --dry"), Words{});
  EXPECT_EQ(complete("voltaris set --dry"), Words{"--dry-run"});
  EXPECT_EQ(complete("voltaris -d key collect usage-"), Words{"usage-vector"});
}

TEST(CompletionScripts, NeedOneOfTheThreeShells) {
  EXPECT_EQ(RunCommand({"completion", "csh"}).exit_code, 2);
  EXPECT_EQ(RunCommand({"completion"}).exit_code, 2);
}

TEST(CompletionScripts, QuoteWhatAShellWouldTakeForSomethingElse) {
  tools::CompletedCommand program;
  tools::CompletedOption option;
  option.names = {"--odd"};
  option.meaning = "it's [odd]: $(date) `date`";
  option.value.kind = tools::CompletedValue::Kind::kAny;
  option.value.name = "X";
  program.options.push_back(option);
  EXPECT_NE(tools::ZshCompletion(program).find(R"('[it'\''s \[odd\]: $(date) `date`]:X: ')"),
            std::string::npos);
  EXPECT_NE(tools::FishCompletion(program).find(R"('it\'s [odd]: $(date) `date`')"),
            std::string::npos);
}

}  // namespace
}  // namespace vt::testing
