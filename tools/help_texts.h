// What --help says behind the options of the commands that ask nodes: examples that can be tried,
// what there is to know, and the exit codes.
#ifndef VT_TOOLS_HELP_TEXTS_H_
#define VT_TOOLS_HELP_TEXTS_H_

#include <string>

namespace vt::tools {

std::string GeneralHelp();  // of voltaris itself
std::string CollectHelp();
std::string SetHelp();
std::string SumHelp();
std::string RecordHelp();
std::string CheckHelp();
std::string PingHelp();
std::string WatchHelp();

// RecordableWords lists the attributes that can be recorded, in lines, the last one ended too.
std::string RecordableWords();

}  // namespace vt::tools

#endif  // VT_TOOLS_HELP_TEXTS_H_
