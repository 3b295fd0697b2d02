#include "tools/watch_command.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/colour.h"
#include "tools/console.h"
#include "tools/exit_code.h"
#include "tools/gathering.h"
#include "tools/inquiry.h"
#include "tools/pause.h"
#include "tools/query.h"
#include "tools/screen.h"
#include "tools/standard_output.h"
#include "tools/stop_signals.h"
#include "tools/watch_model.h"
#include "tools/watch_text.h"
#include "tools/watch_view.h"
#include "tools/watts_text.h"

namespace vt::tools {
namespace {

using std::chrono::milliseconds;

// How often a screen is looked after while nothing happens: changes of its size are found by it.
constexpr milliseconds kLookEvery{200};

// Quit is thrown out of the middle of a round when the user does not want to wait for its end.
struct Quit {};

using ShowProgressCall = std::function<void(const GatherProgress&)>;

// AskOnce returns the answers in the order of the targets. Names are looked up and keys are read
// each time: both change while somebody watches.
std::vector<NodeAnswer> AskOnce(const Options& options, const ShowProgressCall& show) {
  std::vector<NodeAnswer> nodes(options.targets.size());
  Inquiry inquiry(options);
  inquiry.ShowProgressBy(show);
  const auto describe = [&options](const Target& target) { return DescribeQuery(options, target); };
  inquiry.Ask(inquiry.AllNodes(), describe, options.retries,
              [&nodes](std::size_t node, NodeAnswer answer, const voltaris::Results* /*results*/) {
                nodes[node] = std::move(answer);
              });
  return nodes;
}

// AskRound is the same for a round of many: what is wrong with the first one is a mistake of the
// user, and later something that may pass.
std::vector<NodeAnswer> AskRound(const Options& options, const WatchModel& model,
                                 const ShowProgressCall& show) {
  try {
    return AskOnce(options, show);
  } catch (const Failure& failure) {
    if (model.rounds() == 0) throw;
    std::vector<NodeAnswer> nodes(options.targets.size());
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      nodes[i].target = &options.targets[i];
      nodes[i].verdict = {Status::kNotAsked, failure.what()};
    }
    return nodes;
  }
}

int CodeOf(const std::vector<NodeAnswer>& nodes) {
  std::vector<Status> statuses;
  statuses.reserve(nodes.size());
  for (const NodeAnswer& node : nodes) statuses.push_back(node.verdict.status);
  return Overall(statuses);
}

int RunInLines(const Options& options) {
  // Widths of characters are the locale's; the output must not depend on that of the user.
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) (void)std::setlocale(LC_CTYPE, "");
  WatchModel model;
  for (;;) {
    const Clock::time_point start = Clock::now();
    const std::vector<NodeAnswer> nodes = AskRound(options, model, {});
    // What a signal has cut short is no round.
    if (StopSignal() != 0) return kExitSignal + StopSignal();
    model.Take(nodes);
    WriteOut(WatchBlock(model, options.watch_order));
    if (model.rounds() == options.repeat.count) return CodeOf(nodes);
    if (!PauseUntil(start + options.repeat.interval)) return kExitSignal + StopSignal();
  }
}

class ScreenWatch {
 public:
  ScreenWatch(const Options& options, bool with_colour)
      : options_(options),
        view_(options.watch_order, Screen::LocaleCharset()),
        screen_(with_colour) {}

  int Run() {
    try {
      for (;;) {
        const Clock::time_point start = Clock::now();
        Show("asking");
        const std::vector<NodeAnswer> nodes =
            AskRound(options_, model_,
                     [this](const GatherProgress& progress) { LookAfter(NoteOf(progress)); });
        if (StopSignal() != 0) return kExitSignal + StopSignal();
        model_.Take(nodes);
        if (model_.rounds() == options_.repeat.count) return CodeOf(nodes);
        Rest(start + options_.repeat.interval);
        if (StopSignal() != 0) return kExitSignal + StopSignal();
      }
    } catch (const Quit&) {
      return has_gone_ ? kExitSignal + SIGHUP : int{kExitOk};
    }
  }

 private:
  static std::string NoteOf(const GatherProgress& progress) {
    return "asking: " + std::to_string(progress.done) + " of " +
           std::to_string(progress.done + progress.running + progress.waiting);
  }

  // Rest shows what there is until the next round, and does what keys mean.
  void Rest(Clock::time_point end) {
    const double seconds = static_cast<double>(options_.repeat.interval.count()) / 1000;
    const std::string note = "every " + PlainWatts(seconds) + " s";
    Show(note);
    while (StopSignal() == 0 && Clock::now() < end) {
      const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
      Wait(std::clamp(left, milliseconds(0), kLookEvery));
      LookAfter(note);
    }
  }

  void Wait(milliseconds time) {
    std::array<pollfd, 2> watched = {pollfd{Screen::descriptor(), POLLIN, 0},
                                     pollfd{StopDescriptor(), POLLIN, 0}};
    (void)poll(watched.data(), watched.size(), static_cast<int>(time.count()));
    NoteHangUp(watched[0].revents);
  }

  void NoteHangUp(short events) {
    if ((events & (POLLHUP | POLLERR | POLLNVAL)) == 0) return;
    has_gone_ = true;
    throw Quit();
  }

  // LookAfter takes the keys that were pressed and shows what came of them.
  void LookAfter(const std::string& note) {
    bool has_changed = note != note_;
    while (const std::optional<KeyPress> key = screen_.Read()) {
      if (!view_.Press(*key)) throw Quit();
      has_changed = true;
    }
    if (has_changed) Show(note);
  }

  void Show(const std::string& note) {
    note_ = note;
    screen_.Show(view_.Lines(model_, note, screen_.width(), screen_.height()));
  }

  const Options& options_;
  WatchModel model_;
  WatchView view_;
  Screen screen_;
  std::string note_;
  bool has_gone_ = false;
};

}  // namespace

int RunWatch(const Options& options) {
  if (!Screen::IsPossible()) return RunInLines(options);
  // Lines of the log would stand in the middle of the screen.
  ConsoleSettings console = options.console;
  console.progress = false;
  if (isatty(STDERR_FILENO) == 1) console.verbosity = -1;
  OpenConsole(console);
  const int code = ScreenWatch(options, WantsColour(options.output.color, true)).Run();
  OpenConsole(options.console);
  return code;
}

}  // namespace vt::tools
