// What is wrong with a command line, told so that its author sees what to type instead.
#ifndef VT_TOOLS_USAGE_FAULT_H_
#define VT_TOOLS_USAGE_FAULT_H_

#include <CLI/CLI.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace vt::tools {

// UsageFault is the message for an error of the parser: the word that is wrong, the nearest right
// one if there is one, and the help that tells more.
std::string UsageFault(CLI::App& app, const CLI::ParseError& error);

// NearestWord is the one of the words that was probably meant: the word is its beginning, or a few
// letters differ, are missing, too many or swapped. It is empty when none is near.
std::string NearestWord(std::string_view word, const std::vector<std::string>& words);

}  // namespace vt::tools

#endif  // VT_TOOLS_USAGE_FAULT_H_
