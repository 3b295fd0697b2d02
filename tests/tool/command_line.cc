#include "tests/tool/command_line.h"

#include <CLI/CLI.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tests/tools/programs.h"
#include "tools/offline_commands.h"
#include "tools/printable.h"

namespace vt::testing {

nlohmann::json Ran::json() const {
  nlohmann::json document = nlohmann::json::parse(out, nullptr, false);
  const bool is_whole = document.contains("schema");
  const nlohmann::json checked =
      is_whole ? document
               : nlohmann::json{{"schema", "voltaris-decode-1"},
                                {"messages", nlohmann::json::array({document})},
                                {"notes", nlohmann::json::array()}};
  std::string faults;
  EXPECT_TRUE(MatchesSchema(checked["schema"], checked, &faults)) << faults << out;
  return document;
}

ReadCommand::ReadCommand(const std::vector<std::string>& words) {
  CLI::App app("", "voltaris");
  tools::AddOfflineCommands(app, action_);
  std::vector<std::string> reversed(words.rbegin(), words.rend());  // as the parser wants them
  try {
    app.parse(reversed);
  } catch (const tools::Failure& failure) {
    fault_ = {failure.code(), "", std::string(failure.what()) + '\n'};
  } catch (const CLI::ParseError& error) {
    fault_ = {tools::kExitUsage, "", std::string(error.what()) + '\n'};
  }
}

Ran ReadCommand::Run(const std::string& input) const {
  if (!fault_.err.empty()) return fault_;
  std::istringstream in(input);
  std::ostringstream out;
  std::ostringstream err;
  Ran ran;
  try {
    ran.exit_code = action_({in, out, [&err](std::string_view line) {
                               err << "voltaris: " << tools::Printable(line) << '\n';
                             }});
  } catch (const tools::Failure& failure) {
    ran.exit_code = failure.code();
    err << failure.what() << '\n';
  }
  ran.out = out.str();
  ran.err = err.str();
  return ran;
}

Ran RunCommand(const std::vector<std::string>& words, const std::string& input) {
  return ReadCommand(words).Run(input);
}

}  // namespace vt::testing
