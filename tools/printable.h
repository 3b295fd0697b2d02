// Texts from the network, made harmless for terminals and files of lines.
#ifndef VT_TOOLS_PRINTABLE_H_
#define VT_TOOLS_PRINTABLE_H_

#include <string>
#include <string_view>

namespace vt::tools {

// Printable is a text in which control characters, characters that change the direction of what
// follows, and bytes that are no UTF-8 stand as \xNN, byte by byte.
std::string Printable(std::string_view text);

}  // namespace vt::tools

#endif  // VT_TOOLS_PRINTABLE_H_
