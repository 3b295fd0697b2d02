// The settings as flags of the command line, made from their table.
#ifndef VT_TOOLS_SETTING_OPTIONS_H_
#define VT_TOOLS_SETTING_OPTIONS_H_

#include <CLI/CLI.hpp>

#include "tools/configuration.h"

namespace vt::tools {

// OutputSettings tells whether a command has the settings that shape an output.
enum class OutputSettings { kTaken, kLeftOut };

// AddSettingOptions gives app a flag for each setting, and -c,--config and --profile; a -c that app
// has already stays what it is.
void AddSettingOptions(CLI::App& app, OutputSettings output = OutputSettings::kTaken);

// SourcesGiven is the environment of the process and the flags that were given to app, and to the
// commands above it where app itself was not given them.
ConfigurationSources SourcesGiven(const CLI::App& app,
                                  OutputSettings output = OutputSettings::kTaken);

}  // namespace vt::tools

#endif  // VT_TOOLS_SETTING_OPTIONS_H_
