// The options of check, ping and watch: how the parser learns them, and what becomes of them.
#ifndef VT_TOOLS_LIVE_OPTIONS_H_
#define VT_TOOLS_LIVE_OPTIONS_H_

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

#include "tools/command.h"
#include "tools/configuration.h"

namespace vt::tools {

struct Options;

// RawLiveOptions is what the command line says, word for word.
struct RawLiveOptions {
  std::vector<std::string> warnings, criticals;
  std::string on_failure = "unknown";
  std::optional<unsigned> count;
  std::optional<double> interval;
};

void AddCheckOptions(CLI::App& app, RawLiveOptions& raw);
void AddPingOptions(CLI::App& app, RawLiveOptions& raw);
void AddWatchOptions(CLI::App& app, RawLiveOptions& raw);

// IsLive tells whether a command is one of the three.
bool IsLive(Command command);

// ResolveLive completes the options of one of the three. Of the settings that shape outputs ping
// takes the format and watch the order; one that does not suit them is wrong as a flag, and has no
// effect from elsewhere. It throws Failure (usage).
void ResolveLive(const RawLiveOptions& raw, const Configuration& configuration, Options& options);

}  // namespace vt::tools

#endif  // VT_TOOLS_LIVE_OPTIONS_H_
