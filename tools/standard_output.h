// Standard output, where data goes and nothing else.
#ifndef VT_TOOLS_STANDARD_OUTPUT_H_
#define VT_TOOLS_STANDARD_OUTPUT_H_

#include <exception>
#include <string_view>

namespace vt::tools {

// NoReader is thrown when whoever reads the output has gone: no mistake, but the end.
class NoReader : public std::exception {
 public:
  const char* what() const noexcept override { return "nobody reads the output any more"; }
};

// WriteOut writes all of a text at once. It throws NoReader, or Failure for any other reason.
// SIGPIPE has to be ignored.
void WriteOut(std::string_view text);

// WritePatiently writes all of a text to a descriptor, and waits for a reader who takes his time so
// that signals are noticed meanwhile: the first is remembered, a second ends the process. It
// returns 0 or an errno.
int WritePatiently(int descriptor, std::string_view text);

}  // namespace vt::tools

#endif  // VT_TOOLS_STANDARD_OUTPUT_H_
