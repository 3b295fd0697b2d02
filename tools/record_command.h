// The command record: what the devices tell, as a recording.
#ifndef VT_TOOLS_RECORD_COMMAND_H_
#define VT_TOOLS_RECORD_COMMAND_H_

#include "recording/recording.h"
#include "tools/answer.h"
#include "tools/options.h"

namespace vt::tools {

// Recorded is a recording, and how the collection went that it came of.
struct Recorded {
  recording::Recording recording;
  Answer answer;  // without columns
};

// RunRecord throws Failure like RunQuery.
Recorded RunRecord(const Options& options);

// WriteRecorded writes a recording to where the options say: a file as a whole or not at all. It
// throws Failure.
void WriteRecorded(const recording::Recording& recording, const Options& options);

}  // namespace vt::tools

#endif  // VT_TOOLS_RECORD_COMMAND_H_
