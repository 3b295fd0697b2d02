#include "tools/completion_command.h"

#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "tools/completion.h"

namespace vt::tools {
namespace {

constexpr const char* kCompletionHelp =
    R"(Examples:
  voltaris completion bash
  voltaris completion zsh > _voltaris

bash: source it, or put it where bash-completion finds it, into
      ~/.local/share/bash-completion/completions/voltaris.
zsh:  put it as _voltaris into a folder of $fpath, before compinit.
fish: put it into ~/.config/fish/completions/voltaris.fish.
)";

std::string Script(const std::string& shell, const CLI::App& app) {
  const CompletedCommand program = CompletedCommandOf(app);
  if (shell == "bash") return BashCompletion(program);
  if (shell == "zsh") return ZshCompletion(program);
  return FishCompletion(program);
}

}  // namespace

void AddCompletionCommand(CLI::App& app, Action& chosen) {
  const auto shell = std::make_shared<std::string>();
  CLI::App* completion =
      app.add_subcommand("completion", "Prints a script that makes a shell complete commands.");
  completion->footer(kCompletionHelp);
  completion->add_option("shell", *shell, "bash, zsh or fish")
      ->required()
      ->type_name("SHELL")
      ->check(CLI::IsMember({"bash", "zsh", "fish"}));
  // The parser is gone when the action runs.
  completion->callback([shell, &app, &chosen] {
    chosen = [script = Script(*shell, app)](const Streams& streams) {
      streams.out << script;
      return kExitOk;
    };
  });
}

}  // namespace vt::tools
