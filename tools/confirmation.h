// A question to somebody at the terminal.
#ifndef VT_TOOLS_CONFIRMATION_H_
#define VT_TOOLS_CONFIRMATION_H_

#include <string_view>

namespace vt::tools {

// CanAsk tells whether standard input and standard error are a terminal.
bool CanAsk();

// Confirm asks on standard error and reads a line; only y and yes are one. A signal that was caught
// (tools/stop_signals.h) and the end of the input are none.
bool Confirm(std::string_view question);

}  // namespace vt::tools

#endif  // VT_TOOLS_CONFIRMATION_H_
